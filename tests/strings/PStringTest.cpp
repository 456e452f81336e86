// The string value: empty strings, sharing and copy-on-write, widening,
// comparisons in every mode, search bounds and parameter substitution.
#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PString.h>
#include <qvbase/PUNIString.h>

#include "support/LocaleTestSupport.h"
#include "support/StringTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Exposes the handler that a string holds.
class InspectedString : public PString {
public:
  InspectedString() {}
  InspectedString(const PString& other) : PString(other) {}
  explicit InspectedString(PStringHandler* handler) : PString(handler) {}
  InspectedString(PStringHandler* handler, PStringHandlerDec* type) : PString(handler, type) {}
  using PString::operator=;
  PStringHandler* Held() const { return Handler(); }
  PStringHandlerDec* Declared() const { return DeclaredType(); }
};

class InspectedASCII : public PASCIIString {
public:
  using PASCIIString::PASCIIString;
  using PASCIIString::operator=;
  PStringHandler* Held() const { return Handler(); }
};

// Counts the searches that reach the handler.
class CountingHandler : public PASCIIStringHandler {
public:
  CountingHandler(const char* text, ULONG length)
      : PASCIIStringHandler(text, 0, length, /*copy=*/true) {}
  ULONG FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                          TypStringComp mode) const override {
    ++calls;
    return PASCIIStringHandler::FindSubHandlerFwd(what, from, mode);
  }
  mutable int calls = 0;
};

std::string Narrow(const PString& s) {
  PMBString mb(s);
  return std::string(static_cast<const char*>(mb));
}

// An application's handler that keeps the partner of every search, compare
// and insert in a string of its own, past the call, and notes how many
// references the partner had when it arrived.
class KeepingHandler : public PMBStringHandler {
public:
  explicit KeepingHandler(const char* text)
      : PMBStringHandler(text, 0, static_cast<ULONG>(std::strlen(text)), /*copy=*/true) {}
  bool CanBeModified() const override { return true; }
  LONG CompareSubHandler(ULONG start, const PStringHandler* other, ULONG otherStart, ULONG count,
                         TypStringComp mode) const override {
    Outermost call(other);
    return PMBStringHandler::CompareSubHandler(start, other, otherStart, count, mode);
  }
  ULONG FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                          TypStringComp mode) const override {
    Outermost call(what);
    return PMBStringHandler::FindSubHandlerFwd(what, from, mode);
  }
  ULONG FindSubHandlerBwd(const PStringHandler* what, ULONG from,
                          TypStringComp mode) const override {
    Outermost call(what);
    return PMBStringHandler::FindSubHandlerBwd(what, from, mode);
  }
  void InsertHandler(const PStringHandler* other, ULONG pos) override {
    Outermost call(other);
    PMBStringHandler::InsertHandler(other, pos);
  }

  static std::vector<ULONG> locks;
  static std::vector<InspectedString> kept;

private:
  // Keeps the partner of a call made from outside (a search compares
  // through the same handler's own calls).
  class Outermost {
  public:
    explicit Outermost(const PStringHandler* partner) {
      if (depth++ == 0) {
        locks.push_back(partner->NumSmartLocks());
        kept.emplace_back(const_cast<PStringHandler*>(partner));
      }
    }
    ~Outermost() { --depth; }
  };
  static int depth;
};
int KeepingHandler::depth = 0;
std::vector<ULONG> KeepingHandler::locks;
std::vector<InspectedString> KeepingHandler::kept;

const unsigned short kWideAbc[] = {'a', 'b', 'c', 0};

} // namespace

// --- Boundaries --------------------------------------------------------------

TEST(PString, AssigningEmptyStringLeavesNoHandler) {
  InspectedASCII text("abc", /*copy=*/true);
  text = PString();
  EXPECT_EQ(text.Held(), nullptr);
  EXPECT_EQ(text.CodeSet(), kCodeSetASCII);
  EXPECT_EQ(&gASCIIStringHandlerDec, text.HandlerType());
}

TEST(PString, DeletingWholeContentLeavesNoHandler) {
  InspectedASCII text("abc", /*copy=*/true);
  text.Delete(0, 3);
  EXPECT_EQ(text.Held(), nullptr);
  EXPECT_EQ(text.CodeSet(), kCodeSetASCII);
  EXPECT_EQ(&gASCIIStringHandlerDec, text.HandlerType());
}

TEST(PString, InsertIntoEmptyStringIgnoresPosition) {
  PString text;
  text.Insert(PString("abc"), 17);
  EXPECT_EQ(Narrow(text), "abc");
  PString single;
  single.Insert(static_cast<LONG>('x'), 42);
  EXPECT_EQ(Narrow(single), "x");
}

TEST(PString, CaseVariantsAreUnequalButOrderedByCompositeOrder) {
  PString lower("abc");
  PString upper("ABC");
  EXPECT_FALSE(lower == upper);
  EXPECT_TRUE(lower != upper);
  // Equal ignoring case and (in the "C" locale) decided by collation, which
  // is byte order: 'A' < 'a'.
  qvbase::test::ScopedLocale c("C");
  LONG composite = lower.CompareTo(upper, kStrCompComposite);
  EXPECT_EQ(lower.CompareTo(upper, kStrCompIgnoreCase), 0);
  EXPECT_GT(composite, 0);
  EXPECT_TRUE(upper < lower);
  EXPECT_TRUE(lower > upper);
  EXPECT_EQ(composite > 0, lower > upper);
  EXPECT_EQ(composite < 0, lower < upper);
}

TEST(PString, EmptyStringsCompareBelowOthersInEveryMode) {
  const TypStringComp kModes[] = {kStrCompExact, kStrCompIgnoreCase, kStrCompCollate,
                                  kStrCompNoCase, kStrCompComposite};
  PString empty;
  PString alsoEmpty("");
  PString text("a");
  for (TypStringComp mode : kModes) {
    SCOPED_TRACE(mode);
    EXPECT_LT(empty.CompareTo(text, mode), 0);
    EXPECT_GT(text.CompareTo(empty, mode), 0);
    EXPECT_EQ(empty.CompareTo(alsoEmpty, mode), 0);
    EXPECT_EQ(alsoEmpty.CompareTo(empty, mode), 0);
  }
}

TEST(PString, ForwardSearchPastRoomReturnsNotFoundWithoutHandler) {
  CountingHandler* handler = new CountingHandler("abcdef", 6);
  InspectedString text(handler);
  EXPECT_EQ(text.FindForward(PString("def"), 4, kStrCompExact), kStringNotFound);
  EXPECT_EQ(handler->calls, 0);
  EXPECT_EQ(text.FindForward(PString("def"), 3, kStrCompExact), 3u);
  EXPECT_EQ(handler->calls, 1);
}

TEST(PString, CopyThenChangeLeavesSourceUnchanged) {
  InspectedString source(PString("abc", /*copy=*/true));
  InspectedString copy(source);
  EXPECT_EQ(source.Held(), copy.Held());
  EXPECT_EQ(source.Held()->NumSmartLocks(), 2u);
  copy += "d";
  EXPECT_NE(source.Held(), copy.Held());
  EXPECT_EQ(Narrow(source), "abc");
  EXPECT_EQ(Narrow(copy), "abcd");
}

// A copy takes one more reference on the source's handler, gives it back
// when it goes, and is of free type whatever the source's declared type.
TEST(PString, CopySharesTheHandlerAndIsOfFreeType) {
  InspectedASCII ascii("abc", /*copy=*/true);
  PStringHandler* handler = ascii.Held();
  ASSERT_NE(handler, nullptr);
  ASSERT_EQ(handler->NumSmartLocks(), 1u);
  {
    InspectedString copy(static_cast<const PString&>(ascii));
    EXPECT_EQ(copy.Held(), handler);
    EXPECT_EQ(handler->NumSmartLocks(), 2u);
    EXPECT_EQ(copy.Declared(), nullptr);
    InspectedString again(copy);
    EXPECT_EQ(again.Held(), handler);
    EXPECT_EQ(handler->NumSmartLocks(), 3u);
    // Of free type, the copy takes a Unicode handler as it is.
    copy = PUNIString(kWideAbc, /*copy=*/true);
    EXPECT_EQ(copy.CodeSet(), kCodeSetUnicode);
    EXPECT_EQ(handler->NumSmartLocks(), 2u);
  }
  EXPECT_EQ(handler->NumSmartLocks(), 1u);
  EXPECT_EQ(Narrow(ascii), "abc");

  InspectedString empty;
  InspectedString emptyCopy(empty);
  EXPECT_EQ(emptyCopy.Held(), nullptr);
  EXPECT_TRUE(emptyCopy.IsEmpty());
}

TEST(PString, FreeTypeAsciiTextReceivingUnicodeBecomesUnicode) {
  PString text(PASCIIString("ab", /*copy=*/true));
  ASSERT_EQ(&gASCIIStringHandlerDec, text.HandlerType());
  text += PUNIString(kWideAbc, /*copy=*/true);
  EXPECT_EQ(text.CodeSet(), kCodeSetUnicode);
  EXPECT_EQ(text.Len(), 5u);
  EXPECT_EQ(LONG('c'), text.GetChar(4));
}

// --- Construction and globals ----------------------------------------------

TEST(PString, GlobalsHaveTheirTexts) {
  EXPECT_FALSE(gConstStrForceCopy);
  EXPECT_STREQ("", gVoidCharString);
  EXPECT_STREQ("Undefined Resource String", gUndefinedString);
}

TEST(PString, FreeTypeStringFromNarrowTextIsMultibyte) {
  PString text("abc");
  EXPECT_EQ(&gMBStringHandlerDec, text.HandlerType());
  EXPECT_EQ(text.CodeSet(), kCodeSetASCII);
  EXPECT_EQ(text.Len(), 3u);
}

TEST(PString, LiteralIsBorrowedUnlessForceCopyIsSet) {
  static const char kText[] = "borrowed";
  InspectedString borrowed{PString(kText)};
  EXPECT_EQ(static_cast<const void*>(kText), borrowed.Held()->GetContent());
  EXPECT_FALSE(borrowed.Held()->CanBeModified());
  qvbase::test::ScopedForceCopy force(true);
  InspectedString copied{PString(kText)};
  EXPECT_NE(static_cast<const void*>(kText), copied.Held()->GetContent());
}

TEST(PString, WideTextBuildsUnicodeString) {
  PString text(kWideAbc, /*copy=*/true);
  EXPECT_EQ(text.CodeSet(), kCodeSetUnicode);
  EXPECT_EQ(text.Len(), 3u);
  EXPECT_EQ(text.Size(), 6u);
  EXPECT_EQ(text.FullSize(), 8u);
}

TEST(PString, EmptyStringQueriesAnswerZero) {
  PString empty;
  EXPECT_EQ(empty.Len(), 0u);
  EXPECT_EQ(empty.Size(), 0u);
  EXPECT_EQ(empty.FullSize(), 0u);
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_FALSE(empty.IsNotEmpty());
  EXPECT_EQ(empty.GetChar(0), 0);
  EXPECT_EQ(empty.HandlerType(), nullptr);
}

TEST(PString, NullTextGivesEmptyString) {
  PString text(static_cast<const char*>(nullptr), true);
  EXPECT_TRUE(text.IsEmpty());
}

// --- Assignment, copy-on-write, widening ------------------------------------

TEST(PString, SelfAssignmentKeepsContent) {
  PString text("abc", true);
  PString& alias = text;
  text = alias;
  EXPECT_EQ(Narrow(text), "abc");
}

TEST(PString, DeclaredTypeConvertsAssignedHandler) {
  InspectedASCII ascii;
  ascii = PString("xyz"); // multibyte in
  EXPECT_EQ(&gASCIIStringHandlerDec, ascii.Held()->GetHandlerType());
  EXPECT_STREQ("xyz", static_cast<const char*>(ascii));
}

TEST(PString, FreeTypeSharesAssignedHandler) {
  InspectedString source(PString("abc", true));
  InspectedString target;
  target = source;
  EXPECT_EQ(source.Held(), target.Held());
}

TEST(PString, FreeTypeAsciiWidensToMultibyteForMultibyteContent) {
  qvbase::test::ScopedDoubleByteLocale locale;
  if (!locale.active())
    return qvbase::test::MissingSetUpLocale("double-byte (UTF-8)");
  PString text(PASCIIString("ab", true));
  text += PString(locale.doubleByte(), true);
  EXPECT_EQ(&gMBStringHandlerDec, text.HandlerType());
  EXPECT_EQ(text.CodeSet(), kCodeSetMultiByte);
}

TEST(PString, UnicodeStringNeverNarrows) {
  PString text(kWideAbc, true);
  text += PString("de");
  text += PASCIIString("f", true);
  EXPECT_EQ(text.CodeSet(), kCodeSetUnicode);
  EXPECT_EQ(text.Len(), 6u);
}

TEST(PString, SharedStringMutationsDuplicateFirst) {
  InspectedString source(PString("abcdef", true));
  struct Step {
    const char* name;
    void (*change)(PString&);
    const char* expected;
  };
  const Step kSteps[] = {
      {"Delete", [](PString& s) { s.Delete(1, 2); }, "adef"},
      {"SetChar", [](PString& s) { s.SetChar(0, 'z'); }, "zbcdef"},
      {"Insert", [](PString& s) { s.Insert("xy", 3); }, "abcxydef"},
      {"InsertChar", [](PString& s) { s.Insert(LONG('q'), 0); }, "qabcdef"},
  };
  for (const Step& step : kSteps) {
    SCOPED_TRACE(step.name);
    InspectedString copy(source);
    step.change(copy);
    EXPECT_EQ(step.expected, Narrow(copy));
    EXPECT_EQ(Narrow(source), "abcdef");
    EXPECT_NE(source.Held(), copy.Held());
  }
}

TEST(PString, PrivateStringIsChangedInPlace) {
  InspectedString text(PString("abcdef", true));
  PStringHandler* before = text.Held();
  text.Delete(0, 1);
  EXPECT_EQ(before, text.Held());
}

TEST(PString, DeleteClampsAndIgnoresStartPastEnd) {
  PString text("abcdef", true);
  text.Delete(10, 2);
  EXPECT_EQ(Narrow(text), "abcdef");
  text.Delete(4, 100);
  EXPECT_EQ(Narrow(text), "abcd");
}

TEST(PString, SetCharPastEndIsIgnored) {
  PString text("abc", true);
  text.SetChar(3, 'x');
  EXPECT_EQ(Narrow(text), "abc");
}

TEST(PString, SlicesClampTheirRange) {
  PString text("abcdef", true);
  EXPECT_EQ(Narrow(text.Left(3)), "abc");
  EXPECT_EQ(Narrow(text.Left(99)), "abcdef");
  EXPECT_EQ(Narrow(text.Mid(2, 2)), "cd");
  EXPECT_EQ(Narrow(text.Mid(4, 99)), "ef");
  EXPECT_TRUE(text.Mid(6, 1).IsEmpty());
  EXPECT_EQ(Narrow(text.Right(2)), "ef");
  EXPECT_EQ(Narrow(text.Right(99)), "abcdef");
  EXPECT_TRUE(PString().Left(3).IsEmpty());
}

TEST(PString, AppendOperatorsAppendAtEnd) {
  PString text;
  text += "ab";
  text += PString("cd");
  text += 'e';
  EXPECT_EQ(Narrow(text), "abcde");
}

// --- Searching ----------------------------------------------------------------

TEST(PString, ForwardSearchesRejectOutOfRangeStart) {
  PString text("abcabc", true);
  EXPECT_EQ(text.FindForward("abc", 1, kStrCompExact), 3u);
  EXPECT_EQ(text.FindForward("abc", 4, kStrCompExact), kStringNotFound);
  EXPECT_EQ(text.FindForward(LONG('c'), 5, kStrCompExact), 5u);
  EXPECT_EQ(text.FindForward(LONG('c'), 6, kStrCompExact), kStringNotFound);
  EXPECT_EQ(text.FindForward(LONG('c'), 0xFFFFFFFFu, kStrCompExact), kStringNotFound);
  EXPECT_EQ(text.FindForward("abc", 0xFFFFFFFFu, kStrCompExact), kStringNotFound);
}

TEST(PString, BackwardSearchesClampStart) {
  PString text("abcabc", true);
  EXPECT_EQ(text.FindBackward("abc", 1000, kStrCompExact), 3u);
  EXPECT_EQ(text.FindBackward("abc", 2, kStrCompExact), 0u);
  EXPECT_EQ(text.FindBackward(LONG('c'), 1000, kStrCompExact), 5u);
  EXPECT_EQ(text.FindBackward(LONG('c'), 4, kStrCompExact), 2u);
  EXPECT_EQ(text.FindBackward("abcabcx", 1000, kStrCompExact), kStringNotFound);
  EXPECT_EQ(PString().FindBackward(LONG('a'), 0, kStrCompExact), kStringNotFound);
}

TEST(PString, SearchesFollowTheMode) {
  PString text("Hello World", true);
  EXPECT_EQ(text.FindForward("world", 0, kStrCompExact), kStringNotFound);
  EXPECT_EQ(text.FindForward("world", 0, kStrCompIgnoreCase), 6u);
  EXPECT_EQ(text.FindForward("WORLD", 0, kStrCompNoCase), 6u);
  EXPECT_EQ(text.FindForward(LONG('w'), 0, kStrCompIgnoreCase), 6u);
  EXPECT_EQ(text.FindBackward("wORLD", 100, kStrCompIgnoreCase), 6u);
}

TEST(PString, SearchesAcrossEncodings) {
  PString wide(kWideAbc, true);
  EXPECT_EQ(wide.FindForward("bc", 0, kStrCompExact), 1u);
  PString narrow("xxabc", true);
  EXPECT_EQ(narrow.FindForward(PUNIString(kWideAbc, true), 0, kStrCompExact), 2u);
}

// --- Comparison ---------------------------------------------------------------

TEST(PString, ComparisonTableInEveryMode) {
  qvbase::test::ScopedLocale c("C");
  struct Row {
    const char* a;
    const char* b;
    TypStringComp mode;
    int sign;
  };
  const Row kRows[] = {
      {"abc", "abc", kStrCompExact, 0},      {"abc", "abd", kStrCompExact, -1},
      {"abc", "ab", kStrCompExact, 1},       {"abc", "ABC", kStrCompExact, 1},
      {"abc", "ABC", kStrCompIgnoreCase, 0}, {"abc", "ABD", kStrCompIgnoreCase, -1},
      {"abc", "ABC", kStrCompNoCase, 0},     {"abc", "ABC", kStrCompCollate, 1},
      {"ABC", "abc", kStrCompComposite, -1}, {"abd", "ABC", kStrCompComposite, 1},
      {"abc", "abc", kStrCompComposite, 0},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.a) + " vs " + row.b + " mode " + std::to_string(row.mode));
    LONG result = PString(row.a).CompareTo(PString(row.b), row.mode);
    EXPECT_EQ(row.sign, result < 0 ? -1 : (result > 0 ? 1 : 0));
    // Every encoding pairing gives the same sign.
    LONG wide = PUNIString(PString(row.a)).CompareTo(PASCIIString(row.b), row.mode);
    EXPECT_EQ(row.sign, wide < 0 ? -1 : (wide > 0 ? 1 : 0));
    LONG mixed = PASCIIString(row.a).CompareTo(PUNIString(PString(row.b)), row.mode);
    EXPECT_EQ(row.sign, mixed < 0 ? -1 : (mixed > 0 ? 1 : 0));
  }
}

TEST(PString, CharPointerOperatorsMatchStringOperators) {
  PString text("abc");
  EXPECT_TRUE(text == "abc");
  EXPECT_TRUE(text != "ABC");
  EXPECT_TRUE(text < "abd");
  EXPECT_TRUE(text <= "abc");
  EXPECT_TRUE(text > "abb");
  EXPECT_TRUE(text >= "abc");
}

// --- Parameter substitution --------------------------------------------------

TEST(PString, FindNextParameterReportsNameAndLength) {
  PString text("x ^name^ y");
  PASCIIString name;
  ULONG length = 0;
  EXPECT_EQ(text.FindNextParameter(&name, &length, 0), 2u);
  EXPECT_EQ(length, 6u);
  EXPECT_STREQ("name", static_cast<const char*>(name));
}

TEST(PString, FindNextParameterEscapeHasEmptyName) {
  PString text("a^^b");
  PASCIIString name("old", true);
  ULONG length = 0;
  EXPECT_EQ(text.FindNextParameter(&name, &length, 0), 1u);
  EXPECT_EQ(length, 2u);
  EXPECT_TRUE(name.IsEmpty());
}

TEST(PString, FindNextParameterWithoutPairLeavesOutputsAlone) {
  PString text("a^b");
  PASCIIString name("old", true);
  ULONG length = 77;
  EXPECT_EQ(text.FindNextParameter(&name, &length, 0), kStringNotFound);
  EXPECT_EQ(length, 77u);
  EXPECT_STREQ("old", static_cast<const char*>(name));
  EXPECT_EQ(PString("^a^").FindNextParameter(&name, &length, 1), kStringNotFound);
}

TEST(PString, SetParameterReplacesFirstOccurrenceIgnoringCase) {
  PString text("****^module^: UNDEFINED RESOURCE STRING #^num^**** ^MODULE^");
  text.SetParameter(PASCIIString("Module"), PString("core"));
  EXPECT_EQ(Narrow(text), "****core: UNDEFINED RESOURCE STRING #^num^**** ^MODULE^");
  text.SetParameter(PASCIIString("absent"), PString("x"));
  EXPECT_EQ(Narrow(text), "****core: UNDEFINED RESOURCE STRING #^num^**** ^MODULE^");
}

TEST(PString, SetParameterByIndexUsesDecimalName) {
  PString text("^0^ and ^12^");
  text.SetParameter(12, PString("twelve")).SetParameter(0, PString("zero"));
  EXPECT_EQ(Narrow(text), "zero and twelve");
}

TEST(PString, ValidateParamsReplacesPlaceholdersAndUnescapesCarets) {
  struct Row {
    const char* text;
    const char* value;
    const char* expected;
  };
  const Row kRows[] = {
      {"a ^x^ b", "?", "a ? b"},
      {"a ^x^ b", "", "a  b"},
      {"5 ^^ 6", "?", "5 ^ 6"},
      // The caret kept from an escape is searched again and pairs with the
      // next one.
      {"^^x^y", "?", "?y"},
      {"no params", "?", "no params"},
      {"^a^^b^", "-", "--"},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.text);
    PString text(row.text);
    text.ValidateParams(PString(row.value));
    EXPECT_EQ(Narrow(text), row.expected);
  }
}

TEST(PString, ValidateParamsWithCaretInValueTerminates) {
  // Used to loop forever: the inserted value was searched again.
  PString text("^a^ ^b^");
  text.ValidateParams(PString("^x^"));
  EXPECT_EQ(Narrow(text), "^x^ ^x^");
}

// --- Narrow-text operands ----------------------------------------------------

TEST(PString, TextOperandsAnswerAsStringOperands) {
  const char* const kTexts[] = {"", "a", "abc", "ABC", "abd", "b", "zz", "caf\xE9", "x@y", "X`Y"};
  const TypStringComp kModes[] = {kStrCompExact, kStrCompIgnoreCase, kStrCompCollate,
                                  kStrCompNoCase, kStrCompComposite};
  for (const char* mine : kTexts) {
    const PString text(mine, true);
    for (const char* other : kTexts) {
      const PString operand(other, true);
      for (TypStringComp mode : kModes) {
        SCOPED_TRACE(std::string(mine) + " / " + other + " mode " + std::to_string(int(mode)));
        EXPECT_EQ(text.CompareTo(operand, mode), text.CompareTo(other, mode));
        for (ULONG from : {0u, 1u, 3u, 9u}) {
          EXPECT_EQ(text.FindForward(operand, from, mode), text.FindForward(other, from, mode));
          EXPECT_EQ(text.FindBackward(operand, from, mode), text.FindBackward(other, from, mode));
        }
      }
      EXPECT_EQ(text == operand, text == other);
      EXPECT_EQ(text < operand, text < other);
      PString a = text, b = text;
      a += operand;
      b += other;
      EXPECT_EQ(Narrow(a), Narrow(b));
      EXPECT_EQ(a.Len(), b.Len());
      EXPECT_EQ(a.CodeSet(), b.CodeSet());
      EXPECT_EQ(a.FullSize(), b.FullSize());
      PString c = text, d = text;
      c.Insert(operand, 1);
      d.Insert(other, 1);
      EXPECT_EQ(Narrow(c), Narrow(d));
    }
  }
}

TEST(PString, TextOperandsReachAnApplicationHandlerOwnedByAString) {
  // The application's handler may keep what it is given: each text operand
  // arrives owned by a string, and stays valid after the call.
  KeepingHandler::locks.clear();
  KeepingHandler::kept.clear();
  InspectedString text(new KeepingHandler("hello world"));
  EXPECT_EQ(text.FindForward("world", 0, kStrCompExact), 6u);
  EXPECT_EQ(text.FindBackward("hello", 10, kStrCompExact), 0u);
  EXPECT_EQ(text.CompareTo("hello", kStrCompExact), 1);
  text.Insert("big ", 6);
  EXPECT_EQ(Narrow(text), "hello big world");
  EXPECT_EQ(KeepingHandler::locks, (std::vector<ULONG>{1, 1, 1, 1}));
  ASSERT_EQ(KeepingHandler::kept.size(), 4u);
  EXPECT_EQ(Narrow(KeepingHandler::kept[0]), "world");
  EXPECT_EQ(Narrow(KeepingHandler::kept[1]), "hello");
  EXPECT_EQ(Narrow(KeepingHandler::kept[2]), "hello");
  EXPECT_EQ(Narrow(KeepingHandler::kept[3]), "big ");
  // The temporaries are gone: the kept strings are the partners' only owners.
  for (const InspectedString& partner : KeepingHandler::kept)
    EXPECT_EQ(partner.Held()->NumSmartLocks(), 1u);
  KeepingHandler::kept.clear();
}

TEST(PString, NullTextOperandIsAnEmptyString) {
  const PString text("abc", true);
  const char* none = nullptr;
  EXPECT_EQ(text.CompareTo(none, kStrCompExact), 1);
  EXPECT_EQ(PString().CompareTo(none, kStrCompExact), 0);
  EXPECT_EQ(text.FindForward(none, 0, kStrCompExact), kStringNotFound);
  EXPECT_EQ(text.FindBackward(none, 0, kStrCompExact), kStringNotFound);
  PString changed = text;
  changed.Insert(none, 1);
  changed += "";
  EXPECT_EQ(Narrow(changed), "abc");
}

TEST(PString, AppendingTextToAnEmptyStringBorrowsItAndToAnotherCopiesIt) {
  static const char kLiteral[] = "borrowed";
  InspectedString text;
  text += kLiteral;
  EXPECT_EQ(static_cast<const void*>(kLiteral), text.Held()->GetContent());
  char caller[] = "more";
  text += caller;
  EXPECT_NE(static_cast<const void*>(kLiteral), text.Held()->GetContent());
  caller[0] = 'M';
  EXPECT_EQ(Narrow(text), "borrowedmore");
  EXPECT_EQ(static_cast<PMBStringHandler*>(text.Held())->Capacity(), 16u);
}

TEST(PString, AsciiStringAppendsTextThroughItsOwnBuffer) {
  InspectedASCII text("abc", true);
  text += "defgh";
  EXPECT_STREQ("abcdefgh", static_cast<const char*>(text));
  EXPECT_EQ(&gASCIIStringHandlerDec, text.Held()->GetHandlerType());
  EXPECT_EQ(static_cast<PASCIIStringHandler*>(text.Held())->Capacity(), 16u);
  InspectedASCII empty;
  empty += "xy";
  EXPECT_EQ(&gASCIIStringHandlerDec, empty.Held()->GetHandlerType());
  EXPECT_EQ(static_cast<PASCIIStringHandler*>(empty.Held())->Capacity(), 8u);
}

// The error value: construction, comparison, the shared info set and its
// enumeration contract, and the component-object-model bridge.
#include <qvbase/MemoryManager.h>
#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

void SetText(PError& error, const char* key, const char* text) {
  error.SetErrorInfo(key, ErrorTagString, text, static_cast<ULONG>(std::strlen(text) + 1));
}

std::string GetText(const PError& error, const char* key) {
  const void* data = nullptr;
  ULONG size = 0;
  if (!error.GetErrorInfo(key, ErrorTagString, &data, &size) || !data)
    return "<none>";
  return std::string(static_cast<const char*>(data));
}

std::vector<std::string> Keys(const PError& error) {
  std::vector<std::string> keys;
  ULONG index = 0;
  const char* key = nullptr;
  TypErrorTagEnum tag;
  while (error.EnumErrorInfo(index, &key, &tag))
    keys.push_back(key);
  return keys;
}

TEST(PError, DefaultErrorIsNoErrorWithWarningSeverity) {
  PError error;
  EXPECT_EQ(error.Code(), kErrNone);
  EXPECT_TRUE(!error);
  EXPECT_EQ(error.Severity(), ErrorSeverityWarning);
  EXPECT_EQ(error.File(), nullptr);
  EXPECT_EQ(error.Line(), 0u);
  EXPECT_EQ(error.EnumErrorInfo(), 0u);
}

TEST(PError, CodeAloneGivesAbortSeverityAndEqualityComparesCodesOnly) {
  PError five(5);
  EXPECT_EQ(five.Severity(), ErrorSeverityAbort);
  EXPECT_TRUE(five == PError(5, ErrorSeverityWarning));
  EXPECT_FALSE(five != PError(5, ErrorSeverityWarning, "src\\Other", 12));
  EXPECT_TRUE(five != PError(6));
  EXPECT_TRUE(five == 5);
  EXPECT_TRUE(five != 4);
  EXPECT_FALSE(!five);
  EXPECT_EQ(static_cast<int>(five), 5);
}

TEST(PError, RaisingFormKeepsThePositionAsGiven) {
  static const char kFile[] = "src\\PStream";
  PError error(kErrStreamNoHandler, ErrorSeverityError, kFile, 412);
  EXPECT_EQ(error.Code(), kErrStreamNoHandler);
  EXPECT_EQ(error.Severity(), ErrorSeverityError);
  EXPECT_EQ(error.File(), kFile); // the pointer itself, not a copy
  EXPECT_EQ(error.Line(), 412u);
}

TEST(PError, ReRaiseTakesTheNewPositionAndSharesTheInfo) {
  PError inner(kErrStreamSeekPastEnd, ErrorSeverityError, "src\\Inner", 10);
  inner.SetIntegerInfo("depth", 1);
  PError outer(inner, ErrorSeverityFatal, "src\\Outer", 20);
  EXPECT_EQ(outer.Code(), kErrStreamSeekPastEnd);
  EXPECT_EQ(outer.Severity(), ErrorSeverityFatal);
  EXPECT_STREQ(outer.File(), "src\\Outer");
  EXPECT_EQ(outer.Line(), 20u);
  EXPECT_EQ(outer.GetIntegerInfo("depth", 0), 1);
  PError severityOnly(inner, ErrorSeverityWarning);
  EXPECT_STREQ(severityOnly.File(), "src\\Inner");
  EXPECT_EQ(severityOnly.Severity(), ErrorSeverityWarning);
}

TEST(PError, ResettingAKeyWithAnotherTagReplacesItAtTheEnd) {
  PError error(1);
  error.SetIntegerInfo("x", 3);
  error.SetIntegerInfo("y", 4);
  SetText(error, "x", "text");
  EXPECT_EQ(error.EnumErrorInfo(), 2u);
  EXPECT_EQ(Keys(error), (std::vector<std::string>{"y", "x"}));
  EXPECT_TRUE(error.HasStringInfo("x"));
  EXPECT_FALSE(error.HasIntegerInfo("x"));
  EXPECT_EQ(error.GetIntegerInfo("x", 7), 7);
  EXPECT_EQ(GetText(error, "x"), "text");
}

TEST(PError, EnumerationEndsWithTheAllOnesIndex) {
  PError error(1);
  error.SetIntegerInfo("a", 1);
  SetText(error, "b", "2");
  error.SetIntegerInfo("c", 3);
  ULONG index = 0;
  const char* key = nullptr;
  TypErrorTagEnum tag = ErrorTagInteger;
  EXPECT_TRUE(error.EnumErrorInfo(index, &key, &tag));
  EXPECT_STREQ(key, "a");
  EXPECT_EQ(index, 1u);
  EXPECT_TRUE(error.EnumErrorInfo(index, &key, &tag));
  EXPECT_STREQ(key, "b");
  EXPECT_EQ(tag, ErrorTagString);
  EXPECT_EQ(index, 2u);
  EXPECT_TRUE(error.EnumErrorInfo(index, &key, &tag));
  EXPECT_STREQ(key, "c");
  EXPECT_EQ(index, 4294967295u);
  const char* untouched = "untouched";
  key = untouched;
  EXPECT_FALSE(error.EnumErrorInfo(index, &key, &tag));
  EXPECT_EQ(key, untouched);
}

TEST(PError, InfoSetThroughACopyIsSeenByTheOriginal) {
  PError original(kErrStreamNoHandler, ErrorSeverityError);
  original.SetIntegerInfo("first", 1); // the set exists before copying
  PError copy = original;
  copy.SetIntegerInfo("added", 42);
  EXPECT_EQ(original.GetIntegerInfo("added", 0), 42);
  PError assigned;
  assigned = copy;
  SetText(assigned, "text", "shared");
  EXPECT_EQ(GetText(original, "text"), "shared");
}

TEST(PError, KeysCompareExactly) {
  PError error(1);
  error.SetIntegerInfo("Key", 1);
  EXPECT_FALSE(error.HasIntegerInfo("key"));
  EXPECT_EQ(error.GetIntegerInfo("Key", 0), 1);
}

TEST(PError, GetErrorInfoNeedsTheRightTag) {
  PError error(1);
  const void* data = nullptr;
  ULONG size = 0;
  EXPECT_FALSE(error.GetErrorInfo("n", ErrorTagInteger, &data, &size)); // no info set
  error.SetIntegerInfo("n", -5);
  EXPECT_FALSE(error.GetErrorInfo("n", ErrorTagString, &data, &size));
  ASSERT_TRUE(error.GetErrorInfo("n", ErrorTagInteger, &data, &size));
  EXPECT_EQ(size, 4u);
  int value;
  std::memcpy(&value, data, 4);
  EXPECT_EQ(value, -5);
  // Other tags are stored and enumerated, without typed accessors.
  const unsigned char blob[3] = {1, 2, 3};
  error.SetErrorInfo("blob", static_cast<TypErrorTagEnum>(7), blob, 3);
  EXPECT_TRUE(error.HasErrorInfo("blob", static_cast<TypErrorTagEnum>(7)));
  EXPECT_EQ(error.EnumErrorInfo(), 2u);
}

// A manager that refuses only blocks of about 1000 bytes (a value copy in the
// test below) and passes everything else to the system manager.
constexpr ULONG kRefusedValueSize = 1000;
void* PickyAllocate(MemoryManager*, ULONG size, unsigned short mode) {
  if (size >= kRefusedValueSize && size <= kRefusedValueSize + 16)
    return nullptr;
  return gSysManager->allocate(gSysManager, size, mode);
}
void* PickyReallocate(MemoryManager*, void* block, ULONG size) {
  return gSysManager->reallocate(gSysManager, block, size);
}
ULONG PickySize(MemoryManager*, void* block) { return gSysManager->size(gSysManager, block); }
void PickyRelease(MemoryManager*, void* block) { gSysManager->release(gSysManager, block); }
void PickyStats(MemoryManager*, ULONG*, ULONG*, ULONG*) {}
MemoryManager gPicky = {0,         "Picky",      PickyAllocate, PickyReallocate,
                        PickySize, PickyRelease, PickyStats};

TEST(PError, ValueThatCannotBeCopiedIsStoredEmpty) {
  MemoryManager* previous = GGetDefaultMemManager();
  GSetDefaultMemManager(&gPicky);
  {
    PError error(1);
    std::string big(kRefusedValueSize - 1, 'x');
    SetText(error, "big", big.c_str());
    error.SetIntegerInfo("n", 9); // small values are still copied
    const void* data = reinterpret_cast<const void*>(1);
    ULONG size = 99;
    ASSERT_TRUE(error.GetErrorInfo("big", ErrorTagString, &data, &size));
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(error.GetIntegerInfo("n", 7), 9);
    EXPECT_EQ(error.EnumErrorInfo(), 2u);
  }
  GSetDefaultMemManager(previous);
}

TEST(PError, ErrorObjectCarriesEverythingBothWays) {
  static const char kFile[] = "src\\Bridge";
  PError error(kErrAccessDenied, ErrorSeverityFatal, kFile, 77);
  error.SetIntegerInfo("nativecode", 5);
  SetText(error, "appname", "Editor");
  IQVError* object = error.QueryIQVError();
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->GetCode(), kErrAccessDenied);
  EXPECT_EQ(object->GetSeverity(), ErrorSeverityFatal);
  EXPECT_EQ(object->GetLine(), 77u);
  EXPECT_EQ(object->GetFile(), kFile);
  EXPECT_EQ(object->GetInfoCount(), 2u);
  PError back;
  back.From(object);
  EXPECT_EQ(back.Code(), kErrAccessDenied);
  EXPECT_EQ(back.Severity(), ErrorSeverityFatal);
  EXPECT_EQ(back.Line(), 77u);
  EXPECT_EQ(back.File(), kFile);
  EXPECT_EQ(back.GetIntegerInfo("nativecode", 0), 5);
  EXPECT_EQ(GetText(back, "appname"), "Editor");
  EXPECT_EQ(Keys(back), (std::vector<std::string>{"nativecode", "appname"}));
  // The copy owns its info: changing the object later leaves it alone.
  object->SetInfo("late", ErrorTagInteger, "\1\0\0\0", 4);
  EXPECT_FALSE(back.HasIntegerInfo("late"));
  void* unknown = nullptr;
  EXPECT_EQ(object->QueryInterface(IID_IUnknown, &unknown), S_OK);
  EXPECT_EQ(object->Release(), 1u);
  EXPECT_EQ(static_cast<IUnknown*>(unknown)->Release(), 0u);
}

TEST(PError, FromNothingIsAnErrorWithoutContent) {
  PError error(kErrStreamNoHandler, ErrorSeverityWarning, "src\\X", 3);
  error.SetIntegerInfo("n", 1);
  error.From(nullptr);
  EXPECT_EQ(error.Code(), kErrNone);
  EXPECT_EQ(error.Severity(), ErrorSeverityError);
  EXPECT_EQ(error.Line(), 0u);
  ASSERT_NE(error.File(), nullptr);
  EXPECT_STREQ(error.File(), "");
  EXPECT_EQ(error.EnumErrorInfo(), 0u);
  error.To(nullptr); // nothing happens
}

} // namespace

#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>

namespace {

std::string Output(const PError& error, bool full) {
  static std::string captured;
  captured.clear();
  auto collect = [](const char* text) { captured += text; };
  if (full)
    error.DbgOutput(collect);
  else
    error.DbgDisplayOutput(collect);
  return captured;
}

TEST(PError, NoErrorDisplaysAsNoError) {
  EXPECT_EQ(Output(PError(), false), "No Error");
  EXPECT_EQ(Output(PError(), true), "No Error");
}

TEST(PError, StringInfoKeepsItsTerminator) {
  PError error(1);
  error.SetStringInfo("name", PMBString("Editor"));
  const void* data = nullptr;
  ULONG size = 0;
  ASSERT_TRUE(error.GetErrorInfo("name", ErrorTagString, &data, &size));
  EXPECT_EQ(size, PMBString("Editor").FullSize()); // the multibyte full size: content + 2
  EXPECT_EQ(std::memcmp(data, "Editor\0", 7), 0);
  EXPECT_STREQ(static_cast<const char*>(error.GetStringInfo("name", "x")), "Editor");
  EXPECT_STREQ(static_cast<const char*>(error.GetStringInfo("other", "fallback")), "fallback");
  error.SetStringInfo("empty", PMBString());
  ASSERT_TRUE(error.GetErrorInfo("empty", ErrorTagString, &data, &size));
  EXPECT_EQ(size, 0u);
  EXPECT_TRUE(error.GetStringInfo("empty", "x").IsEmpty());
}

TEST(PError, FormatParametersComeFromTheInfo) {
  PError error(kErrStreamNoHandler, ErrorSeverityError, "src\\PStream", 412);
  error.SetStringInfo("file", PMBString("report.doc"));
  error.SetIntegerInfo("count", -3);
  PMBString text = error.MakeDisplayString(PMBString("^file^: ^unknown^ then ^count^ items"));
  EXPECT_STREQ(static_cast<const char*>(text), "report.doc: ^unknown^ then -3 items");
  PMBString position =
      error.MakeDisplayString(PMBString("^errorcode^ at ^errorfile^ line ^errorline^"));
  EXPECT_STREQ(static_cast<const char*>(position), "1220 at src\\PStream line 412");
  EXPECT_TRUE(error.MakeDisplayString(PMBString()).IsEmpty());
}

TEST(PError, InsertedTextIsScannedAgain) {
  PError error(1);
  error.SetStringInfo("outer", PMBString("[^inner^]"));
  error.SetStringInfo("inner", PMBString("deep"));
  EXPECT_STREQ(static_cast<const char*>(error.MakeDisplayString(PMBString("^outer^"))), "[deep]");
}

TEST(PError, GrowingSelfNamingInfoStopsQuickly) {
  // Each round would insert a longer text than the last.
  PError error(1);
  error.SetStringInfo("a", PMBString((std::string(16, 'x') + "^a^").c_str(), true));
  PMBString text = error.MakeDisplayString(PMBString("^a^"));
  EXPECT_LE(text.Size(), 64u * 1024u + 64u);
  EXPECT_NE(std::string(static_cast<const char*>(text)).find("^a^"), std::string::npos);
}

TEST(PError, SettingAKeyFromItsOwnValueKeepsTheValue) {
  // The key and value pointers belong to the entry being replaced.
  PError error(1);
  error.SetStringInfo("name", PMBString("Editor"));
  ULONG index = 0;
  const char* key = nullptr;
  TypErrorTagEnum tag;
  ASSERT_TRUE(error.EnumErrorInfo(index, &key, &tag));
  const void* data = nullptr;
  ULONG size = 0;
  ASSERT_TRUE(error.GetErrorInfo(key, tag, &data, &size));
  error.SetErrorInfo(key, tag, data, size);
  EXPECT_STREQ(static_cast<const char*>(error.GetStringInfo("name", "")), "Editor");
  EXPECT_EQ(error.EnumErrorInfo(), 1u);
}

TEST(PError, SelfNamingInfoDoesNotFormatForever) {
  // A text that holds its own parameter would be inserted without end.
  PError error(1);
  error.SetStringInfo("loop", PMBString("^loop^"));
  PMBString text = error.MakeDisplayString(PMBString("x^loop^y"));
  EXPECT_STREQ(static_cast<const char*>(text), "x^loop^y");
}

class CountingMapper : public PErrorDisplayMapper {
public:
  bool Map(int, TypErrorSeverityEnum, PString* text) override {
    ++maps;
    *text = PMBString("cannot read ^file^ (^errorcode^)");
    return true;
  }
  bool Accepts(int code) override { return code == kErrStreamSeekPastEnd; }
  int maps = 0;
};

TEST(PError, MapperTextIsKeptForTheNextDisplay) {
  CountingMapper mapper;
  PError error(kErrStreamSeekPastEnd, ErrorSeverityError);
  error.SetStringInfo("file", PMBString("a.txt"));
  EXPECT_STREQ(static_cast<const char*>(error.GetDisplayString()), "cannot read a.txt (1227)");
  PError copy = error;
  EXPECT_STREQ(static_cast<const char*>(copy.GetDisplayString()), "cannot read a.txt (1227)");
  EXPECT_EQ(mapper.maps, 1);
  EXPECT_TRUE(error.HasStringInfo("displaystring"));
}

TEST(PError, DebugOutputShowsPositionSeverityAndText) {
  CountingMapper mapper;
  PError error(kErrStreamSeekPastEnd, ErrorSeverityFatal, "src\\PStream", 12);
  error.SetStringInfo("file", PMBString("b.txt"));
  EXPECT_EQ(Output(error, true), "src\\PStream(12): fatal error 1227: cannot read b.txt (1227)");
  PError noText(4711, ErrorSeverityAbort);
  noText.SetStringInfo("app", PMBString("Editor"));
  noText.SetIntegerInfo("n", 5);
  EXPECT_EQ(Output(noText, true), "error 4711: (app)Editor (n)5 ");
  PError badSeverity(4711, static_cast<TypErrorSeverityEnum>(27));
  EXPECT_EQ(Output(badSeverity, true), "error 4711: ");
  PError warning(4711, ErrorSeverityWarning);
  EXPECT_EQ(Output(warning, true), "warning 4711: ");
}

TEST(PError, NullOutputWritesNothing) {
  PError error(kErrStreamNoHandler, ErrorSeverityError);
  error.DbgOutput(nullptr);
  error.DbgDisplayOutput(nullptr);
  EXPECT_EQ(error.EnumErrorInfo(), 0u); // nothing was even computed
}

} // namespace

namespace {

// Keys that are prefixes of one another, the empty key and a null key (the
// empty one) are told apart by their whole text.
TEST(PError, KeysThatShareAPrefixAreDifferentKeys) {
  PError error(1);
  const char* keys[] = {"k", "k1", "k10", "k100", "", "1k"};
  for (int i = 0; i < 6; ++i)
    error.SetIntegerInfo(keys[i], i + 1);
  EXPECT_EQ(error.EnumErrorInfo(), 6u);
  for (int i = 0; i < 6; ++i) {
    SCOPED_TRACE(keys[i]);
    EXPECT_EQ(error.GetIntegerInfo(keys[i], 0), i + 1);
  }
  EXPECT_FALSE(error.HasIntegerInfo("k1000"));
  EXPECT_EQ(error.GetIntegerInfo(nullptr, 0), 5); // null is the empty key
  // Setting one of them again replaces that one only, at the end.
  error.SetIntegerInfo("k10", 30);
  EXPECT_EQ(error.EnumErrorInfo(), 6u);
  ULONG index = 5;
  const char* key = nullptr;
  ASSERT_TRUE(error.EnumErrorInfo(index, &key, nullptr));
  EXPECT_STREQ(key, "k10");
  EXPECT_EQ(error.GetIntegerInfo("k1", 0), 2);
  EXPECT_EQ(error.GetIntegerInfo("k100", 0), 4);
}

} // namespace

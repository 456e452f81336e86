// Every allocation of a scenario made to fail, once and from then on.
//
// Each scenario runs once to count the allocations it makes (through the
// library's memory managers and through operator new), then once per
// allocation with that one failing (transient) and with it and every later
// one failing (persistent). Every run must end in a clean success that
// produces exactly the bytes of the clean run, or in out-of-memory: the
// library's error 1007 or the runtime's std::bad_alloc; it must give back
// everything it allocated (LeakSanitizer checks the same under linux-asan),
// and after a transient failure the scenario run again must produce the
// clean bytes.
//
// QVTEST_ALLOCATION=transient:19 (or persistent:19) runs only that failure
// point of each sweep, for a debugger or for LeakSanitizer's report.
#include "support/AllocationFaults.h"
#include "support/ErrorTestSupport.h"
#include "support/TestSupport.h"

#include <qvbase/PASCIIString.h>
#include <qvbase/PDate.h>
#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PList.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PSmartData.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PStringConversions.h>
#include <qvbase/PTime.h>
#include <qvbase/PUNIString.h>
#include <qvbase/PUniversalID.h>

#include "native/Registry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <new>
#include <string>
#include <vector>

namespace {

using qvbase::test::AllocationFaults;

using Scenario = std::function<std::string()>;

// The lists' defined answer to a block that cannot be had: the element is
// not inserted, and nothing else changes. A run in which that happened ends
// with this, once it has checked that the lists stayed whole.
struct InsertRefused {};

struct Outcome {
  enum Kind { kSuccess, kOutOfMemory, kBadAlloc, kRefused, kOtherError } kind = kSuccess;
  int code = 0;
  std::string bytes;
};

// The outcome's bytes are copied into room reserved before the run, so that
// the scenario's own string is given back within the run.
constexpr std::size_t kRoomForBytes = 64 * 1024;

void RunOnce(const Scenario& scenario, Outcome* outcome) {
  outcome->kind = Outcome::kSuccess;
  outcome->code = 0;
  outcome->bytes.clear();
  try {
    const std::string bytes = scenario();
    if (bytes.size() <= outcome->bytes.capacity())
      outcome->bytes.assign(bytes);
    else
      outcome->bytes.assign("(more bytes than the room reserved)");
  } catch (const PError& e) {
    outcome->kind = e.Code() == kErrOutOfMemory ? Outcome::kOutOfMemory : Outcome::kOtherError;
    outcome->code = e.Code();
  } catch (const std::bad_alloc&) {
    outcome->kind = Outcome::kBadAlloc;
  } catch (const InsertRefused&) {
    outcome->kind = Outcome::kRefused;
  }
}

// Whether the failure point is one QVTEST_ALLOCATION asks for (all when it
// is not set).
bool Chosen(const char* kind, std::size_t n) {
  const char* only = std::getenv("QVTEST_ALLOCATION");
  return !only || std::string(only) == std::string(kind) + ":" + std::to_string(n);
}

// What a sweep found, for the figures of the reliability page.
struct Sweep {
  std::size_t allocations = 0;
  std::size_t successes = 0;
  std::size_t outOfMemory = 0;
  std::size_t badAlloc = 0;
  std::size_t refused = 0;
};

// Runs the sweep of one scenario and checks every run; the figures are
// printed for the reliability page. `prepare`, when given, runs before each
// run, unwatched: it puts back what the scenario starts from; `verify`,
// when given, runs after each, unwatched, and says what is wrong (nothing:
// an empty text) with what the run left behind. A scenario whose clean run
// leaves allocations that the library keeps on purpose (a cache) may leave
// as many, no more; LeakSanitizer sees whether they stay reachable.
void SweepAllocations(const char* name, const Scenario& scenario,
                      const std::function<void()>& prepare = {},
                      const std::function<std::string()>& verify = {}) {
  auto run = [&](Outcome* outcome, std::size_t failAt, AllocationFaults::Kind kind,
                 std::size_t* allocations, long* outstanding) {
    if (prepare)
      prepare();
    AllocationFaults::Watch watch(failAt, kind);
    RunOnce(scenario, outcome);
    if (allocations)
      *allocations = watch.Allocations();
    *outstanding = watch.Outstanding();
  };
  // Once unwatched, so that what the library sets up once per process (its
  // locale traits, the error trace switch) is there before counting.
  // The first error of a process reads the error trace switch from the
  // registry, which the registry keeps as a snapshot: done once here, so
  // that no failure point is the first error.
  static const bool warmedUp = [] {
    qvbase::test::Caught([] { PStream().Close(); });
    return true;
  }();
  (void)warmedUp;
  if (prepare)
    prepare();
  const std::string clean = scenario();
  std::size_t total = 0;
  long outstanding = 0;
  Outcome watched;
  watched.bytes.reserve(kRoomForBytes);
  run(&watched, 0, AllocationFaults::kTransient, &total, &outstanding);
  ASSERT_EQ(watched.kind, Outcome::kSuccess) << name << ": the watched clean run failed";
  ASSERT_EQ(watched.bytes, clean) << name << ": a watched run differs from an unwatched one";
  const long kept = outstanding;
  ASSERT_GT(total, 0u) << name << ": nothing was allocated";

  Sweep sweep;
  sweep.allocations = total;
  for (AllocationFaults::Kind kind :
       {AllocationFaults::kTransient, AllocationFaults::kPersistent}) {
    const char* kindName = kind == AllocationFaults::kTransient ? "transient" : "persistent";
    for (std::size_t n = 1; n <= total; ++n) {
      if (!Chosen(kindName, n))
        continue;
      Outcome outcome;
      outcome.bytes.reserve(kRoomForBytes);
      long left = 0;
      run(&outcome, n, kind, nullptr, &left);
      SCOPED_TRACE(std::string(name) + ", " + kindName + " failure of allocation " +
                   std::to_string(n) + " of " + std::to_string(total));
      EXPECT_LE(left, kept) << "allocations not given back";
      if (verify) {
        EXPECT_EQ(verify(), "");
      }
      switch (outcome.kind) {
      case Outcome::kSuccess:
        ++sweep.successes;
        EXPECT_EQ(outcome.bytes, clean) << "a success that produced other bytes";
        break;
      case Outcome::kOutOfMemory:
        ++sweep.outOfMemory;
        break;
      case Outcome::kBadAlloc:
        ++sweep.badAlloc;
        break;
      case Outcome::kRefused:
        ++sweep.refused;
        break;
      case Outcome::kOtherError:
        ADD_FAILURE() << "ended in error " << outcome.code << " instead of out-of-memory";
        break;
      }
      if (kind == AllocationFaults::kTransient && outcome.kind != Outcome::kSuccess) {
        Outcome again;
        again.bytes.reserve(kRoomForBytes);
        if (prepare)
          prepare();
        RunOnce(scenario, &again);
        EXPECT_EQ(again.kind, Outcome::kSuccess) << "the retried scenario failed";
        EXPECT_EQ(again.bytes, clean) << "the retried scenario produced other bytes";
      }
    }
  }
  std::cout << "[ figures  ] " << name << ": " << sweep.allocations << " allocations, "
            << 2 * sweep.allocations << " failure points: " << sweep.successes << " successes, "
            << sweep.outOfMemory << " out-of-memory errors, " << sweep.badAlloc
            << " std::bad_alloc, " << sweep.refused << " inserts refused as defined\n";
}

std::string Text(const PString& text) {
  PMBString bytes(text);
  return std::string(static_cast<const char*>(bytes), bytes.Size());
}

std::string Content(const PStream& stream) {
  const auto* memory = static_cast<const PMemoryStreamHdl*>(stream.GetHandler());
  return std::string(memory->GetBuffer() ? memory->GetBuffer() : "",
                     static_cast<std::size_t>(stream.GetSize()));
}

PStream NewMemoryStream(unsigned short ordering) {
  PStream stream(new PMemoryStreamHdl(/*granularity=*/64));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

// ---------------------------------------------------------------------------
// The typical request: a document of sections written and read back.

const PAutomaticUID kDocument("Document");
const PAutomaticUID kChapter("Chapter");
const PAutomaticUID kThumbnail("Thumbnail");
const PAutomaticUID kSummary("Summary");

std::string TypicalRequest(unsigned short ordering) {
  PStream file = NewMemoryStream(ordering);
  {
    PStreamSection document = OpenWriteSection(file, kDocument, /*version=*/2);
    document.Write(static_cast<LONG>(3));
    document.Write(PString("Annual report"));
    document.Write(kChapter);
    document.Write(PUTDate(1795219200));
    document.Write(PTime(5400, 0));
    document.Write(2.5, /*digits=*/6);
    const LONG counts[4] = {1, 2, 3, 4};
    document.WriteArray(counts, 4); // 16 bytes: the "MM" scratch block
    PStreamSection chapter = OpenWriteSection(document, kChapter, /*version=*/1);
    chapter.Write(PString("Introduction"));
    chapter.Write(PString("end"), ';');
    chapter.Close();
    document.Close();
    PStreamSection thumbnail = OpenWriteSection(file, kThumbnail, /*version=*/1);
    thumbnail.WriteArray("\x00\x01\x02\x03", 4);
    thumbnail.Close();
    PStreamSection summary = OpenWriteSection(file, kSummary, /*version=*/1);
    summary.Write(PString("Totals"));
    summary.Close();
  }
  std::string out = Content(file);

  file.MoveTo(0);
  while (!file.IsAtEnd()) {
    const PUniversalID next = GetNextSection(file);
    if (next == kDocument) {
      PStreamSection document = OpenReadSection(file, kDocument);
      LONG pages = 0;
      PString title;
      PUniversalID id;
      PUTDate written;
      PTime editing;
      double ratio = 0;
      LONG counts[4] = {};
      document.Read(&pages);
      document.Read(&title);
      document.Read(&id);
      document.Read(&written);
      document.Read(&editing);
      document.Read(&ratio);
      document.ReadArray(counts, 4);
      PStreamSection chapter = OpenReadSection(document, kChapter);
      PString heading, tail;
      chapter.Read(&heading);
      chapter.Read(&tail, ';');
      out += "|" + std::to_string(pages) + Text(title) + Text(static_cast<PString>(id)) +
             std::to_string(written.GetValue().GetValue()) + std::to_string(editing.GetValue()) +
             std::to_string(ratio) + std::to_string(counts[3]) + Text(heading) + Text(tail);
    } else if (next == kSummary) {
      PStreamSection summary = OpenReadSection(file, kSummary);
      PString text;
      summary.Read(&text);
      out += "|" + Text(text);
    } else {
      SkipCurrentSection(file);
      out += "|skipped";
    }
  }
  return out;
}

TEST(TypicalRequest, EveryFailedAllocationEndsInOutOfMemoryOrTheCleanDocument) {
  SweepAllocations("typical request, II", [] { return TypicalRequest(kByteOrderingIntel); });
  SweepAllocations("typical request, MM", [] { return TypicalRequest(kByteOrderingMotorola); });
}

// ---------------------------------------------------------------------------
// Sections nested three deep.

std::string NestedSections() {
  PStream file = NewMemoryStream(kByteOrderingMotorola);
  {
    PStreamSection outer = OpenWriteSection(file, PAutomaticUID("Outer"), 1);
    PStreamSection middle = OpenWriteSection(outer, PAutomaticUID("Middle"), 2);
    PStreamSection inner = OpenWriteSection(middle, PAutomaticUID("Inner"), 3);
    inner.Write(PString("deepest"));
    inner.Close();
    middle.Write(static_cast<short>(7));
    middle.Close();
    outer.Close();
  }
  std::string out = Content(file);
  file.MoveTo(0);
  PStreamSection outer = OpenReadSection(file, PAutomaticUID("Outer"));
  PStreamSection middle = OpenReadSection(outer, PAutomaticUID("Middle"));
  PStreamSection inner = OpenReadSection(middle, PAutomaticUID("Inner"));
  PString text;
  inner.Read(&text);
  inner.Close();
  short value = 0;
  middle.Read(&value);
  return out + "|" + Text(text) + std::to_string(value) + std::to_string(outer.Version());
}

TEST(PStreamSection, EveryFailedAllocationInThreeNestedSectionsEndsCleanly) {
  SweepAllocations("sections nested three deep", NestedSections);
}

// ---------------------------------------------------------------------------
// String edits in each handler.

template <typename String>
std::string EditString() {
  String text("placeholder ^name^ and ^0^ in text");
  text += " with more";
  text.Insert(PString("[inserted]"), 5);
  text.Delete(0, 2);
  text.SetChar(3, 'X');
  text.SetParameter(PASCIIString("name"), PString("value"));
  text.SetParameter(0, PString("zero"));
  text.ValidateParams(PString("gone"));
  PString copy = text; // shared, then changed: copied on write
  copy += '!';
  const PString middle = text.Mid(4, 10);
  const ULONG found = text.FindForward("value", 0, /*mode=*/TypStringComp(1));
  const PUNIString wide(text);
  const PASCIIString narrow(wide);
  return Text(text) + "|" + Text(copy) + "|" + Text(middle) + "|" + std::to_string(found) + "|" +
         Text(narrow) + "|" + Text(UInt32ToHexa(text.Len())) + "|" +
         std::to_string(PStringToUInt(PString("1234")));
}

TEST(PString, EveryFailedAllocationInAsciiEditsEndsCleanly) {
  SweepAllocations("string edits, ASCII handler", EditString<PASCIIString>);
}

TEST(PString, EveryFailedAllocationInMultibyteEditsEndsCleanly) {
  SweepAllocations("string edits, multibyte handler", EditString<PMBString>);
}

TEST(PString, EveryFailedAllocationInUnicodeEditsEndsCleanly) {
  SweepAllocations("string edits, Unicode handler", [] {
    PUNIString text(PMBString("placeholder ^name^ and ^0^ in text"));
    text += " with more";
    text.Insert(PString("[inserted]"), 5);
    text.Delete(0, 2);
    text.SetChar(3, 0x263A);
    text.SetParameter(PASCIIString("name"), PString("value"));
    text.ValidateParams(PString("gone"));
    PString copy = text;
    copy += '!';
    const PMBString narrow(text);
    return Text(text) + "|" + Text(copy) + "|" + std::to_string(narrow.Len());
  });
}

// ---------------------------------------------------------------------------
// List growth on each back end.

class Element : public PSmartData {
public:
  explicit Element(int value) : value(value) {}
  int value;
};

class ElementList : public PList {
public:
  explicit ElementList(DataFactory factory) : PList(factory) {}
  ElementList(DataFactory factory, const ElementList& source) : PList(factory, source) {}
  void AddTail(Element* e) { AddAnObjectTail(static_cast<PSmartData*>(e)); }
  void AddHead(Element* e) { AddAnObjectHead(static_cast<PSmartData*>(e)); }
  void AddAt(Element* e, ULONG i) { AddAnObject(static_cast<PSmartData*>(e), i); }
  void RemoveAt(ULONG i) { RemoveAnIdx(i); }
  ULONG IndexOf(Element* e) const { return GetAnIndex(static_cast<PSmartData*>(e)); }
  Element* At(ULONG i) const {
    return static_cast<Element*>(static_cast<PSmartData*>(GetAnObject(i)));
  }
};

std::string GrowList(PList::DataFactory factory, bool smart) {
  // The elements belong to the scenario; the smart back ends hold a
  // reference to each as well.
  std::vector<Element*> elements;
  elements.reserve(40);
  auto giveBack = [&] {
    for (Element* e : elements)
      smart ? static_cast<void>(e->Release()) : delete e;
  };
  std::string out;
  bool refused = false;
  std::string broken;
  try {
    for (int i = 0; i < 40; ++i) {
      elements.push_back(new Element(i)); // reserved: only the element may fail
      if (smart)
        elements.back()->AddRef();
    }
    ElementList list(factory);
    // Each insert either adds its element or, refused, changes nothing.
    auto insert = [&](Element* e, auto add) {
      const ULONG before = list.Size();
      add(e);
      if (list.Size() == before + 1 && list.IndexOf(e) != kListNoIndex)
        return;
      if (list.Size() == before && list.IndexOf(e) == kListNoIndex) {
        refused = true;
        return;
      }
      broken = "an insert that half happened";
    };
    for (int i = 0; i < 20; ++i)
      insert(elements[i], [&](Element* e) { list.AddTail(e); });
    for (int i = 20; i < 30; ++i)
      insert(elements[i], [&](Element* e) { list.AddHead(e); });
    for (int i = 30; i < 40; ++i)
      insert(elements[i], [&](Element* e) { list.AddAt(e, static_cast<ULONG>(i - 25)); });
    list.RemoveAt(3);
    ElementList copy(factory, list);
    // A copy holds the source's elements in order, a refused one missing.
    ULONG j = 0;
    for (ULONG i = 0; i < list.Size() && j < copy.Size(); ++i)
      if (list.At(i) == copy.At(j))
        ++j;
    if (j != copy.Size())
      broken = "a copy out of order";
    refused = refused || copy.Size() != list.Size();
    for (ULONG i = 0; i < copy.Size(); ++i)
      out += std::to_string(copy.At(i)->value) + ",";
    // A smart back end holds one reference per occurrence, no more.
    if (smart) {
      for (Element* e : elements) {
        const ULONG held = 1u + (list.IndexOf(e) != kListNoIndex ? 1u : 0u) +
                           (copy.IndexOf(e) != kListNoIndex ? 1u : 0u);
        if (e->NumSmartLocks() != held)
          broken = "a reference too many or too few";
      }
    }
  } catch (...) {
    giveBack();
    throw;
  }
  giveBack();
  if (!broken.empty())
    return broken;
  if (refused)
    throw InsertRefused();
  return out;
}

TEST(PList, EveryFailedAllocationWhileGrowingEachBackEndEndsCleanly) {
  SweepAllocations("list growth, linked",
                   [] { return GrowList(GLinkedListDataConstructor, false); });
  SweepAllocations("list growth, array", [] { return GrowList(GDynArrayDataConstructor, false); });
  SweepAllocations("list growth, smart linked",
                   [] { return GrowList(GSmartListDataConstructor, true); });
  SweepAllocations("list growth, smart array",
                   [] { return GrowList(GSmartArrayDataConstructor, true); });
}

// ---------------------------------------------------------------------------
// An error with info raised through protections.

// The error arrives with its own code whatever memory is left: a detail
// that could not be stored is missing, never wrong. The scenario's bytes
// are the code and whether every detail is whole or missing.
std::string RaiseWithInfo() {
  try {
    PErrorIntInfoProtection count("count", 42, /*set=*/true);
    PErrorStringInfoProtection file("file", PMBString("report.doc"), /*set=*/true);
    PActionErrorProtection action(PMBString("saving"), /*set=*/true);
    PError error(kErrStreamSeekPastEnd, ErrorSeverityAbort, "src\\PScenario", 7);
    error.SetStringInfo("detail", PMBString("past the end"));
    error.SetIntegerInfo("offset", 99);
    PError prepared = PErrorProtectionStatus().PrepareError(error);
    PErrorProtectionStatus().SignalError(prepared);
  } catch (const PError& e) {
    if (e.Code() == kErrOutOfMemory)
      throw;
    auto wholeOrMissing = [&](const char* key, const char* whole) {
      const std::string text = Text(e.GetStringInfo(key, ""));
      return text == whole || text.empty();
    };
    const int offset = e.GetIntegerInfo("offset", -1);
    const bool details = wholeOrMissing("file", "report.doc") &&
                         wholeOrMissing("detail", "past the end") && (offset == 99 || offset == -1);
    return std::to_string(e.Code()) + (details ? " with whole or missing details" : " corrupted");
  }
  return "not raised";
}

TEST(PError, EveryFailedAllocationWhileRaisingWithInfoEndsCleanly) {
  SweepAllocations("error with info through protections", RaiseWithInfo);
}

// ---------------------------------------------------------------------------
// The registry store's change.

std::size_t Entries(const std::filesystem::path& folder) {
  std::error_code error;
  std::size_t n = 0;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error))
    ++n;
  return n;
}

TEST(Registry, EveryFailedAllocationDuringAChangeKeepsTheStoreWhole) {
  if (!AllocationFaults::LibraryNewIsWatched())
    GTEST_SKIP() << "the platform's registry allocates outside this process's operator new";
  namespace native = qvbase::native;
  qvbase::test::ScratchRegistry registry;
  native::RegKey key = nullptr;
  ASSERT_EQ(native::CreateRegKey(native::kRegCurrentUser, registry.KeyPath().c_str(), nullptr,
                                 native::kKeyAllAccess, &key, nullptr),
            0);
  const std::string before = qvbase::test::ReadFile(registry.StoreFile());
  const std::string value = "changed";
  auto change = [&] {
    const LONG rc = native::SetRegValue(key, "name", native::kRegSz,
                                        reinterpret_cast<const BYTE*>(value.c_str()),
                                        static_cast<DWORD>(value.size() + 1));
    return rc;
  };
  ASSERT_EQ(change(), 0);
  const std::string after = qvbase::test::ReadFile(registry.StoreFile());
  const std::filesystem::path folder = std::filesystem::path(registry.StoreFile()).parent_path();
  const std::size_t files = Entries(folder);
  const std::size_t descriptors = Entries("/proc/self/fd");
  SweepAllocations(
      "registry store change", [&] { return std::to_string(change()); },
      // Each run starts from the store before the change.
      [&] { qvbase::test::WriteFile(registry.StoreFile(), before); },
      // Whatever failed, the store is the old one or the new one, never a
      // mix, nothing is left beside it and no file stays open.
      [&]() -> std::string {
        const std::string now = qvbase::test::ReadFile(registry.StoreFile());
        if (now != before && now != after)
          return "a torn store";
        if (Entries(folder) != files)
          return "files left beside the store";
        if (Entries("/proc/self/fd") != descriptors)
          return "a file left open";
        return "";
      });
  native::CloseRegKey(key);
}

} // namespace

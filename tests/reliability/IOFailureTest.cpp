// Every read, write, seek and flush of a scenario made to fail, once and
// from then on, as a device fails: with nothing done, or with half the
// items moved, and the device's error signalled.
//
// Each scenario runs once over a memory handler to count its calls of each
// kind, then once per call with that call failing. With a user's hook that
// answers "retry", a transient failure is retried from the position the
// call started at, and the scenario produces exactly the bytes and values of
// the clean run; a persistent one ends, once the hook gives up, with the
// device's error. Without the hook the device's error reaches the caller,
// and what the caller owns (the values it wrote) is unchanged.
#include "support/ErrorTestSupport.h"
#include "support/FailingStream.h"

#include <qvbase/PDate.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PTime.h>
#include <qvbase/PUniversalID.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <iostream>
#include <optional>
#include <string>

namespace {

using qvbase::test::FailingStreamHdl;
using qvbase::test::RetryingHook;

std::string Text(const PString& text) {
  PMBString bytes(text);
  return std::string(static_cast<const char*>(bytes), bytes.Size());
}

// The values a scenario writes: the caller's, checked unchanged afterwards.
struct Values {
  std::array<short, 3> shorts{{0x0102, -2, 0x7F00}};
  std::array<LONG, 5> longs{{1, -1, 0x01020304, 0x7FFFFFFF, 42}}; // 20 bytes: the scratch block
  std::array<__int64, 2> wide{{0x0102030405060708LL, -3}};
  std::array<double, 2> reals{{0.5, -1.25}};
  std::array<char, 6> bytes{{'a', 'b', 'c', 0, '\xFF', 'z'}};
  PString text{PMBString("counted text")};
  PString terminated{PMBString("ends at a semicolon")};
  PAutomaticUID id{"Identifier"};
  PTime span{PTime(5400, 0)};
  PUTDate date{PUTDate(1795219200)};

  bool operator==(const Values& o) const {
    return shorts == o.shorts && longs == o.longs && wide == o.wide && reals == o.reals &&
           bytes == o.bytes && Text(text) == Text(o.text) &&
           Text(terminated) == Text(o.terminated) && id == o.id &&
           span.GetValue() == o.span.GetValue() &&
           date.GetValue().GetValue() == o.date.GetValue().GetValue();
  }
};

// Typed values of every kind written, then read back; the values read, as
// text.
std::string TypedValues(PStream& file, const Values& v) {
  file.WriteByteOrdering();
  file.Write('x');
  file.Write(v.shorts[0]);
  file.Write(v.longs[2]);
  file.Write(v.wide[0]);
  file.Write(true);
  file.Write(2.5f, /*digits=*/6);
  file.Write(v.reals[1], /*digits=*/10);
  file.Write(v.text);
  file.Write(v.terminated, ';');
  file.Write(v.id);
  file.Write(v.span);
  file.Write(v.date);
  file.WriteArray(v.shorts.data(), 3);
  file.WriteArray(v.longs.data(), 5);
  file.WriteArray(v.wide.data(), 2);
  file.WriteArray(v.reals.data(), 2, /*digits=*/8);
  file.WriteArray(v.bytes.data(), 6);
  file.Flush();

  file.MoveTo(0);
  Values back;
  char c = 0;
  short s = 0;
  LONG l = 0;
  __int64 w = 0;
  bool b = false;
  float f = 0;
  double d = 0;
  PString text, terminated;
  PUniversalID id;
  PTime span;
  PUTDate date;
  file.ReadByteOrdering();
  file.Read(&c);
  file.Read(&s);
  file.Read(&l);
  file.Read(&w);
  file.Read(&b);
  file.Read(&f);
  file.Read(&d);
  file.Read(&text);
  file.Read(&terminated, ';');
  file.Read(&id);
  file.Read(&span);
  file.Read(&date);
  file.ReadArray(back.shorts.data(), 3);
  file.ReadArray(back.longs.data(), 5);
  file.ReadArray(back.wide.data(), 2);
  file.ReadArray(back.reals.data(), 2);
  file.ReadArray(back.bytes.data(), 6);
  return std::string(1, c) + std::to_string(s) + std::to_string(l) + std::to_string(w) +
         std::to_string(b) + std::to_string(f) + std::to_string(d) + Text(text) + Text(terminated) +
         Text(static_cast<PString>(id)) + std::to_string(span.GetValue()) +
         std::to_string(date.GetValue().GetValue()) + std::to_string(back.shorts[2]) +
         std::to_string(back.longs[4]) + std::to_string(back.wide[1]) +
         std::to_string(back.reals[0]) + std::string(back.bytes.data(), 6);
}

// The example's kind of document: nested sections, an unknown one skipped
// on reading.
std::string Sections(PStream& file, const Values& v) {
  {
    PStreamSection document = OpenWriteSection(file, PAutomaticUID("Document"), 2);
    document.Write(v.text);
    document.WriteArray(v.longs.data(), 5);
    {
      PStreamSection chapter = OpenWriteSection(document, PAutomaticUID("Chapter"), 1);
      PStreamSection paragraph = OpenWriteSection(chapter, PAutomaticUID("Paragraph"), 1);
      paragraph.Write(v.terminated, ';');
      paragraph.Close();
      chapter.Write(v.id);
      chapter.Close();
    }
    document.Close();
    PStreamSection unknown = OpenWriteSection(file, PAutomaticUID("Unknown"), 1);
    unknown.WriteArray(v.bytes.data(), 6);
    unknown.Close();
    PStreamSection summary = OpenWriteSection(file, PAutomaticUID("Summary"), 1);
    summary.Write(v.date);
    summary.Close();
  }
  file.Flush();

  file.MoveTo(0);
  std::string out;
  PStreamSection document = OpenReadSection(file, PAutomaticUID("Document"));
  PString text;
  Values back;
  document.Read(&text);
  document.ReadArray(back.longs.data(), 5);
  PStreamSection chapter = OpenReadSection(document, PAutomaticUID("Chapter"));
  PStreamSection paragraph = OpenReadSection(chapter, PAutomaticUID("Paragraph"));
  PString terminated;
  paragraph.Read(&terminated, ';');
  paragraph.Close();
  PUniversalID id;
  chapter.Read(&id);
  chapter.Close();
  document.Close();
  out += Text(text) + std::to_string(back.longs[3]) + Text(terminated) +
         Text(static_cast<PString>(id)) + std::to_string(document.Version());
  if (GetNextSection(file) != PAutomaticUID("Unknown"))
    return out + " (no unknown section)";
  SkipCurrentSection(file);
  PStreamSection summary = OpenReadSection(file, PAutomaticUID("Summary"));
  PUTDate date;
  summary.Read(&date);
  // Closed here: a section closed by its destructor cannot report a failure
  // to its caller (destructors do not throw).
  summary.Close();
  return out + std::to_string(date.GetValue().GetValue());
}

using Scenario = std::function<std::string(PStream&, const Values&)>;

struct Run {
  bool failed = false;
  int code = 0;
  std::string values; // what the scenario read back
  std::string bytes;  // what the memory handler holds at the end
  std::array<std::size_t, FailingStreamHdl::kCallKinds> calls{};
  bool callerValuesKept = true;
};

// Runs `scenario` over a failing stream stacked on a memory handler.
Run RunOver(const Scenario& scenario, unsigned short ordering, const FailingStreamHdl::Plan& plan,
            bool retrying) {
  Run run;
  const Values original;
  Values mine;
  PStream memory(new PMemoryStreamHdl(/*granularity=*/64));
  RetryingHook hook;
  {
    auto* failing = new FailingStreamHdl(memory, plan);
    PStream file(failing);
    file.SetByteOrdering(ordering);
    try {
      std::optional<PErrorHookProtection> protection;
      if (retrying)
        protection.emplace(&hook, /*set=*/true);
      file.Open(OpenReadWrite | OpenAllowEmpty);
      run.values = scenario(file, mine);
    } catch (const PError& e) {
      run.failed = true;
      run.code = e.Code();
    }
    for (int k = 0; k < FailingStreamHdl::kCallKinds; ++k)
      run.calls[k] = failing->Calls(static_cast<FailingStreamHdl::Call>(k));
    const auto* content = static_cast<const PMemoryStreamHdl*>(memory.GetHandler());
    if (content->GetBuffer())
      run.bytes.assign(content->GetBuffer(), static_cast<std::size_t>(memory.GetSize()));
    run.callerValuesKept = mine == original;
    // `file` goes here, closing a stream that failed without a second error.
  }
  return run;
}

const char* const kCallNames[] = {"IORead", "IOWrite", "IOSetPos", "IOFlush"};

void SweepCalls(const char* name, const Scenario& scenario) {
  for (unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    const std::string where =
        std::string(name) + (ordering == kByteOrderingIntel ? ", II" : ", MM");
    const Run clean = RunOver(scenario, ordering, {}, /*retrying=*/false);
    ASSERT_FALSE(clean.failed) << where << ": the clean run failed with " << clean.code;
    std::size_t points = 0;
    for (int k = 0; k < FailingStreamHdl::kCallKinds; ++k) {
      const auto call = static_cast<FailingStreamHdl::Call>(k);
      ASSERT_GT(clean.calls[k], 0u) << where << ": no " << kCallNames[k];
      for (std::size_t n = 1; n <= clean.calls[k]; ++n) {
        for (FailingStreamHdl::How how :
             {FailingStreamHdl::kSignalledError, FailingStreamHdl::kShortCount}) {
          for (bool persistent : {false, true}) {
            for (bool retrying : {true, false}) {
              ++points;
              SCOPED_TRACE(where + ": " + kCallNames[k] + " " + std::to_string(n) + " of " +
                           std::to_string(clean.calls[k]) +
                           (how == FailingStreamHdl::kShortCount ? ", short count" : ", error") +
                           (persistent ? ", persistent" : ", transient") +
                           (retrying ? ", retried by the hook" : ", no hook"));
              const Run run = RunOver(scenario, ordering, {call, n, persistent, how}, retrying);
              EXPECT_TRUE(run.callerValuesKept) << "the caller's values changed";
              if (retrying && !persistent) {
                EXPECT_FALSE(run.failed) << "failed with " << run.code;
                EXPECT_EQ(run.values, clean.values);
                EXPECT_EQ(run.bytes, clean.bytes);
                continue;
              }
              ASSERT_TRUE(run.failed) << "the failure did not reach the caller";
              const int device =
                  call == FailingStreamHdl::kRead || call == FailingStreamHdl::kSetPos
                      ? kErrStreamShortRead
                      : kErrStreamShortWrite;
              EXPECT_EQ(run.code, device);
            }
          }
        }
      }
    }
    std::cout << "[ figures  ] " << where << ": " << clean.calls[0] << " reads, " << clean.calls[1]
              << " writes, " << clean.calls[2] << " seeks, " << clean.calls[3] << " flushes; "
              << points << " failure points\n";
  }
}

TEST(PStreamIO, EveryFailedReadWriteSeekOrFlushOfTypedValuesIsRetriedOrReported) {
  SweepCalls("typed values", TypedValues);
}

TEST(PStreamSection, EveryFailedReadWriteSeekOrFlushOfNestedSectionsIsRetriedOrReported) {
  SweepCalls("nested sections", Sections);
}

} // namespace

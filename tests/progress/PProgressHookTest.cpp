// Progress hooks: levels and the proportional mapping of a child's progress
// into its parent's slice, the step bookkeeping, timing from the local date,
// the estimates, cancellation, and the suspension of background tasks while a
// root hook runs.
#include <qvbase/PBackground.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PProgressHook.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/ErrorTestSupport.h"
#include "support/ProgressTestSupport.h"

namespace {

using qvbase::test::Caught;
using qvbase::test::ManualClock;
using qvbase::test::Milliseconds;
using qvbase::test::ScopedErrorCapture;
using qvbase::test::Seconds;

// A root hook that records its notifications ("current 1"), the sub-levels
// it is asked to make, and answers DoContinue as told.
class RecordingHook : public PProgressHook {
public:
  struct Creation {
    ULONG level;
    PProgressHook* parent;
    bool flag;
    PProgressHook* made;
  };

  std::vector<std::string> events;
  std::vector<Creation> created;
  bool goOn = true;
  int continues = 0;

protected:
  void StatusChanged(ULONG level) override {
    events.push_back("status " + std::to_string(level));
    PProgressHook::StatusChanged(level);
  }
  void EndValueChanged(ULONG level) override {
    events.push_back("end " + std::to_string(level));
    PProgressHook::EndValueChanged(level);
  }
  void CurrentValueChanged(ULONG level) override {
    events.push_back("current " + std::to_string(level));
    PProgressHook::CurrentValueChanged(level);
  }
  bool DoContinue() override {
    ++continues;
    return goOn;
  }
  PProgressHook* CreateSubProgressHook(ULONG level, PProgressHook* parent, bool flag) override {
    PProgressHook* made = PProgressHook::CreateSubProgressHook(level, parent, flag);
    created.push_back({level, parent, flag, made});
    return made;
  }
};

// --- Levels and the mapping ---

TEST(PProgressHook, ChildProgressMapsIntoTheParentsSliceAndRemLevelCompletesIt) {
  PProgressHook parent;
  parent.StartProgress(100);
  PProgressHook* child = parent.AddLevel(false, 50);
  child->StartProgress(10);
  child->SetCurrentValue(4);
  EXPECT_EQ(parent.GetCurrentValue(), 20u);
  parent.RemLevel();
  // The slice counts as done although the child stopped at 4.
  EXPECT_EQ(parent.GetCurrentValue(), 50u);
  EXPECT_EQ(parent.NumLevels(), 1u);
  parent.StopProgress();
}

TEST(PProgressHook, TheSliceStartsAtTheParentsValueWhenTheLevelIsAdded) {
  PProgressHook parent;
  parent.StartProgress(1000);
  parent.SetCurrentValue(300);
  PProgressHook* child = parent.AddLevel(false, 200);
  child->StartProgress(4);
  child->SetCurrentValue(1);
  EXPECT_EQ(parent.GetCurrentValue(), 350u);
  parent.RemLevel();
  EXPECT_EQ(parent.GetCurrentValue(), 500u);
  parent.StopProgress();
}

TEST(PProgressHook, MappingIsUnsigned32BitWrappingAndTruncating) {
  // Deliberate and kept: child value * slice size wraps at 2^32 and the
  // division truncates.
  struct Row {
    const char* name;
    ULONG base, slice, childEnd, childValue, expected;
  };
  const Row rows[] = {
      {"proportional", 0, 50, 10, 4, 20},
      {"truncated", 0, 10, 3, 1, 3},        // 10 / 3
      {"truncated twice", 7, 10, 3, 2, 13}, // 7 + 20 / 3
      {"product wraps to 0", 0, 0x10000, 0x20000, 0x10000, 0},
      // 0x30000 * 0x10000 = 0x3_0000_0000 wraps to 0; 0x8000 * 0x10000 is
      // 0x8000_0000 and stays.
      {"product wraps below the value", 0, 0x10000, 0x40000, 0x30000, 0},
      {"large product stays", 0, 0x10000, 0x10000, 0x8000, 0x8000},
      // 0x18001 * 0x20000 = 0x3_0002_0000 wraps to 0x20000, / 0x20000 = 1;
      // unwrapped it would be 0x18001.
      {"wrap then add the base", 5, 0x20000, 0x20000, 0x18001, 6},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    PProgressHook parent;
    parent.StartProgress(0xFFFFFFFFu);
    parent.SetCurrentValue(row.base);
    PProgressHook* child = parent.AddLevel(false, row.slice);
    child->StartProgress(row.childEnd);
    child->SetCurrentValue(row.childValue);
    EXPECT_EQ(parent.GetCurrentValue(), row.expected);
    parent.StopProgress();
  }
}

TEST(PProgressHook, ChildWithEndZeroDoesNotMoveItsParent) {
  RecordingHook parent;
  parent.StartProgress(100);
  parent.SetCurrentValue(30);
  PProgressHook* child = parent.AddLevel(false, 50);
  // The parent moves on its own; a recomputation from the slice would take
  // it back to the slice base, 30.
  parent.SetCurrentValue(40);
  parent.events.clear();
  child->Start();
  child->SetCurrentValue(5);
  child->SetCurrentValue(0);
  EXPECT_EQ(child->GetCurrentValue(), 0u);
  EXPECT_EQ(parent.GetCurrentValue(), 40u);
  EXPECT_TRUE(parent.events.empty());
  parent.RemLevel();
  parent.StopProgress();
}

TEST(PProgressHook, AnUnchangedChildValueStillHasTheParentRecomputeItsSlice) {
  PProgressHook parent;
  parent.StartProgress(100);
  PProgressHook* child = parent.AddLevel(false, 50);
  child->StartProgress(10);
  child->SetCurrentValue(4);
  parent.SetCurrentValue(90);
  child->SetCurrentValue(4); // equal: nothing changes in the child
  EXPECT_EQ(parent.GetCurrentValue(), 20u);
  parent.StopProgress();
}

TEST(PProgressHook, AddLevelBeforeStartRaisesLevelMisuse) {
  PProgressHook hook;
  hook.SetEndValue(10);
  PError e = Caught([&] { hook.AddLevel(false, 5); });
  EXPECT_EQ(e.Code(), kErrProgressLevelMisuse);
  EXPECT_EQ(e.Code(), -1);
  EXPECT_EQ(e.Severity(), ErrorSeverityFatal);
  EXPECT_STREQ(e.File(), "src\\PProgressHook");
  EXPECT_FALSE(hook.HasLevel(1));
}

TEST(PProgressHook, AddLevelTwiceWithoutRemLevelRaisesLevelMisuse) {
  PProgressHook hook;
  hook.StartProgress(10);
  PProgressHook* first = hook.AddLevel(false, 5);
  PError e = Caught([&] { hook.AddLevel(false, 5); });
  EXPECT_EQ(e.Code(), -1);
  EXPECT_EQ(e.Severity(), ErrorSeverityFatal);
  EXPECT_EQ(hook.GetLevel(1), first);
  hook.StopProgress();
}

TEST(PProgressHook, RemLevelWithoutLevelRaisesLevelMisuse) {
  PProgressHook hook;
  hook.StartProgress(10);
  hook.SetCurrentValue(3);
  PError e = Caught([&] { hook.RemLevel(); });
  EXPECT_EQ(e.Code(), -1);
  EXPECT_EQ(e.Severity(), ErrorSeverityFatal);
  EXPECT_EQ(hook.GetCurrentValue(), 3u);
  hook.StopProgress();
}

TEST(PProgressHook, LevelMisuseThatAHookLetsReturnCarriesOnSensibly) {
  ScopedErrorCapture capture(ErrorHandlingIgnore);
  PProgressHook hook;
  // Not started: the level is added all the same.
  PProgressHook* child = hook.AddLevel(false, 5);
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(hook.GetLevel(1), child);
  // Twice: the existing level comes back, nothing is orphaned.
  EXPECT_EQ(hook.AddLevel(true, 7), child);
  hook.RemLevel();
  EXPECT_EQ(hook.NumLevels(), 1u);
  // Without a level: nothing happens.
  hook.RemLevel();
  EXPECT_EQ(capture.hook.codes, (std::vector<int>{-1, -1, -1}));
}

TEST(PProgressHook, AddLevelAsksTheRootToMakeEverySubLevel) {
  RecordingHook root;
  root.StartProgress(100);
  PProgressHook* child = root.AddLevel(true, 40);
  ASSERT_EQ(root.created.size(), 1u);
  EXPECT_EQ(root.created[0].level, 1u);
  EXPECT_EQ(root.created[0].parent, &root);
  EXPECT_TRUE(root.created[0].flag);
  EXPECT_EQ(root.created[0].made, child);
  EXPECT_TRUE(child->LevelFlag());
  child->StartProgress(10);
  // The child's own sub-level is the root's to make too, two levels down.
  PProgressHook* grandchild = child->AddLevel(false, 5);
  ASSERT_EQ(root.created.size(), 2u);
  EXPECT_EQ(root.created[1].level, 2u);
  EXPECT_EQ(root.created[1].parent, child);
  EXPECT_FALSE(root.created[1].flag);
  EXPECT_EQ(root.created[1].made, grandchild);
  EXPECT_FALSE(grandchild->LevelFlag());
  EXPECT_FALSE(root.LevelFlag());
  root.StopProgress();
}

TEST(PProgressHook, LevelNumbersWalkDownTheChainAndStopAtTheLast) {
  PProgressHook root;
  root.StartProgress(100);
  PProgressHook* child = root.AddLevel(false, 50);
  child->StartProgress(10);
  PProgressHook* grandchild = child->AddLevel(false, 5);
  grandchild->StartProgress(4);
  grandchild->SetCurrentValue(2);
  EXPECT_EQ(root.NumLevels(), 3u);
  EXPECT_EQ(child->NumLevels(), 2u);
  EXPECT_TRUE(root.HasLevel(2));
  EXPECT_FALSE(root.HasLevel(3));
  EXPECT_EQ(root.GetLevel(0), &root);
  EXPECT_EQ(root.GetLevel(1), child);
  EXPECT_EQ(root.GetLevel(2), grandchild);
  EXPECT_EQ(root.GetLevel(7), grandchild);
  EXPECT_EQ(root.GetCurrentValue(2), 2u);
  EXPECT_EQ(root.GetEndValue(2), 4u);
  EXPECT_EQ(root.GetEndValue(9), 4u);
  // 2 of 4 of a slice of 5 is 2; 2 of 10 of a slice of 50 is 10.
  EXPECT_EQ(root.GetCurrentValue(1), 2u);
  EXPECT_EQ(root.GetCurrentValue(0), 10u);
  root.StopProgress();
}

TEST(PProgressHook, DeletingAHookDeletesItsLevels) {
  PProgressHook* root = new PProgressHook;
  root->StartProgress(10);
  PProgressHook* child = root->AddLevel(false, 5);
  child->StartProgress(10);
  child->AddLevel(false, 5);
  root->StopProgress();
  EXPECT_EQ(root->NumLevels(), 3u);
  delete root; // LeakSanitizer checks that both levels went with it
}

// --- Values ---

TEST(PProgressHook, SetCurrentValueClampsToTheEndValue) {
  PProgressHook hook;
  hook.StartProgress(100);
  hook.SetCurrentValue(150);
  EXPECT_EQ(hook.GetCurrentValue(), 100u);
  EXPECT_EQ(hook.GetLeftValue(), 0u);
  hook.StopProgress();
}

TEST(PProgressHook, GetCurrentPercentIsAFractionAndZeroWithoutRange) {
  PProgressHook hook;
  EXPECT_EQ(hook.GetCurrentPercent(), 0.0);
  EXPECT_EQ(hook.GetLeftPercent(), 0.0);
  hook.StartProgress(100);
  hook.SetCurrentValue(25);
  EXPECT_EQ(hook.GetCurrentPercent(), 0.25);
  EXPECT_EQ(hook.GetLeftPercent(), 0.75);
  hook.StopProgress();
  EXPECT_EQ(hook.GetCurrentPercent(), 1.0);
}

TEST(PProgressHook, SetEndValueBelowCurrentBringsCurrentDownFirst) {
  RecordingHook hook;
  hook.StartProgress(100);
  hook.SetCurrentValue(80);
  hook.events.clear();
  hook.SetEndValue(50);
  EXPECT_EQ(hook.GetCurrentValue(), 50u);
  EXPECT_EQ(hook.GetEndValue(), 50u);
  EXPECT_EQ(hook.GetLeftValue(), 0u);
  EXPECT_EQ(hook.events, (std::vector<std::string>{"current 0", "end 0"}));
  // An equal end changes nothing; a larger one leaves current alone.
  hook.events.clear();
  hook.SetEndValue(50);
  EXPECT_TRUE(hook.events.empty());
  hook.SetEndValue(200);
  EXPECT_EQ(hook.GetCurrentValue(), 50u);
  EXPECT_EQ(hook.GetLeftValue(), 150u);
  EXPECT_EQ(hook.events, (std::vector<std::string>{"end 0"}));
  hook.StopProgress();
}

TEST(PProgressHook, ValuesChangeSilentlyBeforeStart) {
  RecordingHook hook;
  hook.SetEndValue(100);
  hook.SetCurrentValue(30);
  hook.SetEndValue(20);
  EXPECT_EQ(hook.GetCurrentValue(), 20u);
  EXPECT_EQ(hook.GetLeftValue(), 0u);
  EXPECT_TRUE(hook.events.empty());
  // Start resets the run.
  hook.Start();
  EXPECT_EQ(hook.GetCurrentValue(), 0u);
  EXPECT_EQ(hook.GetLeftValue(), 20u);
  hook.Stop();
}

TEST(PProgressHook, AddCurrentValueWrapsIn32Bits) {
  PProgressHook hook;
  hook.StartProgress(100);
  hook.SetCurrentValue(10);
  // 10 + 0xFFFFFFFF is 9: a step back.
  hook.AddCurrentValue(0xFFFFFFFFu);
  EXPECT_EQ(hook.GetCurrentValue(), 9u);
  hook.StopProgress();
}

TEST(PProgressHook, ContinueProgressAddsContinuesAndAnswersTrue) {
  RecordingHook hook;
  hook.StartProgress(100);
  EXPECT_TRUE(hook.ContinueProgress(7));
  EXPECT_TRUE(hook.ContinueProgress(3));
  EXPECT_EQ(hook.GetCurrentValue(), 10u);
  EXPECT_EQ(hook.continues, 2);
  hook.SetProgressEnd(50);
  EXPECT_EQ(hook.GetEndValue(), 50u);
  hook.StopProgress();
}

TEST(PProgressHook, StopCompletesTheRange) {
  RecordingHook hook;
  hook.StartProgress(100);
  hook.SetCurrentValue(40);
  hook.events.clear();
  hook.StopProgress();
  EXPECT_EQ(hook.GetCurrentValue(), 100u);
  EXPECT_EQ(hook.events, (std::vector<std::string>{"current 0"}));
}

TEST(PProgressHook, StatusIsStoredWithItsKindAndReportedWhenItChanges) {
  RecordingHook hook;
  EXPECT_EQ(hook.GetStatusType(), StatusTextNone);
  EXPECT_TRUE(hook.GetStatus().IsEmpty());
  hook.SetStatus("Copying", StatusTextAction);
  EXPECT_EQ(hook.GetStatus(), PMBString("Copying"));
  EXPECT_EQ(hook.GetStatusType(), StatusTextAction);
  hook.SetStatus("Copying", StatusTextAction); // the same: not reported
  hook.SetStatus("Copying", StatusTextItem);   // another kind: reported
  hook.SetStatus("/tmp/a", StatusTextPath);
  EXPECT_EQ(hook.events, (std::vector<std::string>{"status 0", "status 0", "status 0"}));
}

// --- Notifications from the levels ---

TEST(PProgressHook, AChildsChangesReachTheRootWithTheirLevelNumber) {
  RecordingHook root;
  root.StartProgress(100);
  PProgressHook* child = root.AddLevel(false, 50);
  child->StartProgress(10);
  PProgressHook* grandchild = child->AddLevel(false, 10);
  grandchild->StartProgress(2);
  root.events.clear();
  grandchild->SetCurrentValue(1); // child 0 -> 5, root 0 -> 25
  EXPECT_EQ(root.events, (std::vector<std::string>{"current 2", "current 1", "current 0"}));
  root.events.clear();
  grandchild->SetStatus("item", StatusTextItem);
  child->SetEndValue(20);
  EXPECT_EQ(root.events, (std::vector<std::string>{"status 2", "end 1"}));
  root.StopProgress();
}

TEST(PProgressHook, AChildStepThatDoesNotMoveTheParentReachesItOnlyAsTheChilds) {
  RecordingHook root;
  root.StartProgress(100);
  PProgressHook* child = root.AddLevel(false, 1);
  child->StartProgress(1000);
  root.events.clear();
  child->SetCurrentValue(10); // 10 * 1 / 1000 = 0: the root stays
  EXPECT_EQ(root.events, (std::vector<std::string>{"current 1"}));
  root.StopProgress();
}

// --- Timing ---

TEST(PProgressHook, ForwardStepsRecordTheirSizeAndDuration) {
  ManualClock clock;
  PProgressHook hook;
  hook.StartProgress(100);
  EXPECT_EQ(hook.GetStartDate(), clock.Date());
  EXPECT_EQ(hook.GetLastCallDate(), clock.Date());
  EXPECT_EQ(hook.GetEllapsedTime(), PTime(0));
  clock.Advance(Seconds(2));
  hook.SetCurrentValue(30);
  clock.Advance(Seconds(3));
  hook.SetCurrentValue(40);
  EXPECT_EQ(hook.GetLastStepValue(), 10u);
  EXPECT_EQ(hook.GetLastStepTime(), Seconds(3));
  EXPECT_EQ(hook.GetEllapsedTime(), Seconds(5));
  EXPECT_EQ(hook.GetLastCallDate(), clock.Date());
  EXPECT_EQ(hook.GetStartDate(), PLocalDate(PTime(ManualClock::kStart)));
  hook.StopProgress();
}

TEST(PProgressHook, AStepBackWithinTheLastStepShortensIt) {
  ManualClock clock;
  PProgressHook hook;
  hook.StartProgress(100);
  clock.Advance(Seconds(2));
  hook.SetCurrentValue(30);
  const PLocalDate lastCall = clock.Date();
  clock.Advance(Seconds(1));
  hook.SetCurrentValue(20); // 30 + 20 > 30: within the last step
  EXPECT_EQ(hook.GetCurrentValue(), 20u);
  EXPECT_EQ(hook.GetLastStepValue(), 20u);
  EXPECT_EQ(hook.GetLastStepTime(), Seconds(3));
  EXPECT_EQ(hook.GetEllapsedTime(), Seconds(3));
  EXPECT_EQ(hook.GetLastCallDate(), lastCall);
  // Deliberate and kept: a second correction counts the time since the last
  // call again.
  clock.Advance(Seconds(1));
  hook.SetCurrentValue(15);
  EXPECT_EQ(hook.GetLastStepValue(), 15u);
  EXPECT_EQ(hook.GetLastStepTime(), Seconds(5));
  EXPECT_EQ(hook.GetEllapsedTime(), Seconds(4));
  EXPECT_EQ(hook.GetLastCallDate(), lastCall);
  hook.StopProgress();
}

TEST(PProgressHook, AStepBackBeyondTheLastStepLeavesTheTimingAlone) {
  ManualClock clock;
  PProgressHook hook;
  hook.StartProgress(100);
  clock.Advance(Seconds(2));
  hook.SetCurrentValue(30);
  clock.Advance(Seconds(2));
  hook.SetCurrentValue(40);
  clock.Advance(Seconds(5));
  hook.SetCurrentValue(25); // 10 + 25 is not above 40
  EXPECT_EQ(hook.GetCurrentValue(), 25u);
  EXPECT_EQ(hook.GetLeftValue(), 75u);
  EXPECT_EQ(hook.GetLastStepValue(), 10u);
  EXPECT_EQ(hook.GetLastStepTime(), Seconds(2));
  EXPECT_EQ(hook.GetEllapsedTime(), Seconds(4));
  hook.StopProgress();
}

TEST(PProgressHook, StepsBeforeStartAreNotTimed) {
  ManualClock clock;
  PProgressHook hook;
  hook.SetEndValue(100);
  clock.Advance(Seconds(2));
  hook.SetCurrentValue(30);
  EXPECT_EQ(hook.GetLastStepValue(), 0u);
  EXPECT_EQ(hook.GetEllapsedTime(), PTime(0));
  EXPECT_FALSE(hook.GetStartDate().IsValid());
}

TEST(PProgressHook, EstimatesExtrapolateTheAveragePace) {
  ManualClock clock;
  PProgressHook hook;
  // No estimate before the first step.
  hook.StartProgress(100);
  EXPECT_FALSE(hook.GetTotalDurationTime().IsValid());
  EXPECT_FALSE(hook.GetLeftTime().IsValid());
  EXPECT_FALSE(hook.GetEndDate().IsValid());
  clock.Advance(Seconds(10));
  hook.SetCurrentValue(25);
  EXPECT_EQ(hook.GetTotalDurationTime(), Seconds(40));
  EXPECT_EQ(hook.GetLeftTime(), Seconds(30));
  EXPECT_EQ(hook.GetEndDate(), PLocalDate(PTime(ManualClock::kStart)) + Seconds(40));
  // Done: the total is what it took, nothing is left.
  clock.Advance(Seconds(20));
  hook.StopProgress();
  EXPECT_EQ(hook.GetTotalDurationTime(), Seconds(30));
  EXPECT_EQ(hook.GetLeftTime(), PTime(0));
}

TEST(PProgressHook, NoEstimateWhileNoMeasurableTimeHasPassed) {
  ManualClock clock;
  PProgressHook hook;
  hook.StartProgress(100);
  hook.SetCurrentValue(50);
  EXPECT_FALSE(hook.GetTotalDurationTime().IsValid());
  hook.SetCurrentValue(100); // done at once: it took no time
  EXPECT_EQ(hook.GetTotalDurationTime(), PTime(0));
  EXPECT_EQ(hook.GetLeftTime(), PTime(0));
  hook.StopProgress();
}

TEST(PProgressHook, AnOverriddenEstimateDrivesLeftTimeAndEndDate) {
  struct Pessimist : PProgressHook {
    PTime TotalTimeEstimation(ULONG level) const override {
      (void)level;
      return Seconds(60);
    }
  };
  ManualClock clock;
  Pessimist hook;
  hook.StartProgress(100);
  clock.Advance(Seconds(90));
  hook.SetCurrentValue(10);
  EXPECT_EQ(hook.GetTotalDurationTime(), Seconds(60));
  // Past the estimate: nothing is left rather than a negative time.
  EXPECT_EQ(hook.GetLeftTime(), PTime(0));
  EXPECT_EQ(hook.GetEndDate(), PLocalDate(PTime(ManualClock::kStart)) + Seconds(60));
  hook.StopProgress();
}

TEST(PProgressHook, BandwidthsCountValuesPerUnitOfTime) {
  ManualClock clock;
  PProgressHook hook;
  hook.StartProgress(1000);
  EXPECT_EQ(hook.GetAverageBandwidth(Seconds(1)), 0.0);
  EXPECT_EQ(hook.GetInstantBandwidth(Seconds(1)), 0.0);
  clock.Advance(Seconds(8));
  hook.SetCurrentValue(20);
  clock.Advance(Seconds(2));
  hook.SetCurrentValue(30);
  EXPECT_DOUBLE_EQ(hook.GetAverageBandwidth(Seconds(1)), 3.0);    // 30 in 10 s
  EXPECT_DOUBLE_EQ(hook.GetInstantBandwidth(Seconds(1)), 5.0);    // 10 in 2 s
  EXPECT_DOUBLE_EQ(hook.GetAverageBandwidth(Seconds(60)), 180.0); // per minute
  // A step within the same instant has no measurable time.
  hook.SetCurrentValue(40);
  EXPECT_EQ(hook.GetInstantBandwidth(Seconds(1)), 0.0);
  hook.StopProgress();
}

TEST(PProgressHook, EachLevelIsTimedOnItsOwn) {
  ManualClock clock;
  PProgressHook root;
  root.StartProgress(100);
  clock.Advance(Seconds(4));
  PProgressHook* child = root.AddLevel(false, 50);
  child->StartProgress(10);
  clock.Advance(Milliseconds(500));
  child->SetCurrentValue(5);
  EXPECT_EQ(root.GetEllapsedTime(1), Milliseconds(500));
  EXPECT_EQ(root.GetStartDate(1), PLocalDate(PTime(ManualClock::kStart)) + Seconds(4));
  EXPECT_EQ(root.GetEllapsedTime(0), Milliseconds(4500));
  EXPECT_EQ(root.GetCurrentValue(0), 25u);
  root.StopProgress();
}

// --- Cancellation ---

TEST(PProgressHook, ContinueRaisesTheCancellationErrorWhenDoContinueSaysNo) {
  RecordingHook hook;
  hook.StartProgress(10);
  hook.Continue();
  hook.goOn = false;
  PError e = Caught([&] { hook.ContinueProgress(1); });
  EXPECT_EQ(e.Code(), kErrProgressCancelled);
  EXPECT_EQ(e.Code(), 3);
  EXPECT_EQ(e.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(e.File(), "src\\PProgressHook");
  EXPECT_EQ(hook.GetCurrentValue(), 1u);
  hook.StopProgress();
}

TEST(PProgressHook, ContinueOnASubLevelAsksTheRoot) {
  RecordingHook root;
  root.StartProgress(10);
  PProgressHook* child = root.AddLevel(false, 5);
  child->StartProgress(10);
  PProgressHook* grandchild = child->AddLevel(false, 5);
  grandchild->StartProgress(10);
  grandchild->ContinueProgress(1);
  EXPECT_EQ(root.continues, 1);
  root.goOn = false;
  EXPECT_EQ(Caught([&] { grandchild->Continue(); }).Code(), kErrProgressCancelled);
  EXPECT_EQ(root.continues, 2);
  root.StopProgress();
}

TEST(PProgressHook, CancellationIsAControlCodeThatHooksAreNotAskedAbout) {
  ScopedErrorCapture capture(ErrorHandlingIgnore);
  RecordingHook hook;
  hook.StartProgress(10);
  hook.goOn = false;
  EXPECT_EQ(Caught([&] { hook.Continue(); }).Code(), kErrProgressCancelled);
  EXPECT_EQ(capture.hook.calls, 0);
  hook.StopProgress();
}

// --- Background suspension ---

struct TimerCounts {
  static int starts;
  static int stops;
  static void Start() { ++starts; }
  static void Stop() { ++stops; }
};
int TimerCounts::starts = 0;
int TimerCounts::stops = 0;

class IdleTask : public PBackground {
protected:
  bool ProcessStep() override { return false; }
};

// An initialised scheduler with one running task: the timer is on.
class RunningScheduler {
public:
  RunningScheduler() {
    TimerCounts::starts = TimerCounts::stops = 0;
    PBackground::Initialize(TimerCounts::Start, TimerCounts::Stop);
    task.Start();
  }
  ~RunningScheduler() {
    task.Stop();
    PBackground::Uninitialize();
  }
  IdleTask task;
};

TEST(PProgressHook, ARootHookSuspendsBackgroundTasksWhileItRuns) {
  RunningScheduler scheduler;
  ASSERT_EQ(TimerCounts::starts, 1);
  PProgressHook hook;
  hook.StartProgress(10);
  EXPECT_EQ(TimerCounts::stops, 1);
  // A sub-level does not suspend again.
  PProgressHook* child = hook.AddLevel(false, 5);
  child->StartProgress(3);
  child->StopProgress();
  hook.RemLevel();
  EXPECT_EQ(TimerCounts::stops, 1);
  EXPECT_EQ(TimerCounts::starts, 1);
  hook.StopProgress();
  EXPECT_EQ(TimerCounts::starts, 2);
}

TEST(PProgressHook, RepeatedStartOrStopKeepsTheSuspensionBalanced) {
  RunningScheduler scheduler;
  PProgressHook hook;
  hook.Stop(); // not started: resumes nothing
  EXPECT_EQ(TimerCounts::starts, 1);
  hook.StartProgress(10);
  hook.SetCurrentValue(4);
  hook.Start(); // a restart: the run is reset, the suspension not doubled
  EXPECT_EQ(hook.GetCurrentValue(), 0u);
  EXPECT_EQ(TimerCounts::stops, 1);
  hook.Stop();
  EXPECT_EQ(TimerCounts::starts, 2);
  hook.Stop();
  EXPECT_EQ(TimerCounts::starts, 2);
}

TEST(PProgressHook, ARootHookDestroyedWhileRunningResumesBackgroundTasks) {
  RunningScheduler scheduler;
  {
    PProgressHook hook;
    hook.StartProgress(10);
    EXPECT_EQ(TimerCounts::stops, 1);
  }
  EXPECT_EQ(TimerCounts::starts, 2);
}

} // namespace

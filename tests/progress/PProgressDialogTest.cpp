// Progress dialogs: when the window appears, when it is refreshed (the
// doubled interval), what happens at stop, which levels ask for a refresh,
// the flag of the sub-levels, and cancellation from the window.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PProgressDialog.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/ErrorTestSupport.h"
#include "support/ProgressTestSupport.h"

namespace {

using qvbase::test::Caught;
using qvbase::test::ManualClock;
using qvbase::test::Milliseconds;
using qvbase::test::Seconds;

// A window that writes down every call it gets.
class RecordingDialog : public PProgressDialog {
public:
  std::vector<std::string> calls;
  bool showAnswer = true;
  bool cancelled = false;

  // Calls other than the event pumping, which comes at every Continue.
  std::vector<std::string> Drawing() const {
    std::vector<std::string> drawing;
    for (const std::string& call : calls)
      if (call != "events")
        drawing.push_back(call);
    return drawing;
  }

protected:
  bool DialogShow() override {
    calls.push_back("show");
    return showAnswer;
  }
  void DialogHide() override { calls.push_back("hide"); }
  void DialogProcessEvents() override { calls.push_back("events"); }
  void DialogUpdate() override { calls.push_back("update"); }
  bool IsDialogCancelled() override { return cancelled; }
};

using Calls = std::vector<std::string>;

TEST(PProgressDialog, AnOperationDoneWithinTheShowDelayNeverShowsTheWindow) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  for (int i = 0; i < 29; ++i) {
    clock.Advance(Milliseconds(100));
    dialog.ContinueProgress(3);
  }
  clock.Advance(Milliseconds(99)); // 2.999 s after the start
  dialog.ContinueProgress(3);
  dialog.StopProgress();
  EXPECT_TRUE(dialog.Drawing().empty());
  EXPECT_EQ(dialog.calls.size(), 30u); // events at each Continue, nothing else
}

TEST(PProgressDialog, TheWindowAppearsAtTheFirstContinueAfterTheShowDelay) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  clock.Advance(Seconds(3));
  EXPECT_TRUE(dialog.calls.empty()); // nothing happens between the calls
  dialog.ContinueProgress(1);
  EXPECT_EQ(dialog.calls, (Calls{"show", "events"}));
  dialog.StopProgress();
}

TEST(PProgressDialog, WithShowDelayZeroTheWindowAppearsInStart) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.IProgressDialog(1, 1, Seconds(1), PTime(0));
  dialog.StartProgress(100);
  EXPECT_EQ(dialog.calls, (Calls{"show"}));
  // The next date stays the start date itself, so the first refresh comes
  // one interval after the start rather than two.
  dialog.ContinueProgress(1);
  clock.Advance(Milliseconds(999));
  dialog.ContinueProgress(1);
  EXPECT_EQ(dialog.Drawing(), (Calls{"show"}));
  clock.Advance(Milliseconds(1));
  dialog.ContinueProgress(1);
  EXPECT_EQ(dialog.Drawing(), (Calls{"show", "update"}));
  dialog.StopProgress();
  EXPECT_EQ(dialog.Drawing(), (Calls{"show", "update", "update", "hide"}));
}

TEST(PProgressDialog, RefreshesComeTwoIntervalsAfterTheLastDrawing) {
  // Deliberate and kept: the interval is counted twice.
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(1000);
  clock.Advance(Seconds(3));
  dialog.ContinueProgress(1); // shown; next date = show + 1 s
  ASSERT_EQ(dialog.Drawing(), (Calls{"show"}));
  struct Step {
    int afterMs;
    bool updated;
  };
  const Step steps[] = {
      {1000, false}, // show + 1 s: one interval only
      {999, false},  // show + 1.999 s
      {1, true},     // show + 2 s: drawn; next date = now + 1 s
      {1000, false}, // + 1 s
      {999, false},  // + 1.999 s
      {1, true},     // + 2 s
  };
  int updates = 0;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.afterMs);
    clock.Advance(Milliseconds(step.afterMs));
    dialog.ContinueProgress(1);
    if (step.updated)
      ++updates;
    EXPECT_EQ(dialog.Drawing().size(), 1u + updates);
  }
  dialog.StopProgress();
}

TEST(PProgressDialog, NothingIsDrawnWithoutAPendingRefresh) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  clock.Advance(Seconds(3));
  dialog.Continue();
  clock.Advance(Seconds(10));
  dialog.Continue(); // no change since the window appeared
  EXPECT_EQ(dialog.Drawing(), (Calls{"show"}));
  dialog.SetStatus("Copying", StatusTextAction);
  dialog.Continue(); // long past the date: drawn at once
  EXPECT_EQ(dialog.Drawing(), (Calls{"show", "update"}));
  dialog.StopProgress();
}

TEST(PProgressDialog, ARefreshPendingAtStopIsDrawnBeforeTheWindowGoes) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  clock.Advance(Seconds(3));
  dialog.ContinueProgress(1);
  dialog.calls.clear();
  dialog.SetCurrentValue(50); // pending, not drawn yet
  dialog.StopProgress();
  EXPECT_EQ(dialog.calls, (Calls{"update", "events", "hide"}));
  // Stopping draws the completed range.
  EXPECT_EQ(dialog.GetCurrentValue(), 100u);
}

TEST(PProgressDialog, StopCompletingTheRangeAsksForTheLastDrawing) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  clock.Advance(Seconds(3));
  dialog.ContinueProgress(1); // shown, nothing pending
  dialog.calls.clear();
  dialog.StopProgress(); // 1 -> 100 at stop
  EXPECT_EQ(dialog.calls, (Calls{"update", "events", "hide"}));
}

TEST(PProgressDialog, AtStopACompleteRangeWithNothingPendingOnlyHides) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  clock.Advance(Seconds(3));
  dialog.ContinueProgress(100); // shown, which serves the pending change
  dialog.calls.clear();
  dialog.StopProgress();
  EXPECT_EQ(dialog.calls, (Calls{"hide"}));
}

TEST(PProgressDialog, AWindowThatFailedToShowIsTriedAgainAnIntervalLater) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.showAnswer = false;
  dialog.StartProgress(100);
  clock.Advance(Seconds(3));
  dialog.ContinueProgress(1);
  clock.Advance(Milliseconds(999));
  dialog.ContinueProgress(1);
  EXPECT_EQ(dialog.Drawing(), (Calls{"show"}));
  clock.Advance(Milliseconds(1));
  dialog.ContinueProgress(1);
  EXPECT_EQ(dialog.Drawing(), (Calls{"show", "show"}));
  // Never shown: nothing to hide or draw at stop.
  dialog.StopProgress();
  EXPECT_EQ(dialog.Drawing(), (Calls{"show", "show"}));
}

TEST(PProgressDialog, TheWindowsCancelMakesContinueRaiseTheCancellationError) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  dialog.ContinueProgress(1);
  dialog.cancelled = true;
  PError e = Caught([&] { dialog.ContinueProgress(1); });
  EXPECT_EQ(e.Code(), kErrProgressCancelled);
  EXPECT_EQ(e.Severity(), ErrorSeverityAbort);
  // The window got its events before it was asked.
  EXPECT_EQ(dialog.calls.back(), "events");
  dialog.StopProgress();
}

TEST(PProgressDialog, SubLevelsContinueThroughTheDialog) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(10);
  PProgressHook* child = dialog.AddLevel(false, 5);
  child->StartProgress(100);
  clock.Advance(Seconds(3));
  child->ContinueProgress(1);
  EXPECT_EQ(dialog.calls, (Calls{"show", "events"}));
  dialog.cancelled = true;
  EXPECT_EQ(Caught([&] { child->ContinueProgress(1); }).Code(), kErrProgressCancelled);
  dialog.StopProgress();
}

TEST(PProgressDialog, OnlyLevelsBelowTheSettingsAskForARefresh) {
  struct Row {
    const char* name;
    ULONG valueLevels, statusLevels;
    bool childValue, childStatus; // what the child changes
    bool refreshed;
  };
  const Row rows[] = {
      {"child value, value levels 1", 1, 1, true, false, false},
      {"child value, value levels 2", 2, 1, true, false, true},
      {"child status, status levels 1", 1, 1, false, true, false},
      {"child status, status levels 2", 1, 2, false, true, true},
      {"child status, value levels 2", 2, 1, false, true, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ManualClock clock;
    RecordingDialog dialog;
    dialog.IProgressDialog(row.valueLevels, row.statusLevels, Seconds(1), Seconds(3));
    dialog.StartProgress(100);
    // A child whose steps are too small to move the dialog's own value.
    PProgressHook* child = dialog.AddLevel(false, 1);
    child->StartProgress(1000);
    clock.Advance(Seconds(3));
    dialog.Continue(); // shown, nothing pending
    if (row.childValue)
      child->SetCurrentValue(10);
    if (row.childStatus)
      child->SetStatus("item", StatusTextItem);
    EXPECT_EQ(dialog.GetCurrentValue(), 0u);
    clock.Advance(Seconds(2));
    dialog.Continue();
    const Calls expected = row.refreshed ? Calls{"show", "update"} : Calls{"show"};
    EXPECT_EQ(dialog.Drawing(), expected);
    dialog.StopProgress();
  }
}

TEST(PProgressDialog, SubLevelsBelowTheStatusLevelsAreMadeWithTheirFlag) {
  RecordingDialog dialog;
  dialog.IProgressDialog(1, 2, Seconds(1), Seconds(3));
  dialog.StartProgress(100);
  PProgressHook* child = dialog.AddLevel(true, 50);
  EXPECT_TRUE(child->LevelFlag());
  child->StartProgress(10);
  PProgressHook* grandchild = child->AddLevel(true, 5); // level 2: not below 2
  EXPECT_FALSE(grandchild->LevelFlag());
  dialog.RemLevel();
  PProgressHook* unflagged = dialog.AddLevel(false, 50);
  EXPECT_FALSE(unflagged->LevelFlag());
  dialog.StopProgress();
}

TEST(PProgressDialog, CopiesTakeTheSettingsAndStartAtRest) {
  ManualClock clock;
  RecordingDialog original;
  original.IProgressDialog(1, 1, Seconds(1), PTime(0));
  original.StartProgress(10);
  ASSERT_EQ(original.calls, (Calls{"show"}));
  RecordingDialog copy(original); // settings copied: show delay 0
  EXPECT_EQ(copy.GetCurrentValue(), 0u);
  EXPECT_EQ(copy.GetEndValue(), 0u);
  copy.StartProgress(10);
  EXPECT_EQ(copy.calls, (Calls{"show", "show"})); // the recorder's own vector came along
  RecordingDialog assigned;
  assigned = original;
  assigned.calls.clear();
  assigned.StartProgress(10);
  EXPECT_EQ(assigned.calls, (Calls{"show"}));
  assigned.StopProgress();
  copy.StopProgress();
  original.StopProgress();
}

TEST(PProgressDialog, DefaultsAreOneLevelOneSecondAndThreeSeconds) {
  ManualClock clock;
  RecordingDialog dialog;
  dialog.StartProgress(100);
  PProgressHook* child = dialog.AddLevel(true, 50);
  EXPECT_FALSE(child->LevelFlag()); // status levels 1: level 1 is not below
  child->StartProgress(1000);
  clock.Advance(Milliseconds(2999));
  dialog.Continue();
  EXPECT_TRUE(dialog.Drawing().empty());
  clock.Advance(Milliseconds(1));
  dialog.Continue();
  EXPECT_EQ(dialog.Drawing(), (Calls{"show"}));
  child->SetCurrentValue(1); // level 1 does not ask (value levels 1)
  clock.Advance(Seconds(2));
  dialog.Continue();
  EXPECT_EQ(dialog.Drawing(), (Calls{"show"}));
  dialog.SetCurrentValue(10); // the dialog's own value does
  dialog.Continue();
  EXPECT_EQ(dialog.Drawing(), (Calls{"show", "update"}));
  dialog.StopProgress();
}

} // namespace

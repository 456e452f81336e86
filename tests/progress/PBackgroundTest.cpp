// Background tasks: initialisation and the timer callbacks, the counted
// suspension, round-robin steps, stopping finished tasks, and the range of
// running priorities.
#include <qvbase/PBackground.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

// What the scheduler did, in order: "start" and "stop" for the timer
// callbacks, "<task> step", "<task> started", "<task> stopped".
std::vector<std::string> gLog;

void StartTimer() { gLog.push_back("start"); }
void StopTimer() { gLog.push_back("stop"); }
void OtherStartTimer() { gLog.push_back("other start"); }
void OtherStopTimer() { gLog.push_back("other stop"); }

class Task : public PBackground {
public:
  explicit Task(const char* name, unsigned short priority = 0, int stepsToFinish = -1)
      : PBackground(priority), m_name(name), m_left(stepsToFinish) {}
  int steps = 0;
  bool throwAtStep = false;

protected:
  void ProcessStarted() override { gLog.push_back(m_name + " started"); }
  void ProcessStopped() override { gLog.push_back(m_name + " stopped"); }
  bool ProcessStep() override {
    ++steps;
    gLog.push_back(m_name + " step");
    if (throwAtStep)
      throw std::runtime_error("step failed");
    return m_left > 0 && --m_left == 0;
  }

private:
  std::string m_name;
  int m_left; // steps until finished; -1: never
};

// Every test starts with an empty log and leaves the scheduler uninitialised,
// its count back where it started.
class FreshScheduler {
public:
  FreshScheduler() { gLog.clear(); }
  ~FreshScheduler() { PBackground::Uninitialize(); }
  FreshScheduler(const FreshScheduler&) = delete;
  FreshScheduler& operator=(const FreshScheduler&) = delete;
};

using Log = std::vector<std::string>;

TEST(PBackground, InitializeWithANullCallbackDoesNothing) {
  FreshScheduler fresh;
  PBackground::Initialize(nullptr, StopTimer);
  PBackground::Initialize(StartTimer, nullptr);
  Task task("a");
  task.Start();
  EXPECT_FALSE(task.IsRunning());
  EXPECT_EQ(PBackground::RunningCount(), 0u);
  EXPECT_TRUE(gLog.empty());
}

TEST(PBackground, ASecondInitializeIsIgnored) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  PBackground::Initialize(OtherStartTimer, OtherStopTimer);
  Task task("a");
  task.Start();
  task.Stop();
  EXPECT_EQ(gLog, (Log{"start", "a started", "stop", "a stopped"}));
}

TEST(PBackground, TheFirstTaskStartsTheTimerOnceAndTheLastStopsItOnce) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  EXPECT_TRUE(gLog.empty()); // initialised, but no task yet
  Task a("a"), b("b");
  a.Start();
  b.Start();
  a.Start(); // running already: nothing
  EXPECT_EQ(gLog, (Log{"start", "a started", "b started"}));
  gLog.clear();
  a.Stop();
  b.Stop();
  b.Stop(); // not running: nothing
  EXPECT_EQ(gLog, (Log{"a stopped", "stop", "b stopped"}));
}

TEST(PBackground, ATaskWhoseStepAnswersTrueIsStoppedAndTold) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task task("a", 0, /*stepsToFinish=*/2);
  task.Start();
  gLog.clear();
  PBackground::Processing();
  EXPECT_TRUE(task.IsRunning());
  PBackground::Processing();
  EXPECT_FALSE(task.IsRunning());
  // Each call suspends around its step; the last task's stop suspends for
  // "no task", so the timer is not started again.
  EXPECT_EQ(gLog, (Log{"stop", "a step", "start", "stop", "a step", "a stopped"}));
  gLog.clear();
  PBackground::Processing(); // nothing runs: suspended
  EXPECT_TRUE(gLog.empty());
}

TEST(PBackground, TwoTasksTakeTurns) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task a("a"), b("b");
  a.Start();
  b.Start();
  for (int i = 0; i < 5; ++i)
    PBackground::Processing();
  Log steps;
  for (const std::string& entry : gLog)
    if (entry.find(" step") != std::string::npos)
      steps.push_back(entry);
  EXPECT_EQ(steps, (Log{"a step", "b step", "a step", "b step", "a step"}));
  a.Stop();
  b.Stop();
}

TEST(PBackground, ThreeTasksRunRoundRobinAndAFinishedOneLeavesTheRound) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task a("a"), b("b", 0, /*stepsToFinish=*/1), c("c");
  a.Start();
  b.Start();
  c.Start();
  for (int i = 0; i < 6; ++i)
    PBackground::Processing();
  EXPECT_EQ(a.steps, 3); // a b c a c a
  EXPECT_EQ(b.steps, 1);
  EXPECT_EQ(c.steps, 2);
  a.Stop();
  c.Stop();
}

TEST(PBackground, SuspensionNestsAndProcessingWaitsForTheLastRestart) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task task("a");
  task.Start();
  gLog.clear();
  PBackground::StopProcessing();
  PBackground::StopProcessing();
  PBackground::Processing();
  PBackground::RestartProcessing();
  PBackground::Processing();
  EXPECT_EQ(gLog, (Log{"stop"})); // the timer stops once; no step ran
  PBackground::RestartProcessing();
  EXPECT_EQ(gLog, (Log{"stop", "start"}));
  PBackground::Processing();
  EXPECT_EQ(task.steps, 1);
  task.Stop();
}

TEST(PBackground, BeforeInitializeNothingRunsAndTheTimerIsNeverCalled) {
  FreshScheduler fresh;
  // The count starts at 2: one suspension lifted is not enough.
  PBackground::RestartProcessing();
  PBackground::StopProcessing();
  PBackground::Processing();
  EXPECT_TRUE(gLog.empty());
}

TEST(PBackground, UninitializeStopsEveryTaskAndInitializeStartsAfresh) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task a("a"), b("b");
  a.Start();
  b.Start();
  gLog.clear();
  PBackground::Uninitialize();
  EXPECT_FALSE(a.IsRunning());
  EXPECT_FALSE(b.IsRunning());
  EXPECT_EQ(gLog, (Log{"stop", "a stopped", "b stopped"}));
  // The count is back at its start: not initialised and no task.
  gLog.clear();
  a.Start();
  EXPECT_FALSE(a.IsRunning());
  PBackground::Initialize(OtherStartTimer, OtherStopTimer);
  a.Start();
  EXPECT_EQ(gLog, (Log{"other start", "a started"}));
  a.Stop();
}

TEST(PBackground, ATaskDestroyedWhileRunningLeavesTheRound) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task a("a");
  a.Start();
  {
    Task b("b");
    b.Start();
  }
  EXPECT_EQ(PBackground::RunningCount(), 1u);
  PBackground::Processing();
  PBackground::Processing();
  EXPECT_EQ(a.steps, 2);
  a.Stop();
}

TEST(PBackground, AStepThatThrowsLiftsTheSuspensionAndTheTaskStaysFirst) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task a("a"), b("b");
  a.Start();
  b.Start();
  a.throwAtStep = true;
  EXPECT_THROW(PBackground::Processing(), std::runtime_error);
  a.throwAtStep = false;
  PBackground::Processing();
  EXPECT_EQ(a.steps, 2);
  EXPECT_EQ(b.steps, 0);
  a.Stop();
  b.Stop();
}

TEST(PBackground, AStepMayStopItsOwnTask) {
  FreshScheduler fresh;
  struct SelfStopping : Task {
    SelfStopping() : Task("s") {}
    bool ProcessStep() override {
      Task::ProcessStep();
      Stop();
      return false;
    }
  };
  PBackground::Initialize(StartTimer, StopTimer);
  SelfStopping s;
  Task b("b");
  s.Start();
  b.Start();
  PBackground::Processing();
  EXPECT_FALSE(s.IsRunning());
  PBackground::Processing();
  EXPECT_EQ(b.steps, 1);
  b.Stop();
}

TEST(PBackground, RunningPrioritiesAreKeptAsARange) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  EXPECT_EQ(PBackground::LowestPriority(), 0);
  EXPECT_EQ(PBackground::HighestPriority(), 0);
  Task a("a", 5), b("b", 1), c("c", 9);
  a.Start();
  EXPECT_EQ(PBackground::LowestPriority(), 5);
  EXPECT_EQ(PBackground::HighestPriority(), 5);
  b.Start();
  c.Start();
  EXPECT_EQ(PBackground::LowestPriority(), 1);
  EXPECT_EQ(PBackground::HighestPriority(), 9);
  // The holder of a bound stops: the range shrinks to the others.
  c.Stop();
  EXPECT_EQ(PBackground::HighestPriority(), 5);
  // A running task's change widens the range...
  a.SetPriority(0);
  EXPECT_EQ(PBackground::LowestPriority(), 0);
  EXPECT_EQ(PBackground::HighestPriority(), 1);
  // ...or, from a bound, recomputes it.
  a.SetPriority(3);
  EXPECT_EQ(PBackground::LowestPriority(), 1);
  EXPECT_EQ(PBackground::HighestPriority(), 3);
  // A stopped task's priority does not count.
  c.SetPriority(100);
  EXPECT_EQ(c.Priority(), 100);
  EXPECT_EQ(PBackground::HighestPriority(), 3);
  c.Start();
  EXPECT_EQ(PBackground::HighestPriority(), 100);
  a.Stop();
  b.Stop();
  c.Stop();
  EXPECT_EQ(PBackground::LowestPriority(), 0);
  EXPECT_EQ(PBackground::HighestPriority(), 0);
}

TEST(PBackground, PrioritiesDoNotChangeTheOrderOfTurns) {
  FreshScheduler fresh;
  PBackground::Initialize(StartTimer, StopTimer);
  Task low("low", 1), high("high", 50);
  low.Start();
  high.Start();
  PBackground::Processing();
  PBackground::Processing();
  EXPECT_EQ(low.steps, 1);
  EXPECT_EQ(high.steps, 1);
  low.Stop();
  high.Stop();
}

} // namespace

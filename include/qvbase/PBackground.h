// PBackground.h - background tasks that share idle time round robin.
// Part of qvbase, the QVKernel foundation class library.
//
// A background task derives from PBackground and does its work in slices:
// ProcessStep performs one and answers true when the task is finished. The
// application gives the scheduler two callbacks that start and stop its
// processing timer (Initialize); while any task runs and nothing suspends the
// scheduler, the timer is on, and the application's timer (or idle) handler
// calls PBackground::Processing, which runs one step of the task at the head
// of the list and moves it to the tail:
//
//   void StartTimer() { ::SetTimer(window, kIdleTimer, 10, nullptr); }
//   void StopTimer() { ::KillTimer(window, kIdleTimer); }
//   PBackground::Initialize(StartTimer, StopTimer);
//   indexer.Start();                      // the timer starts
//   ... on WM_TIMER: PBackground::Processing();
//
// Suspension is counted and nests: StopProcessing and RestartProcessing come
// in pairs, and the timer runs only while the count is 0. The count starts at
// 2, one for "not initialised" and one for "no task running", so the timer
// first starts when both have changed, in whichever order. A root progress
// hook suspends the scheduler while it runs (PProgressHook.h), so that no
// step runs inside an operation's event pumping; so does Processing itself
// while a step runs.
//
// Tasks are not owned: the list holds their addresses. A task must be
// stopped before it goes away; its destructor stops it if it is not. The
// scheduler is process-wide and meant for the application's one event
// thread; nothing here takes a lock.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// A background task: one slice of work per ProcessStep, tasks taken round robin.
class QVBASE_API PBackground : public PRoot {
public:
  // Starts and stops the application's processing timer.
  using TimerCallback = void (*)();

  // Priority 0, not running.
  PBackground();
  explicit PBackground(unsigned short priority);
  // Stops the task if it is running (ProcessStopped of this class, which does
  // nothing: a derived part is already gone).
  ~PBackground() override;
  PBackground(const PBackground&) = delete;
  PBackground& operator=(const PBackground&) = delete;

  // Stores the two callbacks, marks the scheduler initialised and lifts its
  // "not initialised" suspension. Ignored when either callback is null or
  // when the scheduler is initialised already.
  static void Initialize(TimerCallback startTimer, TimerCallback stopTimer);
  // When initialised: suspends, stops every running task (each gets its
  // ProcessStopped), and forgets the callbacks; the count is back where it
  // started, so Initialize may be called again.
  static void Uninitialize();
  // Nestable suspension. StopProcessing calls the stop callback when the
  // count is 0 and then increments it; RestartProcessing decrements it and
  // calls the start callback when it goes from 1 to 0. Calls must pair: an
  // unpaired RestartProcessing takes the count below 0, and processing stays
  // off until a StopProcessing balances it.
  static void StopProcessing();
  static void RestartProcessing();
  // Runs one step of one task, when the count is 0: suspends, steps the task
  // at the head; a task that answers true is stopped, another one moves to the
  // tail when more than one runs; then resumes. Does nothing while suspended.
  // An exception from the step passes through; the suspension is lifted all
  // the same and the task stays at the head.
  static void Processing();

  // The range of priorities among the running tasks; both 0 while none runs.
  // The scheduler steps tasks round robin whatever their priority; the range
  // is there for the application, for instance to choose its timer's period
  // from the highest priority that runs.
  static unsigned short LowestPriority();
  static unsigned short HighestPriority();
  // The number of running tasks.
  static ULONG RunningCount();

  // Joins the round robin at the tail, when not running and the scheduler is
  // initialised (otherwise nothing happens); the first running task lifts
  // the "no task" suspension. Then ProcessStarted.
  void Start();
  // Leaves the round robin, when running; the last task going suspends the
  // scheduler again. Then ProcessStopped.
  void Stop();
  bool IsRunning() const { return m_running; }

  // A running task's change moves the range of running priorities with it.
  void SetPriority(unsigned short priority);
  unsigned short Priority() const { return m_priority; }

protected:
  // Called at the end of Start and of Stop; empty here.
  virtual void ProcessStarted();
  virtual void ProcessStopped();
  // Performs one slice of the work; true when the task has finished.
  virtual bool ProcessStep() = 0;

private:
  unsigned short m_priority;
  bool m_running;
};

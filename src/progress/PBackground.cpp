// PBackground.cpp - background tasks that share idle time round robin.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PBackground.h>

#include <qvbase/PList.h>

namespace {

// The running tasks in round-robin order: the head steps next.
class TaskList : public PList {
public:
  TaskList() : PList(GDynArrayDataConstructor) {}
  void Append(PBackground* task) { AddAnObjectTail(task); }
  void Remove(PBackground* task) { RemoveAnObject(task); }
  PBackground* Head() const { return static_cast<PBackground*>(GetAFirstObject()); }
  PBackground* At(ULONG index) const { return static_cast<PBackground*>(GetAnObject(index)); }
  bool Contains(PBackground* task) const { return GetAnIndex(task) != kListNoIndex; }
  void MoveToTail(PBackground* task) { MoveAnObjectToTail(task); }
};

// The scheduler's process-wide state.
struct Scheduler {
  TaskList tasks;
  unsigned short lowest = 0;
  unsigned short highest = 0;
  bool initialized = false;
  PBackground::TimerCallback startTimer = nullptr;
  PBackground::TimerCallback stopTimer = nullptr;
  // One suspension for "not initialised", one for "no task running".
  LONG suspensions = 2;
};

// Made at first use and never destroyed, so that tasks that are static
// objects of an application find it whatever the order of their
// construction and destruction.
Scheduler& TheScheduler() {
  static Scheduler* scheduler = new Scheduler;
  return *scheduler;
}

// The range of the running tasks' priorities, from scratch; 0 and 0 for none.
void RecomputePriorities(Scheduler& scheduler) {
  const ULONG count = scheduler.tasks.Size();
  if (count == 0) {
    scheduler.lowest = scheduler.highest = 0;
    return;
  }
  unsigned short lowest = 0xFFFF, highest = 0;
  for (ULONG i = 0; i < count; ++i) {
    const unsigned short priority = scheduler.tasks.At(i)->Priority();
    if (priority < lowest)
      lowest = priority;
    if (priority > highest)
      highest = priority;
  }
  scheduler.lowest = lowest;
  scheduler.highest = highest;
}

// Lifts the suspension that Processing took, also when a step throws.
class ProcessingSuspension {
public:
  ProcessingSuspension() { PBackground::StopProcessing(); }
  ~ProcessingSuspension() { PBackground::RestartProcessing(); }
  ProcessingSuspension(const ProcessingSuspension&) = delete;
  ProcessingSuspension& operator=(const ProcessingSuspension&) = delete;
};

} // namespace

PBackground::PBackground() : PBackground(0) {}

PBackground::PBackground(unsigned short priority) : m_priority(priority), m_running(false) {}

PBackground::~PBackground() {
  // A task that goes away while it runs must leave the list; the call to
  // ProcessStopped reaches only this class's (empty) version by now.
  Stop();
}

void PBackground::ProcessStarted() {}

void PBackground::ProcessStopped() {}

// ---------------------------------------------------------------------------
// The scheduler

void PBackground::Initialize(TimerCallback startTimer, TimerCallback stopTimer) {
  Scheduler& scheduler = TheScheduler();
  if (!startTimer || !stopTimer || scheduler.initialized)
    return;
  scheduler.startTimer = startTimer;
  scheduler.stopTimer = stopTimer;
  scheduler.initialized = true;
  RestartProcessing();
}

void PBackground::Uninitialize() {
  Scheduler& scheduler = TheScheduler();
  if (!scheduler.initialized)
    return;
  StopProcessing();
  while (PBackground* task = scheduler.tasks.Head())
    task->Stop();
  scheduler.startTimer = nullptr;
  scheduler.stopTimer = nullptr;
  scheduler.initialized = false;
}

void PBackground::StopProcessing() {
  Scheduler& scheduler = TheScheduler();
  if (scheduler.suspensions == 0 && scheduler.stopTimer)
    scheduler.stopTimer();
  ++scheduler.suspensions;
}

void PBackground::RestartProcessing() {
  Scheduler& scheduler = TheScheduler();
  if (--scheduler.suspensions == 0 && scheduler.startTimer)
    scheduler.startTimer();
}

void PBackground::Processing() {
  Scheduler& scheduler = TheScheduler();
  if (scheduler.suspensions != 0)
    return;
  PBackground* task = scheduler.tasks.Head();
  if (!task)
    return;
  ProcessingSuspension suspended;
  if (task->ProcessStep()) {
    task->Stop();
  } else if (scheduler.tasks.Size() > 1 && scheduler.tasks.Contains(task)) {
    // The step may have stopped its own task or others: only a task still
    // running moves, and it moves from wherever it is now.
    scheduler.tasks.MoveToTail(task);
  }
}

unsigned short PBackground::LowestPriority() { return TheScheduler().lowest; }

unsigned short PBackground::HighestPriority() { return TheScheduler().highest; }

ULONG PBackground::RunningCount() { return TheScheduler().tasks.Size(); }

// ---------------------------------------------------------------------------
// A task

void PBackground::Start() {
  Scheduler& scheduler = TheScheduler();
  if (m_running || !scheduler.initialized)
    return;
  m_running = true;
  if (scheduler.tasks.IsEmpty()) {
    scheduler.lowest = scheduler.highest = m_priority;
  } else {
    if (m_priority < scheduler.lowest)
      scheduler.lowest = m_priority;
    if (m_priority > scheduler.highest)
      scheduler.highest = m_priority;
  }
  scheduler.tasks.Append(this);
  if (scheduler.tasks.Size() == 1)
    RestartProcessing();
  ProcessStarted();
}

void PBackground::Stop() {
  if (!m_running)
    return;
  Scheduler& scheduler = TheScheduler();
  m_running = false;
  scheduler.tasks.Remove(this);
  if (m_priority == scheduler.lowest || m_priority == scheduler.highest)
    RecomputePriorities(scheduler);
  if (scheduler.tasks.IsEmpty())
    StopProcessing();
  ProcessStopped();
}

void PBackground::SetPriority(unsigned short priority) {
  const unsigned short old = m_priority;
  m_priority = priority;
  if (!m_running || priority == old)
    return;
  Scheduler& scheduler = TheScheduler();
  if (old == scheduler.lowest || old == scheduler.highest) {
    // This task may have held a bound that no other task reaches.
    RecomputePriorities(scheduler);
    return;
  }
  if (priority < scheduler.lowest)
    scheduler.lowest = priority;
  if (priority > scheduler.highest)
    scheduler.highest = priority;
}

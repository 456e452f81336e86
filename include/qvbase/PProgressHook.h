// PProgressHook.h - nested progress of long operations, timed and cancellable.
// Part of qvbase, the QVKernel foundation class library.
//
// A PProgressHook receives the progress of an operation as an integer current
// value against an end value, times it from the local date, and lets its
// observer cancel: Continue raises the cancellation error (code 3,
// kErrProgressCancelled, severity 25) when DoContinue answers false, and the
// operation ends by unwinding. An operation hands a slice of its own range to
// a sub-operation with AddLevel; the sub-operation reports against a range of
// its own in the child hook, whose progress is mapped proportionally into the
// slice. The root hook decides what sub-levels are (CreateSubProgressHook),
// so that a progress dialog (PProgressDialog.h) sees every level.
//
//   hook.StartProgress(/*end=*/files.size());
//   for (const File& file : files) {
//     PProgressHook* sub = hook.AddLevel(/*flag=*/false, /*sliceSize=*/1);
//     sub->StartProgress(file.Size());
//     ...  sub->ContinueProgress(bytesDone);   // may raise code 3: cancelled
//     hook.RemLevel();                         // the file's slice counts as done
//   }
//   hook.StopProgress();
//
// A hook owns its child level; sub-levels are deleted by RemLevel (or with
// their parent), never by the caller. A root hook suspends the background
// tasks (PBackground.h) while it runs. Hooks belong to the application's one
// event thread; nothing here takes a lock.
#pragma once

#include <qvbase/PDate.h>
#include <qvbase/PMBString.h>
#include <qvbase/PRoot.h>
#include <qvbase/PTime.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// What a status text is, so that a window can present it fittingly. The hook
// stores the kind with the text and does nothing else with it.
enum TypStatusText : LONG {
  StatusTextNone = 0,   // no status: the kind of a hook that was never given one
  StatusTextAction = 1, // what the operation does now: "Copying the archive"
  StatusTextItem = 2,   // the item being worked on: a record's or a file's name
  StatusTextPath = 3,   // a file path: a window short of room shortens it in the
                        // middle and keeps the file name whole
};

// Nested progress of a long operation, timed and cancellable.
class QVBASE_API PProgressHook : public PRoot {
public:
  // A root hook: no parent, not started, every value and time 0, no status,
  // the dates unset.
  PProgressHook();
  // Deletes the child level, if any. A root hook destroyed while started
  // (an operation left by an exception without StopProgress) resumes the
  // background tasks it suspended, so that they do not stay suspended for
  // good; DoStop is not run.
  ~PProgressHook() override;

  // --- Levels. Level 0 is this hook, level n the n-th child down the chain.

  // Gives `sliceSize` of this hook's range, counted from its current value,
  // to a new child level and returns it. The root's CreateSubProgressHook
  // makes it, with the depth of the new level below the root and `flag`.
  // Before Start, or while a level exists, raises kErrProgressLevelMisuse
  // (-1, severity 33); when a protection lets that return, a hook that is not
  // started gets its level all the same, and a hook that has one returns the
  // existing child.
  virtual PProgressHook* AddLevel(bool flag, ULONG sliceSize);
  // Deletes the child and counts its slice as fully done: the current value
  // becomes slice base + slice size, whatever the child reached. Without a
  // level raises kErrProgressLevelMisuse (-1, severity 33), and does nothing
  // when that returns.
  virtual void RemLevel();
  // 1 for a hook without child, 2 with one, and so on down the chain.
  ULONG NumLevels() const;
  bool HasLevel(ULONG level) const;
  // Walks `level` steps down the chain, stopping at the last existing level.
  PProgressHook* GetLevel(ULONG level);
  const PProgressHook* GetLevel(ULONG level) const;
  // The flag this sub-level was made with; false for a root hook. The hook
  // only keeps it: a dialog sets it on the sub-levels whose status it shows.
  bool LevelFlag() const { return m_flag; }

  // --- Running.

  // A root hook suspends the background tasks (PBackground::StopProcessing),
  // then DoStart resets the values and the timing, and the hook is started.
  // Starting a started hook runs DoStart again without suspending a second
  // time.
  virtual void Start();
  // DoStop completes the range; a root hook that was started resumes the
  // background tasks; the hook is no longer started. Stopping a hook that is
  // not started runs DoStop and resumes nothing.
  virtual void Stop();
  // Asks DoContinue; when it answers false (cancelled), raises
  // kErrProgressCancelled (3, severity 25), which a protection throws as the
  // "abort the action" control code. Call it between steps of the work.
  virtual void Continue();
  // Stores the text and its kind. When either differs from what was stored,
  // StatusChanged(0) runs, started or not.
  virtual void SetStatus(const PMBString& status, TypStatusText type = StatusTextAction);
  // An equal value changes nothing. A smaller one first brings the current
  // value down to it (a step back, through SetCurrentValue). Then left =
  // end - current and, when started, EndValueChanged(0). A parent's mapping
  // of this level moves at the next SetCurrentValue, not here.
  virtual void SetEndValue(ULONG end);
  // Clamps `value` to the end value. A forward step, when started, records
  // the step's size and duration and moves the last call date to now; a step
  // back that stays within the last step shortens that step (see the
  // source); then, when started, CurrentValueChanged(0). Whatever the value,
  // a level with a parent and a non-zero end value then has its parent
  // recompute its own value from the slice (see the file comment).
  virtual void SetCurrentValue(ULONG value);
  // SetCurrentValue(current + delta), in 32-bit arithmetic: a delta that
  // wraps past 4294967295 is a step back.
  void AddCurrentValue(ULONG delta);

  // Shortcuts.
  void StartProgress(ULONG end);      // SetEndValue(end), then Start()
  void StopProgress();                // Stop()
  bool ContinueProgress(ULONG delta); // AddCurrentValue(delta), then Continue(); true
  void SetProgressEnd(ULONG end);     // SetEndValue(end)

  // --- Queries; `level` as GetLevel takes it.

  PMBString GetStatus(ULONG level = 0) const;
  TypStatusText GetStatusType(ULONG level = 0) const;
  ULONG GetEndValue(ULONG level = 0) const;
  ULONG GetCurrentValue(ULONG level = 0) const;
  ULONG GetLeftValue(ULONG level = 0) const;
  // The size of the last forward step (shortened by steps back into it).
  ULONG GetLastStepValue(ULONG level = 0) const;
  // Fractions from 0 to 1, not percentages: current / end and left / end;
  // both 0.0 when the end value is 0.
  double GetCurrentPercent(ULONG level = 0) const;
  double GetLeftPercent(ULONG level = 0) const;
  PLocalDate GetStartDate(ULONG level = 0) const;
  // Start date + GetTotalDurationTime; no date (unset) while there is no
  // estimate.
  PLocalDate GetEndDate(ULONG level = 0) const;
  // The date of the last forward step (of the start before the first).
  PLocalDate GetLastCallDate(ULONG level = 0) const;
  // How long the last forward step took: from the step before it (or the
  // start) to it.
  PTime GetLastStepTime(ULONG level = 0) const;
  // TotalTimeEstimation(level): how long the whole range is expected to take.
  PTime GetTotalDurationTime(ULONG level = 0) const;
  // From the start to the last forward step. Not a running clock: it moves
  // with the steps.
  PTime GetEllapsedTime(ULONG level = 0) const;
  // GetTotalDurationTime - GetEllapsedTime, never below 0; unset while there
  // is no estimate.
  PTime GetLeftTime(ULONG level = 0) const;
  // Values per `unit` of time (PTime(1, 0): per second) since the start:
  // current * unit / elapsed; 0.0 before any measurable time has passed.
  double GetAverageBandwidth(const PTime& unit, ULONG level = 0) const;
  // Values per `unit` over the last forward step: last step value * unit /
  // last step time; 0.0 when that step took no measurable time (the local
  // date counts milliseconds).
  double GetInstantBandwidth(const PTime& unit, ULONG level = 0) const;

protected:
  // --- Operations for derived classes (a dialog), in the order they are
  // declared for the virtual table.

  // Resets for a run: current 0, left = end, last step value 0, start date
  // and last call date now, elapsed and last step time 0.
  virtual void DoStart();
  // Completes the range: when current is below end, SetCurrentValue(end).
  virtual void DoStop();
  // Whether the operation may go on. A sub-level asks its parent's
  // DoContinue, so that the root decides for every level; a root answers
  // true.
  virtual bool DoContinue();

  // Change notifications. `level` is 0 when the change is this hook's own;
  // a change in the level n steps below this hook arrives with n: the base
  // versions pass every notification on to the parent with level + 1, so the
  // root sees each level's changes after the level itself has. A derived
  // class that overrides one calls the base version. A sub-level's own value
  // change is seen first (level n), then the change of each parent's mapped
  // value as that parent's own (level n - 1 ... 0), when the mapping moved it.
  // The value notifications run only while the changing hook is started.
  virtual void StatusChanged(ULONG level);
  virtual void EndValueChanged(ULONG level);
  virtual void CurrentValueChanged(ULONG level);

  // The estimated duration of the whole range of `level`, for
  // GetTotalDurationTime, GetLeftTime and GetEndDate; derived classes may
  // estimate otherwise. This one extrapolates the average pace: elapsed +
  // elapsed * left / current. Unset (no estimate) while current is 0, or
  // while no measurable time has passed and something is left; the elapsed
  // time once the range is done.
  virtual PTime TotalTimeEstimation(ULONG level) const;

  // Makes the child level that AddLevel adds to `parent`, `level` steps below
  // this root hook. AddLevel always asks the root, so a root class decides
  // what all its sub-levels are. This one makes an ordinary sub-level.
  virtual PProgressHook* CreateSubProgressHook(ULONG level, PProgressHook* parent, bool flag);

  // A fresh root hook at rest: nothing of a run is copied (a running hook
  // owns its levels). For derived classes that copy their own settings.
  PProgressHook(const PProgressHook& other);
  // Leaves this hook's run as it is; for derived classes that assign their
  // own settings.
  PProgressHook& operator=(const PProgressHook& other);

private:
  // A sub-level of `parent`.
  PProgressHook(PProgressHook* parent, bool flag);

  // Recomputes this hook's value from its child's position in the slice.
  void ChildValueChanged();
  // Depth of this hook below the root, counting itself as 1, and the root.
  PProgressHook* Root(ULONG* depth);

  PProgressHook* m_parent; // null for the root hook
  bool m_flag;             // given to the sub-level constructor by AddLevel
  bool m_hasLevel;         // a child level exists
  PProgressHook* m_child;  // the current child level (owned), or null
  ULONG m_sliceSize;       // the part of this hook's range given to the child
  ULONG m_sliceBase;       // this hook's current value when the child was added
  bool m_started;
  PMBString m_status;
  TypStatusText m_statusType;
  ULONG m_endValue;
  ULONG m_currentValue;
  ULONG m_leftValue; // end - current
  ULONG m_lastStepValue;
  PLocalDate m_startDate;
  PLocalDate m_lastCallDate;
  PTime m_elapsedTime;  // last call date - start date
  PTime m_lastStepTime; // the time taken by the last forward step
};

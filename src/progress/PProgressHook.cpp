// PProgressHook.cpp - nested progress of long operations, timed and cancellable.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PProgressHook.h>

#include <qvbase/PBackground.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/WINDate.h>

#include "errors/RaiseError.h"
#include "progress/ProgressClock.h"

namespace {

// The errors' defined position, not a path of this tree.
const char kSourceFile[] = "src\\PProgressHook";

qvbase::progress::LocalClock gLocalClock = nullptr;

void RaiseLevelMisuse(ULONG line) {
  qvbase::errors::Raise(kErrProgressLevelMisuse, ErrorSeverityFatal, kSourceFile, line);
}

} // namespace

namespace qvbase::progress {

LocalClock SetLocalClock(LocalClock clock) {
  LocalClock previous = gLocalClock;
  gLocalClock = clock;
  return previous;
}

PLocalDate CurrentLocalDate() {
  if (gLocalClock)
    return PLocalDate(gLocalClock());
  return CurrentNLocDate();
}

} // namespace qvbase::progress

using qvbase::progress::CurrentLocalDate;

// ---------------------------------------------------------------------------
// Construction

PProgressHook::PProgressHook() : PProgressHook(nullptr, false) {}

PProgressHook::PProgressHook(PProgressHook* parent, bool flag)
    : m_parent(parent), m_flag(flag), m_hasLevel(false), m_child(nullptr), m_sliceSize(0),
      m_sliceBase(0), m_started(false), m_statusType(StatusTextNone), m_endValue(0),
      m_currentValue(0), m_leftValue(0), m_lastStepValue(0), m_elapsedTime(0), m_lastStepTime(0) {}

PProgressHook::PProgressHook(const PProgressHook& other) : PProgressHook() { (void)other; }

PProgressHook& PProgressHook::operator=(const PProgressHook& other) {
  (void)other;
  return *this;
}

PProgressHook::~PProgressHook() {
  delete m_child;
  if (!m_parent && m_started)
    PBackground::RestartProcessing();
}

// ---------------------------------------------------------------------------
// Levels

PProgressHook* PProgressHook::Root(ULONG* depth) {
  PProgressHook* hook = this;
  *depth = 1;
  while (hook->m_parent) {
    hook = hook->m_parent;
    ++*depth;
  }
  return hook;
}

PProgressHook* PProgressHook::AddLevel(bool flag, ULONG sliceSize) {
  if (m_hasLevel || !m_started) {
    RaiseLevelMisuse(__LINE__);
    // Signalled and returned: a second level would orphan the first, so the
    // caller gets the existing one; a hook not started gets its level.
    if (m_hasLevel)
      return m_child;
  }
  m_hasLevel = true;
  m_sliceSize = sliceSize;
  m_sliceBase = m_currentValue;
  ULONG depth = 0;
  PProgressHook* root = Root(&depth);
  m_child = root->CreateSubProgressHook(depth, this, flag);
  return m_child;
}

void PProgressHook::RemLevel() {
  if (!m_hasLevel) {
    RaiseLevelMisuse(__LINE__);
    return; // nothing to remove when the signal returns
  }
  delete m_child;
  m_child = nullptr;
  m_hasLevel = false;
  // The slice counts as fully done, whatever the child reached.
  SetCurrentValue(m_sliceBase + m_sliceSize);
  m_sliceSize = 0;
  m_sliceBase = 0;
}

ULONG PProgressHook::NumLevels() const {
  ULONG levels = 1;
  for (const PProgressHook* hook = m_child; hook; hook = hook->m_child)
    ++levels;
  return levels;
}

bool PProgressHook::HasLevel(ULONG level) const { return level < NumLevels(); }

PProgressHook* PProgressHook::GetLevel(ULONG level) {
  PProgressHook* hook = this;
  for (; level != 0 && hook->m_child; --level)
    hook = hook->m_child;
  return hook;
}

const PProgressHook* PProgressHook::GetLevel(ULONG level) const {
  return const_cast<PProgressHook*>(this)->GetLevel(level);
}

PProgressHook* PProgressHook::CreateSubProgressHook(ULONG level, PProgressHook* parent, bool flag) {
  (void)level;
  return new PProgressHook(parent, flag);
}

// ---------------------------------------------------------------------------
// Running

void PProgressHook::Start() {
  if (!m_parent && !m_started)
    PBackground::StopProcessing();
  DoStart();
  m_started = true;
}

void PProgressHook::Stop() {
  DoStop();
  if (!m_parent && m_started)
    PBackground::RestartProcessing();
  m_started = false;
}

void PProgressHook::Continue() {
  if (!DoContinue()) {
    // Cancelled. A protection throws this as the "abort the action" control
    // code; should one let it return, the operation simply goes on.
    qvbase::errors::Raise(kErrProgressCancelled, ErrorSeverityAbort, kSourceFile, __LINE__);
  }
}

void PProgressHook::SetStatus(const PMBString& status, TypStatusText type) {
  if (type == m_statusType && status == m_status)
    return;
  m_status = status;
  m_statusType = type;
  StatusChanged(0);
}

void PProgressHook::SetEndValue(ULONG end) {
  if (end == m_endValue)
    return;
  if (m_currentValue > end)
    SetCurrentValue(end);
  m_endValue = end;
  m_leftValue = end - m_currentValue;
  if (m_started)
    EndValueChanged(0);
}

void PProgressHook::SetCurrentValue(ULONG value) {
  if (value > m_endValue)
    value = m_endValue;
  if (value > m_currentValue) {
    if (m_started) {
      m_lastStepValue = value - m_currentValue;
      const PLocalDate now = CurrentLocalDate();
      m_lastStepTime = now - m_lastCallDate;
      m_elapsedTime = now - m_startDate;
      m_lastCallDate = now;
    }
    m_currentValue = value;
    m_leftValue = m_endValue - value;
    if (m_started)
      CurrentValueChanged(0);
  } else if (value < m_currentValue) {
    // A step back that ends inside the last forward step shortens that step
    // by what was taken back, and its time grows by the time since the last
    // call date, which stays where it is: a step reported too far and then
    // corrected still counts as one step for the instant bandwidth. Kept as
    // defined, including that a second correction counts the same interval
    // again. A step back beyond the last step's start leaves the timing
    // alone.
    if (m_started && m_lastStepValue + value > m_currentValue) {
      const PLocalDate now = CurrentLocalDate();
      m_lastStepValue = m_lastStepValue + value - m_currentValue;
      m_lastStepTime += now - m_lastCallDate;
      m_elapsedTime = now - m_startDate;
    }
    m_currentValue = value;
    m_leftValue = m_endValue - value;
    if (m_started)
      CurrentValueChanged(0);
  }
  // Even an unchanged value is passed up: a parent recomputes its slice at
  // every report of its child.
  if (m_parent && m_endValue != 0)
    m_parent->ChildValueChanged();
}

void PProgressHook::ChildValueChanged() {
  ULONG value = m_sliceBase;
  if (m_child->m_endValue != 0) {
    // Deliberately unsigned 32-bit on every target, kept as defined: the
    // product wraps once child value * slice size passes 4294967295, and the
    // division truncates. So every build reports the same figures; callers
    // with large ranges scale them down first (the stream copy shifts sizes
    // below 32 bits) or keep slice * end small.
    value += m_child->m_currentValue * m_sliceSize / m_child->m_endValue;
  }
  SetCurrentValue(value);
}

void PProgressHook::AddCurrentValue(ULONG delta) { SetCurrentValue(m_currentValue + delta); }

void PProgressHook::StartProgress(ULONG end) {
  SetEndValue(end);
  Start();
}

void PProgressHook::StopProgress() { Stop(); }

bool PProgressHook::ContinueProgress(ULONG delta) {
  AddCurrentValue(delta);
  Continue();
  return true;
}

void PProgressHook::SetProgressEnd(ULONG end) { SetEndValue(end); }

// ---------------------------------------------------------------------------
// Operations for derived classes

void PProgressHook::DoStart() {
  m_currentValue = 0;
  m_leftValue = m_endValue;
  m_lastStepValue = 0;
  m_startDate = CurrentLocalDate();
  m_lastCallDate = m_startDate;
  m_elapsedTime = PTime(0);
  m_lastStepTime = PTime(0);
}

void PProgressHook::DoStop() {
  if (m_currentValue < m_endValue)
    SetCurrentValue(m_endValue);
}

bool PProgressHook::DoContinue() { return m_parent ? m_parent->DoContinue() : true; }

void PProgressHook::StatusChanged(ULONG level) {
  if (m_parent)
    m_parent->StatusChanged(level + 1);
}

void PProgressHook::EndValueChanged(ULONG level) {
  if (m_parent)
    m_parent->EndValueChanged(level + 1);
}

void PProgressHook::CurrentValueChanged(ULONG level) {
  if (m_parent)
    m_parent->CurrentValueChanged(level + 1);
}

PTime PProgressHook::TotalTimeEstimation(ULONG level) const {
  const PProgressHook* hook = GetLevel(level);
  const __int64 elapsed = hook->m_elapsedTime.GetValue();
  if (hook->m_currentValue == 0 || (elapsed <= 0 && hook->m_leftValue != 0))
    return PTime();
  if (hook->m_leftValue == 0)
    return hook->m_elapsedTime;
  const double left = static_cast<double>(elapsed) * static_cast<double>(hook->m_leftValue) /
                      static_cast<double>(hook->m_currentValue);
  return PTime(elapsed + static_cast<__int64>(left));
}

// ---------------------------------------------------------------------------
// Queries

PMBString PProgressHook::GetStatus(ULONG level) const { return GetLevel(level)->m_status; }

TypStatusText PProgressHook::GetStatusType(ULONG level) const {
  return GetLevel(level)->m_statusType;
}

ULONG PProgressHook::GetEndValue(ULONG level) const { return GetLevel(level)->m_endValue; }

ULONG PProgressHook::GetCurrentValue(ULONG level) const { return GetLevel(level)->m_currentValue; }

ULONG PProgressHook::GetLeftValue(ULONG level) const { return GetLevel(level)->m_leftValue; }

ULONG PProgressHook::GetLastStepValue(ULONG level) const {
  return GetLevel(level)->m_lastStepValue;
}

double PProgressHook::GetCurrentPercent(ULONG level) const {
  const PProgressHook* hook = GetLevel(level);
  if (hook->m_endValue == 0)
    return 0.0;
  return static_cast<double>(hook->m_currentValue) / static_cast<double>(hook->m_endValue);
}

double PProgressHook::GetLeftPercent(ULONG level) const {
  const PProgressHook* hook = GetLevel(level);
  if (hook->m_endValue == 0)
    return 0.0;
  return static_cast<double>(hook->m_leftValue) / static_cast<double>(hook->m_endValue);
}

PLocalDate PProgressHook::GetStartDate(ULONG level) const { return GetLevel(level)->m_startDate; }

PLocalDate PProgressHook::GetEndDate(ULONG level) const {
  const PTime total = GetTotalDurationTime(level);
  if (!total.IsValid())
    return PLocalDate();
  return GetLevel(level)->m_startDate + total;
}

PLocalDate PProgressHook::GetLastCallDate(ULONG level) const {
  return GetLevel(level)->m_lastCallDate;
}

PTime PProgressHook::GetLastStepTime(ULONG level) const { return GetLevel(level)->m_lastStepTime; }

PTime PProgressHook::GetTotalDurationTime(ULONG level) const { return TotalTimeEstimation(level); }

PTime PProgressHook::GetEllapsedTime(ULONG level) const { return GetLevel(level)->m_elapsedTime; }

PTime PProgressHook::GetLeftTime(ULONG level) const {
  const PTime total = GetTotalDurationTime(level);
  if (!total.IsValid())
    return PTime();
  const PTime left = total - GetLevel(level)->m_elapsedTime;
  return left.GetValue() < 0 ? PTime(0) : left;
}

namespace {

// amount * unit / time as a double; 0.0 when no measurable time has passed.
double PerUnit(ULONG amount, const PTime& unit, const PTime& time) {
  if (time.GetValue() <= 0)
    return 0.0;
  return static_cast<double>(amount) * static_cast<double>(unit.GetValue()) /
         static_cast<double>(time.GetValue());
}

} // namespace

double PProgressHook::GetAverageBandwidth(const PTime& unit, ULONG level) const {
  const PProgressHook* hook = GetLevel(level);
  return PerUnit(hook->m_currentValue, unit, hook->m_elapsedTime);
}

double PProgressHook::GetInstantBandwidth(const PTime& unit, ULONG level) const {
  const PProgressHook* hook = GetLevel(level);
  return PerUnit(hook->m_lastStepValue, unit, hook->m_lastStepTime);
}

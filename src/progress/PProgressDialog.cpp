// PProgressDialog.cpp - when a progress window appears, refreshes and cancels.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PProgressDialog.h>

#include "progress/ProgressClock.h"

using qvbase::progress::CurrentLocalDate;

namespace {

constexpr ULONG kDefaultLevels = 1;
const __int64 kDefaultRefreshInterval = 10000000; // 1 second in 100-ns ticks
const __int64 kDefaultShowDelay = 30000000;       // 3 seconds

} // namespace

PProgressDialog::PProgressDialog()
    : m_valueLevels(kDefaultLevels), m_statusLevels(kDefaultLevels), m_refreshPending(false),
      m_refreshInterval(kDefaultRefreshInterval), m_showDelay(kDefaultShowDelay), m_shown(false) {}

PProgressDialog::PProgressDialog(const PProgressDialog& other)
    : PProgressHook(other), m_valueLevels(other.m_valueLevels),
      m_statusLevels(other.m_statusLevels), m_refreshPending(false),
      m_refreshInterval(other.m_refreshInterval), m_showDelay(other.m_showDelay), m_shown(false) {}

PProgressDialog& PProgressDialog::operator=(const PProgressDialog& other) {
  PProgressHook::operator=(other);
  m_valueLevels = other.m_valueLevels;
  m_statusLevels = other.m_statusLevels;
  m_refreshInterval = other.m_refreshInterval;
  m_showDelay = other.m_showDelay;
  return *this;
}

PProgressDialog::~PProgressDialog() = default;

void PProgressDialog::IProgressDialog(ULONG valueLevels, ULONG statusLevels, PTime interval,
                                      PTime showDelay) {
  m_valueLevels = valueLevels;
  m_statusLevels = statusLevels;
  m_refreshInterval = interval;
  m_showDelay = showDelay;
}

void PProgressDialog::DoStart() {
  PProgressHook::DoStart();
  m_nextDate = CurrentLocalDate() + m_showDelay;
  if (m_showDelay.GetValue() == 0)
    m_shown = DialogShow();
}

bool PProgressDialog::DoContinue() {
  const PLocalDate now = CurrentLocalDate();
  if (!m_shown) {
    if (now >= m_nextDate) {
      m_shown = DialogShow();
      m_nextDate = now + m_refreshInterval;
      m_refreshPending = false;
    }
  } else if (m_refreshPending && now >= m_nextDate + m_refreshInterval) {
    // The interval is deliberately counted twice, on top of the date set at
    // the last drawing: refreshes come at most every two intervals. Kept as
    // defined: the intervals applications set assume this spacing.
    DialogUpdate();
    m_nextDate = now + m_refreshInterval;
    m_refreshPending = false;
  }
  DialogProcessEvents();
  return !IsDialogCancelled();
}

void PProgressDialog::DoStop() {
  m_nextDate = PLocalDate();
  PProgressHook::DoStop();
  if (!m_shown)
    return;
  // The last figures are drawn before the window goes.
  if (m_refreshPending) {
    DialogUpdate();
    DialogProcessEvents();
    m_refreshPending = false;
  }
  DialogHide();
  m_shown = false;
}

void PProgressDialog::StatusChanged(ULONG level) {
  if (level < m_statusLevels)
    m_refreshPending = true;
  PProgressHook::StatusChanged(level);
}

void PProgressDialog::EndValueChanged(ULONG level) {
  if (level < m_valueLevels)
    m_refreshPending = true;
  PProgressHook::EndValueChanged(level);
}

void PProgressDialog::CurrentValueChanged(ULONG level) {
  if (level < m_valueLevels)
    m_refreshPending = true;
  PProgressHook::CurrentValueChanged(level);
}

PProgressHook* PProgressDialog::CreateSubProgressHook(ULONG level, PProgressHook* parent,
                                                      bool flag) {
  return PProgressHook::CreateSubProgressHook(level, parent, flag && level < m_statusLevels);
}

bool PProgressDialog::DialogShow() { return false; }

void PProgressDialog::DialogHide() {}

void PProgressDialog::DialogProcessEvents() {}

void PProgressDialog::DialogUpdate() {}

bool PProgressDialog::IsDialogCancelled() { return false; }

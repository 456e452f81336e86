// ProgressClock.h - where the progress family reads the local date.
// Part of qvbase, the QVKernel foundation class library.
//
// Hooks and dialogs time themselves from the local date (CurrentNLocDate).
// A test, or a program that replays recorded work, installs a clock of its
// own here so that timing does not depend on real time passing; the library
// itself never installs one. Process-wide and unsynchronised, like the
// hooks themselves.
#pragma once

#include <qvbase/PDate.h>
#include <qvbase/PTime.h>
#include <qvbase/QVExport.h>

namespace qvbase::progress {

// Answers the current local date as a tick count from 1970.
using LocalClock = PTime (*)();

// Installs `clock` (null: CurrentNLocDate again) and returns the one it
// replaces (null for CurrentNLocDate).
QVBASE_API LocalClock SetLocalClock(LocalClock clock);

// The current local date, from the installed clock.
PLocalDate CurrentLocalDate();

} // namespace qvbase::progress

// ErrorTrace.h - the records SignalError writes to the error trace log.
// Part of qvbase, the QVKernel foundation class library. Internal.
#pragma once

#include <qvbase/PError.h>

namespace qvbase {

// An error is being signalled: opens a block (unless in no-error mode).
void TraceErrorSignalled(const PError& error);
// The error was transformed into the control code it now has.
void TraceErrorTransformed(const PError& error);
// The error was dropped: closes its block.
void TraceErrorIgnored();

} // namespace qvbase

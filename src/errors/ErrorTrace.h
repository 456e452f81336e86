// ErrorTrace.h - the records SignalError writes to the error trace log.
// Part of qvbase, the QVKernel foundation class library. Internal.
#pragma once

#include <qvbase/GDbg.h>
#include <qvbase/PError.h>

namespace qvbase {
namespace errors {

// An error is being signalled: opens a block (unless in no-error mode).
void TraceErrorSignalled(const PError& error);
// The error was transformed into the control code it now has.
void TraceErrorTransformed(const PError& error);
// The error was dropped: closes its block.
void TraceErrorIgnored();

// The error trace in no-error mode for one scope: errors signalled meanwhile
// are not written to it. For code that turns the errors of what it runs into
// results (the COM stream adapter) or drops them on purpose (closing a
// stream that failed before).
class NoErrorModeScope {
public:
  NoErrorModeScope(const char* file, ULONG line) { GDbgEnterNoErrorMode(file, line); }
  ~NoErrorModeScope() { GDbgExitNoErrorMode(); }
  NoErrorModeScope(const NoErrorModeScope&) = delete;
  NoErrorModeScope& operator=(const NoErrorModeScope&) = delete;
};

} // namespace errors

// The names these had before the library's helpers took the names of their
// folders; kept for code written against them.
using errors::NoErrorModeScope;
using errors::TraceErrorIgnored;
using errors::TraceErrorSignalled;
using errors::TraceErrorTransformed;
} // namespace qvbase

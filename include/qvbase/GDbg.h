// GDbg.h - the error trace log and the debug-output entry points.
// Part of qvbase, the QVKernel foundation class library.
//
// The error trace is an optional file that records every error's journey:
// where it was signalled, how protections transformed or dropped it, and
// where application code handled, re-raised or caught it. It is switched on
// per machine by the string value "errorfile" of
// HKEY_LOCAL_MACHINE\Software\Varnel\Config, naming the trace file. The value
// is read once per process, at the first trace call, and the file is emptied
// then; while tracing is off each call costs one integer test.
//
// Application code reports its own part from its catch blocks:
//
//   catch (PError& error) {
//     GDbgEnterHandling(error, __FILE__, __LINE__);
//     if (CanRecover(error)) { GDbgErrorCatched(error, __FILE__, __LINE__); ... }
//     else { GDbgErrorForwarded(error, __FILE__, __LINE__); throw; }
//   }
//
// Records of errors raised while another is handled are indented one level
// deeper. Code that raises and absorbs errors on purpose brackets itself with
// GDbgEnterNoErrorMode / GDbgExitNoErrorMode to keep the trace clean.
//
// The debug-output functions are inert in this library: GDbgGetOutputMethod
// answers null, so callers of PError::DbgOutput pass an output function of
// their own.
//
// The trace state is process-wide and unlocked: records from several threads
// may interleave.
#pragma once

#include <qvbase/PError.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

#include <cstdarg>

typedef void (*TypDbgOutputMethod)(const char* text);

QVBASE_API void GDbgEnterHandling(const PError& error, const char* file, ULONG line);
QVBASE_API void GDbgErrorForwarded(const PError& error, const char* file, ULONG line);
QVBASE_API void GDbgErrorCatched(const PError& error, const char* file, ULONG line);
QVBASE_API void GDbgEnterNoErrorMode(const char* file, ULONG line);
QVBASE_API void GDbgExitNoErrorMode();

// Debug output, compiled out: these do nothing, and the output method is null.
QVBASE_API TypDbgOutputMethod GDbgGetOutputMethod();
QVBASE_API void GDbgSetOutputMethod(TypDbgOutputMethod method);
QVBASE_API void GDbgPrint(const char* format, ...);
QVBASE_API void GDbgFPrint(const char* file, ULONG line, const char* format, ...);
QVBASE_API void GDbgAssert(bool condition, const char* file, ULONG line);
QVBASE_API void GDbgAlertMethod(const char* text);
QVBASE_API void GDbgOutwinMethod(const char* text);
QVBASE_API void GDbgStderrMethod(const char* text);
QVBASE_API void GDbgStdoutMethod(const char* text);

// Formats into a local buffer of 1024 bytes (longer text is cut) and passes
// the text to `output`; nothing happens for a null output.
QVBASE_API void GDbgOutput(TypDbgOutputMethod output, const char* format, ...);
QVBASE_API void GDbgFOutput(TypDbgOutputMethod output, const char* format, std::va_list arguments);

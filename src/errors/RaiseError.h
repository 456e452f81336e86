// RaiseError.h - the one way the library raises an error.
// Part of qvbase, the QVKernel foundation class library.
//
// Every failure leaves the library the same way: a PError is built at its
// defined position, the protection chain prepares it, and the chain signals
// it. Signalling may throw (the error, or a control code a hook chose) or
// return (a warning, or an error the user chose to ignore): a caller of Raise
// must carry on sensibly when it returns.
//
// The `source` argument of every form is the error's defined source text,
// such as "src\\PStream": a position the error reports, not a path of this
// tree. It stays byte for byte whatever folder the raising file lives in.
#pragma once

#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>

namespace qvbase::errors {

// Prepares `error` through the protection chain and signals it.
inline void Raise(const PError& error) {
  PError built(error);
  PError prepared = PErrorProtectionStatus().PrepareError(built);
  PErrorProtectionStatus().SignalError(prepared);
}

// Builds the error at its position, prepares it and signals it.
inline void Raise(int code, TypErrorSeverityEnum severity, const char* source, ULONG line) {
  Raise(PError(code, severity, source, line));
}

// The same for a platform failure: `mapped` (from WINError or OLEError)
// gives the code and the platform's details ("nativecode", "nativeerror"),
// the raising site its severity and position.
inline void Raise(const PError& mapped, TypErrorSeverityEnum severity, const char* source,
                  ULONG line) {
  Raise(PError(mapped, severity, source, line));
}

// Passes an error that was raised before, and caught to clean up, on through
// the protections as it is: for a site that must undo its own work before the
// error goes on, and that carries on when a protection absorbs it.
inline void PassOn(const PError& error) {
  PError passed(error);
  PErrorProtectionStatus().SignalError(passed);
}

// The stream form: the handler adds its own context (PrepareError, which
// runs IOPrepareError), then the chain prepares the result. Returns the
// error as the chain left it, for handlers that throw it themselves.
template <typename Handler>
PError PrepareThrough(Handler& handler, int code, TypErrorSeverityEnum severity, const char* source,
                      ULONG line) {
  PError error(code, severity, source, line);
  PError own = handler.PrepareError(error);
  return PErrorProtectionStatus().PrepareError(own);
}

// Prepares through the handler and the chain, then signals.
template <typename Handler>
void RaiseThrough(Handler& handler, int code, TypErrorSeverityEnum severity, const char* source,
                  ULONG line) {
  PError prepared = PrepareThrough(handler, code, severity, source, line);
  PErrorProtectionStatus().SignalError(prepared);
}

// Prepares through the handler and the chain, then throws the error without
// offering it to the hooks: for the failures a handler defines as thrown
// rather than signalled.
template <typename Handler>
[[noreturn]] void ThrowThrough(Handler& handler, int code, TypErrorSeverityEnum severity,
                               const char* source, ULONG line) {
  throw PrepareThrough(handler, code, severity, source, line);
}

} // namespace qvbase::errors

// WINError.h - platform error numbers to library errors, and back.
// Part of qvbase, the QVKernel foundation class library.
//
// WINError turns a Win32 error number into a PError, OLEError does the same
// for an HRESULT, and HResultFromPError turns a library error back into an
// HRESULT for component-object-model interfaces. The platform's own number
// and message text travel with the error as info "nativecode" (integer) and
// "nativeerror" (string), so nothing is lost for display and diagnosis.
// The errors are returned, not signalled: the caller decides whether to raise.
//
//   PError error = WINError(GetLastErrorNumber());
//   if (error.Code() != 0) { PErrorProtectionStatus().SignalError(error); }
#pragma once

#include <qvbase/PError.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// Fills the error itself for a number and returns true, or returns false to
// let the mapping table decide.
typedef bool (*TypWINErrorRefine)(ULONG native, PError& error);

// Every mapped error has severity 25 (abort); a number without a mapping
// gives code -2.
QVBASE_API PError WINError(ULONG native);
// The integer stands for a null refinement function.
QVBASE_API PError WINError(ULONG native, int);
QVBASE_API PError WINError(ULONG native, TypWINErrorRefine refine);

// A failure status maps through its low 16 bits, whatever its facility, and
// keeps the whole status as "nativecode"; a success status (S_FALSE too)
// gives code 0.
QVBASE_API PError OLEError(LONG status);
QVBASE_API PError OLEError(LONG status, int);
QVBASE_API PError OLEError(LONG status, TypWINErrorRefine refine);

// Fixed results for codes 0, 3, 1000, 1001, 1002, 1007, 1011 and 1300; any
// other code goes back through its "nativecode" (E_FAIL without one). By
// design the round trip keeps only the low 16 bits of a native number.
QVBASE_API LONG HResultFromPError(PError error);

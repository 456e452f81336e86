// WINError.cpp - platform error numbers to library errors, and back.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/WINError.h>

#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>

#include "native/ErrorText.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace {

struct Mapping {
  std::uint32_t native;
  int code;
};

// Win32 numbers and the library code each maps to, sorted by number.
constexpr Mapping kMappings[] = {
    {0, kErrNone},
    {2, kErrNotFound},
    {3, kErrNotFound},
    {4, kErrTooManyOpenFiles},
    {5, kErrAccessDenied},
    {8, kErrOutOfMemory},
    {15, kErrNoSuchDevice},
    {16, kErrDirectoryInUse},
    {20, kErrNoSuchDevice},
    {21, kErrDeviceNotReady},
    {22, kErrNotImplemented},
    {23, kErrStreamBadFormat},
    {32, kErrSharingViolation},
    {33, kErrSharingViolation},
    {38, kErrStreamSeekPastEnd},
    {39, kErrDiskFull},
    {52, kErrAlreadyExists},
    {53, kErrNotFound},
    {55, kErrDeviceGone},
    {58, kErrNotImplemented},
    {64, kErrDeviceGone},
    {65, kErrDeviceUnreachable},
    {67, kErrNoSuchDevice},
    {80, kErrAlreadyExists},
    {82, kErrCannotCreate},
    {86, kErrBadCredentials},
    {87, kErrInvalidArgument},
    {88, kErrStreamShortWrite},
    {107, kErrDeviceUnreachable},
    {108, kErrDeviceNotReady},
    {110, kErrOpenFailed},
    {111, kErrNameTooLong},
    {120, kErrNotImplemented},
    {123, kErrBadName},
    {131, kErrStreamSeekBeforeStart},
    {145, kErrDirectoryInUse},
    {154, kErrNameTooLong},
    {160, kErrInvalidArgument},
    {161, kErrBadName},
    {170, kErrDeviceNotReady},
    {193, kErrStreamBadFormat},
    {1112, kErrDeviceUnreachable},
    {1113, kErrStringUnicodeNotSettable},
    {1117, kErrStreamShortRead},
    {1200, kErrDeviceNotReady},
    {1203, kErrNoSuchDevice},
    {1210, kErrBadName},
    {1214, kErrBadName},
    {1222, kErrDeviceUnreachable},
    {1223, kErrControlAbortAction},
    {1231, kErrDeviceUnreachable},
    {1237, kErrControlRetry},
    {1239, kErrBadCredentials},
    {1240, kErrBadCredentials},
    {1315, kErrBadCredentials},
    {1326, kErrBadCredentials},
    {1327, kErrBadCredentials},
    {1329, kErrBadCredentials},
    {1331, kErrBadCredentials},
    {1361, kErrInvalidArgument},
    {1379, kErrAlreadyExists},
    {1380, kErrBadCredentials},
    {1385, kErrBadCredentials},
    {1392, kErrStreamBadFormat},
    {2202, kErrBadCredentials},
    {2404, kErrDeviceNotReady},
    {4005, kErrDeviceGone},
};

constexpr bool IsSorted() {
  for (std::size_t i = 1; i < sizeof kMappings / sizeof kMappings[0]; ++i)
    if (kMappings[i - 1].native >= kMappings[i].native)
      return false;
  return true;
}
static_assert(IsSorted(), "the mapping table is searched by bisection");

int MappedCode(ULONG native) {
  const Mapping* end = kMappings + sizeof kMappings / sizeof kMappings[0];
  const Mapping* it = std::lower_bound(kMappings, end, native,
                                       [](const Mapping& m, ULONG n) { return m.native < n; });
  return (it != end && it->native == native) ? it->code : kErrPlatformUnmapped;
}

constexpr LONG HResult(std::uint32_t bits) { return static_cast<LONG>(bits); }

} // namespace

PError WINError(ULONG native) { return WINError(native, static_cast<TypWINErrorRefine>(nullptr)); }

PError WINError(ULONG native, int) {
  return WINError(native, static_cast<TypWINErrorRefine>(nullptr));
}

PError WINError(ULONG native, TypWINErrorRefine refine) {
  PError error;
  if (!refine || !refine(native, error)) {
    error.SetCode(MappedCode(native));
    error.SetSeverity(ErrorSeverityAbort);
  }
  if (!error.HasStringInfo("nativeerror")) {
    std::string text;
    if (qvbase::native::SystemErrorText(native, &text))
      error.SetStringInfo("nativeerror", PMBString(text.c_str(), /*copy=*/true));
  }
  if (!error.HasIntegerInfo("nativecode"))
    error.SetIntegerInfo("nativecode", static_cast<int>(native));
  return error;
}

PError OLEError(LONG status) { return OLEError(status, static_cast<TypWINErrorRefine>(nullptr)); }

PError OLEError(LONG status, int) {
  return OLEError(status, static_cast<TypWINErrorRefine>(nullptr));
}

PError OLEError(LONG status, TypWINErrorRefine refine) {
  if (status >= 0)
    return PError(0, ErrorSeverityAbort);
  PError error = WINError(static_cast<ULONG>(status) & 0xFFFFu, refine);
  error.SetIntegerInfo("nativecode", status);
  return error;
}

LONG HResultFromPError(PError error) {
  switch (error.Code()) {
  case kErrNone:
    return S_OK;
  case kErrControlAbortAction:
    return HResult(0x80004004u); // E_ABORT
  case kErrNotImplemented:
    return HResult(0x80004001u); // E_NOTIMPL
  case kErrInvalidArgument:
    return HResult(0x80070057u); // E_INVALIDARG
  case kErrNoInterface:
    return HResult(0x80004002u); // E_NOINTERFACE
  case kErrOutOfMemory:
    return HResult(0x8007000Eu); // E_OUTOFMEMORY
  case kErrNullPointer:
    return HResult(0x80004003u); // E_POINTER
  case kErrAccessDenied:
    return HResult(0x80070005u); // E_ACCESSDENIED
  }
  if (!error.HasIntegerInfo("nativecode"))
    return HResult(0x80004005u); // E_FAIL
  std::uint32_t native = static_cast<std::uint32_t>(error.GetIntegerInfo("nativecode", 0));
  if (native == 0)
    return S_OK;
  // The Win32 form, by design also for a status of another facility: the
  // round trip through an error keeps only the low 16 bits.
  return HResult(0x80070000u | (native & 0xFFFFu));
}

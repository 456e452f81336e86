// WINError.cpp - platform error numbers to library errors, and back.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/WINError.h>

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
    {0, 0},       {2, 2302},    {3, 2302},    {4, 2309},    {5, 1300},    {8, 1007},
    {15, 2009},   {16, 2311},   {20, 2009},   {21, 2005},   {22, 1000},   {23, 1233},
    {32, 2317},   {33, 2317},   {38, 1227},   {39, 2008},   {52, 2303},   {53, 2302},
    {55, 2003},   {58, 1000},   {64, 2003},   {65, 2002},   {67, 2009},   {80, 2303},
    {82, 2308},   {86, 1301},   {87, 1001},   {88, 1230},   {107, 2002},  {108, 2005},
    {110, 2312},  {111, 2316},  {120, 1000},  {123, 2301},  {131, 1228},  {145, 2311},
    {154, 2316},  {160, 1001},  {161, 2301},  {170, 2005},  {193, 1233},  {1112, 2002},
    {1113, 1211}, {1117, 1229}, {1200, 2005}, {1203, 2009}, {1210, 2301}, {1214, 2301},
    {1222, 2002}, {1223, 3},    {1231, 2002}, {1237, 1},    {1239, 1301}, {1240, 1301},
    {1315, 1301}, {1326, 1301}, {1327, 1301}, {1329, 1301}, {1331, 1301}, {1361, 1001},
    {1379, 2303}, {1380, 1301}, {1385, 1301}, {1392, 1233}, {2202, 1301}, {2404, 2005},
    {4005, 2003},
};

constexpr bool IsSorted() {
  for (std::size_t i = 1; i < sizeof kMappings / sizeof kMappings[0]; ++i)
    if (kMappings[i - 1].native >= kMappings[i].native)
      return false;
  return true;
}
static_assert(IsSorted(), "the mapping table is searched by bisection");

constexpr int kUnmappedCode = -2;

int MappedCode(ULONG native) {
  const Mapping* end = kMappings + sizeof kMappings / sizeof kMappings[0];
  const Mapping* it = std::lower_bound(kMappings, end, native,
                                       [](const Mapping& m, ULONG n) { return m.native < n; });
  return (it != end && it->native == native) ? it->code : kUnmappedCode;
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
  case 0:
    return S_OK;
  case 3:
    return HResult(0x80004004u); // E_ABORT
  case 1000:
    return HResult(0x80004001u); // E_NOTIMPL
  case 1001:
    return HResult(0x80070057u); // E_INVALIDARG
  case 1002:
    return HResult(0x80004002u); // E_NOINTERFACE
  case 1007:
    return HResult(0x8007000Eu); // E_OUTOFMEMORY
  case 1011:
    return HResult(0x80004003u); // E_POINTER
  case 1300:
    return HResult(0x80070005u); // E_ACCESSDENIED
  }
  if (!error.HasIntegerInfo("nativecode"))
    return HResult(0x80004005u); // E_FAIL
  std::uint32_t native = static_cast<std::uint32_t>(error.GetIntegerInfo("nativecode", 0));
  if (native == 0)
    return S_OK;
  return HResult(0x80070000u | (native & 0xFFFFu));
}

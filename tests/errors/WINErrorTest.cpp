// Platform error numbers to library errors and back: the whole mapping
// table, the native details that travel along, and the HRESULT round trip.
#include <qvbase/PErrorCodes.h>
#include <qvbase/WINError.h>

#include "native/ErrorText.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::string NativeText(const PError& error) {
  const void* data = nullptr;
  ULONG size = 0;
  if (!error.GetErrorInfo("nativeerror", ErrorTagString, &data, &size) || !data)
    return "<none>";
  return static_cast<const char*>(data);
}

TEST(WINError, EveryTableRowMapsToItsCode) {
  struct Row {
    std::vector<ULONG> natives;
    int code;
  };
  const Row rows[] = {
      {{0}, kErrNone},
      {{1237}, kErrControlRetry},
      {{1223}, kErrControlAbortAction},
      {{22, 58, 120}, kErrNotImplemented},
      {{87, 160, 1361}, kErrInvalidArgument},
      {{8}, kErrOutOfMemory},
      {{1113}, kErrStringUnicodeNotSettable},
      {{38}, kErrStreamSeekPastEnd},
      {{131}, kErrStreamSeekBeforeStart},
      {{1117}, kErrStreamShortRead},
      {{88}, kErrStreamShortWrite},
      {{23, 193, 1392}, kErrStreamBadFormat},
      {{5}, kErrAccessDenied},
      {{86, 1239, 1240, 1315, 1326, 1327, 1329, 1331, 1380, 1385, 2202}, kErrBadCredentials},
      {{65, 107, 1112, 1222, 1231}, kErrDeviceUnreachable},
      {{55, 64, 4005}, kErrDeviceGone},
      {{21, 108, 170, 1200, 2404}, kErrDeviceNotReady},
      {{39}, kErrDiskFull},
      {{15, 20, 67, 1203}, kErrNoSuchDevice},
      {{123, 161, 1210, 1214}, kErrBadName},
      {{2, 3, 53}, kErrNotFound},
      {{52, 80, 1379}, kErrAlreadyExists},
      {{82}, kErrCannotCreate},
      {{4}, kErrTooManyOpenFiles},
      {{16, 145}, kErrDirectoryInUse},
      {{110}, kErrOpenFailed},
      {{111, 154}, kErrNameTooLong},
      {{32, 33}, kErrSharingViolation},
      {{1, 6, 206, 534, 1785, 1909, 99999}, kErrPlatformUnmapped},
  };
  for (const Row& row : rows) {
    for (ULONG native : row.natives) {
      SCOPED_TRACE(native);
      PError error = WINError(native);
      EXPECT_EQ(error.Code(), row.code);
      EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
      EXPECT_EQ(error.GetIntegerInfo("nativecode", -1), static_cast<int>(native));
    }
  }
}

TEST(WINError, FileNotFoundCarriesTheSystemText) {
  PError error = WINError(2);
  EXPECT_EQ(error.Code(), 2302);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), 2);
  std::string expected;
  ASSERT_TRUE(qvbase::native::SystemErrorText(2, &expected));
  EXPECT_EQ(NativeText(error), expected);
  EXPECT_EQ(error.File(), nullptr);
}

TEST(WINError, UnmappedNumberGoesBackAsWin32Status) {
  PError error = WINError(99999);
  EXPECT_EQ(error.Code(), kErrPlatformUnmapped);
  EXPECT_EQ(static_cast<std::uint32_t>(HResultFromPError(error)), 0x8007869Fu);
}

TEST(WINError, IntegerFormIsTheNullRefinement) {
  PError error = WINError(5, 0);
  EXPECT_EQ(error.Code(), 1300);
}

bool RefineAsNoInterface(ULONG, PError& error) {
  error.SetCode(kErrNoInterface);
  error.SetSeverity(ErrorSeverityError);
  return true;
}

bool DeclineToRefine(ULONG, PError&) { return false; }

TEST(WINError, RefinementThatAnswersStillGetsTheNativeDetails) {
  PError error = WINError(5, RefineAsNoInterface);
  EXPECT_EQ(error.Code(), 1002);
  EXPECT_EQ(error.Severity(), ErrorSeverityError);
  EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), 5);
  EXPECT_TRUE(error.HasStringInfo("nativeerror"));
  EXPECT_EQ(static_cast<std::uint32_t>(HResultFromPError(error)), 0x80004002u);
  EXPECT_EQ(WINError(5, DeclineToRefine).Code(), 1300);
}

bool RefineWithOwnDetails(ULONG, PError& error) {
  error.SetCode(4711);
  error.SetIntegerInfo("nativecode", 12);
  error.SetErrorInfo("nativeerror", ErrorTagString, "mine", 5);
  return true;
}

TEST(WINError, DetailsTheRefinementSetAreKept) {
  PError error = WINError(5, RefineWithOwnDetails);
  EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), 12);
  EXPECT_EQ(NativeText(error), "mine");
}

TEST(OLEError, FailureMapsThroughTheLowBitsAndKeepsTheWholeStatus) {
  const LONG status = static_cast<LONG>(0x80070005u);
  PError error = OLEError(status);
  EXPECT_EQ(error.Code(), 1300);
  EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), status);
  EXPECT_EQ(HResultFromPError(error), E_ACCESSDENIED);
  // Another facility maps the same way: only the low 16 bits count.
  PError foreign = OLEError(static_cast<LONG>(0x80040002u));
  EXPECT_EQ(foreign.Code(), 2302);
  std::string expected;
  ASSERT_TRUE(qvbase::native::SystemErrorText(2, &expected));
  EXPECT_EQ(NativeText(foreign), expected);
  EXPECT_EQ(static_cast<std::uint32_t>(HResultFromPError(foreign)), 0x80070002u);
}

TEST(OLEError, SuccessStatusesGiveNoError) {
  for (LONG status : {S_OK, S_FALSE, LONG(0x7FFFFFFF)}) {
    SCOPED_TRACE(status);
    PError error = OLEError(status);
    EXPECT_EQ(error.Code(), kErrNone);
    EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
    EXPECT_EQ(error.EnumErrorInfo(), 0u);
  }
  EXPECT_EQ(OLEError(S_FALSE, 0).Code(), kErrNone);
  EXPECT_EQ(OLEError(static_cast<LONG>(0x80070005u), RefineAsNoInterface).Code(), 1002);
}

TEST(HResultFromPError, FixedCodesHaveFixedStatuses) {
  struct Row {
    int code;
    std::uint32_t status;
  };
  const Row rows[] = {
      {kErrNone, 0x00000000u},           {kErrControlAbortAction, 0x80004004u},
      {kErrNotImplemented, 0x80004001u}, {kErrInvalidArgument, 0x80070057u},
      {kErrNoInterface, 0x80004002u},    {kErrOutOfMemory, 0x8007000Eu},
      {kErrNullPointer, 0x80004003u},    {kErrAccessDenied, 0x80070005u},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.code);
    PError error(row.code);
    error.SetIntegerInfo("nativecode", 99); // ignored for fixed codes
    EXPECT_EQ(static_cast<std::uint32_t>(HResultFromPError(error)), row.status);
  }
}

TEST(HResultFromPError, OtherCodesGoThroughTheNativeCode) {
  EXPECT_EQ(HResultFromPError(PError(4711)), E_FAIL);
  PError zero(4711);
  zero.SetIntegerInfo("nativecode", 0);
  EXPECT_EQ(HResultFromPError(zero), S_OK);
  EXPECT_EQ(static_cast<std::uint32_t>(HResultFromPError(WINError(1237))), 0x800704D5u); // retry
  EXPECT_EQ(static_cast<std::uint32_t>(HResultFromPError(WINError(2))), 0x80070002u);
}

} // namespace

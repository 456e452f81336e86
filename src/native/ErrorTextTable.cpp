// ErrorTextTable.cpp - the standard English texts of Win32 error numbers.
// Part of qvbase, the QVKernel foundation class library.
//
// The texts are those of the Windows system message table in English (US),
// without their trailing line break. The table holds every number that the
// library maps to an error of its own and the registry's numbers; it is kept
// sorted by number (checked at compile time) and searched by bisection.
#include "native/ErrorText.h"

#include <algorithm>
#include <iterator>

namespace qvbase {
namespace native {

namespace {

constexpr EnglishErrorEntry kEnglishErrors[] = {
    {0, "The operation completed successfully."},
    {1, "Incorrect function."},
    {2, "The system cannot find the file specified."},
    {3, "The system cannot find the path specified."},
    {4, "The system cannot open the file."},
    {5, "Access is denied."},
    {6, "The handle is invalid."},
    {8, "Not enough memory resources are available to process this command."},
    {14, "Not enough memory resources are available to complete this operation."},
    {15, "The system cannot find the drive specified."},
    {16, "The directory cannot be removed."},
    {20, "The system cannot find the device specified."},
    {21, "The device is not ready."},
    {22, "The device does not recognize the command."},
    {23, "Data error (cyclic redundancy check)."},
    {32, "The process cannot access the file because it is being used by another process."},
    {33, "The process cannot access the file because another process has locked a portion of the "
         "file."},
    {38, "Reached the end of the file."},
    {39, "The disk is full."},
    {52, "You were not connected because a duplicate name exists on the network. If joining a "
         "domain, go to System in Control Panel to change the computer name and try again. If "
         "joining a workgroup, choose another workgroup name."},
    {53, "The network path was not found."},
    {55, "The specified network resource or device is no longer available."},
    {58, "The specified server cannot perform the requested operation."},
    {64, "The specified network name is no longer available."},
    {65, "Network access is denied."},
    {67, "The network name cannot be found."},
    {80, "The file exists."},
    {82, "The directory or file cannot be created."},
    {86, "The specified network password is not correct."},
    {87, "The parameter is incorrect."},
    {88, "A write fault occurred on the network."},
    {107, "The program stopped because an alternate diskette was not inserted."},
    {108, "The disk is in use or locked by another process."},
    {110, "The system cannot open the device or file specified."},
    {111, "The file name is too long."},
    {120, "This function is not supported on this system."},
    {123, "The filename, directory name, or volume label syntax is incorrect."},
    {131, "An attempt was made to move the file pointer before the beginning of the file."},
    {145, "The directory is not empty."},
    {154, "The volume label you entered exceeds the label character limit of the target file "
          "system."},
    {160, "One or more arguments are not correct."},
    {161, "The specified path is invalid."},
    {170, "The requested resource is in use."},
    {193, "%1 is not a valid Win32 application."},
    {234, "More data is available."},
    {259, "No more data is available."},
    {1009, "The configuration registry database is corrupt."},
    {1010, "The configuration registry key is invalid."},
    {1011, "The configuration registry key could not be opened."},
    {1012, "The configuration registry key could not be read."},
    {1013, "The configuration registry key could not be written."},
    {1014, "One of the files in the registry database had to be recovered by use of a log or "
           "alternate copy. The recovery was successful."},
    {1015, "The registry is corrupted. The structure of one of the files containing registry data "
           "is corrupted, or the system's memory image of the file is corrupted, or the file could "
           "not be recovered because the alternate copy or log was absent or corrupted."},
    {1016, "An I/O operation initiated by the registry failed unrecoverably. The registry could "
           "not read in, or write out, or flush, one of the files that contain the system's image "
           "of the registry."},
    {1017, "The system has attempted to load or restore a file into the registry, but the "
           "specified file is not in a registry file format."},
    {1018, "Illegal operation attempted on a registry key that has been marked for deletion."},
    {1112, "No media in drive."},
    {1113, "No mapping for the Unicode character exists in the target multi-byte code page."},
    {1117, "The request could not be performed because of an I/O device error."},
    {1200, "The specified device name is invalid."},
    {1203, "The network path was either typed incorrectly, does not exist, or the network provider "
           "is not currently available. Please try retyping the path or contact your network "
           "administrator."},
    {1210, "The format of the specified computer name is invalid."},
    {1214, "The format of the specified network name is invalid."},
    {1222, "The network is not present or not started."},
    {1223, "The operation was canceled by the user."},
    {1231, "The network location cannot be reached. For information about network "
           "troubleshooting, see Windows Help."},
    {1237, "The operation could not be completed. A retry should be performed."},
    {1239, "Attempting to log in during an unauthorized time of day for this account."},
    {1240, "The account is not authorized to log in from this station."},
    {1315, "The name provided is not a properly formed account name."},
    {1326, "The user name or password is incorrect."},
    {1327, "Account restrictions are preventing this user from signing in. For example: blank "
           "passwords aren't allowed, sign-in times are limited, or a policy restriction has been "
           "enforced."},
    {1329, "This user isn't allowed to sign in to this computer."},
    {1331, "This user can't sign in because this account is currently disabled."},
    {1361, "A security descriptor is not in the right format (absolute or self-relative)."},
    {1379, "The specified local group already exists."},
    {1380, "Logon failure: the user has not been granted the requested logon type at this "
           "computer."},
    {1385, "Logon failure: the user has not been granted the requested logon type at this "
           "computer."},
    {1392, "The file or directory is corrupted and unreadable."},
    {2202, "The specified username is invalid."},
    {2404, "The device is in use by an active process and cannot be disconnected."},
    {4005, "The name does not exist in the WINS database."},
};

constexpr bool IsSortedByCode() {
  for (std::size_t i = 1; i < std::size(kEnglishErrors); ++i)
    if (kEnglishErrors[i - 1].code >= kEnglishErrors[i].code)
      return false;
  return true;
}
static_assert(IsSortedByCode(), "the error texts must stay sorted by number for bisection");

} // namespace

const EnglishErrorEntry* EnglishErrorTable(std::size_t* count) {
  if (count)
    *count = std::size(kEnglishErrors);
  return kEnglishErrors;
}

const char* EnglishErrorText(DWORD code) {
  const EnglishErrorEntry* end = std::end(kEnglishErrors);
  const EnglishErrorEntry* it =
      std::lower_bound(std::begin(kEnglishErrors), end, code,
                       [](const EnglishErrorEntry& e, DWORD c) { return e.code < c; });
  return it != end && it->code == code ? it->text : nullptr;
}

} // namespace native
} // namespace qvbase

// ErrorTextWin32.cpp - Win32 error texts from the system message table.
// Part of qvbase, the QVKernel foundation class library.
#include "native/ErrorText.h"

namespace qvbase {
namespace native {

bool SystemErrorText(DWORD code, std::string* text) {
  char* buffer = nullptr;
  DWORD length = FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      /*lpSource=*/nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
      reinterpret_cast<char*>(&buffer), /*nSize=*/0,
      /*Arguments=*/nullptr);
  bool found = length != 0 && buffer != nullptr;
  if (found && text)
    text->assign(buffer, length);
  // The system allocates the buffer with LocalAlloc; it goes back the same way.
  if (buffer)
    LocalFree(buffer);
  return found;
}

} // namespace native
} // namespace qvbase

// ErrorTextPosix.cpp - Win32 error texts from the library's own table.
// Part of qvbase, the QVKernel foundation class library.
#include "native/ErrorText.h"

namespace qvbase {
namespace native {

bool SystemErrorText(DWORD code, std::string* text) {
  const char* english = EnglishErrorText(code);
  if (!english || !text)
    return english != nullptr;
  // The line break that the Windows message table puts after each text.
  *text = english;
  *text += "\r\n";
  return true;
}

} // namespace native
} // namespace qvbase

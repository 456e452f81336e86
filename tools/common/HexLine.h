// HexLine.h - the hex-dump line the tools print.
// Part of qvbase, the QVKernel foundation class library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace qvtools {

// One line of a hex dump for up to 16 bytes: the offset in eight hexadecimal
// digits, two spaces, the bytes in hex in two groups of eight (missing bytes
// as blanks, so that every line is as wide), and the printable ASCII bytes
// between bars, every other byte as a dot. No line end.
inline std::string HexLine(const unsigned char* bytes, std::size_t count, std::uint64_t offset) {
  static const char kDigits[] = "0123456789ABCDEF";
  char text[16];
  std::snprintf(text, sizeof text, "%08llX", static_cast<unsigned long long>(offset));
  std::string hex, ascii;
  for (std::size_t i = 0; i < 16; ++i) {
    if (i == 8)
      hex += ' ';
    if (i < count) {
      const unsigned char c = bytes[i];
      hex += kDigits[c >> 4];
      hex += kDigits[c & 15];
      hex += ' ';
      ascii += (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '.';
    } else {
      hex += "   ";
    }
  }
  std::string line = text;
  line += "  ";
  line += hex;
  line += " |";
  line += ascii;
  line += '|';
  return line;
}

} // namespace qvtools

// RegFileCodec.cpp - the UTF-8 / UTF-16 conversions of the .reg format.
// Part of qvbase, the QVKernel foundation class library.
#include "native/RegFileCodec.h"

namespace qvbase {
namespace native {
namespace regfile {

namespace {

void AppendUtf8(std::string* out, std::uint32_t cp) {
  if (cp < 0x80) {
    out->push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

} // namespace

std::size_t DecodeUtf8(std::string_view s, std::size_t i, std::uint32_t* codePoint) {
  unsigned char b = static_cast<unsigned char>(s[i]);
  std::size_t length;
  std::uint32_t cp;
  unsigned char low = 0x80, high = 0xBF;
  if (b < 0x80) {
    *codePoint = b;
    return 1;
  } else if (b >= 0xC2 && b <= 0xDF) {
    length = 2;
    cp = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    length = 3;
    cp = b & 0x0F;
    if (b == 0xE0)
      low = 0xA0; // no overlong forms
    if (b == 0xED)
      high = 0x9F; // no surrogates
  } else if (b >= 0xF0 && b <= 0xF4) {
    length = 4;
    cp = b & 0x07;
    if (b == 0xF0)
      low = 0x90;
    if (b == 0xF4)
      high = 0x8F; // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (i + length > s.size())
    return 0;
  for (std::size_t k = 1; k < length; ++k) {
    unsigned char c = static_cast<unsigned char>(s[i + k]);
    if (c < low || c > high)
      return 0;
    low = 0x80;
    high = 0xBF;
    cp = (cp << 6) | (c & 0x3F);
  }
  *codePoint = cp;
  return length;
}

bool IsPlainText(std::string_view s) {
  for (std::size_t i = 0; i < s.size();) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    if (b < 0x20 || b == 0x7F)
      return false;
    std::uint32_t cp;
    std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0)
      return false;
    i += n;
  }
  return true;
}

std::vector<std::uint16_t> BytesToUtf16(std::string_view bytes) {
  std::vector<std::uint16_t> units;
  units.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size();) {
    std::uint32_t cp;
    std::size_t n = DecodeUtf8(bytes, i, &cp);
    if (n == 0) {
      // Not UTF-8: the byte travels as a lone low surrogate.
      units.push_back(static_cast<std::uint16_t>(0xDC00 + static_cast<unsigned char>(bytes[i])));
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      units.push_back(static_cast<std::uint16_t>(0xD800 + (cp >> 10)));
      units.push_back(static_cast<std::uint16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      units.push_back(static_cast<std::uint16_t>(cp));
    }
    i += n;
  }
  return units;
}

std::string Utf16ToBytes(const std::uint16_t* units, std::size_t count) {
  std::string out;
  out.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t u = units[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 &&
        units[i + 1] <= 0xDFFF) {
      AppendUtf8(&out, 0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00));
      ++i;
    } else if (u >= 0xDC80 && u <= 0xDCFF) {
      out.push_back(static_cast<char>(u - 0xDC00));
    } else {
      AppendUtf8(&out, u);
    }
  }
  return out;
}

std::vector<BYTE> BytesToUtf16Le(std::string_view bytes) {
  const std::vector<std::uint16_t> units = BytesToUtf16(bytes);
  std::vector<BYTE> out;
  out.reserve(units.size() * 2);
  for (std::uint16_t u : units) {
    out.push_back(static_cast<BYTE>(u & 0xFF));
    out.push_back(static_cast<BYTE>(u >> 8));
  }
  return out;
}

std::string Utf16LeToBytes(const BYTE* data, std::size_t size) {
  std::vector<std::uint16_t> units(size / 2);
  for (std::size_t i = 0; i < units.size(); ++i)
    units[i] = static_cast<std::uint16_t>(data[2 * i] | (data[2 * i + 1] << 8));
  return Utf16ToBytes(units.data(), units.size());
}

} // namespace regfile
} // namespace native
} // namespace qvbase

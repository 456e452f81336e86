// JsonText.h - the JSON pieces the tools' --json outputs are made of.
// Part of qvbase, the QVKernel foundation class library.
//
// The tools write JSON by hand, one small document per run; these helpers
// keep the quoting in one place. A string is written as UTF-8: valid UTF-8
// passes through, control characters, '"' and '\' are escaped, and a byte
// that does not belong to a valid UTF-8 sequence (a registry text in a
// single-byte code page, say) becomes U+FFFD, so that the output always
// parses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace qvtools {

// Length of the valid UTF-8 sequence starting at text[at], or 0.
inline std::size_t Utf8SequenceLength(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  std::size_t length;
  std::uint32_t min;
  if (lead < 0x80)
    return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    min = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    min = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    min = 0x10000;
  } else {
    return 0;
  }
  if (text.size() - at < length)
    return 0;
  std::uint32_t code = lead & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80)
      return 0;
    code = (code << 6) | (byte(at + i) & 0x3F);
  }
  if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
    return 0;
  return length;
}

// `text` as a JSON string, quotes included.
inline std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
      ++at;
    } else if (c < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      out += escape;
      ++at;
    } else if (const std::size_t length = Utf8SequenceLength(text, at)) {
      out.append(text, at, length);
      at += length;
    } else {
      out += "\xEF\xBF\xBD";
      ++at;
    }
  }
  return out + '"';
}

inline std::string JsonNumber(std::uint64_t value) {
  return std::to_string(static_cast<unsigned long long>(value));
}

// Bytes as one string of lower-case hex digits, two per byte.
inline std::string JsonHexBytes(const unsigned char* bytes, std::size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out = "\"";
  for (std::size_t i = 0; i < count; ++i) {
    out += kDigits[bytes[i] >> 4];
    out += kDigits[bytes[i] & 15];
  }
  return out + '"';
}

} // namespace qvtools

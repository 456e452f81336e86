// RegFileCodec.h - the text conversions of the .reg format.
// Part of qvbase, the QVKernel foundation class library.
//
// The registry's "A" interface passes strings as the process's multibyte
// bytes (UTF-8 here). In the file, a string value is written quoted when it
// is plain text: valid UTF-8, no control characters, one terminating zero.
// Any other string (a newline in it, no terminator, bytes that are not UTF-8)
// is written as hex(1), whose data is UTF-16LE as Windows keeps it; bytes
// that are not UTF-8 travel as the lone surrogates U+DC80..U+DCFF, so every
// byte string comes back exactly as it was written. A file regedit writes is
// UTF-16LE throughout, behind a byte-order mark.
#pragma once

#include <qvbase/QVCompat.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvbase {
namespace native {
namespace regfile {

constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16LeByteOrderMark = "\xFF\xFE";

// A well-formed UTF-8 sequence starting at s[i] (no overlong forms, no
// surrogates, nothing above U+10FFFF): its length, with its code point in
// *codePoint; 0 when the byte there does not start one.
std::size_t DecodeUtf8(std::string_view s, std::size_t i, std::uint32_t* codePoint);

// Whether `s` may be written as a quoted text: valid UTF-8 without control
// characters.
bool IsPlainText(std::string_view s);

// Byte strings to UTF-16 units and back; exact inverses of each other for
// every byte string.
std::vector<std::uint16_t> BytesToUtf16(std::string_view bytes);
std::string Utf16ToBytes(const std::uint16_t* units, std::size_t count);

// The same through UTF-16LE bytes, as the hex(...) forms and UTF-16 files
// hold them. An odd last byte is ignored: callers reject odd sizes first.
std::vector<BYTE> BytesToUtf16Le(std::string_view bytes);
std::string Utf16LeToBytes(const BYTE* data, std::size_t size);

} // namespace regfile
} // namespace native
} // namespace qvbase

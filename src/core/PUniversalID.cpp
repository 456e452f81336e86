// PUniversalID.cpp - 128-bit universal identifiers.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PUniversalID.h>

#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStringConversions.h>
#include <qvbase/WINError.h>

#include "errors/RaiseError.h"
#include "native/Guid.h"

#include <cstring>

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\puniversalid";
constexpr ULONG kCreateNewLine = 98;
constexpr ULONG kLengthLine = 68;
constexpr ULONG kBraceLine = 71;
constexpr ULONG kHyphenLine = 74;
constexpr ULONG kTextLength = 38;

std::uint64_t Half(const std::uint8_t* bytes) {
  std::uint64_t value = 0;
  for (int i = 7; i >= 0; --i)
    value = (value << 8) | bytes[i];
  return value;
}

// The identifier's 16 bytes in memory order (little-endian fields).
void ToBytes(const _GUID& id, std::uint8_t bytes[16]) {
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<std::uint8_t>(id.Data1 >> (8 * i));
  bytes[4] = static_cast<std::uint8_t>(id.Data2);
  bytes[5] = static_cast<std::uint8_t>(id.Data2 >> 8);
  bytes[6] = static_cast<std::uint8_t>(id.Data3);
  bytes[7] = static_cast<std::uint8_t>(id.Data3 >> 8);
  std::memcpy(bytes + 8, id.Data4, 8);
}

_GUID FromHalves(std::uint64_t low, std::uint64_t high) {
  _GUID id;
  id.Data1 = static_cast<std::uint32_t>(low);
  id.Data2 = static_cast<std::uint16_t>(low >> 32);
  id.Data3 = static_cast<std::uint16_t>(low >> 48);
  for (int i = 0; i < 8; ++i)
    id.Data4[i] = static_cast<std::uint8_t>(high >> (8 * i));
  return id;
}

// 1-9 for the digits 1 to 9, 10 for 0, 11-36 for A-Z, 37-62 for a-z, else 0.
unsigned NameCode(unsigned char c) {
  if (c >= '1' && c <= '9')
    return c - '0';
  if (c == '0')
    return 10;
  if (c >= 'A' && c <= 'Z')
    return 11 + (c - 'A');
  if (c >= 'a' && c <= 'z')
    return 37 + (c - 'a');
  return 0;
}

_GUID DeriveFromName(const char* name) {
  std::uint64_t low = 0, high = 0;
  std::uint8_t sum = 0, count = 0;
  for (const char* p = name; p && *p; ++p) {
    sum = static_cast<std::uint8_t>(sum + static_cast<unsigned char>(*p));
    if (NameCode(static_cast<unsigned char>(*p)))
      count = static_cast<std::uint8_t>(count + 1);
  }
  low |= static_cast<std::uint64_t>(sum >> 4) << 60;
  high |= static_cast<std::uint64_t>(sum & 0x0F) << 60;
  unsigned placed = 0;
  for (const char* p = name; p && *p && placed < 20 && placed < count; ++p) {
    std::uint64_t code = NameCode(static_cast<unsigned char>(*p));
    if (!code)
      continue;
    if (placed < 10)
      low |= code << (54 - 6 * placed);
    else
      high |= code << (54 - 6 * (placed - 10));
    ++placed;
  }
  return FromHalves(low, high);
}

// Where the eight pairs of Data4 stand in the text form.
constexpr ULONG kPairs[8] = {20, 22, 25, 27, 29, 31, 33, 35};

// The character at `pos` of `length` characters at `chars`, 0 past the end
// (as GetChar answers).
char CharAt(const char* chars, ULONG length, ULONG pos) { return pos < length ? chars[pos] : '\0'; }

// The value of each byte as a hexadecimal digit (either case), 0xFF for
// every other byte. A table, not comparisons: random digits and letters
// would mispredict a branch on almost every character.
struct HexValues {
  unsigned char value[256];
  constexpr HexValues() : value() {
    for (int c = 0; c < 256; ++c)
      value[c] = 0xFF;
    for (int c = '0'; c <= '9'; ++c)
      value[c] = static_cast<unsigned char>(c - '0');
    for (int c = 'A'; c <= 'F'; ++c)
      value[c] = static_cast<unsigned char>(c - 'A' + 10);
    for (int c = 'a'; c <= 'f'; ++c)
      value[c] = static_cast<unsigned char>(c - 'a' + 10);
  }
};
constexpr HexValues kHexValues;

// `digits` hexadecimal digits at `text`, most significant first; false when
// one of them is not a digit.
bool ReadHexDigits(const char* text, int digits, std::uint32_t* value) {
  std::uint32_t result = 0;
  unsigned seen = 0;
  for (int i = 0; i < digits; ++i) {
    const unsigned digit = kHexValues.value[static_cast<unsigned char>(text[i])];
    seen |= digit;
    result = (result << 4) | (digit & 0xF);
  }
  if (seen & 0x80)
    return false;
  *value = result;
  return true;
}

// The fields of a 38-character text, all of whose 32 digits are hexadecimal:
// the values the hexadecimal readers give for them. False, with `id` left
// alone, as soon as a digit is not one.
bool ReadFields(const char* chars, _GUID* id) {
  _GUID read;
  std::uint32_t value = 0;
  if (!ReadHexDigits(chars + 1, 8, &value))
    return false;
  read.Data1 = value;
  if (!ReadHexDigits(chars + 10, 4, &value))
    return false;
  read.Data2 = static_cast<std::uint16_t>(value);
  if (!ReadHexDigits(chars + 15, 4, &value))
    return false;
  read.Data3 = static_cast<std::uint16_t>(value);
  for (int i = 0; i < 8; ++i) {
    if (!ReadHexDigits(chars + kPairs[i], 2, &value))
      return false;
    read.Data4[i] = static_cast<std::uint8_t>(value);
  }
  *id = read;
  return true;
}

// A free-type string over a handler made here (PString's constructor from a
// handler is for its family only).
class HandlerString : public PString {
public:
  explicit HandlerString(PStringHandler* handler) : PString(handler) {}
};

bool SameBytes(const _GUID& a, const _GUID& b) { return std::memcmp(&a, &b, sizeof(_GUID)) == 0; }

} // namespace

PUniversalID::PUniversalID() : m_id() {}

PUniversalID::PUniversalID(const _GUID& id) : m_id(id) {}

PUniversalID::PUniversalID(const _H2_GUID& id) { std::memcpy(&m_id, &id, sizeof m_id); }

PUniversalID::PUniversalID(const PASCIIString& text) : m_id() {
  // Each check raises on its own; a signal that returns lets parsing go on.
  // The checks read the characters in place (0 past the end, as GetChar
  // answers), and look at the text afresh after a signal has returned (a
  // hook may have changed it).
  ULONG length = 0;
  const char* chars = nullptr;
  auto look = [&] {
    length = text.Len();
    chars = length ? static_cast<const char*>(text) : nullptr;
  };
  look();
  if (length != kTextLength) {
    qvbase::errors::Raise(kErrInvalidArgument, ErrorSeverityAbort, kSourceFile, kLengthLine);
    look();
  }
  if (CharAt(chars, length, 0) != '{' || CharAt(chars, length, 37) != '}') {
    qvbase::errors::Raise(kErrInvalidArgument, ErrorSeverityAbort, kSourceFile, kBraceLine);
    look();
  }
  if (CharAt(chars, length, 9) != '-' || CharAt(chars, length, 14) != '-' ||
      CharAt(chars, length, 19) != '-' || CharAt(chars, length, 24) != '-') {
    qvbase::errors::Raise(kErrInvalidArgument, ErrorSeverityAbort, kSourceFile, kHyphenLine);
    look();
  }
  // A well-formed text is read in place; anything else goes through the
  // hexadecimal readers field by field, which raise their own errors.
  if (length == kTextLength && ReadFields(chars, &m_id))
    return;
  m_id.Data1 = HexaToUInt32(PASCIIString(text.Mid(1, 8)));
  m_id.Data2 = HexaToUInt16(PASCIIString(text.Mid(10, 4)));
  m_id.Data3 = HexaToUInt16(PASCIIString(text.Mid(15, 4)));
  for (int i = 0; i < 8; ++i)
    m_id.Data4[i] = HexaToUInt8(PASCIIString(text.Mid(kPairs[i], 2)));
}

PUniversalID::operator PString() const {
  // Built in one buffer; the digits are those of the fixed-width
  // hexadecimal conversions, upper case.
  static const char kDigits[] = "0123456789ABCDEF";
  char text[kTextLength + 1];
  char* p = text;
  auto put = [&p](std::uint32_t value, int digits) {
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
      *p++ = kDigits[(value >> shift) & 0xF];
  };
  *p++ = '{';
  put(m_id.Data1, 8);
  *p++ = '-';
  put(m_id.Data2, 4);
  *p++ = '-';
  put(m_id.Data3, 4);
  *p++ = '-';
  put(m_id.Data4[0], 2);
  put(m_id.Data4[1], 2);
  *p++ = '-';
  for (int i = 2; i < 8; ++i)
    put(m_id.Data4[i], 2);
  *p++ = '}';
  *p = '\0';
  // A free-type string of narrow text, as PString(text, true) makes it: a
  // multibyte handler owning a copy of the 38 characters. They are all 7-bit,
  // so their count is known and the text need not be measured.
  return HandlerString(PMBStringHandler::FromBytes(text, kTextLength, kTextLength));
}

PUniversalID::PUniversalID(const PUniversalID& other) : PRoot(other), m_id(other.m_id) {}

PUniversalID::~PUniversalID() = default;

PUniversalID& PUniversalID::operator=(const PUniversalID& other) {
  m_id = other.m_id;
  return *this;
}

bool PUniversalID::IsValid() const {
  static const _GUID kNull = {};
  return !SameBytes(m_id, kNull);
}

bool PUniversalID::operator==(const PUniversalID& other) const {
  return SameBytes(m_id, other.m_id);
}

bool PUniversalID::operator!=(const PUniversalID& other) const {
  return !SameBytes(m_id, other.m_id);
}

bool PUniversalID::operator==(const _GUID& other) const { return SameBytes(m_id, other); }

bool PUniversalID::operator!=(const _GUID& other) const { return !SameBytes(m_id, other); }

PUniversalID::operator _GUID() const { return m_id; }

PUniversalID::operator const _GUID*() const { return &m_id; }

PUniversalID::operator _H2_GUID() const {
  _H2_GUID id;
  std::memcpy(&id, &m_id, sizeof id);
  return id;
}

void PUniversalID::CreateNew() {
  HRESULT status = qvbase::native::CreateGuid(&m_id);
  if (status != S_OK)
    qvbase::errors::Raise(OLEError(status), ErrorSeverityError, kSourceFile, kCreateNewLine);
}

std::uint32_t PUniversalID::Group1() const { return m_id.Data1; }
std::uint16_t PUniversalID::Group2() const { return m_id.Data2; }
std::uint16_t PUniversalID::Group3() const { return m_id.Data3; }
std::uint16_t PUniversalID::Group4() const { return (m_id.Data4[0] || m_id.Data4[1]) ? 1 : 0; }
std::uint16_t PUniversalID::Group51() const { return (m_id.Data4[2] || m_id.Data4[3]) ? 1 : 0; }

std::uint32_t PUniversalID::Group52() const {
  return static_cast<std::uint32_t>(m_id.Data4[4]) |
         (static_cast<std::uint32_t>(m_id.Data4[5]) << 8) |
         (static_cast<std::uint32_t>(m_id.Data4[6]) << 16) |
         (static_cast<std::uint32_t>(m_id.Data4[7]) << 24);
}

std::uint64_t PUniversalID::Huge1() const {
  std::uint8_t bytes[16];
  ToBytes(m_id, bytes);
  return Half(bytes);
}

std::uint64_t PUniversalID::Huge2() const {
  std::uint8_t bytes[16];
  ToBytes(m_id, bytes);
  return Half(bytes + 8);
}

PAutomaticUID::PAutomaticUID(const char* name) : PUniversalID(DeriveFromName(name)) {}

PAutomaticUID::PAutomaticUID(const PAutomaticUID& other) = default;

PAutomaticUID& PAutomaticUID::operator=(const PAutomaticUID& other) = default;

// PUniversalID.h - 128-bit universal identifiers.
// Part of qvbase, the QVKernel foundation class library.
//
// PUniversalID is a value wrapper over the platform's _GUID, used for class
// identifiers (DC_CLSID), interface identifiers and object-model calls. It is
// copied by value and compares bytewise; the null identifier has all 128 bits
// zero. The first eight bytes, read as one little-endian 64-bit integer, are
// the low half (Huge1), the last eight the high half (Huge2).
//
// PAutomaticUID derives an identifier from a short readable name, the same
// in every process, so a class or a stream section can have a stable
// identifier without registering one:
//
//   static const PAutomaticUID kDocumentSection("Document");
//
// Identifiers are plain values: share them between threads freely.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

#include <cstdint>

class PASCIIString;
class PString;

// The same 16-byte layout as _GUID, under the name some clients use.
struct _H2_GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};

// A 128-bit universal identifier.
class QVBASE_API PUniversalID : public PRoot {
public:
  // The null identifier.
  PUniversalID();
  PUniversalID(const _GUID& id);
  PUniversalID(const _H2_GUID& id);
  PUniversalID(const PUniversalID& other);
  ~PUniversalID() override;

  PUniversalID& operator=(const PUniversalID& other);

  // True if any of the 128 bits is set.
  bool IsValid() const;

  bool operator==(const PUniversalID& other) const;
  bool operator!=(const PUniversalID& other) const;
  bool operator==(const _GUID& other) const;
  bool operator!=(const _GUID& other) const;

  // Parses the 38-character text form, {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}.
  // A text of another length, without its braces or without its hyphens
  // raises error 1001 (severity 25); when a protection lets the signal
  // return, parsing goes on and the fields are read from whatever is there.
  explicit PUniversalID(const PASCIIString& text);

  // The 38-character text form, upper-case digits, every field full width.
  operator PString() const;

  // Replaces the identifier by a fresh random one. A failure of the platform
  // raises its mapped error (severity 29); when that returns, the identifier
  // is as the platform left it.
  void CreateNew();

  std::uint32_t Group1() const;
  std::uint16_t Group2() const;
  std::uint16_t Group3() const;
  // Deliberately flags, not values: 1 when Data4[0..1] (Group4) or
  // Data4[2..3] (Group51) hold a non-zero byte. Callers only test them for 0.
  std::uint16_t Group4() const;
  std::uint16_t Group51() const;
  // Data4[4..7] as a little-endian 32-bit integer.
  std::uint32_t Group52() const;
  std::uint64_t Huge1() const;
  std::uint64_t Huge2() const;

  // The 16 bytes by value, and the address of the stored identifier.
  operator _H2_GUID() const;
  operator _GUID() const;
  operator const _GUID*() const;

private:
  _GUID m_id;
};

// An identifier derived from a name: up to twenty of its letters and digits,
// six bits each, in the two halves, and a checksum of the whole name in the
// top four bits of each half. Other bytes count only in the checksum.
class QVBASE_API PAutomaticUID : public PUniversalID {
public:
  explicit PAutomaticUID(const char* name);
  PAutomaticUID(const PAutomaticUID& other);
  PAutomaticUID& operator=(const PAutomaticUID& other);
};

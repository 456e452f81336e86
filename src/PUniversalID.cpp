// PUniversalID.cpp - 128-bit universal identifiers.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PUniversalID.h>

#include <cstring>

namespace {

bool SameBytes(const _GUID& a, const _GUID& b) { return std::memcmp(&a, &b, sizeof(_GUID)) == 0; }

} // namespace

PUniversalID::PUniversalID() : m_id() {}

PUniversalID::PUniversalID(const _GUID& id) : m_id(id) {}

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

bool PUniversalID::operator==(const PUniversalID& other) const { return SameBytes(m_id, other.m_id); }

bool PUniversalID::operator!=(const PUniversalID& other) const { return !SameBytes(m_id, other.m_id); }

bool PUniversalID::operator==(const _GUID& other) const { return SameBytes(m_id, other); }

bool PUniversalID::operator!=(const _GUID& other) const { return !SameBytes(m_id, other); }

PUniversalID::operator _GUID() const { return m_id; }

PUniversalID::operator const _GUID*() const { return &m_id; }

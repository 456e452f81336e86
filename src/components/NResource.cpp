// NResource.cpp - resource locations, types, descriptions and string resources.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/NResource.h>

#include <qvbase/MemoryManager.h>
#include <qvbase/PComponent.h>
#include <qvbase/PStringConversions.h>

#include "components/ResourceText.h"
#include "native/Resources.h"

#include <cstdint>

namespace {

// The Windows type numbers and their portable codes.
struct TypeRow {
  ULONG native;
  ULONG portable;
};
constexpr TypeRow kTypeTable[] = {
    {1, kResTypeCursor},        {2, kResTypeBitmap},        {3, kResTypeIcon},
    {4, kResTypeMenu},          {5, kResTypeDialog},        {6, kResTypeString},
    {7, kResTypeFontDirectory}, {8, kResTypeFont},          {9, kResTypeAccelerator},
    {10, kResTypeRawData},      {11, kResTypeMessageTable}, {12, kResTypeGroupCursor},
    {14, kResTypeGroupIcon},    {16, kResTypeVersion},      {17, kResTypeDialogInclude},
    {19, kResTypePlugAndPlay},  {20, kResTypeVxd},          {21, kResTypeAnimatedCursor},
    {22, kResTypeAnimatedIcon},
};

// Native type values up to this are numbers (the integer-resource convention).
constexpr std::uintptr_t kLargestTypeNumber = 0xFFFF;

const TypeRow* RowOfNative(ULONG native) {
  for (const TypeRow& row : kTypeTable)
    if (row.native == native)
      return &row;
  return nullptr;
}

const TypeRow* RowOfPortable(ULONG portable) {
  for (const TypeRow& row : kTypeTable)
    if (row.portable == portable)
      return &row;
  return nullptr;
}

// String loading: the buffer starts at one step and grows by one step while
// the text may have been cut. A string of a string table is at most 65535
// UTF-16 units, at most four bytes each in any multibyte form: past this the
// text is taken as it is.
constexpr ULONG kStringStep = 128;
constexpr ULONG kLargestStringBuffer = 65535u * 4 + kStringStep;

// GetModuleFileNameA's buffer for the fallback text: MAX_PATH and its 0.
constexpr ULONG kModulePathBuffer = 261;

const char kMissingStringText[] = "****^module^: UNDEFINED RESOURCE STRING #^num^****";

} // namespace

// ---------------------------------------------------------------------------
// NResourceLocation

NResourceLocation::NResourceLocation() : m_container(nullptr), m_base(0) {}

NResourceLocation::NResourceLocation(void* container) : m_container(container), m_base(0) {}

NResourceLocation::NResourceLocation(void* container, ULONG base)
    : m_container(container), m_base(base) {}

NResourceLocation::NResourceLocation(const NResourceLocation& other)
    : PRoot(other), m_container(other.m_container), m_base(other.m_base) {}

NResourceLocation& NResourceLocation::operator=(const NResourceLocation& other) {
  m_container = other.m_container;
  m_base = other.m_base;
  return *this;
}

NResourceLocation::~NResourceLocation() = default;

bool NResourceLocation::operator==(const NResourceLocation& other) const {
  return m_container == other.m_container && m_base == other.m_base;
}

// ---------------------------------------------------------------------------
// NTesselResourceLocation

NTesselResourceLocation::NTesselResourceLocation()
    : NResourceLocation(gTesselComponentFile.ResourceLocation()) {}

NTesselResourceLocation::NTesselResourceLocation(const NResourceLocation& location)
    : NResourceLocation(location) {}

NTesselResourceLocation& NTesselResourceLocation::operator=(const NResourceLocation& location) {
  NResourceLocation::operator=(location);
  return *this;
}

NTesselResourceLocation::~NTesselResourceLocation() = default;

// ---------------------------------------------------------------------------
// NResourceType

NResourceType::NResourceType() : m_portable(0), m_nativeNumber(0) {}

NResourceType::NResourceType(ULONG portable) : m_portable(portable), m_nativeNumber(0) {
  MakeNativeFromPortable();
}

NResourceType::NResourceType(const char* native, ULONG portable)
    : m_portable(portable), m_nativeNumber(0) {
  const std::uintptr_t value = reinterpret_cast<std::uintptr_t>(native);
  if (value > kLargestTypeNumber) {
    m_nativeName = PASCIIString(native, /*copy=*/true);
    if (m_portable == 0) {
      // The first four characters, the first in the most significant byte;
      // the name's terminator and what would follow it count as zero bytes.
      const char* name = m_nativeName;
      bool ended = false;
      for (int i = 0; i < 4; ++i) {
        ended = ended || name[i] == '\0';
        m_portable = (m_portable << 8) | (ended ? 0u : static_cast<unsigned char>(name[i]));
      }
    }
    return;
  }
  m_nativeNumber = static_cast<ULONG>(value);
  // A number of the table has its fixed code, whatever was given.
  if (const TypeRow* row = RowOfNative(m_nativeNumber))
    m_portable = row->portable;
}

NResourceType::NResourceType(const NResourceType& other)
    : PRoot(other), m_portable(other.m_portable), m_nativeNumber(0) {
  CopyNative(other);
}

NResourceType& NResourceType::operator=(const NResourceType& other) {
  m_portable = other.m_portable;
  CopyNative(other);
  return *this;
}

NResourceType::~NResourceType() = default;

const char* NResourceType::NativeType() const {
  if (m_nativeNumber != 0)
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(m_nativeNumber));
  return m_nativeName;
}

void NResourceType::MakeNativeFromPortable() {
  m_nativeName = PASCIIString();
  if (const TypeRow* row = RowOfPortable(m_portable)) {
    m_nativeNumber = row->native;
    return;
  }
  m_nativeNumber = 0;
  char name[5] = {static_cast<char>(m_portable >> 24), static_cast<char>(m_portable >> 16),
                  static_cast<char>(m_portable >> 8), static_cast<char>(m_portable), '\0'};
  m_nativeName = PASCIIString(name, /*copy=*/true);
}

void NResourceType::CopyNative(const NResourceType& other) {
  m_nativeNumber = other.m_nativeNumber;
  m_nativeName = other.m_nativeName;
}

// ---------------------------------------------------------------------------
// NResourceDesc

NResourceDesc::NResourceDesc() = default;

NResourceDesc::NResourceDesc(NResourceLocation location, NResourceType type, ULONG id)
    : m_location(location.ResourceContainer(), location.ResourceBase() + id), m_type(type) {}

NResourceDesc::NResourceDesc(const NResourceDesc& other)
    : PRoot(other), m_location(other.m_location), m_type(other.m_type) {}

NResourceDesc& NResourceDesc::operator=(const NResourceDesc& other) {
  m_location = other.m_location;
  m_type = other.m_type;
  return *this;
}

NResourceDesc::~NResourceDesc() = default;

bool NResourceDesc::IsValid() const { return m_location.IsValid() && m_type.IsValid(); }

bool NResourceDesc::operator==(const NResourceDesc& other) const {
  return m_location == other.m_location && m_type == other.m_type;
}

bool NResourceDesc::operator!=(const NResourceDesc& other) const {
  // Deliberate: module AND identifier must both differ (see the header).
  const bool otherContainer =
      m_location.ResourceContainer() != other.m_location.ResourceContainer();
  const bool otherBase = m_location.ResourceBase() != other.m_location.ResourceBase();
  return (otherContainer && otherBase) || m_type != other.m_type;
}

// ---------------------------------------------------------------------------
// NResourceString

NResourceString::NResourceString() = default;

NResourceString::NResourceString(ULONG number, NResourceLocation location)
    : m_location(location.ResourceContainer(), number + location.ResourceBase()) {}

NResourceString::NResourceString(const NResourceString& other)
    : PRoot(other), m_location(other.m_location) {}

NResourceString& NResourceString::operator=(const NResourceString& other) {
  m_location = other.m_location;
  return *this;
}

NResourceString::~NResourceString() = default;

NResourceString::operator PMBString() {
  PMBString text;
  if (qvbase::components::LoadResourceText(ResourceContainer(), ResourceNum(), &text))
    return text;
  PMBString fallback(kMissingStringText, /*copy=*/true);
  fallback.SetParameter("num", UIntToPString(ResourceNum()));
  char path[kModulePathBuffer];
  if (qvbase::native::ModuleFileName(ResourceContainer(), path, sizeof path) != 0)
    fallback.SetParameter("module", PMBString(path, /*copy=*/true));
  // Intended: a missing string leaves this object invalid (see the header).
  m_location = NResourceLocation();
  return fallback;
}

NResourceString::operator NResourceDesc() const {
  return NResourceDesc(NResourceLocation(ResourceContainer()), NResourceType(kResTypeString),
                       ResourceNum());
}

// ---------------------------------------------------------------------------
// This library's own resources

NResourceDesc GTesselResource(const NResourceType& type, ULONG id) {
  return NResourceDesc(gTesselComponentFile.ResourceLocation(), type, id);
}

NResourceString GTesselResourceString(ULONG number) {
  return NResourceString(number, gTesselComponentFile.ResourceLocation());
}

PMBString GTesselString(ULONG number) {
  NResourceString text = GTesselResourceString(number);
  return text;
}

// ---------------------------------------------------------------------------
// Loading text

namespace qvbase {
namespace components {

bool LoadResourceText(void* container, ULONG id, PMBString* text) {
  for (ULONG size = kStringStep;; size += kStringStep) {
    char* buffer = static_cast<char*>(GMemAllocation(nullptr, size, /*mode=*/1));
    if (!buffer)
      return false;
    const int length = native::LoadModuleString(container, id, buffer, static_cast<int>(size));
    // A result of size - 1 or more may be a cut text: ask again with more
    // room, unless no string can be that long.
    if (length >= static_cast<int>(size) - 1 && size < kLargestStringBuffer) {
      GMemFree(buffer);
      continue;
    }
    const bool found = length > 0;
    if (found)
      *text = PMBString(buffer, /*copy=*/true);
    GMemFree(buffer);
    return found;
  }
}

} // namespace components
} // namespace qvbase

// NResourceStream.cpp - the read-only stream over one resource's bytes.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/NResourceStream.h>

#include <qvbase/PErrorCodes.h>

#include "errors/RaiseError.h"
#include "native/Resources.h"

#include <cstdint>
#include <cstring>

namespace {

// The errors' defined source position, not a path of this tree.
const char kSourceFile[] = "src\\NResourceStream";

// The block of the memory handler grows in steps of this; the content is
// copied in once, at open.
constexpr ULONG kGranularity = 0x10000;

// FindResourceA takes the identifier as an integer resource: its low 16 bits.
const char* IntegerResource(ULONG id) {
  return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(id & 0xFFFF));
}

} // namespace

NResourceStream::NResourceStream() : PMemoryStreamHdl(kGranularity), m_data(nullptr), m_size(0) {}

NResourceStream::NResourceStream(const NResourceDesc& resource)
    : PMemoryStreamHdl(kGranularity), m_resource(resource), m_data(nullptr), m_size(0) {}

NResourceStream::NResourceStream(const NResourceStream& other)
    : PMemoryStreamHdl(other), m_resource(other.m_resource), m_data(other.m_data),
      m_size(other.m_size) {}

NResourceStream& NResourceStream::operator=(const NResourceStream& other) {
  PMemoryStreamHdl::operator=(other);
  m_resource = other.m_resource;
  m_data = other.m_data;
  m_size = other.m_size;
  return *this;
}

NResourceStream::~NResourceStream() = default;

void NResourceStream::IOOpen(ULONG mode) {
  if (mode != OpenRead) {
    qvbase::errors::RaiseThrough(*this, kErrStreamOpenModeInvalid, ErrorSeverityAbort, kSourceFile,
                                 __LINE__);
    return; // let through: the stream stays closed
  }
  PMemoryStreamHdl::IOOpen(mode);
}

ULONG NResourceStream::IOGetAvailableOpenModes() const { return OpenRead; }

ULONG NResourceStream::NeededSize() {
  if (!m_data)
    LoadResource();
  return m_size;
}

void NResourceStream::MemoryRead(char* buffer, ULONG size) {
  if (m_data && size != 0)
    std::memcpy(buffer, m_data, size <= m_size ? size : m_size);
}

void NResourceStream::LoadResource() {
  void* module = m_resource.Location().ResourceContainer();
  void* found = qvbase::native::FindModuleResource(
      module, IntegerResource(m_resource.Location().ResourceBase()),
      m_resource.Type().NativeType());
  if (!found) {
    qvbase::errors::RaiseThrough(*this, kErrResourceMissing, ErrorSeverityAbort, kSourceFile,
                                 __LINE__);
    return; // let through: no content
  }
  const ULONG size = qvbase::native::ModuleResourceSize(module, found);
  void* loaded = qvbase::native::LoadModuleResource(module, found);
  if (!loaded) {
    qvbase::errors::RaiseThrough(*this, kErrResourceMissing, ErrorSeverityAbort, kSourceFile,
                                 __LINE__);
    return;
  }
  m_data = static_cast<const char*>(qvbase::native::LockModuleResource(loaded));
  m_size = m_data ? size : 0;
}

PStream GTesselResourceStream(const NResourceType& type, ULONG id) {
  return PStream(new NResourceStream(GTesselResource(type, id)));
}

// PComponentFile.cpp - component files, their registration, and the list of
// registered files.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PComponent.h>

#include <qvbase/PMBString.h>

#include "components/ComponentRegistry.h"

#include <cstdint>
#include <cstdio>

using qvbase::components::EmptyRecord;
using qvbase::components::Registry;

namespace {

// The type codes of component parts.
constexpr ULONG kTypeDll = 1;
constexpr ULONG kTypeServer = 3;
constexpr ULONG kTypeServer2 = 7;
constexpr ULONG kTypeExe = 13;
constexpr ULONG kTypeSystem = 16;
constexpr ULONG kTypeOcx = 0x40000003;
constexpr ULONG kTypeOcx2 = 0x40000007;
constexpr ULONG kTypeRes = 0x80000000;

QVCompFileInfos FileInfos(void* handle, bool* read) {
  QVCompFileInfos infos = EmptyRecord<QVCompFileInfos>();
  *read = Registry().GetComponentFileInfos(handle, &infos) == 0;
  return infos;
}

// Reads one version word of the file's infos; 0 when they cannot be read.
ULONG FileWord(void* handle, QVCompWord QVCompFileInfos::*word) {
  bool read;
  QVCompFileInfos infos = FileInfos(handle, &read);
  return read ? static_cast<ULONG>(infos.*word) : 0;
}

// The file's part, with a reference the caller gives back; null when none.
void* PartOf(void* file) {
  void* part = nullptr;
  if (Registry().ObtainComponentPartFromFile(file, &part) != 0)
    return nullptr;
  return part;
}

} // namespace

PComponentFileList::PComponentFileList() : PList(GDynArrayDataConstructor) {}

PComponentFile::PComponentFile(void* handle, bool) : m_handle(handle), m_registered(false) {
  if (m_handle)
    Registry().AddRef(m_handle);
}

PComponentFile::PComponentFile(const PComponentFile& other, bool)
    : PRoot(other), m_handle(other.m_handle), m_registered(false) {
  if (m_handle)
    Registry().AddRef(m_handle);
}

PComponentFile::~PComponentFile() {
  if (m_registered) {
    Registry().DeclareFileStopping(m_handle);
    gComponentFileList.Remove(this);
  }
  // Unconditionally, also for 0: the registry answers that with a failure.
  Registry().Release(m_handle);
}

PComponentFile& PComponentFile::operator=(const PComponentFile& other) {
  // Leaves the list without declaring the file stopping: the registry keeps
  // the file running for whoever else holds it.
  Unregister();
  // The new reference is taken before the old one is given back, so that
  // assigning an object to itself keeps its handle alive.
  void* old = m_handle;
  m_handle = other.m_handle;
  if (m_handle)
    Registry().AddRef(m_handle);
  Registry().Release(old);
  return *this;
}

void PComponentFile::Initialize() {}

void PComponentFile::Unregister() {
  if (m_registered)
    gComponentFileList.Remove(this);
  m_registered = false;
}

// Holds `handle`, whose reference comes from the registry's Obtain call,
// instead of the handle held so far.
void PComponentFile::TakeHandle(void* handle) {
  Unregister();
  void* old = m_handle;
  m_handle = handle;
  if (old)
    Registry().Release(old);
}

void PComponentFile::SetInfos(ULONG major, ULONG minor, ULONG fixes, ULONG build, ULONG extra) {
  // Words 1 to 5 (path, name and three more) are the registry's to fill.
  QVCompFileInfos infos = EmptyRecord<QVCompFileInfos>();
  infos.majorVersion = major;
  infos.minorVersion = minor;
  infos.fixesVersion = fixes;
  infos.buildNumber = build;
  infos.extra = extra;
  Registry().SetComponentFileInfos(m_handle, &infos);
}

// Gives the file's own part, if it has one, the type of `type`.
void PComponentFile::SetTypeOfOwnPart(const char* type) {
  if (void* part = PartOf(m_handle)) {
    Registry().SetComponentPartType(part, TypeCodeFromText(type));
    Registry().Release(part);
  }
}

// Declares the file running, as part `partName` of `component` when one is
// named and the registry gives it, and enters it into gComponentFileList.
void PComponentFile::DeclareRunning(const PComponent* component, const char* partName,
                                    const char* type) {
  if (!component) {
    Registry().DeclareFileRunning(m_handle, nullptr);
    gComponentFileList.Add(this);
    m_registered = true;
    SetTypeOfOwnPart(type);
    return;
  }
  void* part = nullptr;
  if (Registry().ObtainAComponentPart(component->Handle(), partName, &part) == 0) {
    Registry().SetComponentPartType(part, TypeCodeFromText(type));
    // The part's reference passes to the registry with the call.
    Registry().DeclareFileRunning(m_handle, part);
  } else {
    Registry().DeclareFileRunning(m_handle, nullptr);
    SetTypeOfOwnPart(type);
  }
  gComponentFileList.Add(this);
  m_registered = true;
}

void PComponentFile::Init(const PComponent& /*component*/, void* moduleInstance, const char* type,
                          ULONG major, ULONG minor, ULONG fixes, ULONG build, ULONG extra) {
  void* handle = nullptr;
  if (Registry().ObtainAComponentFileFromInstance(moduleInstance, &handle) == 0) {
    TakeHandle(handle);
    SetInfos(major, minor, fixes, build, extra);
    DeclareRunning(nullptr, nullptr, type);
  }
  Initialize();
}

void PComponentFile::Init(const PComponent& component, const PASCIIString& partName,
                          void* moduleInstance, const char* type, ULONG major, ULONG minor,
                          ULONG fixes, ULONG build, ULONG extra) {
  void* handle = nullptr;
  if (Registry().ObtainAComponentFileFromInstance(moduleInstance, &handle) == 0) {
    TakeHandle(handle);
    SetInfos(major, minor, fixes, build, extra);
    DeclareRunning(&component, partName, type);
  }
  Initialize();
}

void PComponentFile::Init(const PComponent& component, const PASCIIString& partName,
                          const PString& path, const char* type, ULONG major, ULONG minor,
                          ULONG fixes, ULONG build, ULONG extra) {
  PMBString multibyte(path);
  void* handle = nullptr;
  if (Registry().ObtainAComponentFileFromPath(multibyte, &handle) == 0) {
    TakeHandle(handle);
    SetInfos(major, minor, fixes, build, extra);
    DeclareRunning(&component, partName, type);
  }
  Initialize();
}

PASCIIString PComponentFile::Name() const {
  if (void* part = PartOf(m_handle)) {
    QVCompPartInfos infos = EmptyRecord<QVCompPartInfos>();
    bool read = Registry().GetComponentPartInfos(part, &infos) == 0;
    Registry().Release(part);
    return read && infos.name ? PASCIIString(infos.name, true) : PASCIIString();
  }
  bool read;
  QVCompFileInfos infos = FileInfos(m_handle, &read);
  return read && infos.fileName ? PASCIIString(infos.fileName, true) : PASCIIString();
}

PASCIIString PComponentFile::Type() const {
  void* part = PartOf(m_handle);
  if (!part)
    return PASCIIString();
  std::uint32_t code = 0;
  bool read = Registry().GetComponentPartType(part, &code) == 0;
  Registry().Release(part);
  return read ? PASCIIString(TypeTextFromCode(code), true) : PASCIIString();
}

PString PComponentFile::Path() const {
  bool read;
  QVCompFileInfos infos = FileInfos(m_handle, &read);
  return read && infos.path ? PString(PMBString(infos.path, true)) : PString(PMBString());
}

ULONG PComponentFile::MajorVersion() const {
  return FileWord(m_handle, &QVCompFileInfos::majorVersion);
}

ULONG PComponentFile::MinorVersion() const {
  return FileWord(m_handle, &QVCompFileInfos::minorVersion);
}

ULONG PComponentFile::FixesVersion() const {
  return FileWord(m_handle, &QVCompFileInfos::fixesVersion);
}

ULONG PComponentFile::BuildNumber() const {
  return FileWord(m_handle, &QVCompFileInfos::buildNumber);
}

PASCIIString PComponentFile::VersionString(bool withBuild) const {
  bool read;
  QVCompFileInfos infos = FileInfos(m_handle, &read);
  if (!read)
    return PASCIIString();
  char text[64];
  unsigned long major = static_cast<ULONG>(infos.majorVersion);
  unsigned long minor = static_cast<ULONG>(infos.minorVersion);
  unsigned long fixes = static_cast<ULONG>(infos.fixesVersion);
  unsigned long build = static_cast<ULONG>(infos.buildNumber);
  if (withBuild)
    std::snprintf(text, sizeof text, "%lu.%lu.%lu (%lu)", major, minor, fixes, build);
  else
    std::snprintf(text, sizeof text, "%lu.%lu.%lu", major, minor, fixes);
  return PASCIIString(text, true);
}

NResourceLocation PComponentFile::ResourceLocation() const {
  void* part = PartOf(m_handle);
  if (!part)
    return NResourceLocation();
  void* module = nullptr;
  std::int32_t offset = 0;
  const bool located = Registry().GetComponentPartResLocation(part, &module, &offset) == 0;
  Registry().Release(part);
  if (!located)
    return NResourceLocation();
  // The offset is a signed shift; identifiers wrap around modulo 2^32 when
  // it is added, as on the 32-bit platform.
  return NResourceLocation(module, static_cast<ULONG>(offset));
}

void PComponentFile::SetResourceOffset(int offset) {
  if (void* part = PartOf(m_handle)) {
    Registry().SetComponentPartResOffset(part, offset);
    Registry().Release(part);
  }
}

PComponent PComponentFile::GetComponent() const {
  void* part = nullptr;
  void* component = nullptr;
  if (Registry().ObtainComponentPartFromFile(m_handle, &part) != 0 ||
      Registry().ObtainComponentFromPart(part, &component) != 0)
    return PComponent(nullptr);
  // Deliberately neither the part's nor the component's reference is given
  // back: callers built against the registry rely on what stays alive.
  return PComponent(component);
}

ULONG PComponentFile::TypeCodeFromText(const char* type) {
  if (!type)
    return 0;
  switch (*type) {
  case 'D':
  case 'd':
    return kTypeDll;
  // "System" lands here too, deliberately: it reads back as SERVER's code.
  case 'S':
  case 's':
    return kTypeServer;
  case 'E':
  case 'e':
    return kTypeExe;
  case 'O':
  case 'o':
    return kTypeOcx;
  case 'R':
  case 'r':
    return kTypeRes;
  default:
    return 0;
  }
}

const char* PComponentFile::TypeTextFromCode(ULONG code) {
  switch (code) {
  case kTypeDll:
    return "DLL";
  case kTypeServer:
  case kTypeServer2:
    return "SERVER";
  case kTypeExe:
    return "EXE";
  case kTypeSystem:
    return "System";
  case kTypeOcx:
  case kTypeOcx2:
    return "OCX";
  case kTypeRes:
    return "RES";
  default:
    return "";
  }
}

PTesselComponentFile::PTesselComponentFile() {}

PTesselComponentFile::~PTesselComponentFile() {}

PComponentFile GGetApplicationComponentFile() {
  void* handle = nullptr;
  const bool obtained = Registry().ObtainApplicationComponentFile(&handle) == 0;
  // One object, returned in place, as for the application's component.
  PComponentFile file(obtained ? handle : nullptr, false);
  if (obtained)
    Registry().Release(handle);
  return file;
}

void GSetComponentResourceHandle(const char* componentName, void* module) {
  if (!componentName)
    return;
  for (ULONG i = 0; PComponentFile* file = gComponentFileList.At(i); ++i) {
    PComponent component = file->GetComponent();
    if (component.Name().CompareTo(componentName, kStrCompIgnoreCase) == 0)
      component.SetResHandle(module);
  }
}

void GSetComponentFileResourceOffset(const char* fileName, int offset) {
  if (!fileName)
    return;
  for (ULONG i = 0; PComponentFile* file = gComponentFileList.At(i); ++i)
    if (file->Name().CompareTo(fileName, kStrCompIgnoreCase) == 0)
      file->SetResourceOffset(offset);
}

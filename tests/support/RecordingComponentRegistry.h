// RecordingComponentRegistry.h - a stand-in for the component registry that
// records every call the components family makes, for tests of call
// sequences.
//
// Installed (GSetComponentRegistry) for its lifetime; one at a time. It hands
// out handles of its own - components c0, c1..., parts p0, p1..., files f0,
// f1... - and answers every call with success and the data in its public
// fields, except the calls named in `failing`. A handle it did not hand out
// gets a failure, so objects made under the real registry (the library's
// globals) stay out of its way. Each call is recorded as one line:
//
//   ObtainAComponent(QVKernel,1,2)
//   SetComponentFileInfos(f0,{88,0,0,0,0,0,1,2,0,27,0})
//   DeclareFileRunning(f0,p0)
//
// (a record prints its words, the size word first; a null pointer prints 0,
// a text as it is, "(null)" for none). References are counted per handle.
#pragma once

#include <QVComponent.h>
#include <qvbase/PComponent.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace qvbase::test {

class RecordingComponentRegistry {
public:
  static void* Component(int n) { return Handle(0xC0, n); }
  static void* Part(int n) { return Handle(0xD0, n); }
  static void* File(int n) { return Handle(0xF0, n); }

  RecordingComponentRegistry() {
    s_current = this;
    m_previous = GSetComponentRegistry(&Table());
  }
  ~RecordingComponentRegistry() {
    GSetComponentRegistry(m_previous);
    s_current = nullptr;
  }
  RecordingComponentRegistry(const RecordingComponentRegistry&) = delete;
  RecordingComponentRegistry& operator=(const RecordingComponentRegistry&) = delete;

  // Every call so far, and forgetting them.
  std::vector<std::string> calls;
  void Clear() { calls.clear(); }
  // Names of the functions that fail ("ObtainAComponentPart").
  std::set<std::string> failing;
  // AddRef minus Release per handle.
  std::map<void*, int> references;

  // What it answers.
  std::string componentName = "Recorded";
  std::string componentType = "Component";
  std::uint32_t majorVersion = 1;
  std::uint32_t minorVersion = 2;
  std::string displayName = "Recorded component";
  std::string registryPath = "Software\\Recorded";
  std::string componentString = "Recorded 1.2";
  std::string partName = "RecordedPart";
  std::uint32_t partType = 1;
  std::string filePath = "/recorded/Recorded.dll";
  std::string fileName = "Recorded.dll";
  QVCompWord fileVersions[5] = {1, 2, 0, 27, 0};
  void* module = reinterpret_cast<void*>(0x5000);
  std::int32_t offset = 0;
  // What the enumerations pass.
  std::vector<void*> components = {Component(0)};
  std::vector<void*> parts = {Part(0)};
  // Part n's best running file is file n, and file n's part is part n,
  // except for these.
  std::set<void*> partsWithoutFile;
  std::set<void*> filesWithoutPart;

  // How a handle appears in the record.
  static std::string Label(const void* handle) {
    std::uintptr_t value = reinterpret_cast<std::uintptr_t>(handle);
    if (!value)
      return "0";
    const char* prefix = nullptr;
    if (value >= 0xC0 && value < 0xD0)
      prefix = "c";
    else if (value >= 0xD0 && value < 0xE0)
      prefix = "p";
    else if (value >= 0xF0 && value < 0x100)
      prefix = "f";
    char text[32];
    if (prefix)
      std::snprintf(text, sizeof text, "%s%u", prefix, static_cast<unsigned>(value & 0xF));
    else
      std::snprintf(text, sizeof text, "%p", const_cast<void*>(handle));
    return text;
  }

private:
  static void* Handle(std::uintptr_t base, int n) { return reinterpret_cast<void*>(base + n); }
  static bool Is(const void* handle, std::uintptr_t base) {
    std::uintptr_t value = reinterpret_cast<std::uintptr_t>(handle);
    return value >= base && value < base + 0x10;
  }
  static bool Known(const void* handle) {
    return Is(handle, 0xC0) || Is(handle, 0xD0) || Is(handle, 0xF0);
  }
  static std::string Text(const char* text) { return text ? text : "(null)"; }
  static std::string Words(const QVCompWord* words, std::size_t count) {
    std::string text = "{";
    for (std::size_t i = 0; i < count; ++i)
      text += (i ? "," : "") + std::to_string(words[i]);
    return text + "}";
  }

  // Records a call; true when it is to fail.
  static bool Record(const char* name, std::initializer_list<std::string> arguments) {
    std::string line = std::string(name) + "(";
    bool first = true;
    for (const std::string& argument : arguments) {
      line += (first ? "" : ",") + argument;
      first = false;
    }
    s_current->calls.push_back(line + ")");
    return s_current->failing.count(name) != 0;
  }
  static int Copy(const std::string& text, char* buffer, std::uint32_t size) {
    if (!buffer || text.size() + 1 > size)
      return QVCOMP_E_BUFFER_TOO_SMALL;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return QVCOMP_OK;
  }
  static int Hand(void* handle, void** out) {
    if (!out)
      return QVCOMP_E_NULL_POINTER;
    *out = handle;
    return QVCOMP_OK;
  }

  static int AddRef(void* h) {
    if (Record("AddRef", {Label(h)}) || !Known(h))
      return QVCOMP_E_INVALID_HANDLE;
    ++s_current->references[h];
    return QVCOMP_OK;
  }
  static int Release(void* h) {
    if (Record("Release", {Label(h)}) || !Known(h))
      return QVCOMP_E_INVALID_HANDLE;
    --s_current->references[h];
    return QVCOMP_OK;
  }
  static int ObtainAComponent(const char* name, std::uint32_t major, std::uint32_t minor,
                              void** out) {
    if (Record("ObtainAComponent", {Text(name), std::to_string(major), std::to_string(minor)}))
      return QVCOMP_E_NOT_FOUND;
    ++s_current->references[Component(0)];
    return Hand(Component(0), out);
  }
  static int GetComponentInfos(void* h, QVCompComponentInfos* infos) {
    if (Record("GetComponentInfos", {Label(h)}) || !Is(h, 0xC0))
      return QVCOMP_E_INVALID_HANDLE;
    infos->name = s_current->componentName.c_str();
    infos->majorVersion = s_current->majorVersion;
    infos->minorVersion = s_current->minorVersion;
    infos->type = s_current->componentType.c_str();
    return QVCOMP_OK;
  }
  static std::uint32_t GetComponentDisplayName(void* h, char* buffer, std::uint32_t size) {
    if (Record("GetComponentDisplayName",
               {Label(h), buffer ? "buffer" : "0", std::to_string(size)}) ||
        !Is(h, 0xC0))
      return 0;
    const std::string& text = s_current->displayName;
    if (buffer && size)
      std::snprintf(buffer, size, "%s", text.c_str());
    return static_cast<std::uint32_t>(text.size() + 1);
  }
  static int SetComponentDisplayName(void* h, const char* text) {
    if (Record("SetComponentDisplayName", {Label(h), Text(text)}) || !Is(h, 0xC0))
      return QVCOMP_E_INVALID_HANDLE;
    s_current->displayName = text;
    return QVCOMP_OK;
  }
  static int GetComponentRegistryPath(void* h, std::uint32_t kind, char* buffer,
                                      std::uint32_t size) {
    char kindText[16];
    std::snprintf(kindText, sizeof kindText, "0x%X", kind);
    if (Record("GetComponentRegistryPath", {Label(h), kindText, std::to_string(size)}) ||
        !Is(h, 0xC0))
      return QVCOMP_E_INVALID_HANDLE;
    return Copy(s_current->registryPath, buffer, size);
  }
  static int GetComponentString(void* h, char* buffer, std::uint32_t size) {
    if (Record("GetComponentString", {Label(h), std::to_string(size)}) || !Is(h, 0xC0))
      return QVCOMP_E_INVALID_HANDLE;
    return Copy(s_current->componentString, buffer, size);
  }
  static int SetComponentResLocation(void* h, void* module, std::int32_t offset) {
    char moduleText[32];
    std::snprintf(moduleText, sizeof moduleText, "%p", module);
    if (Record("SetComponentResLocation", {Label(h), moduleText, std::to_string(offset)}) ||
        !Is(h, 0xC0))
      return QVCOMP_E_INVALID_HANDLE;
    s_current->module = module;
    return QVCOMP_OK;
  }
  static int GetComponentResLocation(void* h, void** module, std::int32_t* offset) {
    if (Record("GetComponentResLocation", {Label(h), offset ? "offset" : "0"}) || !Is(h, 0xC0))
      return QVCOMP_E_NOT_FOUND;
    *module = s_current->module;
    if (offset)
      *offset = s_current->offset;
    return QVCOMP_OK;
  }
  static int Enumerate(const std::vector<void*>& handles, QVCompEnumProc proc, void* context) {
    for (void* handle : handles)
      if (!proc(handle, context))
        break;
    return QVCOMP_OK;
  }
  static int EnumRunningComponents(QVCompEnumProc proc, void* context) {
    if (Record("EnumRunningComponents", {}))
      return QVCOMP_E_NOT_FOUND;
    return Enumerate(s_current->components, proc, context);
  }
  static int EnumRunningComponentsByName(const char* name, QVCompEnumProc proc, void* context) {
    if (Record("EnumRunningComponentsByName", {Text(name)}))
      return QVCOMP_E_NOT_FOUND;
    return Enumerate(s_current->components, proc, context);
  }
  static int ObtainApplicationComponent(void** out) {
    if (Record("ObtainApplicationComponent", {}))
      return QVCOMP_E_NOT_FOUND;
    ++s_current->references[Component(0)];
    return Hand(Component(0), out);
  }
  static int ObtainAComponentPart(void* h, const char* name, void** out) {
    if (Record("ObtainAComponentPart", {Label(h), Text(name)}) || !Is(h, 0xC0))
      return QVCOMP_E_NOT_FOUND;
    ++s_current->references[Part(0)];
    return Hand(Part(0), out);
  }
  static int GetComponentPartInfos(void* h, QVCompPartInfos* infos) {
    if (Record("GetComponentPartInfos", {Label(h)}) || !Is(h, 0xD0))
      return QVCOMP_E_INVALID_HANDLE;
    infos->name = s_current->partName.c_str();
    infos->type = s_current->partType;
    return QVCOMP_OK;
  }
  static int SetComponentPartType(void* h, std::uint32_t type) {
    char typeText[16];
    std::snprintf(typeText, sizeof typeText, "0x%X", type);
    if (Record("SetComponentPartType", {Label(h), typeText}) || !Is(h, 0xD0))
      return QVCOMP_E_INVALID_HANDLE;
    s_current->partType = type;
    return QVCOMP_OK;
  }
  static int GetComponentPartType(void* h, std::uint32_t* type) {
    if (Record("GetComponentPartType", {Label(h)}) || !Is(h, 0xD0))
      return QVCOMP_E_INVALID_HANDLE;
    *type = s_current->partType;
    return QVCOMP_OK;
  }
  static int SetComponentPartResOffset(void* h, std::int32_t offset) {
    if (Record("SetComponentPartResOffset", {Label(h), std::to_string(offset)}) || !Is(h, 0xD0))
      return QVCOMP_E_INVALID_HANDLE;
    s_current->offset = offset;
    return QVCOMP_OK;
  }
  static int GetComponentPartResLocation(void* h, void** module, std::int32_t* offset) {
    if (Record("GetComponentPartResLocation", {Label(h)}) || !Is(h, 0xD0))
      return QVCOMP_E_NOT_FOUND;
    *module = s_current->module;
    *offset = s_current->offset;
    return QVCOMP_OK;
  }
  static int ObtainComponentFromPart(void* h, void** out) {
    if (Record("ObtainComponentFromPart", {Label(h)}) || !Is(h, 0xD0))
      return QVCOMP_E_NOT_FOUND;
    ++s_current->references[Component(0)];
    return Hand(Component(0), out);
  }
  static int EnumRunningComponentParts(void* h, QVCompEnumProc proc, void* context) {
    if (Record("EnumRunningComponentParts", {Label(h)}) || !Is(h, 0xC0))
      return QVCOMP_E_NOT_FOUND;
    return Enumerate(s_current->parts, proc, context);
  }
  static int EnumRunningComponentPartsByType(void* h, std::uint32_t type, QVCompEnumProc proc,
                                             void* context) {
    char typeText[16];
    std::snprintf(typeText, sizeof typeText, "0x%X", type);
    if (Record("EnumRunningComponentPartsByType", {Label(h), typeText}) || !Is(h, 0xC0))
      return QVCOMP_E_NOT_FOUND;
    return Enumerate(s_current->parts, proc, context);
  }
  static int ObtainBestComponentFileFromPart(void* h, void** out) {
    if (Record("ObtainBestComponentFileFromPart", {Label(h)}) || !Is(h, 0xD0) ||
        s_current->partsWithoutFile.count(h))
      return QVCOMP_E_NOT_FOUND;
    void* file = File(static_cast<int>(reinterpret_cast<std::uintptr_t>(h) & 0xF));
    ++s_current->references[file];
    return Hand(file, out);
  }
  static int ObtainAComponentFileFromInstance(void* instance, void** out) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", instance);
    if (Record("ObtainAComponentFileFromInstance", {text}))
      return QVCOMP_E_NOT_FOUND;
    ++s_current->references[File(0)];
    return Hand(File(0), out);
  }
  static int ObtainAComponentFileFromPath(const char* path, void** out) {
    if (Record("ObtainAComponentFileFromPath", {Text(path)}))
      return QVCOMP_E_NOT_FOUND;
    ++s_current->references[File(0)];
    return Hand(File(0), out);
  }
  static int ObtainApplicationComponentFile(void** out) {
    if (Record("ObtainApplicationComponentFile", {}))
      return QVCOMP_E_NOT_FOUND;
    ++s_current->references[File(0)];
    return Hand(File(0), out);
  }
  static int SetComponentFileInfos(void* h, const QVCompFileInfos* infos) {
    if (Record("SetComponentFileInfos", {Label(h), Words(reinterpret_cast<const QVCompWord*>(infos),
                                                         sizeof *infos / sizeof(QVCompWord))}) ||
        !Is(h, 0xF0))
      return QVCOMP_E_INVALID_HANDLE;
    for (int i = 0; i < 5; ++i)
      s_current->fileVersions[i] = (&infos->majorVersion)[i];
    return QVCOMP_OK;
  }
  static int GetComponentFileInfos(void* h, QVCompFileInfos* infos) {
    if (Record("GetComponentFileInfos", {Label(h)}) || !Is(h, 0xF0))
      return QVCOMP_E_INVALID_HANDLE;
    infos->path = s_current->filePath.c_str();
    infos->fileName = s_current->fileName.c_str();
    for (int i = 0; i < 5; ++i)
      (&infos->majorVersion)[i] = s_current->fileVersions[i];
    return QVCOMP_OK;
  }
  static int DeclareFileRunning(void* h, void* part) {
    if (Record("DeclareFileRunning", {Label(h), Label(part)}) || !Is(h, 0xF0))
      return QVCOMP_E_INVALID_HANDLE;
    return QVCOMP_OK;
  }
  static int DeclareFileStopping(void* h) {
    if (Record("DeclareFileStopping", {Label(h)}) || !Is(h, 0xF0))
      return QVCOMP_E_INVALID_HANDLE;
    return QVCOMP_OK;
  }
  static int ObtainComponentPartFromFile(void* h, void** out) {
    if (Record("ObtainComponentPartFromFile", {Label(h)}) || !Is(h, 0xF0) ||
        s_current->filesWithoutPart.count(h))
      return QVCOMP_E_NOT_FOUND;
    void* part = Part(static_cast<int>(reinterpret_cast<std::uintptr_t>(h) & 0xF));
    ++s_current->references[part];
    return Hand(part, out);
  }

  static const QVCompFunctionTable& Table() {
    static const QVCompFunctionTable table = {
        AddRef,
        Release,
        ObtainAComponent,
        GetComponentInfos,
        GetComponentDisplayName,
        SetComponentDisplayName,
        GetComponentRegistryPath,
        GetComponentString,
        SetComponentResLocation,
        GetComponentResLocation,
        EnumRunningComponents,
        EnumRunningComponentsByName,
        ObtainApplicationComponent,
        ObtainAComponentPart,
        GetComponentPartInfos,
        SetComponentPartType,
        GetComponentPartType,
        SetComponentPartResOffset,
        GetComponentPartResLocation,
        ObtainComponentFromPart,
        EnumRunningComponentParts,
        EnumRunningComponentPartsByType,
        ObtainBestComponentFileFromPart,
        ObtainAComponentFileFromInstance,
        ObtainAComponentFileFromPath,
        ObtainApplicationComponentFile,
        SetComponentFileInfos,
        GetComponentFileInfos,
        DeclareFileRunning,
        DeclareFileStopping,
        ObtainComponentPartFromFile,
    };
    return table;
  }

  static inline RecordingComponentRegistry* s_current = nullptr;
  const QVCompFunctionTable* m_previous = nullptr;
};

} // namespace qvbase::test

// PError.cpp - the library's one error value.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PError.h>

#include <qvbase/GDbg.h>
#include <qvbase/MemoryManager.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PList.h>
#include <qvbase/PMBString.h>

#include <cstdio>

#include <cstring>
#include <new>
#include <string>
#include <utility>

namespace {

// A library object, or null when memory is exhausted: the error object must
// never throw while it records details.
template <typename T, typename... Args>
T* NewOrNull(Args&&... args) {
  try {
    return new T(std::forward<Args>(args)...);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// One named, typed detail. The value is a private copy in a raw block; when
// that copy cannot be made the entry keeps its key with no value (size 0).
class PErrorInfoEntry : public PRoot {
public:
  PErrorInfoEntry(const char* key, TypErrorTagEnum tag, const void* data, ULONG size)
      : m_key(key ? key : ""), m_tag(tag), m_value(nullptr), m_size(0) {
    m_value = GMemAllocation(nullptr, size, /*mode=*/0);
    if (m_value) {
      if (size && data)
        std::memcpy(m_value, data, size);
      m_size = size;
    }
  }
  ~PErrorInfoEntry() override { GMemFree(m_value); }
  PErrorInfoEntry(const PErrorInfoEntry&) = delete;
  PErrorInfoEntry& operator=(const PErrorInfoEntry&) = delete;

  // Keys compare exactly, byte for byte; `length` is strlen(key).
  bool HasKey(const char* key, std::size_t length) const {
    return m_key.size() == length && std::memcmp(m_key.data(), key, length) == 0;
  }
  const char* Key() const { return m_key.c_str(); }
  TypErrorTagEnum Tag() const { return m_tag; }
  const void* Value() const { return m_value; }
  ULONG Size() const { return m_size; }

private:
  std::string m_key;
  TypErrorTagEnum m_tag;
  void* m_value;
  ULONG m_size;
};

// The entries of an info set, in insertion order.
class PErrorInfoList : public PList {
public:
  PErrorInfoList() : PList(GLinkedListDataConstructor) {}
  PErrorInfoEntry* At(ULONG index) const {
    return static_cast<PErrorInfoEntry*>(GetAnObject(index));
  }
  void Append(PErrorInfoEntry* entry) { AddAnObjectTail(entry); }
  void Remove(PErrorInfoEntry* entry) { RemoveAnObject(entry); }
};

} // namespace

// The info set: a reference-counted list of owned entries.
class PErrorInfoData : public PSmartData {
public:
  // Deletes every entry, then clears the list.
  ~PErrorInfoData() override {
    for (ULONG i = 0; i < m_entries.Size(); ++i)
      delete m_entries.At(i);
    m_entries.Clear();
  }

  ULONG Count() const { return m_entries.Size(); }
  PErrorInfoEntry* At(ULONG index) const { return m_entries.At(index); }

  PErrorInfoEntry* Find(const char* key) const {
    if (!key)
      key = "";
    const std::size_t length = std::strlen(key);
    const ULONG count = m_entries.Size();
    for (ULONG i = 0; i < count; ++i) {
      PErrorInfoEntry* entry = m_entries.At(i);
      if (entry->HasKey(key, length))
        return entry;
    }
    return nullptr;
  }

  void Set(const char* key, TypErrorTagEnum tag, const void* data, ULONG size) {
    // The new entry is made before the old one goes: the key and value given
    // may be the old entry's own (taken from GetErrorInfo or EnumErrorInfo).
    auto* entry = NewOrNull<PErrorInfoEntry>(key, tag, data, size);
    if (PErrorInfoEntry* old = Find(key)) {
      m_entries.Remove(old);
      delete old;
    }
    if (!entry)
      return;
    ULONG before = m_entries.Size();
    m_entries.Append(entry);
    if (m_entries.Size() == before)
      delete entry; // the list had no memory for it
  }

private:
  PErrorInfoList m_entries;
};

// ---------------------------------------------------------------------------
// PErrorInfoHandle

PErrorInfoHandle::PErrorInfoHandle() = default;
PErrorInfoHandle::PErrorInfoHandle(const PErrorInfoHandle& other) = default;
PErrorInfoHandle& PErrorInfoHandle::operator=(const PErrorInfoHandle& other) = default;
PErrorInfoHandle::~PErrorInfoHandle() = default;

PErrorInfoData* PErrorInfoHandle::Info() const { return static_cast<PErrorInfoData*>(GetData()); }

void PErrorInfoHandle::Reset(PErrorInfoData* data) { AssignTo(data); }

// ---------------------------------------------------------------------------
// PError

PError::PError() : m_code(0), m_severity(ErrorSeverityWarning), m_file(nullptr), m_line(0) {}

PError::PError(int code)
    : m_code(code), m_severity(ErrorSeverityAbort), m_file(nullptr), m_line(0) {}

PError::PError(int code, TypErrorSeverityEnum severity)
    : m_code(code), m_severity(severity), m_file(nullptr), m_line(0) {}

PError::PError(int code, TypErrorSeverityEnum severity, const char* file, ULONG line)
    : m_code(code), m_severity(severity), m_file(file), m_line(line) {}

PError::PError(const PError& other)
    : PRoot(other), m_code(other.m_code), m_severity(other.m_severity), m_file(other.m_file),
      m_line(other.m_line), m_info(other.m_info) {}

PError::PError(const PError& other, TypErrorSeverityEnum severity)
    : PRoot(other), m_code(other.m_code), m_severity(severity), m_file(other.m_file),
      m_line(other.m_line), m_info(other.m_info) {}

PError::PError(const PError& other, TypErrorSeverityEnum severity, const char* file, ULONG line)
    : PRoot(other), m_code(other.m_code), m_severity(severity), m_file(file), m_line(line),
      m_info(other.m_info) {}

PError& PError::operator=(const PError& other) {
  m_code = other.m_code;
  m_severity = other.m_severity;
  m_file = other.m_file;
  m_line = other.m_line;
  m_info = other.m_info;
  return *this;
}

PError::~PError() = default;

void PError::SetErrorInfo(const char* key, TypErrorTagEnum tag, const void* data, ULONG size) {
  if (!m_info.Info()) {
    // Without memory for the set, the error simply stays without info.
    auto* info = NewOrNull<PErrorInfoData>();
    if (!info)
      return;
    m_info.Reset(info);
  }
  m_info.Info()->Set(key, tag, data, size);
}

bool PError::GetErrorInfo(const char* key, TypErrorTagEnum tag, const void** data,
                          ULONG* size) const {
  PErrorInfoData* info = m_info.Info();
  PErrorInfoEntry* entry = info ? info->Find(key) : nullptr;
  if (!entry || entry->Tag() != tag)
    return false;
  if (data)
    *data = entry->Value();
  if (size)
    *size = entry->Size();
  return true;
}

bool PError::HasErrorInfo(const char* key, TypErrorTagEnum tag) const {
  return GetErrorInfo(key, tag, nullptr, nullptr);
}

ULONG PError::EnumErrorInfo() const {
  PErrorInfoData* info = m_info.Info();
  return info ? info->Count() : 0;
}

bool PError::EnumErrorInfo(ULONG& index, const char** key, TypErrorTagEnum* tag) const {
  ULONG count = EnumErrorInfo();
  if (index >= count)
    return false;
  PErrorInfoEntry* entry = m_info.Info()->At(index);
  if (key)
    *key = entry->Key();
  if (tag)
    *tag = entry->Tag();
  ++index;
  if (index == count)
    index = 0xFFFFFFFFu;
  return true;
}

void PError::SetIntegerInfo(const char* key, int value) {
  std::int32_t v = value;
  SetErrorInfo(key, ErrorTagInteger, &v, 4);
}

int PError::GetIntegerInfo(const char* key, int defaultValue) const {
  const void* data = nullptr;
  ULONG size = 0;
  if (!GetErrorInfo(key, ErrorTagInteger, &data, &size) || !data || size < 4)
    return defaultValue;
  std::int32_t v;
  std::memcpy(&v, data, 4);
  return v;
}

bool PError::HasStringInfo(const char* key) const { return HasErrorInfo(key, ErrorTagString); }

bool PError::HasIntegerInfo(const char* key) const { return HasErrorInfo(key, ErrorTagInteger); }

void PError::SetStringInfo(const char* key, const PMBString& value) {
  // The stored size is the handler's full size, which for multibyte text
  // counts two bytes past the content. Only the content and its terminator
  // are read - a borrowed text has nothing behind its terminator - and the
  // rest is zero.
  const ULONG full = value.FullSize();
  if (full == 0) {
    SetErrorInfo(key, ErrorTagString, nullptr, 0);
    return;
  }
  try {
    std::string bytes(static_cast<const char*>(value), value.Size());
    bytes.resize(full, '\0');
    SetErrorInfo(key, ErrorTagString, bytes.data(), full);
  } catch (const std::bad_alloc&) {
    // Without memory the detail is not recorded; the error object never throws.
  }
}

PMBString PError::GetStringInfo(const char* key, const char* defaultText) const {
  const void* data = nullptr;
  ULONG size = 0;
  if (!GetErrorInfo(key, ErrorTagString, &data, &size))
    return PMBString(defaultText, true);
  if (!data || size == 0)
    return PMBString();
  // A stored text may come from outside (the object-model bridge): it ends
  // at its terminator or at the end of the stored bytes, whichever is first.
  const char* text = static_cast<const char*>(data);
  if (std::memchr(text, 0, size))
    return PMBString(text, true);
  return PMBString(std::string(text, size).c_str(), true);
}

// ---------------------------------------------------------------------------
// Display

namespace {

PMBString DecimalText(long long value, bool isSigned) {
  char text[32];
  if (isSigned)
    std::snprintf(text, sizeof text, "%lld", value);
  else
    std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(value));
  return PMBString(text, true);
}

// An info text that names itself (^x^ inside info "x") would be inserted
// again and again, growing the text each time. Substitution stops after this
// many replacements, or once the text is this long; the parameters left then
// stay as they stand.
constexpr int kMaxReplacements = 256;
constexpr ULONG kMaxFormattedLength = 64 * 1024;

const char* SeverityDisplayName(TypErrorSeverityEnum severity) {
  switch (severity) {
  case ErrorSeverityWarning:
    return "warning";
  case ErrorSeverityFatal:
    return "fatal error";
  default:
    return "error";
  }
}

} // namespace

PMBString PError::ObtainUnformatedDisplayString() {
  if (HasStringInfo("displaystring"))
    return GetStringInfo("displaystring", "");
  PString text;
  if (PErrorDisplayMapper::MapError(m_code, m_severity, &text)) {
    PMBString display(text);
    SetStringInfo("displaystring", display);
    return display;
  }
  return PMBString();
}

PMBString PError::MakeDisplayString(const PMBString& format) {
  PMBString text(format);
  if (text.IsEmpty())
    return text;
  ULONG from = 0;
  int replacements = 0;
  PASCIIString name;
  ULONG length = 0;
  for (ULONG pos; (pos = text.FindNextParameter(&name, &length, from)) != 0xFFFFFFFFu;) {
    const char* key = name;
    const bool mayReplace = replacements < kMaxReplacements && text.Size() < kMaxFormattedLength;
    if (mayReplace && HasStringInfo(key)) {
      text.Delete(pos, length);
      text.Insert(GetStringInfo(key, ""), pos);
      from = pos; // the inserted text is scanned again
      ++replacements;
    } else if (mayReplace && HasIntegerInfo(key)) {
      text.Delete(pos, length);
      text.Insert(DecimalText(GetIntegerInfo(key, 0), true), pos);
      from = pos;
      ++replacements;
    } else {
      from = pos + length;
    }
  }
  text.SetParameter(PASCIIString("errorcode"), DecimalText(static_cast<unsigned>(m_code), false));
  text.SetParameter(PASCIIString("errorline"), DecimalText(m_line, false));
  text.SetParameter(PASCIIString("errorfile"), PMBString(m_file ? m_file : "", true));
  return text;
}

PMBString PError::GetDisplayString() { return MakeDisplayString(ObtainUnformatedDisplayString()); }

void PError::DbgDisplayOutput(void (*output)(const char*)) const {
  if (!output)
    output = GDbgGetOutputMethod();
  if (!output)
    return;
  if (m_code == kErrNone) {
    output("No Error");
    return;
  }
  // Display texts are cached in the shared info set, as for any copy.
  PMBString display = const_cast<PError*>(this)->GetDisplayString();
  if (display.IsNotEmpty()) {
    output(static_cast<const char*>(display));
    return;
  }
  ULONG index = 0;
  const char* key = nullptr;
  TypErrorTagEnum tag = ErrorTagString;
  while (EnumErrorInfo(index, &key, &tag)) {
    GDbgOutput(output, "(%s)", key);
    if (tag == ErrorTagString)
      GDbgOutput(output, "%s ", static_cast<const char*>(GetStringInfo(key, "")));
    else if (tag == ErrorTagInteger)
      GDbgOutput(output, "%d ", GetIntegerInfo(key, 0));
  }
}

void PError::DbgOutput(void (*output)(const char*)) const {
  if (!output)
    output = GDbgGetOutputMethod();
  if (!output)
    return;
  if (m_code != 0) {
    char line[256];
    if (m_file) {
      output(m_file);
      std::snprintf(line, sizeof line, "(%u): ", static_cast<unsigned>(m_line));
      output(line);
    }
    std::snprintf(line, sizeof line, "%s %i: ", SeverityDisplayName(m_severity), m_code);
    output(line);
  }
  DbgDisplayOutput(output);
}

// ---------------------------------------------------------------------------
// The component-object-model error object

namespace {

class PQVErrorObject final : public IQVError {
public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out)
      return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IQVError)) {
      *out = static_cast<IQVError*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG refs = --m_refs;
    if (refs == 0)
      delete this;
    return refs;
  }
  LONG STDMETHODCALLTYPE GetCode() override { return m_error.Code(); }
  LONG STDMETHODCALLTYPE GetSeverity() override { return m_error.Severity(); }
  ULONG STDMETHODCALLTYPE GetLine() override { return m_error.Line(); }
  const char* STDMETHODCALLTYPE GetFile() override { return m_error.File(); }
  HRESULT STDMETHODCALLTYPE SetError(LONG code, LONG severity, ULONG line,
                                     const char* file) override {
    m_error.SetCode(code);
    m_error.SetSeverity(static_cast<TypErrorSeverityEnum>(severity));
    m_error.SetLine(line);
    m_error.SetFile(file);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetCode(LONG code) override {
    m_error.SetCode(code);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetSeverity(LONG severity) override {
    m_error.SetSeverity(static_cast<TypErrorSeverityEnum>(severity));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetLine(ULONG line) override {
    m_error.SetLine(line);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetFile(const char* file) override {
    m_error.SetFile(file);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetInfo(const char* key, LONG tag, const void* value,
                                    ULONG size) override {
    m_error.SetErrorInfo(key, static_cast<TypErrorTagEnum>(tag), value, size);
    return S_OK;
  }
  BOOL STDMETHODCALLTYPE GetInfo(const char* key, LONG tag, const void** value,
                                 ULONG* size) override {
    return m_error.GetErrorInfo(key, static_cast<TypErrorTagEnum>(tag), value, size) ? TRUE : FALSE;
  }
  ULONG STDMETHODCALLTYPE GetInfoCount() override { return m_error.EnumErrorInfo(); }
  HRESULT STDMETHODCALLTYPE ClearInfo() override {
    m_error = PError(m_error.Code(), m_error.Severity(), m_error.File(), m_error.Line());
    return S_OK;
  }
  BOOL STDMETHODCALLTYPE EnumInfo(ULONG* index, const char** key, LONG* tag) override {
    if (!index)
      return FALSE;
    TypErrorTagEnum t = ErrorTagString;
    bool more = m_error.EnumErrorInfo(*index, key, &t);
    if (more && tag)
      *tag = t;
    return more ? TRUE : FALSE;
  }

private:
  ~PQVErrorObject() = default;
  ULONG m_refs = 0;
  PError m_error;
};

} // namespace

IQVError* PError::QueryIQVError() const {
  auto* object = new (std::nothrow) PQVErrorObject;
  if (!object)
    return nullptr;
  object->AddRef();
  To(object);
  return object;
}

void PError::To(IQVError* target) const {
  if (!target)
    return;
  target->SetError(m_code, m_severity, m_line, m_file);
  ULONG index = 0;
  const char* key = nullptr;
  TypErrorTagEnum tag = ErrorTagString;
  while (EnumErrorInfo(index, &key, &tag)) {
    const void* value = nullptr;
    ULONG size = 0;
    if (GetErrorInfo(key, tag, &value, &size) && value)
      target->SetInfo(key, tag, value, size);
  }
}

void PError::From(IQVError* source) {
  m_info.Reset(nullptr);
  if (!source) {
    m_code = 0;
    m_severity = ErrorSeverityError;
    m_line = 0;
    m_file = "";
    return;
  }
  m_code = source->GetCode();
  m_severity = static_cast<TypErrorSeverityEnum>(source->GetSeverity());
  m_line = source->GetLine();
  m_file = source->GetFile();
  ULONG index = 0;
  const char* key = nullptr;
  LONG tag = 0;
  while (source->EnumInfo(&index, &key, &tag)) {
    const void* value = nullptr;
    ULONG size = 0;
    if (source->GetInfo(key, tag, &value, &size) && value)
      SetErrorInfo(key, static_cast<TypErrorTagEnum>(tag), value, size);
  }
}

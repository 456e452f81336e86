// PSmartData.cpp - reference-counted shared data, its handles, and the
// object-model wrapper that hands a smart data out as an IPersist.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PSmartData.h>

#include <cstring>
#include <new>

namespace {

// The class identifier of classes that have none: all 128 bits zero. Built at
// library start-up; its bytes are zero even before that.
const PUniversalID kNullClassId;

// The typed handle through which a wrapper holds its data.
class SmartDataHolder : public PSmartPtr {
public:
  explicit SmartDataHolder(PSmartData* data) { AssignTo(data); }
  PSmartData* Data() const { return GetData(); }
};

// IUnknown and IPersist over a smart data, for the platform's object model.
// The wrapper keeps its own count and holds one reference to the data for its
// whole life. Deliberately, AddRef and Release move both counts, the
// wrapper's and the data's, and report the data's: the data then lives as
// long as any outside reference to any of its wrappers.
class PSmartDataUnknown : public IPersist {
public:
  explicit PSmartDataUnknown(PSmartData* data) : m_refCount(0), m_data(data) {}

  PSmartDataUnknown(const PSmartDataUnknown&) = delete;
  PSmartDataUnknown& operator=(const PSmartDataUnknown&) = delete;

  // IUnknown and IPersist answer with the wrapper itself; any other interface
  // is the data's to give.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    void* self = nullptr;
    if (IsEqualGUID(iid, IID_IUnknown) || IsEqualGUID(iid, IID_IPersist))
      self = static_cast<IUnknown*>(this);
    return SmartDataQueryInterface(m_data.Data(), iid, out, self);
  }

  ULONG STDMETHODCALLTYPE AddRef() override {
    ++m_refCount;
    PSmartData* data = m_data.Data();
    return data ? data->AddRef() : 0;
  }

  ULONG STDMETHODCALLTYPE Release() override {
    --m_refCount;
    // The wrapper's own reference keeps the data alive through this call.
    PSmartData* data = m_data.Data();
    ULONG dataCount = data ? data->Release() : 0;
    if (m_refCount == 0)
      delete this;
    return dataCount;
  }

  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* out) override {
    PSmartData* data = m_data.Data();
    return data ? data->GetClassID(out) : E_POINTER;
  }

  virtual ~PSmartDataUnknown() = default;

private:
  ULONG m_refCount;
  SmartDataHolder m_data;
};

} // namespace

// --- PSmartData ---

PSmartData::PSmartData() : m_refCount(0) {}

PSmartData::PSmartData(const PSmartData& other) : PRoot(other), m_refCount(0) {}

PSmartData::~PSmartData() = default;

PSmartData& PSmartData::operator=(const PSmartData&) { return *this; }

void PSmartData::Initialize() {}

void PSmartData::Uninitialize() {}

const PUniversalID& PSmartData::DC_CLSID() const { return kNullClassId; }

HRESULT PSmartData::QueryInterface(const _GUID& iid, void** out) const {
  // Two deliberate guards beyond the bare algorithm: a null `out` is refused
  // instead of written through, and a failed query leaves a null interface
  // behind, as object-model callers expect. Successful queries are unchanged.
  if (!out)
    return E_POINTER;
  *out = nullptr;
  if (IsEqualGUID(iid, IID_IPersist)) {
    if (!DC_CLSID().IsValid())
      return E_NOINTERFACE;
  } else if (!IsEqualGUID(iid, IID_IUnknown)) {
    return E_NOINTERFACE;
  }
  // A fresh wrapper every time: two queries give two distinct pointers.
  PSmartDataUnknown* wrapper = new (std::nothrow) PSmartDataUnknown(const_cast<PSmartData*>(this));
  if (!wrapper)
    return E_OUTOFMEMORY;
  *out = static_cast<IPersist*>(wrapper);
  wrapper->AddRef();
  return S_OK;
}

HRESULT PSmartData::GetClassID(_GUID* out) const {
  if (!out)
    return E_INVALIDARG;
  std::memcpy(out, static_cast<const _GUID*>(DC_CLSID()), sizeof(_GUID));
  return S_OK;
}

ULONG PSmartData::AddRef() const {
  ULONG count = ++m_refCount;
  if (count == 1)
    const_cast<PSmartData*>(this)->Initialize();
  return count;
}

ULONG PSmartData::Release() const {
  ULONG count = --m_refCount;
  if (count == 0) {
    PSmartData* self = const_cast<PSmartData*>(this);
    self->Uninitialize();
    delete self;
  }
  return count;
}

ULONG PSmartData::NumSmartLocks() const { return m_refCount; }

bool PSmartData::IsSmartPointed() const { return m_refCount != 0; }

bool PSmartData::IsSmartLocked() const { return m_refCount > 1; }

bool PSmartData::operator==(const PSmartData&) const { return true; }

bool PSmartData::operator!=(const PSmartData&) const { return false; }

// --- PSmartPtr ---

PSmartPtr::PSmartPtr() : m_data(nullptr) {}

PSmartPtr::PSmartPtr(const PSmartPtr& other) : PRoot(other), m_data(nullptr) {
  AssignTo(other.m_data);
}

PSmartPtr::~PSmartPtr() { AssignTo(nullptr); }

PSmartPtr& PSmartPtr::operator=(const PSmartPtr& other) {
  AssignTo(other.m_data);
  return *this;
}

void PSmartPtr::AssignTo(PSmartData* data) {
  if (data)
    data->AddRef();
  if (m_data)
    m_data->Release();
  m_data = data;
}

PSmartData* PSmartPtr::GetData() const { return m_data; }

PSmartPtr::operator void*() const { return m_data; }

bool PSmartPtr::IsNull() const { return m_data == nullptr; }

bool PSmartPtr::IsNotValid() const { return m_data == nullptr; }

bool PSmartPtr::IsValid() const { return m_data != nullptr; }

bool PSmartPtr::IsNotNull() const { return m_data != nullptr; }

HRESULT PSmartPtr::QueryInterface(const _GUID& iid, void** out) const {
  return SmartDataQueryInterface(m_data, iid, out, nullptr);
}

HRESULT PSmartPtr::GetClassID(_GUID* out) const {
  return m_data ? m_data->GetClassID(out) : E_POINTER;
}

// --- Queries ---

HRESULT SmartDataQueryInterface(PSmartData* data, const _GUID& iid, void** out, void* self) {
  if (!out || !data)
    return E_POINTER;
  if (self) {
    *out = self;
    static_cast<IUnknown*>(self)->AddRef();
    return S_OK;
  }
  return data->QueryInterface(iid, out);
}

// PInterfacePtr.cpp - handles on foreign component-object-model interfaces.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PInterfacePtr.h>

#include <qvbase/WINError.h>

#include "errors/RaiseError.h"
#include "native/ComClasses.h"

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PInterfacePtr";
constexpr ULONG kAssignToLine = 81;
constexpr ULONG kCreateDataLine = 93;

// The failed status becomes an error with the code and details of its
// platform mapping.
void RaiseStatus(HRESULT status, ULONG line) {
  qvbase::errors::Raise(WINError(static_cast<ULONG>(status)), ErrorSeverityError, kSourceFile,
                        line);
}

} // namespace

PInterfacePtr::PInterfacePtr() : m_interface(nullptr) {}

PInterfacePtr::PInterfacePtr(IUnknown* object) : m_interface(object) {
  if (m_interface)
    m_interface->AddRef();
}

PInterfacePtr::PInterfacePtr(const PInterfacePtr& other)
    : PRoot(other), m_interface(other.m_interface) {}

PInterfacePtr& PInterfacePtr::operator=(const PInterfacePtr& other) {
  m_interface = other.m_interface;
  return *this;
}

PInterfacePtr::~PInterfacePtr() {
  if (m_interface)
    m_interface->Release();
}

void PInterfacePtr::AssignTo(IUnknown* object) {
  IUnknown* old = m_interface;
  m_interface = object;
  if (m_interface)
    m_interface->AddRef();
  if (old)
    old->Release();
}

void PInterfacePtr::AssignTo(IUnknown* object, const PUniversalID& iid) {
  IUnknown* old = m_interface;
  HRESULT status = E_POINTER; // a null object has no interface to give
  m_interface = nullptr;
  if (object) {
    void* result = nullptr;
    status = object->QueryInterface(iid, &result);
    m_interface = static_cast<IUnknown*>(result);
  }
  if (old)
    old->Release();
  if (FAILED(status)) {
    m_interface = nullptr;
    RaiseStatus(status, kAssignToLine);
  }
}

void PInterfacePtr::CreateData(const PUniversalID& clsid, const PUniversalID& iid) {
  IUnknown* old = m_interface;
  void* result = nullptr;
  HRESULT status =
      qvbase::native::CreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, &result);
  m_interface = static_cast<IUnknown*>(result);
  if (old)
    old->Release();
  if (FAILED(status)) {
    m_interface = nullptr;
    RaiseStatus(status, kCreateDataLine);
  }
}

HRESULT GRegisterClassFactory(const PUniversalID& clsid, TypClassCreateFunction create) {
  return qvbase::native::RegisterClassFactory(clsid, create);
}

HRESULT GUnregisterClassFactory(const PUniversalID& clsid) {
  return qvbase::native::UnregisterClassFactory(clsid);
}

// PInterfacePtr.h - handles on foreign component-object-model interfaces.
// Part of qvbase, the QVKernel foundation class library.
//
// PInterfacePtr is the base of typed handles on IUnknown-based interfaces,
// created with CoCreateInstance (CreateData) or obtained by QueryInterface
// (AssignTo with an identifier). The destructor releases the interface.
//
// Deliberately, copying a PInterfacePtr copies the raw pointer only - no
// AddRef on the new one, no Release of the old - while the destructor does
// Release: a derived handle that copies manages the count itself.
//
//   class PPersistPtr : public PInterfacePtr {
//   public:
//     explicit PPersistPtr(IUnknown* object) { AssignTo(object, IID_IPersist); }
//     IPersist* operator->() const { return static_cast<IPersist*>(GetData()); }
//   };
//
// Creating or querying an interface that is not there raises a PError
// through the protections; the handle is null afterwards.
//
// Classes that this process provides itself are registered with
// GRegisterClassFactory; CreateData finds them first. On Windows any other
// class comes from the system (CoCreateInstance); elsewhere it is
// REGDB_E_CLASSNOTREG.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/PUniversalID.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The base of typed handles on IUnknown-based interfaces.
class QVBASE_API PInterfacePtr : public PRoot {
public:
  bool IsNull() const { return m_interface == nullptr; }
  bool IsNotValid() const { return m_interface == nullptr; }
  bool IsValid() const { return m_interface != nullptr; }
  bool IsNotNull() const { return m_interface != nullptr; }

protected:
  // The raw interface pointer; typed handles expose it as their interface.
  IUnknown* GetData() const { return m_interface; }

  PInterfacePtr();
  // Takes a reference on `object` (which may be null).
  explicit PInterfacePtr(IUnknown* object);
  // The raw pointer only: no reference is taken.
  PInterfacePtr(const PInterfacePtr& other);
  PInterfacePtr& operator=(const PInterfacePtr& other);
  // Releases the interface.
  ~PInterfacePtr() override;

  // Holds `object` with a reference of its own, then releases the old one.
  void AssignTo(IUnknown* object);
  // Holds `object`'s interface `iid`; on failure raises an error (and the
  // handle is null).
  void AssignTo(IUnknown* object, const PUniversalID& iid);
  // Creates an in-process instance of `clsid` and holds its interface `iid`;
  // on failure raises an error (and the handle is null).
  void CreateData(const PUniversalID& clsid, const PUniversalID& iid);

private:
  IUnknown* m_interface;
};

// Makes a class of this process creatable by CreateData: `create` answers
// the interface asked for, with one reference, like a class factory. A class
// registered again takes the new function.
typedef HRESULT (*TypClassCreateFunction)(const _GUID& iid, void** out);
QVBASE_API HRESULT GRegisterClassFactory(const PUniversalID& clsid, TypClassCreateFunction create);
QVBASE_API HRESULT GUnregisterClassFactory(const PUniversalID& clsid);

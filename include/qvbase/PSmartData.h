// PSmartData.h - reference-counted shared data and the handles that share it.
// Part of qvbase, the QVKernel foundation class library.
//
// Every heap object of the library that may be shared derives from
// PSmartData, which carries an intrusive reference count and a small
// object-model surface (QueryInterface, GetClassID, DC_CLSID). It is reached
// only through handles derived from PSmartPtr; each handle owns exactly one
// reference. The first reference runs Initialize, the last release runs
// Uninitialize and then deletes the object. A data that never gets a handle
// is never deleted by this mechanism.
//
// Counts are plain, unlocked integers: a PSmartData may be shared between
// threads only if those threads synchronise their handle operations
// themselves.
//
//   class PNoteData : public PSmartData { ... };
//   class PNote : public PSmartPtr {            // a typed handle
//   public:
//     PNote() { AssignTo(new PNoteData); }      // count 1, Initialize ran
//     PNoteData* Data() const { return static_cast<PNoteData*>(GetData()); }
//   };
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/PUniversalID.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// Reference-counted data shared by the handles (PSmartPtr) that point at it.
class QVBASE_API PSmartData : public PRoot {
public:
  // Both start with a count of 0: a copy is a new, unshared object.
  PSmartData();
  PSmartData(const PSmartData& other);
  // Does not check the count.
  ~PSmartData() override;

  // Copies nothing (the count in particular stays) and returns the object.
  PSmartData& operator=(const PSmartData& other);

  // Called when the count goes from 0 to 1. Empty here.
  virtual void Initialize();
  // Called when the count goes from 1 to 0, just before the object deletes
  // itself. Empty here.
  virtual void Uninitialize();

  // The class identifier of the concrete class; here the null identifier.
  virtual const PUniversalID& DC_CLSID() const;

  // IID_IUnknown gives a new object-model wrapper over this data, and so does
  // IID_IPersist when DC_CLSID() is not null; anything else is
  // E_NOINTERFACE. Every call makes a fresh wrapper (no identity caching),
  // which holds a reference to the data until it is released.
  virtual HRESULT QueryInterface(const _GUID& iid, void** out) const;

  // Copies DC_CLSID() into *out; E_INVALIDARG for a null out.
  virtual HRESULT GetClassID(_GUID* out) const;

  // One more reference; runs Initialize on the first. Returns the new count.
  ULONG AddRef() const;
  // One reference less; on the last runs Uninitialize and deletes the object.
  // Returns the new count. Releasing an object whose count is already 0 is
  // not guarded against.
  ULONG Release() const;

  ULONG NumSmartLocks() const;
  // The data has at least one handle.
  bool IsSmartPointed() const;
  // The data is shared by more than one handle: a handle that wants to modify
  // it must first make its own copy.
  bool IsSmartLocked() const;

  // Deliberately, every two PSmartData compare equal at this level; derived
  // classes that need a real comparison provide their own.
  bool operator==(const PSmartData& other) const;
  bool operator!=(const PSmartData& other) const;

private:
  mutable ULONG m_refCount;
};

// The base of typed handles over a PSmartData. A handle owns one reference to
// its data, or none when it is empty. Copies share the data.
class QVBASE_API PSmartPtr : public PRoot {
public:
  // The raw data pointer; no reference is taken.
  operator void*() const;

  bool IsNull() const;
  bool IsNotValid() const;
  bool IsValid() const;
  bool IsNotNull() const;

  // SmartDataQueryInterface on the held data: E_POINTER for an empty handle.
  HRESULT QueryInterface(const _GUID& iid, void** out) const;
  // The data's GetClassID; E_POINTER for an empty handle.
  HRESULT GetClassID(_GUID* out) const;

protected:
  PSmartPtr();
  PSmartPtr(const PSmartPtr& other);
  // Releases the data.
  ~PSmartPtr() override;

  PSmartPtr& operator=(const PSmartPtr& other);

  // Takes a reference to `data` (which may be null) before dropping the one
  // it held, so that assigning the data a handle already holds is safe.
  void AssignTo(PSmartData* data);

  // The raw data pointer; no reference is taken.
  PSmartData* GetData() const;

private:
  PSmartData* m_data;
};

// The query behind PSmartPtr::QueryInterface and the object-model wrappers:
// E_POINTER when `out` or `data` is null; else, when `self` is not null,
// `self` (an IUnknown) goes to *out with one more reference; else the data's
// own QueryInterface answers.
QVBASE_API HRESULT SmartDataQueryInterface(PSmartData* data, const _GUID& iid, void** out,
                                           void* self);

// PUniversalID.h - 128-bit universal identifiers.
// Part of qvbase, the QVKernel foundation class library.
//
// PUniversalID is a value wrapper over the platform's _GUID, used for class
// identifiers (DC_CLSID), interface identifiers and object-model calls. It is
// copied by value and compares bytewise; the null identifier has all 128 bits
// zero. What is here is what the object core needs: construction, copying,
// comparison and access to the stored _GUID. The text form and the creation
// of fresh identifiers come with the rest of the identifiers family.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class QVBASE_API PUniversalID : public PRoot {
public:
  // The null identifier.
  PUniversalID();
  PUniversalID(const _GUID& id);
  PUniversalID(const PUniversalID& other);
  ~PUniversalID() override;

  PUniversalID& operator=(const PUniversalID& other);

  // True if any of the 128 bits is set.
  bool IsValid() const;

  bool operator==(const PUniversalID& other) const;
  bool operator!=(const PUniversalID& other) const;
  bool operator==(const _GUID& other) const;
  bool operator!=(const _GUID& other) const;

  // The 16 bytes by value, and the address of the stored identifier.
  operator _GUID() const;
  operator const _GUID*() const;

private:
  _GUID m_id;
};

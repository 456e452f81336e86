// NResource.h - where resources live, their types, and string resources.
// Part of qvbase, the QVKernel foundation class library.
//
// Every resource of the suite (strings, tagged structures, raw data) is
// addressed by small value classes:
//   - NResourceLocation: the module that holds the resources (its handle,
//     the "container") and a base added to every identifier, so that the
//     resources of several modules can be gathered into one resource file
//     with shifted identifiers. A component file's ResourceLocation gives
//     it; NTesselResourceLocation is this library's own.
//   - NResourceType: a resource type, portable as a four-character code
//     ("STR ", "RAWC") and native as a Windows type number or type name.
//   - NResourceDesc: one resource: location (base already including the
//     resource's identifier) and type.
//   - NResourceString: one string resource; converting it to PMBString loads
//     the text, or, when the module lacks it, gives a visible fallback text
//     and invalidates the NResourceString.
//
//   NResourceString title(/*number=*/12, component.ResourceLocation());
//   PMBString text = title;          // string 12 + base, from the module
//   PMBString same = GTesselString(1229);   // one of this library's texts
//
// All are plain values: copies copy every field, nothing is shared. A module
// handle is the platform's (an HMODULE on Windows, a module loaded by
// QVComponent elsewhere) and must stay loaded while its resources are read.
// Nothing here takes a lock.
#pragma once

#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// Portable type codes: four characters, the first in the most significant
// byte. Each corresponds to one Windows resource type number (see
// NResourceType).
constexpr ULONG kResTypeCursor = 0x43555253;         // "CURS", native 1
constexpr ULONG kResTypeBitmap = 0x50494354;         // "PICT", native 2
constexpr ULONG kResTypeIcon = 0x49434F4E;           // "ICON", native 3
constexpr ULONG kResTypeMenu = 0x4D454E55;           // "MENU", native 4
constexpr ULONG kResTypeDialog = 0x4449414C;         // "DIAL", native 5
constexpr ULONG kResTypeString = 0x53545220;         // "STR ", native 6
constexpr ULONG kResTypeFontDirectory = 0x46444952;  // "FDIR", native 7
constexpr ULONG kResTypeFont = 0x464F4E54;           // "FONT", native 8
constexpr ULONG kResTypeAccelerator = 0x41434345;    // "ACCE", native 9
constexpr ULONG kResTypeRawData = 0x52415743;        // "RAWC", native 10
constexpr ULONG kResTypeMessageTable = 0x4D534754;   // "MSGT", native 11
constexpr ULONG kResTypeGroupCursor = 0x47435552;    // "GCUR", native 12
constexpr ULONG kResTypeGroupIcon = 0x4749434F;      // "GICO", native 14
constexpr ULONG kResTypeVersion = 0x56455253;        // "VERS", native 16
constexpr ULONG kResTypeDialogInclude = 0x444C4749;  // "DLGI", native 17
constexpr ULONG kResTypePlugAndPlay = 0x506E506C;    // "PnPl", native 19
constexpr ULONG kResTypeVxd = 0x56784420;            // "VxD ", native 20
constexpr ULONG kResTypeAnimatedCursor = 0x41435552; // "ACUR", native 21
constexpr ULONG kResTypeAnimatedIcon = 0x4149434F;   // "AICO", native 22

// Where resources live: a module handle (0 = none) and the base added to
// every identifier read from it.
class QVBASE_API NResourceLocation : public PRoot {
public:
  // (0, 0): no module.
  NResourceLocation();
  // Base 0.
  explicit NResourceLocation(void* container);
  NResourceLocation(void* container, ULONG base);
  NResourceLocation(const NResourceLocation& other);
  NResourceLocation& operator=(const NResourceLocation& other);
  ~NResourceLocation() override;

  // A module is named.
  bool IsValid() const { return m_container != nullptr; }
  bool IsNotValid() const { return !IsValid(); }
  // Same module and same base.
  bool operator==(const NResourceLocation& other) const;
  bool operator!=(const NResourceLocation& other) const { return !(*this == other); }

  void* ResourceContainer() const { return m_container; }
  ULONG ResourceBase() const { return m_base; }

private:
  void* m_container;
  ULONG m_base;
};

// Where this library's own resources live: what gTesselComponentFile's
// ResourceLocation answers when the default constructor runs (the QVKernel
// component's resource module, QVKernelRes12, and the Tessel part's offset).
// Any location can be given to it or assigned to it.
class QVBASE_API NTesselResourceLocation : public NResourceLocation {
public:
  NTesselResourceLocation();
  NTesselResourceLocation(const NResourceLocation& location);
  NTesselResourceLocation& operator=(const NResourceLocation& location);
  ~NTesselResourceLocation() override;
};

// A resource type: a portable four-character code, and the native form
// Windows is asked with: a type number, or (number 0) a type name.
//
// The portable codes of the native numbers 1-12, 14, 16, 17 and 19-22 are
// fixed (kResType... above); numbers 13, 15, 18 and those above 22 have none.
class QVBASE_API NResourceType : public PRoot {
public:
  // Portable 0 (not valid), no native form.
  NResourceType();
  // From a portable code: a code of the table gets its native number; any
  // other code becomes a native type name of its four characters.
  NResourceType(ULONG portable);
  // From a native value in the Windows integer-resource convention: a value
  // up to 65535 is a type number, anything above points at a type name.
  //   - a number of the table takes the table's portable code (`portable`
  //     is ignored); any other number takes `portable`;
  //   - a name is kept as text; the portable code is `portable` when it is
  //     not 0, else the name's first four characters packed with the first in
  //     the most significant byte (a shorter name packs as though padded
  //     with zero bytes).
  NResourceType(const char* native, ULONG portable);
  NResourceType(const NResourceType& other);
  NResourceType& operator=(const NResourceType& other);
  ~NResourceType() override;

  bool IsValid() const { return m_portable != 0; }
  ULONG PortableType() const { return m_portable; }
  // What FindResourceA takes as the type: the native number as a pointer
  // when it is not 0, else the name's text.
  const char* NativeType() const;
  // The native number, 0 when the native form is a name.
  ULONG NativeNumber() const { return m_nativeNumber; }

  // Types compare by their portable codes.
  bool operator==(const NResourceType& other) const { return m_portable == other.m_portable; }
  bool operator!=(const NResourceType& other) const { return m_portable != other.m_portable; }
  bool operator==(ULONG portable) const { return m_portable == portable; }
  bool operator!=(ULONG portable) const { return m_portable != portable; }

private:
  void MakeNativeFromPortable();
  void CopyNative(const NResourceType& other);

  ULONG m_portable;
  ULONG m_nativeNumber;
  PASCIIString m_nativeName;
};

// One resource: its module, its identifier (the location's base plus the
// identifier the code uses) and its type.
class QVBASE_API NResourceDesc : public PRoot {
public:
  NResourceDesc();
  // Container of `location`; base = location's base + id.
  NResourceDesc(NResourceLocation location, NResourceType type, ULONG id);
  NResourceDesc(const NResourceDesc& other);
  NResourceDesc& operator=(const NResourceDesc& other);
  ~NResourceDesc() override;

  const NResourceLocation& Location() const { return m_location; }
  const NResourceType& Type() const { return m_type; }
  // A module and a portable type.
  bool IsValid() const;
  bool IsNotValid() const { return !IsValid(); }

  // Same module, same identifier, same portable type.
  bool operator==(const NResourceDesc& other) const;
  // Deliberately not the negation of ==: true when the modules differ AND
  // the identifiers differ, or when the types differ. Two descriptions that
  // differ only in module, or only in identifier, are neither equal nor
  // unequal. Kept as the library has always answered: code that tests for
  // "another resource" with != relies on it.
  bool operator!=(const NResourceDesc& other) const;

private:
  NResourceLocation m_location;
  NResourceType m_type;
};

// One string resource: its module and its identifier, already shifted by the
// location's base.
class QVBASE_API NResourceString : public PRoot {
public:
  NResourceString();
  // Identifier = number + location's base.
  NResourceString(ULONG number, NResourceLocation location);
  NResourceString(const NResourceString& other);
  NResourceString& operator=(const NResourceString& other);
  ~NResourceString() override;

  void* ResourceContainer() const { return m_location.ResourceContainer(); }
  // The shifted identifier.
  ULONG ResourceNum() const { return m_location.ResourceBase(); }
  NResourceLocation ResourceLocation() const { return m_location; }
  bool IsValid() const { return m_location.IsValid(); }
  bool operator==(const NResourceString& other) const { return m_location == other.m_location; }
  bool operator!=(const NResourceString& other) const { return m_location != other.m_location; }

  // Loads the text with LoadStringA, in a buffer that starts at 128 bytes
  // and grows by 128 while the text may have been cut. A string the module
  // lacks never raises: the text is then
  //   "****<module path>: UNDEFINED RESOURCE STRING #<identifier>****"
  // ("^module^" stays when the module's path cannot be had), and this
  // object is cleared (module and identifier 0, no longer valid). That
  // change is intended: a caller sees once that the string is missing, and
  // holders such as the error protections keep the fallback text without
  // asking the module again.
  operator PMBString();
  // The same resource described with the string type.
  operator NResourceDesc() const;

private:
  NResourceLocation m_location; // base = the string's shifted identifier
};

// This library's own resources, at gTesselComponentFile's location (read at
// each call).
//   GTesselResource: resource `id` of that type.
//   GTesselResourceString: string `number`.
//   GTesselString: string `number`'s text, or the fallback text when the
//     library's resource module lacks it or was not found.
QVBASE_API NResourceDesc GTesselResource(const NResourceType& type, ULONG id);
QVBASE_API NResourceString GTesselResourceString(ULONG number);
QVBASE_API PMBString GTesselString(ULONG number);

// PComponent.h - components, component files and the library's own registration.
// Part of qvbase, the QVKernel foundation class library.
//
// A component is a named, versioned product of the suite (QVKernel 1.2, the
// operating system); a component file is one module (DLL, EXE, OCX, resource
// file, server) that belongs to it. The suite's component registry,
// QVComponent, keeps them; the classes here are the library's thin,
// reference-counted face on it:
//
// - PComponent and PComponentFile are handles: each object owns one
//   reference on a registry handle and gives it back when destroyed; copies
//   share the handle with a reference of their own.
// - PComponentFile::Init declares a module running and puts the object into
//   gComponentFileList, the process's list of registered files; destroying
//   it declares the module stopping. Every module of the suite does this
//   once, at load; the library does it for itself (gTesselComponentFile,
//   part "Tessel" of gQVKernelComponent) when it is loaded.
// - Nothing here throws or raises an error: whatever the registry or the
//   Windows registry refuses gives the empty answer (0, an empty string, an
//   empty handle), and registration steps that fail are skipped.
//
// gComponentFileList and the cached system version are process-wide and
// unsynchronised: register and enumerate from the thread that loads modules
// and runs the main loop.
//
//   PComponent suite("Components", "MySuite", 3, 1, "MySuiteRes.dll");
//   static PComponentFile myFile;
//   myFile.Init(suite, PASCIIString("Viewer"), myInstance, "DLL", 3, 1, 0, 12, 0);
//   NResourceLocation strings = myFile.ResourceLocation();
#pragma once

#include <qvbase/NResource.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PList.h>
#include <qvbase/PRoot.h>
#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class PComponentFile;
struct QVCompFunctionTable;

// A component of the suite. The handle is 0 when no component is held.
class QVBASE_API PComponent : public PRoot {
public:
  typedef bool (*FileCallback)(const PComponentFile& file, void* context);

  // Obtains the component (name, major, minor) from the registry; the handle
  // stays 0 when the registry refuses. The category is accepted and not used.
  PComponent(const char* category, const char* name, ULONG major, ULONG minor);
  // The same, and records `defaultResourceFile` as the component's resource
  // file in the Windows registry (HKEY_LOCAL_MACHINE, below the registry
  // library's resources path): a name ending in ".dll" (any case) as the
  // value "DefResFile"; any other name as the default value of the subkey
  // "ResourceSets", "<component text>,<file name>". A value that already
  // holds that text is not written again, so loading a module leaves the
  // registry untouched after the first time. Nothing is recorded when the
  // component could not be obtained, and any failure ends the recording
  // silently.
  PComponent(const char* category, const char* name, ULONG major, ULONG minor,
             const char* defaultResourceFile);
  // Wraps a registry handle, taking a reference of its own when non-zero.
  explicit PComponent(void* handle);
  PComponent(const PComponent& other);
  // Takes the other's handle (with a reference) before giving back its own,
  // so that assigning an object to itself keeps the handle alive.
  PComponent& operator=(const PComponent& other);
  // Releases the handle; also when it is 0 (the registry refuses that).
  ~PComponent() override;

  // From the registry's component infos; empty, or 0, when they cannot be read.
  PASCIIString Name() const;
  PASCIIString Type() const;
  ULONG MajorVersion() const;
  ULONG MinorVersion() const;

  // The name shown to users (multibyte); empty when the registry has none.
  PString DisplayName() const;
  void SetDisplayName(const PString& text);

  // The component's registry path (relative to HKEY_LOCAL_MACHINE):
  // the registry library's path of kind 2 when `alternate`, else of kind 0.
  PString GetRegistryPath(bool alternate) const;

  // The component's resource module: the one given here, else the one the
  // registry library finds from the recorded resource file; 0 when none.
  void SetResHandle(void* module);
  void* ObtainResHandle() const;

  // Calls `callback` with the best running file of each part of the
  // component, until it returns false. A part without a running file is
  // passed over and the enumeration goes on. The file object lives for the
  // call only.
  void EnumerateFiles(FileCallback callback, void* context) const;
  // The same for the parts whose type is `type` ("DLL", "EXE", ... by their
  // first letter; see PComponentFile::TypeCodeFromText).
  void EnumerateFilesByType(const char* type, FileCallback callback, void* context) const;

  // The registry handle; no reference is taken.
  void* Handle() const { return m_handle; }

protected:
  void* m_handle;
};

// One module of a component, known to the registry by a file handle.
class QVBASE_API PComponentFile : public PRoot {
public:
  // Wraps a registry handle (a reference of its own when non-zero); not
  // registered. The flag is accepted and not used.
  explicit PComponentFile(void* handle = nullptr, bool unused = false);
  PComponentFile(const PComponentFile& other, bool unused = false);
  // When registered: declares the file stopping and leaves
  // gComponentFileList. Then releases the handle, also when it is 0.
  ~PComponentFile() override;
  // When registered: leaves gComponentFileList without declaring the file
  // stopping (the registry still holds it running), and is no longer
  // registered. Takes the other's handle with a reference, then gives back
  // its own.
  PComponentFile& operator=(const PComponentFile& other);

  // Runs at the end of every Init, whether registration succeeded or not. A
  // derived component file runs its own start-up here; the default does
  // nothing.
  virtual void Initialize();

  // Registers this object as a running file of `component`: obtains the file
  // (by module instance, or by path), gives the registry its versions,
  // declares it running (as part `partName` of the component in the forms
  // that name one, with the part's type from `type`: "DLL", "EXE", "OCX",
  // "SERVER", "RES" by their first letter), and appends this object to
  // gComponentFileList. When the file cannot be obtained nothing is
  // registered. Initialize() runs in every case. An object that was already
  // registered leaves the list first (without declaring its old file
  // stopping).
  //
  // The path form takes a PString: a plain `const char*` path would choose
  // the module-instance form.
  void Init(const PComponent& component, void* moduleInstance, const char* type, ULONG major,
            ULONG minor, ULONG fixes, ULONG build, ULONG extra);
  void Init(const PComponent& component, const PASCIIString& partName, void* moduleInstance,
            const char* type, ULONG major, ULONG minor, ULONG fixes, ULONG build, ULONG extra);
  void Init(const PComponent& component, const PASCIIString& partName, const PString& path,
            const char* type, ULONG major, ULONG minor, ULONG fixes, ULONG build, ULONG extra);

  // The part's name when the file belongs to a part, else the file's name;
  // empty when neither can be read.
  PASCIIString Name() const;
  // The text of the part's type code; empty when the file has no part.
  PASCIIString Type() const;
  // The file's full path (multibyte); empty when it cannot be read.
  PString Path() const;
  ULONG MajorVersion() const;
  ULONG MinorVersion() const;
  ULONG FixesVersion() const;
  ULONG BuildNumber() const;
  // "1.2.0", or with the build "1.2.0 (27)"; empty when the infos cannot be
  // read.
  PASCIIString VersionString(bool withBuild) const;

  // Where the file's resources live: its component's resource module and
  // its part's identifier offset (with the component's); (0, 0) when the
  // file has no part or the registry has no module for the component.
  NResourceLocation ResourceLocation() const;
  // Sets the identifier offset of the file's part; nothing without a part.
  void SetResourceOffset(int offset);

  // The component of the file's part; empty when there is none.
  //
  // Deliberately, the references this obtains on the part and on the
  // component are not given back: each call leaves one more of each with the
  // registry, and the returned object holds a reference of its own besides.
  // Modules built against the registry's behaviour rely on what it keeps
  // alive this way, so the imbalance stays.
  PComponent GetComponent() const;

  // The code of a type text, from its first character only, ignoring case:
  // D 1 (DLL), S 3 (SERVER), E 13 (EXE), O 0x40000003 (OCX), R 0x80000000
  // (RES); a null text or any other letter 0.
  //
  // Deliberately, "System" therefore reads back as 3, the code of SERVER,
  // not 16: the table is kept as the suite's modules have always read it.
  static ULONG TypeCodeFromText(const char* type);
  // The text of a type code: 1 "DLL", 3 and 7 "SERVER", 13 "EXE",
  // 16 "System", 0x40000003 and 0x40000007 "OCX", 0x80000000 "RES", any
  // other "". Deliberately not the inverse of TypeCodeFromText: 7, 16 and
  // 0x40000007 are never produced from a text.
  static const char* TypeTextFromCode(ULONG code);

  // The registry handle; no reference is taken.
  void* Handle() const { return m_handle; }
  // Whether Init has put this object into gComponentFileList.
  bool IsRegistered() const { return m_registered; }

protected:
  void* m_handle;
  bool m_registered;

private:
  // Steps of Init after the file handle is obtained.
  void TakeHandle(void* handle);
  void SetInfos(ULONG major, ULONG minor, ULONG fixes, ULONG build, ULONG extra);
  void DeclareRunning(const PComponent* component, const char* partName, const char* type);
  void SetTypeOfOwnPart(const char* type);
  void Unregister();
};

// The component file that stands for this library (gTesselComponentFile).
class QVBASE_API PTesselComponentFile : public PComponentFile {
public:
  PTesselComponentFile();
  ~PTesselComponentFile() override;
};

// The operating system as a component: named after the platform ("WinNT",
// "Win95", "Win32s"; on POSIX systems the system's own name, "Linux"), with
// the system's major and minor version, and as display name the service-pack
// text (on POSIX the distribution's name), or "Unknown" when the system
// cannot say.
class QVBASE_API WINSystemComponent : public PComponent {
public:
  WINSystemComponent();
  ~WINSystemComponent() override;

  // True once the platform was found to be the Windows NT family.
  bool IsNT() const;
  // The logged-on user's name, fetched on the first call and kept; empty
  // when the system cannot say.
  PString UserName();

private:
  bool m_userNameFetched;
  PString m_userName;
};

// The list of registered component files: pointers to PComponentFile, not
// owned, in the order they registered.
class QVBASE_API PComponentFileList : public PList {
public:
  PComponentFileList();
  PComponentFileList(const PComponentFileList&) = delete;
  PComponentFileList& operator=(const PComponentFileList&) = delete;

  void Add(PComponentFile* file) { AddAnObjectTail(file); }
  // Removes the first occurrence, if any.
  void Remove(PComponentFile* file) { RemoveAnObject(file); }
  bool Contains(const PComponentFile* file) const { return GetAnIndex(file) != kListNoIndex; }
  // The file at `index`; null past the end.
  PComponentFile* At(ULONG index) const { return static_cast<PComponentFile*>(GetAnObject(index)); }
};

// The library's component, QVKernel 1.2, whose default resource file is
// "QVKernelRes12.dll". Constructed when the library is loaded.
QVBASE_API extern PComponent gQVKernelComponent;
// The library's own component file: part "Tessel" of gQVKernelComponent,
// type DLL, version 1.2.0 build 27, registered when the library is loaded
// and declared stopping when it is unloaded.
QVBASE_API extern PTesselComponentFile gTesselComponentFile;
// The operating-system component, and a read-only view of it.
QVBASE_API extern WINSystemComponent gNSystemComponent;
QVBASE_API extern const PComponent* const gSystemComponent;
// Every component file whose Init registered it.
QVBASE_API extern PComponentFileList gComponentFileList;

// Calls `callback` with each running component of the process (a temporary
// PComponent), until it returns false; the second form only those named
// `name` (ignoring case).
QVBASE_API void GComponentEnumerate(bool (*callback)(const PComponent& component, void* context),
                                    void* context);
QVBASE_API void GComponentEnumerateByName(
    const char* name, bool (*callback)(const PComponent& component, void* context), void* context);
// The running executable's component and file; empty when the registry has
// none. The file is not registered.
QVBASE_API PComponent GGetApplicationComponent();
QVBASE_API PComponentFile GGetApplicationComponentFile();
// Gives `module` as resource module to the component of every registered
// file whose component is named `componentName` (ignoring case).
QVBASE_API void GSetComponentResourceHandle(const char* componentName, void* module);
// Sets the identifier offset of every registered file named `fileName`
// (ignoring case; a file's name is its part's name when it has a part).
QVBASE_API void GSetComponentFileResourceOffset(const char* fileName, int offset);

// The registry functions this family calls: QVComponent's own unless another
// table is given here. Tests give a recording stand-in; null goes back to
// QVComponent's. Returns the table that was in use. Objects keep the handles
// they hold, so give back the original table before objects made under
// another one meet the real registry.
QVBASE_API const QVCompFunctionTable* GSetComponentRegistry(const QVCompFunctionTable* table);

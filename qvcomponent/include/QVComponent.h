/* QVComponent.h - the component registry of the QVKernel suite (C API).
 * Part of qvbase, the QVKernel foundation class library.
 *
 * Every module of the suite declares itself here, once, when it is loaded: a
 * *component* is a named, versioned product (QVKernel 1.2, the operating
 * system), a *part* is a named piece of a component ("Tessel") with a type
 * code, and a *file* is one module on disk (a DLL, an EXE, a resource file)
 * that stands for a part while it runs. The registry keeps the components,
 * parts and files of the running process, their infos, their running state
 * and where their resources live (the component's resource module and the
 * part's identifier offset).
 *
 * Handles. Every component, part and file is reached through an opaque
 * handle. A handle that a call hands out (every `QVComp_Obtain...`) carries
 * one reference, which its holder gives back with `QVComp_Release`;
 * `QVComp_AddRef` takes another. An object lives while references to it
 * exist: its holders', the part's reference on its component, the file's on
 * its part, and the registry's own on a file declared running. Handles are
 * numbers, not addresses: a stale, foreign or mistyped handle is looked up
 * and refused with `QVCOMP_E_INVALID_HANDLE` (or `QVCOMP_E_WRONG_KIND` when
 * it names an object of another kind), never followed. A null pointer where
 * a pointer is needed is refused with `QVCOMP_E_NULL_POINTER`.
 *
 * Results. Every call returns 0 (`QVCOMP_OK`) on success and one of the
 * non-zero `QVCOMP_E_...` codes on failure, except
 * `QVComp_GetComponentDisplayName`, which answers a size.
 *
 * Threads. Every call may be made from any thread; the registry's state is
 * guarded by one lock. Enumerations call back without holding it, so a
 * callback may call the registry again; each enumerated object is kept alive
 * (one reference taken by the registry) until the enumeration ends.
 *
 * Registry paths and texts that this library defines are listed in
 * qvcomponent/README.md.
 *
 *   void* component = 0;
 *   if (QVComp_ObtainAComponent("QVKernel", 1, 2, &component) == QVCOMP_OK) {
 *     QVCompComponentInfos infos = {0};
 *     infos.size = sizeof infos;
 *     QVComp_GetComponentInfos(component, &infos);  // infos.name is "QVKernel"
 *     QVComp_Release(component);
 *   }
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(QVCOMPONENT_BUILDING_LIBRARY)
#define QVCOMP_API __declspec(dllexport)
#else
#define QVCOMP_API __declspec(dllimport)
#endif
#else
#define QVCOMP_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Results. */
enum {
  QVCOMP_OK = 0,
  QVCOMP_E_INVALID_HANDLE = 1,   /* not a live handle */
  QVCOMP_E_WRONG_KIND = 2,       /* a live handle of another kind of object */
  QVCOMP_E_NULL_POINTER = 3,     /* a required pointer is null */
  QVCOMP_E_INVALID_ARGUMENT = 4, /* a name, kind or type the call cannot take */
  QVCOMP_E_NOT_FOUND = 5,        /* nothing answers the request */
  QVCOMP_E_BUFFER_TOO_SMALL = 6, /* the text does not fit the caller's buffer */
  QVCOMP_E_BAD_RECORD_SIZE = 7,  /* a record's size word is below its size */
  QVCOMP_E_NOT_RUNNING = 8,      /* a file declared stopping that was not running */
  QVCOMP_E_OUT_OF_MEMORY = 9
};

/* Kinds of registry path (QVComp_GetComponentRegistryPath). Relative to
 * HKEY_LOCAL_MACHINE. */
enum {
  QVCOMP_PATH_COMPONENT = 0,         /* the component's key, per version */
  QVCOMP_PATH_ALL_VERSIONS = 2,      /* the key above every version of it */
  QVCOMP_PATH_RESOURCES = 0x80000001 /* where its resource files are recorded */
};

/* One word of an infos record: 32 bits on 32-bit targets, pointer-sized on
 * 64-bit targets, so that words holding text pointers keep their positions. */
typedef uintptr_t QVCompWord;

/* Infos of a component. The caller sets `size` to sizeof the record. Texts
 * belong to the registry and stay valid while the caller holds its handle
 * (the type text: for as long as the library is loaded). */
typedef struct QVCompComponentInfos {
  QVCompWord size;         /* word 0 */
  const char* name;        /* word 1 */
  QVCompWord majorVersion; /* word 2 */
  QVCompWord minorVersion; /* word 3 */
  QVCompWord partCount;    /* word 4: parts of the component alive now */
  QVCompWord reserved[4];  /* words 5-8: written as 0 */
  const char* type;        /* word 9: "Application" or "Component" */
} QVCompComponentInfos;

/* Infos of a file. On QVComp_SetComponentFileInfos words 1 to 5 are ignored:
 * path and file name are the registry's. On QVComp_GetComponentFileInfos the
 * texts stay valid while the caller holds its handle. */
typedef struct QVCompFileInfos {
  QVCompWord size;         /* word 0 */
  const char* path;        /* word 1: the full path */
  const char* fileName;    /* word 2: the path's last name */
  QVCompWord reserved[3];  /* words 3-5: written as 0 */
  QVCompWord majorVersion; /* word 6 */
  QVCompWord minorVersion; /* word 7 */
  QVCompWord fixesVersion; /* word 8 */
  QVCompWord buildNumber;  /* word 9 */
  QVCompWord extra;        /* word 10: kept as given */
} QVCompFileInfos;

/* Infos of a part. The name stays valid while the caller holds its handle. */
typedef struct QVCompPartInfos {
  QVCompWord size;           /* word 0 */
  QVCompWord type;           /* word 1: the part's type code */
  const char* name;          /* word 2 */
  QVCompWord resourceOffset; /* word 3: the part's identifier offset (signed) */
  QVCompWord reserved[3];    /* words 4-6: written as 0 */
} QVCompPartInfos;

/* Called once per enumerated object with its handle (valid during the call;
 * AddRef it to keep it) and the caller's context. Non-zero goes on, 0 stops. */
typedef int (*QVCompEnumProc)(void* handle, void* context);

/* References, on handles of every kind. Releasing the last reference ends the
 * object (a component also unloads the resource module it loaded itself). */
QVCOMP_API int QVComp_AddRef(void* handle);
QVCOMP_API int QVComp_Release(void* handle);

/* Components. A component is known by its name (compared ignoring ASCII case)
 * and its major and minor version; obtaining it again gives the same object.
 * A name is 1 to 255 characters, without backslashes or control characters. */
QVCOMP_API int QVComp_ObtainAComponent(const char* name, uint32_t majorVersion,
                                       uint32_t minorVersion, void** component);
QVCOMP_API int QVComp_GetComponentInfos(void* component, QVCompComponentInfos* infos);
/* Answers the size in bytes of the display name with its terminating zero (0
 * for a bad handle), and copies as much of it as fits into a non-null buffer
 * of `size` bytes, always terminated. The display name is the component's
 * name until one is set. */
QVCOMP_API uint32_t QVComp_GetComponentDisplayName(void* component, char* buffer, uint32_t size);
QVCOMP_API int QVComp_SetComponentDisplayName(void* component, const char* text);
/* The registry path of a kind (QVCOMP_PATH_...); QVCOMP_E_BUFFER_TOO_SMALL
 * (with an empty text) when it does not fit. */
QVCOMP_API int QVComp_GetComponentRegistryPath(void* component, uint32_t kind, char* buffer,
                                               uint32_t size);
/* The text that identifies the component in recorded resource sets:
 * "<name> <major>.<minor>". */
QVCOMP_API int QVComp_GetComponentString(void* component, char* buffer, uint32_t size);
/* Gives the component a resource module (the caller's: the registry never
 * unloads it) and an identifier offset; a null module goes back to the
 * module recorded in the registry. */
QVCOMP_API int QVComp_SetComponentResLocation(void* component, void* module, int32_t offset);
/* The component's resource module: the one set, else the one recorded in the
 * registry, found and loaded on first need and kept while the component
 * lives. `offset` may be null. QVCOMP_E_NOT_FOUND (module 0, offset 0) when
 * there is none. */
QVCOMP_API int QVComp_GetComponentResLocation(void* component, void** module, int32_t* offset);
/* Every component alive in this process, in the order they were first
 * obtained; the second form only those of that name (ignoring case). */
QVCOMP_API int QVComp_EnumRunningComponents(QVCompEnumProc proc, void* context);
QVCOMP_API int QVComp_EnumRunningComponentsByName(const char* name, QVCompEnumProc proc,
                                                  void* context);
/* The component of the running executable's part; QVCOMP_E_NOT_FOUND when
 * the executable has not declared itself running with a part. */
QVCOMP_API int QVComp_ObtainApplicationComponent(void** component);

/* Parts. A part is known by its component and its name (ignoring ASCII case;
 * 1 to 255 characters); it holds a reference on its component. */
QVCOMP_API int QVComp_ObtainAComponentPart(void* component, const char* name, void** part);
QVCOMP_API int QVComp_GetComponentPartInfos(void* part, QVCompPartInfos* infos);
QVCOMP_API int QVComp_SetComponentPartType(void* part, uint32_t type);
QVCOMP_API int QVComp_GetComponentPartType(void* part, uint32_t* type);
QVCOMP_API int QVComp_SetComponentPartResOffset(void* part, int32_t offset);
/* The component's resource module, and the component's offset plus the
 * part's. QVCOMP_E_NOT_FOUND (module 0, offset 0) without a module. */
QVCOMP_API int QVComp_GetComponentPartResLocation(void* part, void** module, int32_t* offset);
QVCOMP_API int QVComp_ObtainComponentFromPart(void* part, void** component);
/* Every part of the component alive in this process, in the order they were
 * first obtained; the second form only those of the type (0: every type). */
QVCOMP_API int QVComp_EnumRunningComponentParts(void* component, QVCompEnumProc proc,
                                                void* context);
QVCOMP_API int QVComp_EnumRunningComponentPartsByType(void* component, uint32_t type,
                                                      QVCompEnumProc proc, void* context);
/* Of the files running as this part, the one with the highest version
 * (major, minor, fixes, build; the first declared among equals).
 * QVCOMP_E_NOT_FOUND when none runs. */
QVCOMP_API int QVComp_ObtainBestComponentFileFromPart(void* part, void** file);

/* Files. A file is known by its path (on Windows ignoring case). From an
 * instance: the loaded module at that base address (QVCOMP_E_NOT_FOUND when
 * no module is loaded there). From a path: an existing file. */
QVCOMP_API int QVComp_ObtainAComponentFileFromInstance(void* instance, void** file);
QVCOMP_API int QVComp_ObtainAComponentFileFromPath(const char* path, void** file);
/* The running executable's file. */
QVCOMP_API int QVComp_ObtainApplicationComponentFile(void** file);
QVCOMP_API int QVComp_SetComponentFileInfos(void* file, const QVCompFileInfos* infos);
QVCOMP_API int QVComp_GetComponentFileInfos(void* file, QVCompFileInfos* infos);
/* Marks the file running; the registry then holds a reference on it until it
 * is declared stopping. A non-null part becomes the file's part and its
 * reference passes to the registry (on failure it stays with the caller); a
 * null part keeps the part the file already has, if any. */
QVCOMP_API int QVComp_DeclareFileRunning(void* file, void* part);
QVCOMP_API int QVComp_DeclareFileStopping(void* file);
QVCOMP_API int QVComp_ObtainComponentPartFromFile(void* file, void** part);

/* Every operation above as one table, for callers that call the registry
 * through pointers (and tests that stand in for it). */
typedef struct QVCompFunctionTable {
  int (*AddRef)(void*);
  int (*Release)(void*);
  int (*ObtainAComponent)(const char*, uint32_t, uint32_t, void**);
  int (*GetComponentInfos)(void*, QVCompComponentInfos*);
  uint32_t (*GetComponentDisplayName)(void*, char*, uint32_t);
  int (*SetComponentDisplayName)(void*, const char*);
  int (*GetComponentRegistryPath)(void*, uint32_t, char*, uint32_t);
  int (*GetComponentString)(void*, char*, uint32_t);
  int (*SetComponentResLocation)(void*, void*, int32_t);
  int (*GetComponentResLocation)(void*, void**, int32_t*);
  int (*EnumRunningComponents)(QVCompEnumProc, void*);
  int (*EnumRunningComponentsByName)(const char*, QVCompEnumProc, void*);
  int (*ObtainApplicationComponent)(void**);
  int (*ObtainAComponentPart)(void*, const char*, void**);
  int (*GetComponentPartInfos)(void*, QVCompPartInfos*);
  int (*SetComponentPartType)(void*, uint32_t);
  int (*GetComponentPartType)(void*, uint32_t*);
  int (*SetComponentPartResOffset)(void*, int32_t);
  int (*GetComponentPartResLocation)(void*, void**, int32_t*);
  int (*ObtainComponentFromPart)(void*, void**);
  int (*EnumRunningComponentParts)(void*, QVCompEnumProc, void*);
  int (*EnumRunningComponentPartsByType)(void*, uint32_t, QVCompEnumProc, void*);
  int (*ObtainBestComponentFileFromPart)(void*, void**);
  int (*ObtainAComponentFileFromInstance)(void*, void**);
  int (*ObtainAComponentFileFromPath)(const char*, void**);
  int (*ObtainApplicationComponentFile)(void**);
  int (*SetComponentFileInfos)(void*, const QVCompFileInfos*);
  int (*GetComponentFileInfos)(void*, QVCompFileInfos*);
  int (*DeclareFileRunning)(void*, void*);
  int (*DeclareFileStopping)(void*);
  int (*ObtainComponentPartFromFile)(void*, void**);
} QVCompFunctionTable;

/* This library's own functions, as a table. */
QVCOMP_API const QVCompFunctionTable* QVComp_FunctionTable(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* QVResModule.h - resource modules: loading them and reading their resources.
 * Part of qvbase, the QVKernel foundation class library.
 *
 * A resource module holds a component's strings, tagged structures and raw
 * data, compiled from an .rc source by a resource compiler. These calls load
 * one and answer the Win32 resource calls on its handle, with the Win32
 * meanings:
 *   QVRes_LoadModule        LoadLibraryExA(path, 0, LOAD_LIBRARY_AS_DATAFILE)
 *   QVRes_FreeModule        FreeLibrary
 *   QVRes_FindResource      FindResourceA
 *   QVRes_SizeofResource    SizeofResource
 *   QVRes_LoadResource      LoadResource
 *   QVRes_LockResource      LockResource
 *   QVRes_LoadString        LoadStringA
 *   QVRes_GetModuleFileName GetModuleFileNameA
 * On Windows a module is a resource-only DLL and each call is the system's.
 * Elsewhere the file is read into memory and parsed: a compiled resource
 * file (.res, what the Linux build makes of an .rc) or a PE image (a
 * resource-only DLL built for Windows); the calls answer from its bytes.
 * Files from outside are not trusted: one that is truncated or malformed is
 * refused at load, never read out of bounds.
 *
 *   void* module = 0;
 *   if (QVRes_LoadModule("QVKernelRes12.res", &module) == 0) {
 *     char text[256];
 *     int length = QVRes_LoadString(module, 1229, text, sizeof text);
 *     QVRes_FreeModule(module);
 *   }
 *
 * A handle, a resource handle or a pointer that no call of this interface
 * gave out, and null pointers, give the failure result of the call, never a
 * crash. Resource bytes stay valid until their module is freed. Every call
 * may be made from any thread.
 */
#ifndef QVRESMODULE_H
#define QVRESMODULE_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(QVCOMPONENT_BUILDING_LIBRARY)
#define QVRES_API __declspec(dllexport)
#else
#define QVRES_API __declspec(dllimport)
#endif
#else
#define QVRES_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A number given where a name is expected: the Win32 integer-resource form
 * (MAKEINTRESOURCEA). A name or type whose pointer value is at most 0xFFFF is
 * such a number; a text of the form "#123" names the number 123. */
#define QVRES_INTRESOURCE(number) ((const char*)(uintptr_t)(uint16_t)(number))

/* Results of QVRes_LoadModule. */
enum {
  QVRES_OK = 0,
  QVRES_BAD_ARGUMENT = 1, /* a null path or output pointer */
  QVRES_CANNOT_READ = 2,  /* the file cannot be opened or read, or is too large */
  QVRES_NOT_A_MODULE = 3  /* the bytes are not a resource module the platform reads */
};

/* Loads the module at `path`; 0 with *module set, else a non-zero result
 * above and *module null. Each successful load needs one QVRes_FreeModule. */
QVRES_API int QVRes_LoadModule(const char* path, void** module);

/* Unloads a module: 0, or non-zero for a handle that is not a loaded module. */
QVRES_API int QVRes_FreeModule(void* module);

/* The resource of that name (or number) and type (or number), or null. Where
 * it exists in several languages, the neutral one is preferred, then US
 * English, then another English one, then the lowest language number. */
QVRES_API void* QVRes_FindResource(void* module, const char* name, const char* type);

/* The size in bytes of a found resource, 0 on failure. */
QVRES_API uint32_t QVRes_SizeofResource(void* module, void* resource);

/* The loaded resource, null on failure; QVRes_LockResource turns it into the
 * address of its bytes (null for null). */
QVRES_API void* QVRes_LoadResource(void* module, void* resource);
QVRES_API void* QVRes_LockResource(void* loaded);

/* String `id` of the module's string tables (bundles of 16: id / 16 + 1 is
 * the bundle, id % 16 the place in it), converted to multibyte text in the
 * locale's code page (characters it cannot hold become '?'). At most
 * size - 1 bytes are copied, cut where that count ends, and a 0 byte is
 * added; the result is the number of bytes copied. 0, with an empty text in
 * the buffer, when the string is missing or empty. A null buffer or a size
 * below 1 copies nothing and gives 0. */
QVRES_API int QVRes_LoadString(void* module, unsigned int id, char* buffer, int size);

/* The full path of the module's file. When it fits, the path and a 0 byte
 * are copied and the result is its length; otherwise size - 1 bytes of it
 * and a 0 byte are copied and the result is `size`. 0 on failure (a handle
 * that is not a loaded module, a null buffer, size 0). */
QVRES_API uint32_t QVRes_GetModuleFileName(void* module, char* buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif /* QVRESMODULE_H */

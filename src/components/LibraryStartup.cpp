// LibraryStartup.cpp - the library's global components, and its registration
// as a component file when it is loaded.
// Part of qvbase, the QVKernel foundation class library.
//
// Loading the library constructs the globals below, in the order they are
// defined here, and then registers gTesselComponentFile as part "Tessel" of
// gQVKernelComponent: on Windows from DllMain (process attach; the runtime
// has constructed every global of the DLL before it calls DllMain), on ELF
// systems from an object defined after the globals, so constructed after
// them. Unloading destroys them in reverse order: gTesselComponentFile
// declares itself stopping and leaves gComponentFileList, which is still
// there.
#include <qvbase/PComponent.h>

#include <qvbase/QVCompat.h>

#include "native/Modules.h"

// First: registration appends to it, and every registered file leaves it
// when destroyed.
PComponentFileList gComponentFileList;
// Constructing it records "QVKernelRes12.dll" as the suite's resource DLL.
PComponent gQVKernelComponent("Components", "QVKernel", 1, 2, "QVKernelRes12.dll");
PTesselComponentFile gTesselComponentFile;
WINSystemComponent gNSystemComponent;
const PComponent* const gSystemComponent = &gNSystemComponent;

namespace {

void RegisterTheLibrary(void* instance) {
  gTesselComponentFile.Init(gQVKernelComponent, PASCIIString("Tessel"), instance, /*type=*/"DLL",
                            /*major=*/1, /*minor=*/2, /*fixes=*/0, /*build=*/27, /*extra=*/0);
}

} // namespace

#if defined(_WIN32)

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  // Thread attach and detach, and process detach, do nothing: the globals'
  // destructors do the unloading.
  if (reason == DLL_PROCESS_ATTACH)
    RegisterTheLibrary(instance);
  return TRUE;
}

#else

namespace {

struct LibraryStartup {
  LibraryStartup() {
    RegisterTheLibrary(qvbase::native::ModuleInstanceContaining(
        reinterpret_cast<const void*>(&RegisterTheLibrary)));
  }
} gLibraryStartup;

} // namespace

#endif

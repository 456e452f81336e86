// ResourceSearch.h - finding and loading a component's recorded resource module.
// Part of qvbase, the QVKernel foundation class library.
//
// A component's resource file is recorded in the registry by the module that
// constructs the component (below the component's resources path,
// HKEY_LOCAL_MACHINE): the value "DefResFile" for a resource DLL, or the
// default value of the subkey "ResourceSets", "<component text>,<file name>",
// for any other file. The registry library reads it back and looks for the
// file, in this order:
//
//   1. a file name with a directory (absolute, or relative to the current
//      directory) is taken as it is;
//   2. each directory of the environment variable QVBASE_RESOURCE_PATH
//      (separated by ';' on Windows, ':' elsewhere);
//   3. the directory of each running file of the component, in the order
//      they were first declared (the library's own resources sit beside it);
//   4. the directory of the registry library itself.
//
// In every directory a name ending in ".dll" (any case) is looked for as it
// is and, on systems other than Windows, also with ".res" in place of ".dll":
// the build makes a compiled resource file of the same .rc there. The first
// file that loads (QVRes_LoadModule) is the component's module.
#pragma once

#include <string>
#include <vector>

namespace qvcomponent {

// The resource file recorded under `resourcesPath` for the component whose
// text is `componentText`; empty when none is recorded or the registry cannot
// be read.
std::string RecordedResourceFile(const std::string& resourcesPath,
                                 const std::string& componentText);

// Looks for `file` as described above, `fileDirectories` being the running
// files' directories, and loads it; null when no candidate loads.
void* LoadResourceModule(const std::string& file, const std::vector<std::string>& fileDirectories);

// The directory of a file's path; empty for a bare name.
std::string DirectoryOf(const std::string& path);

} // namespace qvcomponent

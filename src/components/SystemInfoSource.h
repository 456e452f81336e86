// SystemInfoSource.h - where the operating-system component reads the
// machine it runs on.
// Part of qvbase, the QVKernel foundation class library.
//
// WINSystemComponent asks the platform layer for the user name and the
// system's version (native::QueryUserName, native::QueryOsVersion). A test
// installs calls of its own here to play a machine the real one is not: a
// user name longer than the first buffer, a system whose version cannot be
// read, each platform id. The library itself never installs any. Process-
// wide and unsynchronised, like the version the component keeps.
#pragma once

#include <qvbase/QVExport.h>

#include "native/SystemInfo.h"

namespace qvbase::components {

// The two calls, with the contracts of native::QueryUserName and
// native::QueryOsVersion.
struct SystemInfoSource {
  LONG (*queryUserName)(char* buffer, DWORD* size);
  bool (*queryOsVersion)(native::OsVersionInfo* info);
};

// Installs `source` (null: the platform layer's calls again) and returns the
// one it replaces (null for the platform layer's). Installing forgets the
// version read so far and whether it was the NT family, so that the next
// need asks the new source; components built before keep what they read.
QVBASE_API const SystemInfoSource* SetSystemInfoSource(const SystemInfoSource* source);

} // namespace qvbase::components

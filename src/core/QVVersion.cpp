// QVVersion.cpp - the library's version, and where its configuration lives.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/QVVersion.h>

#include "native/Registry.h"

#include <string>

namespace qvbase {

const char* LibraryVersion() { return QVBASE_VERSION_STRING; }

unsigned LibraryBuild() { return QVBASE_VERSION_BUILD; }

const char* RegistryStoreDescription() {
  // Computed per call: on POSIX the store follows QVBASE_REGISTRY, which a
  // process may change. The text lives until the next call on this thread.
  thread_local std::string description;
  description = native::RegStoreDescription();
  return description.c_str();
}

} // namespace qvbase

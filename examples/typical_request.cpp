// typical_request.cpp - what a new user of the library runs first.
//
// Prints the library's name and version and where it keeps its registry
// settings (on Windows the registry itself, elsewhere a .reg text file).
#include <qvbase/qvbase.h>

#include <cstdio>

int main() {
  std::printf("qvbase12 %s (build %u)\n", qvbase::LibraryVersion(), qvbase::LibraryBuild());
  std::printf("registry store: %s\n", qvbase::RegistryStoreDescription());
  return 0;
}

// Uses the installed library the way a client module does.
#include <qvbase/qvbase.h>

#include <QVResModule.h>

#include <cstdio>
#include <cstring>

int main() {
  if (std::strcmp(qvbase::LibraryVersion(), QVBASE_VERSION_STRING) != 0) {
    std::printf("headers %s, library %s\n", QVBASE_VERSION_STRING, qvbase::LibraryVersion());
    return 1;
  }
  std::printf("qvbase12 %s build %u\n", qvbase::LibraryVersion(), qvbase::LibraryBuild());

  // The client's own resource module, built from its .rc by the package.
  void* module = nullptr;
  if (QVRes_LoadModule(CONSUMER_RESOURCES, &module) != QVRES_OK) {
    std::printf("cannot load %s\n", CONSUMER_RESOURCES);
    return 1;
  }
  NResourceString greeting(1, NResourceLocation(module));
  PMBString text = greeting;
  std::printf("%s\n", static_cast<const char*>(text));
  QVRes_FreeModule(module);
  return 0;
}

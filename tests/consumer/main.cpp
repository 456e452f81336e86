// Uses the installed library the way a client module does.
#include <qvbase/qvbase.h>

#include <cstdio>
#include <cstring>

int main() {
  if (std::strcmp(qvbase::LibraryVersion(), QVBASE_VERSION_STRING) != 0) {
    std::printf("headers %s, library %s\n", QVBASE_VERSION_STRING, qvbase::LibraryVersion());
    return 1;
  }
  std::printf("qvbase12 %s build %u\n", qvbase::LibraryVersion(), qvbase::LibraryBuild());
  return 0;
}

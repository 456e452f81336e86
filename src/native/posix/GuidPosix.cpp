// GuidPosix.cpp - random identifiers from the kernel's random source.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Guid.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

namespace qvbase {
namespace native {

namespace {

// /dev/urandom, for kernels older than getrandom() (Linux before 3.17).
bool ReadUrandom(unsigned char* bytes, std::size_t count) {
  int fd;
  do {
    fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0)
    return false;
  std::size_t done = 0;
  while (done < count) {
    ssize_t n = read(fd, bytes + done, count - done);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      break;
    done += static_cast<std::size_t>(n);
  }
  close(fd);
  return done == count;
}

bool SystemRandom(void* buffer, std::size_t count) {
  unsigned char* bytes = static_cast<unsigned char*>(buffer);
  std::size_t done = 0;
  while (done < count) {
    ssize_t n = getrandom(bytes + done, count - done, 0);
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0 && errno == ENOSYS)
      return ReadUrandom(bytes + done, count - done);
    if (n <= 0)
      return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

} // namespace

HRESULT CreateGuid(GUID* out) { return MakeRandomGuid(&SystemRandom, out); }

} // namespace native
} // namespace qvbase

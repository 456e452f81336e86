// ThreadsPosix.cpp - recursive locks and thread-local values over pthreads.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Threads.h"

#include <pthread.h>
#include <type_traits>

namespace qvbase {
namespace native {

struct RecursiveLock {
  pthread_mutex_t mutex;
};

std::size_t RecursiveLockSize() { return sizeof(RecursiveLock); }

bool InitRecursiveLock(RecursiveLock* lock) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0)
    return false;
  bool made = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
              pthread_mutex_init(&lock->mutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return made;
}

void EnterRecursiveLock(RecursiveLock* lock) { pthread_mutex_lock(&lock->mutex); }

void LeaveRecursiveLock(RecursiveLock* lock) { pthread_mutex_unlock(&lock->mutex); }

void DestroyRecursiveLock(RecursiveLock* lock) { pthread_mutex_destroy(&lock->mutex); }

// A pthread key is the slot's index itself: glibc's keys are small unsigned
// integers, far below kNoThreadValueIndex.
static_assert(std::is_integral<pthread_key_t>::value && sizeof(pthread_key_t) <= 4,
              "a thread-specific key fits a 32-bit index");

std::uint32_t AllocThreadValueIndex() {
  pthread_key_t key;
  if (pthread_key_create(&key, nullptr) != 0)
    return kNoThreadValueIndex;
  if (static_cast<std::uint32_t>(key) == kNoThreadValueIndex) {
    pthread_key_delete(key);
    return kNoThreadValueIndex;
  }
  return static_cast<std::uint32_t>(key);
}

bool FreeThreadValueIndex(std::uint32_t index) {
  if (index == kNoThreadValueIndex)
    return false;
  return pthread_key_delete(static_cast<pthread_key_t>(index)) == 0;
}

void* GetThreadValue(std::uint32_t index) {
  if (index == kNoThreadValueIndex)
    return nullptr;
  return pthread_getspecific(static_cast<pthread_key_t>(index));
}

bool SetThreadValue(std::uint32_t index, void* value) {
  if (index == kNoThreadValueIndex)
    return false;
  return pthread_setspecific(static_cast<pthread_key_t>(index), value) == 0;
}

} // namespace native
} // namespace qvbase

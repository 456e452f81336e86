// PStreamHandlerRef.h - the reference counting that stream front objects
// share. Part of qvbase, the QVKernel foundation class library. Internal.
#pragma once

#include <qvbase/PStream.h>

namespace qvbase {
namespace streams {

// Takes a reference to `handler` (which may be null) before dropping the one
// `slot` held, so that assigning the handler a front object already holds is
// safe. When running Uninitialize for the dropped reference raises an error,
// the count has reached 0 but PSmartData::Release left the handler alive: it
// is deleted here before the error goes on, so that a failing close never
// leaks.
inline void AssignStreamHandler(PStreamHdl*& slot, PStreamHdl* handler) {
  if (handler)
    handler->AddRef();
  PStreamHdl* old = slot;
  slot = handler;
  if (!old)
    return;
  try {
    old->Release();
  } catch (...) {
    if (old->NumSmartLocks() == 0)
      delete old;
    throw;
  }
}

} // namespace streams

// The name this had before the library's helpers took the names of their
// folders; kept for code written against it.
using streams::AssignStreamHandler;
} // namespace qvbase

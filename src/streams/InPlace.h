// InPlace.h - reads, writes and seeks that the library's own memory handler
// carries out at once, without the guard of the public operations.
// Part of qvbase, the QVKernel foundation class library. Internal.
//
// A guarded operation asks the handler for its position, links a retry
// protection into the chain, runs the IO operation inside a `try` and unlinks
// the protection. For a handler of exactly the library's memory handler class
// (not one derived from it, which may watch its IO calls), a read inside the
// content, a write that ends inside the block's last granularity step and a
// seek inside the content can neither fail nor call anything else: no error
// is signalled, so no hook sees the protection or asks for a retry, and no
// memory manager is asked for anything. Such requests are carried out here
// with the same bytes, position, size, dirty flag and cleared failed flag as
// the guarded operation gives; every other request returns false, with
// nothing done, and takes the guarded path.
//
// The same holds for a section of exactly the library's section class whose
// parent carries the request out in place: the section's guard has nobody to
// be seen by.
//
// Everything here is inline so that a typed value of 2, 4 or 8 bytes is one
// type check, one bounds check and one move in the caller.
#pragma once

#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PStreamSection.h>

#include <typeinfo>

#include "streams/CopyBytes.h"

namespace qvbase {
namespace streams {

struct InPlace {
  // The handler as the plain memory handler, or null when it is of any other
  // class. Type records are compared by address: where a platform keeps more
  // than one record of the class, a handler may miss the shortcut, never
  // take it wrongly.
  static PMemoryStreamHdl* PlainMemory(PStreamHdl* handler) {
    return &typeid(*handler) == &typeid(PMemoryStreamHdl) ? static_cast<PMemoryStreamHdl*>(handler)
                                                          : nullptr;
  }

  static PStreamSectionHdl* PlainSection(PStreamHdl* handler) {
    return &typeid(*handler) == &typeid(PStreamSectionHdl)
               ? static_cast<PStreamSectionHdl*>(handler)
               : nullptr;
  }

  // IORead for a read that lies wholly inside the content.
  static bool MemoryRead(PMemoryStreamHdl* m, char* to, unsigned __int64 bytes) {
    if ((m->m_openMode & OpenRead) == 0 || bytes == 0 || m->m_position >= m->m_size ||
        bytes > m->m_size - m->m_position)
      return false;
    CopyBytes(to, m->m_buffer + m->m_position, static_cast<size_t>(bytes));
    m->m_position += static_cast<ULONG>(bytes);
    m->m_failed = false;
    return true;
  }

  // True when a content of `bytes` rounds up to `capacity`. A capacity is
  // always a whole number of granularity steps (it is only ever set to a
  // rounded size or 0), so a non-zero count in its last step does: a write
  // that stays inside the block needs no division to know that it stays. A
  // capacity of 0 has no last step: the subtraction wraps and nothing lies
  // above it.
  static bool InLastStep(unsigned __int64 bytes, ULONG capacity, ULONG granularity) {
    return bytes <= capacity && bytes > static_cast<ULONG>(capacity - granularity);
  }

  // True when a write ending at `end` needs no new block: it ends inside the
  // content, or beyond it but inside the block's last granularity step,
  // where the size IOSetSize would set keeps the capacity.
  static bool EndsInsideBlock(const PMemoryStreamHdl* m, unsigned __int64 end) {
    return end <= m->m_size || InLastStep(end, m->m_capacity, m->m_granularity);
  }

  // IOWrite for a write that needs no new block.
  static bool MemoryWrite(PMemoryStreamHdl* m, const char* from, unsigned __int64 bytes) {
    if ((m->m_openMode & OpenWrite) == 0 || bytes == 0)
      return false;
    const unsigned __int64 end = m->m_position + bytes;
    if (end > m->m_size) {
      if (!InLastStep(end, m->m_capacity, m->m_granularity))
        return false;
      m->m_size = static_cast<ULONG>(end);
    }
    CopyBytes(m->m_buffer + m->m_position, from, static_cast<size_t>(bytes));
    m->m_position = static_cast<ULONG>(end);
    m->m_dirty = true;
    m->m_failed = false;
    return true;
  }

  // IOSetPos for a seek that stays inside the content (its end included).
  static bool MemorySeek(PMemoryStreamHdl* m, TypSeekMode mode, unsigned __int64 offset64) {
    if (m->m_openMode == 0 || m->m_position > m->m_size)
      return false;
    // Only the low 32 bits of an offset count, as in IOSetPos.
    const ULONG offset = static_cast<ULONG>(offset64);
    switch (mode) {
    case SeekFwd:
      if (offset > m->m_size - m->m_position)
        return false;
      m->m_position += offset;
      break;
    case SeekBack:
      if (offset > m->m_position)
        return false;
      m->m_position -= offset;
      break;
    case SeekFromStart:
      if (offset > m->m_size)
        return false;
      m->m_position = offset;
      break;
    case SeekFromEnd:
      if (offset > m->m_size)
        return false;
      m->m_position = m->m_size - offset;
      break;
    default:
      return false;
    }
    m->m_failed = false;
    return true;
  }

  // A read or write of `bytes` carried out in place, or false with nothing
  // done. Sections nest: a section over a section over the plain memory
  // handler goes down to it.
  static bool Read(PStreamHdl* handler, char* to, unsigned __int64 bytes) {
    if (PMemoryStreamHdl* m = PlainMemory(handler))
      return MemoryRead(m, to, bytes);
    if (PStreamSectionHdl* s = PlainSection(handler))
      return SectionRead(s, to, bytes);
    return false;
  }

  static bool Write(PStreamHdl* handler, const char* from, unsigned __int64 bytes) {
    if (PMemoryStreamHdl* m = PlainMemory(handler))
      return MemoryWrite(m, from, bytes);
    if (PStreamSectionHdl* s = PlainSection(handler))
      return SectionWrite(s, from, bytes);
    return false;
  }

  static bool Seek(PStreamHdl* handler, TypSeekMode mode, unsigned __int64 offset) {
    PMemoryStreamHdl* m = PlainMemory(handler);
    return m && MemorySeek(m, mode, offset);
  }

  // Opening or closing a section of exactly the library's class whose every
  // call on its parent is an in-place copy of the plain memory handler:
  // IOOpen or IOClose run without the guard, since nothing they do can raise
  // an error or call out. False, with nothing done, for anything else.
  static bool OpenSection(PStreamHdl* handler, ULONG mode);
  static bool CloseSection(PStreamHdl* handler);

  // A section's IORead and IOWrite when its parent carries the request out
  // in place: the same calls on the parent, without the section's guard.
  // Out of line, so that the memory case stays small where it is inlined.
  static bool SectionRead(PStreamSectionHdl* s, char* to, unsigned __int64 bytes);
  static bool SectionWrite(PStreamSectionHdl* s, const char* from, unsigned __int64 bytes);
};

} // namespace streams
} // namespace qvbase

// PMemoryStream.cpp - the stream handler over one heap block.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PMemoryStream.h>

#include <qvbase/MemoryManager.h>
#include <cstring>

#include "core/MemoryGrowth.h"
#include "errors/RaiseError.h"
#include "streams/InPlace.h"

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PMemoryStream";

constexpr ULONG kDefaultGranularity = 0x10000;
constexpr ULONG kMinimumGranularity = 16;
constexpr unsigned __int64 kMaxPosition = 0xFFFFFFFFull;

// Positions are 32-bit: a move beyond that stops at the last one.
ULONG SaturatedPosition(unsigned __int64 position) {
  return position > kMaxPosition ? static_cast<ULONG>(kMaxPosition) : static_cast<ULONG>(position);
}

} // namespace

PMemoryStreamHdl::PMemoryStreamHdl() : PMemoryStreamHdl(kDefaultGranularity) {}

PMemoryStreamHdl::PMemoryStreamHdl(ULONG granularity)
    : m_buffer(nullptr), m_capacity(0), m_size(0), m_position(0),
      m_granularity(granularity <= kMinimumGranularity ? kMinimumGranularity : granularity),
      m_openMode(0), m_dirty(false) {}

PMemoryStreamHdl::PMemoryStreamHdl(const PMemoryStreamHdl& other)
    : PStreamHdl(other), m_buffer(other.m_buffer), m_capacity(other.m_capacity),
      m_size(other.m_size), m_position(other.m_position), m_granularity(other.m_granularity),
      m_openMode(other.m_openMode), m_dirty(other.m_dirty) {}

PMemoryStreamHdl& PMemoryStreamHdl::operator=(const PMemoryStreamHdl& other) {
  PStreamHdl::operator=(other);
  m_buffer = other.m_buffer;
  m_capacity = other.m_capacity;
  m_size = other.m_size;
  m_position = other.m_position;
  m_granularity = other.m_granularity;
  m_openMode = other.m_openMode;
  m_dirty = other.m_dirty;
  return *this;
}

PMemoryStreamHdl::~PMemoryStreamHdl() { ReleaseBlock(); }

// ---------------------------------------------------------------------------
// Helpers

void PMemoryStreamHdl::RaiseError(int code, TypErrorSeverityEnum severity, ULONG line) {
  qvbase::errors::RaiseThrough(*this, code, severity, kSourceFile, line);
}

void PMemoryStreamHdl::ThrowError(int code, ULONG line) {
  qvbase::errors::ThrowThrough(*this, code, ErrorSeverityAbort, kSourceFile, line);
}

bool PMemoryStreamHdl::RoundUp(ULONG bytes, ULONG* rounded) const {
  const ULONG remainder = bytes % m_granularity;
  const unsigned __int64 result =
      remainder == 0 ? bytes : static_cast<unsigned __int64>(bytes) + (m_granularity - remainder);
  if (result > kMaxPosition)
    return false;
  *rounded = static_cast<ULONG>(result);
  return true;
}

char* PMemoryStreamHdl::AllocateBlock(ULONG capacity, ULONG line) {
  if (capacity == 0)
    return nullptr;
  // Uninitialised: bytes past the content are never read.
  char* block = static_cast<char*>(GMemAllocation(nullptr, capacity, /*mode=*/1));
  if (!block)
    RaiseError(kErrOutOfMemory, ErrorSeverityAbort, line);
  return block;
}

void PMemoryStreamHdl::ReleaseBlock() {
  GMemFree(m_buffer);
  m_buffer = nullptr;
}

// ---------------------------------------------------------------------------
// Reading and writing

ULONG PMemoryStreamHdl::IORead(char* buffer, ULONG count, ULONG itemSize) {
  if (!IOIsReadable()) {
    RaiseError(IOIsOpened() ? kErrStreamNotReadable : kErrStreamClosed, ErrorSeverityAbort,
               __LINE__);
    return 0;
  }
  const unsigned __int64 bytes = static_cast<unsigned __int64>(count) * itemSize;
  if (bytes == 0)
    return 0;
  // A position already past the end (after an over-long read or a seek error
  // that was let through) copies nothing.
  ULONG copied = 0;
  if (m_position < m_size) {
    const ULONG left = m_size - m_position;
    copied = bytes < left ? static_cast<ULONG>(bytes) : left;
    std::memcpy(buffer, m_buffer + m_position, copied);
  }
  // Deliberately the position moves by what was asked, not by what was
  // copied: a read that runs over the end leaves it past the end, and the
  // layers above rely on it having moved by the request.
  m_position = SaturatedPosition(m_position + bytes);
  return copied / itemSize;
}

ULONG PMemoryStreamHdl::IOWrite(const char* buffer, ULONG count, ULONG itemSize) {
  if (!IOIsWritable()) {
    RaiseError(IOIsOpened() ? kErrStreamNotWritable : kErrStreamClosed, ErrorSeverityAbort,
               __LINE__);
    return 0;
  }
  const unsigned __int64 bytes = static_cast<unsigned __int64>(count) * itemSize;
  if (bytes == 0)
    return count;
  const unsigned __int64 end = m_position + bytes;
  if (end > kMaxPosition) {
    // The content cannot outgrow 32 bits.
    RaiseError(kErrOutOfMemory, ErrorSeverityAbort, __LINE__);
    return 0;
  }
  if (end > m_size) {
    IOSetSize(end);
    if (m_size < end)
      return 0; // the growth failed and its error was let through
  }
  std::memcpy(m_buffer + m_position, buffer, static_cast<size_t>(bytes));
  m_position = static_cast<ULONG>(end);
  m_dirty = true;
  return count;
}

// ---------------------------------------------------------------------------
// Opening and closing

void PMemoryStreamHdl::IOOpen(ULONG mode) {
  if (m_openMode != 0) {
    RaiseError(kErrStreamAlreadyOpen, ErrorSeverityAbort, __LINE__);
    return;
  }
  if ((mode & OpenReadWrite) == 0) {
    RaiseError(kErrStreamOpenModeInvalid, ErrorSeverityAbort, __LINE__);
    return;
  }
  ULONG needed = NeededSize();
  ULONG capacity = 0;
  if (!RoundUp(needed, &capacity)) {
    RaiseError(kErrOutOfMemory, ErrorSeverityAbort, __LINE__);
    needed = 0; // let through: the stream opens empty
  }
  // Checked before the no-load bit: reading needs content unless empty
  // content is explicitly allowed.
  if ((mode & OpenRead) && capacity == 0) {
    if (mode & OpenAllowEmpty)
      m_dirty = true;
    else
      RaiseError(kErrStreamOpenModeInvalid, ErrorSeverityError,
                 __LINE__); // let through: opens empty
  }
  ReleaseBlock();
  m_capacity = 0;
  m_size = 0;
  if (mode & OpenNoLoad) {
    m_dirty = true;
  } else if (capacity != 0) {
    m_buffer = AllocateBlock(capacity, __LINE__);
    if (m_buffer) {
      m_capacity = capacity;
      m_size = needed;
      try {
        MemoryRead(m_buffer, needed);
      } catch (const PError& error) {
        ReleaseBlock();
        m_capacity = 0;
        m_size = 0;
        // Passed on through the protections; when one absorbs it, the stream
        // opens empty.
        qvbase::errors::PassOn(error);
      } catch (...) {
        ReleaseBlock();
        m_capacity = 0;
        m_size = 0;
        throw;
      }
    }
  }
  m_position = 0;
  m_openMode = mode;
}

void PMemoryStreamHdl::IOClose() {
  if (m_openMode == 0) {
    RaiseError(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return;
  }
  if (m_dirty)
    IOFlush();
  ReleaseBlock();
  m_capacity = 0;
  m_size = 0;
  m_position = 0;
  m_dirty = false;
  m_openMode = 0;
}

void PMemoryStreamHdl::IOFlush() {
  if (m_openMode == 0) {
    RaiseError(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return;
  }
  if (IOIsWritable() && m_dirty) {
    MemoryWrite(m_buffer, m_size);
    m_dirty = false;
  }
}

void PMemoryStreamHdl::IOSetOpenMode(ULONG mode) {
  // Closing stores a changed content, opening loads it again.
  const ULONG position = m_position;
  IOClose();
  IOOpen(mode);
  IOSetPos(SeekFromStart, position);
}

ULONG PMemoryStreamHdl::IOGetAvailableOpenModes() const { return OpenReadWrite; }

ULONG PMemoryStreamHdl::IOOpenMode() const { return m_openMode; }

// ---------------------------------------------------------------------------
// Size and position

void PMemoryStreamHdl::IOSetSize(unsigned __int64 size) {
  if (m_openMode == 0) {
    RaiseError(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return;
  }
  if (!IOIsWritable()) {
    RaiseError(kErrStreamNotWritable, ErrorSeverityAbort, __LINE__);
    return;
  }
  // Deliberately only the low 32 bits count: the content is 32-bit.
  const ULONG newSize = static_cast<ULONG>(size);
  ULONG newCapacity = 0;
  if (qvbase::streams::InPlace::InLastStep(newSize, m_capacity, m_granularity)) {
    // The rounded size is the present capacity: no rounding needed.
    newCapacity = m_capacity;
  } else if (!RoundUp(newSize, &newCapacity)) {
    RaiseError(kErrOutOfMemory, ErrorSeverityAbort, __LINE__);
    return;
  }
  if (m_capacity > newCapacity) {
    if (m_position > newSize)
      m_position = newSize;
    char* block = nullptr;
    if (newSize != 0) {
      block = AllocateBlock(newCapacity, __LINE__);
      if (!block)
        return; // let through: the content stays as it was
      std::memcpy(block, m_buffer, newSize);
    }
    ReleaseBlock();
    m_buffer = block;
    m_capacity = newCapacity;
    m_size = newSize;
  } else if (m_capacity < newCapacity) {
    // One block of the rounded size, holding the content: growth is linear
    // in granularity steps.
    char* block = static_cast<char*>(qvbase::core::GrowBlock(m_buffer, m_size, newCapacity));
    if (!block) {
      RaiseError(kErrOutOfMemory, ErrorSeverityAbort, __LINE__);
      return; // let through: the content stays as it was
    }
    m_buffer = block;
    m_capacity = newCapacity;
    m_size = newSize;
  } else {
    if (newSize == m_size)
      return; // unchanged: a clean stream stays clean
    m_size = newSize;
    if (m_position > newSize)
      m_position = newSize;
  }
  m_dirty = true;
}

unsigned __int64 PMemoryStreamHdl::IOGetSize() const { return m_size; }

void PMemoryStreamHdl::IOSetPos(TypSeekMode mode, unsigned __int64 offset64) {
  if (m_openMode == 0) {
    RaiseError(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return;
  }
  // Deliberately only the low 32 bits count: positions are 32-bit.
  const ULONG offset = static_cast<ULONG>(offset64);
  // Seeks past the end are signalled and, when let through, carried out;
  // seeks before the start are thrown, or, from the end, stop at the start.
  switch (mode) {
  case SeekFwd:
    if (static_cast<unsigned __int64>(m_position) + offset > m_size)
      RaiseError(kErrStreamSeekPastEnd, ErrorSeverityAbort, __LINE__);
    m_position = SaturatedPosition(static_cast<unsigned __int64>(m_position) + offset);
    break;
  case SeekBack:
    if (offset > m_position)
      ThrowError(kErrStreamSeekBeforeStart, __LINE__);
    m_position -= offset;
    break;
  case SeekFromStart:
    if (offset > m_size)
      RaiseError(kErrStreamSeekPastEnd, ErrorSeverityAbort, __LINE__);
    m_position = offset;
    break;
  case SeekFromEnd:
    if (offset > m_size) {
      RaiseError(kErrStreamSeekBeforeStart, ErrorSeverityAbort, __LINE__);
      m_position = 0;
      break;
    }
    m_position = m_size - offset;
    break;
  default:
    ThrowError(kErrStreamBadSeekMode, __LINE__);
  }
}

unsigned __int64 PMemoryStreamHdl::IOGetPos() const { return m_position; }

bool PMemoryStreamHdl::IOIsAtEnd() const { return m_position >= m_size; }

// ---------------------------------------------------------------------------
// Hooks of handlers whose content lives elsewhere

void PMemoryStreamHdl::MemoryWrite(const char*, ULONG) {}

ULONG PMemoryStreamHdl::NeededSize() { return 0; }

void PMemoryStreamHdl::MemoryRead(char*, ULONG) {}

// PBufferizedStream.cpp - the block cache in front of a handler's medium,
// and the buffer budget that all such handlers share.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PBufferizedStream.h>

#include <qvbase/GDbg.h>
#include <qvbase/MemoryManager.h>
#include <qvbase/PBenchmark.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PList.h>

#include "errors/RaiseError.h"
#include "streams/CopyBytes.h"

namespace {

// The error's defined position, not a path of this tree.
const char kSourceFile[] = "src\\PBufferizedStream";

// The class a switched-on benchmark names for the calls timed here.
const char kProfiledClass[] = "PBufferizedStreamHdl";

// Every live buffered handler, least recently used at the head. The handler
// last moved to the tail is remembered, so that a handler read or written
// again and again (one byte at a time, say) is not looked up in the list on
// every call.
class HandlerRegistry : public PList {
public:
  HandlerRegistry() : PList(GLinkedListDataConstructor) {}
  void Add(const PBufferizedStreamHdl* handler) {
    AddAnObjectTail(handler);
    m_tail = handler;
  }
  void Remove(const PBufferizedStreamHdl* handler) {
    RemoveAnObject(handler);
    if (m_tail == handler)
      m_tail = nullptr; // found again at its next move
  }
  void MoveToTail(const PBufferizedStreamHdl* handler) {
    if (m_tail == handler)
      return;
    MoveAnObjectToTail(handler);
    m_tail = handler;
  }
  PBufferizedStreamHdl* At(ULONG index) const {
    return static_cast<PBufferizedStreamHdl*>(GetAnObject(index));
  }

private:
  const PBufferizedStreamHdl* m_tail = nullptr;
};

// Made at the first handler's construction and never destroyed: handlers
// that outlive the static destructors (in global streams) still leave it.
HandlerRegistry& Registry() {
  static HandlerRegistry* registry = new HandlerRegistry;
  return *registry;
}

// The budget: bytes of all blocks now allocated, and the most they may take
// before other handlers' blocks are released.
ULONG gCurrentTotal = 0;
ULONG gMaximumTotal = kBufferizedDefaultMaxSize;

ULONG Smaller(unsigned __int64 a, ULONG b) { return a < b ? static_cast<ULONG>(a) : b; }

// Whole items in `bytes`. Reads and writes of single bytes, and of anything
// under 4 GiB, avoid a 64-bit division: it would cost more than the copy.
ULONG WholeItems(unsigned __int64 bytes, ULONG itemSize) {
  if (itemSize == 1)
    return static_cast<ULONG>(bytes);
  if (bytes <= 0xFFFFFFFFu)
    return static_cast<ULONG>(bytes) / itemSize;
  return static_cast<ULONG>(bytes / itemSize);
}

} // namespace

PBufferizedStreamHdl::PBufferizedStreamHdl(ULONG blockSize, bool locked)
    : m_position(0), m_size(0), m_block(nullptr), m_blockSize(blockSize == 0 ? 1 : blockSize),
      m_blockStart(0), m_locked(locked), m_dirty(false), m_offsetInBlock(0), m_validBytes(0),
      m_blockLoaded(false) {
  Registry().Add(this);
  if (m_locked)
    AllocateBuffer();
}

PBufferizedStreamHdl::~PBufferizedStreamHdl() {
  if (m_block) {
    m_dirty = false;
    FreeBuffer();
  }
  Registry().Remove(this);
}

// ---------------------------------------------------------------------------
// Helpers

void PBufferizedStreamHdl::RaiseError(int code, TypErrorSeverityEnum severity, ULONG line) {
  qvbase::errors::RaiseThrough(*this, code, severity, kSourceFile, line);
}

void PBufferizedStreamHdl::MarkUsed() { Registry().MoveToTail(this); }

template <typename Transfer>
void PBufferizedStreamHdl::RunBlockTransfer(Transfer transfer) {
  for (;;) {
    try {
      PErrorRetryProtection retry(true);
      SetFailed(false);
      transfer();
      return;
    } catch (const PError& error) {
      GDbgEnterHandling(error, kSourceFile, __LINE__);
      SetFailed(true);
      if (error.Code() != kErrControlRetry) {
        GDbgErrorForwarded(error, kSourceFile, __LINE__);
        throw PError(error);
      }
      // Retried from the block's start: every transfer positions the medium
      // itself first.
      GDbgErrorCatched(error, kSourceFile, __LINE__);
    }
  }
}

// ---------------------------------------------------------------------------
// Blocks and the budget

void PBufferizedStreamHdl::AllocateBuffer() {
  if (gCurrentTotal > 0xFFFFFFFFu - m_blockSize) {
    // The total is 32-bit: a block that would overflow it cannot be had.
    return;
  }
  gCurrentTotal += m_blockSize;
  if (gCurrentTotal > gMaximumTotal) {
    try {
      FlushBuffers(gCurrentTotal - gMaximumTotal);
    } catch (...) {
      // Another handler's write-back failed: this block is not taken.
      gCurrentTotal -= m_blockSize;
      throw;
    }
  }
  // Uninitialised: the bytes are read from the medium or written before use.
  m_block = static_cast<char*>(GMemAllocation(nullptr, m_blockSize, /*mode=*/1));
  if (!m_block)
    gCurrentTotal -= m_blockSize;
  m_blockLoaded = false;
}

ULONG PBufferizedStreamHdl::FreeBuffer() {
  // When the write-back throws, the block stays, dirty, with the failed flag
  // set: it is released later without another attempt.
  if (m_dirty && !HasFailed())
    WriteBuffer();
  GMemFree(m_block);
  m_block = nullptr;
  m_blockLoaded = false;
  // Whatever was not written back went with the block (after a failed
  // transfer): the next block taken at this start is clean until written.
  m_dirty = false;
  gCurrentTotal -= m_blockSize;
  return m_blockSize;
}

ULONG PBufferizedStreamHdl::FlushBuffers(ULONG bytes) {
  if (bytes == 0)
    return 0;
  HandlerRegistry& registry = Registry();
  ULONG freed = 0;
  const ULONG count = registry.Size();
  for (ULONG i = 0; i < count && freed < bytes; ++i) {
    PBufferizedStreamHdl* handler = registry.At(i);
    if (handler && handler->m_block && !handler->m_locked)
      freed += handler->FreeBuffer();
  }
  return freed;
}

void PBufferizedStreamHdl::SetBuffersMaxSize(ULONG bytes) {
  gMaximumTotal = bytes;
  if (gCurrentTotal > bytes)
    FlushBuffers(gCurrentTotal - bytes);
}

ULONG PBufferizedStreamHdl::GetBuffersMaxSize() { return gMaximumTotal; }

ULONG PBufferizedStreamHdl::GetBuffersCurSize() { return gCurrentTotal; }

void PBufferizedStreamHdl::UpdateBlockBounds() {
  // The position never passes the size, nor the size the end of the block
  // that holds the last byte, so both fit the block.
  m_offsetInBlock = static_cast<ULONG>(m_position - m_blockStart);
  m_validBytes =
      m_size - m_blockStart < m_blockSize ? static_cast<ULONG>(m_size - m_blockStart) : m_blockSize;
}

void PBufferizedStreamHdl::SetBufferToPos() {
  if (m_block && m_blockLoaded && m_position >= m_blockStart &&
      m_position - m_blockStart < m_blockSize) {
    // Still inside the block: the division below would give its start.
    UpdateBlockBounds();
    return;
  }
  MoveBufferToPos();
}

void PBufferizedStreamHdl::MoveBufferToPos() {
  const unsigned __int64 wanted = m_position - m_position % m_blockSize;
  if (m_block) {
    if (wanted != m_blockStart) {
      if (m_dirty)
        WriteBuffer();
      m_blockStart = wanted;
      m_blockLoaded = false;
    }
    if (!m_blockLoaded)
      ReadBuffer();
  } else {
    AllocateBuffer();
    if (m_block) {
      m_blockStart = wanted;
      ReadBuffer();
    }
  }
  UpdateBlockBounds();
}

void PBufferizedStreamHdl::SetBufferToNext() {
  if (m_dirty)
    WriteBuffer();
  m_blockStart += m_blockSize;
  m_blockLoaded = false;
  ReadBuffer();
  UpdateBlockBounds();
}

void PBufferizedStreamHdl::ReadBuffer() {
  if (!IsReadable()) {
    // Deliberately left as it is: a write-only stream never reads its
    // medium, and the block keeps whatever it held.
    m_blockLoaded = true;
    return;
  }
  RunBlockTransfer([&] {
    IOSetPos(SeekFromStart, m_blockStart);
    const ULONG got = IORead(m_block, m_blockSize, /*itemSize=*/1);
    // A block that is not complete is only right at the medium's end.
    if (got < m_blockSize && !IOIsAtEnd())
      RaiseError(kErrStreamShortRead, ErrorSeverityError, __LINE__);
  });
  m_blockLoaded = true;
}

void PBufferizedStreamHdl::WriteBuffer() {
  if (!IsWritable())
    return;
  bool complete = false;
  RunBlockTransfer([&] {
    IOSetPos(SeekFromStart, m_blockStart);
    complete = IOWrite(m_block, m_validBytes, /*itemSize=*/1) >= m_validBytes;
    if (!complete)
      RaiseError(kErrStreamShortWrite, ErrorSeverityError, __LINE__);
  });
  // A short write that a hook let through leaves the block dirty: a later
  // flush tries again.
  if (complete)
    m_dirty = false;
}

// ---------------------------------------------------------------------------
// Reading and writing

ULONG PBufferizedStreamHdl::Read(char* buffer, ULONG count, ULONG itemSize) {
  if (!IsReadable()) {
    SetFailed(true);
    RaiseError(IsOpened() ? kErrStreamNotReadable : kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return 0;
  }
  unsigned __int64 wanted = static_cast<unsigned __int64>(count) * itemSize;
  if (wanted == 0)
    return 0;
  SetBufferToPos();
  if (!m_block) {
    SetFailed(true);
    RaiseError(kErrOutOfMemory, ErrorSeverityAbort, __LINE__);
    return 0;
  }
  unsigned __int64 done = 0;
  for (;;) {
    const ULONG available = m_validBytes > m_offsetInBlock ? m_validBytes - m_offsetInBlock : 0;
    const ULONG chunk = Smaller(wanted, available);
    qvbase::streams::CopyBytes(buffer + done, m_block + m_offsetInBlock, chunk);
    m_position += chunk;
    m_offsetInBlock += chunk;
    done += chunk;
    wanted -= chunk;
    if (m_offsetInBlock >= m_validBytes) {
      // The block is used up: the next one is read at once while the stream
      // goes on, even when nothing more is wanted now.
      if (m_position >= m_size)
        break;
      SetBufferToNext();
    }
    if (wanted == 0)
      break;
  }
  MarkUsed();
  return WholeItems(done, itemSize);
}

ULONG PBufferizedStreamHdl::Write(const char* buffer, ULONG count, ULONG itemSize) {
  if (!IsWritable()) {
    RaiseError(IsOpened() ? kErrStreamNotWritable : kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return 0;
  }
  unsigned __int64 left = static_cast<unsigned __int64>(count) * itemSize;
  if (left == 0)
    return count;
  SetBufferToPos();
  if (!m_block) {
    SetFailed(true);
    RaiseError(kErrOutOfMemory, ErrorSeverityAbort, __LINE__);
    return 0;
  }
  unsigned __int64 done = 0;
  for (;;) {
    // A write may fill the block past its valid bytes.
    const ULONG chunk = Smaller(left, m_blockSize - m_offsetInBlock);
    qvbase::streams::CopyBytes(m_block + m_offsetInBlock, buffer + done, chunk);
    m_dirty = true;
    m_position += chunk;
    m_offsetInBlock += chunk;
    done += chunk;
    left -= chunk;
    if (m_position > m_size)
      m_size = m_position;
    if (m_offsetInBlock > m_validBytes)
      m_validBytes = m_offsetInBlock;
    if (m_offsetInBlock < m_blockSize)
      break;
    // Deliberately a full block is written back and the next one loaded at
    // once, even when nothing is left to write.
    SetBufferToNext();
    if (left == 0)
      break;
  }
  MarkUsed();
  return WholeItems(done, itemSize);
}

// ---------------------------------------------------------------------------
// Opening, flushing and closing

void PBufferizedStreamHdl::Open(ULONG mode) {
  PBenchmarkCall call(kProfiledClass, "Open", kSourceFile);
  PStreamHdl::Open(mode);
  m_position = IOGetPos();
  m_size = IOGetSize();
  SetBufferToPos();
}

void PBufferizedStreamHdl::Flush() {
  if (m_dirty && !HasFailed())
    WriteBuffer();
  if (!HasFailed())
    PStreamHdl::Flush();
}

void PBufferizedStreamHdl::Close() {
  PBenchmarkCall call(kProfiledClass, "Close", kSourceFile);
  Flush();
  if (m_block && !m_locked)
    FreeBuffer();
  m_position = 0;
  m_size = 0;
  m_blockStart = 0;
  m_offsetInBlock = 0;
  m_validBytes = 0;
  m_dirty = false;
  // A locked handler keeps its block, but not what the block held.
  m_blockLoaded = false;
  IOClose();
}

// ---------------------------------------------------------------------------
// Size and position

void PBufferizedStreamHdl::SetSize(unsigned __int64 size) {
  if (!IsWritable()) {
    RaiseError(IsOpened() ? kErrStreamNotWritable : kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return;
  }
  if (m_block && m_dirty) {
    // Only the bytes that stay go back to the medium. After a failed
    // transfer nothing goes back: the block's bytes are given up.
    if (m_blockStart >= size)
      m_validBytes = 0;
    else if (size - m_blockStart < m_validBytes)
      m_validBytes = static_cast<ULONG>(size - m_blockStart);
    if (m_validBytes != 0 && !HasFailed())
      WriteBuffer();
    m_dirty = false;
  }
  PStreamHdl::SetSize(size);
  m_size = size;
  if (m_position > size)
    m_position = size;
  // The medium decides what the bytes past the old size are: the block is
  // read again at its next use, which also sets its bounds.
  m_blockLoaded = false;
}

unsigned __int64 PBufferizedStreamHdl::GetSize() const { return m_size; }

void PBufferizedStreamHdl::SetPos(TypSeekMode mode, unsigned __int64 offset) {
  switch (mode) {
  case SeekFwd:
    if (offset > m_size - m_position) {
      RaiseError(kErrStreamSeekPastEnd, ErrorSeverityAbort, __LINE__);
      return;
    }
    m_position += offset;
    break;
  case SeekBack:
    if (offset > m_position) {
      RaiseError(kErrStreamSeekBeforeStart, ErrorSeverityAbort, __LINE__);
      return;
    }
    m_position -= offset;
    break;
  case SeekFromStart:
    if (offset > m_size) {
      RaiseError(kErrStreamSeekPastEnd, ErrorSeverityAbort, __LINE__);
      return;
    }
    m_position = offset;
    break;
  case SeekFromEnd:
    if (offset > m_size) {
      RaiseError(kErrStreamSeekBeforeStart, ErrorSeverityAbort, __LINE__);
      return;
    }
    m_position = m_size - offset;
    break;
  default:
    RaiseError(kErrStreamBadSeekMode, ErrorSeverityAbort, __LINE__);
    return;
  }
}

unsigned __int64 PBufferizedStreamHdl::GetPos() const { return m_position; }

bool PBufferizedStreamHdl::IsAtEnd() const { return m_position >= m_size; }

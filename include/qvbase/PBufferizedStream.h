// PBufferizedStream.h - the stream handler that caches its medium in blocks.
// Part of qvbase, the QVKernel foundation class library.
//
// PBufferizedStreamHdl puts a one-block cache in front of its own IO
// operations. A handler over a slow medium (a file, a device, a network
// resource) derives from it and supplies the IO operations exactly as an
// unbuffered handler would; the public Read, Write, Open, Close, Flush,
// SetSize, GetSize, SetPos, GetPos and IsAtEnd work on the cached block, so
// that the medium only ever sees whole, aligned blocks: reads of block size
// at block starts (multiples of the block size) and write-backs of the bytes
// of one block. Many small typed reads and writes become one medium access
// per block.
//
// All buffered handlers of the process share one memory budget for their
// blocks (1 MiB by default). When a new block would exceed it, the blocks of
// other handlers are written back and released, least recently used first
// (a read or write makes a handler the most recently used). A locked handler
// takes its block at construction and never gives it up to the budget.
//
//   class PDeviceStreamHdl : public PBufferizedStreamHdl {
//   public:
//     PDeviceStreamHdl() : PBufferizedStreamHdl(/*blockSize=*/4096, /*locked=*/false) {}
//   protected:
//     ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override; // and the others
//   };
//
// What the cache decides:
// - The position is the cache's own; the medium's position moves only when
//   a block is read or written back. SetPos never touches the medium, and
//   the block follows at the next read or write.
// - A write fills the block and marks it dirty; it reaches the medium when
//   the stream moves to another block, on Flush and Close, when the budget
//   takes the block, and when the size changes.
// - Blocks are read only while the stream is readable. Deliberately, a
//   write-only stream never reads: a block it moves to keeps the bytes it
//   held, so writing into the middle of existing content (a section header
//   patched after its body) needs the stream open for reading too.
// - After a block transfer failed (the stream's failed flag), the block is
//   not written back again by Flush, Close, SetSize or the budget: closing a
//   stream whose write-back failed raises no second error for that block.
// - SetSize writes the dirty block back (only the part that stays), resizes
//   the medium through the guarded SetSize, clamps the position to the new
//   size, and reads the block again at its next use, so that block, cached
//   size and medium agree whether the size shrinks inside, at or before the
//   cached block, or grows past it.
//
// Errors (source "src\\PBufferizedStream", severity 25 unless stated), all
// prepared through PrepareError: 1223 closed, 1231 not writable (Write,
// SetSize), 1232 not readable, 1227 seek past the end, 1228 seek before the
// start, 1225 unknown seek mode, 1007 no block could be had (budget and
// allocation both failed, or the budget's total would pass 32 bits),
// 1229 (severity 29) the medium delivered less than a block and is not at
// its end, 1230 (severity 29) the medium took less than the block's bytes.
// Block transfers run in a retry protection: a hook that answers "retry"
// makes the transfer start again from the block's start. A seek error that a
// hook lets through leaves the position where it was.
//
// The budget, its total and the list of handlers are process-wide and
// unlocked: buffered handlers belong to one thread, or their callers
// serialise them.
#pragma once

#include <qvbase/PStream.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The buffer budget every process starts with: 0x100000 bytes (1 MiB).
constexpr ULONG kBufferizedDefaultMaxSize = 0x100000;

// A stream handler that caches its medium in one block, within one
// process-wide budget for the blocks of all handlers.
class QVBASE_API PBufferizedStreamHdl : public PStreamHdl {
public:
  // Registers the handler as the most recently used. A locked handler takes
  // its block at once; when none can be had then, its first read or write
  // tries again. A block size of 0 is taken as 1, so that every position
  // lies in a block.
  PBufferizedStreamHdl(ULONG blockSize, bool locked);
  // Releases the block without writing it back (that is Close's work, which
  // the last reference runs through Uninitialize), then leaves the registry.
  ~PBufferizedStreamHdl() override;

  // A handler owns its block and its place in the registry: not copied.
  PBufferizedStreamHdl(const PBufferizedStreamHdl&) = delete;
  PBufferizedStreamHdl& operator=(const PBufferizedStreamHdl&) = delete;

  // Reads and writes through the block; both return whole items. A request
  // of 0 bytes reads 0 items and writes all of them, and leaves the block
  // alone.
  ULONG Read(char* buffer, ULONG count, ULONG itemSize) override;
  ULONG Write(const char* buffer, ULONG count, ULONG itemSize) override;
  // The guarded open of the medium; then the cache takes the medium's
  // position and size and moves its block there.
  void Open(ULONG mode) override;
  // Flushes, gives the block back (a locked handler keeps it), forgets the
  // cached position and size, then closes the medium with IOClose directly.
  void Close() override;
  // Writes the dirty block back unless the stream has failed, then runs the
  // guarded flush of the medium unless it has failed by then.
  void Flush() override;
  // See the file comment; 1223 when closed, 1231 when not writable.
  void SetSize(unsigned __int64 size) override;
  unsigned __int64 GetSize() const override;
  void SetPos(TypSeekMode mode, unsigned __int64 offset) override;
  unsigned __int64 GetPos() const override;
  // The position has reached the cached size.
  bool IsAtEnd() const override;

  // Writes back and releases the blocks of unlocked handlers, least recently
  // used first, until at least `bytes` are freed or none is left; returns
  // the bytes freed, which may be more than asked (blocks go whole). 0 frees
  // nothing.
  static ULONG FlushBuffers(ULONG bytes);
  // Sets the budget; blocks beyond it are released at once.
  static void SetBuffersMaxSize(ULONG bytes);
  static ULONG GetBuffersMaxSize();
  // Bytes of all blocks now allocated.
  static ULONG GetBuffersCurSize();

  ULONG GetBlockSize() const { return m_blockSize; }
  bool IsLocked() const { return m_locked; }
  bool HasBlock() const { return m_block != nullptr; }
  // The block holds bytes the medium has not received yet.
  bool IsDirty() const { return m_dirty; }
  // The stream offset of the block's first byte: a multiple of the block
  // size.
  unsigned __int64 GetBlockStart() const { return m_blockStart; }

private:
  // Makes the block cover the position, reading it when it moves.
  void SetBufferToPos();
  // The part of SetBufferToPos that moves the block (or takes one).
  void MoveBufferToPos();
  // Writes the block back when dirty and moves it one block on.
  void SetBufferToNext();
  // Offset in block and valid bytes for the position and size.
  void UpdateBlockBounds();
  void ReadBuffer();
  void WriteBuffer();
  // Takes a block within the budget; the block stays null when none can be
  // had.
  void AllocateBuffer();
  // Writes the block back when dirty (unless the stream has failed), frees
  // it and returns its size.
  ULONG FreeBuffer();
  // Runs one block transfer inside a retry protection, as the guarded
  // operations run theirs.
  template <typename Transfer>
  void RunBlockTransfer(Transfer transfer);
  // Makes this handler the most recently used.
  void MarkUsed();
  // Signals an error of this handler, prepared through PrepareError.
  void RaiseError(int code, TypErrorSeverityEnum severity, ULONG line);

  unsigned __int64 m_position;   // the user's position
  unsigned __int64 m_size;       // the size as the cache knows it
  char* m_block;                 // null when no block is allocated
  ULONG m_blockSize;             // fixed at construction
  unsigned __int64 m_blockStart; // a multiple of the block size
  bool m_locked;                 // keeps its block for its whole life
  bool m_dirty;                  // the block holds bytes not yet written back
  ULONG m_offsetInBlock;         // position - block start
  ULONG m_validBytes;            // bytes of the block that belong to the stream
  // False while the block does not hold the bytes at block start: before its
  // first read, after a close, after a read of it failed, after SetSize.
  // The next SetBufferToPos then reads it even when block start stays.
  bool m_blockLoaded;
};

// PMemoryStream.h - the stream handler that keeps its content in memory.
// Part of qvbase, the QVKernel foundation class library.
//
// PMemoryStreamHdl keeps the whole content of a stream in one contiguous
// heap block that it owns. Used directly it is a scratch stream. It is also
// the base of handlers whose content lives elsewhere (a resource, a block
// handed over by a caller): those override NeededSize and MemoryRead, which
// load the whole content when the stream is opened, and MemoryWrite, which
// stores it back when a changed stream is flushed or closed. Between open and
// close everything works on the block alone.
//
// The block grows and shrinks in steps of the granularity, one step at a
// time and never geometrically: callers that write much choose a large one.
// Copying a handler copies its fields as they are, block pointer included, so
// only handlers that are not open may be copied.
//
//   PStream scratch(new PMemoryStreamHdl(/*granularity=*/1024));
//   scratch.Open(OpenReadWrite | OpenAllowEmpty);   // nothing to load
//   scratch.Write("abc", 3, 1);
//
// A handler belongs to one thread at a time.
#pragma once

#include <qvbase/PStream.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// Open-mode bits of handlers that load their content at open.
constexpr ULONG OpenNoLoad = 0x40000000;     // start empty, nothing is loaded
constexpr ULONG OpenAllowEmpty = 0x80000000; // reading empty content is no error

// The stream handler that keeps its whole content in one heap block.
class QVBASE_API PMemoryStreamHdl : public PStreamHdl {
public:
  // Granularity 0x10000.
  PMemoryStreamHdl();
  // Values of 16 or less give 16.
  explicit PMemoryStreamHdl(ULONG granularity);
  PMemoryStreamHdl(const PMemoryStreamHdl& other);
  PMemoryStreamHdl& operator=(const PMemoryStreamHdl& other);
  // Frees the block if the handler still holds one.
  ~PMemoryStreamHdl() override;

  ULONG GetGranularity() const { return m_granularity; }
  // Bytes allocated: the size rounded up to the granularity.
  ULONG GetCapacity() const { return m_capacity; }
  // The content changed since it was last stored with MemoryWrite.
  bool IsDirty() const { return m_dirty; }
  // The content, or null when nothing is allocated.
  const char* GetBuffer() const { return m_buffer; }

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override;
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override;
  void IOOpen(ULONG mode) override;
  void IOSetOpenMode(ULONG mode) override;
  ULONG IOGetAvailableOpenModes() const override;
  void IOClose() override;
  void IOFlush() override;
  ULONG IOOpenMode() const override;
  void IOSetSize(unsigned __int64 size) override;
  unsigned __int64 IOGetSize() const override;
  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override;
  unsigned __int64 IOGetPos() const override;
  bool IOIsAtEnd() const override;

  // Stores the whole content; nothing here.
  virtual void MemoryWrite(const char* data, ULONG size);
  // The size of the content to load at open; 0 here.
  virtual ULONG NeededSize();
  // Fills `buffer` with `size` bytes of content; nothing here.
  virtual void MemoryRead(char* buffer, ULONG size);

private:
  // Reads, writes and seeks that stay inside the block are carried out
  // without the guard for a handler of exactly this class.
  friend struct qvbase::streams::InPlace;

  // Signals a memory-stream error, prepared by this handler first.
  void RaiseError(int code, TypErrorSeverityEnum severity, ULONG line);
  // The same, thrown outright instead of signalled.
  [[noreturn]] void ThrowError(int code, ULONG line);
  // `bytes` rounded up to the granularity; false when that exceeds 32 bits.
  bool RoundUp(ULONG bytes, ULONG* rounded) const;
  // A block of `capacity` bytes (null for 0); raises 1007 and answers null
  // when it cannot be had.
  char* AllocateBlock(ULONG capacity, ULONG line);
  void ReleaseBlock();

  char* m_buffer;
  ULONG m_capacity;
  ULONG m_size;
  ULONG m_position;
  ULONG m_granularity;
  ULONG m_openMode;
  bool m_dirty;
};

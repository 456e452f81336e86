// PStream.cpp - the stream front object, the guarded operations of the
// abstract handler, and the stream copy. The COM stream adapter that the
// handler's QueryInterface hands out is in PStreamAdapter.cpp.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PStream.h>

#include <qvbase/GDbg.h>
#include <qvbase/PBenchmark.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PProgressHook.h> // the copy reports through the hook's virtual operations

#include "errors/ErrorTrace.h"
#include "errors/RaiseError.h"
#include "streams/InPlace.h"
#include "streams/PStreamHandlerRef.h"

using qvbase::streams::InPlace;

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PStream";

// The class a switched-on benchmark names for the calls timed here.
const char kProfiledClass[] = "PStreamHdl";

} // namespace

// ---------------------------------------------------------------------------
// PStreamHdl

PStreamHdl::PStreamHdl() : m_failed(false) {}

PStreamHdl::PStreamHdl(const PStreamHdl& other) : PSmartData(other), m_failed(other.m_failed) {}

PStreamHdl& PStreamHdl::operator=(const PStreamHdl& other) {
  PSmartData::operator=(other);
  m_failed = other.m_failed;
  return *this;
}

PStreamHdl::~PStreamHdl() = default;

void PStreamHdl::Uninitialize() {
  if (IOOpenMode() == 0)
    return;
  if (!m_failed) {
    Close();
    return;
  }
  qvbase::errors::NoErrorModeScope quiet(kSourceFile, __LINE__);
  try {
    PFullErrorProtection protection(true);
    IOClose();
  } catch (const PError&) {
    // The stream failed before; its closing error is not raised again.
  }
}

template <typename Operation>
auto PStreamHdl::RunGuarded(Operation operation, bool restorePosition) -> decltype(operation()) {
  const unsigned __int64 start = restorePosition ? IOGetPos() : 0;
  for (;;) {
    try {
      PErrorRetryProtection retry(true);
      m_failed = false;
      return operation();
    } catch (const PError& error) {
      GDbgEnterHandling(error, kSourceFile, __LINE__);
      m_failed = true;
      if (error.Code() != kErrControlRetry) {
        GDbgErrorForwarded(error, kSourceFile, __LINE__);
        throw PError(error);
      }
      GDbgErrorCatched(error, kSourceFile, __LINE__);
      // A retried read or write starts again from its first position.
      if (restorePosition)
        IOSetPos(SeekFromStart, start);
    }
  }
}

// The section cases of the in-place copies: a section of exactly the
// library's class over a parent that carries the request out in place.
bool InPlace::SectionRead(PStreamSectionHdl* s, char* to, unsigned __int64 bytes) {
  PStreamHdl* parent = s->m_stream.GetHandler();
  if (s->m_openMode != OpenRead || !parent || !Read(parent, to, bytes))
    return false;
  s->m_failed = false;
  return true;
}

bool InPlace::SectionWrite(PStreamSectionHdl* s, const char* from, unsigned __int64 bytes) {
  PStreamHdl* parent = s->m_stream.GetHandler();
  if (s->m_openMode != OpenWrite || !parent || !Write(parent, from, bytes))
    return false;
  const PMemoryStreamHdl* memory = PlainMemory(parent);
  const unsigned __int64 position = (memory ? memory->m_position : parent->GetPos()) - s->m_start;
  if (position > s->m_size)
    s->m_size = position;
  s->m_failed = false;
  return true;
}

namespace {
unsigned __int64 Bytes(ULONG count, ULONG itemSize) {
  return static_cast<unsigned __int64>(count) * itemSize;
}
} // namespace

ULONG PStreamHdl::Read(char* buffer, ULONG count, ULONG itemSize) {
  if (InPlace::Read(this, buffer, Bytes(count, itemSize)))
    return count;
  return RunGuarded([&] { return IORead(buffer, count, itemSize); }, /*restorePosition=*/true);
}

ULONG PStreamHdl::Write(const char* buffer, ULONG count, ULONG itemSize) {
  if (InPlace::Write(this, buffer, Bytes(count, itemSize)))
    return count;
  return RunGuarded([&] { return IOWrite(buffer, count, itemSize); }, /*restorePosition=*/true);
}

void PStreamHdl::Open(ULONG mode) {
  PBenchmarkCall call(kProfiledClass, "Open", kSourceFile);
  if (InPlace::OpenSection(this, mode))
    return;
  RunGuarded([&] { IOOpen(mode); }, /*restorePosition=*/false);
}

void PStreamHdl::SetOpenMode(ULONG mode) {
  RunGuarded([&] { IOSetOpenMode(mode); }, /*restorePosition=*/false);
}

ULONG PStreamHdl::GetAvailableOpenModes() const { return IOGetAvailableOpenModes(); }

void PStreamHdl::Close() {
  PBenchmarkCall call(kProfiledClass, "Close", kSourceFile);
  if (InPlace::CloseSection(this))
    return;
  RunGuarded([&] { IOClose(); }, /*restorePosition=*/false);
}

void PStreamHdl::Flush() {
  RunGuarded([&] { IOFlush(); }, /*restorePosition=*/false);
}

ULONG PStreamHdl::OpenMode() const { return IOOpenMode(); }

void PStreamHdl::SetSize(unsigned __int64 size) {
  RunGuarded([&] { IOSetSize(size); }, /*restorePosition=*/false);
}

unsigned __int64 PStreamHdl::GetSize() const { return IOGetSize(); }

void PStreamHdl::SetPos(TypSeekMode mode, unsigned __int64 offset) {
  if (InPlace::Seek(this, mode, offset))
    return;
  RunGuarded([&] { IOSetPos(mode, offset); }, /*restorePosition=*/false);
}

unsigned __int64 PStreamHdl::GetPos() const { return IOGetPos(); }

bool PStreamHdl::IsAtEnd() const { return IOIsAtEnd(); }

PError PStreamHdl::PrepareError(PError& error) { return IOPrepareError(error); }

PError PStreamHdl::IOPrepareError(PError& error) { return PError(error); }

// ---------------------------------------------------------------------------
// PStream

PStream::PStream() : m_handler(nullptr), m_byteOrdering(kByteOrderingIntel) {}

PStream::PStream(PStreamHdl* handler) : m_handler(nullptr), m_byteOrdering(kByteOrderingIntel) {
  AssignHandler(handler);
}

PStream::PStream(const PStream& other)
    : PRoot(other), m_handler(nullptr), m_byteOrdering(other.m_byteOrdering) {
  AssignHandler(other.m_handler);
}

PStream& PStream::operator=(const PStream& other) {
  m_byteOrdering = other.m_byteOrdering;
  AssignHandler(other.m_handler);
  return *this;
}

PStream::~PStream() {
  try {
    AssignHandler(nullptr);
  } catch (...) {
    // Signalled through the protections already; a destructor cannot throw.
  }
}

void PStream::AssignHandler(PStreamHdl* handler) {
  qvbase::streams::AssignStreamHandler(m_handler, handler);
}

void PStream::InvalidStreamNotification() const {
  qvbase::errors::RaiseThrough(*this, kErrStreamNoHandler, ErrorSeverityFatal, kSourceFile,
                               __LINE__);
}

bool PStream::CheckHandler() const {
  if (!m_handler)
    InvalidStreamNotification();
  return m_handler != nullptr;
}

// When the 1220 signal returns (a hook dropped it), the operation does
// nothing and reads and writes report 0 items.

void PStream::Open(ULONG mode) {
  if (CheckHandler())
    m_handler->Open(mode);
}

void PStream::SetOpenMode(ULONG mode) {
  if (CheckHandler())
    m_handler->SetOpenMode(mode);
}

void PStream::Close() {
  if (CheckHandler())
    m_handler->Close();
}

void PStream::Flush() {
  if (CheckHandler())
    m_handler->Flush();
}

// The plain memory handler's public Read, Write and SetPos are the base
// class's, which take the in-place copy first: taken here at once, it is the
// same call without the virtual dispatch.

ULONG PStream::Read(char* buffer, ULONG count, ULONG itemSize) {
  if (m_handler && InPlace::Read(m_handler, buffer, Bytes(count, itemSize)))
    return count;
  return CheckHandler() ? m_handler->Read(buffer, count, itemSize) : 0;
}

ULONG PStream::Write(const char* buffer, ULONG count, ULONG itemSize) {
  if (m_handler && InPlace::Write(m_handler, buffer, Bytes(count, itemSize)))
    return count;
  return CheckHandler() ? m_handler->Write(buffer, count, itemSize) : 0;
}

void PStream::SetSize(unsigned __int64 size) {
  if (CheckHandler())
    m_handler->SetSize(size);
}

void PStream::SetPos(TypSeekMode mode, unsigned __int64 offset) {
  if (m_handler && InPlace::Seek(m_handler, mode, offset))
    return;
  if (CheckHandler())
    m_handler->SetPos(mode, offset);
}

void PStream::MoveTo(unsigned __int64 offset) { SetPos(SeekFromStart, offset); }
void PStream::MoveFromEnd(unsigned __int64 offset) { SetPos(SeekFromEnd, offset); }
void PStream::MoveFwd(unsigned __int64 offset) { SetPos(SeekFwd, offset); }
void PStream::MoveBack(unsigned __int64 offset) { SetPos(SeekBack, offset); }

ULONG PStream::OpenMode() const { return m_handler ? m_handler->OpenMode() : 0; }
unsigned __int64 PStream::GetSize() const { return m_handler ? m_handler->GetSize() : 0; }
unsigned __int64 PStream::GetPos() const { return m_handler ? m_handler->GetPos() : 0; }
bool PStream::IsAtEnd() const { return m_handler ? m_handler->IsAtEnd() : false; }
bool PStream::IsOpened() const { return m_handler ? m_handler->IsOpened() : false; }
bool PStream::IsReadable() const { return m_handler ? m_handler->IsReadable() : false; }
bool PStream::IsWritable() const { return m_handler ? m_handler->IsWritable() : false; }

PError PStream::PrepareError(PError& error) const {
  return m_handler ? m_handler->PrepareError(error) : PError(error);
}

void PStream::SetByteOrdering(unsigned short ordering) {
  if (ordering != kByteOrderingIntel && ordering != kByteOrderingMotorola) {
    qvbase::errors::RaiseThrough(*this, kErrStreamBadFormat, ErrorSeverityError, kSourceFile,
                                 __LINE__);
    return; // a dropped signal leaves the ordering as it was
  }
  m_byteOrdering = ordering;
}

void PStream::ReadByteOrdering() {
  unsigned char marker[2] = {0, 0};
  Read(reinterpret_cast<char*>(marker), /*count=*/1, /*itemSize=*/2);
  // The two characters as they lie in memory: "II" and "MM" read the same
  // in either byte order.
  SetByteOrdering(static_cast<unsigned short>(marker[0] | (marker[1] << 8)));
}

void PStream::WriteByteOrdering() {
  // Never swapped: the stream holds the two marker characters.
  const unsigned char marker[2] = {static_cast<unsigned char>(m_byteOrdering & 0xFF),
                                   static_cast<unsigned char>(m_byteOrdering >> 8)};
  Write(reinterpret_cast<const char*>(marker), /*count=*/2, /*itemSize=*/1);
}

// ---------------------------------------------------------------------------
// GStreamDuplication

namespace {

constexpr ULONG kDuplicationChunk = 0x800;

void CopyChunks(PStream& source, PStream& destination, PProgressHook* hook) {
  unsigned __int64 remaining = source.GetSize();
  unsigned shift = 0;
  if (hook) {
    unsigned __int64 shifted = remaining;
    while (shifted > 0xFFFFFFFFull) {
      shifted >>= 1;
      ++shift;
    }
    hook->SetEndValue(static_cast<ULONG>(shifted));
  }
  unsigned __int64 copied = 0;
  char buffer[kDuplicationChunk];
  while (remaining != 0) {
    const ULONG chunk =
        remaining < kDuplicationChunk ? static_cast<ULONG>(remaining) : kDuplicationChunk;
    // Deliberately, the count the read returns is not looked at: the chunk is
    // written whole, and a short source is the handler's to report.
    source.Read(buffer, chunk, /*itemSize=*/1);
    destination.Write(buffer, chunk, /*itemSize=*/1);
    if (hook) {
      // Deliberately one chunk behind: the figure is what was copied before
      // this chunk, so the last chunk is never reported (the caller's Stop
      // completes the range). Continue raises the cancellation error when
      // the hook's observer cancelled: the copy's only way out early.
      hook->SetCurrentValue(static_cast<ULONG>(copied >> shift));
      hook->Continue();
    }
    remaining -= chunk;
    copied += chunk;
  }
}

} // namespace

void GStreamDuplication(PStream& source, PStream& destination, bool open, ULONG mode,
                        PProgressHook* hook) {
  if (!open) {
    CopyChunks(source, destination, hook);
    return;
  }
  source.Open(OpenRead);
  try {
    destination.Open((mode & ~OpenRead) | OpenWrite);
  } catch (...) {
    source.Close();
    throw;
  }
  try {
    CopyChunks(source, destination, hook);
  } catch (...) {
    // Close what was opened here; a closing error must not hide the first.
    try {
      source.Close();
    } catch (const PError&) {
    }
    try {
      destination.Close();
    } catch (const PError&) {
    }
    throw;
  }
  source.Close();
  destination.Close();
}

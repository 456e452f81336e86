// PStream.cpp - the stream front object, the guarded operations of the
// abstract handler, and the stream copy. The COM stream adapter that the
// handler's QueryInterface hands out is in PStreamAdapter.cpp.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PStream.h>

#include <qvbase/GDbg.h>
#include <qvbase/PBenchmark.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>  // the plain memory handler's unguarded copies
#include <qvbase/PProgressHook.h>  // the copy reports through the hook's virtual operations
#include <qvbase/PStreamSection.h> // sections over the plain memory handler

#include <typeinfo>

#include "errors/ErrorTrace.h"
#include "errors/RaiseError.h"
#include "streams/PStreamHandlerRef.h"

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

// True for a handler of exactly the library's memory handler class, not one
// derived from it: nobody else can see its IO calls, so a read, write or
// seek that can neither fail nor call out (a copy inside its block) may skip
// the guard. A derived memory handler, which may watch its IO calls, always
// takes the guarded path and sees every call. The type records are compared
// by address: where a platform keeps more than one record of the class, a
// handler may miss the shortcut, never take it wrongly.
namespace {
bool IsPlainMemoryHandler(const PStreamHdl& handler) {
  return &typeid(handler) == &typeid(PMemoryStreamHdl);
}
} // namespace

// What the guarded pattern gives for such a request: the attempt clears the
// failed flag, the copy raises nothing, so no retry can follow and the
// protection and the remembered position go unused.

// The same holds for a section of exactly the library's section class over
// such a handler: its read or write is one in-place copy of the parent, and
// the parent, the plain memory handler, sees nothing of the position query
// the section's guard would have made.

bool PStreamHdl::ReadInPlace(char* buffer, ULONG count, ULONG itemSize) {
  const std::type_info& type = typeid(*this);
  if (&type == &typeid(PMemoryStreamHdl)) {
    if (!static_cast<PMemoryStreamHdl*>(this)->ReadInsideContent(buffer, count, itemSize))
      return false;
  } else if (&type != &typeid(PStreamSectionHdl) ||
             !static_cast<PStreamSectionHdl*>(this)->ReadThroughParent(buffer, count, itemSize)) {
    return false;
  }
  m_failed = false;
  return true;
}

bool PStreamHdl::WriteInPlace(const char* buffer, ULONG count, ULONG itemSize) {
  const std::type_info& type = typeid(*this);
  if (&type == &typeid(PMemoryStreamHdl)) {
    if (!static_cast<PMemoryStreamHdl*>(this)->WriteInsideBlock(buffer, count, itemSize))
      return false;
  } else if (&type != &typeid(PStreamSectionHdl) ||
             !static_cast<PStreamSectionHdl*>(this)->WriteThroughParent(buffer, count, itemSize)) {
    return false;
  }
  m_failed = false;
  return true;
}

bool PStreamHdl::SeekInPlace(TypSeekMode mode, unsigned __int64 offset) {
  if (!IsPlainMemoryHandler(*this) ||
      !static_cast<PMemoryStreamHdl*>(this)->SeekInsideContent(mode, offset))
    return false;
  m_failed = false;
  return true;
}

ULONG PStreamHdl::Read(char* buffer, ULONG count, ULONG itemSize) {
  if (ReadInPlace(buffer, count, itemSize))
    return count;
  return RunGuarded([&] { return IORead(buffer, count, itemSize); }, /*restorePosition=*/true);
}

ULONG PStreamHdl::Write(const char* buffer, ULONG count, ULONG itemSize) {
  if (WriteInPlace(buffer, count, itemSize))
    return count;
  return RunGuarded([&] { return IOWrite(buffer, count, itemSize); }, /*restorePosition=*/true);
}

void PStreamHdl::Open(ULONG mode) {
  PBenchmarkCall call(kProfiledClass, "Open", kSourceFile);
  RunGuarded([&] { IOOpen(mode); }, /*restorePosition=*/false);
}

void PStreamHdl::SetOpenMode(ULONG mode) {
  RunGuarded([&] { IOSetOpenMode(mode); }, /*restorePosition=*/false);
}

ULONG PStreamHdl::GetAvailableOpenModes() const { return IOGetAvailableOpenModes(); }

void PStreamHdl::Close() {
  PBenchmarkCall call(kProfiledClass, "Close", kSourceFile);
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
  if (SeekInPlace(mode, offset))
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
  if (m_handler && m_handler->ReadInPlace(buffer, count, itemSize))
    return count;
  return CheckHandler() ? m_handler->Read(buffer, count, itemSize) : 0;
}

ULONG PStream::Write(const char* buffer, ULONG count, ULONG itemSize) {
  if (m_handler && m_handler->WriteInPlace(buffer, count, itemSize))
    return count;
  return CheckHandler() ? m_handler->Write(buffer, count, itemSize) : 0;
}

void PStream::SetSize(unsigned __int64 size) {
  if (CheckHandler())
    m_handler->SetSize(size);
}

void PStream::SetPos(TypSeekMode mode, unsigned __int64 offset) {
  if (m_handler && m_handler->SeekInPlace(mode, offset))
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

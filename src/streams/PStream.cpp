// PStream.cpp - the stream front object, the guarded operations of the
// abstract handler, the stream copy, and the COM stream adapter.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PStream.h>

#include <qvbase/GDbg.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/WINError.h>

#include <new>

#include "streams/PStreamHandlerRef.h"

namespace {

const char kSourceFile[] = "src\\PStream";

constexpr int kErrorNoHandler = 1220;
constexpr int kErrorBadSeekMode = 1225;
constexpr int kErrorByteOrdering = 1233;
// The control code a protection throws when its hook answers "retry".
constexpr int kRetryControlCode = 1;

// Signals an error of this file after the chain has prepared it.
void RaiseError(PError error) {
  PError prepared = PErrorProtectionStatus().PrepareError(error);
  PErrorProtectionStatus().SignalError(prepared);
}

// The error trace in no-error mode for one scope.
class NoErrorModeScope {
public:
  NoErrorModeScope(const char* file, ULONG line) { GDbgEnterNoErrorMode(file, line); }
  ~NoErrorModeScope() { GDbgExitNoErrorMode(); }
  NoErrorModeScope(const NoErrorModeScope&) = delete;
  NoErrorModeScope& operator=(const NoErrorModeScope&) = delete;
};

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
  NoErrorModeScope quiet(kSourceFile, __LINE__);
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
      if (error.Code() != kRetryControlCode) {
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

ULONG PStreamHdl::Read(char* buffer, ULONG count, ULONG itemSize) {
  return RunGuarded([&] { return IORead(buffer, count, itemSize); }, /*restorePosition=*/true);
}

ULONG PStreamHdl::Write(const char* buffer, ULONG count, ULONG itemSize) {
  return RunGuarded([&] { return IOWrite(buffer, count, itemSize); }, /*restorePosition=*/true);
}

void PStreamHdl::Open(ULONG mode) {
  RunGuarded([&] { IOOpen(mode); }, /*restorePosition=*/false);
}

void PStreamHdl::SetOpenMode(ULONG mode) {
  RunGuarded([&] { IOSetOpenMode(mode); }, /*restorePosition=*/false);
}

ULONG PStreamHdl::GetAvailableOpenModes() const { return IOGetAvailableOpenModes(); }

void PStreamHdl::Close() {
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
  qvbase::AssignStreamHandler(m_handler, handler);
}

void PStream::InvalidStreamNotification() const {
  PError error(kErrorNoHandler, ErrorSeverityFatal, kSourceFile, __LINE__);
  RaiseError(PrepareError(error));
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

ULONG PStream::Read(char* buffer, ULONG count, ULONG itemSize) {
  return CheckHandler() ? m_handler->Read(buffer, count, itemSize) : 0;
}

ULONG PStream::Write(const char* buffer, ULONG count, ULONG itemSize) {
  return CheckHandler() ? m_handler->Write(buffer, count, itemSize) : 0;
}

void PStream::SetSize(unsigned __int64 size) {
  if (CheckHandler())
    m_handler->SetSize(size);
}

void PStream::SetPos(TypSeekMode mode, unsigned __int64 offset) {
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
    PError error(kErrorByteOrdering, ErrorSeverityError, kSourceFile, __LINE__);
    RaiseError(PrepareError(error));
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

// The progress hook's three steps. The progress family sits above the
// streams and reports through these: with no hook nothing happens.
void ProgressSetEnd(PProgressHook*, ULONG) {}
void ProgressSetCurrent(PProgressHook*, ULONG) {}
void ProgressContinue(PProgressHook*) {}

void CopyChunks(PStream& source, PStream& destination, PProgressHook* hook) {
  unsigned __int64 remaining = source.GetSize();
  unsigned shift = 0;
  if (hook) {
    unsigned __int64 shifted = remaining;
    while (shifted > 0xFFFFFFFFull) {
      shifted >>= 1;
      ++shift;
    }
    ProgressSetEnd(hook, static_cast<ULONG>(shifted));
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
      // this chunk.
      ProgressSetCurrent(hook, static_cast<ULONG>(copied >> shift));
      ProgressContinue(hook);
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

// ---------------------------------------------------------------------------
// The COM stream adapter

namespace {

constexpr ULONG kCopyChunk = 0x800;

// IStream and ISequentialStream over a handler. The adapter keeps its own
// count and holds one counted reference to the handler for its whole life, so
// the handler outlives every stream that refers to it as long as an adapter
// does. Each handler operation runs inside a full protection with the trace
// in no-error mode: an error comes back as a status, never as an exception
// and never shown by a hook outside.
class PStreamAdapter : public IStream {
public:
  explicit PStreamAdapter(PStreamHdl* handler) : m_refCount(0), m_handler(nullptr) {
    qvbase::AssignStreamHandler(m_handler, handler);
  }

  PStreamAdapter(const PStreamAdapter&) = delete;
  PStreamAdapter& operator=(const PStreamAdapter&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out)
      return E_POINTER;
    *out = nullptr;
    if (!IsEqualGUID(iid, IID_IUnknown) && !IsEqualGUID(iid, IID_ISequentialStream) &&
        !IsEqualGUID(iid, IID_IStream))
      return E_NOINTERFACE;
    *out = static_cast<IStream*>(this);
    AddRef();
    return S_OK;
  }

  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refCount; }

  ULONG STDMETHODCALLTYPE Release() override {
    ULONG count = --m_refCount;
    if (count == 0)
      delete this;
    return count;
  }

  // Deliberately one item of the requested byte count, and the handler's
  // item count (1 for a complete transfer, else 0) goes out as the
  // transferred count.
  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override {
    if (read)
      *read = 0;
    if (!m_handler)
      return STG_E_INVALIDPOINTER;
    ULONG items = 0;
    HRESULT status = Run([&] { items = m_handler->Read(static_cast<char*>(buffer), 1, count); });
    if (read)
      *read = items;
    return status;
  }

  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) override {
    if (written)
      *written = 0;
    if (!m_handler)
      return STG_E_INVALIDPOINTER;
    ULONG items = 0;
    HRESULT status =
        Run([&] { items = m_handler->Write(static_cast<const char*>(buffer), 1, count); });
    if (written)
      *written = items;
    return status;
  }

  // Deliberately the origin goes to the handler as its seek mode and the
  // offset as an unsigned value: 0 moves forward, 1 back, 2 from the start,
  // 3 from the end, and other origins are refused as unknown modes.
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin,
                                 ULARGE_INTEGER* newPosition) override {
    if (!m_handler)
      return STG_E_INVALIDPOINTER;
    int code = 0;
    HRESULT status = Run(
        [&] {
          m_handler->SetPos(static_cast<TypSeekMode>(origin),
                            static_cast<unsigned __int64>(move.QuadPart));
          if (newPosition)
            newPosition->QuadPart = m_handler->GetPos();
        },
        &code);
    return code == kErrorBadSeekMode ? STG_E_INVALIDFUNCTION : status;
  }

  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER newSize) override {
    if (!m_handler)
      return STG_E_INVALIDPOINTER;
    return Run([&] { m_handler->SetSize(newSize.QuadPart); });
  }

  // Reads in chunks of bytes and writes each to the target until the count
  // is copied or the source runs short. A failing target stops the copy and
  // its status is the answer; the counts say how far the copy got.
  HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                   ULARGE_INTEGER* written) override {
    unsigned __int64 totalRead = 0;
    unsigned __int64 totalWritten = 0;
    HRESULT status = S_OK;
    if (!m_handler || !target) {
      status = STG_E_INVALIDPOINTER;
    } else {
      char buffer[kCopyChunk];
      unsigned __int64 remaining = count.QuadPart;
      while (remaining != 0) {
        const ULONG chunk = remaining < kCopyChunk ? static_cast<ULONG>(remaining) : kCopyChunk;
        ULONG got = 0;
        status = Run([&] { got = m_handler->Read(buffer, chunk, /*itemSize=*/1); });
        if (FAILED(status) || got == 0)
          break;
        totalRead += got;
        ULONG put = 0;
        status = target->Write(buffer, got, &put);
        totalWritten += put;
        if (FAILED(status) || got < chunk)
          break;
        remaining -= got;
      }
    }
    if (read)
      read->QuadPart = totalRead;
    if (written)
      written->QuadPart = totalWritten;
    return status;
  }

  // A failing flush is reported rather than hidden behind S_OK.
  // The flush runs inside the protection like every operation; Commit
  // answers S_OK whatever it reported.
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override {
    if (m_handler)
      Run([&] { m_handler->Flush(); });
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }

  // Region locking is not offered.
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return STG_E_INVALIDFUNCTION;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return STG_E_INVALIDFUNCTION;
  }

  // Deliberately answers success without filling the record.
  HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return S_OK; }

  HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

private:
  virtual ~PStreamAdapter() {
    try {
      qvbase::AssignStreamHandler(m_handler, nullptr);
    } catch (...) {
      // The handler's closing error has no caller to go to.
    }
  }

  // Runs one handler step inside the protection; its error as a status, and
  // its code in *code when asked.
  template <typename Step>
  static HRESULT Run(Step step, int* code = nullptr) {
    NoErrorModeScope quiet(kSourceFile, __LINE__);
    try {
      PFullErrorProtection protection(true);
      step();
      return S_OK;
    } catch (const PError& error) {
      if (code)
        *code = error.Code();
      return HResultFromPError(error);
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    } catch (...) {
      return E_FAIL;
    }
  }

  ULONG m_refCount;
  PStreamHdl* m_handler;
};

} // namespace

HRESULT PStreamHdl::QueryInterface(const _GUID& iid, void** out) const {
  if (!IsEqualGUID(iid, IID_IStream) && !IsEqualGUID(iid, IID_ISequentialStream))
    return PSmartData::QueryInterface(iid, out);
  if (!out)
    return E_POINTER;
  *out = nullptr;
  // A fresh adapter on every query.
  PStreamAdapter* adapter = new (std::nothrow) PStreamAdapter(const_cast<PStreamHdl*>(this));
  if (!adapter)
    return E_OUTOFMEMORY;
  adapter->AddRef();
  *out = static_cast<IStream*>(adapter);
  return S_OK;
}

// PStreamAdapter.cpp - the COM stream adapter: IStream over a stream handler,
// handed out by PStreamHdl::QueryInterface.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PStream.h>
#include <qvbase/WINError.h>

#include <new>

#include "errors/ErrorTrace.h"
#include "streams/PStreamHandlerRef.h"

namespace {

// The adapter belongs to the stream family: its positions are the family's.
// A defined position, not a path of this tree.
const char kSourceFile[] = "src\\PStream";

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
    qvbase::streams::AssignStreamHandler(m_handler, handler);
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
    return code == kErrStreamBadSeekMode ? STG_E_INVALIDFUNCTION : status;
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

  // The flush runs inside the protection like every operation, so its error
  // neither escapes nor reaches a hook. Deliberately, Commit answers S_OK
  // whatever the flush did, and also without a handler: a caller cannot
  // learn from Commit that a flush failed.
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
      qvbase::streams::AssignStreamHandler(m_handler, nullptr);
    } catch (...) {
      // The handler's closing error has no caller to go to.
    }
  }

  // Runs one handler step inside the protection; its error as a status, and
  // its code in *code when asked.
  template <typename Step>
  static HRESULT Run(Step step, int* code = nullptr) {
    qvbase::errors::NoErrorModeScope quiet(kSourceFile, __LINE__);
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

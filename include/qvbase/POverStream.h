// POverStream.h - the stream handler that stacks on another stream.
// Part of qvbase, the QVKernel foundation class library.
//
// POverStreamHdl holds a PStream (a copy of the one it was given: it shares
// that stream's handler and byte ordering) and carries out every IO
// operation on it, one to one. Derived handlers - stream sections, for
// instance - override only what they change. Errors raised at any layer are
// prepared by the innermost handler: IOPrepareError hands them to the stream
// beneath.
//
//   PStream base(new PMemoryStreamHdl);
//   PStream layered(new MyOverStreamHdl(base));   // derives from POverStreamHdl
//
// The handler and the stream beneath belong to one thread at a time.
#pragma once

#include <qvbase/PStream.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The stream handler that stacks on another stream and forwards to it.
class QVBASE_API POverStreamHdl : public PStreamHdl {
public:
  explicit POverStreamHdl(PStream& stream);
  POverStreamHdl(const POverStreamHdl& other);
  POverStreamHdl& operator=(const POverStreamHdl& other);
  ~POverStreamHdl() override;

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override;
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override;
  void IOOpen(ULONG mode) override;
  void IOSetOpenMode(ULONG mode) override;
  // The beneath handler's available modes; 0 when it has no handler.
  ULONG IOGetAvailableOpenModes() const override;
  void IOClose() override;
  void IOFlush() override;
  ULONG IOOpenMode() const override;
  void IOSetSize(unsigned __int64 size) override;
  unsigned __int64 IOGetSize() const override;
  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override;
  unsigned __int64 IOGetPos() const override;
  bool IOIsAtEnd() const override;
  PError IOPrepareError(PError& error) override;

  // The stream beneath.
  PStream m_stream;
  // The open mode of derived handlers that keep a mode of their own (0 when
  // closed). The forwarding operations here neither read nor change it.
  ULONG m_openMode;
};

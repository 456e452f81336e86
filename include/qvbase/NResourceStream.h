// NResourceStream.h - a read-only stream over one resource's bytes.
// Part of qvbase, the QVKernel foundation class library.
//
// NResourceStream is a memory stream handler whose content is a resource:
// opening it for reading finds the resource in its module (FindResourceA,
// SizeofResource, LoadResource, LockResource) and copies its bytes into the
// handler's block; from then on the stream works on that copy alone. The
// resource is read-only: the stream opens only with the exact mode OpenRead.
//
//   PStream stream = GTesselResourceStream(NResourceType(kResTypeRawData), 7);
//   stream.Open(OpenRead);
//   LONG value;
//   stream.Read(&value);
//
// Failures are PErrors signalled through the handler's PrepareError and the
// protection chain, source "src\NResourceStream", severity 25:
//   1221 (kErrStreamOpenModeInvalid) an open mode other than OpenRead; when
//        the signal returns the stream stays closed;
//   -1   (kErrResourceMissing) the module lacks the resource, or it cannot
//        be loaded; when the signal returns the stream has no content, and
//        opening it for reading then fails as an empty memory stream does
//        (1221, severity 29).
// Like every handler it belongs to one thread at a time.
#pragma once

#include <qvbase/NResource.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// A read-only stream handler over the bytes of one resource, loaded at open.
class QVBASE_API NResourceStream : public PMemoryStreamHdl {
public:
  // Over no resource: opening it fails with -1.
  NResourceStream();
  explicit NResourceStream(const NResourceDesc& resource);
  // Copies take the description and, as every memory handler, the fields as
  // they are: copy only handlers that are not open.
  NResourceStream(const NResourceStream& other);
  NResourceStream& operator=(const NResourceStream& other);
  ~NResourceStream() override;

  const NResourceDesc& Resource() const { return m_resource; }

protected:
  // Only OpenRead: the resource is read-only.
  void IOOpen(ULONG mode) override;
  // OpenRead alone.
  ULONG IOGetAvailableOpenModes() const override;
  // The resource's size, found and locked on first need.
  ULONG NeededSize() override;
  // Copies the locked bytes.
  void MemoryRead(char* buffer, ULONG size) override;

private:
  // Finds, loads and locks the resource; signals -1 when that fails.
  void LoadResource();

  NResourceDesc m_resource;
  const char* m_data; // the locked resource bytes; null until loaded
  ULONG m_size;       // their count; 0 until loaded
};

// A stream over resource `id` of that type among this library's own
// resources (GTesselResource), with a new NResourceStream as its handler.
// Open it for reading (OpenRead); a missing resource signals -1 then.
QVBASE_API PStream GTesselResourceStream(const NResourceType& type, ULONG id);

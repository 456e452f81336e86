// PTextStream.h - the front object of text handlers.
// Part of qvbase, the QVKernel foundation class library.
//
// PTextStream is not a PStream: it holds one counted reference to a stream
// handler and nothing else (no byte ordering), so that text handlers have a
// front object of their own. It keeps its handler alive exactly as PStream
// does: construction and copies take a reference, assignment takes the new
// one before dropping the old, and the last reference going away closes a
// handler that is still open and deletes it.
//
// A text stream belongs to one thread at a time.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/PStream.h>
#include <qvbase/QVExport.h>

// The front object of text handlers: one counted reference to a handler.
class QVBASE_API PTextStream : public PRoot {
public:
  PTextStream();
  // Takes a counted reference; null gives a text stream without handler.
  PTextStream(PStreamHdl* handler);
  PTextStream(const PTextStream& other);
  PTextStream& operator=(const PTextStream& other);
  ~PTextStream() override;

private:
  PStreamHdl* m_handler;
};

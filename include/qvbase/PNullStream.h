// PNullStream.h - a write-only stream that stores nothing and counts.
// Part of qvbase, the QVKernel foundation class library.
//
// Writing an object to a PNullStream tells its size and checks that writing
// it works, without producing bytes: the stream's handler only counts the
// position and the highest position reached (its size). It cannot be read.
// Each PNullStream made by the default constructor has a new handler of its
// own; copies share it like any PStream.
//
//   PNullStream counter;
//   counter.Open(OpenWrite);
//   document.WriteTo(counter);
//   unsigned __int64 bytes = counter.GetSize();
//
// A null stream belongs to one thread at a time.
#pragma once

#include <qvbase/PStream.h>
#include <qvbase/QVExport.h>

// A write-only stream that stores nothing and counts what is written.
class QVBASE_API PNullStream : public PStream {
public:
  // A new null handler, byte ordering "II".
  PNullStream();
  PNullStream(const PNullStream& other);
  PNullStream& operator=(const PNullStream& other);
  ~PNullStream() override;
};

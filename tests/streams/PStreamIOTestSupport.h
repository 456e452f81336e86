// PStreamIOTestSupport.h - what the typed stream suite's files share: a
// scratch stream in a byte ordering, its bytes, and the two orderings.
#pragma once

#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PString.h>

#include <string>
#include <vector>

namespace qvbase::test {

using Bytes = std::vector<unsigned char>;

inline PStream NewStream(unsigned short ordering) {
  PStream stream(new PMemoryStreamHdl(16));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

inline Bytes Content(PStream& stream) {
  unsigned long long size = stream.GetSize();
  Bytes bytes(static_cast<std::size_t>(size));
  stream.MoveTo(0);
  if (size)
    stream.Read(reinterpret_cast<char*>(bytes.data()), static_cast<ULONG>(size), 1);
  stream.MoveTo(0);
  return bytes;
}

inline void Put(PStream& stream, const Bytes& bytes) {
  if (!bytes.empty())
    stream.Write(reinterpret_cast<const char*>(bytes.data()), static_cast<ULONG>(bytes.size()), 1);
  stream.MoveTo(0);
}

inline std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }

struct Order {
  const char* name;
  unsigned short value;
};
const Order kOrders[] = {{"II", kByteOrderingIntel}, {"MM", kByteOrderingMotorola}};

} // namespace qvbase::test

// A memory handler that records, in order, the IO calls the stream and
// section operations make on it, then carries each out as the library's
// memory handler does. Being a derived class, it never takes the in-place
// paths the library keeps for its own handler: set against a plain handler,
// it shows that those paths leave every observable call as it was.
#pragma once

#include <qvbase/PMemoryStream.h>

#include <string>
#include <vector>

namespace qvbase::test {

class RecordingMemoryHdl : public PMemoryStreamHdl {
public:
  explicit RecordingMemoryHdl(ULONG granularity) : PMemoryStreamHdl(granularity) {}

  std::vector<std::string> calls;

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override {
    calls.push_back("IORead " + std::to_string(count) + "x" + std::to_string(itemSize));
    return PMemoryStreamHdl::IORead(buffer, count, itemSize);
  }
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    calls.push_back("IOWrite " + std::to_string(count) + "x" + std::to_string(itemSize));
    return PMemoryStreamHdl::IOWrite(buffer, count, itemSize);
  }
  void IOSetSize(unsigned __int64 size) override {
    calls.push_back("IOSetSize " + std::to_string(size));
    PMemoryStreamHdl::IOSetSize(size);
  }
  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override {
    calls.push_back("IOSetPos " + std::to_string(mode) + " " + std::to_string(offset));
    PMemoryStreamHdl::IOSetPos(mode, offset);
  }
  unsigned __int64 IOGetPos() const override {
    const_cast<RecordingMemoryHdl*>(this)->calls.push_back("IOGetPos");
    return PMemoryStreamHdl::IOGetPos();
  }
};

} // namespace qvbase::test

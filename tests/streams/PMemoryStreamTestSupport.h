// PMemoryStreamTestSupport.h - what the memory stream suite's files share: a
// handler whose content lives in a string, a scratch stream, and the check
// of a memory-stream error.
#pragma once

#include <qvbase/PError.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace qvbase::test {

// A memory handler whose content lives in a string: loaded at open, stored
// back at flush and close.
class LoadingHdl : public PMemoryStreamHdl {
public:
  explicit LoadingHdl(std::string content, ULONG granularity = 16)
      : PMemoryStreamHdl(granularity), source(std::move(content)) {}

  std::string source;
  std::vector<std::string> stored;
  int neededCalls = 0;
  int readCalls = 0;
  bool readRaises = false;

protected:
  ULONG NeededSize() override {
    ++neededCalls;
    return static_cast<ULONG>(source.size());
  }
  void MemoryRead(char* buffer, ULONG size) override {
    ++readCalls;
    std::memcpy(buffer, source.data(), size);
    if (readRaises)
      throw PError(4242, ErrorSeverityError, "test", 1);
  }
  void MemoryWrite(const char* data, ULONG size) override {
    stored.emplace_back(data ? std::string(data, size) : std::string());
    source = stored.back();
  }
};

// A scratch stream open for reading and writing.
inline PMemoryStreamHdl* OpenScratch(PStream& stream, ULONG granularity = 16) {
  PMemoryStreamHdl* handler = new PMemoryStreamHdl(granularity);
  stream = PStream(handler);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  return handler;
}

inline std::string Content(const PMemoryStreamHdl* handler, const PStream& stream) {
  return std::string(handler->GetBuffer(), static_cast<size_t>(stream.GetSize()));
}

inline void ExpectStreamError(const PError& error, int code, TypErrorSeverityEnum severity) {
  EXPECT_EQ(error.Code(), code);
  EXPECT_EQ(error.Severity(), severity);
  EXPECT_STREQ(error.File(), "src\\PMemoryStream");
  EXPECT_GT(error.Line(), 0u);
}

} // namespace qvbase::test

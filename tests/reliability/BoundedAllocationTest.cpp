// What readers of outside bytes allocate: never much more than the bytes
// they are given, whatever lengths those bytes claim.
#include "support/AllocationFaults.h"

#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using qvbase::test::AllocationFaults;

PStream StreamWithLengthPrefix(ULONG length, const std::string& body) {
  PStream stream(new PMemoryStreamHdl(/*granularity=*/64));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.Write(static_cast<LONG>(length));
  stream.Write(body.data(), static_cast<ULONG>(body.size()), 1);
  stream.MoveTo(0);
  return stream;
}

// A 0xFFFFFFFF prefix in front of 10 bytes used to reserve a megabyte for
// the text and another to skip the rest, both at once.
TEST(PStreamIO, HostileLengthPrefixAllocatesLittleMoreThanTheBytesThere) {
  if (!AllocationFaults::LibraryNewIsWatched())
    GTEST_SKIP() << "the library's operator new is not watched on this platform";
  struct Row {
    const char* what;
    ULONG length;
  };
  const Row rows[] = {
      {"all ones", 0xFFFFFFFFu},
      {"just under a megabyte", 1024 * 1024 - 1},
      {"sixty-four kibibytes", 64 * 1024},
  };
  const std::string body = "0123456789";
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    PStream stream = StreamWithLengthPrefix(row.length, body);
    PString text;
    std::size_t peak = 0;
    {
      AllocationFaults::Watch watch;
      stream.Read(&text);
      peak = watch.PeakBytes();
    }
    EXPECT_EQ(static_cast<const char*>(PMBString(text)), body);
    // The bytes kept come in a first chunk of 4 KiB; skipping the rest of
    // the length reads into one scratch chunk of at most 1 MiB.
    EXPECT_LE(peak, 1024u * 1024u + 16u * 1024u);
    EXPECT_LE(peak, row.length / 2 + 16u * 1024u);
  }
}

} // namespace

// CountingMedium.h - a buffered handler over bytes in memory that records
// every transfer reaching its medium, and a guard for the buffer budget.
// Part of qvbase, the QVKernel foundation class library.
//
// The medium's state lives in a CountingMedium that the test owns, so that
// it can be looked at after the handler is gone (the last PStream closes and
// deletes it):
//
//   qvbase::test::CountingMedium medium("0123456789");
//   PStream stream(new qvbase::test::CountingMediumHdl(medium, /*blockSize=*/4));
//   stream.Open(OpenRead);
//   ...
//   EXPECT_EQ(medium.ReadsAt(4), 1);
//
// The medium behaves as a file: reads stop at its end (IOIsAtEnd is then
// true), writes past its end extend it with zero bytes, seeks may go past
// the end. Faults are injected per call: the next `shortReads` IORead calls
// deliver half of what was asked and leave the medium not at its end; the
// next `shortWrites` IOWrite calls take half of what was given.
#pragma once

#include <qvbase/PBufferizedStream.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace qvbase::test {

struct CountingMedium {
  explicit CountingMedium(std::string content = std::string()) : bytes(std::move(content)) {}

  struct Transfer {
    unsigned __int64 position;
    ULONG bytes;
  };

  // IORead calls at `position`.
  int ReadsAt(unsigned __int64 position) const {
    return static_cast<int>(std::count_if(
        reads.begin(), reads.end(), [&](const Transfer& t) { return t.position == position; }));
  }
  int WritesAt(unsigned __int64 position) const {
    return static_cast<int>(std::count_if(
        writes.begin(), writes.end(), [&](const Transfer& t) { return t.position == position; }));
  }

  std::string bytes;
  ULONG mode = 0;
  unsigned __int64 position = 0;
  std::vector<Transfer> reads;  // every IORead: where, and how much was asked
  std::vector<Transfer> writes; // every IOWrite: where, and how much was given
  std::vector<unsigned __int64> resizes;
  int opens = 0;
  int closes = 0;
  int flushes = 0;
  int shortReads = 0;
  int shortWrites = 0;
};

class CountingMediumHdl : public PBufferizedStreamHdl {
public:
  CountingMediumHdl(CountingMedium& medium, ULONG blockSize, bool locked = false)
      : PBufferizedStreamHdl(blockSize, locked), m_medium(medium) {}

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override {
    const unsigned __int64 asked = static_cast<unsigned __int64>(count) * itemSize;
    m_medium.reads.push_back({m_medium.position, static_cast<ULONG>(asked)});
    unsigned __int64 deliver = 0;
    if (m_medium.position < m_medium.bytes.size())
      deliver = std::min<unsigned __int64>(asked, m_medium.bytes.size() - m_medium.position);
    bool cut = false;
    if (m_medium.shortReads > 0 && deliver > 0) {
      --m_medium.shortReads;
      deliver /= 2;
      cut = true;
    }
    if (deliver > 0)
      std::memcpy(buffer, m_medium.bytes.data() + m_medium.position, deliver);
    m_medium.position += deliver;
    // A cut read leaves the medium short of its end, as a failing device
    // would; a read to the end leaves it there.
    if (!cut && deliver < asked)
      m_medium.position = std::max<unsigned __int64>(m_medium.position, m_medium.bytes.size());
    return itemSize == 0 ? 0 : static_cast<ULONG>(deliver / itemSize);
  }

  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    unsigned __int64 take = static_cast<unsigned __int64>(count) * itemSize;
    m_medium.writes.push_back({m_medium.position, static_cast<ULONG>(take)});
    if (m_medium.shortWrites > 0 && take > 0) {
      --m_medium.shortWrites;
      take /= 2;
    }
    const std::size_t at = static_cast<std::size_t>(m_medium.position);
    if (m_medium.bytes.size() < at + take)
      m_medium.bytes.resize(at + static_cast<std::size_t>(take), '\0');
    m_medium.bytes.replace(at, static_cast<std::size_t>(take), buffer,
                           static_cast<std::size_t>(take));
    m_medium.position += take;
    return itemSize == 0 ? 0 : static_cast<ULONG>(take / itemSize);
  }

  void IOOpen(ULONG mode) override {
    ++m_medium.opens;
    m_medium.mode = mode;
    m_medium.position = 0;
  }
  void IOSetOpenMode(ULONG mode) override { m_medium.mode = mode; }
  ULONG IOGetAvailableOpenModes() const override { return OpenReadWrite; }
  void IOClose() override {
    ++m_medium.closes;
    m_medium.mode = 0;
  }
  void IOFlush() override { ++m_medium.flushes; }
  ULONG IOOpenMode() const override { return m_medium.mode; }
  void IOSetSize(unsigned __int64 size) override {
    m_medium.resizes.push_back(size);
    m_medium.bytes.resize(static_cast<std::size_t>(size), '\0');
  }
  unsigned __int64 IOGetSize() const override { return m_medium.bytes.size(); }
  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override {
    switch (mode) {
    case SeekFwd:
      m_medium.position += offset;
      break;
    case SeekBack:
      m_medium.position -= std::min(offset, m_medium.position);
      break;
    case SeekFromStart:
      m_medium.position = offset;
      break;
    case SeekFromEnd:
      m_medium.position =
          m_medium.bytes.size() - std::min<unsigned __int64>(offset, m_medium.bytes.size());
      break;
    }
  }
  unsigned __int64 IOGetPos() const override { return m_medium.position; }
  bool IOIsAtEnd() const override { return m_medium.position >= m_medium.bytes.size(); }

private:
  CountingMedium& m_medium;
};

// Sets the buffer budget for one scope and puts the previous one back at its
// end (which releases blocks beyond it, as SetBuffersMaxSize does).
class ScopedBuffersMaxSize {
public:
  explicit ScopedBuffersMaxSize(ULONG bytes) : m_saved(PBufferizedStreamHdl::GetBuffersMaxSize()) {
    PBufferizedStreamHdl::SetBuffersMaxSize(bytes);
  }
  ~ScopedBuffersMaxSize() { PBufferizedStreamHdl::SetBuffersMaxSize(m_saved); }
  ScopedBuffersMaxSize(const ScopedBuffersMaxSize&) = delete;
  ScopedBuffersMaxSize& operator=(const ScopedBuffersMaxSize&) = delete;

private:
  ULONG m_saved;
};

} // namespace qvbase::test

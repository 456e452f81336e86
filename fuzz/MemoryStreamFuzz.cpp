// The memory handler driven by arbitrary bytes: writes, reads, seeks in all
// four modes and unknown ones, sizes, mode changes, flushes, closing and
// opening again, at any granularity.
//
// A model of the handler (its content and position, as the handler's
// contract describes them) runs beside it, and every answer must match the
// model: the bytes a read copies and the items it reports, where a seek
// lands or which error it raises, the size after a write or a resize.
// Requests that would make the handler allocate far more than the input
// (writing at a position gigabytes past the end) are not made: the handler
// allocates what its caller asks for, and here the input is the caller.
#include "FuzzSupport.h"

#include <qvbase/PErrorCodes.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using qvbase::fuzz::Check;

// The largest content the script may make: far above any input, far below
// the allocation limit of a run.
constexpr unsigned __int64 kMaxContent = 1 << 20;
constexpr unsigned __int64 kMaxPosition = 0xFFFFFFFF;

enum Op : std::uint8_t { kWrite, kRead, kSeek, kSetSize, kReopen, kFlush, kSetOpenMode, kOpCount };

// The handler's contract, kept as plain values.
struct Model {
  std::string content;
  unsigned __int64 position = 0;
  ULONG mode = 0;
};

// A 32-bit quantity from the script: small values often, large ones
// sometimes, so that the edges around the content's size are reached.
ULONG Quantity(qvbase::fuzz::Script& script) {
  const std::uint8_t shape = script.Next();
  const ULONG low = script.Next();
  switch (shape % 4) {
  case 0:
    return low;
  case 1:
    return low << 8 | script.Next();
  case 2:
    return 0xFFFFFFFFu - low;
  default:
    return static_cast<ULONG>(script.Next()) << 24 | low;
  }
}

class Driver {
public:
  Driver(std::string_view data, ULONG granularity)
      : m_data(data), m_stream(new PMemoryStreamHdl(granularity)) {}

  void Step(qvbase::fuzz::Script& script) {
    switch (script.Next() % kOpCount) {
    case kWrite:
      Write(script);
      break;
    case kRead:
      Read(script);
      break;
    case kSeek:
      Seek(script);
      break;
    case kSetSize:
      SetSize(Quantity(script));
      break;
    case kReopen:
      Reopen(script.Next());
      break;
    case kFlush:
      Expect(m_model.mode == 0 ? kErrStreamClosed : 0, [&] { m_stream.Flush(); });
      break;
    case kSetOpenMode:
      SetOpenMode(script.Next());
      break;
    }
    Check(m_stream.OpenMode() == m_model.mode, "open mode differs from the model");
    Check(Handler().GetCapacity() == RoundUp(m_model.content.size()),
          "the capacity is not the size rounded up to the granularity");
    if (m_model.mode != 0) {
      Check(m_stream.GetSize() == m_model.content.size(), "size differs from the model");
      Check(m_stream.GetPos() == m_model.position, "position differs from the model");
    }
  }

private:
  // Runs `call` and checks that it raised `code` (0: nothing).
  template <typename F>
  void Expect(int code, F&& call) {
    int raised = 0;
    try {
      call();
    } catch (const PError& e) {
      raised = e.Code();
    }
    Check(raised == code, "the handler raised another error than the model");
  }

  const PMemoryStreamHdl& Handler() const {
    return *static_cast<const PMemoryStreamHdl*>(m_stream.GetHandler());
  }

  ULONG RoundUp(std::size_t size) const {
    const ULONG granularity = Handler().GetGranularity();
    return static_cast<ULONG>((size + granularity - 1) / granularity * granularity);
  }

  bool Writable() const { return (m_model.mode & OpenWrite) != 0; }
  bool Readable() const { return (m_model.mode & OpenRead) != 0; }

  void Write(qvbase::fuzz::Script& script) {
    const ULONG count = script.Next();
    const ULONG itemSize = 1 + script.Next() % 8;
    const std::size_t bytes = static_cast<std::size_t>(count) * itemSize;
    if (!Writable()) {
      Expect(m_model.mode == 0 ? kErrStreamClosed : kErrStreamNotWritable,
             [&] { m_stream.Write("", 0, 1); });
      return;
    }
    if (m_model.position + bytes > kMaxContent)
      return; // the caller's choice, not the input's: see the file comment
    std::string source(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
      source[i] = m_data.empty() ? static_cast<char>(i) : m_data[(m_cursor++) % m_data.size()];
    ULONG written = 0;
    Expect(0, [&] { written = m_stream.Write(source.data(), count, itemSize); });
    Check(written == count, "a write answered fewer items than asked");
    if (bytes == 0)
      return;
    const std::size_t at = static_cast<std::size_t>(m_model.position);
    if (at > m_model.content.size()) {
      // A write past the end grows the content first; the bytes between the
      // old end and the write are not cleared: the model takes the
      // handler's word for them.
      const std::size_t end = m_model.content.size();
      m_model.content.append(Handler().GetBuffer() + end, at - end);
    }
    if (at + bytes > m_model.content.size())
      m_model.content.resize(at + bytes, '\0');
    m_model.content.replace(at, bytes, source);
    m_model.position += bytes;
  }

  void Read(qvbase::fuzz::Script& script) {
    const ULONG count = Quantity(script);
    const ULONG itemSize = 1 + script.Next() % 8;
    if (!Readable()) {
      char byte;
      Expect(m_model.mode == 0 ? kErrStreamClosed : kErrStreamNotReadable,
             [&] { m_stream.Read(&byte, 1, 1); });
      return;
    }
    const unsigned __int64 bytes = static_cast<unsigned __int64>(count) * itemSize;
    const unsigned __int64 left =
        m_model.position < m_model.content.size() ? m_model.content.size() - m_model.position : 0;
    const std::size_t copied = static_cast<std::size_t>(std::min(bytes, left));
    // The buffer holds what can be copied: a caller asking for more than
    // the content offers a buffer that size, the handler fills only this.
    std::vector<char> buffer(copied + 1, '\x5A');
    ULONG items = 0;
    Expect(0, [&] { items = m_stream.Read(buffer.data(), count, itemSize); });
    Check(items == copied / itemSize, "a read answered another number of items");
    Check(std::memcmp(buffer.data(), m_model.content.data() + (copied ? m_model.position : 0),
                      copied) == 0,
          "a read copied other bytes than the content holds");
    Check(buffer[copied] == '\x5A', "a read copied past the end of the content");
    if (bytes != 0)
      m_model.position = std::min(m_model.position + bytes, kMaxPosition);
  }

  void Seek(qvbase::fuzz::Script& script) {
    const int mode = script.Next() % 5;
    const ULONG offset = Quantity(script);
    const unsigned __int64 size = m_model.content.size();
    const unsigned __int64 position = m_model.position;
    int code = 0;
    unsigned __int64 next = position;
    if (m_model.mode == 0) {
      code = kErrStreamClosed;
    } else {
      switch (mode) {
      case SeekFwd:
        code = position + offset > size ? kErrStreamSeekPastEnd : 0;
        next = position + offset;
        break;
      case SeekBack:
        code = offset > position ? kErrStreamSeekBeforeStart : 0;
        next = position - offset;
        break;
      case SeekFromStart:
        code = offset > size ? kErrStreamSeekPastEnd : 0;
        next = offset;
        break;
      case SeekFromEnd:
        code = offset > size ? kErrStreamSeekBeforeStart : 0;
        next = size - offset;
        break;
      default:
        code = kErrStreamBadSeekMode;
        break;
      }
    }
    Expect(code, [&] { m_stream.SetPos(static_cast<TypSeekMode>(mode), offset); });
    // Errors are thrown here (no protection lets them through), so the
    // position moves only when no error was raised.
    if (code == 0)
      m_model.position = next;
  }

  void SetSize(ULONG size) {
    if (m_model.mode == 0 || !Writable()) {
      Expect(m_model.mode == 0 ? kErrStreamClosed : kErrStreamNotWritable,
             [&] { m_stream.SetSize(size); });
      return;
    }
    if (size > kMaxContent)
      return; // the caller's choice, not the input's
    Expect(0, [&] { m_stream.SetSize(size); });
    // The position is cut to a new smaller size, except when the block
    // grows: then it stays where it was, past the end or not. The same size
    // again changes nothing.
    if (size != m_model.content.size() && RoundUp(size) <= RoundUp(m_model.content.size()))
      m_model.position = std::min<unsigned __int64>(m_model.position, size);
    m_model.content.resize(size, '\0');
    // The bytes a resize adds are not cleared: the model takes the
    // handler's word for them.
    if (size > 0) {
      const char* buffer = static_cast<PMemoryStreamHdl*>(m_stream.GetHandler())->GetBuffer();
      m_model.content.assign(buffer, size);
    }
  }

  // Closes (when open) and opens again with a mode from the script. The
  // plain memory handler has nothing to load: opening to read needs the
  // empty-content bit, and an open without either mode bit fails; a failed
  // open leaves the stream closed.
  void Reopen(std::uint8_t choice) {
    if (m_model.mode != 0) {
      Expect(0, [&] { m_stream.Close(); });
      m_model = Model();
    }
    const ULONG mode = ModeOf(choice);
    const bool fails =
        (mode & OpenReadWrite) == 0 || ((mode & OpenRead) && !(mode & OpenAllowEmpty));
    Expect(fails ? kErrStreamOpenModeInvalid : 0, [&] { m_stream.Open(mode); });
    m_model.mode = fails ? 0 : mode;
  }

  void SetOpenMode(std::uint8_t choice) {
    if (m_model.mode == 0) {
      Expect(kErrStreamClosed, [&] { m_stream.SetOpenMode(ModeOf(choice)); });
      return;
    }
    // Closing drops the content of a plain memory handler; it opens again
    // empty, and moving back to the old position fails past the new end.
    const ULONG mode = ModeOf(choice);
    int code = 0;
    try {
      m_stream.SetOpenMode(mode);
    } catch (const PError& e) {
      code = e.Code();
    }
    m_model.content.clear();
    m_model.mode = m_stream.OpenMode();
    m_model.position = m_stream.GetPos();
    Check(code == 0 || code == kErrStreamOpenModeInvalid || code == kErrStreamSeekPastEnd,
          "changing the open mode raised an unexpected error");
  }

  static ULONG ModeOf(std::uint8_t choice) {
    ULONG mode = 0;
    if (choice & 1)
      mode |= OpenRead;
    if (choice & 2)
      mode |= OpenWrite;
    if (choice & 4)
      mode |= OpenNoLoad;
    if (choice & 8)
      mode |= OpenAllowEmpty;
    return mode;
  }

  std::string_view m_data;
  std::size_t m_cursor = 0;
  PStream m_stream;
  Model m_model;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qvbase::fuzz::ScriptedInput input = qvbase::fuzz::SplitInput(data, size);
  // Granularities from the smallest (16) to the default (65536).
  const ULONG granularity = 1u << (input.flags % 17);
  Driver driver(input.content, granularity);
  while (!input.script.Done())
    driver.Step(input.script);
  return 0;
}

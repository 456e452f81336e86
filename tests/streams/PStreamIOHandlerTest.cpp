// Typed values on streams, as their handler sees them: one write per value,
// scratch blocks for ordered runs, integers of every width in runs of every
// length, strings of every handler, and retried values starting again.
#include <qvbase/MemoryManager.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PTime.h>
#include <qvbase/PUNIString.h>
#include <qvbase/PUniversalID.h>

#include "PStreamIOTestSupport.h"
#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using qvbase::test::Bytes;
using qvbase::test::Content;
using qvbase::test::kOrders;
using qvbase::test::NewStream;
using qvbase::test::Order;
using qvbase::test::Put;
using qvbase::test::Text;

// A memory handler that notes which buffer each write hands it.
class WatchingHdl : public PMemoryStreamHdl {
public:
  const char* lastBuffer = nullptr;
  std::string lastBytes;

protected:
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    lastBuffer = buffer;
    lastBytes.assign(buffer, static_cast<std::size_t>(count) * itemSize);
    return PMemoryStreamHdl::IOWrite(buffer, count, itemSize);
  }
};

// Claims every byte it is asked for but delivers only the first half.
class OverclaimingHdl : public PMemoryStreamHdl {
protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override {
    if (itemSize != 1 || count < 2)
      return PMemoryStreamHdl::IORead(buffer, count, itemSize);
    PMemoryStreamHdl::IORead(buffer, count / 2, itemSize);
    return count;
  }
};

TEST(PStreamIO, CountedTextEndsWhereAnOverclaimingHandlerStoppedDelivering) {
  for (ULONG length : {10u, 256u, 300u}) {
    SCOPED_TRACE(length);
    std::string text;
    for (ULONG i = 0; i < length; ++i)
      text += static_cast<char>('a' + i % 26);
    PStream stream(new OverclaimingHdl);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.Write(PString(text.c_str(), true));
    stream.SetPos(SeekFromStart, 0);
    PString read;
    stream.Read(&read);
    // The bytes not delivered read as zero, whatever the memory held before.
    EXPECT_EQ(std::string(static_cast<const char*>(PMBString(read))), text.substr(0, length / 2));
  }
}

TEST(PStreamIO, SmallRunsSwapInPlaceAndLargeOnesUseAScratchBlock) {
  for (ULONG n : {3u, 4u}) {
    SCOPED_TRACE(n);
    auto* handler = new WatchingHdl;
    PStream stream(handler);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.SetByteOrdering(kByteOrderingMotorola);
    LONG values[4] = {0x01020304, 0x05060708, 0x090A0B0C, 0x0D0E0F10};
    stream.WriteArray(values, n);
    const char* caller = reinterpret_cast<const char*>(values);
    if (n == 3) {
      // 12 bytes: the caller's own array went to the handler, reversed...
      EXPECT_EQ(handler->lastBuffer, caller);
    } else {
      // ...16 bytes: a scratch copy did.
      EXPECT_NE(handler->lastBuffer, caller);
    }
    EXPECT_EQ(handler->lastBytes.substr(0, 4), std::string("\x01\x02\x03\x04", 4));
    // ...and is as it was afterwards.
    EXPECT_EQ(values[0], 0x01020304);
    EXPECT_EQ(values[3], 0x0D0E0F10);
  }
}

// Counts the blocks asked of the default manager, by size, while installed.
class CountedBlocks {
public:
  CountedBlocks() : m_previous(GGetDefaultMemManager()) {
    sizes.clear();
    GSetDefaultMemManager(&m_manager);
  }
  ~CountedBlocks() { GSetDefaultMemManager(m_previous); }
  static std::vector<ULONG> sizes;

private:
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    sizes.push_back(size);
    return qvbase::test::SystemCalls::Allocate(self, size, mode);
  }
  MemoryManager m_manager = {0,
                             "Counted",
                             Allocate,
                             qvbase::test::SystemCalls::Reallocate,
                             qvbase::test::SystemCalls::Size,
                             qvbase::test::SystemCalls::Release,
                             qvbase::test::SystemCalls::Stats};
  MemoryManager* m_previous;
};
std::vector<ULONG> CountedBlocks::sizes;

TEST(PStreamIO, IdentifierUnderMotorolaOrderingIsOrderedInAScratchBlock) {
  const _GUID guid = {0x01020304, 0x0506, 0x0708, {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10}};
  const PUniversalID id(guid);
  for (unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    SCOPED_TRACE(ordering);
    auto* handler = new WatchingHdl;
    PStream stream(handler);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.SetByteOrdering(ordering);
    // Room for the value first, so that the write itself needs no growth.
    stream.Write(std::string(32, '-').data(), 32, 1);
    stream.SetPos(SeekFromStart, 0);
    std::vector<ULONG> asked;
    ULONG header = 0;
    {
      CountedBlocks counted;
      // What a block of no bytes costs the manager: the owner header.
      GMemFree(GMemAllocation(nullptr, 0, 1));
      header = CountedBlocks::sizes.at(0);
      CountedBlocks::sizes.clear();
      stream.Write(id);
      asked = CountedBlocks::sizes;
    }
    if (ordering == kByteOrderingMotorola) {
      // Two 8-byte items make 16 bytes: one scratch block holds them
      // reversed.
      EXPECT_EQ(asked, std::vector<ULONG>{16u + header});
      EXPECT_EQ(handler->lastBytes, std::string("\x07\x08\x05\x06\x01\x02\x03\x04"
                                                "\x10\x0F\x0E\x0D\x0C\x0B\x0A\x09",
                                                16));
    } else {
      EXPECT_TRUE(asked.empty());
      EXPECT_EQ(handler->lastBytes, std::string("\x04\x03\x02\x01\x06\x05\x08\x07"
                                                "\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10",
                                                16));
    }
  }
}

} // namespace

namespace {

// The bytes of `count` integers of `width` bytes from `values` as the
// ordering puts them on a stream: most significant first under "MM".
template <typename T>
Bytes Ordered(const T* values, ULONG count, unsigned short ordering) {
  Bytes bytes;
  for (ULONG i = 0; i < count; ++i) {
    const auto value = static_cast<unsigned long long>(values[i]);
    for (std::size_t b = 0; b < sizeof(T); ++b) {
      const std::size_t shift = ordering == kByteOrderingMotorola ? sizeof(T) - 1 - b : b;
      bytes.push_back(static_cast<unsigned char>((value >> (8 * shift)) & 0xFF));
    }
  }
  return bytes;
}

template <typename T>
void CheckArraysOfEveryLength(const T (&source)[9]) {
  for (const Order& order : kOrders) {
    for (ULONG n = 1; n <= 9; ++n) {
      SCOPED_TRACE(std::string(order.name) + " x" + std::to_string(n));
      T values[9];
      std::copy(source, source + 9, values);
      PStream stream = NewStream(order.value);
      stream.WriteArray(values, n);
      EXPECT_TRUE(std::equal(values, values + 9, source)); // the caller's data as it was
      EXPECT_EQ(Content(stream), Ordered(source, n, order.value));
      T back[9] = {};
      stream.ReadArray(back, n);
      EXPECT_TRUE(std::equal(back, back + n, source));
    }
  }
}

// Runs of one to nine items of every width, below and above the 16 bytes
// where a scratch block takes over, odd counts included.
TEST(PStreamIO, ArraysOfEveryWidthAndLengthAreOrderedItemByItem) {
  const short shorts[9] = {0x0102, -2, 0x7F80, 0x1234, -32768, 0x00FF, 0x5A5A, 0x0100, 7};
  const LONG longs[9] = {0x01020304, -2,         0x7F808182, 0x12345678, LONG(0x80000000),
                         0x00FF00FF, 0x5A5AA5A5, 0x01000000, 7};
  const __int64 wides[9] = {0x0102030405060708LL,
                            -2,
                            0x7F80818283848586LL,
                            0x1234,
                            -1,
                            0x00FF00FF00FF00FFLL,
                            0x5A5AA5A5C3C33C3CLL,
                            0x0100000000000000LL,
                            7};
  {
    SCOPED_TRACE("short");
    CheckArraysOfEveryLength(shorts);
  }
  {
    SCOPED_TRACE("long");
    CheckArraysOfEveryLength(longs);
  }
  {
    SCOPED_TRACE("__int64");
    CheckArraysOfEveryLength(wides);
  }
}

TEST(PStreamIO, SingleIntegersOfEveryWidthFollowTheOrdering) {
  for (const Order& order : kOrders) {
    SCOPED_TRACE(order.name);
    const short s = -0x1235;
    const LONG l = 0x01A2B3C4;
    const __int64 w = -0x0123456789ABCDELL;
    const short one = 1;
    PStream stream = NewStream(order.value);
    stream.Write(s);
    stream.Write(l);
    stream.Write(w);
    stream.Write(true);
    Bytes expected = Ordered(&s, 1, order.value);
    Bytes more = Ordered(&l, 1, order.value);
    expected.insert(expected.end(), more.begin(), more.end());
    more = Ordered(&w, 1, order.value);
    expected.insert(expected.end(), more.begin(), more.end());
    more = Ordered(&one, 1, order.value);
    expected.insert(expected.end(), more.begin(), more.end());
    EXPECT_EQ(Content(stream), expected);
    short s2 = 0;
    LONG l2 = 0;
    __int64 w2 = 0;
    bool b2 = false;
    stream.Read(&s2);
    stream.Read(&l2);
    stream.Read(&w2);
    stream.Read(&b2);
    EXPECT_EQ(s2, s);
    EXPECT_EQ(l2, l);
    EXPECT_EQ(w2, w);
    EXPECT_TRUE(b2);
  }
}

// A memory handler that notes the shape of every write it is asked for.
class WriteShapeHdl : public PMemoryStreamHdl {
public:
  std::vector<std::pair<ULONG, ULONG>> writes; // count, item size

protected:
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    writes.emplace_back(count, itemSize);
    return PMemoryStreamHdl::IOWrite(buffer, count, itemSize);
  }
};

TEST(PStreamIO, EachTypedValueIsOneHandlerWriteOfItsItems) {
  for (const Order& order : kOrders) {
    SCOPED_TRACE(order.name);
    auto* handler = new WriteShapeHdl;
    PStream stream(handler);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.SetByteOrdering(order.value);
    stream.Write(static_cast<short>(1));
    stream.Write(static_cast<LONG>(2));
    stream.Write(static_cast<__int64>(3));
    stream.Write(false);
    stream.Write(PAutomaticUID("Shape"));
    stream.Write(PString("abcde"));
    stream.Write(PASCIIString("xy"), ';');
    const std::vector<std::pair<ULONG, ULONG>> expected = {{1, 2}, {1, 4}, {1, 8}, {1, 2}, {2, 8},
                                                           {1, 4}, {5, 1}, {2, 1}, {1, 1}};
    EXPECT_EQ(handler->writes, expected);
  }
}

// The multibyte bytes of a string as the multibyte string of it holds them.
std::string MultibyteOf(const PString& text) {
  PMBString bytes(text);
  return std::string(static_cast<const char*>(bytes), bytes.Size());
}

TEST(PStreamIO, StringsOfEveryHandlerPutTheirMultibyteBytes) {
  const unsigned short units[] = {'A', 0x00E9, 'z', 0};
  struct Row {
    const char* what;
    PString text;
  };
  const Row rows[] = {
      {"free type, 7-bit", PString("plain", true)},
      {"free type, 8-bit", PString("caf\xC3\xA9", true)},
      {"ASCII", PASCIIString("ascii", true)},
      {"multibyte", PMBString("multi\xC3\xA9", true)},
      {"Unicode", PUNIString(units, true)},
      {"empty", PString()},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string bytes = MultibyteOf(row.text);
    PStream stream = NewStream(kByteOrderingMotorola);
    EXPECT_EQ(stream.WriteSize(row.text), 4u + bytes.size());
    EXPECT_EQ(stream.WriteSize(row.text, '|'), bytes.size() + 1);
    stream.Write(row.text);
    stream.Write(row.text, '|');
    const LONG length = static_cast<LONG>(bytes.size());
    Bytes expected = Ordered(&length, 1, kByteOrderingMotorola);
    expected.insert(expected.end(), bytes.begin(), bytes.end());
    expected.insert(expected.end(), bytes.begin(), bytes.end());
    expected.push_back('|');
    EXPECT_EQ(Content(stream), expected);
    PString counted, terminated;
    stream.Read(&counted);
    stream.Read(&terminated, '|');
    EXPECT_EQ(MultibyteOf(counted), bytes);
    EXPECT_EQ(MultibyteOf(terminated), bytes);
  }
}

// Counted strings read back as the multibyte string of their bytes would be:
// a multibyte handler whose length is its byte count, cut at an embedded
// zero byte, for short texts and for texts longer than the stack buffer.
TEST(PStreamIO, CountedStringsReadBackAsMultibyteTextOfTheirBytes) {
  struct Row {
    const char* what;
    std::string bytes;
  };
  const Row rows[] = {
      {"7-bit", "abc"},
      {"8-bit", "caf\xC3\xA9"},
      {"embedded zero", std::string("ab\0cd", 5)},
      {"leading zero", std::string("\0ab", 3)},
      {"long 7-bit", std::string(300, 'q')},
      {"long 8-bit", std::string(299, 'q') + "\xC3\xA9"},
      {"long embedded zero", std::string(280, 'r') + std::string(1, '\0') + "tail"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    PStream stream = NewStream(kByteOrderingIntel);
    stream.Write(static_cast<LONG>(row.bytes.size()));
    stream.Write(row.bytes.data(), static_cast<ULONG>(row.bytes.size()), 1);
    stream.MoveTo(0);
    PString text;
    stream.Read(&text);
    const PMBString reference(row.bytes.c_str(), true);
    EXPECT_EQ(stream.GetPos(), 4u + row.bytes.size());
    EXPECT_EQ(MultibyteOf(text), MultibyteOf(reference));
    EXPECT_EQ(text.Len(), reference.Len());
    EXPECT_EQ(text.Size(), reference.Size());
    EXPECT_EQ(text.CodeSet(), reference.CodeSet());
    EXPECT_EQ(text.HandlerType(), reference.Len() ? &gMBStringHandlerDec : nullptr);
  }
}

// A short text whose prefix promises more than the stream holds keeps the
// bytes that came, whatever the handler answered.
TEST(PStreamIO, ShortCountedStringKeepsOnlyTheDeliveredBytes) {
  PStream stream = NewStream(kByteOrderingIntel);
  stream.Write(static_cast<LONG>(40));
  stream.Write("0123456789", 10, 1);
  stream.MoveTo(0);
  PString text("previous", true);
  stream.Read(&text);
  EXPECT_EQ(Text(text), "0123456789");
  EXPECT_EQ(stream.GetPos(), 44u); // moved by what was asked
}

} // namespace

namespace {

// A memory handler whose next writes copy their first byte, move on, and
// then fail through the protections, as a device that breaks mid-item.
class BreakingHdl : public PMemoryStreamHdl {
public:
  int failWrites = 0;
  std::vector<unsigned long long> writeStarts;

protected:
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    writeStarts.push_back(IOGetPos());
    if (failWrites > 0) {
      --failWrites;
      PMemoryStreamHdl::IOWrite(buffer, 1, 1);
      PError error(4711, ErrorSeverityError, "test", 1);
      PErrorProtectionStatus().SignalError(error);
    }
    return PMemoryStreamHdl::IOWrite(buffer, count, itemSize);
  }
};

// Every typed value is one guarded item: a retried one starts again where
// it started, so the bytes on the stream are those of a clean write.
TEST(PStreamIO, RetriedTypedValuesStartAgainFromTheirPosition) {
  for (const Order& order : kOrders) {
    SCOPED_TRACE(order.name);
    // Retry wherever a retry is offered; elsewhere the error goes on.
    qvbase::test::CountingHook hook(ErrorHandlingRetry, qvbase::test::Answering::kWhenOffered);
    PErrorHookProtection protection(&hook, true);
    auto* handler = new BreakingHdl;
    PStream stream(handler);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.SetByteOrdering(order.value);
    PStream reference = NewStream(order.value);
    const short s = 0x0102;
    const LONG l = 0x03040506;
    const __int64 w = 0x0708090A0B0C0D0ELL;
    const PAutomaticUID id("Retried");
    const PString text("retried text", true);
    for (PStream* target : {&stream, &reference}) {
      target->Write('<');
      handler->failWrites = 2;
      target->Write(s);
      handler->failWrites = 1;
      target->Write(l);
      handler->failWrites = 1;
      target->Write(w);
      handler->failWrites = 1;
      target->Write(id);
      handler->failWrites = 2;
      target->Write(text); // the length fails twice, the bytes go through
      handler->failWrites = 0;
    }
    EXPECT_EQ(hook.calls, 7);
    EXPECT_EQ(Content(stream), Content(reference));
    EXPECT_EQ(stream.GetPos(), 0u);
    // Each retried item started again at its own first position.
    const std::vector<unsigned long long> starts = {0, 1, 1, 1, 3, 3, 7, 7, 15, 15, 31, 31, 31, 35};
    EXPECT_EQ(handler->writeStarts, starts);
    short s2 = 0;
    LONG l2 = 0;
    __int64 w2 = 0;
    PUniversalID id2;
    PString text2;
    char c = 0;
    stream.Read(&c);
    stream.Read(&s2);
    stream.Read(&l2);
    stream.Read(&w2);
    stream.Read(&id2);
    stream.Read(&text2);
    EXPECT_EQ(s2, s);
    EXPECT_EQ(l2, l);
    EXPECT_EQ(w2, w);
    EXPECT_TRUE(id2 == id);
    EXPECT_EQ(Text(text2), "retried text");
  }
}

} // namespace

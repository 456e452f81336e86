// Typed values on streams: the exact bytes of every encoding in both byte
// orders, sizes, round trips, and counted or terminated strings whose bytes
// cannot be trusted.
#include <qvbase/MemoryManager.h>
#include <qvbase/PDate.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PStringConversions.h>
#include <qvbase/PTime.h>
#include <qvbase/PUniversalID.h>

#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

PStream NewStream(unsigned short ordering) {
  PStream stream(new PMemoryStreamHdl(16));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

Bytes Content(PStream& stream) {
  unsigned long long size = stream.GetSize();
  Bytes bytes(static_cast<std::size_t>(size));
  stream.MoveTo(0);
  if (size)
    stream.Read(reinterpret_cast<char*>(bytes.data()), static_cast<ULONG>(size), 1);
  stream.MoveTo(0);
  return bytes;
}

void Put(PStream& stream, const Bytes& bytes) {
  if (!bytes.empty())
    stream.Write(reinterpret_cast<const char*>(bytes.data()), static_cast<ULONG>(bytes.size()), 1);
  stream.MoveTo(0);
}

std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }

struct Order {
  const char* name;
  unsigned short value;
};
const Order kOrders[] = {{"II", kByteOrderingIntel}, {"MM", kByteOrderingMotorola}};

TEST(PStreamIO, ShortBytesFollowTheOrdering) {
  PStream mm = NewStream(kByteOrderingMotorola);
  mm.Write(static_cast<short>(0x1234));
  EXPECT_EQ(Content(mm), (Bytes{0x12, 0x34}));
  PStream ii = NewStream(kByteOrderingIntel);
  ii.Write(static_cast<short>(0x1234));
  EXPECT_EQ(Content(ii), (Bytes{0x34, 0x12}));
}

TEST(PStreamIO, EveryEncodingHasItsExactBytes) {
  struct Row {
    const char* what;
    void (*write)(PStream&);
    Bytes ii, mm;
  };
  const Row rows[] = {
      {"char", [](PStream& s) { s.Write('A'); }, {0x41}, {0x41}},
      {"short", [](PStream& s) { s.Write(static_cast<short>(-2)); }, {0xFE, 0xFF}, {0xFF, 0xFE}},
      {"long",
       [](PStream& s) { s.Write(static_cast<LONG>(0x01020304)); },
       {4, 3, 2, 1},
       {1, 2, 3, 4}},
      {"int64",
       [](PStream& s) { s.Write(static_cast<__int64>(0x0102030405060708LL)); },
       {8, 7, 6, 5, 4, 3, 2, 1},
       {1, 2, 3, 4, 5, 6, 7, 8}},
      {"true", [](PStream& s) { s.Write(true); }, {1, 0}, {0, 1}},
      {"false", [](PStream& s) { s.Write(false); }, {0, 0}, {0, 0}},
      {"string",
       [](PStream& s) { s.Write(PString("ab")); },
       {2, 0, 0, 0, 'a', 'b'},
       {0, 0, 0, 2, 'a', 'b'}},
      {"terminated",
       [](PStream& s) { s.Write(PString("ab"), ';'); },
       {'a', 'b', ';'},
       {'a', 'b', ';'}},
      {"empty string", [](PStream& s) { s.Write(PString()); }, {0, 0, 0, 0}, {0, 0, 0, 0}},
      {"double",
       [](PStream& s) { s.Write(0.5, 3); },
       {3, 0, 0, 0, '0', '.', '5'},
       {0, 0, 0, 3, '0', '.', '5'}},
      {"time",
       [](PStream& s) { s.Write(PTime(static_cast<__int64>(0x0A0B))); },
       {0x0B, 0x0A, 0, 0, 0, 0, 0, 0},
       {0, 0, 0, 0, 0, 0, 0x0A, 0x0B}},
      {"ordering marker", [](PStream& s) { s.WriteByteOrdering(); }, {'I', 'I'}, {'M', 'M'}},
  };
  for (const Order& order : kOrders) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(order.name) + " " + row.what);
      PStream stream = NewStream(order.value);
      row.write(stream);
      EXPECT_EQ(Content(stream), order.value == kByteOrderingIntel ? row.ii : row.mm);
    }
  }
}

TEST(PStreamIO, IdentifierIsTwoOrderedHalves) {
  _GUID g = {0x03020100, 0x0504, 0x0706, {8, 9, 10, 11, 12, 13, 14, 15}};
  PStream ii = NewStream(kByteOrderingIntel);
  ii.Write(PUniversalID(g));
  EXPECT_EQ(Content(ii), (Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
  PStream mm = NewStream(kByteOrderingMotorola);
  mm.Write(PUniversalID(g));
  EXPECT_EQ(Content(mm), (Bytes{7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8}));
  PUniversalID back;
  mm.Read(&back);
  EXPECT_TRUE(back == g);
  // The same bytes read under "II" come back with each half reversed.
  mm.MoveTo(0);
  mm.SetByteOrdering(kByteOrderingIntel);
  mm.Read(&back);
  _GUID reversed = {0x04050607, 0x0203, 0x0001, {15, 14, 13, 12, 11, 10, 9, 8}};
  EXPECT_TRUE(back == reversed);
}

TEST(PStreamIO, BoolTakesTwoBytesAndReadsAsShort) {
  PStream stream = NewStream(kByteOrderingIntel);
  stream.Write(true);
  EXPECT_EQ(stream.GetSize(), 2u);
  stream.MoveTo(0);
  short value = 0;
  stream.Read(&value);
  EXPECT_EQ(value, 1);
  stream.MoveTo(0);
  Put(stream, Bytes{0x00, 0x02});
  bool flag = false;
  stream.Read(&flag);
  EXPECT_TRUE(flag); // any non-zero value is true
}

TEST(PStreamIO, ArraysAreSwappedWithoutTouchingTheCaller) {
  const LONG original[4] = {0x01020304, 0x05060708, 0x090A0B0C, 0x0D0E0F10};
  for (int n : {3, 4}) {
    SCOPED_TRACE(n);
    LONG values[4];
    std::memcpy(values, original, sizeof values);
    PStream mm = NewStream(kByteOrderingMotorola);
    mm.WriteArray(values, static_cast<ULONG>(n)); // 12 bytes in place, 16 through scratch
    EXPECT_EQ(std::memcmp(values, original, sizeof values), 0);
    Bytes expected;
    for (int i = 0; i < n; ++i)
      for (int b = 3; b >= 0; --b)
        expected.push_back(static_cast<unsigned char>((values[i] >> (8 * b)) & 0xFF));
    EXPECT_EQ(Content(mm), expected);
    LONG back[4] = {};
    mm.ReadArray(back, static_cast<ULONG>(n));
    EXPECT_EQ(std::memcmp(back, values, sizeof(LONG) * n), 0);
  }
}

TEST(PStreamIO, ValuesRoundTripInBothOrders) {
  for (const Order& order : kOrders) {
    SCOPED_TRACE(order.name);
    PStream stream = NewStream(order.value);
    const short shorts[2] = {-1, 300};
    const __int64 wide[2] = {-5, 0x7FFFFFFFFFFFFFFFLL};
    stream.Write('z');
    stream.Write(static_cast<short>(-12345));
    stream.Write(static_cast<LONG>(-7));
    stream.Write(static_cast<__int64>(-9000000000LL));
    stream.Write(false);
    stream.Write(PString("caf\xC3\xA9"));
    stream.Write(PString("line"), '\n');
    stream.WriteArray(shorts, 2);
    stream.WriteArray(wide, 2);
    stream.Write(PAutomaticUID("Document"));
    PUTDate date;
    date.SetValue(PTime(static_cast<__int64>(1234567890123LL)));
    stream.Write(date);
    stream.MoveTo(0);
    char c = 0;
    short s = 0;
    LONG l = 0;
    __int64 i64 = 0;
    bool b = true;
    PString text, line;
    short shortsBack[2] = {};
    __int64 wideBack[2] = {};
    PUniversalID id;
    PUTDate dateBack;
    stream.Read(&c);
    stream.Read(&s);
    stream.Read(&l);
    stream.Read(&i64);
    stream.Read(&b);
    stream.Read(&text);
    stream.Read(&line, '\n');
    stream.ReadArray(shortsBack, 2);
    stream.ReadArray(wideBack, 2);
    stream.Read(&id);
    stream.Read(&dateBack);
    EXPECT_EQ(c, 'z');
    EXPECT_EQ(s, -12345);
    EXPECT_EQ(l, -7);
    EXPECT_EQ(i64, -9000000000LL);
    EXPECT_FALSE(b);
    EXPECT_EQ(Text(text), "caf\xC3\xA9");
    EXPECT_EQ(Text(line), "line");
    EXPECT_EQ(shortsBack[1], 300);
    EXPECT_EQ(wideBack[1], 0x7FFFFFFFFFFFFFFFLL);
    EXPECT_TRUE(id == PAutomaticUID("Document"));
    EXPECT_EQ(dateBack.GetValue().GetValue(), 1234567890123LL);
    EXPECT_TRUE(stream.IsAtEnd());
  }
}

TEST(PStreamIO, EmptyStringIsFourZeroBytes) {
  PStream stream = NewStream(kByteOrderingIntel);
  stream.Write(PString());
  EXPECT_EQ(Content(stream), (Bytes{0, 0, 0, 0}));
  PString back("not empty");
  stream.Read(&back);
  EXPECT_TRUE(back.IsEmpty());
}

TEST(PStreamIO, WriteSizesCountTheBytes) {
  PStream stream = NewStream(kByteOrderingIntel);
  EXPECT_EQ(stream.WriteSize(PString("12345")), 9u);
  EXPECT_EQ(stream.WriteSize(PString("12345"), ';'), 6u);
  EXPECT_EQ(stream.WriteSize('a'), 1u);
  EXPECT_EQ(stream.WriteSize(static_cast<short>(1)), 2u);
  EXPECT_EQ(stream.WriteSize(static_cast<LONG>(1)), 4u);
  EXPECT_EQ(stream.WriteSize(static_cast<__int64>(1)), 8u);
  EXPECT_EQ(stream.WriteSize(PUniversalID()), 16u);
  EXPECT_EQ(stream.WriteSize(0.25, 6), 4u + 4u); // "0.25"
  EXPECT_EQ(stream.WriteSizeByteOrdering(), 2u);
  const double values[2] = {0.5, 12.0};
  EXPECT_EQ(stream.WriteSizeArray(values, 2, 6), (4u + 3u) + (4u + 2u));
  const __int64 wide[3] = {};
  EXPECT_EQ(stream.WriteSizeArray(wide, 3), 24u);
  EXPECT_EQ(stream.GetSize(), 0u); // nothing was written
  // WriteSize matches what Write puts on the stream.
  stream.Write(PString("12345"));
  stream.Write(0.25, 6);
  EXPECT_EQ(stream.GetSize(), 9u + 8u);
}

TEST(PStreamIO, DoubleReadsBackAsItsDecimalText) {
  PStream stream = NewStream(kByteOrderingIntel);
  stream.Write(3.14159265, 3);
  stream.Write(2.5f, 2);
  stream.MoveTo(0);
  double d = 0;
  float f = 0;
  stream.Read(&d);
  stream.Read(&f);
  EXPECT_EQ(d, 3.14);
  EXPECT_EQ(f, 2.5f);
}

// Counted strings whose length prefix promises more than the stream holds.
TEST(PStreamIO, HostileStringLengthsNeverOverAllocateOrHang) {
  struct Row {
    const char* what;
    ULONG length; // the prefix
    std::string expected;
  };
  const std::string body = "hello";
  const Row rows[] = {
      {"zero", 0, ""},
      {"one", 1, "h"},
      {"exactly the bytes left", 5, "hello"},
      {"one more than left", 6, "hello"},
      {"0x7FFFFFFF", 0x7FFFFFFFu, "hello"},
      {"0xFFFFFFFE", 0xFFFFFFFEu, "hello"},
      {"0xFFFFFFFF", 0xFFFFFFFFu, "hello"},
  };
  for (const Order& order : kOrders) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(order.name) + " " + row.what);
      PStream stream = NewStream(order.value);
      stream.Write(static_cast<LONG>(row.length));
      stream.Write(body.data(), static_cast<ULONG>(body.size()), 1);
      stream.MoveTo(0);
      PString text;
      stream.Read(&text);
      EXPECT_EQ(Text(text), row.expected);
      // The position moves by what the prefix asked for, as any read of the
      // memory handler does (its positions stop at 32 bits).
      EXPECT_EQ(stream.GetPos(), std::min<unsigned long long>(4ull + row.length, 0xFFFFFFFFull));
    }
  }
}

TEST(PStreamIO, LengthPrefixCutShortReadsWhatIsThere) {
  for (const Order& order : kOrders) {
    for (ULONG cut : {1u, 2u, 3u}) {
      SCOPED_TRACE(std::string(order.name) + " cut after " + std::to_string(cut));
      PStream stream = NewStream(order.value);
      const char prefix[4] = {0x05, 0x00, 0x00, 0x00};
      stream.Write(prefix, cut, 1);
      stream.MoveTo(0);
      PString text("unchanged?");
      stream.Read(&text);
      EXPECT_TRUE(text.IsEmpty() || text.Len() == 0);
    }
  }
}

TEST(PStreamIO, TerminatorThatNeverComesEndsWithTheData) {
  for (const Order& order : kOrders) {
    SCOPED_TRACE(order.name);
    PStream stream = NewStream(order.value);
    stream.Write("abcdef", 6, 1);
    stream.MoveTo(0);
    PString text;
    stream.Read(&text, ';');
    EXPECT_EQ(Text(text), "abcdef");
  }
}

TEST(PStreamIO, TerminatedStringsLongerThanTheFirstBufferGrow) {
  PStream stream = NewStream(kByteOrderingIntel);
  std::string longText(1000, 'x');
  stream.Write(PString(longText.c_str(), true), '\0');
  stream.Write(PString("next"), '\0');
  stream.MoveTo(0);
  PString first, second;
  stream.Read(&first, '\0');
  stream.Read(&second, '\0');
  EXPECT_EQ(Text(first), longText);
  EXPECT_EQ(Text(second), "next");
}

} // namespace

namespace {

// A date that counts the notices of a changed value.
class WatchedDate : public PUTDate {
public:
  int changes = 0;

protected:
  void PTimeChanged() override { ++changes; }
};

TEST(PStreamIO, ReadingADateTellsItItsValueChanged) {
  PStream stream = NewStream(kByteOrderingMotorola);
  stream.Write(PUTDate(static_cast<LONG>(86400)));
  stream.MoveTo(0);
  WatchedDate date;
  date.changes = 0;
  stream.Read(&date);
  EXPECT_EQ(date.changes, 1);
  EXPECT_EQ(date.GetValue().GetValue(), 86400LL * 10000000LL);
}

TEST(PStreamIO, FloatArraysAreCountedStringsOneByOne) {
  PStream stream = NewStream(kByteOrderingIntel);
  const float floats[2] = {1.5f, -0.25f};
  const double doubles[2] = {1e10, 0.125};
  stream.WriteArray(floats, 2, 6);
  stream.WriteArray(doubles, 2, 6);
  EXPECT_EQ(stream.GetSize(),
            stream.WriteSizeArray(floats, 2, 6) + stream.WriteSizeArray(doubles, 2, 6));
  stream.MoveTo(0);
  float floatsBack[2] = {};
  double doublesBack[2] = {};
  stream.ReadArray(floatsBack, 2);
  stream.ReadArray(doublesBack, 2);
  EXPECT_EQ(floatsBack[0], 1.5f);
  EXPECT_EQ(floatsBack[1], -0.25f);
  EXPECT_EQ(doublesBack[0], 1e10);
  EXPECT_EQ(doublesBack[1], 0.125);
  // "1.5" as the first item: a 4-byte count, then the text.
  stream.MoveTo(0);
  char head[7] = {};
  stream.Read(head, 7, 1);
  EXPECT_EQ(std::string(head, 7), std::string("\x03\0\0\0"
                                              "1.5",
                                              7));
}

} // namespace

namespace {

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

#include <qvbase/PASCIIString.h>
#include <qvbase/PUNIString.h>

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

#include <qvbase/PErrorProtection.h>

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

namespace {

// A bare text goes out as the counted string made of it would.
TEST(PStreamIO, BareTextIsWrittenAsItsCountedString) {
  const char* texts[] = {"abc", "", "caf\xC3\xA9", "mixed \x80 byte", nullptr};
  for (const char* text : texts) {
    SCOPED_TRACE(text ? text : "(null)");
    PStream bare = NewStream(kByteOrderingMotorola);
    PStream counted = NewStream(kByteOrderingMotorola);
    bare.Write(text);
    counted.Write(PString(text, /*copy=*/true));
    EXPECT_EQ(bare.GetPos(), counted.GetPos());
    EXPECT_EQ(Content(bare), Content(counted));
  }
}

} // namespace

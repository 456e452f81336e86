// Typed values on streams: the exact bytes of every encoding in both byte
// orders, sizes, round trips, and counted or terminated strings whose bytes
// cannot be trusted.
#include <qvbase/PDate.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PTime.h>
#include <qvbase/PUniversalID.h>

#include "PStreamIOTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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

// Sections: the 28-byte header, back-patched sizes, nesting, reading by
// identifier, skipping, errors, and headers that cannot be trusted.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::CountingHook;

using Bytes = std::vector<unsigned char>;

PStream NewStream(unsigned short ordering = kByteOrderingIntel) {
  PStream stream(new PMemoryStreamHdl(16));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

Bytes Content(PStream& stream) {
  unsigned long long size = stream.GetSize(), pos = stream.GetPos();
  Bytes bytes(static_cast<std::size_t>(size));
  stream.MoveTo(0);
  if (size)
    stream.Read(reinterpret_cast<char*>(bytes.data()), static_cast<ULONG>(size), 1);
  stream.MoveTo(pos);
  return bytes;
}

unsigned long long SizeField(PStream& stream, unsigned long long at) {
  unsigned long long pos = stream.GetPos();
  stream.MoveTo(at + 20);
  __int64 size = 0;
  stream.Read(&size);
  stream.MoveTo(pos);
  return static_cast<unsigned long long>(size);
}

const PAutomaticUID kFirst("First");
const PAutomaticUID kSecond("Second");

void WriteSection(PStream& parent, const PUniversalID& id, ULONG bodyBytes) {
  PStreamSection section = OpenWriteSection(parent, id, 1);
  for (ULONG i = 0; i < bodyBytes; ++i)
    section.Write(static_cast<char>('a' + i % 26));
  section.Close();
}

TEST(PStreamSection, EmptySectionIs28BytesAndSaysSo) {
  PStream stream = NewStream();
  WriteSection(stream, kFirst, 0);
  EXPECT_EQ(stream.GetSize(), 28u);
  EXPECT_EQ(SizeField(stream, 0), 28u);
  EXPECT_EQ(GetWriteSectionSize(stream), 28u);
}

TEST(PStreamSection, SkipLandsOnTheNextHeaderAndPeekDoesNotMove) {
  PStream stream = NewStream();
  WriteSection(stream, kFirst, 10);
  WriteSection(stream, kSecond, 3);
  stream.MoveTo(0);
  EXPECT_TRUE(GetNextSection(stream) == kFirst);
  EXPECT_EQ(stream.GetPos(), 0u);
  SkipCurrentSection(stream);
  EXPECT_EQ(stream.GetPos(), 38u);
  EXPECT_TRUE(GetNextSection(stream) == kSecond);
  EXPECT_EQ(stream.GetPos(), 38u);
}

TEST(PStreamSection, OuterSizeIncludesTheInnerSection) {
  PStream stream = NewStream();
  PStreamSection outer = OpenWriteSection(stream, kFirst, 1);
  outer.Write(static_cast<LONG>(7));
  PStreamSection inner = OpenWriteSection(outer, kSecond, 2);
  inner.Write(PString("hello")); // 9 bytes
  inner.Close();
  outer.Close();
  EXPECT_EQ(SizeField(stream, 0), 28u + 4u + 28u + 9u);
  EXPECT_EQ(SizeField(stream, 32), 28u + 9u);
  stream.MoveTo(0);
  PStreamSection readOuter = OpenReadSection(stream, kFirst);
  LONG seven = 0;
  readOuter.Read(&seven);
  PStreamSection readInner = OpenReadSection(readOuter, kSecond);
  EXPECT_EQ(readInner.Version(), 2u);
  PString text;
  readInner.Read(&text);
  EXPECT_STREQ(static_cast<const char*>(PMBString(text)), "hello");
  EXPECT_TRUE(readInner.IsAtEnd());
  readInner.Close();
  readOuter.Close();
  EXPECT_EQ(seven, 7);
  EXPECT_EQ(stream.GetPos(), stream.GetSize());
}

TEST(PStreamSection, PartialReadThenCloseLandsAfterTheSection) {
  PStream stream = NewStream();
  WriteSection(stream, kFirst, 20);
  WriteSection(stream, kSecond, 0);
  stream.MoveTo(0);
  PStreamSection section = OpenReadSection(stream);
  char two[2];
  section.Read(two, 2, 1);
  EXPECT_EQ(section.GetPos(), 30u); // the body begins at 28
  section.Close();
  EXPECT_EQ(stream.GetPos(), 48u);
}

TEST(PStreamSection, MotorolaHeaderBytes) {
  PStream stream = NewStream(kByteOrderingMotorola);
  WriteSection(stream, kFirst, 12); // 40 bytes in all
  Bytes bytes = Content(stream);
  ASSERT_EQ(bytes.size(), 40u);
  EXPECT_EQ(Bytes(bytes.begin() + 16, bytes.begin() + 20), (Bytes{0, 0, 0, 1}));
  EXPECT_EQ(Bytes(bytes.begin() + 20, bytes.begin() + 28), (Bytes{0, 0, 0, 0, 0, 0, 0, 0x28}));
}

TEST(PStreamSection, WrongIdentifierRaisesAndLeavesTheParentAfterIt) {
  PStream stream = NewStream();
  WriteSection(stream, kFirst, 5);
  WriteSection(stream, kSecond, 0);
  stream.MoveTo(0);
  try {
    OpenReadSection(stream, kSecond);
    FAIL() << "no error";
  } catch (const PError& error) {
    EXPECT_EQ(error.Code(), kErrStreamBadFormat);
    EXPECT_EQ(error.Severity(), ErrorSeverityError);
    EXPECT_STREQ(error.File(), "src\\PStreamSection");
  }
  EXPECT_EQ(stream.GetPos(), 33u);
  PStreamSection next = OpenReadSection(stream, kSecond);
  EXPECT_TRUE(next.ID() == kSecond);
}

TEST(PStreamSection, SizeComesFromThePositionAtClose) {
  PStream stream = NewStream();
  PStreamSection section = OpenWriteSection(stream, kFirst, 1);
  section.Write("0123456789", 10, 1);
  section.MoveTo(32); // back into the body
  section.Close();
  EXPECT_EQ(SizeField(stream, 0), 32u);
  EXPECT_EQ(stream.GetPos(), 32u);
}

TEST(PStreamSection, VersionSetWhileWritingIsWrittenAtCloseButTheIdentifierIsNot) {
  PStream stream = NewStream();
  PStreamSection section = OpenWriteSection(stream, kFirst, 1);
  section.SetVersion(9);
  EXPECT_THROW(section.SetID(kSecond), PError);
  section.Close();
  stream.MoveTo(0);
  PStreamSection read = OpenReadSection(stream);
  EXPECT_EQ(read.Version(), 9u);
  EXPECT_TRUE(read.ID() == kFirst);
}

TEST(PStreamSection, UnclosedSectionShowsTheProvisionalSize) {
  PStream stream = NewStream();
  PStreamSection section = OpenWriteSection(stream, kFirst, 1);
  EXPECT_EQ(SizeField(stream, 0), 24u);
  section.Close();
  EXPECT_EQ(SizeField(stream, 0), 28u);
}

TEST(PStreamSection, SeeksAreRelativeToTheHeader) {
  PStream stream = NewStream();
  stream.Write("xxxx", 4, 1); // the section starts at 4
  PStreamSection section = OpenWriteSection(stream, kFirst, 1);
  section.Write("0123456789", 10, 1);
  EXPECT_EQ(section.GetPos(), 38u);
  EXPECT_EQ(section.GetSize(), 38u);
  section.MoveTo(28);
  EXPECT_EQ(stream.GetPos(), 32u);
  section.MoveFromEnd(2);
  EXPECT_EQ(section.GetPos(), 36u);
  section.MoveBack(6);
  EXPECT_EQ(section.GetPos(), 30u);
  section.SetPos(static_cast<TypSeekMode>(9), 5); // ignored
  EXPECT_EQ(section.GetPos(), 30u);
  section.SetSize(100);
  EXPECT_EQ(section.GetSize(), 100u);
  EXPECT_EQ(stream.GetSize(), 104u);
  section.MoveTo(38);
  section.Close();
}

struct ErrorRow {
  const char* what;
  void (*action)(PStream&);
  int code;
};

TEST(PStreamSection, MisuseRaisesItsCodes) {
  const ErrorRow rows[] = {
      {"open both ways",
       [](PStream& s) {
         PStreamSection sec = OpenReadSection(s);
         sec.Close();
         sec.Open(OpenReadWrite);
       },
       kErrStreamOpenModeNotExact},
      {"change of mode",
       [](PStream& s) {
         PStreamSection sec = OpenReadSection(s);
         sec.SetOpenMode(OpenWrite);
       },
       kErrStreamOpenModeNotExact},
      {"read when closed",
       [](PStream& s) {
         PStreamSection sec = OpenReadSection(s);
         sec.Close();
         char c;
         sec.Read(&c, 1, 1);
       },
       kErrStreamClosed},
      {"close twice",
       [](PStream& s) {
         PStreamSection sec = OpenReadSection(s);
         sec.Close();
         sec.Close();
       },
       kErrStreamClosed},
      {"open twice",
       [](PStream& s) {
         PStreamSection sec = OpenReadSection(s);
         sec.Open(OpenRead);
       },
       kErrStreamAlreadyOpen},
      {"write while reading",
       [](PStream& s) {
         PStreamSection sec = OpenReadSection(s);
         sec.Write('x');
       },
       kErrStreamNotReadable},
      {"size while reading",
       [](PStream& s) {
         PStreamSection sec = OpenReadSection(s);
         sec.SetSize(10);
       },
       kErrStreamNotWritable},
  };
  for (const ErrorRow& row : rows) {
    SCOPED_TRACE(row.what);
    PStream stream = NewStream();
    WriteSection(stream, kFirst, 4);
    stream.MoveTo(0);
    PError error = Caught([&] { row.action(stream); });
    EXPECT_EQ(error.Code(), row.code);
    EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
    EXPECT_STREQ(error.File(), "src\\PStreamSection");
  }
}

TEST(PStreamSection, ParentModesAreChecked) {
  PStream readOnly(new PMemoryStreamHdl(16));
  readOnly.Open(OpenRead | OpenAllowEmpty);
  EXPECT_EQ(Caught([&] { OpenWriteSection(readOnly, kFirst, 1); }).Code(), kErrStreamNotWritable);
  PStream writeOnly(new PMemoryStreamHdl(16));
  writeOnly.Open(OpenWrite | OpenAllowEmpty);
  EXPECT_EQ(Caught([&] { OpenReadSection(writeOnly); }).Code(), kErrStreamNotReadable);
}

// Header sizes from damaged or hostile bytes, in both byte orders: the
// parent goes where the header says, saturating rather than wrapping, and
// nothing reads or allocates beyond the stream.
TEST(PStreamSection, HostileSizesGoWhereTheHeaderSaysOrFail) {
  struct Row {
    const char* what;
    unsigned long long size;
  };
  const Row rows[] = {
      {"zero", 0},
      {"below the header", 12},
      {"past the parent's end", 1000},
      {"start plus size overflows", 0xFFFFFFFFFFFFFFF0ull},
      {"above 2^63", 0x8000000000000001ull},
  };
  const unsigned short orders[] = {kByteOrderingIntel, kByteOrderingMotorola};
  for (unsigned short order : orders) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(order == kByteOrderingIntel ? "II " : "MM ") + row.what);
      PStream stream = NewStream(order);
      stream.Write("pad.", 4, 1); // the header starts at 4
      stream.Write(kFirst);
      stream.Write(static_cast<LONG>(1));
      stream.Write(static_cast<__int64>(row.size));
      stream.Write("body", 4, 1);
      const unsigned long long end = stream.GetSize(); // 36
      unsigned long long target = 4 + row.size < 4 ? ~0ull : 4 + row.size;
      // The memory handler takes the low 32 bits of a seek offset.
      unsigned long long reached = target & 0xFFFFFFFFull;
      for (int how = 0; how < 2; ++how) {
        stream.MoveTo(4);
        try {
          if (how == 0) {
            SkipCurrentSection(stream);
          } else {
            PStreamSection section = OpenReadSection(stream, kFirst);
            EXPECT_EQ(section.GetSize(), row.size);
            section.Close();
          }
          // Within the stream, the parent went exactly there.
          EXPECT_GE(row.size, 28u);
          EXPECT_EQ(stream.GetPos(), reached);
          EXPECT_LE(reached, end);
        } catch (const PError& error) {
          if (row.size < 28) {
            // A size below the header is not a section.
            EXPECT_EQ(error.Code(), kErrStreamBadFormat);
          } else {
            // Past the stream's end the seek is refused.
            EXPECT_EQ(error.Code(), kErrStreamSeekPastEnd);
            EXPECT_GT(reached, end);
          }
        }
      }
    }
  }
}

} // namespace

namespace {

TEST(PStreamSection, SkippingASizeBelowTheHeaderStillMovesOn) {
  PStream stream = NewStream();
  stream.Write(kFirst);
  stream.Write(static_cast<LONG>(1));
  stream.Write(static_cast<__int64>(0));
  WriteSection(stream, kSecond, 0);
  stream.MoveTo(0);
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  SkipCurrentSection(stream);
  EXPECT_EQ(hook.calls, 1);
  EXPECT_EQ(stream.GetPos(), 28u); // the header, at least
  EXPECT_TRUE(GetNextSection(stream) == kSecond);
}

TEST(PStreamSection, ClosedSectionSaysItIsClosed) {
  PStream stream = NewStream();
  WriteSection(stream, kFirst, 2);
  stream.MoveTo(0);
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  {
    PStreamSection section = OpenReadSection(stream);
    EXPECT_TRUE(section.IsOpened());
    EXPECT_TRUE(section.IsReadable());
    EXPECT_FALSE(section.IsWritable()); // its parent is, the section is not
    section.Close();
    EXPECT_FALSE(section.IsOpened());
  }
  // Going away after an explicit close raised nothing.
  EXPECT_EQ(hook.calls, 0);
}

TEST(PStreamSection, DamagedSizeEndsWithTheParentsData) {
  PStream stream = NewStream();
  stream.Write(kFirst);
  stream.Write(static_cast<LONG>(1));
  stream.Write(static_cast<__int64>(0x200000000LL)); // far beyond the data
  stream.Write("abc", 3, 1);
  stream.MoveTo(0);
  PStreamSection section = OpenReadSection(stream);
  int reads = 0;
  char c;
  while (!section.IsAtEnd() && reads < 100) {
    section.Read(&c, 1, 1);
    ++reads;
  }
  EXPECT_EQ(reads, 3);
}

TEST(PStreamSection, CountedStringsAreNotCutAtTheSectionSize) {
  // A reader of a section reads on past its size; a counted string there
  // comes back whole.
  PStream stream = NewStream();
  stream.Write(kFirst);
  stream.Write(static_cast<LONG>(1));
  stream.Write(static_cast<__int64>(30));
  stream.Write(PString("hello"));
  stream.MoveTo(0);
  PStreamSection section = OpenReadSection(stream);
  PString text;
  section.Read(&text);
  EXPECT_STREQ(static_cast<const char*>(PMBString(text)), "hello");
}

} // namespace

namespace {

// A memory handler that marks the errors it prepares.
class TaggingHdl : public PMemoryStreamHdl {
protected:
  PError IOPrepareError(PError& error) override {
    error.SetIntegerInfo("preparedbymemory", 1);
    return PMemoryStreamHdl::IOPrepareError(error);
  }
};

TEST(PStreamSection, SectionErrorsArePreparedByTheMemoryHandlerBeneath) {
  PStream stream(new TaggingHdl);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  WriteSection(stream, kFirst, 2);
  stream.MoveTo(0);
  PStreamSection section = OpenReadSection(stream);
  try {
    section.Write('x'); // a read section cannot be written: 1232
    FAIL() << "no error";
  } catch (const PError& error) {
    EXPECT_EQ(error.Code(), kErrStreamNotReadable);
    EXPECT_STREQ(error.File(), "src\\PStreamSection");
    EXPECT_EQ(error.GetIntegerInfo("preparedbymemory", 0), 1);
  }
  // The wrong-identifier error goes the same way.
  stream.MoveTo(0);
  try {
    OpenReadSection(stream, kSecond);
    FAIL() << "no error";
  } catch (const PError& error) {
    EXPECT_EQ(error.Code(), kErrStreamBadFormat);
    EXPECT_EQ(error.GetIntegerInfo("preparedbymemory", 0), 1);
  }
}

} // namespace

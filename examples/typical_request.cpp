// typical_request.cpp - what a new user of the library runs first.
//
// An application writes a document: a stream over a file (through the
// buffered file handler of support/FileStreamHdl.h), one section per part of
// the document, each identified by a PAutomaticUID and versioned, holding
// typed values (integers in the stream's byte order, strings, identifiers,
// times). It reads the file back by identifier, skips the section it does
// not know, and says what it did.
//
//   qvbase_example [FILE] [--mm]
//
// FILE defaults to typical_request.qvd in the current directory; --mm writes
// the integers most significant byte first. `qvdump FILE` shows the result.
#include <qvbase/qvbase.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "support/FileStreamHdl.h"

namespace {

const PAutomaticUID kDocument("Document");
const PAutomaticUID kChapter("Chapter");
const PAutomaticUID kThumbnail("Thumbnail");
const PAutomaticUID kSummary("Summary");
const PAutomaticUID kAuthor("Author");

// 2026-11-21 00:00:00 UTC, fixed so that every run writes the same bytes.
const LONG kWritten = 1795219200;

std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }
std::string IdText(const PUniversalID& id) { return Text(static_cast<PString>(id)); }

void WriteDocument(PStream& file) {
  PStreamSection document = OpenWriteSection(file, kDocument, /*version=*/2);
  document.Write(static_cast<LONG>(3)); // pages
  document.Write(PString("Annual report"));
  document.Write(kAuthor);
  document.Write(PUTDate(kWritten));
  document.Write(PTime(/*seconds=*/5400, /*nanoseconds=*/0)); // editing time
  {
    PStreamSection chapter = OpenWriteSection(document, kChapter, /*version=*/1);
    chapter.Write(PString("Introduction"));
    chapter.Write(static_cast<LONG>(1200)); // words
    chapter.Close();
  }
  document.Close();
  std::printf("wrote section Document %s, version 2, %llu bytes\n", IdText(kDocument).c_str(),
              static_cast<unsigned long long>(document.GetSize()));

  // A part that an older reader does not know.
  PStreamSection thumbnail = OpenWriteSection(file, kThumbnail, /*version=*/1);
  const char pixels[8] = {0, 1, 2, 3, 4, 5, 6, 7};
  thumbnail.WriteArray(pixels, sizeof pixels);
  thumbnail.Close();
  std::printf("wrote section Thumbnail, %llu bytes\n",
              static_cast<unsigned long long>(thumbnail.GetSize()));

  PStreamSection summary = OpenWriteSection(file, kSummary, /*version=*/1);
  summary.Write(PString("Totals"));
  summary.Close();
  std::printf("wrote section Summary, %llu bytes\n",
              static_cast<unsigned long long>(summary.GetSize()));
}

void ReadDocument(PStream& file) {
  while (!file.IsAtEnd()) {
    PUniversalID next = GetNextSection(file);
    if (next == kDocument) {
      PStreamSection document = OpenReadSection(file, kDocument);
      LONG pages = 0;
      PString title;
      PUniversalID author;
      PUTDate written;
      PTime editing;
      document.Read(&pages);
      document.Read(&title);
      document.Read(&author);
      document.Read(&written);
      document.Read(&editing);
      std::printf("read Document version %u: \"%s\", %d pages, author %s\n",
                  static_cast<unsigned>(document.Version()), Text(title).c_str(),
                  static_cast<int>(pages), author == kAuthor ? "Author" : IdText(author).c_str());
      std::printf("  written at %lld ticks since 1970, edited for %s\n",
                  static_cast<long long>(written.GetValue().GetValue()),
                  static_cast<const char*>(editing.Format(PMBString("^HH^:^mm^:^ss^"))));
      PStreamSection chapter = OpenReadSection(document, kChapter);
      PString heading;
      LONG words = 0;
      chapter.Read(&heading);
      chapter.Read(&words);
      chapter.Close();
      std::printf("  chapter \"%s\", %d words\n", Text(heading).c_str(), static_cast<int>(words));
      document.Close();
    } else if (next == kSummary) {
      PStreamSection summary = OpenReadSection(file, kSummary);
      PString text;
      summary.Read(&text);
      summary.Close();
      std::printf("read Summary: \"%s\"\n", Text(text).c_str());
    } else {
      std::printf("skipped unknown section %s\n", IdText(next).c_str());
      SkipCurrentSection(file);
    }
  }
}

} // namespace

int main(int argc, char** argv) {
  std::string path = "typical_request.qvd";
  bool motorola = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--mm") == 0)
      motorola = true;
    else
      path = argv[i];
  }
  std::printf("qvbase12 %s (build %u), registry store: %s\n", qvbase::LibraryVersion(),
              qvbase::LibraryBuild(), qvbase::RegistryStoreDescription());
  try {
    // A file stream: the buffered handler keeps one block of the file in
    // memory, and the sections patch their sizes into it.
    PStream file(new FileStreamHdl(path));
    file.Open(OpenReadWrite | OpenNoLoad); // created, or emptied
    file.SetByteOrdering(motorola ? kByteOrderingMotorola : kByteOrderingIntel);
    WriteDocument(file);
    const unsigned __int64 saved = file.GetSize();
    file.Close();
    std::printf("saved %llu bytes to %s (%s)\n", static_cast<unsigned long long>(saved),
                path.c_str(), motorola ? "MM" : "II");

    PStream back(new FileStreamHdl(path));
    back.Open(OpenRead);
    back.SetByteOrdering(file.GetByteOrdering());
    ReadDocument(back);
    back.Close();
  } catch (const PError& error) {
    std::fprintf(stderr, "error %d (%s line %u)\n", error.Code(), error.File() ? error.File() : "?",
                 static_cast<unsigned>(error.Line()));
    return 1;
  }
  return 0;
}

// qvdump - prints the tree of stream sections in a file.
// Part of qvbase, the QVKernel foundation class library.
//
// A file written with OpenWriteSection is a sequence of sections: a 28-byte
// header (identifier as two 8-byte halves, version u32, size u64 counting the
// header) and a body. qvdump decodes the headers from the file's bytes in the
// byte ordering given on the command line, names identifiers that
// PAutomaticUID made from a name, and shows a body as nested sections when it
// is made of whole sections and nothing else. Exit status: 0 on success, 1 on
// input it cannot read or trust, 2 on wrong usage; every failure prints one
// line naming the offset.
#include <qvbase/PError.h>
#include <qvbase/PStream.h>

#include "FileStreamHdl.h"
#include "SectionDump.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <system_error>
#include <string>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;
constexpr int kExitUsage = 2;

// Larger files are refused rather than read into memory.
constexpr std::uint64_t kMaxFileSize = std::uint64_t(1) << 30;

const char kUsage[] = "usage: qvdump [--mm|--ii] [--hex] [--json] FILE\n"
                      "\n"
                      "Prints the tree of stream sections in FILE: for each section its offset "
                      "in\n"
                      "the file, its identifier (with the name it was made from, when "
                      "PAutomaticUID\n"
                      "made it), its version and its size, header included. A body made of "
                      "whole\n"
                      "sections and nothing else is shown as nested sections, indented.\n"
                      "\n"
                      "options:\n"
                      "  --ii    integers are little-endian (\"II\", the default)\n"
                      "  --mm    integers are big-endian (\"MM\")\n"
                      "  --hex   also dump the bytes of bodies that are not sections\n"
                      "  --json  print the tree as one JSON document (schema in the README)\n"
                      "  --help  print this text\n"
                      "\n"
                      "exit status: 0 success, 1 bad input, 2 wrong usage\n";

struct Failure {
  int status;
  std::string message;
};

[[noreturn]] void Usage(const std::string& message) {
  throw Failure{kExitUsage, message + " (see qvdump --help)"};
}
[[noreturn]] void BadInput(const std::string& message) { throw Failure{kExitBadInput, message}; }

// Reads the file through the buffered file handler. Its size is known once
// it is open, so that an oversized file is refused before its content is
// read into memory.
std::vector<unsigned char> ReadWholeFile(const std::string& path) {
  // A directory opens for reading on some systems and measures as anything;
  // it is named for what it is.
  std::error_code error;
  if (std::filesystem::is_directory(path, error))
    BadInput(path + " is a directory, not a file");
  PStream file(new FileStreamHdl(path));
  try {
    file.Open(OpenRead);
  } catch (const PError& error) {
    BadInput("cannot open " + path + ": " +
             static_cast<const char*>(error.GetStringInfo("nativeerror", "cannot be read")));
  }
  std::vector<unsigned char> bytes;
  try {
    const unsigned __int64 size = file.GetSize();
    if (size > kMaxFileSize)
      BadInput(path + " is larger than 1 GiB, which qvdump does not read");
    bytes.resize(static_cast<std::size_t>(size));
    if (size != 0 && file.Read(reinterpret_cast<char*>(bytes.data()), static_cast<ULONG>(size),
                               /*itemSize=*/1) != size)
      BadInput("cannot read " + path);
    file.Close();
  } catch (const PError&) {
    BadInput("cannot read " + path);
  }
  return bytes;
}

int Main(int argc, char** argv) {
  bool bigEndian = false, orderingGiven = false, hex = false, json = false;
  std::string path;
  bool havePath = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return kExitOk;
    }
    if (arg == "--mm" || arg == "--ii") {
      bool big = arg == "--mm";
      if (orderingGiven && big != bigEndian)
        Usage("--mm and --ii exclude each other");
      bigEndian = big;
      orderingGiven = true;
    } else if (arg == "--hex") {
      hex = true;
    } else if (arg == "--json") {
      json = true;
    } else if (arg.size() > 1 && arg[0] == '-') {
      Usage("unknown option " + arg);
    } else if (havePath) {
      Usage("only one FILE is read");
    } else {
      path = arg;
      havePath = true;
    }
  }
  if (!havePath)
    Usage("no FILE given");
  std::vector<unsigned char> bytes = ReadWholeFile(path);
  std::string problem;
  const auto print = [](const std::string& line) { std::fputs(line.c_str(), stdout); };
  if (!(json ? qvdump::DumpSectionsJson : qvdump::DumpSections)(bytes, bigEndian, hex, print,
                                                                &problem))
    BadInput(problem);
  return std::fflush(stdout) == 0 ? kExitOk : kExitBadInput;
}

} // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const Failure& failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "qvdump: %s\n", failure.message.c_str());
    return failure.status;
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "qvdump: %s\n", e.what());
    return kExitBadInput;
  }
}

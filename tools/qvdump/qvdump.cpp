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
#include <qvbase/PMBString.h>
#include <qvbase/PStream.h>
#include <qvbase/PString.h>
#include <qvbase/PUniversalID.h>

#include "FileStreamHdl.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;
constexpr int kExitUsage = 2;

constexpr std::uint64_t kHeaderSize = 28;
// Larger files are refused rather than read into memory.
constexpr std::uint64_t kMaxFileSize = std::uint64_t(1) << 30;
// Bodies deeper than this are not opened: every level costs 28 bytes only,
// so a crafted file could otherwise nest millions of levels.
constexpr int kMaxDepth = 100;

const char kUsage[] = "usage: qvdump [--mm|--ii] [--hex] FILE\n"
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

std::string Decimal(std::uint64_t value) {
  return std::to_string(static_cast<unsigned long long>(value));
}

struct Header {
  std::uint64_t offset; // in the file
  PUniversalID id;
  std::uint32_t version;
  std::uint64_t size; // whole section, header included
};

class Dumper {
public:
  Dumper(const std::vector<unsigned char>& bytes, bool bigEndian, bool hex)
      : m_bytes(bytes), m_bigEndian(bigEndian), m_hex(hex) {}

  // Checks the whole file first, so that bad input prints nothing but the
  // message, then prints the tree.
  void Run() {
    std::vector<Header> top;
    std::string problem;
    if (!Split(0, m_bytes.size(), "the end of the file", &top, &problem))
      BadInput(problem);
    for (const Header& h : top)
      Print(h, 0);
  }

private:
  std::uint64_t Integer(std::uint64_t at, int width) const {
    std::uint64_t value = 0;
    for (int i = 0; i < width; ++i) {
      int shift = m_bigEndian ? 8 * (width - 1 - i) : 8 * i;
      value |= std::uint64_t(m_bytes[static_cast<std::size_t>(at) + i]) << shift;
    }
    return value;
  }

  Header Decode(std::uint64_t at) const {
    Header h;
    h.offset = at;
    // Two 8-byte integers: the low half then the high half, each in the
    // stream's ordering; in memory the identifier is both halves
    // little-endian.
    _GUID g;
    unsigned char raw[16];
    for (int half = 0; half < 2; ++half) {
      std::uint64_t v = Integer(at + 8 * half, 8);
      for (int i = 0; i < 8; ++i)
        raw[8 * half + i] = static_cast<unsigned char>(v >> (8 * i));
    }
    std::memcpy(&g, raw, sizeof raw);
    h.id = PUniversalID(g);
    h.version = static_cast<std::uint32_t>(Integer(at + 16, 4));
    h.size = Integer(at + 20, 8);
    return h;
  }

  // Splits [begin, end) into whole sections. On failure `problem` says what
  // is wrong and where; `endName` names the limit for that message.
  bool Split(std::uint64_t begin, std::uint64_t end, const char* endName, std::vector<Header>* out,
             std::string* problem) const {
    std::uint64_t at = begin;
    while (at < end) {
      std::string where = "section at offset " + Decimal(at) + ": ";
      if (end - at < kHeaderSize) {
        *problem =
            where + "header cut short: " + Decimal(end - at) + " of 28 bytes before " + endName;
        return false;
      }
      Header h = Decode(at);
      if (h.size < kHeaderSize) {
        // Also what keeps the walk moving: every step advances 28 bytes at
        // least.
        *problem = where + "size " + Decimal(h.size) + " is below the 28-byte header";
        return false;
      }
      if (h.size > end - at) {
        *problem = where + "size " + Decimal(h.size) + " runs past " + endName + " at offset " +
                   Decimal(end);
        return false;
      }
      out->push_back(h);
      at += h.size;
    }
    return true;
  }

  static std::string Indent(int depth) {
    return std::string(static_cast<std::size_t>(depth) * 2, ' ');
  }

  static std::string NameOf(const PUniversalID& id) {
    // Ten 6-bit codes per half in bits 0..59, the first character highest;
    // a zero code ends the name.
    static const char kAlphabet[] =
        "?1234567890ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    std::string name;
    const std::uint64_t halves[2] = {id.Huge1(), id.Huge2()};
    for (int i = 0; i < 20; ++i) {
      unsigned code = static_cast<unsigned>(halves[i / 10] >> (54 - 6 * (i % 10))) & 0x3F;
      if (code == 0)
        break;
      if (code > 62)
        return std::string();
      name += kAlphabet[code];
    }
    // Only an exact match counts: the checksum nibbles and every unused
    // bit must come out the same.
    if (name.empty() || PAutomaticUID(name.c_str()) != id)
      return std::string();
    return name;
  }

  void Print(const Header& h, int depth) const {
    PMBString text = static_cast<PString>(h.id);
    std::string line = Indent(depth) + Decimal(h.offset) + " " + static_cast<const char*>(text);
    std::string name = NameOf(h.id);
    if (!name.empty())
      line += " \"" + name + "\"";
    line += " version " + Decimal(h.version) + " size " + Decimal(h.size) + "\n";
    std::fputs(line.c_str(), stdout);

    std::uint64_t begin = h.offset + kHeaderSize, end = h.offset + h.size;
    if (begin == end)
      return;
    std::vector<Header> children;
    std::string ignored;
    if (depth + 1 >= kMaxDepth) {
      std::fputs((Indent(depth + 1) + "(sections nested deeper than " + std::to_string(kMaxDepth) +
                  " levels are not opened)\n")
                     .c_str(),
                 stdout);
    } else if (Split(begin, end, "the end of its parent", &children, &ignored)) {
      for (const Header& child : children)
        Print(child, depth + 1);
      return;
    }
    if (m_hex)
      HexDump(begin, end, depth + 1);
  }

  void HexDump(std::uint64_t begin, std::uint64_t end, int depth) const {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string indent = Indent(depth);
    for (std::uint64_t line = begin; line < end; line += 16) {
      char offset[32];
      std::snprintf(offset, sizeof offset, "%08llX", static_cast<unsigned long long>(line));
      std::string hex, ascii;
      for (std::uint64_t i = 0; i < 16; ++i) {
        if (i == 8)
          hex += ' ';
        if (line + i < end) {
          unsigned char c = m_bytes[static_cast<std::size_t>(line + i)];
          hex += kDigits[c >> 4];
          hex += kDigits[c & 15];
          hex += ' ';
          ascii += (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '.';
        } else {
          hex += "   ";
        }
      }
      std::string out = indent + offset + "  " + hex + " |" + ascii + "|\n";
      std::fputs(out.c_str(), stdout);
    }
  }

  const std::vector<unsigned char>& m_bytes;
  bool m_bigEndian;
  bool m_hex;
};

// Reads the file through the buffered file handler. Its size is known once
// it is open, so that an oversized file is refused before its content is
// read into memory.
std::vector<unsigned char> ReadWholeFile(const std::string& path) {
  PStream file(new FileStreamHdl(path));
  try {
    file.Open(OpenRead);
  } catch (const PError& error) {
    PError described(error);
    BadInput("cannot open " + path + ": " +
             static_cast<const char*>(described.GetStringInfo("nativeerror", "cannot be read")));
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
  bool bigEndian = false, orderingGiven = false, hex = false;
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
  Dumper(bytes, bigEndian, hex).Run();
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

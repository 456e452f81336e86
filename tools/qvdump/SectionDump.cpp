// SectionDump.cpp - the tree of stream sections in a file's bytes, as text.
// Part of qvbase, the QVKernel foundation class library.
//
// A file written with OpenWriteSection is a sequence of sections: a 28-byte
// header (identifier as two 8-byte halves, version u32, size u64 counting the
// header) and a body. The headers are decoded from the bytes in the byte
// ordering given; identifiers that PAutomaticUID made from a name are named.
#include "SectionDump.h"

#include "common/HexLine.h"
#include "common/JsonText.h"

#include <qvbase/PMBString.h>
#include <qvbase/PString.h>
#include <qvbase/PUniversalID.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace qvdump {

namespace {

constexpr std::uint64_t kHeaderSize = 28;
// Bodies deeper than this are not opened: every level costs 28 bytes only,
// so a crafted file could otherwise nest millions of levels.
constexpr int kMaxDepth = 100;

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
  Dumper(const std::vector<unsigned char>& bytes, bool bigEndian, bool hex, const LineSink& sink)
      : m_bytes(bytes), m_bigEndian(bigEndian), m_hex(hex), m_sink(sink) {}

  // Checks the whole file first, so that bad input prints nothing but the
  // message, then prints the tree.
  bool Run(std::string* problem) {
    std::vector<Header> top;
    if (!Split(0, m_bytes.size(), "the end of the file", &top, problem))
      return false;
    for (const Header& h : top)
      Print(h, 0);
    return true;
  }

  // The same check, then the tree as one JSON document.
  bool RunJson(std::string* problem) {
    std::vector<Header> top;
    if (!Split(0, m_bytes.size(), "the end of the file", &top, problem))
      return false;
    m_sink(std::string("{\"byteOrder\": ") + (m_bigEndian ? "\"MM\"" : "\"II\"") +
           ", \"size\": " + Decimal(m_bytes.size()) + ", \"sections\": [\n");
    PrintJsonList(top, 0);
    m_sink("]}\n");
    return true;
  }

private:
  std::uint64_t Integer(std::uint64_t at, int width) const {
    std::uint64_t value = 0;
    for (int i = 0; i < width; ++i) {
      int shift = m_bigEndian ? 8 * (width - 1 - i) : 8 * i;
      value |= std::uint64_t(m_bytes[static_cast<std::size_t>(at) + static_cast<std::size_t>(i)])
               << shift;
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
    for (unsigned half = 0; half < 2; ++half) {
      std::uint64_t v = Integer(at + std::uint64_t{8} * half, 8);
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
    m_sink(line);

    std::uint64_t begin = h.offset + kHeaderSize, end = h.offset + h.size;
    if (begin == end)
      return;
    std::vector<Header> children;
    std::string ignored;
    if (depth + 1 >= kMaxDepth) {
      m_sink(Indent(depth + 1) + "(sections nested deeper than " + std::to_string(kMaxDepth) +
             " levels are not opened)\n");
    } else if (Split(begin, end, "the end of its parent", &children, &ignored)) {
      for (const Header& child : children)
        Print(child, depth + 1);
      return;
    }
    if (m_hex)
      HexDump(begin, end, depth + 1);
  }

  void PrintJsonList(const std::vector<Header>& sections, int depth) const {
    for (std::size_t i = 0; i < sections.size(); ++i)
      PrintJson(sections[i], depth, i + 1 == sections.size());
  }

  // One section as a JSON object on its own lines; what its body is made of
  // is named in "body": "empty", "sections" (then listed in "sections"),
  // "data" (its bytes in "bytes" with --hex) or "not opened" (nested too
  // deep).
  void PrintJson(const Header& h, int depth, bool last) const {
    PMBString text = static_cast<PString>(h.id);
    const std::string name = NameOf(h.id);
    const std::string indent = Indent(depth + 1);
    std::string line = indent + "{\"offset\": " + Decimal(h.offset) +
                       ", \"id\": " + qvtools::JsonString(static_cast<const char*>(text)) +
                       ", \"name\": " + (name.empty() ? "null" : qvtools::JsonString(name)) +
                       ", \"version\": " + Decimal(h.version) + ", \"size\": " + Decimal(h.size) +
                       ", \"body\": ";
    const std::string close = last ? "}\n" : "},\n";
    const std::uint64_t begin = h.offset + kHeaderSize, end = h.offset + h.size;
    std::vector<Header> children;
    std::string ignored;
    if (begin == end) {
      m_sink(line + "\"empty\"" + close);
    } else if (depth + 1 >= kMaxDepth) {
      m_sink(line + "\"not opened\"" + close);
    } else if (Split(begin, end, "the end of its parent", &children, &ignored)) {
      m_sink(line + "\"sections\", \"sections\": [\n");
      PrintJsonList(children, depth + 1);
      m_sink(indent + "]" + close);
    } else {
      line += "\"data\"";
      if (m_hex)
        line += ", \"bytes\": " + qvtools::JsonHexBytes(&m_bytes[static_cast<std::size_t>(begin)],
                                                        static_cast<std::size_t>(end - begin));
      m_sink(line + close);
    }
  }

  void HexDump(std::uint64_t begin, std::uint64_t end, int depth) const {
    std::string indent = Indent(depth);
    for (std::uint64_t line = begin; line < end; line += 16) {
      const std::uint64_t count = end - line < 16 ? end - line : 16;
      std::string text = indent;
      text += qvtools::HexLine(&m_bytes[static_cast<std::size_t>(line)],
                               static_cast<std::size_t>(count), line);
      text += '\n';
      m_sink(text);
    }
  }

  const std::vector<unsigned char>& m_bytes;
  bool m_bigEndian;
  bool m_hex;
  const LineSink& m_sink;
};

} // namespace

bool DumpSections(const std::vector<unsigned char>& bytes, bool bigEndian, bool hex,
                  const LineSink& sink, std::string* problem) {
  return Dumper(bytes, bigEndian, hex, sink).Run(problem);
}

bool DumpSectionsJson(const std::vector<unsigned char>& bytes, bool bigEndian, bool hex,
                      const LineSink& sink, std::string* problem) {
  return Dumper(bytes, bigEndian, hex, sink).RunJson(problem);
}

} // namespace qvdump

// qvdump's reading of a file of sections, from arbitrary bytes.
//
// The first byte chooses the byte ordering and whether bodies are dumped in
// hexadecimal; the rest is the file. The dump must either refuse the bytes
// with one message naming an offset, printing nothing, or print every line
// it promises; its output stays proportional to the file (each section a
// line, each body byte in at most one hex line).
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "qvdump/SectionDump.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const bool bigEndian = data[0] & 1;
  const bool hex = data[0] & 2;
  std::vector<unsigned char> bytes(data + 1, data + size);
  std::size_t lines = 0, printed = 0;
  std::string problem;
  const bool ok = qvdump::DumpSections(
      bytes, bigEndian, hex,
      [&](const std::string& line) {
        qvbase::fuzz::Check(!line.empty() && line.back() == '\n', "a line without its break");
        ++lines;
        printed += line.size();
      },
      &problem);
  if (!ok) {
    qvbase::fuzz::Check(lines == 0, "refused bytes printed lines");
    qvbase::fuzz::Check(problem.find("offset") != std::string::npos,
                        "a refusal that names no offset");
    return 0;
  }
  // One line per 28 bytes of headers at most, and a hex line (about 80
  // characters at the deepest indent) per 16 body bytes.
  qvbase::fuzz::Check(lines <= bytes.size() / 28 + bytes.size() / 16 + 1, "more lines than bytes");
  qvbase::fuzz::Check(printed <= 400 * (bytes.size() / 16 + 1), "output out of proportion");
  return 0;
}

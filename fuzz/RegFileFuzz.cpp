// Feeds arbitrary bytes to the .reg parser: it must answer with entries or an
// error naming a line, never crash; what it accepts must write out and parse
// back to the same file.
#include "native/RegFile.h"
#include "native/RegFileParser.h"
#include "native/RegFileWriter.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace regfile = qvbase::native::regfile;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<regfile::Entry> entries;
  regfile::ParseError error;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (!regfile::Parse(bytes, &entries, &error)) {
    if (error.line == 0 || error.message.empty())
      std::abort();
    return 0;
  }
  regfile::Tree tree;
  regfile::Apply(entries, &tree);
  std::string written = regfile::Write(tree, regfile::Encoding::kUtf8);
  std::vector<regfile::Entry> again;
  if (!regfile::Parse(written, &again, &error))
    std::abort();
  regfile::Tree second;
  regfile::Apply(again, &second);
  if (regfile::Write(second, regfile::Encoding::kUtf8) != written)
    std::abort();
  return 0;
}

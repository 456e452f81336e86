// RegFileParser.h - reading the .reg text format into statements.
// Part of qvbase, the QVKernel foundation class library.
//
// The parser reads bytes from outside (a store another process wrote, a file
// a user imports): whatever they hold, it answers with the statements or with
// the first line that is wrong and what is wrong with it, never more.
#pragma once

#include "native/RegFile.h"

#include <string>
#include <string_view>
#include <vector>

namespace qvbase {
namespace native {
namespace regfile {

struct ParseError {
  unsigned line = 0; // 1-based
  std::string message;
};

// Parses a whole file: an optional byte-order mark (UTF-8 or UTF-16LE), the
// header line, then key and value statements. The file must end with a line
// break, so that a file cut short is recognised. On failure nothing is
// returned but the error.
bool Parse(std::string_view bytes, std::vector<Entry>* entries, ParseError* error);

} // namespace regfile
} // namespace native
} // namespace qvbase

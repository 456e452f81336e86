// RegFileWriter.h - writing a key tree in the .reg text format.
// Part of qvbase, the QVKernel foundation class library.
//
// What is written parses back (RegFileParser.h) to the same tree, byte for
// byte in every value: text that is not plain goes in the hex(...) form.
#pragma once

#include "native/RegFile.h"

#include <string>
#include <vector>

namespace qvbase {
namespace native {
namespace regfile {

enum class Encoding {
  kUtf8,  // UTF-8 without byte-order mark, LF line ends: the store's own form
  kUtf16, // UTF-16LE with byte-order mark, CRLF line ends: what regedit writes
};

// The whole tree as a .reg file (each hive's root appears only when it holds
// values).
std::string Write(const Tree& tree, Encoding encoding);

// One key and everything below it, `path` being the key's full name below
// `root`.
std::string WriteKey(Root root, const std::vector<std::string>& path, const Key& key,
                     Encoding encoding);

} // namespace regfile
} // namespace native
} // namespace qvbase

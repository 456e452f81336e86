// SectionDump.h - the tree of stream sections in a file's bytes, as text.
// Part of qvbase, the QVKernel foundation class library.
//
// What qvdump prints, apart from reading the file: the bytes are checked
// whole first (every section's header complete, its size at least the
// 28-byte header and inside its parent), so that bad input gives one
// message naming the offset and prints nothing else; then each section is
// written as a line (offset, identifier with the name PAutomaticUID made it
// from, version, size), nested sections indented below their parent, and
// with `hex` the bodies that are not sections as a hex dump.
//
//   std::string problem;
//   if (!qvdump::DumpSections(bytes, /*bigEndian=*/false, /*hex=*/true,
//                             [](const std::string& line) { std::fputs(line.c_str(), stdout); },
//                             &problem))
//     report(problem);
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace qvdump {

// Receives the output one line at a time, line break included.
using LineSink = std::function<void(const std::string& line)>;

// False, with `problem` saying what is wrong and where, when the bytes are
// not a sequence of whole sections; nothing has gone to `sink` then.
bool DumpSections(const std::vector<unsigned char>& bytes, bool bigEndian, bool hex,
                  const LineSink& sink, std::string* problem);

// The same tree as one JSON document (the schema is in the README: "qvdump
// --json"); with `hex` the bytes of bodies that are not sections are given
// as hex strings. Fails as DumpSections does, before writing anything.
bool DumpSectionsJson(const std::vector<unsigned char>& bytes, bool bigEndian, bool hex,
                      const LineSink& sink, std::string* problem);

} // namespace qvdump

// RegFile.h - the .reg text format: parsing, an in-memory key tree, writing.
// Part of qvbase, the QVKernel foundation class library.
//
// The POSIX registry store keeps its keys in a file of the format Windows'
// registry editor exports ("Windows Registry Editor Version 5.00"), so the
// same file can be imported on a Windows machine and a Windows export can be
// imported here; qvreg's import and export use the same code on both
// platforms. This file knows only the format: no file system, no locking.
//
// Text bytes. The registry's "A" interface passes strings as the process's
// multibyte bytes (UTF-8 here). In the file, a string value is written quoted
// when it is plain text: valid UTF-8, no control characters, one terminating
// zero. Any other string (a newline in it, no terminator, bytes that are not
// UTF-8) is written as hex(1), whose data is UTF-16LE as Windows keeps it;
// bytes that are not UTF-8 travel as the lone surrogates U+DC80..U+DCFF, so
// every byte string comes back exactly as it was written.
#pragma once

#include <qvbase/QVCompat.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qvbase {
namespace native {
namespace regfile {

enum class Root { kLocalMachine = 0, kCurrentUser = 1 };
constexpr int kRootCount = 2;

// "HKEY_LOCAL_MACHINE" or "HKEY_CURRENT_USER".
const char* RootName(Root root);

// Accepts the full names and the short forms HKLM and HKCU, in any case.
bool ParseRootName(std::string_view text, Root* root);

// Key names are compared as Windows compares them: ASCII letters without
// regard to case, every other byte exactly.
bool NamesEqual(std::string_view a, std::string_view b);
bool NameLess(std::string_view a, std::string_view b);

// Splits "A\B\C" into its names. A trailing backslash is allowed; an empty
// name in the middle, a leading backslash, a name longer than 255 bytes or
// with control characters, or more than kMaxKeyDepth names is not. An empty
// path gives no names.
constexpr std::size_t kMaxKeyDepth = 512;
bool SplitKeyPath(std::string_view path, std::vector<std::string>* names);

struct Value {
  std::string name; // empty for the default value
  DWORD type = 0;
  std::vector<BYTE> data;
};

struct Key {
  std::string name;
  std::vector<Value> values;                 // in the order first written
  std::vector<std::unique_ptr<Key>> subKeys; // sorted by NameLess

  Key* FindSubKey(std::string_view subName) const;
  // Returns the existing sub-key of that name, or a new one in sorted place.
  Key* AddSubKey(std::string_view subName, bool* created = nullptr);
  bool RemoveSubKey(std::string_view subName);
  const Value* FindValue(std::string_view valueName) const;
  // Replaces the data of an existing value in place, or appends a new one.
  void SetValue(std::string_view valueName, DWORD type, std::vector<BYTE> data);
  bool RemoveValue(std::string_view valueName);
  // The key `names` below this one, or null.
  Key* Find(const std::vector<std::string>& names);
};

struct Tree {
  Key roots[kRootCount];
  Tree();
  Key& RootKey(Root root) { return roots[static_cast<int>(root)]; }
  const Key& RootKey(Root root) const { return roots[static_cast<int>(root)]; }
};

// One statement of a .reg file.
struct Entry {
  enum Kind { kKey, kDeleteKey, kValue, kDeleteValue };
  Kind kind = kKey;
  Root root = Root::kLocalMachine;
  std::vector<std::string> path; // names below the root
  std::string name;              // value statements: the value's name
  DWORD type = 0;
  std::vector<BYTE> data;
  unsigned line = 0;
};

struct ParseError {
  unsigned line = 0; // 1-based
  std::string message;
};

// Parses a whole file: an optional byte-order mark (UTF-8 or UTF-16LE), the
// header line, then key and value statements. The file must end with a line
// break, so that a file cut short is recognised. On failure nothing is
// returned but the error.
bool Parse(std::string_view bytes, std::vector<Entry>* entries, ParseError* error);

// Applies parsed statements in order: keys are created with every key above
// them, values set, deletions carried out.
void Apply(const std::vector<Entry>& entries, Tree* tree);

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

// The text conversions that the hex(1), hex(2) and hex(7) forms use; exact
// inverses of each other for every byte string.
std::vector<std::uint16_t> BytesToUtf16(std::string_view bytes);
std::string Utf16ToBytes(const std::uint16_t* units, std::size_t count);

} // namespace regfile
} // namespace native
} // namespace qvbase

// RegFile.h - the .reg text format: its key tree and statements.
// Part of qvbase, the QVKernel foundation class library.
//
// The POSIX registry store keeps its keys in a file of the format Windows'
// registry editor exports ("Windows Registry Editor Version 5.00"), so the
// same file can be imported on a Windows machine and a Windows export can be
// imported here; qvreg's import and export use the same code on both
// platforms. The format's code knows only the format: no file system, no
// locking. It is four parts:
//
//   RegFile.h        the key tree a file describes and the statements it is
//                    made of; applying statements to a tree
//   RegFileParser.h  bytes of a file -> statements, or the line that is wrong
//   RegFileWriter.h  a tree or one key -> the bytes of a file
//   RegFileCodec.h   the UTF-8 / UTF-16 conversions both of them use
//
//   std::vector<regfile::Entry> entries;
//   regfile::ParseError error;
//   if (!regfile::Parse(bytes, &entries, &error)) report(error.line, error.message);
//   regfile::Tree tree;
//   regfile::Apply(entries, &tree);
//   std::string again = regfile::Write(tree, regfile::Encoding::kUtf8);
#pragma once

#include "native/Registry.h"

#include <qvbase/QVCompat.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qvbase {
namespace native {
namespace regfile {

// The first line of a file: the current form, whose text values are UTF-16,
// and the old form, whose text values are bytes.
constexpr std::string_view kHeaderVersion5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHeaderVersion4 = "REGEDIT4";

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
// name in the middle, a leading backslash, a name longer than
// kMaxKeyNameLength bytes or with control characters, or more than
// kMaxKeyDepth names is not. An empty path gives no names.
constexpr std::size_t kMaxKeyNameLength = 255;
constexpr std::size_t kMaxKeyDepth = 512;
bool SplitKeyPath(std::string_view path, std::vector<std::string>* names);

// `text` in double quotes, for a message: a text longer than
// kQuotedLength bytes is cut there and marked with "..." and its whole length
// in bytes, so that an over-long key or value name does not flood a message.
constexpr std::size_t kQuotedLength = 40;
std::string QuotedForMessage(std::string_view text);

// The value types whose data is text (kRegSz, kRegExpandSz, kRegMultiSz):
// a version 5 file keeps their data as UTF-16LE in the hex(...) form.
inline bool IsTextType(DWORD type) {
  return type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
}

struct Value {
  std::string name; // empty for the default value
  DWORD type = kRegNone;
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
  const Key* Find(const std::vector<std::string>& names) const;
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
  DWORD type = kRegNone;
  std::vector<BYTE> data; // text types: the process's bytes, as the "A" calls pass them
  unsigned line = 0;
};

// Applies parsed statements in order: keys are created with every key above
// them, values set, deletions carried out.
void Apply(const std::vector<Entry>& entries, Tree* tree);

} // namespace regfile
} // namespace native
} // namespace qvbase

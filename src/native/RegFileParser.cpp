// RegFileParser.cpp - reading the .reg text format into statements.
// Part of qvbase, the QVKernel foundation class library.
#include "native/RegFileParser.h"

#include "native/RegFileCodec.h"

#include <algorithm>
#include <cstdint>

namespace qvbase {
namespace native {
namespace regfile {

namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t'; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (IsSpace(s.front()) || s.front() == '\r'))
    s.remove_prefix(1);
  while (!s.empty() && (IsSpace(s.back()) || s.back() == '\r'))
    s.remove_suffix(1);
  return s;
}

int HexDigitValue(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

// Reads 1 to `maxDigits` hexadecimal digits that make up all of `text`.
bool ParseHexNumber(std::string_view text, std::size_t maxDigits, std::uint32_t* value) {
  if (text.empty() || text.size() > maxDigits)
    return false;
  std::uint32_t v = 0;
  for (char c : text) {
    int d = HexDigitValue(c);
    if (d < 0)
      return false;
    v = (v << 4) | static_cast<std::uint32_t>(d);
  }
  *value = v;
  return true;
}

// A hive named in full, as files name it: "HKEY_LOCAL_MACHINE" or
// "HKEY_CURRENT_USER" in any case. The spelling files nearly always use is
// compared first as plain bytes, which is cheaper than folding case.
bool ParseFullRootName(std::string_view text, Root* root) {
  for (Root candidate : {Root::kLocalMachine, Root::kCurrentUser}) {
    const std::string_view name = RootName(candidate);
    if (text == name || NamesEqual(text, name)) {
      *root = candidate;
      return true;
    }
  }
  return false;
}

// The lines that start with '[', '"' or '@', which is about the number of
// statements in a file: the list of statements is sized once from it instead
// of moving every statement each time it grows. Only a size: a statement
// line that starts with blanks is not counted, and the list then grows.
std::size_t StatementLines(std::string_view text) {
  std::size_t count = 0;
  std::size_t pos = 0;
  while (pos < text.size()) {
    const char c = text[pos];
    count += c == '[' || c == '"' || c == '@';
    const std::size_t end = text.find('\n', pos);
    if (end == std::string_view::npos)
      break;
    pos = end + 1;
  }
  return count;
}

class Parser {
public:
  Parser(std::string_view text, std::vector<Entry>* entries, ParseError* error)
      : m_text(text), m_entries(entries), m_error(error) {}

  bool Run();

private:
  bool NextLine(std::string_view* line);
  bool Fail(std::string message);
  bool ParseKeyLine(std::string_view line);
  bool ParseValueLine(std::string_view line);
  bool ParseQuoted(std::string_view* rest, std::string* out);
  bool ParseHexList(std::string_view rest, std::vector<BYTE>* bytes);

  std::string_view m_text;
  std::size_t m_offset = 0;
  unsigned m_line = 0;
  bool m_unicode = true;  // version 5 files keep text types as UTF-16LE
  bool m_haveKey = false; // a key statement has been seen
  bool m_keyDeleted = false;
  Root m_root = Root::kLocalMachine;
  std::vector<std::string> m_path;
  std::vector<Entry>* m_entries;
  ParseError* m_error;
};

bool Parser::NextLine(std::string_view* line) {
  if (m_offset >= m_text.size())
    return false;
  std::size_t end = m_text.find('\n', m_offset);
  // Run() has checked that the text ends with a line break.
  *line = m_text.substr(m_offset, end - m_offset);
  if (!line->empty() && line->back() == '\r')
    line->remove_suffix(1);
  m_offset = end + 1;
  ++m_line;
  return true;
}

bool Parser::Fail(std::string message) {
  m_error->line = m_line;
  m_error->message = std::move(message);
  return false;
}

bool Parser::Run() {
  if (m_text.empty()) {
    m_line = 1;
    return Fail("the file is empty: expected the line \"Windows Registry Editor Version 5.00\"");
  }
  if (m_text.back() != '\n') {
    m_line = static_cast<unsigned>(std::count(m_text.begin(), m_text.end(), '\n')) + 1;
    return Fail("the last line has no line break: the file is truncated");
  }
  std::string_view line;
  NextLine(&line);
  line = Trim(line);
  if (line == kHeaderVersion5) {
    m_unicode = true;
  } else if (line == kHeaderVersion4) {
    m_unicode = false;
  } else {
    return Fail("expected the line \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\"");
  }
  while (NextLine(&line)) {
    line = Trim(line);
    if (line.empty() || line.front() == ';')
      continue;
    if (line.front() == '[') {
      if (!ParseKeyLine(line))
        return false;
    } else if (line.front() == '"' || line.front() == '@') {
      if (!ParseValueLine(line))
        return false;
    } else {
      return Fail("expected a [key] or a \"value\"=data line");
    }
  }
  return true;
}

bool Parser::ParseKeyLine(std::string_view line) {
  if (line.back() != ']')
    return Fail("a key line must end with ']'");
  std::string_view inner = line.substr(1, line.size() - 2);
  bool remove = !inner.empty() && inner.front() == '-';
  if (remove)
    inner.remove_prefix(1);
  std::size_t slash = inner.find('\\');
  std::string_view rootText = inner.substr(0, slash);
  Root root;
  // Files name hives in full; the short forms are for the command line.
  if (!ParseFullRootName(rootText, &root))
    return Fail("unknown root key " + QuotedForMessage(rootText) +
                ": expected HKEY_LOCAL_MACHINE or HKEY_CURRENT_USER");
  std::vector<std::string> path;
  if (slash != std::string_view::npos) {
    std::string_view rest = inner.substr(slash + 1);
    if (rest.empty() || rest.back() == '\\' || !SplitKeyPath(rest, &path))
      return Fail("invalid key name " + QuotedForMessage(inner));
  }
  if (remove && path.empty())
    return Fail("a root key cannot be deleted");
  Entry entry;
  entry.kind = remove ? Entry::kDeleteKey : Entry::kKey;
  entry.root = root;
  entry.path = path;
  entry.line = m_line;
  m_entries->push_back(std::move(entry));
  m_haveKey = true;
  m_keyDeleted = remove;
  m_root = root;
  m_path = std::move(path);
  return true;
}

bool Parser::ParseQuoted(std::string_view* rest, std::string* out) {
  // *rest starts at the opening quote.
  std::size_t i = 1;
  out->clear();
  while (i < rest->size()) {
    // The characters up to the next quote or backslash go over in one piece.
    std::size_t end = i;
    while (end < rest->size() && (*rest)[end] != '"' && (*rest)[end] != '\\')
      ++end;
    out->append(rest->data() + i, end - i);
    i = end;
    if (i >= rest->size())
      break;
    char c = (*rest)[i];
    if (c == '"') {
      rest->remove_prefix(i + 1);
      return true;
    }
    if (c == '\\') {
      if (i + 1 >= rest->size())
        break;
      char next = (*rest)[i + 1];
      if (next != '\\' && next != '"')
        return Fail(std::string("invalid escape \"\\") + next +
                    "\" in a quoted text: only \\\\ and \\\" are allowed");
      out->push_back(next);
      i += 2;
    }
  }
  return Fail("a quoted text has no closing quote");
}

bool Parser::ParseHexList(std::string_view rest, std::vector<BYTE>* bytes) {
  // Gather the continuation lines: each ends with a backslash.
  std::string joined;
  rest = Trim(rest);
  while (!rest.empty() && rest.back() == '\\') {
    rest.remove_suffix(1);
    joined.append(rest.data(), rest.size());
    std::string_view next;
    if (!NextLine(&next))
      return Fail("a continued hex list has no next line: the file is truncated");
    rest = Trim(next);
  }
  joined.append(rest.data(), rest.size());

  std::string_view list = Trim(joined);
  bytes->clear();
  if (list.empty())
    return true;
  std::size_t pos = 0;
  while (true) {
    std::size_t comma = list.find(',', pos);
    std::string_view token = Trim(
        list.substr(pos, comma == std::string_view::npos ? std::string_view::npos : comma - pos));
    std::uint32_t value;
    if (!ParseHexNumber(token, 2, &value))
      return Fail("expected a hexadecimal byte, found " + QuotedForMessage(token));
    bytes->push_back(static_cast<BYTE>(value));
    if (comma == std::string_view::npos)
      break;
    pos = comma + 1;
  }
  return true;
}

bool Parser::ParseValueLine(std::string_view line) {
  if (!m_haveKey)
    return Fail("a value comes before any [key] line");
  if (m_keyDeleted)
    return Fail("a value follows a key deletion [-...]");

  Entry entry;
  entry.root = m_root;
  entry.path = m_path;
  entry.line = m_line;

  std::string_view rest = line;
  if (rest.front() == '@') {
    rest.remove_prefix(1);
  } else if (!ParseQuoted(&rest, &entry.name)) {
    return false;
  } else if (entry.name.empty()) {
    return Fail("an empty value name: the default value is written @");
  }
  rest = Trim(rest);
  if (rest.empty() || rest.front() != '=')
    return Fail("expected '=' after the value name");
  rest = Trim(rest.substr(1));

  if (rest == "-") {
    entry.kind = Entry::kDeleteValue;
  } else if (!rest.empty() && rest.front() == '"') {
    std::string text;
    if (!ParseQuoted(&rest, &text))
      return false;
    if (!Trim(rest).empty())
      return Fail("unexpected text after the closing quote");
    entry.kind = Entry::kValue;
    entry.type = kRegSz;
    entry.data.assign(text.begin(), text.end());
    entry.data.push_back(0);
  } else if (rest.substr(0, 6) == "dword:") {
    std::uint32_t value;
    if (!ParseHexNumber(rest.substr(6), 8, &value))
      return Fail("a dword takes 1 to 8 hexadecimal digits");
    entry.kind = Entry::kValue;
    entry.type = kRegDword;
    // Little-endian, as the registry keeps a DWORD.
    const BYTE bytes[4] = {static_cast<BYTE>(value), static_cast<BYTE>(value >> 8),
                           static_cast<BYTE>(value >> 16), static_cast<BYTE>(value >> 24)};
    entry.data.assign(bytes, bytes + 4);
  } else if (rest.substr(0, 3) == "hex") {
    rest.remove_prefix(3);
    std::uint32_t type = kRegBinary; // plain "hex:" is binary data
    if (!rest.empty() && rest.front() == '(') {
      std::size_t close = rest.find(')');
      if (close == std::string_view::npos || !ParseHexNumber(rest.substr(1, close - 1), 8, &type))
        return Fail("expected hex(type): with a hexadecimal type number");
      rest.remove_prefix(close + 1);
    }
    if (rest.empty() || rest.front() != ':')
      return Fail("expected ':' after hex");
    std::vector<BYTE> bytes;
    if (!ParseHexList(rest.substr(1), &bytes))
      return false;
    entry.kind = Entry::kValue;
    entry.type = type;
    if (m_unicode && IsTextType(type)) {
      if (bytes.size() % 2 != 0)
        return Fail("text data in UTF-16 has an odd number of bytes");
      std::string text = Utf16LeToBytes(bytes.data(), bytes.size());
      entry.data.assign(text.begin(), text.end());
    } else {
      entry.data = std::move(bytes);
    }
  } else {
    return Fail("unknown value data: expected \"text\", dword:, hex: or -");
  }
  m_entries->push_back(std::move(entry));
  return true;
}

} // namespace

bool Parse(std::string_view bytes, std::vector<Entry>* entries, ParseError* error) {
  std::vector<Entry> parsed;
  std::string converted;
  std::string_view text = bytes;
  if (bytes.substr(0, kUtf16LeByteOrderMark.size()) == kUtf16LeByteOrderMark) {
    if (bytes.size() % 2 != 0) {
      error->line = 1 + static_cast<unsigned>(std::count(bytes.begin(), bytes.end(), '\n'));
      error->message = "UTF-16 text with an odd number of bytes: the file is truncated";
      return false;
    }
    bytes.remove_prefix(kUtf16LeByteOrderMark.size());
    converted = Utf16LeToBytes(reinterpret_cast<const BYTE*>(bytes.data()), bytes.size());
    text = converted;
  } else if (bytes.substr(0, kUtf8ByteOrderMark.size()) == kUtf8ByteOrderMark) {
    text.remove_prefix(kUtf8ByteOrderMark.size());
  }
  parsed.reserve(StatementLines(text));
  Parser parser(text, &parsed, error);
  if (!parser.Run())
    return false;
  *entries = std::move(parsed);
  return true;
}

} // namespace regfile
} // namespace native
} // namespace qvbase

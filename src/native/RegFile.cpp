// RegFile.cpp - the .reg text format: parsing, an in-memory key tree, writing.
// Part of qvbase, the QVKernel foundation class library.
#include "native/RegFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace qvbase {
namespace native {
namespace regfile {

namespace {

constexpr std::string_view kHeader5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHeader4 = "REGEDIT4";
constexpr std::size_t kMaxKeyNameLength = 255;
// Longest line written before a hex list wraps, as regedit keeps them.
constexpr std::size_t kHexLineWidth = 77;

unsigned char FoldCase(unsigned char c) {
  return (c >= 'a' && c <= 'z') ? static_cast<unsigned char>(c - 'a' + 'A') : c;
}

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

bool IsTextType(DWORD type) { return type == 1 || type == 2 || type == 7; }

// A well-formed UTF-8 sequence starting at s[i]: its length and code point,
// or 0 when the byte there does not start one.
std::size_t DecodeUtf8(std::string_view s, std::size_t i, std::uint32_t* codePoint) {
  unsigned char b = static_cast<unsigned char>(s[i]);
  std::size_t length;
  std::uint32_t cp;
  unsigned char low = 0x80, high = 0xBF;
  if (b < 0x80) {
    *codePoint = b;
    return 1;
  } else if (b >= 0xC2 && b <= 0xDF) {
    length = 2;
    cp = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    length = 3;
    cp = b & 0x0F;
    if (b == 0xE0)
      low = 0xA0; // no overlong forms
    if (b == 0xED)
      high = 0x9F; // no surrogates
  } else if (b >= 0xF0 && b <= 0xF4) {
    length = 4;
    cp = b & 0x07;
    if (b == 0xF0)
      low = 0x90;
    if (b == 0xF4)
      high = 0x8F; // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (i + length > s.size())
    return 0;
  for (std::size_t k = 1; k < length; ++k) {
    unsigned char c = static_cast<unsigned char>(s[i + k]);
    if (c < low || c > high)
      return 0;
    low = 0x80;
    high = 0xBF;
    cp = (cp << 6) | (c & 0x3F);
  }
  *codePoint = cp;
  return length;
}

bool IsPlainText(std::string_view s) {
  for (std::size_t i = 0; i < s.size();) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    if (b < 0x20 || b == 0x7F)
      return false;
    std::uint32_t cp;
    std::size_t n = DecodeUtf8(s, i, &cp);
    if (n == 0)
      return false;
    i += n;
  }
  return true;
}

void AppendUtf8(std::string* out, std::uint32_t cp) {
  if (cp < 0x80) {
    out->push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

std::vector<BYTE> Utf16LeBytes(const std::vector<std::uint16_t>& units) {
  std::vector<BYTE> bytes;
  bytes.reserve(units.size() * 2);
  for (std::uint16_t u : units) {
    bytes.push_back(static_cast<BYTE>(u & 0xFF));
    bytes.push_back(static_cast<BYTE>(u >> 8));
  }
  return bytes;
}

std::string Utf16LeToBytes(const BYTE* data, std::size_t size) {
  std::vector<std::uint16_t> units(size / 2);
  for (std::size_t i = 0; i < units.size(); ++i)
    units[i] = static_cast<std::uint16_t>(data[2 * i] | (data[2 * i + 1] << 8));
  return Utf16ToBytes(units.data(), units.size());
}

// ---------------------------------------------------------------------------
// Parsing

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
  if (line == kHeader5) {
    m_unicode = true;
  } else if (line == kHeader4) {
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
  if (!ParseRootName(rootText, &root) || !NamesEqual(rootText, RootName(root)))
    return Fail("unknown root key \"" + std::string(rootText) +
                "\": expected HKEY_LOCAL_MACHINE or HKEY_CURRENT_USER");
  std::vector<std::string> path;
  if (slash != std::string_view::npos) {
    std::string_view rest = inner.substr(slash + 1);
    if (rest.empty() || rest.back() == '\\' || !SplitKeyPath(rest, &path))
      return Fail("invalid key name \"" + std::string(inner) + "\"");
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
      continue;
    }
    out->push_back(c);
    ++i;
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
      return Fail("expected a hexadecimal byte, found \"" + std::string(token) + "\"");
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
    entry.type = 1;
    entry.data.assign(text.begin(), text.end());
    entry.data.push_back(0);
  } else if (rest.substr(0, 6) == "dword:") {
    std::uint32_t value;
    if (!ParseHexNumber(rest.substr(6), 8, &value))
      return Fail("a dword takes 1 to 8 hexadecimal digits");
    entry.kind = Entry::kValue;
    entry.type = 4;
    for (int k = 0; k < 4; ++k)
      entry.data.push_back(static_cast<BYTE>(value >> (8 * k)));
  } else if (rest.substr(0, 3) == "hex") {
    rest.remove_prefix(3);
    std::uint32_t type = 3;
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

// ---------------------------------------------------------------------------
// Writing

std::string Quote(std::string_view text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '\\' || c == '"')
      out.push_back('\\');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

void AppendHexList(std::string* out, std::string line, const BYTE* data, std::size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < size; ++i) {
    char token[3] = {kDigits[data[i] >> 4], kDigits[data[i] & 0xF], ','};
    std::size_t tokenSize = (i + 1 < size) ? 3 : 2;
    if (line.size() + tokenSize > kHexLineWidth && line.size() > 2) {
      *out += line;
      *out += "\\\n";
      line = "  ";
    }
    line.append(token, tokenSize);
  }
  *out += line;
  *out += '\n';
}

void WriteValue(std::string* out, const Value& value) {
  std::string line = value.name.empty() ? std::string("@") : Quote(value.name);
  line += '=';
  const std::vector<BYTE>& data = value.data;
  if (value.type == 1 && !data.empty() && data.back() == 0 &&
      std::find(data.begin(), data.end() - 1, 0) == data.end() - 1 &&
      IsPlainText(std::string_view(reinterpret_cast<const char*>(data.data()), data.size() - 1))) {
    *out += line;
    *out += Quote(std::string_view(reinterpret_cast<const char*>(data.data()), data.size() - 1));
    *out += '\n';
    return;
  }
  if (value.type == 4 && data.size() == 4) {
    char digits[16];
    std::uint32_t v =
        data[0] | (data[1] << 8) | (data[2] << 16) | (static_cast<std::uint32_t>(data[3]) << 24);
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(v));
    *out += line + "dword:" + digits + "\n";
    return;
  }
  if (value.type == 3) {
    line += "hex:";
  } else {
    char type[24];
    std::snprintf(type, sizeof type, "hex(%x):", static_cast<unsigned>(value.type));
    line += type;
  }
  if (IsTextType(value.type)) {
    std::vector<BYTE> wide = Utf16LeBytes(
        BytesToUtf16(std::string_view(reinterpret_cast<const char*>(data.data()), data.size())));
    AppendHexList(out, std::move(line), wide.data(), wide.size());
  } else {
    AppendHexList(out, std::move(line), data.data(), data.size());
  }
}

void WriteSection(std::string* out, const std::string& fullName, const Key& key) {
  *out += '[';
  *out += fullName;
  *out += "]\n";
  for (const Value& value : key.values)
    WriteValue(out, value);
  *out += '\n';
}

void WriteRecursive(std::string* out, const std::string& fullName, const Key& key, bool isRoot) {
  if (!isRoot || !key.values.empty())
    WriteSection(out, fullName, key);
  for (const auto& sub : key.subKeys)
    WriteRecursive(out, fullName + "\\" + sub->name, *sub, false);
}

std::string Encode(std::string text, Encoding encoding) {
  if (encoding == Encoding::kUtf8)
    return text;
  std::string crlf;
  crlf.reserve(text.size() + text.size() / 16);
  for (char c : text) {
    if (c == '\n')
      crlf.push_back('\r');
    crlf.push_back(c);
  }
  std::vector<BYTE> wide = Utf16LeBytes(BytesToUtf16(crlf));
  std::string out = "\xFF\xFE";
  out.append(reinterpret_cast<const char*>(wide.data()), wide.size());
  return out;
}

const char kHeaderLine[] = "Windows Registry Editor Version 5.00\n\n";

} // namespace

// ---------------------------------------------------------------------------

const char* RootName(Root root) {
  return root == Root::kLocalMachine ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER";
}

bool ParseRootName(std::string_view text, Root* root) {
  if (NamesEqual(text, "HKEY_LOCAL_MACHINE") || NamesEqual(text, "HKLM")) {
    *root = Root::kLocalMachine;
    return true;
  }
  if (NamesEqual(text, "HKEY_CURRENT_USER") || NamesEqual(text, "HKCU")) {
    *root = Root::kCurrentUser;
    return true;
  }
  return false;
}

bool NamesEqual(std::string_view a, std::string_view b) {
  if (a.size() != b.size())
    return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (FoldCase(static_cast<unsigned char>(a[i])) != FoldCase(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

bool NameLess(std::string_view a, std::string_view b) {
  std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    unsigned char x = FoldCase(static_cast<unsigned char>(a[i]));
    unsigned char y = FoldCase(static_cast<unsigned char>(b[i]));
    if (x != y)
      return x < y;
  }
  return a.size() < b.size();
}

bool SplitKeyPath(std::string_view path, std::vector<std::string>* names) {
  names->clear();
  if (!path.empty() && path.back() == '\\')
    path.remove_suffix(1);
  if (path.empty())
    return true;
  std::size_t pos = 0;
  while (true) {
    std::size_t slash = path.find('\\', pos);
    std::string_view name =
        path.substr(pos, slash == std::string_view::npos ? std::string_view::npos : slash - pos);
    if (name.empty() || name.size() > kMaxKeyNameLength)
      return false;
    for (char c : name)
      if (static_cast<unsigned char>(c) < 0x20)
        return false;
    if (names->size() == kMaxKeyDepth)
      return false;
    names->emplace_back(name);
    if (slash == std::string_view::npos)
      return true;
    pos = slash + 1;
  }
}

Key* Key::FindSubKey(std::string_view subName) const {
  auto it = std::lower_bound(
      subKeys.begin(), subKeys.end(), subName,
      [](const std::unique_ptr<Key>& k, std::string_view n) { return NameLess(k->name, n); });
  if (it != subKeys.end() && NamesEqual((*it)->name, subName))
    return it->get();
  return nullptr;
}

Key* Key::AddSubKey(std::string_view subName, bool* created) {
  auto it = std::lower_bound(
      subKeys.begin(), subKeys.end(), subName,
      [](const std::unique_ptr<Key>& k, std::string_view n) { return NameLess(k->name, n); });
  if (it != subKeys.end() && NamesEqual((*it)->name, subName)) {
    if (created)
      *created = false;
    return it->get();
  }
  auto key = std::make_unique<Key>();
  key->name = std::string(subName);
  Key* raw = key.get();
  subKeys.insert(it, std::move(key));
  if (created)
    *created = true;
  return raw;
}

bool Key::RemoveSubKey(std::string_view subName) {
  for (auto it = subKeys.begin(); it != subKeys.end(); ++it) {
    if (NamesEqual((*it)->name, subName)) {
      subKeys.erase(it);
      return true;
    }
  }
  return false;
}

const Value* Key::FindValue(std::string_view valueName) const {
  for (const Value& v : values)
    if (NamesEqual(v.name, valueName))
      return &v;
  return nullptr;
}

void Key::SetValue(std::string_view valueName, DWORD type, std::vector<BYTE> data) {
  for (Value& v : values) {
    if (NamesEqual(v.name, valueName)) {
      v.type = type;
      v.data = std::move(data);
      return;
    }
  }
  Value v;
  v.name = std::string(valueName);
  v.type = type;
  v.data = std::move(data);
  values.push_back(std::move(v));
}

bool Key::RemoveValue(std::string_view valueName) {
  for (auto it = values.begin(); it != values.end(); ++it) {
    if (NamesEqual(it->name, valueName)) {
      values.erase(it);
      return true;
    }
  }
  return false;
}

Key* Key::Find(const std::vector<std::string>& names) {
  Key* key = this;
  for (const std::string& n : names) {
    key = key->FindSubKey(n);
    if (!key)
      return nullptr;
  }
  return key;
}

Tree::Tree() {
  roots[0].name = RootName(Root::kLocalMachine);
  roots[1].name = RootName(Root::kCurrentUser);
}

bool Parse(std::string_view bytes, std::vector<Entry>* entries, ParseError* error) {
  std::vector<Entry> parsed;
  std::string converted;
  std::string_view text = bytes;
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    if (bytes.size() % 2 != 0) {
      error->line = 1 + static_cast<unsigned>(std::count(bytes.begin(), bytes.end(), '\n'));
      error->message = "UTF-16 text with an odd number of bytes: the file is truncated";
      return false;
    }
    converted = Utf16LeToBytes(reinterpret_cast<const BYTE*>(bytes.data()) + 2, bytes.size() - 2);
    text = converted;
  } else if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") {
    text.remove_prefix(3);
  }
  Parser parser(text, &parsed, error);
  if (!parser.Run())
    return false;
  *entries = std::move(parsed);
  return true;
}

void Apply(const std::vector<Entry>& entries, Tree* tree) {
  for (const Entry& e : entries) {
    Key* key = &tree->RootKey(e.root);
    if (e.kind == Entry::kDeleteKey) {
      std::vector<std::string> parentPath(e.path.begin(), e.path.end() - 1);
      if (Key* parent = key->Find(parentPath))
        parent->RemoveSubKey(e.path.back());
      continue;
    }
    for (const std::string& name : e.path)
      key = key->AddSubKey(name);
    if (e.kind == Entry::kValue)
      key->SetValue(e.name, e.type, e.data);
    else if (e.kind == Entry::kDeleteValue)
      key->RemoveValue(e.name);
  }
}

std::string Write(const Tree& tree, Encoding encoding) {
  std::string out = kHeaderLine;
  for (int r = 0; r < kRootCount; ++r)
    WriteRecursive(&out, tree.roots[r].name, tree.roots[r], true);
  return Encode(std::move(out), encoding);
}

std::string WriteKey(Root root, const std::vector<std::string>& path, const Key& key,
                     Encoding encoding) {
  std::string out = kHeaderLine;
  std::string fullName = RootName(root);
  for (const std::string& name : path)
    fullName += "\\" + name;
  WriteRecursive(&out, fullName, key, path.empty());
  return Encode(std::move(out), encoding);
}

std::vector<std::uint16_t> BytesToUtf16(std::string_view bytes) {
  std::vector<std::uint16_t> units;
  units.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size();) {
    std::uint32_t cp;
    std::size_t n = DecodeUtf8(bytes, i, &cp);
    if (n == 0) {
      // Not UTF-8: the byte travels as a lone low surrogate.
      units.push_back(static_cast<std::uint16_t>(0xDC00 + static_cast<unsigned char>(bytes[i])));
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      units.push_back(static_cast<std::uint16_t>(0xD800 + (cp >> 10)));
      units.push_back(static_cast<std::uint16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      units.push_back(static_cast<std::uint16_t>(cp));
    }
    i += n;
  }
  return units;
}

std::string Utf16ToBytes(const std::uint16_t* units, std::size_t count) {
  std::string out;
  out.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t u = units[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 &&
        units[i + 1] <= 0xDFFF) {
      AppendUtf8(&out, 0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00));
      ++i;
    } else if (u >= 0xDC80 && u <= 0xDCFF) {
      out.push_back(static_cast<char>(u - 0xDC00));
    } else {
      AppendUtf8(&out, u);
    }
  }
  return out;
}

} // namespace regfile
} // namespace native
} // namespace qvbase

// RegFileWriter.cpp - writing a key tree in the .reg text format.
// Part of qvbase, the QVKernel foundation class library.
#include "native/RegFileWriter.h"

#include "native/RegFileCodec.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace qvbase {
namespace native {
namespace regfile {

namespace {

// Longest line written before a hex list wraps, as regedit keeps them.
constexpr std::size_t kHexLineWidth = 77;

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
  if (value.type == kRegSz && !data.empty() && data.back() == 0 &&
      std::find(data.begin(), data.end() - 1, 0) == data.end() - 1 &&
      IsPlainText(std::string_view(reinterpret_cast<const char*>(data.data()), data.size() - 1))) {
    *out += line;
    *out += Quote(std::string_view(reinterpret_cast<const char*>(data.data()), data.size() - 1));
    *out += '\n';
    return;
  }
  if (value.type == kRegDword && data.size() == 4) {
    char digits[16];
    std::uint32_t v =
        data[0] | (data[1] << 8) | (data[2] << 16) | (static_cast<std::uint32_t>(data[3]) << 24);
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(v));
    *out += line + "dword:" + digits + "\n";
    return;
  }
  if (value.type == kRegBinary) {
    line += "hex:";
  } else {
    char type[24];
    std::snprintf(type, sizeof type, "hex(%x):", static_cast<unsigned>(value.type));
    line += type;
  }
  if (IsTextType(value.type)) {
    std::vector<BYTE> wide =
        BytesToUtf16Le(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
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
  std::vector<BYTE> wide = BytesToUtf16Le(crlf);
  std::string out(kUtf16LeByteOrderMark);
  out.append(reinterpret_cast<const char*>(wide.data()), wide.size());
  return out;
}

// The header line and the empty line after it.
std::string Header() {
  std::string out(kHeaderVersion5);
  out += "\n\n";
  return out;
}

} // namespace

std::string Write(const Tree& tree, Encoding encoding) {
  std::string out = Header();
  for (int r = 0; r < kRootCount; ++r)
    WriteRecursive(&out, tree.roots[r].name, tree.roots[r], true);
  return Encode(std::move(out), encoding);
}

std::string WriteKey(Root root, const std::vector<std::string>& path, const Key& key,
                     Encoding encoding) {
  std::string out = Header();
  std::string fullName = RootName(root);
  for (const std::string& name : path)
    fullName += "\\" + name;
  WriteRecursive(&out, fullName, key, path.empty());
  return Encode(std::move(out), encoding);
}

} // namespace regfile
} // namespace native
} // namespace qvbase

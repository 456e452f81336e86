// JsonTestSupport.h - a strict JSON reader for checking the tools' --json
// output: a test parses what a tool printed and looks values up by path,
// so that it checks the document, not its spacing.
//
//   qvbase::test::Json doc = qvbase::test::ParseJson(r.out);
//   EXPECT_EQ(doc["sections"][0]["name"].text, "Outer");
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace qvbase::test {

struct Json {
  enum Kind { kNull, kBool, kNumber, kString, kArray, kObject };
  Kind kind = kNull;
  bool boolean = false;
  std::string text;                    // a string's value, or a number's digits as written
  std::vector<Json> items;             // an array's elements
  std::map<std::string, Json> members; // an object's members

  // A member; a missing one fails the test and reads as null.
  const Json& operator[](const std::string& name) const {
    static const Json kMissing;
    auto it = members.find(name);
    if (kind != kObject || it == members.end()) {
      ADD_FAILURE() << "no member \"" << name << "\"";
      return kMissing;
    }
    return it->second;
  }
  const Json& operator[](std::size_t index) const {
    static const Json kMissing;
    if (kind != kArray || index >= items.size()) {
      ADD_FAILURE() << "no element " << index;
      return kMissing;
    }
    return items[index];
  }
  bool Has(const std::string& name) const { return members.count(name) != 0; }
};

namespace json_detail {

class Parser {
public:
  explicit Parser(const std::string& text) : m_text(text) {}

  Json Document() {
    Json value = Value();
    Space();
    if (m_at != m_text.size())
      Fail("text after the document");
    return value;
  }

private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw std::runtime_error("JSON: " + what + " at offset " + std::to_string(m_at));
  }
  void Space() {
    while (m_at < m_text.size() && (m_text[m_at] == ' ' || m_text[m_at] == '\n' ||
                                    m_text[m_at] == '\r' || m_text[m_at] == '\t'))
      ++m_at;
  }
  bool Take(char c) {
    Space();
    if (m_at < m_text.size() && m_text[m_at] == c) {
      ++m_at;
      return true;
    }
    return false;
  }
  void Expect(char c) {
    if (!Take(c))
      Fail(std::string("expected '") + c + "'");
  }
  bool Word(const char* word) {
    const std::string w = word;
    if (m_text.compare(m_at, w.size(), w) != 0)
      return false;
    m_at += w.size();
    return true;
  }
  static void AppendUtf8(std::string& out, unsigned code) {
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  std::string String() {
    Expect('"');
    std::string out;
    for (;;) {
      if (m_at >= m_text.size())
        Fail("unterminated string");
      const char c = m_text[m_at++];
      if (c == '"')
        return out;
      if (static_cast<unsigned char>(c) < 0x20)
        Fail("control character in a string");
      if (c != '\\') {
        out += c;
        continue;
      }
      if (m_at >= m_text.size())
        Fail("unterminated escape");
      const char e = m_text[m_at++];
      switch (e) {
      case '"':
      case '\\':
      case '/':
        out += e;
        break;
      case 'b':
        out += '\b';
        break;
      case 'f':
        out += '\f';
        break;
      case 'n':
        out += '\n';
        break;
      case 'r':
        out += '\r';
        break;
      case 't':
        out += '\t';
        break;
      case 'u': {
        if (m_text.size() - m_at < 4)
          Fail("short \\u escape");
        const std::string hex = m_text.substr(m_at, 4);
        if (hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
          Fail("bad \\u escape");
        AppendUtf8(out, static_cast<unsigned>(std::stoul(hex, nullptr, 16)));
        m_at += 4;
        break;
      }
      default:
        Fail("bad escape");
      }
    }
  }
  Json Value() {
    Space();
    Json v;
    if (m_at >= m_text.size())
      Fail("missing value");
    const char c = m_text[m_at];
    if (c == '{') {
      v.kind = Json::kObject;
      ++m_at;
      if (Take('}'))
        return v;
      do {
        Space();
        std::string name = String();
        Expect(':');
        if (!v.members.emplace(name, Value()).second)
          Fail("member \"" + name + "\" twice");
      } while (Take(','));
      Expect('}');
    } else if (c == '[') {
      v.kind = Json::kArray;
      ++m_at;
      if (Take(']'))
        return v;
      do
        v.items.push_back(Value());
      while (Take(','));
      Expect(']');
    } else if (c == '"') {
      v.kind = Json::kString;
      v.text = String();
    } else if (Word("null")) {
      v.kind = Json::kNull;
    } else if (Word("true")) {
      v.kind = Json::kBool;
      v.boolean = true;
    } else if (Word("false")) {
      v.kind = Json::kBool;
    } else {
      const std::size_t begin = m_at;
      if (m_at < m_text.size() && m_text[m_at] == '-')
        ++m_at;
      while (m_at < m_text.size() &&
             std::string("0123456789.eE+-").find(m_text[m_at]) != std::string::npos)
        ++m_at;
      if (m_at == begin)
        Fail("unexpected character");
      v.kind = Json::kNumber;
      v.text = m_text.substr(begin, m_at - begin);
    }
    return v;
  }

  const std::string& m_text;
  std::size_t m_at = 0;
};

} // namespace json_detail

// Parses a whole document; malformed text fails the test and gives null.
inline Json ParseJson(const std::string& text) {
  try {
    return json_detail::Parser(text).Document();
  } catch (const std::runtime_error& e) {
    ADD_FAILURE() << e.what() << "\n" << text;
    return Json();
  }
}

} // namespace qvbase::test

// The .reg text format: parsing, writing, the text conversions and bad input.
#include "native/RegFile.h"
#include "native/RegFileCodec.h"
#include "native/RegFileParser.h"
#include "native/RegFileWriter.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

namespace regfile = qvbase::native::regfile;
using qvbase::native::kRegBinary;
using qvbase::native::kRegDword;
using qvbase::native::kRegExpandSz;
using qvbase::native::kRegMultiSz;
using qvbase::native::kRegNone;
using qvbase::native::kRegQword;
using qvbase::native::kRegSz;
using regfile::Entry;
using regfile::Root;
using regfile::Tree;

const std::string kHeader = "Windows Registry Editor Version 5.00\n\n";

std::vector<BYTE> Bytes(const std::string& s) { return std::vector<BYTE>(s.begin(), s.end()); }

// Parses `text` and applies it to a fresh tree; fails the test on a parse error.
Tree Load(const std::string& text) {
  std::vector<Entry> entries;
  regfile::ParseError error;
  EXPECT_TRUE(regfile::Parse(text, &entries, &error)) << error.line << ": " << error.message;
  Tree tree;
  regfile::Apply(entries, &tree);
  return tree;
}

regfile::ParseError ParseFailure(const std::string& text) {
  std::vector<Entry> entries;
  regfile::ParseError error;
  EXPECT_FALSE(regfile::Parse(text, &entries, &error));
  EXPECT_TRUE(entries.empty());
  return error;
}

const regfile::Value* Find(Tree& tree, const std::string& path, const std::string& name) {
  std::vector<std::string> names;
  regfile::SplitKeyPath(path, &names);
  regfile::Key* key = tree.RootKey(Root::kLocalMachine).Find(names);
  return key ? key->FindValue(name) : nullptr;
}

TEST(RegFile, ParsesEveryValueForm) {
  Tree tree = Load(kHeader + "[HKEY_LOCAL_MACHINE\\Software\\Varnel\\Config]\n"
                             "\"errorfile\"=\"C:\\\\trace.log\"\n"
                             "@=\"default\"\n"
                             "\"count\"=dword:0000002a\n"
                             "\"short\"=dword:7\n"
                             "\"blob\"=hex:de,ad,BE,ef\n"
                             "\"empty\"=hex:\n"
                             "\"big\"=hex(b):08,07,06,05,04,03,02,01\n"
                             "\"wide\"=hex(2):41,00,42,00,00,00\n"
                             "\"none\"=hex(0):\n");
  const regfile::Value* v = Find(tree, "Software\\Varnel\\Config", "errorfile");
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->type, kRegSz);
  EXPECT_EQ(v->data, Bytes(std::string("C:\\trace.log", 12) + '\0'));
  v = Find(tree, "Software\\Varnel\\Config", "");
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->data, Bytes(std::string("default", 7) + '\0'));
  v = Find(tree, "Software\\Varnel\\Config", "count");
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->type, kRegDword);
  EXPECT_EQ(v->data, (std::vector<BYTE>{0x2a, 0, 0, 0}));
  EXPECT_EQ(Find(tree, "Software\\Varnel\\Config", "short")->data, (std::vector<BYTE>{7, 0, 0, 0}));
  EXPECT_EQ(Find(tree, "Software\\Varnel\\Config", "blob")->data,
            (std::vector<BYTE>{0xde, 0xad, 0xbe, 0xef}));
  EXPECT_EQ(Find(tree, "Software\\Varnel\\Config", "blob")->type, kRegBinary);
  EXPECT_TRUE(Find(tree, "Software\\Varnel\\Config", "empty")->data.empty());
  EXPECT_EQ(Find(tree, "Software\\Varnel\\Config", "big")->type, kRegQword);
  // Version 5 files keep text types as UTF-16; the tree holds the bytes.
  EXPECT_EQ(Find(tree, "Software\\Varnel\\Config", "wide")->data, Bytes(std::string("AB\0", 3)));
  EXPECT_EQ(Find(tree, "Software\\Varnel\\Config", "none")->type, kRegNone);
}

TEST(RegFile, Regedit4TextDataIsRawBytes) {
  Tree tree = Load("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex(2):41,42,00\n");
  EXPECT_EQ(Find(tree, "K", "x")->data, Bytes(std::string("AB\0", 3)));
}

TEST(RegFile, ContinuedHexListsJoin) {
  Tree tree = Load(kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex:01,02,\\\n  03,\\\n\t04\n");
  EXPECT_EQ(Find(tree, "K", "x")->data, (std::vector<BYTE>{1, 2, 3, 4}));
}

TEST(RegFile, CommentsBlankLinesAndCrLfAreIgnored) {
  Tree tree = Load("Windows Registry Editor Version 5.00\r\n\r\n; a comment\r\n"
                   "[HKEY_LOCAL_MACHINE\\K]\r\n  \"x\" = \"y\"  \r\n");
  EXPECT_EQ(Find(tree, "K", "x")->data, Bytes(std::string("y\0", 2)));
}

TEST(RegFile, ByteOrderMarksAreRecognised) {
  std::string utf8 = "\xEF\xBB\xBF" + kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=\"\xC3\xA9\"\n";
  Tree fromUtf8 = Load(utf8);
  EXPECT_EQ(Find(fromUtf8, "K", "x")->data, Bytes(std::string("\xC3\xA9\0", 3)));

  std::string text = kHeader + "[HKEY_LOCAL_MACHINE\\K]\r\n\"x\"=\"\xC3\xA9\"\r\n";
  std::vector<std::uint16_t> units = regfile::BytesToUtf16(text);
  std::string utf16 = "\xFF\xFE";
  for (std::uint16_t u : units) {
    utf16.push_back(static_cast<char>(u & 0xFF));
    utf16.push_back(static_cast<char>(u >> 8));
  }
  Tree tree = Load(utf16);
  EXPECT_EQ(Find(tree, "K", "x")->data, Bytes(std::string("\xC3\xA9\0", 3)));
}

TEST(RegFile, DeletionsRemoveKeysAndValues) {
  Tree tree = Load(kHeader + "[HKEY_LOCAL_MACHINE\\A\\B]\n\"x\"=\"1\"\n\"y\"=\"2\"\n"
                             "[HKEY_LOCAL_MACHINE\\A\\C]\n"
                             "[-HKEY_LOCAL_MACHINE\\A\\B]\n"
                             "[HKEY_LOCAL_MACHINE\\A\\C]\n\"z\"=\"3\"\n\"z\"=-\n"
                             "[-HKEY_LOCAL_MACHINE\\Never\\There]\n");
  regfile::Key& root = tree.RootKey(Root::kLocalMachine);
  EXPECT_EQ(root.Find({"A", "B"}), nullptr);
  ASSERT_NE(root.Find({"A", "C"}), nullptr);
  EXPECT_EQ(root.Find({"A", "C"})->FindValue("z"), nullptr);
}

TEST(RegFile, KeyNamesCompareWithoutCaseAndSortThatWay) {
  Tree tree = Load(kHeader + "[HKEY_LOCAL_MACHINE\\Soft\\beta]\n[HKEY_LOCAL_MACHINE\\SOFT\\Alpha]\n"
                             "[HKEY_LOCAL_MACHINE\\soft\\gamma]\n\"V\"=\"1\"\n\"v\"=\"2\"\n");
  regfile::Key* soft = tree.RootKey(Root::kLocalMachine).FindSubKey("sOfT");
  ASSERT_NE(soft, nullptr);
  EXPECT_EQ(soft->name, "Soft"); // the first spelling is kept
  ASSERT_EQ(soft->subKeys.size(), 3u);
  EXPECT_EQ(soft->subKeys[0]->name, "Alpha");
  EXPECT_EQ(soft->subKeys[1]->name, "beta");
  EXPECT_EQ(soft->subKeys[2]->name, "gamma");
  ASSERT_EQ(soft->subKeys[2]->values.size(), 1u);
  EXPECT_EQ(soft->subKeys[2]->values[0].data, Bytes(std::string("2\0", 2)));
}

TEST(RegFile, ValuesKeepTheOrderTheyWereFirstWritten) {
  regfile::Key key;
  key.SetValue("zeta", kRegSz, Bytes("a"));
  key.SetValue("alpha", kRegSz, Bytes("b"));
  key.SetValue("ZETA", kRegBinary, Bytes("c"));
  ASSERT_EQ(key.values.size(), 2u);
  EXPECT_EQ(key.values[0].name, "zeta");
  EXPECT_EQ(key.values[0].type, kRegBinary);
  EXPECT_EQ(key.values[1].name, "alpha");
}

// Statements applied in any order and number end as if each were applied
// on its own: values keep the order first written (a value deleted and set
// again goes to the end), sub-keys end sorted without regard to case, a
// deleted key takes its sub-keys with it.
TEST(RegFile, ManyStatementsOfOneKeyApplyAsEachOnItsOwn) {
  std::string text = kHeader + "[HKEY_LOCAL_MACHINE\\Many]\n";
  for (int i = 0; i < 2000; ++i)
    text += "\"v" + std::to_string(i) + "\"=dword:" + std::to_string(i % 10) + "\n";
  text += "\"V5\"=\"five\"\n\"v7\"=-\n\"v7\"=\"back\"\n\"v9\"=-\n";
  for (int i = 999; i >= 0; --i)
    text += "[HKEY_LOCAL_MACHINE\\Many\\k" + std::to_string(i) + "]\n";
  text += "[HKEY_LOCAL_MACHINE\\Many\\K10\\Below]\n\"x\"=\"1\"\n"
          "[-HKEY_LOCAL_MACHINE\\Many\\k10]\n"
          "[HKEY_LOCAL_MACHINE\\Many\\k10]\n";
  Tree tree = Load(text);
  regfile::Key* many = tree.RootKey(Root::kLocalMachine).FindSubKey("many");
  ASSERT_NE(many, nullptr);
  ASSERT_EQ(many->values.size(), 1999u);
  EXPECT_EQ(many->values[0].name, "v0");
  EXPECT_EQ(many->values[5].name, "v5"); // the first spelling stays
  EXPECT_EQ(many->values[5].data, Bytes(std::string("five\0", 5)));
  EXPECT_EQ(many->values[7].name, "v8");
  EXPECT_EQ(many->values[1998].name, "v7");
  EXPECT_EQ(many->values[1998].data, Bytes(std::string("back\0", 5)));
  EXPECT_EQ(many->FindValue("v9"), nullptr);
  ASSERT_EQ(many->subKeys.size(), 1000u);
  for (std::size_t i = 1; i < many->subKeys.size(); ++i)
    EXPECT_TRUE(regfile::NameLess(many->subKeys[i - 1]->name, many->subKeys[i]->name)) << i;
  regfile::Key* k10 = many->FindSubKey("K10");
  ASSERT_NE(k10, nullptr);
  EXPECT_TRUE(k10->subKeys.empty());

  // A key that grows from a few values to many, with deletions before and
  // after.
  std::string mixed =
      kHeader + "[HKEY_LOCAL_MACHINE\\Mixed]\n\"a\"=\"\"\n\"b\"=\"\"\n\"c\"=\"\"\n\"B\"=-\n";
  for (char c = 'd'; c <= 'p'; ++c)
    mixed += std::string("\"") + c + "\"=\"\"\n";
  mixed += "\"d\"=-\n\"b\"=\"\"\n";
  Tree grown = Load(mixed);
  std::string order;
  for (const regfile::Value& v : grown.RootKey(Root::kLocalMachine).FindSubKey("Mixed")->values)
    order += v.name;
  EXPECT_EQ(order, "acefghijklmnopb");
}

// A store as a program writes it: many values of one key in both dword
// forms, names with escapes, a statement line led by blanks, values set again
// and deleted, sub-keys out of order and one deleted. The loader sizes its
// statement list from the lines that start a statement; that is only a size,
// and every statement arrives.
TEST(RegFile, AFileOfManyValuesAndKeysLoadsAsWritten) {
  std::string text = kHeader + "[HKEY_CURRENT_USER\\Software\\Scale]\n";
  for (unsigned i = 0; i < 40; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, i % 2 ? "\"value%u\"=dword:%x\n" : "\"value%u\"=dword:%08x\n",
                  i, i * 4099);
    text += line;
  }
  text += "\"a \\\"quoted\\\" \\\\ name\"=\"text with \\\\ and \\\"\"\n"
          "  \"blank-led\"=dword:ffffffff\r\n"
          "\"value3\"=\"again\"\n\"VALUE4\"=-\n\"value4\"=hex:01,02\n@=\"default\"\n";
  for (int i = 29; i >= 0; --i)
    text += "[HKEY_CURRENT_USER\\Software\\Scale\\key" + std::to_string(i) +
            "]\n\"value\"=dword:" + std::to_string(i) + "\n\n";
  text += "[-HKEY_CURRENT_USER\\Software\\Scale\\key7]\n";

  Tree tree = Load(text);
  // What the tree writes loads back to the same tree.
  const std::string written = regfile::Write(tree, regfile::Encoding::kUtf8);
  EXPECT_EQ(regfile::Write(Load(written), regfile::Encoding::kUtf8), written);

  const regfile::Key* scale = tree.RootKey(Root::kCurrentUser).Find({"Software", "Scale"});
  ASSERT_NE(scale, nullptr);
  ASSERT_EQ(scale->values.size(), 43u);
  EXPECT_EQ(scale->values[0].name, "value0");
  EXPECT_EQ(scale->values[2].data, (std::vector<BYTE>{0x06, 0x20, 0x00, 0x00})); // 2 * 4099
  EXPECT_EQ(scale->values[3].type, kRegSz);
  EXPECT_EQ(scale->values[3].data, Bytes(std::string("again\0", 6)));
  EXPECT_EQ(scale->values[4].name, "value5");
  EXPECT_EQ(scale->values[38].name, "value39");
  EXPECT_EQ(scale->values[38].data, (std::vector<BYTE>{0x75, 0x70, 0x02, 0x00})); // 39 * 4099
  EXPECT_EQ(scale->values[39].name, "a \"quoted\" \\ name");
  EXPECT_EQ(scale->values[39].data, Bytes(std::string("text with \\ and \"\0", 18)));
  EXPECT_EQ(scale->values[40].name, "blank-led");
  EXPECT_EQ(scale->values[40].data, (std::vector<BYTE>{0xff, 0xff, 0xff, 0xff}));
  EXPECT_EQ(scale->values[41].name, "value4"); // deleted, then set again at the end
  EXPECT_EQ(scale->values[41].data, (std::vector<BYTE>{1, 2}));
  EXPECT_EQ(scale->values[42].name, "");
  EXPECT_EQ(scale->values[42].data, Bytes(std::string("default\0", 8)));
  ASSERT_EQ(scale->subKeys.size(), 29u);
  EXPECT_EQ(scale->subKeys[0]->name, "key0");
  EXPECT_EQ(scale->subKeys[1]->name, "key1");
  EXPECT_EQ(scale->subKeys[2]->name, "key10");
  EXPECT_EQ(scale->FindSubKey("key7"), nullptr);
  ASSERT_NE(scale->FindSubKey("key29"), nullptr);
  // "29" after dword: is hexadecimal.
  EXPECT_EQ(scale->FindSubKey("key29")->values[0].data, (std::vector<BYTE>{0x29, 0, 0, 0}));
}

// A file applied over a tree that has keys and values already.
TEST(RegFile, StatementsApplyOverAnExistingTree) {
  Tree tree = Load(kHeader + "[HKEY_LOCAL_MACHINE\\A\\m]\n\"x\"=\"1\"\n\"y\"=\"2\"\n");
  std::vector<Entry> entries;
  regfile::ParseError error;
  ASSERT_TRUE(regfile::Parse(kHeader + "[HKEY_LOCAL_MACHINE\\a\\B]\n[HKEY_LOCAL_MACHINE\\A\\M]\n"
                                       "\"X\"=\"3\"\n\"y\"=-\n\"z\"=\"4\"\n",
                             &entries, &error));
  regfile::Apply(entries, &tree);
  regfile::Key* a = tree.RootKey(Root::kLocalMachine).FindSubKey("A");
  ASSERT_EQ(a->subKeys.size(), 2u);
  EXPECT_EQ(a->subKeys[0]->name, "B");
  EXPECT_EQ(a->subKeys[1]->name, "m");
  ASSERT_EQ(a->subKeys[1]->values.size(), 2u);
  EXPECT_EQ(a->subKeys[1]->values[0].name, "x");
  EXPECT_EQ(a->subKeys[1]->values[0].data, Bytes(std::string("3\0", 2)));
  EXPECT_EQ(a->subKeys[1]->values[1].name, "z");
}

// A message used to quote an over-long name whole.
TEST(RegFile, MessagesQuoteAtMostFortyBytesOfAName) {
  const std::string longName(3000, 'n');
  const regfile::ParseError key =
      ParseFailure(kHeader + "[HKEY_LOCAL_MACHINE\\A\\" + longName + "]\n");
  EXPECT_EQ(key.message, "invalid key name \"HKEY_LOCAL_MACHINE\\A\\" + std::string(19, 'n') +
                             "...\" (3021 bytes)");
  const regfile::ParseError root = ParseFailure(kHeader + "[" + longName + "]\n");
  EXPECT_EQ(root.message.find("unknown root key \"" + std::string(40, 'n') + "...\" (3000 bytes)"),
            0u)
      << root.message;
  const regfile::ParseError byte =
      ParseFailure(kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex:" + longName + "\n");
  EXPECT_LT(byte.message.size(), 100u) << byte.message;
  EXPECT_EQ(regfile::QuotedForMessage("short"), "\"short\"");
  EXPECT_EQ(regfile::QuotedForMessage(std::string(40, 'x')), "\"" + std::string(40, 'x') + "\"");
}

TEST(RegFile, HiveNamesTakeShortFormsOnlyOutsideFiles) {
  Root root;
  EXPECT_TRUE(regfile::ParseRootName("HKLM", &root));
  EXPECT_EQ(root, Root::kLocalMachine);
  EXPECT_TRUE(regfile::ParseRootName("hkey_current_user", &root));
  EXPECT_EQ(root, Root::kCurrentUser);
  EXPECT_FALSE(regfile::ParseRootName("HKEY_CLASSES_ROOT", &root));
  regfile::ParseError error = ParseFailure(kHeader + "[HKLM\\Software]\n");
  EXPECT_EQ(error.line, 3u);
}

TEST(RegFile, KeyPathsSplitOnBackslashes) {
  std::vector<std::string> names;
  EXPECT_TRUE(regfile::SplitKeyPath("Software\\Varnel\\Config\\", &names));
  EXPECT_EQ(names, (std::vector<std::string>{"Software", "Varnel", "Config"}));
  EXPECT_TRUE(regfile::SplitKeyPath("", &names));
  EXPECT_TRUE(names.empty());
  EXPECT_FALSE(regfile::SplitKeyPath("a\\\\b", &names));
  EXPECT_FALSE(regfile::SplitKeyPath("\\a", &names));
  EXPECT_FALSE(regfile::SplitKeyPath(std::string(256, 'k'), &names));
  EXPECT_TRUE(regfile::SplitKeyPath(std::string(255, 'k'), &names));
  EXPECT_FALSE(regfile::SplitKeyPath("line\nbreak", &names));
}

TEST(RegFile, KeysNestAtMost512Deep) {
  std::string path = "k";
  for (int i = 1; i < 512; ++i)
    path += "\\k";
  std::vector<std::string> names;
  EXPECT_TRUE(regfile::SplitKeyPath(path, &names));
  EXPECT_EQ(names.size(), 512u);
  EXPECT_FALSE(regfile::SplitKeyPath(path + "\\k", &names));
  // The deepest key writes out and reads back.
  Tree tree = Load(kHeader + "[HKEY_LOCAL_MACHINE\\" + path + "]\n\"v\"=dword:1\n");
  std::string text = regfile::Write(tree, regfile::Encoding::kUtf8);
  Tree back = Load(text);
  regfile::SplitKeyPath(path, &names);
  ASSERT_NE(back.RootKey(Root::kLocalMachine).Find(names), nullptr);
  ParseFailure(kHeader + "[HKEY_LOCAL_MACHINE\\" + path + "\\k]\n");
}

// Malformed files: each row is a file and the line its error must name.
TEST(RegFile, MalformedFilesNameTheLine) {
  struct Row {
    const char* what;
    std::string text;
    unsigned line;
    const char* message;
  };
  const Row rows[] = {
      {"empty file", "", 1, "empty"},
      {"wrong header", "Windows Registry Editor Version 4.00\n", 1, "expected the line"},
      {"value before key", kHeader + "\"x\"=\"y\"\n", 3, "before any [key]"},
      {"key without bracket", kHeader + "[HKEY_LOCAL_MACHINE\\K\n", 3, "must end with ']'"},
      {"unknown hive", kHeader + "[HKEY_USERS\\K]\n", 3, "unknown root key"},
      {"empty key name", kHeader + "[HKEY_LOCAL_MACHINE\\A\\\\B]\n", 3, "invalid key name"},
      {"root deletion", kHeader + "[-HKEY_LOCAL_MACHINE]\n", 3, "cannot be deleted"},
      {"missing equals", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\" \"y\"\n", 4, "expected '='"},
      {"unclosed quote", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=\"y\n", 4, "no closing quote"},
      {"bad escape", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=\"C:\\temp\"\n", 4,
       "invalid escape"},
      {"text after string", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=\"y\" z\n", 4,
       "after the closing"},
      {"long dword", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=dword:123456789\n", 4, "dword"},
      {"bad dword digit", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=dword:12g4\n", 4, "dword"},
      {"bad hex byte", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex:01,zz\n", 4,
       "hexadecimal byte"},
      {"three-digit byte", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex:123\n", 4,
       "hexadecimal byte"},
      {"trailing comma", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex:01,\n", 4,
       "hexadecimal byte"},
      {"bad hex type", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex(q):01\n", 4, "hex(type)"},
      {"odd UTF-16", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex(1):41\n", 4, "odd number"},
      {"unknown data", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=string:y\n", 4,
       "unknown value data"},
      {"empty name", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"\"=\"y\"\n", 4, "empty value name"},
      {"value after deletion", kHeader + "[-HKEY_LOCAL_MACHINE\\K]\n\"x\"=\"y\"\n", 4,
       "key deletion"},
      {"stray text", kHeader + "[HKEY_LOCAL_MACHINE\\K]\nx=y\n", 4, "expected a [key]"},
      {"no final line break", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=\"y\"", 4, "truncated"},
      {"continuation at end", kHeader + "[HKEY_LOCAL_MACHINE\\K]\n\"x\"=hex:01,\\\n", 4,
       "truncated"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    regfile::ParseError error = ParseFailure(row.text);
    EXPECT_EQ(error.line, row.line);
    EXPECT_NE(error.message.find(row.message), std::string::npos) << error.message;
  }
}

TEST(RegFile, EveryCutOfAFileThatEndsMidLineIsRejected) {
  Tree original;
  regfile::Key* key = original.RootKey(Root::kCurrentUser).AddSubKey("K");
  key->SetValue("text", kRegSz, Bytes(std::string("quote \" and \\ here\0", 20)));
  key->SetValue("blob", kRegBinary, std::vector<BYTE>(60, 0xAB));
  key->SetValue("n", kRegDword, std::vector<BYTE>{1, 2, 3, 4});
  std::string file = regfile::Write(original, regfile::Encoding::kUtf8);
  for (std::size_t cut = 0; cut < file.size(); ++cut) {
    std::string prefix = file.substr(0, cut);
    std::vector<Entry> entries;
    regfile::ParseError error;
    bool ok = regfile::Parse(prefix, &entries, &error);
    if (cut == 0 || prefix.back() != '\n') {
      EXPECT_FALSE(ok) << "cut at " << cut;
    }
  }
}

// Values whose bytes a quoted .reg string cannot hold must still come back
// exactly: quotes, backslashes, line breaks, bytes above 127 (UTF-8 or not),
// no terminator, embedded zeros.
TEST(RegFile, AwkwardStringsRoundTripExactly) {
  const std::string samples[] = {
      std::string("plain\0", 6),
      std::string("quote \" backslash \\ end\\\0", 26),
      std::string("line\nbreak\r\n\0", 13),
      std::string("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\0", 15),
      std::string("latin1 \xE9\xE8\xFC\0", 11),
      std::string("\xED\xB2\x80 surrogate bytes\0", 20),
      std::string("no terminator"),
      std::string("embedded\0zero\0", 14),
      std::string("tab\there\0", 9),
      std::string(),
  };
  for (DWORD type : {kRegSz, kRegExpandSz, kRegMultiSz}) {
    Tree tree;
    regfile::Key* key = tree.RootKey(Root::kLocalMachine).AddSubKey("K");
    int i = 0;
    for (const std::string& s : samples)
      key->SetValue("v" + std::to_string(i++), type, Bytes(s));
    for (auto encoding : {regfile::Encoding::kUtf8, regfile::Encoding::kUtf16}) {
      Tree back = Load(regfile::Write(tree, encoding));
      regfile::Key* k = back.RootKey(Root::kLocalMachine).FindSubKey("K");
      ASSERT_NE(k, nullptr);
      i = 0;
      for (const std::string& s : samples) {
        SCOPED_TRACE("type " + std::to_string(type) + " sample " + std::to_string(i));
        const regfile::Value* v = k->FindValue("v" + std::to_string(i++));
        ASSERT_NE(v, nullptr);
        EXPECT_EQ(v->type, type);
        EXPECT_EQ(v->data, Bytes(s));
      }
    }
  }
}

TEST(RegFile, NamesWithQuotesBackslashesAndHighBytesRoundTrip) {
  Tree tree;
  regfile::Key* key = tree.RootKey(Root::kCurrentUser).AddSubKey("caf\xC3\xA9 ]key[");
  key->SetValue("na\"me\\", kRegDword, {1, 0, 0, 0});
  key->SetValue("\xE9t\xE9", kRegDword, {2, 0, 0, 0});
  Tree back = Load(regfile::Write(tree, regfile::Encoding::kUtf8));
  regfile::Key* k = back.RootKey(Root::kCurrentUser).FindSubKey("caf\xC3\xA9 ]key[");
  ASSERT_NE(k, nullptr);
  ASSERT_NE(k->FindValue("na\"me\\"), nullptr);
  ASSERT_NE(k->FindValue("\xE9t\xE9"), nullptr);
  EXPECT_EQ(k->FindValue("\xE9t\xE9")->data[0], 2);
}

TEST(RegFile, PlainStringsAreWrittenQuotedAndOthersAsUtf16Hex) {
  Tree tree;
  regfile::Key* key = tree.RootKey(Root::kLocalMachine).AddSubKey("K");
  key->SetValue("a", kRegSz, Bytes(std::string("say \"hi\" C:\\x\0", 14)));
  key->SetValue("b", kRegSz, Bytes(std::string("a\nb\0", 4)));
  key->SetValue("c", kRegDword, {0x2a, 0, 0, 0});
  key->SetValue("d", kRegDword, {1, 2});
  EXPECT_EQ(regfile::Write(tree, regfile::Encoding::kUtf8),
            kHeader + "[HKEY_LOCAL_MACHINE\\K]\n"
                      "\"a\"=\"say \\\"hi\\\" C:\\\\x\"\n"
                      "\"b\"=hex(1):61,00,0a,00,62,00,00,00\n"
                      "\"c\"=dword:0000002a\n"
                      "\"d\"=hex(4):01,02\n"
                      "\n");
}

TEST(RegFile, LongHexListsWrapAsRegeditWrapsThem) {
  Tree tree;
  tree.RootKey(Root::kLocalMachine)
      .AddSubKey("K")
      ->SetValue("long", kRegBinary, std::vector<BYTE>(60, 0x11));
  std::string text = regfile::Write(tree, regfile::Encoding::kUtf8);
  std::size_t start = 0;
  int continued = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    std::string line = text.substr(start, end - start);
    EXPECT_LE(line.size(), 78u) << line;
    if (!line.empty() && line.back() == '\\') {
      ++continued;
      EXPECT_EQ(line[line.size() - 2], ',');
    }
    start = end + 1;
  }
  // "long"=hex: takes 22 bytes, a continuation line 25: 60 bytes need 3 lines.
  EXPECT_EQ(continued, 2);
  Tree back = Load(text);
  EXPECT_EQ(back.RootKey(Root::kLocalMachine).FindSubKey("K")->FindValue("long")->data,
            std::vector<BYTE>(60, 0x11));
}

TEST(RegFile, Utf16FormHasBomAndCrLf) {
  Tree tree;
  tree.RootKey(Root::kCurrentUser)
      .AddSubKey("K")
      ->SetValue("x", kRegSz, Bytes(std::string("\xC3\xA9\0", 3)));
  std::string out = regfile::Write(tree, regfile::Encoding::kUtf16);
  ASSERT_GE(out.size(), 4u);
  EXPECT_EQ(out.substr(0, 4), std::string("\xFF\xFEW\0", 4));
  EXPECT_NE(out.find(std::string("\r\0\n\0", 4)), std::string::npos);
  EXPECT_NE(out.find(std::string("\xE9\0", 2)), std::string::npos); // U+00E9
}

TEST(RegFile, WholeTreeMatchesTheHandWrittenExport) {
  std::string input = qvbase::test::ReadFile(QVBASE_TEST_DATA_DIR "/export-input.reg");
  std::string expected = qvbase::test::ReadFile(QVBASE_TEST_DATA_DIR "/export-expected.reg");
  auto substitute = [](std::string s) {
    const std::string placeholder = "@KEY@", key = "Software\\Test";
    for (std::size_t p; (p = s.find(placeholder)) != std::string::npos;)
      s.replace(p, placeholder.size(), key);
    return s;
  };
  Tree tree = Load(substitute(input));
  std::vector<std::string> path = {"Software", "Test"};
  regfile::Key* key = tree.RootKey(Root::kCurrentUser).Find(path);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(regfile::WriteKey(Root::kCurrentUser, path, *key, regfile::Encoding::kUtf8),
            substitute(expected));
}

TEST(RegFile, TextConversionsAreExactInversesOnRandomBytes) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 3000; ++round) {
    std::string bytes(random() % 24, '\0');
    for (char& c : bytes) {
      unsigned r = random();
      // Lean towards the bytes UTF-8 is made of, so valid sequences occur.
      c = static_cast<char>((r & 3) == 0   ? 0xC0 + (r >> 8) % 0x35
                            : (r & 3) == 1 ? 0x80 + (r >> 8) % 0x40
                                           : r >> 8);
    }
    std::vector<std::uint16_t> units = regfile::BytesToUtf16(bytes);
    ASSERT_EQ(regfile::Utf16ToBytes(units.data(), units.size()), bytes);
  }
}

TEST(RegFile, RandomGarbageNeverCrashesTheParser) {
  std::mt19937 random(42);
  const std::string alphabet =
      "[]\\\"@=-:,;(){}hexdword0123456789abcdefHKEY_LOCAL_MACHINE \t\r\n\xC3\xA9\xFF";
  for (int round = 0; round < 3000; ++round) {
    std::string text = (round % 2 ? kHeader : std::string());
    std::size_t n = random() % 200;
    for (std::size_t i = 0; i < n; ++i)
      text += alphabet[random() % alphabet.size()];
    std::vector<Entry> entries;
    regfile::ParseError error;
    if (regfile::Parse(text, &entries, &error)) {
      Tree tree;
      regfile::Apply(entries, &tree);
      // Whatever parsed writes out and parses again to the same file.
      std::string written = regfile::Write(tree, regfile::Encoding::kUtf8);
      Tree again = Load(written);
      EXPECT_EQ(regfile::Write(again, regfile::Encoding::kUtf8), written);
    } else {
      EXPECT_GE(error.line, 1u);
      EXPECT_FALSE(error.message.empty());
    }
  }
}

} // namespace

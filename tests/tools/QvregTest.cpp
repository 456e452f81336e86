// qvreg, the registry command-line tool: commands, output and exit status.
#include "support/JsonTestSupport.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::test::IsOneLine;
using qvbase::test::Lines;
using qvbase::test::RunResult;

RunResult Qvreg(std::vector<std::string> args) {
  args.insert(args.begin(), qvbase::test::BuiltProgram("qvreg"));
  return qvbase::test::Run(args);
}

TEST(Qvreg, HelpPrintsUsageAndSucceeds) {
  RunResult r = Qvreg({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("usage: qvreg"), std::string::npos);
  EXPECT_NE(r.out.find("export KEY"), std::string::npos);
}

TEST(Qvreg, WrongUsageExitsWithTwoAndOneLine) {
  qvbase::test::ScratchRegistry registry;
  const std::vector<std::vector<std::string>> rows = {
      {},
      {"frobnicate"},
      {"get"},
      {"get", "HKEY_CLASSES_ROOT\\x"},
      {"set", "HKCU\\Software\\x", "v", "float", "1"},
      {"set", "HKCU\\Software\\x", "v", "dword", "4294967296"},
      {"set", "HKCU\\Software\\x", "v", "dword", "-1"},
      {"set", "HKCU\\Software\\x", "v", "binary", "0g"},
      {"delete", "HKCU\\Software\\x"},
      {"delete-key", "HKCU"},
      {"export", "HKCU\\Software\\x", "--utf16"},
  };
  for (const auto& row : rows) {
    std::string trace;
    for (const auto& a : row)
      trace += a + " ";
    SCOPED_TRACE(trace);
    RunResult r = Qvreg(row);
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(IsOneLine(r.err)) << r.err;
    EXPECT_EQ(r.err.rfind("qvreg: ", 0), 0u) << r.err;
  }
}

TEST(Qvreg, SetThenGetEveryType) {
  qvbase::test::ScratchRegistry registry;
  std::string key = registry.FullKeyName() + "\\Config";
  struct Row {
    std::vector<std::string> set;
    std::string printed;
  };
  const Row rows[] = {
      {{"errorfile", "sz", "C:\\trace \"quoted\".log"}, "C:\\trace \"quoted\".log\n"},
      {{"", "sz", "the default"}, "the default\n"},
      {{"path", "expand_sz", "%TEMP%\\x"}, "%TEMP%\\x\n"},
      {{"list", "multi_sz", "one", "two"}, "one\ntwo\n"},
      {{"count", "dword", "0x2A"}, "42\n"},
      {{"big", "qword", "18446744073709551615"}, "18446744073709551615\n"},
      {{"blob", "binary", "00,01,FE,ff"}, "00,01,fe,ff\n"},
      {{"nothing", "none"}, "\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.set[0]);
    std::vector<std::string> set = {"set", key};
    set.insert(set.end(), row.set.begin(), row.set.end());
    RunResult r = Qvreg(set);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.err.empty());
    RunResult g = Qvreg({"get", key, row.set[0]});
    EXPECT_EQ(g.status, 0) << g.err;
    EXPECT_EQ(Lines(g.out), row.printed);
  }
  // Without a name, get reads the default value.
  EXPECT_EQ(Lines(Qvreg({"get", key}).out), "the default\n");
}

TEST(Qvreg, MissingKeyOrValueFailsWithOne) {
  qvbase::test::ScratchRegistry registry;
  RunResult r = Qvreg({"get", registry.FullKeyName() + "\\Nowhere", "x"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err)) << r.err;
  EXPECT_NE(r.err.find("Nowhere"), std::string::npos);
  ASSERT_EQ(Qvreg({"set", registry.FullKeyName(), "x", "dword", "1"}).status, 0);
  r = Qvreg({"get", registry.FullKeyName(), "y"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err));
  EXPECT_EQ(Qvreg({"delete", registry.FullKeyName(), "y"}).status, 1);
  EXPECT_EQ(Qvreg({"delete-key", registry.FullKeyName() + "\\Nowhere"}).status, 1);
}

// Messages used to quote over-long names whole.
TEST(Qvreg, MessagesQuoteAtMostAFewDozenCharactersOfAnOverLongName) {
  qvbase::test::ScratchRegistry registry;
  std::string deep = registry.FullKeyName();
  for (int i = 0; i < 10; ++i)
    deep += "\\" + std::string(200, 'k');
  const std::string longValue(3000, 'v');
  struct Row {
    const char* what;
    std::vector<std::string> args;
    const char* expected;
  };
  const Row rows[] = {
      {"a deep key", {"get", deep, "x"}, "bytes)"},
      {"a long value name", {"get", registry.FullKeyName(), longValue}, "(3000 bytes)"},
      {"a key name too long to be one", {"list", "HKCU\\" + std::string(3000, 'x')}, "bytes)"},
  };
  ASSERT_EQ(Qvreg({"set", registry.FullKeyName(), "x", "dword", "1"}).status, 0);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    RunResult r = Qvreg(row.args);
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(IsOneLine(r.err)) << r.err;
    EXPECT_NE(r.err.find(row.expected), std::string::npos) << r.err;
    EXPECT_LT(r.err.size(), 250u) << r.err;
  }
}

TEST(Qvreg, DeleteRemovesValuesAndKeys) {
  qvbase::test::ScratchRegistry registry;
  std::string key = registry.FullKeyName() + "\\A\\B";
  ASSERT_EQ(Qvreg({"set", key, "x", "sz", "1"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "y", "sz", "2"}).status, 0);
  EXPECT_EQ(Qvreg({"delete", key, "x"}).status, 0);
  EXPECT_EQ(Qvreg({"get", key, "x"}).status, 1);
  EXPECT_EQ(Qvreg({"get", key, "y"}).status, 0);
  EXPECT_EQ(Qvreg({"delete-key", registry.FullKeyName() + "\\A"}).status, 0);
  EXPECT_EQ(Qvreg({"get", key, "y"}).status, 1);
}

TEST(Qvreg, ListShowsSubKeysThenValues) {
  qvbase::test::ScratchRegistry registry;
  std::string key = registry.FullKeyName();
  ASSERT_EQ(Qvreg({"set", key + "\\Sub", "x", "sz", "1"}).status, 0);
  // Written in name order: Wine lists values sorted, Windows and the POSIX
  // store in the order they were first written.
  ASSERT_EQ(Qvreg({"set", key, "", "dword", "5"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "name", "sz", "text"}).status, 0);
  RunResult r = Qvreg({"list", key});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(r.out), "Sub\\\n@\tdword\t5\nname\tsz\ttext\n");
}

TEST(Qvreg, ListJsonGivesSubKeysAndEachValueTypedByItsKind) {
  qvbase::test::ScratchRegistry registry;
  std::string key = registry.FullKeyName();
  ASSERT_EQ(Qvreg({"set", key + "\\Sub", "x", "sz", "1"}).status, 0);
  // Written in name order: Wine lists values sorted, Windows and the POSIX
  // store in the order they were first written.
  ASSERT_EQ(Qvreg({"set", key, "", "dword", "5"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "a", "sz", "say \"hi\"\\\t"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "b", "multi_sz", "one", "two"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "c", "multi_sz"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "d", "qword", "0xffffffffffffffff"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "e", "binary", "01,ff"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "f", "expand_sz", "%HOME%"}).status, 0);
  RunResult r = Qvreg({"list", key, "--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const qvbase::test::Json doc = qvbase::test::ParseJson(r.out);
  EXPECT_EQ(doc["key"].text, key);
  ASSERT_EQ(doc["subKeys"].items.size(), 1u);
  EXPECT_EQ(doc["subKeys"][0].text, "Sub");
  const qvbase::test::Json& values = doc["values"];
  ASSERT_EQ(values.items.size(), 7u);
  struct Row {
    std::string name, type;
    qvbase::test::Json::Kind kind;
    std::string data;
  };
  using K = qvbase::test::Json;
  const Row rows[] = {
      {"", "dword", K::kNumber, "5"},
      {"a", "sz", K::kString, "say \"hi\"\\\t"},
      {"b", "multi_sz", K::kArray, ""},
      {"c", "multi_sz", K::kArray, ""},
      {"d", "qword", K::kNumber, "18446744073709551615"},
      {"e", "binary", K::kString, "01ff"},
      {"f", "expand_sz", K::kString, "%HOME%"},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(rows[i].name);
    EXPECT_EQ(values[i]["name"].text, rows[i].name);
    EXPECT_EQ(values[i]["type"].text, rows[i].type);
    EXPECT_EQ(values[i]["data"].kind, rows[i].kind);
    if (rows[i].kind != K::kArray) {
      EXPECT_EQ(values[i]["data"].text, rows[i].data);
    }
  }
  ASSERT_EQ(values[2]["data"].items.size(), 2u);
  EXPECT_EQ(values[2]["data"][0].text, "one");
  EXPECT_EQ(values[2]["data"][1].text, "two");
  EXPECT_TRUE(values[3]["data"].items.empty());
}

TEST(Qvreg, ListJsonOfAnEmptyKeyHasEmptyLists) {
  qvbase::test::ScratchRegistry registry;
  std::string key = registry.FullKeyName() + "\\Empty";
  ASSERT_EQ(Qvreg({"set", key, "x", "sz", "1"}).status, 0);
  ASSERT_EQ(Qvreg({"delete", key, "x"}).status, 0);
  RunResult r = Qvreg({"list", key, "--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const qvbase::test::Json doc = qvbase::test::ParseJson(r.out);
  EXPECT_TRUE(doc["subKeys"].items.empty());
  EXPECT_TRUE(doc["values"].items.empty());
}

std::string Substitute(std::string text, const std::string& key) {
  const std::string placeholder = "@KEY@";
  for (std::size_t p; (p = text.find(placeholder)) != std::string::npos;)
    text.replace(p, placeholder.size(), key);
  return text;
}

TEST(Qvreg, ImportThenExportMatchesTheHandWrittenFile) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::TempDir dir;
  std::string input = Substitute(qvbase::test::ReadFile(QVBASE_TEST_DATA_DIR "/export-input.reg"),
                                 registry.KeyPath());
  std::string expected = Substitute(
      qvbase::test::ReadFile(QVBASE_TEST_DATA_DIR "/export-expected.reg"), registry.KeyPath());
  qvbase::test::WriteFile(dir.File("in.reg"), input);
  RunResult r = Qvreg({"import", dir.File("in.reg")});
  ASSERT_EQ(r.status, 0) << r.err;
  r = Qvreg({"export", registry.FullKeyName(), dir.File("out.reg")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(qvbase::test::ReadFile(dir.File("out.reg")), expected);
}

TEST(Qvreg, Utf16ExportImportsBackUnchanged) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::TempDir dir;
  std::string key = registry.FullKeyName() + "\\K";
  ASSERT_EQ(Qvreg({"set", key, "accent", "sz", "caf\xC3\xA9"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key, "n", "dword", "7"}).status, 0);
  ASSERT_EQ(Qvreg({"export", key, dir.File("wide.reg"), "--utf16"}).status, 0);
  std::string wide = qvbase::test::ReadFile(dir.File("wide.reg"));
  ASSERT_GE(wide.size(), 2u);
  EXPECT_EQ(wide.substr(0, 2), "\xFF\xFE");
  ASSERT_EQ(Qvreg({"delete-key", key}).status, 0);
  RunResult r = Qvreg({"import", dir.File("wide.reg")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(Qvreg({"get", key, "accent"}).out), "caf\xC3\xA9\n");
  EXPECT_EQ(Lines(Qvreg({"get", key, "n"}).out), "7\n");
}

TEST(Qvreg, MalformedImportChangesNothingAndNamesTheLine) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::TempDir dir;
  std::string key = registry.FullKeyName();
  qvbase::test::WriteFile(dir.File("bad.reg"), "Windows Registry Editor Version 5.00\n\n[" + key +
                                                   "\\Good]\n\"x\"=\"1\"\n\"y\"=dword:nothex\n");
  RunResult r = Qvreg({"import", dir.File("bad.reg")});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err)) << r.err;
  EXPECT_NE(r.err.find("bad.reg:5:"), std::string::npos) << r.err;
  EXPECT_EQ(Qvreg({"get", key + "\\Good", "x"}).status, 1);
}

TEST(Qvreg, ImportAppliesDeletions) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::TempDir dir;
  std::string key = registry.FullKeyName();
  ASSERT_EQ(Qvreg({"set", key + "\\Old", "x", "sz", "1"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key + "\\Keep", "x", "sz", "1"}).status, 0);
  ASSERT_EQ(Qvreg({"set", key + "\\Keep", "y", "sz", "2"}).status, 0);
  qvbase::test::WriteFile(dir.File("del.reg"), "Windows Registry Editor Version 5.00\n\n[-" + key +
                                                   "\\Old]\n\n[" + key + "\\Keep]\n\"x\"=-\n");
  ASSERT_EQ(Qvreg({"import", dir.File("del.reg")}).status, 0);
  EXPECT_EQ(Qvreg({"get", key + "\\Old", "x"}).status, 1);
  EXPECT_EQ(Qvreg({"get", key + "\\Keep", "x"}).status, 1);
  EXPECT_EQ(Qvreg({"get", key + "\\Keep", "y"}).status, 0);
}

TEST(Qvreg, StoreNamesWhereTheRegistryLives) {
  qvbase::test::ScratchRegistry registry;
  RunResult r = Qvreg({"store"});
  EXPECT_EQ(r.status, 0);
#if defined(_WIN32)
  EXPECT_EQ(Lines(r.out), "Windows registry\n");
#else
  EXPECT_EQ(r.out, registry.StoreFile() + "\n");
#endif
}

#if !defined(_WIN32)
TEST(Qvreg, CorruptStoreFailsWithFileAndLine) {
  qvbase::test::ScratchRegistry registry;
  const std::string bytes =
      "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\X]\n\"v\"=hex:1,\n";
  qvbase::test::WriteFile(registry.StoreFile(), bytes);
  RunResult r = Qvreg({"set", "HKCU\\Software\\Y", "v", "sz", "1"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err)) << r.err;
  EXPECT_NE(r.err.find(registry.StoreFile() + ":4:"), std::string::npos) << r.err;
  EXPECT_EQ(qvbase::test::ReadFile(registry.StoreFile()), bytes);
}
#endif

} // namespace

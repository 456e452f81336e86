// qvres, the resource-module reader: its listing, strings, tagged structures
// and hex dumps of the test module and of QVKernelRes12, the same in every
// form of one .rc; bad input and usage errors.
#include "support/ResourceTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::test::RunResult;

RunResult Qvres(std::vector<std::string> args) {
  args.insert(args.begin(), qvbase::test::BuiltProgram("qvres"));
  RunResult result = qvbase::test::Run(args);
  // Tools print "\n"; under Windows the C runtime writes "\r\n".
  for (std::string* text : {&result.out, &result.err})
    for (std::size_t p; (p = text->find("\r\n")) != std::string::npos;)
      text->erase(p, 1);
  return result;
}

bool IsOneLine(const std::string& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

// The modules of the test .rc this build has: its own form, and on Linux
// the PE images too.
std::vector<std::string> TestModules() {
  std::vector<std::string> modules = {qvbase::test::TestModulePath()};
#if !defined(_WIN32)
  for (const char* image : {"ResourceTestImage.dll", "ResourceTestImage32.dll"})
    if (qvbase::test::FileExists(qvbase::test::BuiltFile(image)))
      modules.push_back(qvbase::test::BuiltFile(image));
#endif
  return modules;
}

const char kTestListing[] = "type                     identifier               language size\n"
                            "STRING (6)               1                        0x0409   134\n"
                            "STRING (6)               2                        0x0409   182\n"
                            "STRING (6)               7                        0x0409   2334\n"
                            "STRING (6)               63                       0x0409   288\n"
                            "STRING (6)               64                       0x0409   96\n"
                            "STRING (6)               251                      0x0409   76\n"
                            "STRING (6)               4096                     0x0409   88\n"
                            "RCDATA (10)              100                      0x0409   10\n"
                            "RCDATA (10)              201                      0x0409   10\n"
                            "RCDATA (10)              202                      0x0409   9\n"
                            "RCDATA (10)              203                      0x0409   8\n"
                            "RCDATA (10)              204                      0x0409   1\n"
                            "RCDATA (10)              205                      0x0409   10\n"
                            "RCDATA (10)              206                      0x0409   9\n"
                            "RCDATA (10)              207                      0x0409   6\n"
                            "RCDATA (10)              \"LANGUAGES\"              0x0000   7\n"
                            "RCDATA (10)              \"LANGUAGES\"              0x0407   2\n"
                            "RCDATA (10)              \"LANGUAGES\"              0x0409   2\n"
                            "RCDATA (10)              \"WORKEDEXAMPLE\"          0x0409   10\n"
                            "300                      7                        0x0409   26\n"
                            "\"QVDATA\"                 7                        0x0409   16\n"
                            "\"QVDATA\"                 \"PAYLOAD\"                0x0409   23\n";

TEST(Qvres, ListsEveryResourceAlikeInEveryFormOfTheSource) {
  for (const std::string& module : TestModules()) {
    SCOPED_TRACE(module);
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{module}, std::vector<std::string>{"list", module}}) {
      const RunResult r = Qvres(args);
      EXPECT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(r.out, kTestListing);
      EXPECT_EQ(r.err, "");
    }
  }
}

TEST(Qvres, PrintsTheStringsByIdentifier) {
  for (const std::string& module : TestModules()) {
    SCOPED_TRACE(module);
    const RunResult r = Qvres({"strings", module});
    EXPECT_EQ(r.status, 0) << r.err;
    const std::string first = "    0  The first string\n"
                              "   15  The last string of the first bundle\n";
    EXPECT_EQ(r.out.substr(0, first.size()), first);
    EXPECT_NE(r.out.find("\n  100  x\n"), std::string::npos);
    EXPECT_NE(r.out.find("\n  110  caf\\u00E9\n"), std::string::npos);
    EXPECT_NE(r.out.find("\n 1007  Shifted string 7\n"), std::string::npos);
    const std::string last = "65535  The last string there can be\n";
    EXPECT_EQ(r.out.substr(r.out.size() - last.size()), last);
  }
}

TEST(Qvres, PrintsTheLibrarysOwnTexts) {
  const RunResult r = Qvres({"strings", qvbase::test::KernelResourcesPath()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, 33), "    0  Undefined Resource String\n");
  EXPECT_NE(r.out.find("\n 1229  The stream's medium delivered fewer bytes than were asked for.\n"),
            std::string::npos)
      << r.out;
}

TEST(Qvres, DecodesTaggedStructuresByNumberOrName) {
  for (const std::string& module : TestModules()) {
    SCOPED_TRACE(module);
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"struct", module, "RCDATA", "201"},
          std::vector<std::string>{"struct", module, "10", "0xC9"},
          std::vector<std::string>{"struct", module, "rcdata", "workedExample"}}) {
      const RunResult r = Qvres(args);
      EXPECT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(r.out, "A\t5 (0x0005)\nBC\t4660 (0x1234)\n");
    }
    EXPECT_EQ(Qvres({"struct", module, "RCDATA", "205"}).out, "A\t5 (0x0005)\n");
    EXPECT_EQ(Qvres({"struct", module, "RCDATA", "204"}).out, "");
  }
}

// The file offset of a resource's data, from the line qvres hex prints.
std::uint64_t DataOffset(const std::string& module, const char* type, const char* id) {
  const RunResult r = Qvres({"hex", module, type, id});
  const std::string marker = " bytes at offset ";
  const std::size_t at = r.out.find(marker);
  return at == std::string::npos ? 0 : std::stoull(r.out.substr(at + marker.size()));
}

TEST(Qvres, StructureWithoutItsEndIsBadInputNamingTheOffset) {
  for (const std::string& module : TestModules()) {
    SCOPED_TRACE(module);
    struct Row {
      const char* id;
      std::uint64_t into; // where in the data the fault lies
      const char* what;
    };
    const Row rows[] = {
        {"202", 9, "the structure ends without its empty tag"},
        {"203", 7, "the value of tag \"BC\" is cut short"},
        {"207", 4, "the structure ends inside the tag \"BC\""},
    };
    for (const Row& row : rows) {
      SCOPED_TRACE(row.id);
      const RunResult r = Qvres({"struct", module, "RCDATA", row.id});
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(r.out, "");
      EXPECT_TRUE(IsOneLine(r.err)) << r.err;
      const std::uint64_t offset = DataOffset(module, "RCDATA", row.id) + row.into;
      EXPECT_EQ(r.err,
                "qvres: " + module + ": offset " + std::to_string(offset) + ": " + row.what + "\n");
    }
  }
}

TEST(Qvres, DumpsAResourcesBytesInHex) {
  for (const std::string& module : TestModules()) {
    SCOPED_TRACE(module);
    const RunResult r = Qvres({"hex", module, "QVDATA", "PAYLOAD"});
    EXPECT_EQ(r.status, 0) << r.err;
    const std::string offset = std::to_string(DataOffset(module, "QVDATA", "PAYLOAD"));
    EXPECT_EQ(r.out, "\"QVDATA\" \"PAYLOAD\" language 0x0409: 23 bytes at offset " + offset +
                         "\n"
                         "  00000000  70 61 79 6C 6F 61 64 20  6F 66 20 61 20 6E 61 6D "
                         " |payload of a nam|\n"
                         "  00000010  65 64 20 74 79 70 65                             "
                         " |ed type|\n");
  }
}

TEST(Qvres, MissingResourceFailsWithOneLine) {
  const RunResult r = Qvres({"hex", qvbase::test::TestModulePath(), "RCDATA", "999"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "qvres: " + qvbase::test::TestModulePath() +
                       ": no resource of type RCDATA (10) and identifier 999\n");
}

TEST(Qvres, CutModuleIsBadInputNamingTheOffset) {
  qvbase::test::TempDir dir;
  const std::string whole = qvbase::test::ReadFile(qvbase::test::TestModulePath());
  // (Not the last bytes: a PE image may end in padding that no section needs.)
  for (std::size_t length : {std::size_t(1), std::size_t(40), whole.size() / 2}) {
    SCOPED_TRACE(length);
    const std::string path = dir.File("cut.res");
    qvbase::test::WriteFile(path, whole.substr(0, length));
    const RunResult r = Qvres({path});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(IsOneLine(r.err)) << r.err;
    EXPECT_EQ(r.err.rfind("qvres: " + path + ": offset ", 0), 0u) << r.err;
  }
}

TEST(Qvres, OtherFilesAreBadInput) {
  qvbase::test::TempDir dir;
  const std::string text = dir.File("text.res");
  qvbase::test::WriteFile(text, "not a resource module");
  RunResult r = Qvres({text});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err,
            "qvres: " + text + ": offset 0: neither a compiled resource file nor a PE image\n");
  r = Qvres({dir.File("missing.res")});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err)) << r.err;
}

TEST(Qvres, WrongUsageExitsWithTwo) {
  const std::string module = qvbase::test::TestModulePath();
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"--bogus", module},
      {"struct", module, "RCDATA"},
      {"hex", module},
      {"list", module, "extra"},
      {"strings"},
  };
  for (const std::vector<std::string>& args : cases) {
    SCOPED_TRACE(args.size());
    const RunResult r = Qvres(args);
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(IsOneLine(r.err)) << r.err;
    EXPECT_NE(r.err.find("(see qvres --help)"), std::string::npos);
  }
}

TEST(Qvres, HelpDescribesTheCommands) {
  const RunResult r = Qvres({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("usage: qvres", 0), 0u);
  for (const char* word : {"list", "strings", "struct", "hex", "exit status"})
    EXPECT_NE(r.out.find(word), std::string::npos) << word;
}

} // namespace

// The resource-module calls of QVComponent (QVRes_*): loading the test
// module, finding resources by number and by name, their bytes, strings with
// the LoadStringA contract, the module's path with the GetModuleFileNameA
// contract, and failures (never crashes) for bad handles and bad files. On
// Windows the calls are the system's; elsewhere they read the compiled
// resource file and PE images of the same .rc.
#include <QVResModule.h>

#include "support/ResourceTestSupport.h"
#include "support/LocaleTestSupport.h"

#include "ResourceTestIds.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

namespace {

constexpr unsigned kTypeRawData = 10;

using qvbase::test::BuiltFile;
using qvbase::test::TestModulePath;
typedef qvbase::test::ScopedResourceModule LoadedModule;

std::string Bytes(void* module, const char* name, const char* type) {
  void* resource = QVRes_FindResource(module, name, type);
  if (!resource)
    return "<missing>";
  const uint32_t size = QVRes_SizeofResource(module, resource);
  const void* data = QVRes_LockResource(QVRes_LoadResource(module, resource));
  if (!data)
    return "<not loaded>";
  return std::string(static_cast<const char*>(data), size);
}

std::string String(void* module, unsigned id, int size = 1024) {
  std::string buffer(static_cast<std::size_t>(size), '#');
  const int length = QVRes_LoadString(module, id, &buffer[0], size);
  EXPECT_EQ(std::strlen(buffer.c_str()), static_cast<std::size_t>(length));
  return buffer.substr(0, static_cast<std::size_t>(length));
}

TEST(QVResModule, LoadsTheCompiledTestModule) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  EXPECT_NE(module.handle(), nullptr);
  EXPECT_EQ(String(module.handle(), IDS_FIRST), "The first string");
}

TEST(QVResModule, FindsResourcesByNumberByNameAndByHashNumber) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  void* m = module.handle();
  EXPECT_EQ(Bytes(m, "WORKEDEXAMPLE", QVRES_INTRESOURCE(kTypeRawData)),
            std::string("A\0\x05\0BC\0\x34\x12\0", 10));
  EXPECT_EQ(Bytes(m, "workedexample", QVRES_INTRESOURCE(kTypeRawData)),
            std::string("A\0\x05\0BC\0\x34\x12\0", 10));
  EXPECT_EQ(Bytes(m, QVRES_INTRESOURCE(RAW_NUMBERED), QVRES_INTRESOURCE(kTypeRawData)),
            std::string("raw\0data\xFE\xFF", 10));
  EXPECT_EQ(Bytes(m, "#100", "#10"), std::string("raw\0data\xFE\xFF", 10));
  EXPECT_EQ(Bytes(m, "PAYLOAD", "QVDATA"), "payload of a named type");
  EXPECT_EQ(Bytes(m, QVRES_INTRESOURCE(CUSTOM_NUMBERED), "QvData"), "numbered payload");
  EXPECT_EQ(Bytes(m, QVRES_INTRESOURCE(CUSTOM_NUMBERED), QVRES_INTRESOURCE(CUSTOM_TYPE_NUMBER)),
            "payload of a numbered type");
  EXPECT_EQ(QVRes_FindResource(m, "NOSUCHNAME", QVRES_INTRESOURCE(kTypeRawData)), nullptr);
  EXPECT_EQ(QVRes_FindResource(m, QVRES_INTRESOURCE(RAW_NUMBERED), "QVDATA"), nullptr);
}

TEST(QVResModule, PrefersTheNeutralLanguage) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  EXPECT_EQ(Bytes(module.handle(), "LANGUAGES", QVRES_INTRESOURCE(kTypeRawData)), "neutral");
}

TEST(QVResModule, LoadsStringsFromEveryBundle) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  struct Row {
    unsigned id;
    const char* text;
  };
  const Row rows[] = {
      {IDS_FIRST, "The first string"},
      {IDS_LAST_OF_FIRST_BUNDLE, "The last string of the first bundle"},
      {IDS_FIRST_OF_SECOND_BUNDLE, "The first string of the second bundle"},
      {IDS_SECOND_OF_SECOND_BUNDLE, "The second string of the second bundle"},
      {IDS_MIDDLE, "A string in the middle"},
      {IDS_LAST, "The last string there can be"},
      {IDS_SHIFTED_BASE + 7, "Shifted string 7"},
      {IDS_LENGTH_1, "x"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.id);
    EXPECT_EQ(String(module.handle(), row.id), row.text);
  }
}

TEST(QVResModule, MissingStringGivesZeroAndAnEmptyText) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  for (unsigned id : {1u, 18u, 2007u, 65534u}) {
    SCOPED_TRACE(id);
    char buffer[16] = "unchanged";
    EXPECT_EQ(QVRes_LoadString(module.handle(), id, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
  }
}

TEST(QVResModule, LoadStringCutsAtSizeMinusOneAndReturnsWhatItCopied) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  struct Row {
    unsigned id;
    int size;
    int length;
  };
  const Row rows[] = {
      {IDS_LENGTH_126, 128, 126}, {IDS_LENGTH_127, 128, 127}, {IDS_LENGTH_128, 128, 127},
      {IDS_LENGTH_127, 256, 127}, {IDS_LENGTH_255, 256, 255}, {IDS_LENGTH_256, 256, 255},
      {IDS_LENGTH_256, 384, 256}, {IDS_FIRST, 5, 4},          {IDS_FIRST, 1, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.id) + " in " + std::to_string(row.size));
    const std::string text = String(module.handle(), row.id, row.size);
    EXPECT_EQ(static_cast<int>(text.size()), row.length);
  }
  EXPECT_EQ(String(module.handle(), IDS_FIRST, 5), "The ");
  EXPECT_EQ(String(module.handle(), IDS_LENGTH_127, 256).substr(0, 12), "127 chars:ab");
}

TEST(QVResModule, LoadStringWithoutRoomCopiesNothing) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  char buffer[4] = "abc";
  EXPECT_EQ(QVRes_LoadString(module.handle(), IDS_FIRST, buffer, 0), 0);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(QVRes_LoadString(module.handle(), IDS_FIRST, nullptr, 16), 0);
}

TEST(QVResModule, StringsCharactersTheCodePageLacksBecomeQuestionMarks) {
#if defined(_WIN32)
  // The ANSI code page of the test machine holds the accented e.
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  EXPECT_EQ(String(module.handle(), IDS_ACCENTED), "caf\xE9");
#else
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  {
    qvbase::test::ScopedLocale c("C");
    EXPECT_EQ(String(module.handle(), IDS_ACCENTED), "caf?");
  }
  qvbase::test::ScopedLocale utf8("C.UTF-8");
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("C.UTF-8");
  EXPECT_EQ(String(module.handle(), IDS_ACCENTED), "caf\xC3\xA9");
#endif
}

TEST(QVResModule, ModuleFileNameIsTheFullPathWithTheSystemsBufferRules) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  char path[1024];
  const uint32_t length = QVRes_GetModuleFileName(module.handle(), path, sizeof path);
  ASSERT_GT(length, 0u);
  EXPECT_EQ(std::strlen(path), length);
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(path), TestModulePath())) << path;
  EXPECT_TRUE(std::filesystem::path(path).is_absolute()) << path;

  char shortBuffer[6] = "xxxxx";
  EXPECT_EQ(QVRes_GetModuleFileName(module.handle(), shortBuffer, sizeof shortBuffer),
            sizeof shortBuffer);
  EXPECT_EQ(std::string(shortBuffer), std::string(path, 5));
  EXPECT_EQ(QVRes_GetModuleFileName(module.handle(), path, 0), 0u);
  EXPECT_EQ(QVRes_GetModuleFileName(module.handle(), nullptr, 10), 0u);
}

TEST(QVResModule, RelativePathIsMadeFull) {
  const std::filesystem::path saved = std::filesystem::current_path();
  std::filesystem::current_path(qvbase::test::BinaryDir());
  const std::string relative = std::filesystem::path(TestModulePath()).filename().string();
  void* handle = nullptr;
  const int result = QVRes_LoadModule(relative.c_str(), &handle);
  std::filesystem::current_path(saved);
  ASSERT_EQ(result, QVRES_OK);
  char path[1024];
  ASSERT_GT(QVRes_GetModuleFileName(handle, path, sizeof path), 0u);
  EXPECT_TRUE(std::filesystem::path(path).is_absolute()) << path;
  EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::path(path), TestModulePath())) << path;
  EXPECT_EQ(QVRes_FreeModule(handle), 0);
}

TEST(QVResModule, LoadFailuresSayWhy) {
  qvbase::test::TempDir dir;
  void* handle = &dir; // must come back null
  EXPECT_EQ(QVRes_LoadModule(dir.File("missing.res").c_str(), &handle), QVRES_CANNOT_READ);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(QVRes_LoadModule(dir.path().c_str(), &handle), QVRES_CANNOT_READ);
  qvbase::test::WriteFile(dir.File("text.res"), "this is not a resource module");
  EXPECT_EQ(QVRes_LoadModule(dir.File("text.res").c_str(), &handle), QVRES_NOT_A_MODULE);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(QVRes_LoadModule(nullptr, &handle), QVRES_BAD_ARGUMENT);
  EXPECT_EQ(QVRes_LoadModule(TestModulePath().c_str(), nullptr), QVRES_BAD_ARGUMENT);
}

TEST(QVResModule, BadHandlesGiveFailuresNotCrashes) {
  LoadedModule module(TestModulePath());
  ASSERT_EQ(module.result(), QVRES_OK);
  void* m = module.handle();
  int notAModule = 0;
  void* bogus = &notAModule;
  char buffer[32] = "unchanged";
  EXPECT_NE(QVRes_FreeModule(bogus), 0);
  EXPECT_NE(QVRes_FreeModule(nullptr), 0);
  EXPECT_EQ(QVRes_FindResource(bogus, "WORKEDEXAMPLE", QVRES_INTRESOURCE(kTypeRawData)), nullptr);
  EXPECT_EQ(QVRes_FindResource(nullptr, "WORKEDEXAMPLE", QVRES_INTRESOURCE(kTypeRawData)), nullptr);
  EXPECT_EQ(QVRes_FindResource(m, nullptr, QVRES_INTRESOURCE(kTypeRawData)), nullptr);
  EXPECT_EQ(QVRes_FindResource(m, "WORKEDEXAMPLE", nullptr), nullptr);
  EXPECT_EQ(QVRes_LoadString(bogus, IDS_FIRST, buffer, sizeof buffer), 0);
  EXPECT_EQ(QVRes_GetModuleFileName(bogus, buffer, sizeof buffer), 0u);
  EXPECT_EQ(QVRes_GetModuleFileName(nullptr, buffer, sizeof buffer), 0u);
  EXPECT_EQ(QVRes_SizeofResource(m, bogus), 0u);
  EXPECT_EQ(QVRes_SizeofResource(m, nullptr), 0u);
  EXPECT_EQ(QVRes_LoadResource(m, bogus), nullptr);
  EXPECT_EQ(QVRes_LockResource(nullptr), nullptr);
  void* resource = QVRes_FindResource(m, "WORKEDEXAMPLE", QVRES_INTRESOURCE(kTypeRawData));
  ASSERT_NE(resource, nullptr);
  EXPECT_EQ(QVRes_SizeofResource(bogus, resource), 0u);
  EXPECT_EQ(QVRes_LoadResource(nullptr, resource), nullptr);
  // A resource handle of one module is no resource of another.
  LoadedModule other(TestModulePath());
  ASSERT_EQ(other.result(), QVRES_OK);
  if (other.handle() != m) {
    EXPECT_EQ(QVRes_SizeofResource(other.handle(), resource), 0u);
  }
}

TEST(QVResModule, FreedModuleIsNoLongerAccepted) {
  void* handle = nullptr;
  ASSERT_EQ(QVRes_LoadModule(TestModulePath().c_str(), &handle), QVRES_OK);
  EXPECT_EQ(QVRes_FreeModule(handle), 0);
  char buffer[32];
  EXPECT_EQ(QVRes_LoadString(handle, IDS_FIRST, buffer, sizeof buffer), 0);
  EXPECT_NE(QVRes_FreeModule(handle), 0);
}

#if !defined(_WIN32)
TEST(QVResModule, ReadsPeImagesOfBothWidthsToo) {
  for (const char* file : {"ResourceTestImage.dll", "ResourceTestImage32.dll"}) {
    SCOPED_TRACE(file);
    if (!qvbase::test::FileExists(BuiltFile(file)))
      GTEST_SKIP() << "lld-link is not installed: no PE images built";
    LoadedModule module(BuiltFile(file));
    ASSERT_EQ(module.result(), QVRES_OK);
    EXPECT_EQ(String(module.handle(), IDS_MIDDLE), "A string in the middle");
    EXPECT_EQ(Bytes(module.handle(), "PAYLOAD", "QVDATA"), "payload of a named type");
    EXPECT_EQ(Bytes(module.handle(), "LANGUAGES", QVRES_INTRESOURCE(kTypeRawData)), "neutral");
  }
}

TEST(QVResModule, RefusesAFileLargerThanAModuleMayBe) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("huge.res");
  qvbase::test::WriteFile(path, "");
  // Sparse: no disk space is used, and the file is never read.
  std::filesystem::resize_file(path, (std::uintmax_t(256) << 20) + 1);
  void* handle = nullptr;
  EXPECT_EQ(QVRes_LoadModule(path.c_str(), &handle), QVRES_CANNOT_READ);
  EXPECT_EQ(handle, nullptr);
}
#endif

} // namespace

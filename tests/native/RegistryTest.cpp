// The platform layer's registry: the same calls and results on every target,
// and on POSIX the file store's own guarantees.
#include "native/Registry.h"

#include "native/Process.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

namespace native = qvbase::native;
using native::RegKey;

// Opens (creating) the scratch key with full access, closed at the end.
class ScratchKey {
public:
  explicit ScratchKey(const qvbase::test::ScratchRegistry& registry,
                      const std::string& below = "") {
    std::string path = registry.KeyPath() + (below.empty() ? "" : "\\" + below);
    m_rc = native::CreateRegKey(native::kRegCurrentUser, path.c_str(), nullptr,
                                native::kKeyAllAccess, &m_key, &m_disposition);
  }
  ~ScratchKey() {
    if (m_key)
      native::CloseRegKey(m_key);
  }
  RegKey get() const { return m_key; }
  LONG rc() const { return m_rc; }
  DWORD disposition() const { return m_disposition; }

private:
  RegKey m_key = nullptr;
  LONG m_rc;
  DWORD m_disposition = 0;
};

LONG SetString(RegKey key, const char* name, const std::string& text) {
  return native::SetRegValue(key, name, native::kRegSz, reinterpret_cast<const BYTE*>(text.c_str()),
                             static_cast<DWORD>(text.size() + 1));
}

LONG SetDword(RegKey key, const char* name, DWORD value) {
  return native::SetRegValue(key, name, native::kRegDword, reinterpret_cast<const BYTE*>(&value),
                             sizeof value);
}

std::string GetString(RegKey key, const char* name) {
  char buffer[512] = {};
  DWORD size = sizeof buffer, type = 0;
  EXPECT_EQ(native::QueryRegValue(key, name, &type, reinterpret_cast<BYTE*>(buffer), &size),
            ERROR_SUCCESS);
  EXPECT_EQ(type, native::kRegSz);
  return std::string(buffer, size ? size - 1 : 0);
}

TEST(Registry, CreateReportsNewThenExisting) {
  qvbase::test::ScratchRegistry registry;
  {
    ScratchKey key(registry, "A\\B");
    ASSERT_EQ(key.rc(), ERROR_SUCCESS);
    EXPECT_EQ(key.disposition(), native::kRegCreatedNewKey);
  }
  ScratchKey again(registry, "a\\b");
  ASSERT_EQ(again.rc(), ERROR_SUCCESS);
  EXPECT_EQ(again.disposition(), native::kRegOpenedExistingKey);
}

TEST(Registry, OpenMissingKeyIsFileNotFound) {
  qvbase::test::ScratchRegistry registry;
  RegKey key = reinterpret_cast<RegKey>(1);
  std::string path = registry.KeyPath() + "\\Missing";
  EXPECT_EQ(native::OpenRegKey(native::kRegCurrentUser, path.c_str(), native::kKeyRead, &key),
            ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(key, nullptr);
}

TEST(Registry, OpenWithEmptyNameGivesANewHandleOnTheSameKey) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  ASSERT_EQ(SetString(key.get(), "x", "value"), ERROR_SUCCESS);
  RegKey same = nullptr;
  ASSERT_EQ(native::OpenRegKey(key.get(), "", native::kKeyRead, &same), ERROR_SUCCESS);
  EXPECT_EQ(GetString(same, "x"), "value");
  EXPECT_EQ(native::CloseRegKey(same), ERROR_SUCCESS);
}

TEST(Registry, QueryReportsTypeAndSizeWithTerminator) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  ASSERT_EQ(SetString(key.get(), "errorfile", "C:\\trace.log"), ERROR_SUCCESS);
  DWORD type = 0, size = 0;
  // No buffer: the size needed, terminator included.
  ASSERT_EQ(native::QueryRegValue(key.get(), "errorfile", &type, nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, native::kRegSz);
  EXPECT_EQ(size, 13u);
  // A buffer too small: ERROR_MORE_DATA and the size needed.
  BYTE small[4];
  size = sizeof small;
  EXPECT_EQ(native::QueryRegValue(key.get(), "errorfile", &type, small, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, 13u);
  char buffer[32];
  size = sizeof buffer;
  ASSERT_EQ(native::QueryRegValue(key.get(), "errorfile", nullptr, reinterpret_cast<BYTE*>(buffer),
                                  &size),
            ERROR_SUCCESS);
  EXPECT_EQ(size, 13u);
  EXPECT_STREQ(buffer, "C:\\trace.log");
}

TEST(Registry, DwordAndBinaryValuesKeepTheirTypes) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  ASSERT_EQ(SetDword(key.get(), "count", 0xA1B2C3D4u), ERROR_SUCCESS);
  const BYTE blob[] = {0, 1, 2, 0xFE, 0xFF};
  ASSERT_EQ(native::SetRegValue(key.get(), "blob", native::kRegBinary, blob, sizeof blob),
            ERROR_SUCCESS);
  DWORD type = 0, value = 0, size = sizeof value;
  ASSERT_EQ(
      native::QueryRegValue(key.get(), "count", &type, reinterpret_cast<BYTE*>(&value), &size),
      ERROR_SUCCESS);
  EXPECT_EQ(type, native::kRegDword);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(value, 0xA1B2C3D4u);
  BYTE back[16];
  size = sizeof back;
  ASSERT_EQ(native::QueryRegValue(key.get(), "blob", &type, back, &size), ERROR_SUCCESS);
  EXPECT_EQ(type, native::kRegBinary);
  ASSERT_EQ(size, sizeof blob);
  EXPECT_EQ(std::memcmp(back, blob, sizeof blob), 0);
}

TEST(Registry, DefaultValueHasTheEmptyName) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  ASSERT_EQ(SetString(key.get(), nullptr, "default"), ERROR_SUCCESS);
  EXPECT_EQ(GetString(key.get(), ""), "default");
  EXPECT_EQ(GetString(key.get(), nullptr), "default");
}

TEST(Registry, MissingValueIsFileNotFound) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  DWORD size = 0;
  EXPECT_EQ(native::QueryRegValue(key.get(), "nothing", nullptr, nullptr, &size),
            ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(native::DeleteRegValue(key.get(), "nothing"), ERROR_FILE_NOT_FOUND);
}

TEST(Registry, AwkwardTextRoundTrips) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  const std::string samples[] = {
      "say \"hello\"",
      "C:\\Program Files\\Varnel\\",
      "two\nlines\r\nand a tab\t",
      "caf\xC3\xA9 \xE9\xE8\xFC \xC0\xFF",
      "",
  };
  int i = 0;
  for (const std::string& s : samples) {
    std::string name = "v" + std::to_string(i++);
    ASSERT_EQ(SetString(key.get(), name.c_str(), s), ERROR_SUCCESS);
  }
  // Read back through a new handle, after everything was written.
  RegKey again = nullptr;
  ASSERT_EQ(native::OpenRegKey(native::kRegCurrentUser, registry.KeyPath().c_str(),
                               native::kKeyRead, &again),
            ERROR_SUCCESS);
  i = 0;
  for (const std::string& s : samples) {
    SCOPED_TRACE(i);
    std::string name = "v" + std::to_string(i++);
    EXPECT_EQ(GetString(again, name.c_str()), s);
  }
  native::CloseRegKey(again);
}

TEST(Registry, SubKeysEnumerateInNameOrderIgnoringCase) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  for (const char* name : {"delta", "Alpha", "charlie", "Bravo"}) {
    RegKey sub = nullptr;
    ASSERT_EQ(native::CreateRegKey(key.get(), name, nullptr, native::kKeyAllAccess, &sub, nullptr),
              ERROR_SUCCESS);
    native::CloseRegKey(sub);
  }
  std::vector<std::string> names;
  for (DWORD i = 0;; ++i) {
    char name[64];
    DWORD size = sizeof name;
    LONG rc = native::EnumRegKey(key.get(), i, name, &size);
    if (rc == ERROR_NO_MORE_ITEMS)
      break;
    ASSERT_EQ(rc, ERROR_SUCCESS);
    EXPECT_EQ(size, std::strlen(name));
    names.push_back(name);
  }
  EXPECT_EQ(names, (std::vector<std::string>{"Alpha", "Bravo", "charlie", "delta"}));
  char tiny[3];
  DWORD size = sizeof tiny;
  EXPECT_EQ(native::EnumRegKey(key.get(), 0, tiny, &size), ERROR_MORE_DATA);
}

TEST(Registry, ValuesEnumerateWithNameTypeAndData) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  ASSERT_EQ(SetString(key.get(), "a", "text"), ERROR_SUCCESS);
  ASSERT_EQ(SetDword(key.get(), "b", 7), ERROR_SUCCESS);
  DWORD subKeys = 9, values = 0, maxName = 0, maxData = 0;
  ASSERT_EQ(native::QueryRegKeyInfo(key.get(), &subKeys, nullptr, &values, &maxName, &maxData),
            ERROR_SUCCESS);
  EXPECT_EQ(subKeys, 0u);
  EXPECT_EQ(values, 2u);
  // Windows reports the longest lengths as it stores them (UTF-16), which is
  // an upper bound of what the "A" calls return.
  EXPECT_GE(maxName, 1u);
  EXPECT_GE(maxData, 5u);
  char name[16];
  BYTE data[16];
  DWORD nameSize = sizeof name, dataSize = sizeof data, type = 0;
  ASSERT_EQ(native::EnumRegValue(key.get(), 0, name, &nameSize, &type, data, &dataSize),
            ERROR_SUCCESS);
  EXPECT_STREQ(name, "a");
  EXPECT_EQ(nameSize, 1u);
  EXPECT_EQ(type, native::kRegSz);
  EXPECT_EQ(dataSize, 5u);
  nameSize = sizeof name;
  dataSize = sizeof data;
  ASSERT_EQ(native::EnumRegValue(key.get(), 1, name, &nameSize, &type, data, &dataSize),
            ERROR_SUCCESS);
  EXPECT_STREQ(name, "b");
  EXPECT_EQ(type, native::kRegDword);
  nameSize = sizeof name;
  EXPECT_EQ(native::EnumRegValue(key.get(), 2, name, &nameSize, &type, data, &dataSize),
            ERROR_NO_MORE_ITEMS);
}

TEST(Registry, DeleteKeyRefusesKeysWithSubKeys) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry, "Parent\\Child");
  ASSERT_EQ(key.rc(), ERROR_SUCCESS);
  std::string parent = registry.KeyPath() + "\\Parent";
  EXPECT_EQ(native::DeleteRegKey(native::kRegCurrentUser, parent.c_str()), ERROR_ACCESS_DENIED);
  std::string child = parent + "\\Child";
  EXPECT_EQ(native::DeleteRegKey(native::kRegCurrentUser, child.c_str()), ERROR_SUCCESS);
  EXPECT_EQ(native::DeleteRegKey(native::kRegCurrentUser, parent.c_str()), ERROR_SUCCESS);
  RegKey gone = nullptr;
  EXPECT_EQ(native::OpenRegKey(native::kRegCurrentUser, parent.c_str(), native::kKeyRead, &gone),
            ERROR_FILE_NOT_FOUND);
}

TEST(Registry, DeleteTreeRemovesEverythingBelow) {
  qvbase::test::ScratchRegistry registry;
  {
    ScratchKey deep(registry, "T\\U\\V");
    ASSERT_EQ(SetString(deep.get(), "x", "y"), ERROR_SUCCESS);
  }
  std::string t = registry.KeyPath() + "\\T";
  EXPECT_EQ(native::DeleteRegTree(native::kRegCurrentUser, t.c_str()), ERROR_SUCCESS);
  RegKey gone = nullptr;
  EXPECT_EQ(native::OpenRegKey(native::kRegCurrentUser, t.c_str(), native::kKeyRead, &gone),
            ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(native::DeleteRegTree(native::kRegCurrentUser, t.c_str()), ERROR_FILE_NOT_FOUND);
}

TEST(Registry, HandleOfADeletedKeyReportsKeyDeleted) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry, "Doomed");
  ASSERT_EQ(key.rc(), ERROR_SUCCESS);
  std::string path = registry.KeyPath() + "\\Doomed";
  ASSERT_EQ(native::DeleteRegKey(native::kRegCurrentUser, path.c_str()), ERROR_SUCCESS);
  EXPECT_EQ(SetString(key.get(), "x", "y"), ERROR_KEY_DELETED);
}

TEST(Registry, ReadOnlyHandleCannotWrite) {
  qvbase::test::ScratchRegistry registry;
  { ScratchKey create(registry); }
  RegKey key = nullptr;
  ASSERT_EQ(native::OpenRegKey(native::kRegCurrentUser, registry.KeyPath().c_str(),
                               native::kKeyRead, &key),
            ERROR_SUCCESS);
  EXPECT_EQ(SetString(key, "x", "y"), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(native::RegLastErrorText().empty());
  native::CloseRegKey(key);
}

// Child role: writes `count` values "<prefix>-<i>" into the key, one call each.
int WriterRole(const std::vector<std::string>& args) {
  if (args.size() < 3)
    return 98;
  const std::string& keyPath = args[0];
  const std::string& prefix = args[1];
  int count = std::stoi(args[2]);
  RegKey key = nullptr;
  if (native::CreateRegKey(native::kRegCurrentUser, keyPath.c_str(), nullptr, native::kKeyAllAccess,
                           &key, nullptr) != ERROR_SUCCESS)
    return 2;
  for (int i = 0; i < count; ++i) {
    std::string name = prefix + "-" + std::to_string(i);
    if (SetDword(key, name.c_str(), static_cast<DWORD>(i)) != ERROR_SUCCESS)
      return 3;
  }
  native::CloseRegKey(key);
  return 0;
}
const bool kWriterRegistered = qvbase::test::RegisterChildRole("registry-writer", WriterRole);

TEST(Registry, ConcurrentWritersInTwoProcessesLoseNothing) {
  ASSERT_TRUE(kWriterRegistered);
  qvbase::test::ScratchRegistry registry;
  const int kCount = 60;
  std::vector<native::Process> writers;
  for (const char* prefix : {"first", "second"})
    writers.push_back(
        native::SpawnProcess({qvbase::test::SelfPath(), "--qvtest-child", "registry-writer",
                              registry.KeyPath(), prefix, std::to_string(kCount)}));
  for (native::Process p : writers) {
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(native::WaitProcess(p), 0);
  }
  ScratchKey key(registry);
  DWORD values = 0;
  ASSERT_EQ(native::QueryRegKeyInfo(key.get(), nullptr, nullptr, &values, nullptr, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(values, 2u * kCount);
  for (const char* prefix : {"first", "second"}) {
    for (int i = 0; i < kCount; ++i) {
      std::string name = std::string(prefix) + "-" + std::to_string(i);
      DWORD value = 0, size = sizeof value;
      ASSERT_EQ(native::QueryRegValue(key.get(), name.c_str(), nullptr,
                                      reinterpret_cast<BYTE*>(&value), &size),
                ERROR_SUCCESS)
          << name;
      EXPECT_EQ(value, static_cast<DWORD>(i));
    }
  }
}

#if !defined(_WIN32)

TEST(RegistryStore, WritesGoToTheFileNamedByTheEnvironment) {
  qvbase::test::ScratchRegistry registry;
  EXPECT_EQ(native::RegStoreDescription(), registry.StoreFile());
  EXPECT_FALSE(qvbase::test::FileExists(registry.StoreFile()));
  ScratchKey key(registry);
  ASSERT_EQ(SetString(key.get(), "errorfile", "/tmp/trace.log"), ERROR_SUCCESS);
  std::string text = qvbase::test::ReadFile(registry.StoreFile());
  EXPECT_EQ(text.rfind("Windows Registry Editor Version 5.00\n", 0), 0u);
  EXPECT_NE(text.find("\"errorfile\"=\"/tmp/trace.log\"\n"), std::string::npos);
}

TEST(RegistryStore, DefaultLocationIsUnderTheConfigDirectory) {
  qvbase::test::ScopedEnv noStore("QVBASE_REGISTRY", nullptr);
  {
    qvbase::test::ScopedEnv xdg("XDG_CONFIG_HOME", "/some/config");
    EXPECT_EQ(native::RegStoreDescription(), "/some/config/qvbase/registry.reg");
  }
  qvbase::test::ScopedEnv noXdg("XDG_CONFIG_HOME", nullptr);
  qvbase::test::ScopedEnv home("HOME", "/home/someone");
  EXPECT_EQ(native::RegStoreDescription(), "/home/someone/.config/qvbase/registry.reg");
}

TEST(RegistryStore, MissingDirectoriesAreCreatedOnFirstWrite) {
  qvbase::test::TempDir dir;
  std::string store = dir.File("a/b/registry.reg");
  qvbase::test::ScopedEnv env("QVBASE_REGISTRY", store.c_str());
  RegKey key = nullptr;
  ASSERT_EQ(native::CreateRegKey(native::kRegLocalMachine, "Software\\Varnel\\Config", nullptr,
                                 native::kKeyAllAccess, &key, nullptr),
            ERROR_SUCCESS);
  native::CloseRegKey(key);
  EXPECT_TRUE(qvbase::test::FileExists(store));
}

TEST(RegistryStore, WritesReplaceTheFileWholeAndLeaveNoTemporaries) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  for (int i = 0; i < 5; ++i)
    ASSERT_EQ(SetDword(key.get(), ("n" + std::to_string(i)).c_str(), i), ERROR_SUCCESS);
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(fs::path(registry.StoreFile()).parent_path()))
    files.push_back(entry.path().filename().string());
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"registry.reg", "registry.reg.lock"}));
}

TEST(RegistryStore, WritesKeepTheFilePermissions) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  ASSERT_EQ(SetDword(key.get(), "a", 1), ERROR_SUCCESS);
  namespace fs = std::filesystem;
  fs::permissions(registry.StoreFile(), fs::perms::owner_read | fs::perms::owner_write);
  ASSERT_EQ(SetDword(key.get(), "b", 2), ERROR_SUCCESS);
  EXPECT_EQ(fs::status(registry.StoreFile()).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
}

// A store that does not parse fails every call, names file and line, and is
// left byte for byte as it was.
TEST(RegistryStore, MalformedOrTruncatedStoreIsReportedAndLeftUntouched) {
  struct Row {
    const char* what;
    std::string bytes;
    const char* where;
  };
  const Row rows[] = {
      {"truncated mid-line",
       "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\Software]\n\"x\"=\"ab", ":4: "},
      {"bad data",
       "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\Software]\n\"x\"=dword:zz\n",
       ":4: "},
      {"no header", "[HKEY_CURRENT_USER\\Software]\n", ":1: "},
      {"empty", "", ":1: "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    qvbase::test::ScratchRegistry registry;
    qvbase::test::WriteFile(registry.StoreFile(), row.bytes);
    RegKey key = nullptr;
    EXPECT_EQ(native::CreateRegKey(native::kRegCurrentUser, "Software\\New", nullptr,
                                   native::kKeyAllAccess, &key, nullptr),
              ERROR_BADDB);
    std::string text = native::RegLastErrorText();
    EXPECT_NE(text.find(registry.StoreFile() + row.where), std::string::npos) << text;
    EXPECT_EQ(native::OpenRegKey(native::kRegCurrentUser, "Software", native::kKeyRead, &key),
              ERROR_BADDB);
    EXPECT_EQ(native::DeleteRegTree(native::kRegCurrentUser, "Software"), ERROR_BADDB);
    EXPECT_EQ(qvbase::test::ReadFile(registry.StoreFile()), row.bytes);
  }
}

TEST(RegistryStore, ForeignHandlesAreRejected) {
  qvbase::test::ScratchRegistry registry;
  int notAKey = 0;
  RegKey bogus = reinterpret_cast<RegKey>(&notAKey);
  DWORD size = 0;
  EXPECT_EQ(native::QueryRegValue(bogus, "x", nullptr, nullptr, &size), ERROR_INVALID_HANDLE);
  EXPECT_EQ(native::CloseRegKey(bogus), ERROR_INVALID_HANDLE);
  EXPECT_EQ(native::CloseRegKey(nullptr), ERROR_INVALID_HANDLE);
  EXPECT_EQ(native::CloseRegKey(native::kRegLocalMachine), ERROR_SUCCESS);
}

TEST(RegistryStore, ValueNamesWithLineBreaksAreRefused) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  EXPECT_EQ(SetDword(key.get(), "two\nlines", 1), ERROR_INVALID_PARAMETER);
}

TEST(RegistryStore, KeysNestAtMost512DeepCountingTheParent) {
  qvbase::test::ScratchRegistry registry;
  std::string half = "k";
  for (int i = 1; i < 256; ++i)
    half += "\\k";
  RegKey parent = nullptr, child = nullptr;
  ASSERT_EQ(native::CreateRegKey(native::kRegCurrentUser, half.c_str(), nullptr,
                                 native::kKeyAllAccess, &parent, nullptr),
            ERROR_SUCCESS);
  // 256 below the parent's 256: the deepest allowed.
  EXPECT_EQ(
      native::CreateRegKey(parent, half.c_str(), nullptr, native::kKeyAllAccess, &child, nullptr),
      ERROR_SUCCESS);
  native::CloseRegKey(child);
  std::string deeper = half + "\\k";
  EXPECT_EQ(
      native::CreateRegKey(parent, deeper.c_str(), nullptr, native::kKeyAllAccess, &child, nullptr),
      ERROR_BAD_PATHNAME);
  native::CloseRegKey(parent);
  // The store still reads.
  EXPECT_EQ(native::OpenRegKey(native::kRegCurrentUser, half.c_str(), native::kKeyRead, &parent),
            ERROR_SUCCESS);
  native::CloseRegKey(parent);
  native::DeleteRegTree(native::kRegCurrentUser, "k");
}

TEST(RegistryStore, HivesCannotBeDeleted) {
  qvbase::test::ScratchRegistry registry;
  EXPECT_EQ(native::DeleteRegKey(native::kRegLocalMachine, ""), ERROR_ACCESS_DENIED);
}

// A store that was a symbolic link used to be replaced by a regular file.
TEST(RegistryStore, AStoreThatIsALinkIsWrittenThroughTheLink) {
  namespace fs = std::filesystem;
  qvbase::test::TempDir dir;
  fs::create_directory(dir.File("real"));
  const std::string target = dir.File("real/registry.reg");
  const std::string link = dir.File("registry.reg");
  fs::create_symlink("real/registry.reg", link); // relative, and not there yet
  qvbase::test::ScopedEnv env("QVBASE_REGISTRY", link.c_str());
  RegKey key = nullptr;
  ASSERT_EQ(native::CreateRegKey(native::kRegCurrentUser, "Software\\Linked", nullptr,
                                 native::kKeyAllAccess, &key, nullptr),
            ERROR_SUCCESS);
  ASSERT_EQ(SetString(key, "name", "first"), ERROR_SUCCESS);
  ASSERT_EQ(SetString(key, "name", "second"), ERROR_SUCCESS);
  EXPECT_EQ(GetString(key, "name"), "second");
  native::CloseRegKey(key);
  EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link)));
  EXPECT_EQ(fs::read_symlink(link), fs::path("real/registry.reg"));
  EXPECT_NE(qvbase::test::ReadFile(target).find("\"name\"=\"second\""), std::string::npos);
  // The lock and the temporary file are the target's, beside it.
  EXPECT_TRUE(qvbase::test::FileExists(target + ".lock"));
  EXPECT_FALSE(qvbase::test::FileExists(target + ".tmp"));
}

TEST(RegistryStore, RepeatedReadsOfAnUnchangedStoreParseItOnce) {
  qvbase::test::ScratchRegistry registry;
  ScratchKey key(registry);
  ASSERT_EQ(SetString(key.get(), "name", "value"), ERROR_SUCCESS);
  const DWORD before = native::RegStoreParses();
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(GetString(key.get(), "name"), "value");
  // A change made here is known without reading it back.
  ASSERT_EQ(SetString(key.get(), "name", "again"), ERROR_SUCCESS);
  EXPECT_EQ(GetString(key.get(), "name"), "again");
  EXPECT_EQ(native::RegStoreParses(), before);
  // A change made by hand, in place and the same size, is read again.
  std::string text = qvbase::test::ReadFile(registry.StoreFile());
  text.replace(text.find("again"), 5, "other");
  qvbase::test::WriteFile(registry.StoreFile(), text);
  EXPECT_EQ(GetString(key.get(), "name"), "other");
  EXPECT_EQ(native::RegStoreParses(), before + 1);
  EXPECT_EQ(GetString(key.get(), "name"), "other");
  EXPECT_EQ(native::RegStoreParses(), before + 1);
}

// Error texts used to quote an over-long name whole.
TEST(RegistryStore, ErrorsQuoteAtMostAFewDozenCharactersOfAnOverLongName) {
  qvbase::test::ScratchRegistry registry;
  const std::string longName(5000, 'k');
  qvbase::test::WriteFile(registry.StoreFile(), "Windows Registry Editor Version 5.00\n\n"
                                                "[HKEY_CURRENT_USER\\" +
                                                    longName + "]\n");
  RegKey key = nullptr;
  EXPECT_EQ(native::OpenRegKey(native::kRegCurrentUser, "Software", native::kKeyRead, &key),
            ERROR_BADDB);
  const std::string text = native::RegLastErrorText();
  EXPECT_NE(text.find("invalid key name \"HKEY_CURRENT_USER\\kkk"), std::string::npos) << text;
  EXPECT_NE(text.find("...\" (5018 bytes)"), std::string::npos) << text;
  EXPECT_LT(text.size(), registry.StoreFile().size() + 120) << text;
}

// Child role: sets one large value, for the test that stops it part way.
int LargeChangeRole(const std::vector<std::string>& args) {
  if (args.size() < 2)
    return 98;
  RegKey key = nullptr;
  if (native::CreateRegKey(native::kRegCurrentUser, args[0].c_str(), nullptr, native::kKeyAllAccess,
                           &key, nullptr) != ERROR_SUCCESS)
    return 2;
  const std::string data(std::stoul(args[1]), 'n');
  if (SetString(key, "large", data) != ERROR_SUCCESS)
    return 3;
  native::CloseRegKey(key);
  return 0;
}
const bool kLargeChangeRegistered =
    qvbase::test::RegisterChildRole("registry-large-change", LargeChangeRole);

// A writer killed at every step of a change in turn: the store is always
// the old content or the new, never torn, and the lock is free for the next
// writer.
TEST(RegistryStore, AWriterKilledAtAnyStepLeavesTheOldOrTheNewStore) {
  ASSERT_TRUE(kLargeChangeRegistered);
  qvbase::test::ScratchRegistry registry;
  const std::string size = "20000"; // five steps of writing, as UTF-16 hex far more
  {
    ScratchKey key(registry);
    ASSERT_EQ(SetString(key.get(), "large", std::string(20000, 'o')), ERROR_SUCCESS);
  }
  const std::string before = qvbase::test::ReadFile(registry.StoreFile());
  std::string after;
  int stops = 0;
  for (int step = 1; step < 1000; ++step) {
    SCOPED_TRACE("stopped at step " + std::to_string(step));
    qvbase::test::WriteFile(registry.StoreFile(), before);
    int status = -1;
    {
      qvbase::test::ScopedEnv stop("QVBASE_REGISTRY_TEST_STOP_AT", std::to_string(step).c_str());
      native::Process child =
          native::SpawnProcess({qvbase::test::SelfPath(), "--qvtest-child", "registry-large-change",
                                registry.KeyPath(), size});
      ASSERT_NE(child, nullptr);
      status = native::WaitProcess(child);
    }
    const std::string now = qvbase::test::ReadFile(registry.StoreFile());
    if (status == 0) {
      after = now; // past the last step: the change is whole
      break;
    }
    ++stops;
    EXPECT_EQ(status, -1) << "the writer ended otherwise than killed";
    EXPECT_TRUE(now == before || now.find(std::string(20000, 'n')) != std::string::npos)
        << "a torn store";
    // The lock is free and the store reads: a change here goes through.
    ScratchKey key(registry);
    ASSERT_EQ(SetDword(key.get(), "after", static_cast<DWORD>(step)), ERROR_SUCCESS);
  }
  EXPECT_NE(after.find(std::string(20000, 'n')), std::string::npos);
  // The lock, the store read, the temporary file, its 4 KiB steps, the flush,
  // the rename, the directory.
  EXPECT_GT(stops, 10);
  std::cout << "[ figures  ] writer killed at " << stops
            << " steps of one change: the store was the old or the new one each time\n";
}

#endif // !_WIN32

// Child role: 200 changes, each to the shared key (a value of its own and a
// value every writer sets) and to a key of its own.
int ContendingWriterRole(const std::vector<std::string>& args) {
  if (args.size() < 3)
    return 98;
  const std::string& base = args[0];
  const std::string& writer = args[1];
  const int count = std::stoi(args[2]);
  RegKey shared = nullptr, own = nullptr;
  if (native::CreateRegKey(native::kRegCurrentUser, (base + "\\shared").c_str(), nullptr,
                           native::kKeyAllAccess, &shared, nullptr) != ERROR_SUCCESS ||
      native::CreateRegKey(native::kRegCurrentUser, (base + "\\" + writer).c_str(), nullptr,
                           native::kKeyAllAccess, &own, nullptr) != ERROR_SUCCESS)
    return 2;
  for (int i = 0; i < count; ++i) {
    const std::string name = writer + "-" + std::to_string(i);
    LONG rc = ERROR_SUCCESS;
    switch (i % 3) {
    case 0:
      rc = SetDword(shared, name.c_str(), static_cast<DWORD>(i));
      break;
    case 1:
      rc = SetString(shared, "last", name);
      break;
    default:
      rc = SetDword(own, name.c_str(), static_cast<DWORD>(i));
      break;
    }
    if (rc != ERROR_SUCCESS)
      return 3;
  }
  native::CloseRegKey(shared);
  native::CloseRegKey(own);
  return 0;
}
const bool kContendingRegistered =
    qvbase::test::RegisterChildRole("registry-contending", ContendingWriterRole);

TEST(Registry, EightWritersOfTwoHundredChangesEachLoseNothing) {
  ASSERT_TRUE(kContendingRegistered);
  qvbase::test::ScratchRegistry registry;
  const int kWriters = 8, kChanges = 200;
  std::vector<native::Process> writers;
  for (int w = 0; w < kWriters; ++w)
    writers.push_back(native::SpawnProcess({qvbase::test::SelfPath(), "--qvtest-child",
                                            "registry-contending", registry.KeyPath(),
                                            "w" + std::to_string(w), std::to_string(kChanges)}));
  for (native::Process p : writers) {
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(native::WaitProcess(p), 0);
  }
  ScratchKey shared(registry, "shared");
  DWORD values = 0;
  ASSERT_EQ(native::QueryRegKeyInfo(shared.get(), nullptr, nullptr, &values, nullptr, nullptr),
            ERROR_SUCCESS);
  int expectedShared = 1; // "last"
  for (int w = 0; w < kWriters; ++w) {
    ScratchKey own(registry, "w" + std::to_string(w));
    for (int i = 0; i < kChanges; ++i) {
      const std::string name = "w" + std::to_string(w) + "-" + std::to_string(i);
      if (i % 3 == 1)
        continue;
      RegKey where = i % 3 == 0 ? shared.get() : own.get();
      expectedShared += i % 3 == 0;
      DWORD value = 0, size = sizeof value;
      EXPECT_EQ(native::QueryRegValue(where, name.c_str(), nullptr, reinterpret_cast<BYTE*>(&value),
                                      &size),
                ERROR_SUCCESS)
          << name;
      EXPECT_EQ(value, static_cast<DWORD>(i)) << name;
    }
  }
  EXPECT_EQ(values, static_cast<DWORD>(expectedShared));
  // The shared value holds one writer's last setting of it.
  const std::string last = GetString(shared.get(), "last");
  bool someWritersLast = false;
  for (int w = 0; w < kWriters; ++w)
    someWritersLast = someWritersLast || last == "w" + std::to_string(w) + "-199";
  EXPECT_TRUE(someWritersLast) << last;
}

} // namespace

// Components: the type-code table, the default resource file a component
// records, the calls a component makes to the registry, the enumerations,
// and the operating-system component.
#include <qvbase/PComponent.h>

#include <qvbase/PMBString.h>

#include "components/SystemInfoSource.h"
#include "native/Process.h"
#include "native/Registry.h"
#include "native/SystemInfo.h"
#include "support/ComponentTestSupport.h"
#include "support/RecordingComponentRegistry.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace native = qvbase::native;
using qvbase::test::RecordingComponentRegistry;
typedef std::vector<std::string> Calls;

std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }

using qvbase::test::ComponentKeys;
using qvbase::test::MachineText;

// --- The type-code table ---------------------------------------------------

TEST(PComponentFile, TypeCodeFromTextLooksAtTheFirstLetterOnly) {
  struct Row {
    const char* text;
    ULONG code;
  } const rows[] = {
      {"DLL", 1},
      {"dll", 1},
      {"Dynamic", 1},
      {"SERVER", 3},
      {"server", 3},
      {"System", 3},
      {"system", 3},
      {"EXE", 13},
      {"exe", 13},
      {"OCX", 0x40000003},
      {"o", 0x40000003},
      {"RES", 0x80000000},
      {"res", 0x80000000},
      {"X", 0},
      {"", 0},
      {"1", 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(PComponentFile::TypeCodeFromText(row.text), row.code);
  }
  EXPECT_EQ(PComponentFile::TypeCodeFromText(nullptr), 0u);
}

TEST(PComponentFile, TypeTextFromCodeNamesEachCode) {
  struct Row {
    ULONG code;
    const char* text;
  } const rows[] = {
      {1, "DLL"},          {3, "SERVER"},       {7, "SERVER"},       {13, "EXE"}, {16, "System"},
      {0x40000003, "OCX"}, {0x40000007, "OCX"}, {0x80000000, "RES"}, {0, ""},     {2, ""},
      {0x40000000, ""},    {0xFFFFFFFF, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.code);
    EXPECT_STREQ(PComponentFile::TypeTextFromCode(row.code), row.text);
  }
}

TEST(PComponentFile, TypeTableKeepsBothAsymmetries) {
  // Deliberate and kept: "System" reads back as SERVER's code, and the code
  // of "System" is never produced from a text.
  EXPECT_EQ(PComponentFile::TypeCodeFromText("system"), 3u);
  EXPECT_STREQ(PComponentFile::TypeTextFromCode(3), "SERVER");
  EXPECT_STREQ(PComponentFile::TypeTextFromCode(16), "System");
  EXPECT_EQ(PComponentFile::TypeCodeFromText(nullptr), 0u);
  EXPECT_STREQ(PComponentFile::TypeTextFromCode(0), "");
}

// --- Recording the default resource file -----------------------------------

TEST(PComponent, ADefaultResourceDllIsRecordedAsDefResFile) {
  qvbase::test::ScratchRegistry registry;
  ComponentKeys keys("DefaultResDll");
  PComponent component("Components", "DefaultResDll", 2, 5, "Res.DLL");
  ASSERT_NE(component.Handle(), nullptr);
  EXPECT_EQ(MachineText(keys.Resources("2.5"), "DefResFile"), "Res.DLL");
  EXPECT_EQ(MachineText(keys.Resources("2.5") + "\\ResourceSets", nullptr), "<missing>");
}

TEST(PComponent, AnyOtherDefaultResourceFileIsRecordedAsAResourceSet) {
  qvbase::test::ScratchRegistry registry;
  for (const char* file : {"Res.rsc", "Res", "Res.dll.bak"}) {
    SCOPED_TRACE(file);
    ComponentKeys keys("DefaultResSet");
    PComponent component("Components", "DefaultResSet", 3, 0, file);
    ASSERT_NE(component.Handle(), nullptr);
    EXPECT_EQ(MachineText(keys.Resources("3.0") + "\\ResourceSets", nullptr),
              std::string("DefaultResSet 3.0,") + file);
    EXPECT_EQ(MachineText(keys.Resources("3.0"), "DefResFile"), "<missing>");
  }
}

TEST(PComponent, ARecordedResourceFileOfAnotherTextIsReplaced) {
  qvbase::test::ScratchRegistry registry;
  ComponentKeys keys("Rerecorded");
  { PComponent first("Components", "Rerecorded", 1, 0, "Old.dll"); }
  PComponent second("Components", "Rerecorded", 1, 0, "New.dll");
  EXPECT_EQ(MachineText(keys.Resources("1.0"), "DefResFile"), "New.dll");
}

#if !defined(_WIN32)
TEST(PComponent, AResourceFileAlreadyRecordedLeavesTheStoreUntouched) {
  namespace fs = std::filesystem;
  qvbase::test::ScratchRegistry registry;
  ComponentKeys keys("Untouched");
  { PComponent first("Components", "Untouched", 1, 0, "Same.dll"); }
  { PComponent first("Components", "Untouched", 1, 0, "Other.rsc"); }
  // A rewrite replaces the store by a new file: the link would then name
  // the old one.
  std::string link = registry.StoreFile() + ".link";
  fs::create_hard_link(registry.StoreFile(), link);
  auto written = fs::last_write_time(registry.StoreFile());
  { PComponent again("Components", "Untouched", 1, 0, "Other.rsc"); }
  EXPECT_TRUE(fs::equivalent(registry.StoreFile(), link));
  EXPECT_EQ(fs::last_write_time(registry.StoreFile()), written);
  fs::remove(link);
}
#endif

TEST(PComponent, RecordingADllAsksTheRegistryForTheResourcesPath) {
  RecordingComponentRegistry recorder;
  qvbase::test::ScratchRegistry registry;
  recorder.registryPath = registry.KeyPath() + "\\Recorded";
  {
    PComponent component("Components", "Recorded", 1, 2, "Recorded.dll");
    EXPECT_EQ(recorder.calls, (Calls{"ObtainAComponent(Recorded,1,2)",
                                     "GetComponentRegistryPath(c0,0x80000001,256)"}));
  }
  native::RegKey key = nullptr;
  ASSERT_EQ(native::OpenRegKey(native::kRegLocalMachine, recorder.registryPath.c_str(),
                               native::kKeyRead, &key),
            ERROR_SUCCESS);
  native::CloseRegKey(key);
  EXPECT_EQ(MachineText(recorder.registryPath, "DefResFile"), "Recorded.dll");
  native::DeleteRegTree(native::kRegLocalMachine, recorder.registryPath.c_str());
  native::DeleteRegKey(native::kRegLocalMachine, recorder.registryPath.c_str());
}

TEST(PComponent, RecordingAResourceSetAlsoAsksForTheComponentText) {
  RecordingComponentRegistry recorder;
  qvbase::test::ScratchRegistry registry;
  recorder.registryPath = registry.KeyPath() + "\\RecordedSet";
  {
    PComponent component("Components", "Recorded", 1, 2, "Recorded.res");
    EXPECT_EQ(recorder.calls,
              (Calls{"ObtainAComponent(Recorded,1,2)",
                     "GetComponentRegistryPath(c0,0x80000001,256)", "GetComponentString(c0,512)"}));
  }
  EXPECT_EQ(MachineText(recorder.registryPath + "\\ResourceSets", nullptr),
            "Recorded 1.2,Recorded.res");
  native::DeleteRegTree(native::kRegLocalMachine, recorder.registryPath.c_str());
  native::DeleteRegKey(native::kRegLocalMachine, recorder.registryPath.c_str());
}

TEST(PComponent, NothingIsRecordedWithoutAComponentOrAPath) {
  RecordingComponentRegistry recorder;
  qvbase::test::ScratchRegistry registry;
  recorder.registryPath = registry.KeyPath() + "\\NotRecorded";
  recorder.failing = {"ObtainAComponent"};
  {
    PComponent component("Components", "Recorded", 1, 2, "Recorded.dll");
    EXPECT_EQ(component.Handle(), nullptr);
    EXPECT_EQ(recorder.calls, (Calls{"ObtainAComponent(Recorded,1,2)"}));
  }
  recorder.failing = {"GetComponentRegistryPath"};
  recorder.Clear();
  {
    PComponent component("Components", "Recorded", 1, 2, "Recorded.dll");
    // The handle is kept although the recording failed.
    EXPECT_EQ(component.Handle(), RecordingComponentRegistry::Component(0));
  }
  recorder.failing = {"GetComponentString"};
  { PComponent component("Components", "Recorded", 1, 2, "Recorded.res"); }
  native::RegKey key = nullptr;
  EXPECT_EQ(native::OpenRegKey(native::kRegLocalMachine, recorder.registryPath.c_str(),
                               native::kKeyRead, &key),
            ERROR_FILE_NOT_FOUND);
}

#if !defined(_WIN32)
TEST(PComponent, AStoreThatCannotBeReadOrWrittenLeavesTheComponentWorking) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::WriteFile(registry.StoreFile(), "this is not a registry file\n");
  PComponent component("Components", "Unrecordable", 1, 0, "Unrecordable.dll");
  EXPECT_NE(component.Handle(), nullptr);
  EXPECT_EQ(std::string(component.Name()), "Unrecordable");
  EXPECT_EQ(qvbase::test::ReadFile(registry.StoreFile()), "this is not a registry file\n");
}
#endif

// --- The calls a component makes ---------------------------------------------

TEST(PComponent, ObtainsItsHandleAndGivesItBackWhenDestroyed) {
  RecordingComponentRegistry recorder;
  {
    PComponent component("Ignored category", "Recorded", 1, 2);
    EXPECT_EQ(component.Handle(), RecordingComponentRegistry::Component(0));
  }
  EXPECT_EQ(recorder.calls, (Calls{"ObtainAComponent(Recorded,1,2)", "Release(c0)"}));
}

TEST(PComponent, ARefusedComponentHasNoHandleAndStillReleasesZero) {
  RecordingComponentRegistry recorder;
  recorder.failing = {"ObtainAComponent"};
  {
    PComponent component("Components", "Refused", 1, 0);
    EXPECT_EQ(component.Handle(), nullptr);
    EXPECT_EQ(std::string(component.Name()), "");
    EXPECT_EQ(component.MajorVersion(), 0u);
  }
  EXPECT_EQ(recorder.calls.back(), "Release(0)");
}

TEST(PComponent, CopiesAndAssignmentsTakeTheirOwnReferences) {
  RecordingComponentRegistry recorder;
  PComponent empty(nullptr);
  EXPECT_EQ(recorder.calls, Calls{});
  {
    PComponent wrapped(RecordingComponentRegistry::Component(1));
    PComponent copy(wrapped);
    empty = copy;
    empty = empty;
  }
  EXPECT_EQ(recorder.calls, (Calls{"AddRef(c1)", "AddRef(c1)", "AddRef(c1)", "Release(0)",
                                   "AddRef(c1)", "Release(c1)", "Release(c1)", "Release(c1)"}));
  EXPECT_EQ(recorder.references[RecordingComponentRegistry::Component(1)], 1);
  EXPECT_EQ(empty.Handle(), RecordingComponentRegistry::Component(1));
}

TEST(PComponent, InfosGiveNameTypeAndVersions) {
  RecordingComponentRegistry recorder;
  recorder.componentName = "Infos";
  recorder.componentType = "Application";
  recorder.majorVersion = 7;
  recorder.minorVersion = 3;
  PComponent component(RecordingComponentRegistry::Component(0));
  EXPECT_EQ(std::string(component.Name()), "Infos");
  EXPECT_EQ(std::string(component.Type()), "Application");
  EXPECT_EQ(component.MajorVersion(), 7u);
  EXPECT_EQ(component.MinorVersion(), 3u);

  recorder.failing = {"GetComponentInfos"};
  EXPECT_EQ(std::string(component.Name()), "");
  EXPECT_EQ(std::string(component.Type()), "");
  EXPECT_EQ(component.MajorVersion(), 0u);
  EXPECT_EQ(component.MinorVersion(), 0u);
}

TEST(PComponent, DisplayNameAsksForTheSizeThenTheText) {
  RecordingComponentRegistry recorder;
  recorder.displayName = "Shown";
  PComponent component(RecordingComponentRegistry::Component(0));
  recorder.Clear();
  EXPECT_EQ(Text(component.DisplayName()), "Shown");
  EXPECT_EQ(recorder.calls,
            (Calls{"GetComponentDisplayName(c0,0,0)", "GetComponentDisplayName(c0,buffer,6)"}));
  recorder.failing = {"GetComponentDisplayName"};
  recorder.Clear();
  EXPECT_EQ(Text(component.DisplayName()), "");
  EXPECT_EQ(recorder.calls, Calls{"GetComponentDisplayName(c0,0,0)"});
}

TEST(PComponent, SetDisplayNamePassesTheMultibyteText) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  recorder.Clear();
  component.SetDisplayName(PString("Viewer 3"));
  EXPECT_EQ(recorder.calls, Calls{"SetComponentDisplayName(c0,Viewer 3)"});
}

TEST(PComponent, RegistryPathIsKindZeroOrTwo) {
  RecordingComponentRegistry recorder;
  recorder.registryPath = "Software\\Somewhere";
  PComponent component(RecordingComponentRegistry::Component(0));
  recorder.Clear();
  EXPECT_EQ(Text(component.GetRegistryPath(false)), "Software\\Somewhere");
  EXPECT_EQ(Text(component.GetRegistryPath(true)), "Software\\Somewhere");
  EXPECT_EQ(recorder.calls, (Calls{"GetComponentRegistryPath(c0,0x0,256)",
                                   "GetComponentRegistryPath(c0,0x2,256)"}));
  recorder.failing = {"GetComponentRegistryPath"};
  EXPECT_EQ(Text(component.GetRegistryPath(false)), "");
}

TEST(PComponent, ResourceHandleGoesToAndComesFromTheRegistry) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int module = 0;
  recorder.Clear();
  component.SetResHandle(&module);
  EXPECT_EQ(component.ObtainResHandle(), &module);
  ASSERT_EQ(recorder.calls.size(), 2u);
  EXPECT_EQ(recorder.calls[0].rfind("SetComponentResLocation(c0,", 0), 0u);
  EXPECT_EQ(recorder.calls[0].substr(recorder.calls[0].size() - 3), ",0)");
  EXPECT_EQ(recorder.calls[1], "GetComponentResLocation(c0,0)");
  recorder.failing = {"GetComponentResLocation"};
  EXPECT_EQ(component.ObtainResHandle(), nullptr);
}

// --- Enumerations -------------------------------------------------------------

struct FilesSeen {
  std::vector<void*> handles;
  bool goOn = true;
  static bool Record(const PComponentFile& file, void* context) {
    FilesSeen* seen = static_cast<FilesSeen*>(context);
    seen->handles.push_back(file.Handle());
    EXPECT_FALSE(file.IsRegistered());
    return seen->goOn;
  }
};

TEST(PComponent, EnumerateFilesGoesOnPastAPartWithoutAFile) {
  RecordingComponentRegistry recorder;
  recorder.parts = {RecordingComponentRegistry::Part(0), RecordingComponentRegistry::Part(1),
                    RecordingComponentRegistry::Part(2)};
  recorder.partsWithoutFile = {RecordingComponentRegistry::Part(1)};
  PComponent component(RecordingComponentRegistry::Component(0));
  recorder.Clear();
  FilesSeen seen;
  component.EnumerateFiles(FilesSeen::Record, &seen);
  EXPECT_EQ(seen.handles, (std::vector<void*>{RecordingComponentRegistry::File(0),
                                              RecordingComponentRegistry::File(2)}));
  EXPECT_EQ(
      recorder.calls,
      (Calls{"EnumRunningComponentParts(c0)", "ObtainBestComponentFileFromPart(p0)", "AddRef(f0)",
             "Release(f0)", "Release(f0)", "ObtainBestComponentFileFromPart(p1)",
             "ObtainBestComponentFileFromPart(p2)", "AddRef(f2)", "Release(f2)", "Release(f2)"}));
  EXPECT_EQ(recorder.references[RecordingComponentRegistry::File(0)], 0);
}

TEST(PComponent, EnumerateFilesStopsWhenTheCallbackSaysSo) {
  RecordingComponentRegistry recorder;
  recorder.parts = {RecordingComponentRegistry::Part(0), RecordingComponentRegistry::Part(1)};
  PComponent component(RecordingComponentRegistry::Component(0));
  FilesSeen seen;
  seen.goOn = false;
  component.EnumerateFiles(FilesSeen::Record, &seen);
  EXPECT_EQ(seen.handles, std::vector<void*>{RecordingComponentRegistry::File(0)});
}

TEST(PComponent, EnumerateFilesByTypePassesTheTypesCode) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  recorder.Clear();
  FilesSeen seen;
  component.EnumerateFilesByType("exe", FilesSeen::Record, &seen);
  EXPECT_EQ(recorder.calls.front(), "EnumRunningComponentPartsByType(c0,0xD)");
  EXPECT_EQ(seen.handles, std::vector<void*>{RecordingComponentRegistry::File(0)});
}

struct ComponentsSeen {
  std::vector<void*> handles;
  std::size_t limit = 100;
  static bool Record(const PComponent& component, void* context) {
    ComponentsSeen* seen = static_cast<ComponentsSeen*>(context);
    seen->handles.push_back(component.Handle());
    return seen->handles.size() < seen->limit;
  }
};

TEST(PComponent, GComponentEnumeratePassesEachComponentUntilTold) {
  RecordingComponentRegistry recorder;
  recorder.components = {RecordingComponentRegistry::Component(0),
                         RecordingComponentRegistry::Component(1)};
  ComponentsSeen all, first;
  GComponentEnumerate(ComponentsSeen::Record, &all);
  EXPECT_EQ(all.handles, recorder.components);
  EXPECT_EQ(recorder.calls, (Calls{"EnumRunningComponents()", "AddRef(c0)", "Release(c0)",
                                   "AddRef(c1)", "Release(c1)"}));
  first.limit = 1;
  recorder.Clear();
  GComponentEnumerateByName("Wanted", ComponentsSeen::Record, &first);
  EXPECT_EQ(first.handles, std::vector<void*>{RecordingComponentRegistry::Component(0)});
  EXPECT_EQ(recorder.calls.front(), "EnumRunningComponentsByName(Wanted)");
}

TEST(PComponent, GComponentEnumerateSeesTheLibrarysOwnComponent) {
  ComponentsSeen seen;
  GComponentEnumerateByName("qvkernel", ComponentsSeen::Record, &seen);
  EXPECT_EQ(seen.handles, std::vector<void*>{gQVKernelComponent.Handle()});
}

TEST(PComponent, ApplicationComponentWrapsAndGivesBackTheObtainedReference) {
  RecordingComponentRegistry recorder;
  {
    PComponent application = GGetApplicationComponent();
    EXPECT_EQ(application.Handle(), RecordingComponentRegistry::Component(0));
    EXPECT_EQ(recorder.calls, (Calls{"ObtainApplicationComponent()", "AddRef(c0)", "Release(c0)"}));
  }
  EXPECT_EQ(recorder.references[RecordingComponentRegistry::Component(0)], 0);
  recorder.failing = {"ObtainApplicationComponent"};
  EXPECT_EQ(GGetApplicationComponent().Handle(), nullptr);
}

// --- The operating system -------------------------------------------------------

TEST(WINSystemComponent, GlobalSystemComponentIsTheSystemObject) {
  EXPECT_EQ(gSystemComponent, static_cast<const PComponent*>(&gNSystemComponent));
  EXPECT_NE(gSystemComponent->Handle(), nullptr);
}

TEST(WINSystemComponent, NamesThePlatformWithTheSystemsVersion) {
  native::OsVersionInfo info{};
  info.dwOSVersionInfoSize = sizeof info;
  ASSERT_TRUE(native::QueryOsVersion(&info));
#if defined(_WIN32)
  EXPECT_EQ(std::string(gSystemComponent->Name()), "WinNT");
  EXPECT_TRUE(gNSystemComponent.IsNT());
#else
  EXPECT_EQ(std::string(gSystemComponent->Name()), native::PosixSystemName());
  EXPECT_FALSE(gNSystemComponent.IsNT());
#endif
  EXPECT_EQ(gSystemComponent->MajorVersion(), info.dwMajorVersion);
  EXPECT_EQ(gSystemComponent->MinorVersion(), info.dwMinorVersion);
  EXPECT_EQ(Text(gSystemComponent->DisplayName()), std::string(info.szCSDVersion));
}

TEST(WINSystemComponent, ConstructionObtainsTheComponentAndSetsTheServicePackText) {
  native::OsVersionInfo info{};
  info.dwOSVersionInfoSize = sizeof info;
  ASSERT_TRUE(native::QueryOsVersion(&info));
  const std::string name = std::string(gSystemComponent->Name());
  RecordingComponentRegistry recorder;
  {
    WINSystemComponent system;
    EXPECT_EQ(system.Handle(), RecordingComponentRegistry::Component(0));
  }
  EXPECT_EQ(
      recorder.calls,
      (Calls{"ObtainAComponent(" + name + "," + std::to_string(info.dwMajorVersion) + "," +
                 std::to_string(info.dwMinorVersion) + ")",
             "SetComponentDisplayName(c0," + std::string(info.szCSDVersion) + ")", "Release(c0)"}));
}

std::string ExpectedUserName() {
  DWORD size = 0;
  native::QueryUserName(nullptr, &size);
  std::vector<char> buffer(size + 1);
  if (native::QueryUserName(buffer.data(), &size) != ERROR_SUCCESS)
    return {};
  return buffer.data();
}

TEST(WINSystemComponent, UserNameIsFetchedOnceAndKept) {
  std::string expected = ExpectedUserName();
  ASSERT_FALSE(expected.empty());
  WINSystemComponent system;
  EXPECT_EQ(Text(system.UserName()), expected);
  EXPECT_EQ(Text(system.UserName()), expected);
  EXPECT_EQ(Text(gNSystemComponent.UserName()), expected);
}

// --- The operating system of a machine the test plays ---------------------------

// Answers the operating-system component's calls for as long as it lives,
// from the fields below, and records what it was asked. At its end the
// platform's calls are back and a component reads the real machine again,
// so that IsNT answers as it did before.
class PlayedMachine {
public:
  PlayedMachine() {
    theirCurrent = this;
    m_previous = qvbase::components::SetSystemInfoSource(&kSource);
  }
  ~PlayedMachine() {
    qvbase::components::SetSystemInfoSource(m_previous);
    theirCurrent = nullptr;
    WINSystemComponent readsTheRealMachine;
  }
  PlayedMachine(const PlayedMachine&) = delete;
  PlayedMachine& operator=(const PlayedMachine&) = delete;

  // The user name, or the error answered instead of it (ERROR_SUCCESS: the
  // name); with `alwaysMore` every buffer is too small.
  std::string userName = "player";
  LONG userNameError = ERROR_SUCCESS;
  bool alwaysMore = false;
  // The version record answered, or none when not readable.
  bool versionReadable = true;
  native::OsVersionInfo version{};

  // The buffer sizes the user name was asked with, and the version reads.
  std::vector<DWORD> userNameSizes;
  int versionReads = 0;

private:
  static LONG QueryUserName(char* buffer, DWORD* size) {
    PlayedMachine& self = *theirCurrent;
    self.userNameSizes.push_back(*size);
    if (self.userNameError != ERROR_SUCCESS)
      return self.userNameError;
    const DWORD needed = static_cast<DWORD>(self.userName.size() + 1);
    if (self.alwaysMore || *size < needed) {
      *size = self.alwaysMore ? *size * 2 : needed;
      return ERROR_MORE_DATA;
    }
    self.userName.copy(buffer, self.userName.size());
    buffer[self.userName.size()] = '\0';
    *size = needed;
    return ERROR_SUCCESS;
  }
  static bool QueryOsVersion(native::OsVersionInfo* info) {
    PlayedMachine& self = *theirCurrent;
    ++self.versionReads;
    if (!self.versionReadable)
      return false;
    const DWORD sizeWord = info->dwOSVersionInfoSize;
    *info = self.version;
    info->dwOSVersionInfoSize = sizeWord;
    return true;
  }

  static inline PlayedMachine* theirCurrent = nullptr;
  static constexpr qvbase::components::SystemInfoSource kSource = {QueryUserName, QueryOsVersion};
  const qvbase::components::SystemInfoSource* m_previous = nullptr;
};

native::OsVersionInfo PlayedVersion(DWORD platform, DWORD major, DWORD minor, const char* csd) {
  native::OsVersionInfo info{};
  info.dwPlatformId = platform;
  info.dwMajorVersion = major;
  info.dwMinorVersion = minor;
  std::string(csd).copy(info.szCSDVersion, sizeof info.szCSDVersion - 1);
  return info;
}

TEST(WINSystemComponent, UserNameDoublesItsBufferWhileTheSystemAsksForMore) {
  struct Row {
    std::size_t length;
    std::vector<DWORD> sizes;
  };
  const Row rows[] = {
      {1, {64}},
      {63, {64}},
      // 64 characters and the zero do not fit in 64 bytes.
      {64, {64, 128}},
      {127, {64, 128}},
      {200, {64, 128, 256}},
      {1000, {64, 128, 256, 512, 1024}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.length);
    PlayedMachine machine;
    machine.userName = std::string(row.length, 'u');
    WINSystemComponent system;
    EXPECT_EQ(Text(system.UserName()), machine.userName);
    EXPECT_EQ(machine.userNameSizes, row.sizes);
    // Kept: the second call asks nothing.
    EXPECT_EQ(Text(system.UserName()), machine.userName);
    EXPECT_EQ(machine.userNameSizes.size(), row.sizes.size());
  }
}

TEST(WINSystemComponent, UserNameStopsAtAnyOtherErrorAndKeepsAnEmptyName) {
  for (LONG error : {ERROR_NONE_MAPPED, ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER}) {
    SCOPED_TRACE(error);
    PlayedMachine machine;
    machine.userNameError = error;
    WINSystemComponent system;
    EXPECT_EQ(Text(system.UserName()), "");
    EXPECT_EQ(machine.userNameSizes, std::vector<DWORD>{64});
    // The empty name is kept like any other: no second attempt.
    machine.userNameError = ERROR_SUCCESS;
    EXPECT_EQ(Text(system.UserName()), "");
    EXPECT_EQ(machine.userNameSizes.size(), 1u);
  }
}

TEST(WINSystemComponent, UserNameThatNeverFitsStopsAtTheBoundWithAnEmptyName) {
  PlayedMachine machine;
  machine.alwaysMore = true;
  WINSystemComponent system;
  EXPECT_EQ(Text(system.UserName()), "");
  std::vector<DWORD> doubling;
  for (DWORD size = 64; size <= (1u << 20); size *= 2)
    doubling.push_back(size);
  EXPECT_EQ(machine.userNameSizes, doubling);
}

TEST(WINSystemComponent, PlatformIdNamesThePlatform) {
  struct Row {
    DWORD platform;
    const char* name;
    bool nt;
  } const rows[] = {
      {0, "Win32s", false},
      {1, "Win95", false},
      {2, "WinNT", true},
      {3, "Unknown", false},
      {0xFFFFFFFF, "Unknown", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    PlayedMachine machine;
    machine.version = PlayedVersion(row.platform, 4, 10, "Service Pack 9");
    RecordingComponentRegistry recorder;
    {
      WINSystemComponent system;
      EXPECT_EQ(system.IsNT(), row.nt);
    }
    EXPECT_EQ(recorder.calls, (Calls{std::string("ObtainAComponent(") + row.name + ",4,10)",
                                     "SetComponentDisplayName(c0,Service Pack 9)", "Release(c0)"}));
    EXPECT_EQ(machine.versionReads, 1);
  }
}

TEST(WINSystemComponent, UnreadableVersionFallsBackAndIsAskedAgainAtTheNextNeed) {
  PlayedMachine machine;
  machine.versionReadable = false;
  machine.version = PlayedVersion(2, 6, 1, "Service Pack 1");
  RecordingComponentRegistry recorder;
  { WINSystemComponent system; }
  EXPECT_EQ(recorder.calls, (Calls{"ObtainAComponent(Unknown,0,0)",
                                   "SetComponentDisplayName(c0,Unknown)", "Release(c0)"}));
  // Name, major, minor and service pack each asked again.
  EXPECT_EQ(machine.versionReads, 4);

  machine.versionReadable = true;
  recorder.Clear();
  { WINSystemComponent system; }
  EXPECT_EQ(recorder.calls, (Calls{"ObtainAComponent(WinNT,6,1)",
                                   "SetComponentDisplayName(c0,Service Pack 1)", "Release(c0)"}));
  EXPECT_EQ(machine.versionReads, 5);

  // Read once, kept for the process.
  { WINSystemComponent system; }
  EXPECT_EQ(machine.versionReads, 5);
}

} // namespace

// The component registry's C API on its own: handles and references, the
// records, components, parts, files, running state, enumerations and
// resource locations, and what a bad handle or a null pointer gets.
#include <QVComponent.h>

#include "native/Modules.h"
#include "support/ComponentTestSupport.h"
#include "support/ResourceTestSupport.h"

#include "ResourceTestIds.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

// One reference on a registry handle, given back at the end of the scope.
class Held {
public:
  Held() = default;
  ~Held() {
    if (m_handle)
      QVComp_Release(m_handle);
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  void** out() { return &m_handle; }
  void* get() const { return m_handle; }
  void* take() {
    void* handle = m_handle;
    m_handle = nullptr;
    return handle;
  }

private:
  void* m_handle = nullptr;
};

// An infos record with its size word set, `adjust` bytes off its true size.
template <typename T>
T Record(int adjust) {
  T record{};
  record.size = static_cast<QVCompWord>(sizeof record + adjust);
  return record;
}

bool IsLive(void* handle) {
  if (QVComp_AddRef(handle) != QVCOMP_OK)
    return false;
  QVComp_Release(handle);
  return true;
}

std::string RegistryPath(void* component, std::uint32_t kind) {
  char buffer[256];
  if (QVComp_GetComponentRegistryPath(component, kind, buffer, sizeof buffer) != QVCOMP_OK)
    return "<failed>";
  return buffer;
}

std::string FileName(void* file) {
  QVCompFileInfos infos = Record<QVCompFileInfos>(0);
  if (QVComp_GetComponentFileInfos(file, &infos) != QVCOMP_OK)
    return "<failed>";
  return infos.fileName;
}

std::string PartName(void* part) {
  QVCompPartInfos infos = Record<QVCompPartInfos>(0);
  if (QVComp_GetComponentPartInfos(part, &infos) != QVCOMP_OK)
    return "<failed>";
  return infos.name;
}

// Records the handles an enumeration passes; stops after `limit` of them.
struct Seen {
  std::vector<void*> handles;
  std::size_t limit = 1000;
  static int Record(void* handle, void* context) {
    Seen* seen = static_cast<Seen*>(context);
    seen->handles.push_back(handle);
    return seen->handles.size() < seen->limit;
  }
};

// A file of the test's own, for the path forms.
class ScratchFile {
public:
  explicit ScratchFile(const std::string& name) : m_path(m_dir.File(name)) {
    qvtest::WriteFile(m_path, "x");
  }
  const std::string& path() const { return m_path; }

private:
  qvtest::TempDir m_dir;
  std::string m_path;
};

void SetVersions(void* file, QVCompWord major, QVCompWord minor, QVCompWord fixes,
                 QVCompWord build) {
  QVCompFileInfos infos = Record<QVCompFileInfos>(0);
  infos.majorVersion = major;
  infos.minorVersion = minor;
  infos.fixesVersion = fixes;
  infos.buildNumber = build;
  ASSERT_EQ(QVComp_SetComponentFileInfos(file, &infos), QVCOMP_OK);
}

TEST(QVComponent, RecordsArePointerSizedWordsWithTheirSizeInTheFirst) {
  const std::size_t word = sizeof(void*);
  EXPECT_EQ(sizeof(QVCompComponentInfos), 10 * word);
  EXPECT_EQ(sizeof(QVCompFileInfos), 11 * word);
  EXPECT_EQ(sizeof(QVCompPartInfos), 7 * word);
  EXPECT_EQ(offsetof(QVCompComponentInfos, name), 1 * word);
  EXPECT_EQ(offsetof(QVCompComponentInfos, majorVersion), 2 * word);
  EXPECT_EQ(offsetof(QVCompComponentInfos, minorVersion), 3 * word);
  EXPECT_EQ(offsetof(QVCompComponentInfos, type), 9 * word);
  EXPECT_EQ(offsetof(QVCompFileInfos, path), 1 * word);
  EXPECT_EQ(offsetof(QVCompFileInfos, fileName), 2 * word);
  EXPECT_EQ(offsetof(QVCompFileInfos, majorVersion), 6 * word);
  EXPECT_EQ(offsetof(QVCompFileInfos, minorVersion), 7 * word);
  EXPECT_EQ(offsetof(QVCompFileInfos, fixesVersion), 8 * word);
  EXPECT_EQ(offsetof(QVCompFileInfos, buildNumber), 9 * word);
  EXPECT_EQ(offsetof(QVCompFileInfos, extra), 10 * word);
  EXPECT_EQ(offsetof(QVCompPartInfos, name), 2 * word);
  if (word == 4) {
    EXPECT_EQ(sizeof(QVCompComponentInfos), 40u);
    EXPECT_EQ(sizeof(QVCompFileInfos), 44u);
    EXPECT_EQ(sizeof(QVCompPartInfos), 28u);
  }
}

TEST(QVComponent, ObtainingAComponentAgainGivesTheSameOneIgnoringCase) {
  Held first, again, otherVersion;
  ASSERT_EQ(QVComp_ObtainAComponent("SameTwice", 3, 1, first.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponent("sametwice", 3, 1, again.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponent("SameTwice", 3, 2, otherVersion.out()), QVCOMP_OK);
  EXPECT_EQ(first.get(), again.get());
  EXPECT_NE(first.get(), otherVersion.get());
}

TEST(QVComponent, ComponentInfosGiveNameVersionsAndType) {
  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("InfoComponent", 4, 7, component.out()), QVCOMP_OK);
  QVCompComponentInfos infos = Record<QVCompComponentInfos>(0);
  ASSERT_EQ(QVComp_GetComponentInfos(component.get(), &infos), QVCOMP_OK);
  EXPECT_EQ(infos.size, sizeof infos);
  EXPECT_STREQ(infos.name, "InfoComponent");
  EXPECT_EQ(infos.majorVersion, 4u);
  EXPECT_EQ(infos.minorVersion, 7u);
  EXPECT_EQ(infos.partCount, 0u);
  EXPECT_STREQ(infos.type, "Component");
}

TEST(QVComponent, ARecordWhoseSizeWordIsShortIsRefused) {
  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("ShortRecord", 1, 0, component.out()), QVCOMP_OK);
  QVCompComponentInfos infos = Record<QVCompComponentInfos>(-1);
  infos.name = "untouched";
  EXPECT_EQ(QVComp_GetComponentInfos(component.get(), &infos), QVCOMP_E_BAD_RECORD_SIZE);
  EXPECT_STREQ(infos.name, "untouched");
}

TEST(QVComponent, BadNamesAreRefused) {
  const std::string tooLong(256, 'n');
  const char* const names[] = {"", "Back\\Slash", "Line\nBreak", tooLong.c_str()};
  for (const char* name : names) {
    SCOPED_TRACE(name);
    void* component = reinterpret_cast<void*>(1);
    EXPECT_EQ(QVComp_ObtainAComponent(name, 1, 0, &component), QVCOMP_E_INVALID_ARGUMENT);
    EXPECT_EQ(component, nullptr);
  }
  Held longest;
  EXPECT_EQ(QVComp_ObtainAComponent(std::string(255, 'n').c_str(), 1, 0, longest.out()), QVCOMP_OK);
}

TEST(QVComponent, BadHandlesAndNullPointersAreFailuresNotCrashes) {
  Held component, part;
  ASSERT_EQ(QVComp_ObtainAComponent("NullChecks", 1, 0, component.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Piece", part.out()), QVCOMP_OK);
  void* const bogus = reinterpret_cast<void*>(0x7654321);
  void* out = nullptr;
  std::uint32_t code = 0;
  char buffer[64];
  QVCompComponentInfos componentInfos = Record<QVCompComponentInfos>(0);
  QVCompFileInfos fileInfos = Record<QVCompFileInfos>(0);
  QVCompPartInfos partInfos = Record<QVCompPartInfos>(0);

  EXPECT_EQ(QVComp_AddRef(nullptr), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_Release(nullptr), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_AddRef(bogus), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_Release(bogus), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_ObtainAComponent(nullptr, 1, 0, &out), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_ObtainAComponent("x", 1, 0, nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_GetComponentInfos(bogus, &componentInfos), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_GetComponentInfos(component.get(), nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_GetComponentDisplayName(bogus, nullptr, 0), 0u);
  EXPECT_EQ(QVComp_SetComponentDisplayName(component.get(), nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_GetComponentRegistryPath(component.get(), 0, nullptr, 10),
            QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_GetComponentString(bogus, buffer, sizeof buffer), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_GetComponentResLocation(component.get(), nullptr, nullptr),
            QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_EnumRunningComponents(nullptr, nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_EnumRunningComponentsByName(nullptr, Seen::Record, nullptr),
            QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_EnumRunningComponentParts(bogus, Seen::Record, nullptr),
            QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_EnumRunningComponentParts(component.get(), nullptr, nullptr),
            QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_ObtainApplicationComponent(nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_ObtainAComponentPart(component.get(), nullptr, &out), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_GetComponentPartInfos(part.get(), nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_GetComponentPartType(part.get(), nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_GetComponentPartResLocation(part.get(), nullptr, nullptr),
            QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_ObtainComponentFromPart(part.get(), nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_ObtainBestComponentFileFromPart(part.get(), nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_ObtainAComponentFileFromInstance(nullptr, &out), QVCOMP_E_INVALID_ARGUMENT);
  EXPECT_EQ(QVComp_ObtainAComponentFileFromPath(nullptr, &out), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_ObtainApplicationComponentFile(nullptr), QVCOMP_E_NULL_POINTER);
  EXPECT_EQ(QVComp_SetComponentFileInfos(bogus, &fileInfos), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_GetComponentFileInfos(bogus, &fileInfos), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_DeclareFileRunning(bogus, nullptr), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_DeclareFileStopping(bogus), QVCOMP_E_INVALID_HANDLE);
  EXPECT_EQ(QVComp_ObtainComponentPartFromFile(bogus, nullptr), QVCOMP_E_NULL_POINTER);

  // A handle of one kind where another is expected.
  EXPECT_EQ(QVComp_GetComponentPartInfos(component.get(), &partInfos), QVCOMP_E_WRONG_KIND);
  EXPECT_EQ(QVComp_GetComponentInfos(part.get(), &componentInfos), QVCOMP_E_WRONG_KIND);
  EXPECT_EQ(QVComp_GetComponentFileInfos(part.get(), &fileInfos), QVCOMP_E_WRONG_KIND);
  EXPECT_EQ(QVComp_SetComponentPartType(component.get(), 1), QVCOMP_E_WRONG_KIND);
  EXPECT_EQ(QVComp_GetComponentPartType(component.get(), &code), QVCOMP_E_WRONG_KIND);
  EXPECT_EQ(QVComp_ObtainAComponentPart(part.get(), "Piece", &out), QVCOMP_E_WRONG_KIND);
  EXPECT_EQ(out, nullptr);
}

TEST(QVComponent, ReleasingTheLastReferenceEndsTheObject) {
  void* component = nullptr;
  ASSERT_EQ(QVComp_ObtainAComponent("ShortLived", 1, 0, &component), QVCOMP_OK);
  ASSERT_EQ(QVComp_AddRef(component), QVCOMP_OK);
  ASSERT_EQ(QVComp_Release(component), QVCOMP_OK);
  EXPECT_TRUE(IsLive(component));
  ASSERT_EQ(QVComp_Release(component), QVCOMP_OK);
  EXPECT_FALSE(IsLive(component));
  EXPECT_EQ(QVComp_Release(component), QVCOMP_E_INVALID_HANDLE);

  // Obtained again, it is a new object with a new handle.
  Held again;
  ASSERT_EQ(QVComp_ObtainAComponent("ShortLived", 1, 0, again.out()), QVCOMP_OK);
  EXPECT_NE(again.get(), component);
}

TEST(QVComponent, DisplayNameIsTheNameUntilSetAndAnswersItsSize) {
  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("Shown", 2, 0, component.out()), QVCOMP_OK);
  EXPECT_EQ(QVComp_GetComponentDisplayName(component.get(), nullptr, 0), 6u);
  char buffer[32];
  EXPECT_EQ(QVComp_GetComponentDisplayName(component.get(), buffer, sizeof buffer), 6u);
  EXPECT_STREQ(buffer, "Shown");

  ASSERT_EQ(QVComp_SetComponentDisplayName(component.get(), "Shown to users"), QVCOMP_OK);
  EXPECT_EQ(QVComp_GetComponentDisplayName(component.get(), nullptr, 0), 15u);
  // A short buffer gets what fits, terminated, and the size needed.
  char shortBuffer[6];
  EXPECT_EQ(QVComp_GetComponentDisplayName(component.get(), shortBuffer, sizeof shortBuffer), 15u);
  EXPECT_STREQ(shortBuffer, "Shown");
}

TEST(QVComponent, RegistryPathsOfEachKind) {
  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("Pathed", 3, 14, component.out()), QVCOMP_OK);
  EXPECT_EQ(RegistryPath(component.get(), QVCOMP_PATH_COMPONENT),
            "Software\\Varnel\\Components\\Pathed\\3.14");
  EXPECT_EQ(RegistryPath(component.get(), QVCOMP_PATH_ALL_VERSIONS),
            "Software\\Varnel\\Components\\Pathed");
  EXPECT_EQ(RegistryPath(component.get(), QVCOMP_PATH_RESOURCES),
            "Software\\Varnel\\Components\\Pathed\\3.14\\Resources");
  char buffer[256] = "x";
  EXPECT_EQ(QVComp_GetComponentRegistryPath(component.get(), 1, buffer, sizeof buffer),
            QVCOMP_E_INVALID_ARGUMENT);
  EXPECT_STREQ(buffer, "");
}

TEST(QVComponent, ATextThatDoesNotFitLeavesAnEmptyBuffer) {
  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("Fits", 1, 2, component.out()), QVCOMP_OK);
  char buffer[9] = "xxxxxxxx";
  // "Fits 1.2" needs 9 bytes with its zero.
  EXPECT_EQ(QVComp_GetComponentString(component.get(), buffer, 8), QVCOMP_E_BUFFER_TOO_SMALL);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(QVComp_GetComponentString(component.get(), buffer, 9), QVCOMP_OK);
  EXPECT_STREQ(buffer, "Fits 1.2");
}

TEST(QVComponent, APartKeepsItsComponentAlive) {
  void* component = nullptr;
  ASSERT_EQ(QVComp_ObtainAComponent("Owner", 1, 0, &component), QVCOMP_OK);
  Held part, samePart, owner;
  ASSERT_EQ(QVComp_ObtainAComponentPart(component, "Member", part.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component, "MEMBER", samePart.out()), QVCOMP_OK);
  EXPECT_EQ(part.get(), samePart.get());
  ASSERT_EQ(QVComp_Release(component), QVCOMP_OK);
  EXPECT_TRUE(IsLive(component));
  ASSERT_EQ(QVComp_ObtainComponentFromPart(part.get(), owner.out()), QVCOMP_OK);
  EXPECT_EQ(owner.get(), component);

  QVCompComponentInfos infos = Record<QVCompComponentInfos>(0);
  ASSERT_EQ(QVComp_GetComponentInfos(component, &infos), QVCOMP_OK);
  EXPECT_EQ(infos.partCount, 1u);
}

TEST(QVComponent, PartInfosTypeAndOffset) {
  Held component, part;
  ASSERT_EQ(QVComp_ObtainAComponent("Typed", 1, 0, component.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Engine", part.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_SetComponentPartType(part.get(), 0x40000003), QVCOMP_OK);
  ASSERT_EQ(QVComp_SetComponentPartResOffset(part.get(), -20), QVCOMP_OK);
  std::uint32_t type = 0;
  ASSERT_EQ(QVComp_GetComponentPartType(part.get(), &type), QVCOMP_OK);
  EXPECT_EQ(type, 0x40000003u);
  QVCompPartInfos infos = Record<QVCompPartInfos>(0);
  ASSERT_EQ(QVComp_GetComponentPartInfos(part.get(), &infos), QVCOMP_OK);
  EXPECT_EQ(infos.size, sizeof infos);
  EXPECT_STREQ(infos.name, "Engine");
  EXPECT_EQ(infos.type, 0x40000003u);
  EXPECT_EQ(static_cast<std::int32_t>(infos.resourceOffset), -20);
}

TEST(QVComponent, FileFromTheExecutablesInstanceHasItsPath) {
  Held file, application;
  void* instance = qvbase::native::ApplicationInstance();
  ASSERT_EQ(QVComp_ObtainAComponentFileFromInstance(instance, file.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainApplicationComponentFile(application.out()), QVCOMP_OK);
  EXPECT_EQ(file.get(), application.get());
  QVCompFileInfos infos = Record<QVCompFileInfos>(0);
  ASSERT_EQ(QVComp_GetComponentFileInfos(file.get(), &infos), QVCOMP_OK);
  namespace fs = std::filesystem;
  EXPECT_TRUE(fs::equivalent(infos.path, qvtest::SelfPath()));
  EXPECT_EQ(std::string(infos.fileName), fs::path(qvtest::SelfPath()).filename().string());

  // The same file by its path is the same object.
  Held byPath;
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(qvtest::SelfPath().c_str(), byPath.out()),
            QVCOMP_OK);
  EXPECT_EQ(byPath.get(), file.get());
}

TEST(QVComponent, FileFromTheRegistryLibrarysOwnInstance) {
  void* instance = qvbase::native::ModuleInstanceContaining(
      reinterpret_cast<const void*>(&QVComp_ObtainAComponent));
  ASSERT_NE(instance, nullptr);
  Held file;
  ASSERT_EQ(QVComp_ObtainAComponentFileFromInstance(instance, file.out()), QVCOMP_OK);
  std::string name = FileName(file.get());
#if defined(_WIN32)
  EXPECT_EQ(name, "QVComponent.dll");
#else
  EXPECT_EQ(name.rfind("libQVComponent.so", 0), 0u) << name;
#endif
}

TEST(QVComponent, AnInstanceWhereNoModuleIsLoadedIsNotFound) {
  void* file = reinterpret_cast<void*>(1);
  int local = 0;
  EXPECT_EQ(QVComp_ObtainAComponentFileFromInstance(&local, &file), QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(QVComp_ObtainAComponentFileFromInstance(reinterpret_cast<void*>(0x10), &file),
            QVCOMP_E_NOT_FOUND);
}

TEST(QVComponent, FileFromAPathNeedsAnExistingFile) {
  qvtest::TempDir dir;
  void* file = reinterpret_cast<void*>(1);
  EXPECT_EQ(QVComp_ObtainAComponentFileFromPath(dir.File("missing.dll").c_str(), &file),
            QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(QVComp_ObtainAComponentFileFromPath("", &file), QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(QVComp_ObtainAComponentFileFromPath(dir.path().c_str(), &file), QVCOMP_E_NOT_FOUND);

  ScratchFile existing("Plugin.ocx");
  Held found;
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(existing.path().c_str(), found.out()), QVCOMP_OK);
  EXPECT_EQ(FileName(found.get()), "Plugin.ocx");
}

TEST(QVComponent, FileInfosKeepTheVersionsAndIgnoreThePathWords) {
  ScratchFile existing("Versioned.dll");
  Held file;
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(existing.path().c_str(), file.out()), QVCOMP_OK);
  QVCompFileInfos given = Record<QVCompFileInfos>(0);
  given.path = "ignored";
  given.fileName = "ignored";
  given.majorVersion = 1;
  given.minorVersion = 2;
  given.fixesVersion = 0;
  given.buildNumber = 27;
  given.extra = 99;
  ASSERT_EQ(QVComp_SetComponentFileInfos(file.get(), &given), QVCOMP_OK);
  QVCompFileInfos read = Record<QVCompFileInfos>(0);
  ASSERT_EQ(QVComp_GetComponentFileInfos(file.get(), &read), QVCOMP_OK);
  EXPECT_STREQ(read.fileName, "Versioned.dll");
  EXPECT_EQ(read.reserved[0], 0u);
  EXPECT_EQ(read.reserved[1], 0u);
  EXPECT_EQ(read.reserved[2], 0u);
  EXPECT_EQ(read.majorVersion, 1u);
  EXPECT_EQ(read.minorVersion, 2u);
  EXPECT_EQ(read.fixesVersion, 0u);
  EXPECT_EQ(read.buildNumber, 27u);
  EXPECT_EQ(read.extra, 99u);

  QVCompFileInfos shortRecord = Record<QVCompFileInfos>(-1);
  EXPECT_EQ(QVComp_SetComponentFileInfos(file.get(), &shortRecord), QVCOMP_E_BAD_RECORD_SIZE);
}

TEST(QVComponent, ARunningFileHoldsThePartItWasDeclaredWith) {
  ScratchFile existing("Runner.dll");
  Held component, file;
  ASSERT_EQ(QVComp_ObtainAComponent("RunnerComponent", 1, 0, component.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(existing.path().c_str(), file.out()), QVCOMP_OK);
  void* part = nullptr;
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Runner", &part), QVCOMP_OK);
  // The part's reference passes to the registry with the call.
  ASSERT_EQ(QVComp_DeclareFileRunning(file.get(), part), QVCOMP_OK);
  Held fromFile;
  ASSERT_EQ(QVComp_ObtainComponentPartFromFile(file.get(), fromFile.out()), QVCOMP_OK);
  EXPECT_EQ(fromFile.get(), part);

  // Declared again without a part, the file keeps its part.
  ASSERT_EQ(QVComp_DeclareFileRunning(file.get(), nullptr), QVCOMP_OK);
  Held stillPart;
  ASSERT_EQ(QVComp_ObtainComponentPartFromFile(file.get(), stillPart.out()), QVCOMP_OK);
  EXPECT_EQ(stillPart.get(), part);
}

TEST(QVComponent, AFileWithoutAPartAnswersNotFound) {
  ScratchFile existing("Loose.dll");
  Held file;
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(existing.path().c_str(), file.out()), QVCOMP_OK);
  void* part = reinterpret_cast<void*>(1);
  EXPECT_EQ(QVComp_ObtainComponentPartFromFile(file.get(), &part), QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(part, nullptr);
}

TEST(QVComponent, TheRegistryHoldsARunningFileUntilItStops) {
  ScratchFile existing("Held.dll");
  void* file = nullptr;
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(existing.path().c_str(), &file), QVCOMP_OK);
  EXPECT_EQ(QVComp_DeclareFileStopping(file), QVCOMP_E_NOT_RUNNING);
  ASSERT_EQ(QVComp_DeclareFileRunning(file, nullptr), QVCOMP_OK);
  ASSERT_EQ(QVComp_Release(file), QVCOMP_OK);
  EXPECT_TRUE(IsLive(file));
  ASSERT_EQ(QVComp_DeclareFileStopping(file), QVCOMP_OK);
  EXPECT_FALSE(IsLive(file));
}

TEST(QVComponent, BestFileIsTheHighestVersionRunningAndTheFirstAmongEquals) {
  ScratchFile oldFile("Old.dll"), newFile("New.dll"), sameFile("Same.dll"), idleFile("Idle.dll");
  Held component, part, oldHandle, newHandle, sameHandle, idleHandle;
  ASSERT_EQ(QVComp_ObtainAComponent("Versions", 1, 0, component.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Core", part.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(oldFile.path().c_str(), oldHandle.out()),
            QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(newFile.path().c_str(), newHandle.out()),
            QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(sameFile.path().c_str(), sameHandle.out()),
            QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(idleFile.path().c_str(), idleHandle.out()),
            QVCOMP_OK);

  void* none = reinterpret_cast<void*>(1);
  EXPECT_EQ(QVComp_ObtainBestComponentFileFromPart(part.get(), &none), QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(none, nullptr);

  SetVersions(oldHandle.get(), 1, 2, 0, 26);
  SetVersions(newHandle.get(), 1, 2, 0, 27);
  SetVersions(sameHandle.get(), 1, 2, 0, 27);
  SetVersions(idleHandle.get(), 9, 0, 0, 0);
  for (void* file : {oldHandle.get(), newHandle.get(), sameHandle.get()}) {
    ASSERT_EQ(QVComp_AddRef(part.get()), QVCOMP_OK);
    ASSERT_EQ(QVComp_DeclareFileRunning(file, part.get()), QVCOMP_OK);
  }
  // The highest version, not running, is no candidate.
  ASSERT_EQ(QVComp_AddRef(part.get()), QVCOMP_OK);
  ASSERT_EQ(QVComp_DeclareFileRunning(idleHandle.get(), part.get()), QVCOMP_OK);
  ASSERT_EQ(QVComp_DeclareFileStopping(idleHandle.get()), QVCOMP_OK);

  Held best;
  ASSERT_EQ(QVComp_ObtainBestComponentFileFromPart(part.get(), best.out()), QVCOMP_OK);
  EXPECT_EQ(FileName(best.get()), "New.dll");

  for (void* file : {oldHandle.get(), newHandle.get(), sameHandle.get()})
    ASSERT_EQ(QVComp_DeclareFileStopping(file), QVCOMP_OK);
}

TEST(QVComponent, ComponentsAreEnumeratedInOrderAndByName) {
  Held first, second, third;
  ASSERT_EQ(QVComp_ObtainAComponent("EnumFirst", 1, 0, first.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponent("EnumSecond", 1, 0, second.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponent("EnumFirst", 2, 0, third.out()), QVCOMP_OK);

  Seen all;
  ASSERT_EQ(QVComp_EnumRunningComponents(Seen::Record, &all), QVCOMP_OK);
  std::vector<void*> ours;
  for (void* handle : all.handles)
    if (handle == first.get() || handle == second.get() || handle == third.get())
      ours.push_back(handle);
  EXPECT_EQ(ours, (std::vector<void*>{first.get(), second.get(), third.get()}));

  Seen byName;
  ASSERT_EQ(QVComp_EnumRunningComponentsByName("enumfirst", Seen::Record, &byName), QVCOMP_OK);
  EXPECT_EQ(byName.handles, (std::vector<void*>{first.get(), third.get()}));

  Seen stopped;
  stopped.limit = 1;
  ASSERT_EQ(QVComp_EnumRunningComponentsByName("EnumFirst", Seen::Record, &stopped), QVCOMP_OK);
  EXPECT_EQ(stopped.handles, (std::vector<void*>{first.get()}));
}

TEST(QVComponent, PartsAreEnumeratedAllOrByTypeWithZeroMeaningEvery) {
  Held component, dll, exe, untyped;
  ASSERT_EQ(QVComp_ObtainAComponent("PartEnum", 1, 0, component.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Lib", dll.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "App", exe.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Bare", untyped.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_SetComponentPartType(dll.get(), 1), QVCOMP_OK);
  ASSERT_EQ(QVComp_SetComponentPartType(exe.get(), 13), QVCOMP_OK);

  Seen all, dlls, every;
  ASSERT_EQ(QVComp_EnumRunningComponentParts(component.get(), Seen::Record, &all), QVCOMP_OK);
  EXPECT_EQ(all.handles, (std::vector<void*>{dll.get(), exe.get(), untyped.get()}));
  ASSERT_EQ(QVComp_EnumRunningComponentPartsByType(component.get(), 1, Seen::Record, &dlls),
            QVCOMP_OK);
  EXPECT_EQ(dlls.handles, (std::vector<void*>{dll.get()}));
  ASSERT_EQ(QVComp_EnumRunningComponentPartsByType(component.get(), 0, Seen::Record, &every),
            QVCOMP_OK);
  EXPECT_EQ(every.handles, all.handles);
}

TEST(QVComponent, AnEnumerationCallbackMayCallTheRegistryAndRelease) {
  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("Reentrant", 1, 0, component.out()), QVCOMP_OK);
  void* part = nullptr;
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Transient", &part), QVCOMP_OK);
  struct Context {
    std::vector<std::string> names;
    void* toRelease;
  } context{{}, part};
  auto callback = [](void* handle, void* data) -> int {
    Context* c = static_cast<Context*>(data);
    c->names.push_back(PartName(handle));
    // Giving up the last outside reference here leaves the part alive until
    // the enumeration ends.
    if (c->toRelease) {
      QVComp_Release(c->toRelease);
      c->toRelease = nullptr;
    }
    return IsLive(handle);
  };
  ASSERT_EQ(QVComp_EnumRunningComponentParts(component.get(), callback, &context), QVCOMP_OK);
  EXPECT_EQ(context.names, std::vector<std::string>{"Transient"});
  EXPECT_FALSE(IsLive(part));
}

TEST(QVComponent, TheApplicationComponentIsThatOfTheExecutablesPart) {
  Held file, component;
  ASSERT_EQ(QVComp_ObtainApplicationComponentFile(file.out()), QVCOMP_OK);
  void* none = reinterpret_cast<void*>(1);
  EXPECT_EQ(QVComp_ObtainApplicationComponent(&none), QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(none, nullptr);

  ASSERT_EQ(QVComp_ObtainAComponent("TheApplication", 5, 0, component.out()), QVCOMP_OK);
  void* part = nullptr;
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Main", &part), QVCOMP_OK);
  ASSERT_EQ(QVComp_DeclareFileRunning(file.get(), part), QVCOMP_OK);
  Held application;
  ASSERT_EQ(QVComp_ObtainApplicationComponent(application.out()), QVCOMP_OK);
  EXPECT_EQ(application.get(), component.get());
  QVCompComponentInfos infos = Record<QVCompComponentInfos>(0);
  ASSERT_EQ(QVComp_GetComponentInfos(component.get(), &infos), QVCOMP_OK);
  EXPECT_STREQ(infos.type, "Application");
  ASSERT_EQ(QVComp_DeclareFileStopping(file.get()), QVCOMP_OK);
}

TEST(QVComponent, AGivenResourceModuleAndOffsetsAddUp) {
  Held component, part;
  ASSERT_EQ(QVComp_ObtainAComponent("Resourced", 1, 0, component.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Strings", part.out()), QVCOMP_OK);
  void* module = reinterpret_cast<void*>(1);
  std::int32_t offset = 5;
  EXPECT_EQ(QVComp_GetComponentResLocation(component.get(), &module, &offset), QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(module, nullptr);
  EXPECT_EQ(offset, 0);

  int moduleStandIn = 0;
  ASSERT_EQ(QVComp_SetComponentResLocation(component.get(), &moduleStandIn, 1000), QVCOMP_OK);
  ASSERT_EQ(QVComp_SetComponentPartResOffset(part.get(), 200), QVCOMP_OK);
  ASSERT_EQ(QVComp_GetComponentResLocation(component.get(), &module, &offset), QVCOMP_OK);
  EXPECT_EQ(module, &moduleStandIn);
  EXPECT_EQ(offset, 1000);
  ASSERT_EQ(QVComp_GetComponentPartResLocation(part.get(), &module, &offset), QVCOMP_OK);
  EXPECT_EQ(module, &moduleStandIn);
  EXPECT_EQ(offset, 1200);
  EXPECT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_OK);
}

TEST(QVComponent, FunctionTableHoldsTheLibrarysOwnFunctions) {
  const QVCompFunctionTable* table = QVComp_FunctionTable();
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->AddRef, &QVComp_AddRef);
  EXPECT_EQ(table->ObtainAComponent, &QVComp_ObtainAComponent);
  EXPECT_EQ(table->GetComponentDisplayName, &QVComp_GetComponentDisplayName);
  EXPECT_EQ(table->EnumRunningComponentPartsByType, &QVComp_EnumRunningComponentPartsByType);
  EXPECT_EQ(table->ObtainComponentPartFromFile, &QVComp_ObtainComponentPartFromFile);
  // Every slot is filled.
  const auto* slots = reinterpret_cast<void* const*>(table);
  for (std::size_t i = 0; i < sizeof(QVCompFunctionTable) / sizeof(void*); ++i)
    EXPECT_NE(slots[i], nullptr) << "slot " << i;
}

TEST(QVComponent, ThreadsObtainingAndReleasingShareOneObject) {
  std::atomic<int> failures{0};
  std::vector<void*> seen(4);
  std::vector<std::thread> threads;
  Held keep;
  ASSERT_EQ(QVComp_ObtainAComponent("Shared", 1, 0, keep.out()), QVCOMP_OK);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &failures, &seen] {
      for (int i = 0; i < 2000; ++i) {
        void* component = nullptr;
        if (QVComp_ObtainAComponent("Shared", 1, 0, &component) != QVCOMP_OK)
          ++failures;
        seen[t] = component;
        if (QVComp_Release(component) != QVCOMP_OK)
          ++failures;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failures, 0);
  for (void* component : seen)
    EXPECT_EQ(component, keep.get());
}

// --- Recorded resource modules ----------------------------------------------

// The name a resource DLL is recorded under, and the file the build makes of
// it on this platform: on Windows the DLL itself, elsewhere a compiled
// resource file that the registry finds under the DLL's name.
#if defined(_WIN32)
const char kBuiltModuleSuffix[] = ".dll";
#else
const char kBuiltModuleSuffix[] = ".res";
#endif

// Puts a copy of the test resource module into `directory` as `stem` with
// the platform's suffix.
std::string PlaceTestModule(const std::string& directory, const std::string& stem) {
  std::string path = directory + "/" + stem + kBuiltModuleSuffix;
  std::filesystem::copy_file(qvbase::test::TestModulePath(), path);
  return path;
}

// The path of a loaded module, as the module reports it.
std::string ModulePath(void* module) {
  char buffer[1024] = {};
  if (QVRes_GetModuleFileName(module, buffer, sizeof buffer) == 0)
    return {};
  return buffer;
}

bool SameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  return std::filesystem::equivalent(a, b, error);
}

TEST(QVComponent, ARecordedResourceDllIsFoundOnTheResourcePathAndLoaded) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::ComponentKeys keys("LookupDll");
  qvbase::test::TempDir dir;
  std::string placed = PlaceTestModule(dir.path(), "LookupRes");
  ASSERT_TRUE(qvbase::test::SetMachineText(keys.Resources("1.0"), "DefResFile", "LookupRes.dll"));
  qvbase::test::ScopedEnv path("QVBASE_RESOURCE_PATH", dir.path().c_str());

  Held component, part;
  ASSERT_EQ(QVComp_ObtainAComponent("LookupDll", 1, 0, component.out()), QVCOMP_OK);
  void* module = nullptr;
  ASSERT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_OK);
  ASSERT_NE(module, nullptr);
  EXPECT_TRUE(SameFile(ModulePath(module), placed)) << ModulePath(module);
  char text[256] = {};
  EXPECT_GT(QVRes_LoadString(module, IDS_MIDDLE, text, sizeof text), 0);

  // A part answers with the same module, which stays loaded while the
  // component lives.
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Strings", part.out()), QVCOMP_OK);
  void* partModule = nullptr;
  std::int32_t offset = -1;
  ASSERT_EQ(QVComp_GetComponentPartResLocation(part.get(), &partModule, &offset), QVCOMP_OK);
  EXPECT_EQ(partModule, module);
  EXPECT_EQ(offset, 0);
}

TEST(QVComponent, ARecordedResourceSetOfTheComponentIsFound) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::ComponentKeys keys("LookupSet");
  qvbase::test::TempDir dir;
  std::string placed = PlaceTestModule(dir.path(), "SetRes");
  std::string file = std::string("SetRes") + kBuiltModuleSuffix;
  ASSERT_TRUE(qvbase::test::SetMachineText(keys.Resources("2.1") + "\\ResourceSets", nullptr,
                                           "LookupSet 2.1," + file));
  qvbase::test::ScopedEnv path("QVBASE_RESOURCE_PATH", dir.path().c_str());

  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("LookupSet", 2, 1, component.out()), QVCOMP_OK);
  void* module = nullptr;
  ASSERT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_OK);
  EXPECT_TRUE(SameFile(ModulePath(module), placed)) << ModulePath(module);
}

TEST(QVComponent, AResourceSetRecordedForAnotherComponentTextIsNotTaken) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::ComponentKeys keys("LookupOther");
  qvbase::test::TempDir dir;
  PlaceTestModule(dir.path(), "OtherRes");
  ASSERT_TRUE(
      qvbase::test::SetMachineText(keys.Resources("1.0") + "\\ResourceSets", nullptr,
                                   std::string("Somebody 1.0,OtherRes") + kBuiltModuleSuffix));
  qvbase::test::ScopedEnv path("QVBASE_RESOURCE_PATH", dir.path().c_str());

  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("LookupOther", 1, 0, component.out()), QVCOMP_OK);
  void* module = reinterpret_cast<void*>(1);
  EXPECT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_E_NOT_FOUND);
  EXPECT_EQ(module, nullptr);
}

TEST(QVComponent, ARecordedModuleIsFoundBesideTheComponentsRunningFile) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::ComponentKeys keys("LookupBeside");
  qvbase::test::TempDir dir;
  std::string placed = PlaceTestModule(dir.path(), "BesideRes");
  qvbase::test::WriteFile(dir.File("Beside.bin"), "module");
  ASSERT_TRUE(qvbase::test::SetMachineText(keys.Resources("1.0"), "DefResFile", "BesideRes.dll"));
  qvbase::test::ScopedEnv path("QVBASE_RESOURCE_PATH", "");

  Held component, part, file;
  ASSERT_EQ(QVComp_ObtainAComponent("LookupBeside", 1, 0, component.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentPart(component.get(), "Beside", part.out()), QVCOMP_OK);
  ASSERT_EQ(QVComp_ObtainAComponentFileFromPath(dir.File("Beside.bin").c_str(), file.out()),
            QVCOMP_OK);
  ASSERT_EQ(QVComp_DeclareFileRunning(file.get(), part.take()), QVCOMP_OK);
  void* module = nullptr;
  EXPECT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_OK);
  EXPECT_TRUE(SameFile(ModulePath(module), placed)) << ModulePath(module);
  EXPECT_EQ(QVComp_DeclareFileStopping(file.get()), QVCOMP_OK);
}

TEST(QVComponent, AMissingModuleIsSoughtOnceUntilTheGivenModuleIsTakenBack) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::ComponentKeys keys("LookupLate");
  qvbase::test::TempDir dir;
  ASSERT_TRUE(qvbase::test::SetMachineText(keys.Resources("1.0"), "DefResFile", "LateRes.dll"));
  qvbase::test::ScopedEnv path("QVBASE_RESOURCE_PATH", dir.path().c_str());

  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("LookupLate", 1, 0, component.out()), QVCOMP_OK);
  void* module = nullptr;
  EXPECT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_E_NOT_FOUND);
  std::string placed = PlaceTestModule(dir.path(), "LateRes");
  EXPECT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_E_NOT_FOUND);
  ASSERT_EQ(QVComp_SetComponentResLocation(component.get(), nullptr, 0), QVCOMP_OK);
  ASSERT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_OK);
  EXPECT_TRUE(SameFile(ModulePath(module), placed)) << ModulePath(module);
}

TEST(QVComponent, AGivenModuleComesBeforeTheRecordedOne) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::ComponentKeys keys("LookupGiven");
  qvbase::test::TempDir dir;
  PlaceTestModule(dir.path(), "GivenRes");
  ASSERT_TRUE(qvbase::test::SetMachineText(keys.Resources("1.0"), "DefResFile", "GivenRes.dll"));
  qvbase::test::ScopedEnv path("QVBASE_RESOURCE_PATH", dir.path().c_str());

  Held component;
  ASSERT_EQ(QVComp_ObtainAComponent("LookupGiven", 1, 0, component.out()), QVCOMP_OK);
  int given = 0;
  ASSERT_EQ(QVComp_SetComponentResLocation(component.get(), &given, 0), QVCOMP_OK);
  void* module = nullptr;
  ASSERT_EQ(QVComp_GetComponentResLocation(component.get(), &module, nullptr), QVCOMP_OK);
  EXPECT_EQ(module, &given);
}

} // namespace

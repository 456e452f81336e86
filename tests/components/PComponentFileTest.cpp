// Component files: each registration form's calls, what assignment and
// destruction do to a registered file, the infos a file reads, the
// reference its GetComponent leaves behind, and the functions that walk the
// registered files.
#include <qvbase/PComponent.h>

#include <qvbase/PMBString.h>

#include "support/RecordingComponentRegistry.h"
#include "support/TestSupport.h"

#include <QVComponent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using qvbase::test::RecordingComponentRegistry;
typedef std::vector<std::string> Calls;

std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }

// The record SetComponentFileInfos gets for these versions: the size word,
// five zero words, then the numbers.
std::string FileInfosWords(int major, int minor, int fixes, int build, int extra) {
  return "{" + std::to_string(sizeof(QVCompFileInfos)) + ",0,0,0,0,0," + std::to_string(major) +
         "," + std::to_string(minor) + "," + std::to_string(fixes) + "," + std::to_string(build) +
         "," + std::to_string(extra) + "}";
}

std::string InstanceText(const void* instance) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", const_cast<void*>(instance));
  return text;
}

// Counts the calls of its start-up hook.
class CountingFile : public PComponentFile {
public:
  int initialized = 0;
  void Initialize() override { ++initialized; }
};

bool Listed(const PComponentFile* file) { return gComponentFileList.Contains(file); }

// --- Registration ------------------------------------------------------------

TEST(PComponentFile, InitByInstanceDeclaresRunningThenTypesTheFilesOwnPart) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  {
    CountingFile file;
    recorder.Clear();
    file.Init(component, &instance, "EXE", 3, 1, 4, 15, 9);
    EXPECT_EQ(recorder.calls,
              (Calls{"ObtainAComponentFileFromInstance(" + InstanceText(&instance) + ")",
                     "SetComponentFileInfos(f0," + FileInfosWords(3, 1, 4, 15, 9) + ")",
                     "DeclareFileRunning(f0,0)", "ObtainComponentPartFromFile(f0)",
                     "SetComponentPartType(p0,0xD)", "Release(p0)"}));
    EXPECT_EQ(file.initialized, 1);
    EXPECT_TRUE(file.IsRegistered());
    EXPECT_TRUE(Listed(&file));
    EXPECT_EQ(file.Handle(), RecordingComponentRegistry::File(0));
    recorder.Clear();
  }
  EXPECT_EQ(recorder.calls, (Calls{"DeclareFileStopping(f0)", "Release(f0)"}));
}

TEST(PComponentFile, InitByInstanceOfAFileWithoutAPartSetsNoType) {
  RecordingComponentRegistry recorder;
  recorder.filesWithoutPart = {RecordingComponentRegistry::File(0)};
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  CountingFile file;
  recorder.Clear();
  file.Init(component, &instance, "DLL", 1, 0, 0, 0, 0);
  EXPECT_EQ(recorder.calls.back(), "ObtainComponentPartFromFile(f0)");
  EXPECT_EQ(recorder.calls.size(), 4u);
  EXPECT_TRUE(file.IsRegistered());
}

TEST(PComponentFile, InitWithAPartNameHandsThePartToTheRegistry) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  CountingFile file;
  recorder.Clear();
  file.Init(component, PASCIIString("Viewer"), &instance, "OCX", 1, 2, 0, 27, 0);
  EXPECT_EQ(recorder.calls,
            (Calls{"ObtainAComponentFileFromInstance(" + InstanceText(&instance) + ")",
                   "SetComponentFileInfos(f0," + FileInfosWords(1, 2, 0, 27, 0) + ")",
                   "ObtainAComponentPart(c0,Viewer)", "SetComponentPartType(p0,0x40000003)",
                   "DeclareFileRunning(f0,p0)"}));
  // The part's reference went to the registry with the declaration.
  EXPECT_EQ(recorder.references[RecordingComponentRegistry::Part(0)], 1);
  EXPECT_EQ(file.initialized, 1);
  EXPECT_TRUE(Listed(&file));
}

TEST(PComponentFile, InitWithARefusedPartDeclaresRunningAloneThenTypesTheFilesPart) {
  RecordingComponentRegistry recorder;
  recorder.failing = {"ObtainAComponentPart"};
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  CountingFile file;
  recorder.Clear();
  file.Init(component, PASCIIString("Viewer"), &instance, "server", 1, 2, 0, 27, 0);
  EXPECT_EQ(
      recorder.calls,
      (Calls{"ObtainAComponentFileFromInstance(" + InstanceText(&instance) + ")",
             "SetComponentFileInfos(f0," + FileInfosWords(1, 2, 0, 27, 0) + ")",
             "ObtainAComponentPart(c0,Viewer)", "DeclareFileRunning(f0,0)",
             "ObtainComponentPartFromFile(f0)", "SetComponentPartType(p0,0x3)", "Release(p0)"}));
  EXPECT_TRUE(file.IsRegistered());
  EXPECT_TRUE(Listed(&file));
}

TEST(PComponentFile, InitByPathPassesTheMultibytePath) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  CountingFile file;
  recorder.Clear();
  file.Init(component, PASCIIString("Strings"), PString("/opt/suite/Strings.res"), "RES", 2, 0, 1,
            3, 0);
  EXPECT_EQ(recorder.calls,
            (Calls{"ObtainAComponentFileFromPath(/opt/suite/Strings.res)",
                   "SetComponentFileInfos(f0," + FileInfosWords(2, 0, 1, 3, 0) + ")",
                   "ObtainAComponentPart(c0,Strings)", "SetComponentPartType(p0,0x80000000)",
                   "DeclareFileRunning(f0,p0)"}));
  EXPECT_TRUE(file.IsRegistered());
}

TEST(PComponentFile, InitOfAnUnknownFileOnlyRunsInitialize) {
  RecordingComponentRegistry recorder;
  recorder.failing = {"ObtainAComponentFileFromInstance", "ObtainAComponentFileFromPath"};
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  CountingFile file;
  recorder.Clear();
  file.Init(component, &instance, "DLL", 1, 0, 0, 0, 0);
  file.Init(component, PASCIIString("Part"), &instance, "DLL", 1, 0, 0, 0, 0);
  file.Init(component, PASCIIString("Part"), PString("/nowhere"), "DLL", 1, 0, 0, 0, 0);
  EXPECT_EQ(recorder.calls,
            (Calls{"ObtainAComponentFileFromInstance(" + InstanceText(&instance) + ")",
                   "ObtainAComponentFileFromInstance(" + InstanceText(&instance) + ")",
                   "ObtainAComponentFileFromPath(/nowhere)"}));
  EXPECT_EQ(file.initialized, 3);
  EXPECT_FALSE(file.IsRegistered());
  EXPECT_FALSE(Listed(&file));
}

TEST(PComponentFile, InitOnAnInstanceUnknownToTheRegistryStillCallsInitialize) {
  PComponent component("Components", "UnknownInstance", 1, 0);
  int notAModule = 0;
  CountingFile file;
  file.Init(component, PASCIIString("Part"), &notAModule, "DLL", 1, 0, 0, 0, 0);
  EXPECT_EQ(file.initialized, 1);
  EXPECT_FALSE(file.IsRegistered());
  EXPECT_EQ(file.Handle(), nullptr);
  EXPECT_FALSE(Listed(&file));
}

TEST(PComponentFile, InitAgainLeavesTheListBeforeTakingTheNewFile) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  CountingFile file;
  file.Init(component, &instance, "DLL", 1, 0, 0, 0, 0);
  recorder.Clear();
  file.Init(component, &instance, "DLL", 1, 0, 0, 0, 0);
  EXPECT_EQ(recorder.calls[1], "Release(f0)");
  EXPECT_EQ(std::count(recorder.calls.begin(), recorder.calls.end(), "DeclareFileStopping(f0)"), 0);
  ULONG entries = 0;
  for (ULONG i = 0; PComponentFile* listed = gComponentFileList.At(i); ++i)
    entries += listed == &file;
  EXPECT_EQ(entries, 1u);
}

// --- Assignment and destruction ---------------------------------------------------

TEST(PComponentFile, AssigningToARegisteredFileLeavesTheListWithoutStopping) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  PComponentFile other(RecordingComponentRegistry::File(1), false);
  CountingFile file;
  file.Init(component, PASCIIString("Viewer"), &instance, "DLL", 1, 0, 0, 0, 0);
  ASSERT_TRUE(Listed(&file));
  recorder.Clear();
  static_cast<PComponentFile&>(file) = other;
  EXPECT_EQ(recorder.calls, (Calls{"AddRef(f1)", "Release(f0)"}));
  EXPECT_FALSE(file.IsRegistered());
  EXPECT_FALSE(Listed(&file));
  EXPECT_EQ(file.Handle(), RecordingComponentRegistry::File(1));
  recorder.Clear();
}

TEST(PComponentFile, DestroyingARegisteredFileDeclaresItStopping) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  const ULONG listedBefore = gComponentFileList.Size();
  {
    PComponentFile file;
    file.Init(component, PASCIIString("Viewer"), &instance, "DLL", 1, 0, 0, 0, 0);
    EXPECT_EQ(gComponentFileList.Size(), listedBefore + 1);
    recorder.Clear();
  }
  EXPECT_EQ(recorder.calls, (Calls{"DeclareFileStopping(f0)", "Release(f0)"}));
  EXPECT_EQ(gComponentFileList.Size(), listedBefore);
}

TEST(PComponentFile, AnUnregisteredFileOnlyReleasesEvenAZeroHandle) {
  RecordingComponentRegistry recorder;
  { PComponentFile empty; }
  { PComponentFile wrapped(RecordingComponentRegistry::File(2), true); }
  EXPECT_EQ(recorder.calls, (Calls{"Release(0)", "AddRef(f2)", "Release(f2)"}));
}

TEST(PComponentFile, ACopyHoldsItsOwnReferenceAndIsNotRegistered) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  CountingFile file;
  file.Init(component, &instance, "DLL", 1, 0, 0, 0, 0);
  recorder.Clear();
  {
    PComponentFile copy(file);
    EXPECT_EQ(copy.Handle(), file.Handle());
    EXPECT_FALSE(copy.IsRegistered());
    copy = copy;
    EXPECT_EQ(copy.Handle(), file.Handle());
  }
  EXPECT_EQ(recorder.calls, (Calls{"AddRef(f0)", "AddRef(f0)", "Release(f0)", "Release(f0)"}));
  EXPECT_TRUE(Listed(&file));
}

// --- What a file reads ------------------------------------------------------------

TEST(PComponentFile, NameIsThePartsWhenThereIsOneElseTheFiles) {
  RecordingComponentRegistry recorder;
  recorder.partName = "Viewer";
  recorder.fileName = "viewer32.dll";
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  recorder.Clear();
  EXPECT_EQ(std::string(file.Name()), "Viewer");
  EXPECT_EQ(recorder.calls,
            (Calls{"ObtainComponentPartFromFile(f0)", "GetComponentPartInfos(p0)", "Release(p0)"}));
  recorder.filesWithoutPart = {RecordingComponentRegistry::File(0)};
  EXPECT_EQ(std::string(file.Name()), "viewer32.dll");
  recorder.failing = {"GetComponentFileInfos"};
  EXPECT_EQ(std::string(file.Name()), "");
}

TEST(PComponentFile, TypeIsTheTextOfThePartsCode) {
  RecordingComponentRegistry recorder;
  recorder.partType = 0x40000007;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  recorder.Clear();
  EXPECT_EQ(std::string(file.Type()), "OCX");
  EXPECT_EQ(recorder.calls,
            (Calls{"ObtainComponentPartFromFile(f0)", "GetComponentPartType(p0)", "Release(p0)"}));
  recorder.filesWithoutPart = {RecordingComponentRegistry::File(0)};
  EXPECT_EQ(std::string(file.Type()), "");
}

TEST(PComponentFile, PathAndVersionsComeFromTheFileInfos) {
  RecordingComponentRegistry recorder;
  recorder.filePath = "/suite/bin/viewer32.dll";
  recorder.fileVersions[0] = 4;
  recorder.fileVersions[1] = 5;
  recorder.fileVersions[2] = 6;
  recorder.fileVersions[3] = 789;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  EXPECT_EQ(Text(file.Path()), "/suite/bin/viewer32.dll");
  EXPECT_EQ(file.MajorVersion(), 4u);
  EXPECT_EQ(file.MinorVersion(), 5u);
  EXPECT_EQ(file.FixesVersion(), 6u);
  EXPECT_EQ(file.BuildNumber(), 789u);
  recorder.failing = {"GetComponentFileInfos"};
  EXPECT_EQ(Text(file.Path()), "");
  EXPECT_EQ(file.MajorVersion(), 0u);
  EXPECT_EQ(file.MinorVersion(), 0u);
  EXPECT_EQ(file.FixesVersion(), 0u);
  EXPECT_EQ(file.BuildNumber(), 0u);
}

TEST(PComponentFile, VersionStringWithAndWithoutTheBuild) {
  RecordingComponentRegistry recorder;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  EXPECT_EQ(std::string(file.VersionString(false)), "1.2.0");
  EXPECT_EQ(std::string(file.VersionString(true)), "1.2.0 (27)");
  recorder.failing = {"GetComponentFileInfos"};
  EXPECT_EQ(std::string(file.VersionString(true)), "");
}

TEST(PComponentFile, SetResourceOffsetGoesToTheFilesPart) {
  RecordingComponentRegistry recorder;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  recorder.Clear();
  file.SetResourceOffset(-300);
  EXPECT_EQ(recorder.calls, (Calls{"ObtainComponentPartFromFile(f0)",
                                   "SetComponentPartResOffset(p0,-300)", "Release(p0)"}));
  recorder.filesWithoutPart = {RecordingComponentRegistry::File(0)};
  recorder.Clear();
  file.SetResourceOffset(5);
  EXPECT_EQ(recorder.calls, Calls{"ObtainComponentPartFromFile(f0)"});
}

TEST(PComponentFile, ResourceLocationIsThePartsModuleAndOffset) {
  RecordingComponentRegistry recorder;
  recorder.offset = 1000;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  recorder.Clear();
  NResourceLocation location = file.ResourceLocation();
  EXPECT_EQ(recorder.calls, (Calls{"ObtainComponentPartFromFile(f0)",
                                   "GetComponentPartResLocation(p0)", "Release(p0)"}));
  EXPECT_EQ(location.ResourceContainer(), recorder.module);
  EXPECT_EQ(location.ResourceBase(), 1000u);
}

TEST(PComponentFile, ANegativeResourceOffsetWrapsAsAnUnsignedBase) {
  RecordingComponentRegistry recorder;
  recorder.offset = -16;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  EXPECT_EQ(file.ResourceLocation().ResourceBase(), 4294967280u);
}

TEST(PComponentFile, ResourceLocationIsEmptyWithoutAPartOrAModule) {
  RecordingComponentRegistry recorder;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  recorder.failing = {"GetComponentPartResLocation"};
  recorder.Clear();
  NResourceLocation refused = file.ResourceLocation();
  EXPECT_EQ(recorder.calls, (Calls{"ObtainComponentPartFromFile(f0)",
                                   "GetComponentPartResLocation(p0)", "Release(p0)"}));
  EXPECT_EQ(refused.ResourceContainer(), nullptr);
  EXPECT_EQ(refused.ResourceBase(), 0u);

  recorder.filesWithoutPart = {RecordingComponentRegistry::File(0)};
  recorder.Clear();
  NResourceLocation partless = file.ResourceLocation();
  EXPECT_EQ(recorder.calls, Calls{"ObtainComponentPartFromFile(f0)"});
  EXPECT_EQ(partless.ResourceContainer(), nullptr);
  EXPECT_EQ(partless.ResourceBase(), 0u);
}

TEST(PComponentFile, GetComponentKeepsThePartAndComponentReferences) {
  RecordingComponentRegistry recorder;
  PComponentFile file(RecordingComponentRegistry::File(0), false);
  recorder.references.clear();
  recorder.Clear();
  {
    PComponent component = file.GetComponent();
    EXPECT_EQ(component.Handle(), RecordingComponentRegistry::Component(0));
  }
  // Deliberate and kept: one reference on the part and one on the component
  // stay with the registry after the returned object is gone.
  EXPECT_EQ(recorder.calls, (Calls{"ObtainComponentPartFromFile(f0)", "ObtainComponentFromPart(p0)",
                                   "AddRef(c0)", "Release(c0)"}));
  EXPECT_EQ(recorder.references[RecordingComponentRegistry::Part(0)], 1);
  EXPECT_EQ(recorder.references[RecordingComponentRegistry::Component(0)], 1);

  recorder.filesWithoutPart = {RecordingComponentRegistry::File(0)};
  EXPECT_EQ(file.GetComponent().Handle(), nullptr);
}

TEST(PComponentFile, GetComponentLeavesTheRealComponentAliveAfterEveryHolderIsGone) {
  qvbase::test::TempDir dir;
  std::string path = dir.File("Imbalance.dll");
  qvbase::test::WriteFile(path, "x");
  void* component = nullptr;
  {
    PComponent owner("Components", "Imbalance", 1, 0);
    component = owner.Handle();
    PComponentFile file;
    file.Init(owner, PASCIIString("Part"), PString(path.c_str()), "DLL", 1, 0, 0, 0, 0);
    ASSERT_TRUE(file.IsRegistered());
    PComponent fromFile = file.GetComponent();
    EXPECT_EQ(fromFile.Handle(), component);
  }
  // Deliberate and kept: the part's and the component's references that
  // GetComponent obtained were never given back.
  ASSERT_EQ(QVComp_AddRef(component), QVCOMP_OK);
  EXPECT_EQ(QVComp_Release(component), QVCOMP_OK);
}

TEST(PComponentFile, ApplicationFileWrapsTheObtainedFileUnregistered) {
  RecordingComponentRegistry recorder;
  {
    PComponentFile application = GGetApplicationComponentFile();
    EXPECT_EQ(application.Handle(), RecordingComponentRegistry::File(0));
    EXPECT_FALSE(application.IsRegistered());
  }
  EXPECT_EQ(recorder.references[RecordingComponentRegistry::File(0)], 0);
  recorder.failing = {"ObtainApplicationComponentFile"};
  EXPECT_EQ(GGetApplicationComponentFile().Handle(), nullptr);
}

TEST(PComponentFile, ApplicationFileIsTheRunningExecutable) {
  PComponentFile application = GGetApplicationComponentFile();
  ASSERT_NE(application.Handle(), nullptr);
  EXPECT_TRUE(std::filesystem::equivalent(Text(application.Path()), qvbase::test::SelfPath()));
}

// --- Walking the registered files ---------------------------------------------------

// A file of the test's own, registered by path as part `partName` of a
// component of the real registry.
class RegisteredFile {
public:
  RegisteredFile(const char* component, const char* partName, const char* fileName)
      : m_component("Components", component, 1, 0) {
    std::string path = m_dir.File(fileName);
    qvbase::test::WriteFile(path, "x");
    m_file.Init(m_component, PASCIIString(partName), PString(path.c_str()), "DLL", 1, 0, 0, 0, 0);
  }
  PComponentFile& file() { return m_file; }
  PComponent& component() { return m_component; }

  std::int32_t PartOffset() const {
    void* part = nullptr;
    if (QVComp_ObtainComponentPartFromFile(m_file.Handle(), &part) != QVCOMP_OK)
      return -1;
    QVCompPartInfos infos{};
    infos.size = sizeof infos;
    QVComp_GetComponentPartInfos(part, &infos);
    QVComp_Release(part);
    return static_cast<std::int32_t>(infos.resourceOffset);
  }

private:
  qvbase::test::TempDir m_dir;
  PComponent m_component;
  PComponentFile m_file;
};

TEST(PComponentFile, ResourceOffsetByNameReachesEveryMatchingFile) {
  RegisteredFile first("OffsetFirst", "Twin", "one.dll");
  RegisteredFile second("OffsetSecond", "TWIN", "two.dll");
  RegisteredFile other("OffsetOther", "Single", "three.dll");
  ASSERT_TRUE(first.file().IsRegistered());
  ASSERT_TRUE(second.file().IsRegistered());
  GSetComponentFileResourceOffset("twin", 300);
  EXPECT_EQ(first.PartOffset(), 300);
  EXPECT_EQ(second.PartOffset(), 300);
  EXPECT_EQ(other.PartOffset(), 0);
}

TEST(PComponentFile, ResourceHandleByComponentNameReachesEveryMatchingComponent) {
  RegisteredFile first("SharedRes", "Left", "left.dll");
  RegisteredFile second("SharedRes", "Right", "right.dll");
  RegisteredFile other("OtherRes", "Other", "other.dll");
  int module = 0;
  GSetComponentResourceHandle("SHAREDRES", &module);
  EXPECT_EQ(first.component().ObtainResHandle(), &module);
  EXPECT_EQ(second.component().ObtainResHandle(), &module);
  EXPECT_NE(other.component().ObtainResHandle(), &module);
  first.component().SetResHandle(nullptr);
}

TEST(PComponentFile, WalkingTheListAsksEachFileForItsComponentOrName) {
  RecordingComponentRegistry recorder;
  PComponent component(RecordingComponentRegistry::Component(0));
  int instance = 0;
  PComponentFile file;
  file.Init(component, PASCIIString("Viewer"), &instance, "DLL", 1, 0, 0, 0, 0);
  recorder.componentName = "Recorded";
  recorder.Clear();
  GSetComponentResourceHandle("recorded", &instance);
  EXPECT_EQ(std::count(recorder.calls.begin(), recorder.calls.end(),
                       "SetComponentResLocation(c0," + InstanceText(&instance) + ",0)"),
            1);
  recorder.partName = "Viewer";
  recorder.Clear();
  GSetComponentFileResourceOffset("VIEWER", 12);
  EXPECT_EQ(
      std::count(recorder.calls.begin(), recorder.calls.end(), "SetComponentPartResOffset(p0,12)"),
      1);
}

} // namespace

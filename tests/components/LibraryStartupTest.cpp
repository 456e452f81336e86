// The library's registration when it is loaded: the globals, the component
// file "Tessel" of QVKernel 1.2, the recorded resource DLL (read back through
// the API and through qvreg), a store that is not rewritten once it holds the
// value, stores that cannot be written, and the file declared stopping when
// the library is unloaded.
#include <qvbase/PComponent.h>

#include <qvbase/NResource.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>

#include "native/Modules.h"
#include "support/ResourceTestSupport.h"
#include "support/TestSupport.h"

#include <QVComponent.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace native = qvbase::native;

const char kResourcesKey[] =
    "HKEY_LOCAL_MACHINE\\Software\\Varnel\\Components\\QVKernel\\1.2\\Resources";

std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }

// The library's own file, found from one of its functions: the address of one
// of its global objects may be the executable's copy of it.
std::string LibraryPath() {
  std::string path;
  native::ModuleInstancePath(
      native::ModuleInstanceContaining(reinterpret_cast<const void*>(&GComponentEnumerate)), &path);
  return path;
}

// What a freshly started process finds about the library's registration.
int ReportStartup(const std::vector<std::string>&) {
  PComponent component = gTesselComponentFile.GetComponent();
  std::printf("registered=%d\n", gTesselComponentFile.IsRegistered() ? 1 : 0);
  std::printf("listed=%d\n", gComponentFileList.Contains(&gTesselComponentFile) ? 1 : 0);
  std::printf("name=%s\n", static_cast<const char*>(gTesselComponentFile.Name()));
  std::printf("type=%s\n", static_cast<const char*>(gTesselComponentFile.Type()));
  std::printf("version=%s\n", static_cast<const char*>(gTesselComponentFile.VersionString(true)));
  std::printf("component=%s %lu.%lu\n", static_cast<const char*>(component.Name()),
              static_cast<unsigned long>(component.MajorVersion()),
              static_cast<unsigned long>(component.MinorVersion()));
  std::printf("path-is-library=%d\n",
              fs::equivalent(Text(gTesselComponentFile.Path()), LibraryPath()) ? 1 : 0);
  return 0;
}
const bool kReportRegistered = qvbase::test::RegisterChildRole("startup-report", ReportStartup);

const char kHealthyReport[] = "registered=1\n"
                              "listed=1\n"
                              "name=Tessel\n"
                              "type=DLL\n"
                              "version=1.2.0 (27)\n"
                              "component=QVKernel 1.2\n"
                              "path-is-library=1\n";

// The registry calls of QVComponent, except that the library's own file
// declaring itself stopping is also written to the standard output.
QVCompFunctionTable gReportingTable;
void* gTesselHandle = nullptr;

int ReportStopping(void* file) {
  int result = QVComp_FunctionTable()->DeclareFileStopping(file);
  if (file == gTesselHandle) {
    std::printf("stopping=%p result=%d\n", file, result);
    std::fflush(stdout);
  }
  return result;
}

// Leaves main with the reporting table in place: the library's globals are
// destroyed after it returns.
int ReportUnload(const std::vector<std::string>&) {
  gTesselHandle = gTesselComponentFile.Handle();
  gReportingTable = *QVComp_FunctionTable();
  gReportingTable.DeclareFileStopping = ReportStopping;
  GSetComponentRegistry(&gReportingTable);
  std::printf("tessel=%p\n", gTesselHandle);
  std::fflush(stdout);
  return 0;
}
const bool kUnloadRegistered = qvbase::test::RegisterChildRole("unload-report", ReportUnload);

qvbase::test::RunResult RunChild(const char* role) {
  qvbase::test::RunResult result =
      qvbase::test::Run({qvbase::test::SelfPath(), "--qvtest-child", role});
  result.out = qvbase::test::Lines(result.out);
  return result;
}

TEST(LibraryStartup, TheLibraryIsFileTesselOfQVKernel) {
  EXPECT_TRUE(gTesselComponentFile.IsRegistered());
  EXPECT_TRUE(gComponentFileList.Contains(&gTesselComponentFile));
  EXPECT_EQ(std::string(gTesselComponentFile.Name()), "Tessel");
  EXPECT_EQ(std::string(gTesselComponentFile.Type()), "DLL");
  EXPECT_EQ(gTesselComponentFile.MajorVersion(), 1u);
  EXPECT_EQ(gTesselComponentFile.MinorVersion(), 2u);
  EXPECT_EQ(gTesselComponentFile.FixesVersion(), 0u);
  EXPECT_EQ(gTesselComponentFile.BuildNumber(), 27u);
  EXPECT_EQ(std::string(gTesselComponentFile.VersionString(false)), "1.2.0");
  EXPECT_EQ(std::string(gTesselComponentFile.VersionString(true)), "1.2.0 (27)");
  EXPECT_TRUE(fs::equivalent(Text(gTesselComponentFile.Path()), LibraryPath()));
}

TEST(LibraryStartup, TheLibrarysResourcesAreItsResourceModuleBesideIt) {
  NResourceLocation location = gTesselComponentFile.ResourceLocation();
  ASSERT_TRUE(location.IsValid());
  EXPECT_EQ(location.ResourceBase(), 0u);
  char path[1024] = {};
  ASSERT_GT(QVRes_GetModuleFileName(location.ResourceContainer(), path, sizeof path), 0u);
  EXPECT_TRUE(fs::equivalent(path, qvbase::test::KernelResourcesPath())) << path;
  EXPECT_EQ(gQVKernelComponent.ObtainResHandle(), location.ResourceContainer());
  // Its strings are the library's own.
  NResourceString text(/*number=*/kErrStreamOpenModeInvalid, location);
  std::string loaded = Text(PMBString(text));
  EXPECT_FALSE(loaded.empty());
  EXPECT_EQ(loaded.find("UNDEFINED RESOURCE STRING"), std::string::npos) << loaded;
  EXPECT_TRUE(text.IsValid());
}

TEST(LibraryStartup, TheLibrarysComponentIsQVKernel12) {
  EXPECT_EQ(std::string(gQVKernelComponent.Name()), "QVKernel");
  EXPECT_EQ(gQVKernelComponent.MajorVersion(), 1u);
  EXPECT_EQ(gQVKernelComponent.MinorVersion(), 2u);
  EXPECT_EQ(gTesselComponentFile.GetComponent().Handle(), gQVKernelComponent.Handle());
}

TEST(LibraryStartup, TheLibrarysFileIsTheBestRunningFileOfItsComponent) {
  struct Found {
    std::vector<std::string> names;
    static bool Record(const PComponentFile& file, void* context) {
      static_cast<Found*>(context)->names.push_back(std::string(file.Name()));
      return true;
    }
  } found;
  gQVKernelComponent.EnumerateFilesByType("dll", Found::Record, &found);
  EXPECT_EQ(found.names, std::vector<std::string>{"Tessel"});
}

TEST(LibraryStartup, AStartedProcessFindsTheRegistrationAndQvregTheResourceDll) {
  ASSERT_TRUE(kReportRegistered);
  qvbase::test::ScratchRegistry registry;
  qvbase::test::RunResult child = RunChild("startup-report");
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(child.out, kHealthyReport);
  qvbase::test::RunResult read =
      qvbase::test::Run({qvbase::test::BuiltProgram("qvreg"), "get", kResourcesKey, "DefResFile"});
  EXPECT_EQ(read.status, 0) << read.err;
  EXPECT_EQ(qvbase::test::Lines(read.out), "QVKernelRes12.dll\n");
}

TEST(LibraryStartup, UnloadingDeclaresTheLibrarysFileStopping) {
  ASSERT_TRUE(kUnloadRegistered);
  qvbase::test::RunResult child = RunChild("unload-report");
  EXPECT_EQ(child.status, 0) << child.err;
  std::size_t at = child.out.find("tessel=");
  ASSERT_NE(at, std::string::npos) << child.out;
  std::string handle = child.out.substr(at + 7, child.out.find('\n', at) - at - 7);
  EXPECT_NE(child.out.find("stopping=" + handle + " result=0\n"), std::string::npos) << child.out;
}

#if !defined(_WIN32)

// The store as it is on disk: a later rewrite would replace the file, and the
// link made here would keep naming the old one.
class StoreSnapshot {
public:
  explicit StoreSnapshot(const std::string& store) : m_store(store), m_link(store + ".seen") {
    fs::create_hard_link(m_store, m_link);
    m_written = fs::last_write_time(m_store);
    m_bytes = qvbase::test::ReadFile(m_store);
  }
  ~StoreSnapshot() {
    std::error_code ignored;
    fs::remove(m_link, ignored);
  }
  bool Unchanged() const {
    return fs::equivalent(m_store, m_link) && fs::last_write_time(m_store) == m_written &&
           qvbase::test::ReadFile(m_store) == m_bytes;
  }

private:
  std::string m_store, m_link;
  fs::file_time_type m_written;
  std::string m_bytes;
};

TEST(LibraryStartup, LoadingAgainLeavesAStoreThatHoldsTheValueUntouched) {
  qvbase::test::ScratchRegistry registry;
  ASSERT_EQ(RunChild("startup-report").out, kHealthyReport);
  StoreSnapshot before(registry.StoreFile());
  fs::remove(registry.StoreFile() + ".lock");
  EXPECT_EQ(RunChild("startup-report").out, kHealthyReport);
  EXPECT_TRUE(before.Unchanged());
  // Not even the writers' lock was taken.
  EXPECT_FALSE(qvbase::test::FileExists(registry.StoreFile() + ".lock"));
}

TEST(LibraryStartup, AReadOnlyStoreLeavesTheLibraryLoadedAndWorking) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::WriteFile(registry.StoreFile(), "Windows Registry Editor Version 5.00\r\n\r\n"
                                                "[HKEY_CURRENT_USER\\Software\\Other]\r\n"
                                                "\"kept\"=\"as it is\"\r\n");
  fs::path folder = fs::path(registry.StoreFile()).parent_path();
  // Read-only file and folder; and since a privileged user writes through
  // those, the writers' lock file cannot be made either.
  fs::create_directory(registry.StoreFile() + ".lock");
  fs::permissions(registry.StoreFile(), fs::perms::owner_read | fs::perms::group_read);
  fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
  {
    StoreSnapshot before(registry.StoreFile());
    qvbase::test::RunResult child = RunChild("startup-report");
    EXPECT_EQ(child.status, 0) << child.err;
    EXPECT_EQ(child.out, kHealthyReport);
    EXPECT_TRUE(before.Unchanged());
  }
  fs::permissions(folder, fs::perms::owner_all);
}

TEST(LibraryStartup, AMalformedStoreLeavesTheLibraryLoadedAndWorking) {
  qvbase::test::ScratchRegistry registry;
  const std::string garbage = "this is not a registry file\n[unterminated\n";
  qvbase::test::WriteFile(registry.StoreFile(), garbage);
  qvbase::test::RunResult child = RunChild("startup-report");
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(child.out, kHealthyReport);
  EXPECT_EQ(qvbase::test::ReadFile(registry.StoreFile()), garbage);
}

TEST(LibraryStartup, AStoreWhoseFolderCannotBeMadeLeavesTheLibraryLoadedAndWorking) {
  qvbase::test::TempDir dir;
  // A file stands where the store's folder would have to be made.
  qvbase::test::WriteFile(dir.File("blocked"), "x");
  std::string store = dir.File("blocked") + "/qvbase/registry.reg";
  qvbase::test::ScopedEnv env("QVBASE_REGISTRY", store.c_str());
  qvbase::test::RunResult child = RunChild("startup-report");
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(child.out, kHealthyReport);
  EXPECT_EQ(qvbase::test::ReadFile(dir.File("blocked")), "x");
}

#endif

} // namespace

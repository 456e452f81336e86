// ResourceTestSupport.h - the test resource module, loaded for one test.
// Part of qvbase, the QVKernel foundation class library.
//
// The build compiles tests/data/ResourceTest.rc beside the test executables:
// ResourceTest.res (Linux) or ResourceTest.dll (Windows), and on Linux also
// the PE images ResourceTestImage.dll (64-bit) and ResourceTestImage32.dll;
// and ResourceTestUnshifted.rc the same way, a second module without the
// first one's shifted strings. Identifiers are in tests/data/ResourceTestIds.h.
#pragma once

#include "support/TestSupport.h"

#include <QVResModule.h>

#include <string>

namespace qvbase::test {

// A file that the build put beside the test executables.
inline std::string BuiltFile(const std::string& name) { return BinaryDir() + "/" + name; }

// A test module in the platform's own form: ResourceTest unless named.
inline std::string TestModulePath(const std::string& name = "ResourceTest") {
#if defined(_WIN32)
  return BuiltFile(name + ".dll");
#else
  return BuiltFile(name + ".res");
#endif
}

// The library's own resource module as the build left it beside the library.
inline std::string KernelResourcesPath() {
#if defined(_WIN32)
  return BuiltFile("QVKernelRes12.dll");
#else
  return BinaryDir() + "/../lib/QVKernelRes12.res";
#endif
}

// Loads a resource module with QVRes_LoadModule and frees it at the end.
class ScopedResourceModule {
public:
  explicit ScopedResourceModule(const std::string& path = TestModulePath())
      : m_result(QVRes_LoadModule(path.c_str(), &m_handle)) {}
  ~ScopedResourceModule() {
    if (m_handle)
      QVRes_FreeModule(m_handle);
  }
  ScopedResourceModule(const ScopedResourceModule&) = delete;
  ScopedResourceModule& operator=(const ScopedResourceModule&) = delete;

  // 0 when loaded (QVRES_OK), else the load's failure.
  int result() const { return m_result; }
  void* handle() const { return m_handle; }

private:
  void* m_handle = nullptr;
  int m_result;
};

} // namespace qvbase::test

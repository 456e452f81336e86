// KernelResourcesTestSupport.h - the library's own resource module, given to
// its component for one test.
// Part of qvbase, the QVKernel foundation class library.
#pragma once

#include <qvbase/PComponent.h>

#include "support/ResourceTestSupport.h"

namespace qvbase::test {

// Loads QVKernelRes12 as the build left it (or another module) and makes it
// the QVKernel component's resource module (SetResHandle), so that the
// library's own resources (gTesselComponentFile's location) come from it,
// whatever the registry library finds by itself. At the end the component is
// given no module again and the module is freed.
class ScopedKernelResources {
public:
  explicit ScopedKernelResources(const std::string& path = KernelResourcesPath()) : m_module(path) {
    if (m_module.result() == QVRES_OK)
      gQVKernelComponent.SetResHandle(m_module.handle());
  }
  ~ScopedKernelResources() {
    if (m_module.result() == QVRES_OK)
      gQVKernelComponent.SetResHandle(nullptr);
  }
  ScopedKernelResources(const ScopedKernelResources&) = delete;
  ScopedKernelResources& operator=(const ScopedKernelResources&) = delete;

  // 0 when loaded (QVRES_OK), else the load's failure.
  int result() const { return m_module.result(); }
  void* handle() const { return m_module.handle(); }

private:
  ScopedResourceModule m_module;
};

} // namespace qvbase::test

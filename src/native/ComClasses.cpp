// ComClasses.cpp - the process's table of in-process classes.
// Part of qvbase, the QVKernel foundation class library.
#include "native/ComClasses.h"

#include <mutex>
#include <vector>

namespace qvbase {
namespace native {

namespace {

struct ClassEntry {
  CLSID clsid;
  ClassCreateFunction create;
};

// Function-local statics, so that a module's static initialiser can register
// a class before this file's own globals would have been constructed.
std::mutex& TableMutex() {
  static std::mutex mutex;
  return mutex;
}

std::vector<ClassEntry>& Table() {
  static std::vector<ClassEntry> table;
  return table;
}

std::vector<ClassEntry>::iterator FindEntry(std::vector<ClassEntry>& table, REFCLSID clsid) {
  for (auto it = table.begin(); it != table.end(); ++it)
    if (IsEqualCLSID(it->clsid, clsid))
      return it;
  return table.end();
}

ClassCreateFunction RegisteredFunction(REFCLSID clsid) {
  std::lock_guard<std::mutex> lock(TableMutex());
  auto& table = Table();
  auto it = FindEntry(table, clsid);
  return it == table.end() ? nullptr : it->create;
}

} // namespace

HRESULT RegisterClassFactory(REFCLSID clsid, ClassCreateFunction create) {
  if (!create)
    return E_INVALIDARG;
  std::lock_guard<std::mutex> lock(TableMutex());
  auto& table = Table();
  auto it = FindEntry(table, clsid);
  if (it != table.end())
    it->create = create;
  else
    table.push_back(ClassEntry{clsid, create});
  return S_OK;
}

HRESULT UnregisterClassFactory(REFCLSID clsid) {
  std::lock_guard<std::mutex> lock(TableMutex());
  auto& table = Table();
  auto it = FindEntry(table, clsid);
  if (it == table.end())
    return REGDB_E_CLASSNOTREG;
  table.erase(it);
  return S_OK;
}

HRESULT CreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** out) {
  if (!out)
    return E_POINTER;
  *out = nullptr;
  if (outer)
    return CLASS_E_NOAGGREGATION;
  HRESULT hr;
  // The function runs outside the lock: it may create or register classes.
  if (ClassCreateFunction create = RegisteredFunction(clsid))
    hr = create(iid, out);
  else
    hr = CreateSystemInstance(clsid, context, iid, out);
  if (FAILED(hr))
    *out = nullptr;
  return hr;
}

} // namespace native
} // namespace qvbase

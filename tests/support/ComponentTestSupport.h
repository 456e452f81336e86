// ComponentTestSupport.h - the registry keys of a test's components.
// Part of qvbase, the QVKernel foundation class library.
//
// Components record their resource files below HKEY_LOCAL_MACHINE, at the
// paths the component registry defines: Software\Varnel\Components\<name>.
// On Windows that is the machine's registry; elsewhere the store of the
// test's ScratchRegistry.
#pragma once

#include "native/Registry.h"

#include <string>

namespace qvbase::test {

// A string value below HKEY_LOCAL_MACHINE; "<missing>" when there is none.
inline std::string MachineText(const std::string& path, const char* name) {
  namespace native = qvbase::native;
  native::RegKey key = nullptr;
  if (native::OpenRegKey(native::kRegLocalMachine, path.c_str(), native::kKeyRead, &key) !=
      ERROR_SUCCESS)
    return "<missing>";
  char buffer[600] = {};
  DWORD size = sizeof buffer - 1, type = 0;
  LONG rc = native::QueryRegValue(key, name, &type, reinterpret_cast<BYTE*>(buffer), &size);
  native::CloseRegKey(key);
  if (rc != ERROR_SUCCESS || type != native::kRegSz)
    return "<missing>";
  return buffer;
}

// Writes a string value below HKEY_LOCAL_MACHINE (a null name: the key's
// default value), creating the key; true when written.
inline bool SetMachineText(const std::string& path, const char* name, const std::string& text) {
  namespace native = qvbase::native;
  native::RegKey key = nullptr;
  if (native::CreateRegKey(native::kRegLocalMachine, path.c_str(), "", native::kKeyWrite, &key,
                           nullptr) != ERROR_SUCCESS)
    return false;
  LONG rc =
      native::SetRegValue(key, name, native::kRegSz, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>(text.size() + 1));
  native::CloseRegKey(key);
  return rc == ERROR_SUCCESS;
}

// A component's keys below HKEY_LOCAL_MACHINE, deleted when made and at the
// end.
class ComponentKeys {
public:
  explicit ComponentKeys(const std::string& name)
      : m_path("Software\\Varnel\\Components\\" + name) {
    Delete();
  }
  ~ComponentKeys() { Delete(); }
  ComponentKeys(const ComponentKeys&) = delete;
  ComponentKeys& operator=(const ComponentKeys&) = delete;

  // Where version "<major>.<minor>" records its resource files.
  std::string Resources(const std::string& version) const {
    return m_path + "\\" + version + "\\Resources";
  }

private:
  void Delete() {
    qvbase::native::DeleteRegTree(qvbase::native::kRegLocalMachine, m_path.c_str());
    qvbase::native::DeleteRegKey(qvbase::native::kRegLocalMachine, m_path.c_str());
  }

  std::string m_path;
};

} // namespace qvbase::test

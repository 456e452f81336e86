// TestSupport.cpp - scratch files, scratch registry keys and child processes.
#include "support/TestSupport.h"

#include "native/Process.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <stdexcept>

namespace fs = std::filesystem;

namespace qvbase::test {

namespace {

std::string UniqueName() {
  static std::atomic<unsigned> counter{0};
  static const unsigned salt = std::random_device{}();
  return std::to_string(qvbase::native::CurrentProcessId()) + "-" + std::to_string(salt % 100000) +
         "-" + std::to_string(counter++);
}

} // namespace

std::string SelfPath() { return qvbase::native::ExecutablePath(); }

std::string BinaryDir() { return fs::path(SelfPath()).parent_path().string(); }

std::string BuiltProgram(const std::string& name) {
#if defined(_WIN32)
  return (fs::path(BinaryDir()) / (name + ".exe")).string();
#else
  return (fs::path(BinaryDir()) / name).string();
#endif
}

TempDir::TempDir() {
  fs::path dir = fs::temp_directory_path() / ("qvbase-test-" + UniqueName());
  fs::create_directories(dir);
  m_path = dir.generic_string();
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(m_path, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in)
    throw std::runtime_error("cannot read " + path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out)
    throw std::runtime_error("cannot write " + path);
}

bool FileExists(const std::string& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : m_name(name) {
  m_hadOld = qvbase::native::GetEnv(name, &m_old);
  qvbase::native::SetEnv(name, value);
}

ScopedEnv::~ScopedEnv() {
  qvbase::native::SetEnv(m_name.c_str(), m_hadOld ? m_old.c_str() : nullptr);
}

ScratchRegistry::ScratchRegistry() {
#if !defined(_WIN32)
  m_storeFile = m_dir.File("registry.reg");
  m_env = new ScopedEnv("QVBASE_REGISTRY", m_storeFile.c_str());
#endif
  m_keyPath = "Software\\qvbase-tests\\" + UniqueName();
}

ScratchRegistry::~ScratchRegistry() {
  qvbase::native::DeleteRegTree(qvbase::native::kRegCurrentUser, m_keyPath.c_str());
  qvbase::native::DeleteRegKey(qvbase::native::kRegCurrentUser, "Software\\qvbase-tests");
  delete m_env;
}

RunResult Run(const std::vector<std::string>& argv) {
  TempDir dir;
  std::string out = dir.File("stdout"), err = dir.File("stderr");
  RunResult result;
  qvbase::native::Process p = qvbase::native::SpawnProcess(argv, out, err);
  if (!p)
    throw std::runtime_error("cannot start " + argv.at(0));
  result.status = qvbase::native::WaitProcess(p);
  result.out = ReadFile(out);
  result.err = ReadFile(err);
  return result;
}

std::map<std::string, ChildRole>& ChildRoles() {
  static std::map<std::string, ChildRole> roles;
  return roles;
}

bool RegisterChildRole(const char* role, ChildRole function) {
  ChildRoles()[role] = function;
  return true;
}

} // namespace qvbase::test

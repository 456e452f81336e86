// TestSupport.h - scratch files, scratch registry keys and child processes
// for the test suites.
#pragma once

#include "native/Registry.h"

#include <string>
#include <vector>

namespace qvbase::test {

// The running test executable, and the folder every built binary lands in.
std::string SelfPath();
std::string BinaryDir();

// A program of this build: "qvreg" gives bin/qvreg (qvreg.exe on Windows).
std::string BuiltProgram(const std::string& name);

// A fresh, empty directory that is removed with everything in it at the end.
class TempDir {
public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return m_path; }
  std::string File(const std::string& name) const { return m_path + "/" + name; }

private:
  std::string m_path;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);
bool FileExists(const std::string& path);

// Sets an environment variable for its lifetime and restores it after.
class ScopedEnv {
public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
  std::string m_name, m_old;
  bool m_hadOld;
};

// A registry of the test's own: on POSIX a store file in a temporary folder
// (QVBASE_REGISTRY points at it meanwhile); everywhere a fresh key below
// HKEY_CURRENT_USER\Software\qvbase-tests, deleted at the end.
class ScratchRegistry {
public:
  ScratchRegistry();
  ~ScratchRegistry();
  ScratchRegistry(const ScratchRegistry&) = delete;
  ScratchRegistry& operator=(const ScratchRegistry&) = delete;

  // "Software\qvbase-tests\<unique>", below HKEY_CURRENT_USER.
  const std::string& KeyPath() const { return m_keyPath; }
  // "HKEY_CURRENT_USER\Software\qvbase-tests\<unique>", as qvreg takes it.
  std::string FullKeyName() const { return "HKEY_CURRENT_USER\\" + m_keyPath; }
  // The POSIX store file; empty on Windows.
  const std::string& StoreFile() const { return m_storeFile; }

private:
  TempDir m_dir;
  std::string m_storeFile;
  std::string m_keyPath;
  ScopedEnv* m_env = nullptr;
};

// Runs a program to its end; returns its exit status and what it printed.
struct RunResult {
  int status = -1;
  std::string out;
  std::string err;
};
RunResult Run(const std::vector<std::string>& argv);

// A program's output with "\r\n" as "\n": programs print "\n", which the C
// runtime writes as "\r\n" under Windows.
inline std::string Lines(std::string text) {
  for (std::size_t p; (p = text.find("\r\n")) != std::string::npos;)
    text.erase(p, 1);
  return text;
}

// Exactly one line, ended by its line break: how tools report a failure.
inline bool IsOneLine(const std::string& text) {
  const std::string t = Lines(text);
  return !t.empty() && t.find('\n') == t.size() - 1;
}

// Tests that need a second process start this executable again with
// "--qvtest-child <role> args..."; a role is registered before main runs.
typedef int (*ChildRole)(const std::vector<std::string>& args);
bool RegisterChildRole(const char* role, ChildRole function);

} // namespace qvbase::test

// The support's namespace was called qvtest before the suites settled on
// qvbase::test; code written against the old name keeps compiling. New code
// uses qvbase::test.
namespace qvtest {
using namespace qvbase::test;
} // namespace qvtest

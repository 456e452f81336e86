// ProcessPosix.cpp - processes and the environment on POSIX systems.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Process.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace qvbase {
namespace native {

struct ProcessOpaque {
  pid_t pid;
};

Process SpawnProcess(const std::vector<std::string>& argv, const std::string& stdoutPath,
                     const std::string& stderrPath) {
  if (argv.empty())
    return nullptr;
  std::vector<char*> args;
  for (const std::string& a : argv)
    args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  if (!stdoutPath.empty())
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, stdoutPath.c_str(), flags, 0644);
  if (!stderrPath.empty())
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, stderrPath.c_str(), flags, 0644);
  pid_t pid;
  int rc = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0)
    return nullptr;
  return new ProcessOpaque{pid};
}

int WaitProcess(Process process) {
  if (!process)
    return -1;
  int status = 0;
  pid_t rc;
  do {
    rc = waitpid(process->pid, &status, 0);
  } while (rc < 0 && errno == EINTR);
  delete process;
  if (rc < 0 || !WIFEXITED(status))
    return -1;
  return WEXITSTATUS(status);
}

bool GetEnv(const char* name, std::string* value) {
  const char* v = std::getenv(name);
  if (!v)
    return false;
  *value = v;
  return true;
}

bool SetEnv(const char* name, const char* value) {
  return (value ? setenv(name, value, 1) : unsetenv(name)) == 0;
}

std::string ExecutablePath() {
  char buffer[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  if (n <= 0)
    return {};
  return std::string(buffer, static_cast<std::size_t>(n));
}

unsigned long CurrentProcessId() { return static_cast<unsigned long>(getpid()); }

bool StandardOutputIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

} // namespace native
} // namespace qvbase

// ProcessWin32.cpp - processes and the environment on Windows.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Process.h"

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace native {

namespace {

// Quotes one argument so that the C runtime's command-line parser gives it
// back unchanged: backslashes double only before a quote.
void AppendQuoted(std::string* commandLine, const std::string& arg) {
  if (!arg.empty() && arg.find_first_of(" \t\n\v\"") == std::string::npos) {
    *commandLine += arg;
    return;
  }
  *commandLine += '"';
  std::size_t backslashes = 0;
  for (char c : arg) {
    if (c == '\\') {
      ++backslashes;
    } else if (c == '"') {
      commandLine->append(backslashes * 2 + 1, '\\');
      backslashes = 0;
    } else {
      commandLine->append(backslashes, '\\');
      backslashes = 0;
    }
    if (c != '\\')
      *commandLine += c;
  }
  commandLine->append(backslashes * 2, '\\');
  *commandLine += '"';
}

HANDLE OpenOutput(const std::string& path) {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  return CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                     CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

} // namespace

struct ProcessOpaque {
  HANDLE handle;
};

Process SpawnProcess(const std::vector<std::string>& argv, const std::string& stdoutPath,
                     const std::string& stderrPath) {
  if (argv.empty())
    return nullptr;
  std::string commandLine;
  for (std::size_t i = 0; i < argv.size(); ++i) {
    if (i)
      commandLine += ' ';
    AppendQuoted(&commandLine, argv[i]);
  }
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  HANDLE out = INVALID_HANDLE_VALUE, err = INVALID_HANDLE_VALUE;
  if (!stdoutPath.empty() || !stderrPath.empty()) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    if (!stdoutPath.empty()) {
      out = OpenOutput(stdoutPath);
      startup.hStdOutput = out;
    }
    if (!stderrPath.empty()) {
      err = OpenOutput(stderrPath);
      startup.hStdError = err;
    }
  }
  PROCESS_INFORMATION info = {};
  BOOL ok = CreateProcessA(argv[0].c_str(), &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr,
                           nullptr, &startup, &info);
  if (out != INVALID_HANDLE_VALUE)
    CloseHandle(out);
  if (err != INVALID_HANDLE_VALUE)
    CloseHandle(err);
  if (!ok)
    return nullptr;
  CloseHandle(info.hThread);
  return new ProcessOpaque{info.hProcess};
}

int WaitProcess(Process process) {
  if (!process)
    return -1;
  DWORD code = 0;
  bool ok = WaitForSingleObject(process->handle, INFINITE) == WAIT_OBJECT_0 &&
            GetExitCodeProcess(process->handle, &code);
  CloseHandle(process->handle);
  delete process;
  return ok ? static_cast<int>(code) : -1;
}

bool GetEnv(const char* name, std::string* value) {
  DWORD size = GetEnvironmentVariableA(name, nullptr, 0);
  if (size == 0)
    return false;
  std::string buffer(size, '\0');
  DWORD n = GetEnvironmentVariableA(name, &buffer[0], size);
  if (n == 0 || n >= size)
    return false;
  buffer.resize(n);
  *value = buffer;
  return true;
}

bool SetEnv(const char* name, const char* value) {
  return SetEnvironmentVariableA(name, value) != 0;
}

std::string ExecutablePath() {
  std::string buffer(MAX_PATH, '\0');
  while (true) {
    DWORD n = GetModuleFileNameA(nullptr, &buffer[0], static_cast<DWORD>(buffer.size()));
    if (n == 0)
      return {};
    if (n < buffer.size()) {
      buffer.resize(n);
      return buffer;
    }
    buffer.resize(buffer.size() * 2);
  }
}

unsigned long CurrentProcessId() { return GetCurrentProcessId(); }

bool StandardOutputIsTerminal() {
  // Only a console has a console mode: files and pipes fail the call.
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != FALSE;
}

} // namespace native
} // namespace qvbase

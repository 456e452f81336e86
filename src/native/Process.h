// Process.h - the platform layer's process, environment and file helpers.
// Part of qvbase, the QVKernel foundation class library.
//
// What the tools and the tests need of the operating system beyond the
// registry: starting a program and waiting for it, the environment, the
// running executable's path, the process identifier and whether standard
// output is a terminal. Paths and texts are
// the process's multibyte bytes on every platform.
#pragma once

#include <string>
#include <vector>

namespace qvbase {
namespace native {

struct ProcessOpaque;
typedef ProcessOpaque* Process;

// Starts `argv[0]` with the arguments that follow, inheriting the environment.
// Standard output and error go to the named files when not empty (created or
// truncated), else to this process's own. Null when the program cannot start.
Process SpawnProcess(const std::vector<std::string>& argv, const std::string& stdoutPath = {},
                     const std::string& stderrPath = {});

// Waits for the process to end and releases it; its exit status, or -1 when
// it could not be waited for or did not exit normally.
int WaitProcess(Process process);

// The value of an environment variable, and whether it is set.
bool GetEnv(const char* name, std::string* value);

// Sets (or, with a null value, removes) an environment variable of this
// process, for the programs it starts afterwards.
bool SetEnv(const char* name, const char* value);

// The full path of the running executable.
std::string ExecutablePath();

unsigned long CurrentProcessId();

// Whether this process's standard output is a terminal (on Windows a
// console), where a program may redraw a line in place; false for a file or
// a pipe.
bool StandardOutputIsTerminal();

} // namespace native
} // namespace qvbase

// GDbg.cpp - the error trace log and the debug-output entry points.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/GDbg.h>

#include "errors/ErrorTrace.h"
#include "native/Registry.h"

#include <cstdio>
#include <cstring>

namespace {

namespace native = qvbase::native;

enum TraceState { kNotRead = 0, kOff = 1, kOn = 2 };

constexpr DWORD kPathSize = 512;

int gState = kNotRead;
char gPath[kPathSize];
int gDepth = 0;
int gNoErrorMode = 0;
std::FILE* gFile = nullptr; // open only while one record is written

// Reads the switch once: HKLM\Software, then Varnel, then Config, each opened
// in turn; the value must be a string. The file is emptied at that read.
void ReadConfiguration() {
  gState = kOff;
  native::RegKey software = nullptr, varnel = nullptr, config = nullptr;
  if (native::OpenRegKey(native::kRegLocalMachine, "Software", native::kKeyRead, &software) ==
          ERROR_SUCCESS &&
      native::OpenRegKey(software, "Varnel", native::kKeyRead, &varnel) == ERROR_SUCCESS &&
      native::OpenRegKey(varnel, "Config", native::kKeyRead, &config) == ERROR_SUCCESS) {
    DWORD type = 0, size = kPathSize;
    char path[kPathSize];
    if (native::QueryRegValue(config, "errorfile", &type, reinterpret_cast<BYTE*>(path), &size) ==
            ERROR_SUCCESS &&
        type == native::kRegSz && size > 0) {
      path[size < kPathSize ? size : kPathSize - 1] = '\0';
      std::memcpy(gPath, path, kPathSize);
      if (std::FILE* f = std::fopen(gPath, "w")) {
        std::fclose(f);
        gState = kOn;
      }
    }
  }
  for (native::RegKey key : {config, varnel, software})
    if (key)
      native::CloseRegKey(key);
}

// Opens the file for one record; false when tracing is off.
bool BeginRecord() {
  if (gState == kNotRead)
    ReadConfiguration();
  if (gState != kOn)
    return false;
  gFile = std::fopen(gPath, "a");
  return gFile != nullptr;
}

void EndRecord() {
  std::fclose(gFile);
  gFile = nullptr;
}

void Write(const char* text) {
  if (gFile)
    std::fputs(text, gFile);
}

void Indent() {
  for (int i = 0; i < gDepth; ++i)
    Write("   ");
}

const char* SeverityTraceName(TypErrorSeverityEnum severity) {
  switch (severity) {
  case ErrorSeverityAbort:
    return "abort error";
  case ErrorSeverityError:
    return "error";
  case ErrorSeverityWarning:
    return "warning";
  case ErrorSeverityFatal:
    return "fatal error";
  }
  return "bad severity error";
}

void CloseBlock() {
  --gDepth;
  Indent();
  Write("***\n");
}

} // namespace

namespace qvbase::errors {

void TraceErrorSignalled(const PError& error) {
  // Written in no-error mode too, but without opening a block.
  if (!BeginRecord())
    return;
  if (gNoErrorMode == 0) {
    Indent();
    Write("***\n");
  }
  Indent();
  error.DbgOutput(Write);
  Write("\n");
  if (gNoErrorMode == 0)
    ++gDepth;
  EndRecord();
}

void TraceErrorTransformed(const PError& error) {
  if (gNoErrorMode > 0 || !BeginRecord())
    return;
  char line[128];
  std::snprintf(line, sizeof line,
                "--> transformed to %s %i :", SeverityTraceName(error.Severity()), error.Code());
  Indent();
  Write(line);
  error.DbgDisplayOutput(Write);
  Write("\n");
  EndRecord();
}

void TraceErrorIgnored() {
  if (gNoErrorMode > 0 || !BeginRecord())
    return;
  Indent();
  Write("--> ignored\n");
  CloseBlock();
  EndRecord();
}

} // namespace qvbase::errors

void GDbgEnterHandling(const PError&, const char* file, ULONG line) {
  if (gNoErrorMode > 0 || !BeginRecord())
    return;
  char text[32];
  std::snprintf(text, sizeof text, " (line %u)", static_cast<unsigned>(line));
  Indent();
  Write("--> handled by file ");
  Write(file ? file : ""); // whole, however long
  Write(text);
  EndRecord();
}

void GDbgErrorForwarded(const PError& error, const char*, ULONG line) {
  if (gNoErrorMode > 0 || !BeginRecord())
    return;
  char text[96];
  std::snprintf(text, sizeof text, " and redispatched as error %i at line %u\n", error.Code(),
                static_cast<unsigned>(line));
  Write(text);
  EndRecord();
}

void GDbgErrorCatched(const PError&, const char*, ULONG line) {
  if (gNoErrorMode > 0 || !BeginRecord())
    return;
  char text[64];
  std::snprintf(text, sizeof text, " and catched at line %u\n", static_cast<unsigned>(line));
  Write(text);
  CloseBlock();
  EndRecord();
}

void GDbgEnterNoErrorMode(const char*, ULONG) { ++gNoErrorMode; }

void GDbgExitNoErrorMode() { --gNoErrorMode; }

TypDbgOutputMethod GDbgGetOutputMethod() { return nullptr; }
void GDbgSetOutputMethod(TypDbgOutputMethod) {}
void GDbgPrint(const char*, ...) {}
void GDbgFPrint(const char*, ULONG, const char*, ...) {}
void GDbgAssert(bool, const char*, ULONG) {}
void GDbgAlertMethod(const char*) {}
void GDbgOutwinMethod(const char*) {}
void GDbgStderrMethod(const char*) {}
void GDbgStdoutMethod(const char*) {}

void GDbgFOutput(TypDbgOutputMethod output, const char* format, std::va_list arguments) {
  if (!output || !format)
    return;
  char buffer[1024];
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  output(buffer);
}

void GDbgOutput(TypDbgOutputMethod output, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  GDbgFOutput(output, format, arguments);
  va_end(arguments);
}

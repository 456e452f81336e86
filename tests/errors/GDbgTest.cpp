// The error trace log: switched on by the registry, read once per process,
// and the exact records of signalled, transformed, ignored, handled,
// forwarded and caught errors. Each case runs in a child process, since the
// switch is read once per process.
#include <qvbase/GDbg.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>

#include "errors/RaiseError.h"
#include "native/Process.h"
#include "native/Registry.h"
#include "support/ErrorTestSupport.h"
#include "support/KernelResourcesTestSupport.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

namespace native = qvbase::native;

const char kFile[] = "src\\Trace";

// Raises as the library does, from the trace tests' own position.
void Raise(int code, TypErrorSeverityEnum severity, ULONG line) {
  qvbase::errors::Raise(code, severity, kFile, line);
}

// An error caught, reported as forwarded and rethrown, then caught outside.
void ForwardedJourney() {
  try {
    try {
      Raise(kErrStreamOpenModeInvalid, ErrorSeverityError, 5);
    } catch (const PError& error) {
      GDbgEnterHandling(error, "inner.cpp", 10);
      GDbgErrorForwarded(error, "inner.cpp", 11);
      throw;
    }
  } catch (const PError& error) {
    GDbgEnterHandling(error, "outer.cpp", 20);
    GDbgErrorCatched(error, "outer.cpp", 21);
  }
}

// An error that a hook answering "retry" transforms into the retry code.
void TransformedJourney() {
  qvbase::test::CountingHook hook(ErrorHandlingRetry);
  PErrorHookProtection protection(&hook, true);
  try {
    Raise(kErrStreamSeekPastEnd, ErrorSeverityError, 3);
  } catch (const PError& error) {
    GDbgEnterHandling(error, "app.cpp", 40);
    GDbgErrorCatched(error, "app.cpp", 41);
  }
}

// The child's side: one scenario per name.
int TraceRole(const std::vector<std::string>& args) {
  const std::string scenario = args.empty() ? "" : args[0];
  // The library's texts for its codes come from its component's resource
  // module: the test module, which holds none of them, stands in for it, so
  // that the records below show the errors' info instead.
  const qvbase::test::ScopedKernelResources withoutTexts(qvbase::test::TestModulePath());
  if (scenario == "warning-twice") {
    Raise(kErrStreamNoHandler, ErrorSeverityWarning, 7);
    Raise(kErrStreamNoHandler, ErrorSeverityWarning, 7);
  } else if (scenario == "caught") {
    try {
      Raise(kErrStreamNoHandler, ErrorSeverityError, 9);
    } catch (const PError& error) {
      GDbgEnterHandling(error, "app.cpp", 30);
      GDbgErrorCatched(error, "app.cpp", 31);
    }
  } else if (scenario == "forwarded") {
    ForwardedJourney();
  } else if (scenario == "transformed") {
    TransformedJourney();
  } else if (scenario == "nested") {
    try {
      Raise(kErrStreamNoHandler, ErrorSeverityError, 1);
    } catch (const PError& error) {
      GDbgEnterHandling(error, "app.cpp", 50);
      Raise(kErrAccessDenied, ErrorSeverityWarning, 2); // while the first is handled
      GDbgErrorCatched(error, "app.cpp", 51);
    }
  } else if (scenario == "severities") {
    qvbase::test::CountingHook hook(ErrorHandlingItem);
    PErrorHookProtection protection(&hook, true);
    const TypErrorSeverityEnum severities[] = {ErrorSeverityAbort, ErrorSeverityFatal,
                                               static_cast<TypErrorSeverityEnum>(27),
                                               ErrorSeverityWarning};
    ULONG line = 1;
    for (TypErrorSeverityEnum severity : severities) {
      try {
        Raise(kErrAccessDenied, severity, line);
      } catch (const PError& error) {
        GDbgEnterHandling(error, "app.cpp", 10 + line);
        GDbgErrorCatched(error, "app.cpp", 20 + line);
      }
      ++line;
    }
  } else if (scenario == "no-error-mode") {
    GDbgEnterNoErrorMode("app.cpp", 60);
    Raise(kErrStreamNoHandler, ErrorSeverityWarning, 7);
    try {
      Raise(kErrStreamOpenModeInvalid, ErrorSeverityError, 8);
    } catch (const PError& error) {
      GDbgEnterHandling(error, "app.cpp", 61);
      GDbgErrorCatched(error, "app.cpp", 62);
    }
    GDbgExitNoErrorMode();
    Raise(kErrStreamOpenModeNotExact, ErrorSeverityWarning, 9);
  } else if (scenario == "no-error-mode-forwarded") {
    GDbgEnterNoErrorMode("app.cpp", 70);
    ForwardedJourney();
    GDbgExitNoErrorMode();
  } else if (scenario == "no-error-mode-transformed") {
    GDbgEnterNoErrorMode("app.cpp", 80);
    TransformedJourney();
    GDbgExitNoErrorMode();
  } else {
    return 97;
  }
  return 0;
}
const bool kTraceRoleRegistered = qvbase::test::RegisterChildRole("trace", TraceRole);

// Points the machine's trace switch at a file for its lifetime.
class TraceSwitch {
public:
  TraceSwitch(const std::string& path, bool asBinary) {
    EXPECT_EQ(native::CreateRegKey(native::kRegLocalMachine, "Software\\Varnel\\Config", nullptr,
                                   native::kKeyAllAccess, &m_key, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(native::SetRegValue(
                  m_key, "errorfile", asBinary ? native::kRegBinary : native::kRegSz,
                  reinterpret_cast<const BYTE*>(path.c_str()), static_cast<DWORD>(path.size() + 1)),
              ERROR_SUCCESS);
  }
  ~TraceSwitch() {
    native::DeleteRegValue(m_key, "errorfile");
    native::CloseRegKey(m_key);
  }

private:
  native::RegKey m_key = nullptr;
};

enum class Switch { kOff, kOn, kOnWithOldTrace, kNotAString };

// Runs one scenario in a child and returns the trace file's text.
std::string TraceOf(const char* scenario, Switch how = Switch::kOn) {
  EXPECT_TRUE(kTraceRoleRegistered);
  qvbase::test::ScratchRegistry registry;
  qvbase::test::TempDir dir;
  std::string path = dir.File("trace.log");
  if (how == Switch::kOnWithOldTrace)
    qvbase::test::WriteFile(path, "an old trace\n");
  TraceSwitch* on =
      how == Switch::kOff ? nullptr : new TraceSwitch(path, how == Switch::kNotAString);
  qvbase::test::RunResult r =
      qvbase::test::Run({qvbase::test::SelfPath(), "--qvtest-child", "trace", scenario});
  delete on;
  EXPECT_EQ(r.status, 0) << r.err;
  if (!qvbase::test::FileExists(path))
    return "<no file>";
  std::string text = qvbase::test::ReadFile(path);
  // The C runtime of Windows writes line ends as CR LF.
  for (std::size_t p; (p = text.find("\r\n")) != std::string::npos;)
    text.erase(p, 1);
  return text;
}

TEST(GDbg, WithoutTheRegistryValueNothingIsWritten) {
  EXPECT_EQ(TraceOf("caught", Switch::kOff), "<no file>");
}

TEST(GDbg, ValueThatIsNotAStringLeavesTracingOff) {
  EXPECT_EQ(TraceOf("caught", Switch::kNotAString), "<no file>");
}

TEST(GDbg, TheTraceIsEmptiedAtTheFirstRead) {
  EXPECT_EQ(TraceOf("caught", Switch::kOnWithOldTrace),
            "***\n"
            "src\\Trace(9): error 1220: \n"
            "   --> handled by file app.cpp (line 30) and catched at line 31\n"
            "***\n");
}

TEST(GDbg, TransformationsNameEverySeverity) {
  auto block = [](int line, const char* shown, const char* traced) {
    return std::string("***\n") + "src\\Trace(" + std::to_string(line) + "): " + shown +
           " 1300: \n" + "   --> transformed to " + traced + " 2 :(waserror)1300 \n" +
           "   --> handled by file app.cpp (line " + std::to_string(10 + line) +
           ") and catched at line " + std::to_string(20 + line) + "\n***\n";
  };
  EXPECT_EQ(TraceOf("severities"),
            block(1, "error", "abort error") + block(2, "fatal error", "fatal error") +
                block(3, "error", "bad severity error") + block(4, "warning", "warning"));
}

TEST(GDbg, DroppedWarningOpensAndClosesItsBlock) {
  const std::string block = "***\n"
                            "src\\Trace(7): warning 1220: \n"
                            "   --> ignored\n"
                            "***\n";
  // The second block starts where the first did: the depth came back.
  EXPECT_EQ(TraceOf("warning-twice"), block + block);
}

TEST(GDbg, CaughtErrorIsOneBlockClosedAtTheOuterLevel) {
  EXPECT_EQ(TraceOf("caught"), "***\n"
                               "src\\Trace(9): error 1220: \n"
                               "   --> handled by file app.cpp (line 30) and catched at line 31\n"
                               "***\n");
}

TEST(GDbg, ForwardedErrorIsHandledTwice) {
  EXPECT_EQ(TraceOf("forwarded"),
            "***\n"
            "src\\Trace(5): error 1221: \n"
            "   --> handled by file inner.cpp (line 10) and redispatched as error "
            "1221 at line 11\n"
            "   --> handled by file outer.cpp (line 20) and catched at line 21\n"
            "***\n");
}

TEST(GDbg, TransformationNamesTheSeverityAndNewCode) {
  EXPECT_EQ(TraceOf("transformed"),
            "***\n"
            "src\\Trace(3): error 1227: \n"
            "   --> transformed to error 1 :(waserror)1227 \n"
            "   --> handled by file app.cpp (line 40) and catched at line 41\n"
            "***\n");
}

TEST(GDbg, ErrorsRaisedWhileHandlingAreNested) {
  EXPECT_EQ(TraceOf("nested"), "***\n"
                               "src\\Trace(1): error 1220: \n"
                               "   --> handled by file app.cpp (line 50)   ***\n"
                               "   src\\Trace(2): warning 1300: \n"
                               "      --> ignored\n"
                               "   ***\n"
                               " and catched at line 51\n"
                               "***\n");
}

TEST(GDbg, NoErrorModeKeepsOnlyTheBareErrorLines) {
  EXPECT_EQ(TraceOf("no-error-mode"), "src\\Trace(7): warning 1220: \n"
                                      "src\\Trace(8): error 1221: \n"
                                      "***\n"
                                      "src\\Trace(9): warning 1222: \n"
                                      "   --> ignored\n"
                                      "***\n");
}

TEST(GDbg, NoErrorModeSuppressesTheForwardingLine) {
  // The same journey as "forwarded", whose trace has the forwarding line.
  EXPECT_EQ(TraceOf("no-error-mode-forwarded"), "src\\Trace(5): error 1221: \n");
}

TEST(GDbg, NoErrorModeSuppressesTheTransformationLine) {
  // The same journey as "transformed", whose trace has the transformation line.
  EXPECT_EQ(TraceOf("no-error-mode-transformed"), "src\\Trace(3): error 1227: \n");
}

TEST(GDbg, DebugOutputIsInertButOutputFormats) {
  EXPECT_EQ(GDbgGetOutputMethod(), nullptr);
  GDbgPrint("nothing %d", 1);
  GDbgStdoutMethod("nothing");
  static std::string captured;
  captured.clear();
  GDbgOutput([](const char* text) { captured += text; }, "%s-%d", "a", 7);
  EXPECT_EQ(captured, "a-7");
  GDbgOutput(nullptr, "%s", "ignored");
}

} // namespace

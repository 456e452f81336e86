// copy_with_progress.cpp - a long copy that a person can watch and cancel.
// Part of qvbase, the QVKernel foundation class library.
//
//   copy_with_progress [--size MIB] [--delay MS] [--interrupt-at BYTES] SOURCE DESTINATION
//
// Copies the file SOURCE into DESTINATION with GStreamDuplication, both files
// through the buffered file handler (examples/support/FileStreamHdl.h),
// under a progress dialog whose "window" is the console: a bar with the
// percentage, the bytes copied, the rate and the time left. On a terminal the
// bar is redrawn in place; written to a file or a pipe, each refresh is a
// line of its own. The dialog's timing is the library's: the bar appears once
// the show delay (--delay, 500 ms by default) has passed, so a short copy
// shows none, and is redrawn at most every two refresh intervals (200 ms
// here).
//
// --size MIB first writes MIB mebibytes of patterned bytes to SOURCE, so
// there is something large to copy.
//
// Ctrl-C cancels. The dialog reports the cancel at the next chunk, the copy
// ends with the cancellation error (code 3), and GStreamDuplication closes
// both files on its way out. The destination is then consistent: it holds
// exactly the chunks copied before the cancel, a prefix of the source whose
// length is a multiple of the copy's 2048-byte chunk, written back from the
// handler's cache and closed cleanly; nothing after that prefix was written.
// --interrupt-at BYTES sends the program the same signal itself once BYTES
// have been copied, to see (and test) an interrupted copy.
//
// Exit status: 0 copied, 1 failed (one line says why), 2 wrong usage,
// 130 cancelled.

#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PProgressDialog.h>
#include <qvbase/PStream.h>
#include <qvbase/PTime.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "native/Process.h"
#include "support/FileStreamHdl.h"

namespace {

// Set by the Ctrl-C handler, read by the dialog between chunks.
volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void OnInterrupt(int) {
  gInterrupted = 1;
  // A second Ctrl-C ends the program at once.
  std::signal(SIGINT, SIG_DFL);
}

constexpr double kMiB = 1024.0 * 1024.0;

// "01:02:05", or "--:--:--" while there is no estimate.
std::string Clock(const PTime& time) {
  if (!time.IsValid())
    return "--:--:--";
  const long long seconds = time.GetValue() / 10000000;
  char text[32];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
                seconds % 60);
  return text;
}

// The progress window of a console program. The library decides when it
// appears, when it is redrawn and when the user's cancel is looked at; this
// class only draws and answers.
class ConsoleProgressDialog : public PProgressDialog {
public:
  // `totalBytes` converts the copy's figures back to bytes: a copy of more
  // than 4 GiB reports them shifted right until they fit 32 bits.
  ConsoleProgressDialog(unsigned long long totalBytes, PTime showDelay, bool inPlace,
                        unsigned long long interruptAt)
      : m_totalBytes(totalBytes), m_inPlace(inPlace), m_interruptAt(interruptAt) {
    IProgressDialog(/*valueLevels=*/1, /*statusLevels=*/1, /*interval=*/PTime(0, 100000000),
                    showDelay);
  }

  bool Cancelled() const { return m_cancelled; }
  unsigned long long BytesDone() const {
    return static_cast<unsigned long long>(GetCurrentValue() * Scale());
  }

protected:
  bool DialogShow() override {
    Draw();
    return true;
  }
  void DialogUpdate() override {
    // Stopping completes the range: after a cancel the last bar drawn stays
    // as it was rather than jumping to 100 %.
    if (!m_cancelled)
      Draw();
  }
  void DialogHide() override {
    if (m_inPlace)
      std::fputc('\n', stdout);
    std::fflush(stdout);
  }
  void DialogProcessEvents() override {
    if (m_interruptAt != 0 && !gInterrupted && BytesDone() >= m_interruptAt)
      std::raise(SIGINT);
  }
  bool IsDialogCancelled() override {
    if (gInterrupted && !m_cancelled) {
      // The bar where the copy stops, before stopping completes the range.
      m_cancelled = true;
      Draw();
    }
    return m_cancelled;
  }

private:
  // Bytes per unit of the hook's figures.
  double Scale() const {
    const ULONG end = GetEndValue();
    return end == 0 ? 1.0 : static_cast<double>(m_totalBytes) / end;
  }

  void Draw() {
    const int kWidth = 30;
    const double fraction = GetCurrentPercent();
    const int filled = static_cast<int>(fraction * kWidth);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), '-');
    const double rate = GetAverageBandwidth(PTime(1, 0)) * Scale() / kMiB;
    std::printf("%s[%s] %5.1f%%  %.1f of %.1f MiB  %.1f MiB/s  %s left%s", m_inPlace ? "\r" : "",
                bar.c_str(), fraction * 100.0, BytesDone() / kMiB, m_totalBytes / kMiB, rate,
                Clock(GetLeftTime()).c_str(), m_inPlace ? "  " : "\n");
    std::fflush(stdout);
  }

  unsigned long long m_totalBytes;
  bool m_inPlace;
  unsigned long long m_interruptAt;
  bool m_cancelled = false;
};

// Writes `mebibytes` MiB of patterned bytes to `path`.
void MakeSource(const std::string& path, unsigned long mebibytes) {
  std::vector<char> block(64 * 1024);
  PStream file(new FileStreamHdl(path));
  file.Open(OpenWrite);
  unsigned long long offset = 0;
  for (unsigned long i = 0; i < mebibytes * 16; ++i) {
    for (char& byte : block)
      byte = static_cast<char>((offset++ * 2654435761u) >> 24);
    file.Write(block.data(), static_cast<ULONG>(block.size()), /*itemSize=*/1);
  }
  file.Close();
}

// "error 2302 at FileStreamHdl(123): no such file: build/x.bin"
void ReportError(const PError& error) {
  std::fprintf(stderr, "copy_with_progress: error %d at %s(%lu)", error.Code(),
               error.File() ? error.File() : "?", static_cast<unsigned long>(error.Line()));
  if (error.HasStringInfo("nativeerror"))
    std::fprintf(stderr, ": %s", static_cast<const char*>(error.GetStringInfo("nativeerror", "")));
  if (error.HasStringInfo("path"))
    std::fprintf(stderr, ": %s", static_cast<const char*>(error.GetStringInfo("path", "")));
  std::fputc('\n', stderr);
}

int Usage() {
  std::fprintf(stderr, "usage: copy_with_progress [--size MIB] [--delay MS] "
                       "[--interrupt-at BYTES] SOURCE DESTINATION\n");
  return 2;
}

bool ParseNumber(const char* text, unsigned long long* value) {
  char* end = nullptr;
  *value = std::strtoull(text, &end, 10);
  return *text != '\0' && *end == '\0';
}

} // namespace

int main(int argc, char** argv) {
  unsigned long long sizeMiB = 0, delayMs = 500, interruptAt = 0;
  std::vector<std::string> paths;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    unsigned long long* number = arg == "--size"           ? &sizeMiB
                                 : arg == "--delay"        ? &delayMs
                                 : arg == "--interrupt-at" ? &interruptAt
                                                           : nullptr;
    if (number) {
      if (++i == argc || !ParseNumber(argv[i], number))
        return Usage();
    } else if (arg.size() > 1 && arg[0] == '-') {
      return Usage();
    } else {
      paths.push_back(arg);
    }
  }
  if (paths.size() != 2 || sizeMiB > 1024 * 1024 || delayMs > 3600 * 1000)
    return Usage();
  const std::string& sourcePath = paths[0];
  const std::string& destinationPath = paths[1];

  try {
    if (sizeMiB != 0)
      MakeSource(sourcePath, static_cast<unsigned long>(sizeMiB));
    PStream source(new FileStreamHdl(sourcePath));
    PStream destination(new FileStreamHdl(destinationPath));
    source.Open(OpenRead); // to learn the size; the copy opens it again
    const unsigned long long total = source.GetSize();
    source.Close();

    std::printf("copying %s to %s: %llu bytes\n", sourcePath.c_str(), destinationPath.c_str(),
                total);
    std::fflush(stdout);
    ConsoleProgressDialog dialog(total, PTime(static_cast<__int64>(delayMs) * 10000),
                                 qvbase::native::StandardOutputIsTerminal(), interruptAt);
    std::signal(SIGINT, OnInterrupt);
    dialog.Start();
    try {
      GStreamDuplication(source, destination, /*open=*/true, /*mode=*/OpenWrite, &dialog);
    } catch (const PError& error) {
      dialog.Stop();
      if (error.Code() != kErrProgressCancelled || !dialog.Cancelled())
        throw;
      // Both files are closed by now: what the destination holds is on disk.
      PStream check(new FileStreamHdl(destinationPath));
      check.Open(OpenRead);
      const unsigned long long kept = check.GetSize();
      check.Close();
      std::printf("cancelled: %s holds the first %llu bytes of %s\n", destinationPath.c_str(), kept,
                  sourcePath.c_str());
      return 130;
    }
    dialog.Stop();
    std::printf("copied %llu bytes in %.1f s\n", total,
                dialog.GetEllapsedTime().GetValue() / 10000000.0);
    return 0;
  } catch (const PError& error) {
    ReportError(error);
    return 1;
  }
}

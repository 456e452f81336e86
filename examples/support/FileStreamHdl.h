// FileStreamHdl.h - a buffered stream handler over a file.
// Part of qvbase, the QVKernel foundation class library.
//
// The library has no handler over files of its own: products that use it
// bring theirs. This one is what the examples, the tools and the tests use,
// and a model for writing one: it derives from PBufferizedStreamHdl and
// supplies the IO operations over a std::filebuf, so that the file sees
// only whole blocks at block starts. It uses nothing but the C++ standard
// library; positions and sizes are 64-bit on every target, so files past
// 4 GiB are read, written and resized like small ones.
//
//   PStream file(new FileStreamHdl("report.qvd"));
//   file.Open(OpenReadWrite);          // created when missing
//   OpenWriteSection(file, id, 1) ...  // sections patch their headers
//   file.Close();
//
// Open modes:
// - OpenRead: an existing file, read only.
// - OpenWrite: the file is created, or emptied when it exists (the stream
//   copy opens its destination so). Deliberately as the buffered handler
//   defines it, a write-only stream never reads its blocks: write it from
//   start to end, or open it for reading too.
// - OpenReadWrite: an existing file, or a new empty one when it is missing;
//   with OpenNoLoad the file is emptied first.
// A directory, or a file that cannot be positioned (a pipe), does not open.
//
// Errors, prepared through PrepareError, with source "FileStreamHdl":
// 2302 (no such file), 1300 (access denied) or 2312 (any other reason) when
// the file does not open, with the path as string info "path" and the
// system's errno and text as "nativecode" and "nativeerror"; 1221 for a mode
// with neither bit; 1224 when already open; 1223 when closed; 1231 and 1232
// for a write or resize without the write bit and a read without the read
// bit; 1222 for a change of mode while open (close and open again instead);
// 1225 for an unknown seek mode, 1228 for a seek before the start, 1227 when
// the system refuses a position; 1230 when the system refuses to flush,
// close or resize. Severity 25, except 1230 (29).
//
// A handler belongs to one thread at a time, as every buffered handler.
#pragma once

#include <qvbase/PBufferizedStream.h>
#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>

#include <cerrno>
#include <cstring>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ios>
#include <string>
#include <system_error>

class FileStreamHdl : public PBufferizedStreamHdl {
public:
  // 64 KiB: sixteen of them fit the default budget.
  static constexpr ULONG kDefaultBlockSize = 0x10000;

  explicit FileStreamHdl(std::string path, ULONG blockSize = kDefaultBlockSize, bool locked = false)
      : PBufferizedStreamHdl(blockSize, locked), m_path(std::move(path)), m_mode(0), m_position(0) {
  }

  // The file is closed by the stream's last reference (Close); a handler
  // destroyed without one closes the file quietly.
  ~FileStreamHdl() override = default;

  const std::string& GetPath() const { return m_path; }

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override {
    if (!Require(OpenRead, kErrStreamNotReadable))
      return 0;
    const unsigned __int64 done = Transfer(
        static_cast<unsigned __int64>(count) * itemSize,
        [&](unsigned __int64 at, std::streamsize n) { return m_file.sgetn(buffer + at, n); });
    return itemSize == 0 ? 0 : static_cast<ULONG>(done / itemSize);
  }

  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    if (!Require(OpenWrite, kErrStreamNotWritable))
      return 0;
    const unsigned __int64 done = Transfer(
        static_cast<unsigned __int64>(count) * itemSize,
        [&](unsigned __int64 at, std::streamsize n) { return m_file.sputn(buffer + at, n); });
    return itemSize == 0 ? count : static_cast<ULONG>(done / itemSize);
  }

  void IOOpen(ULONG mode) override {
    if (m_mode != 0) {
      Raise(kErrStreamAlreadyOpen, ErrorSeverityAbort, __LINE__);
      return;
    }
    if (!(mode & OpenReadWrite)) {
      Raise(kErrStreamOpenModeInvalid, ErrorSeverityAbort, __LINE__);
      return;
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(m_path, ignored)) {
      RaiseOpenFailure(EISDIR, __LINE__);
      return;
    }
    errno = 0;
    bool opened = false;
    if ((mode & OpenReadWrite) == OpenRead) {
      opened = OpenFile(std::ios::in);
    } else if ((mode & OpenReadWrite) == OpenWrite) {
      opened = OpenFile(std::ios::out | std::ios::trunc);
    } else if (mode & OpenNoLoad) {
      opened = OpenFile(std::ios::in | std::ios::out | std::ios::trunc);
    } else {
      opened = OpenFile(std::ios::in | std::ios::out);
      if (!opened && errno == ENOENT) {
        errno = 0;
        opened = OpenFile(std::ios::in | std::ios::out | std::ios::trunc);
      }
    }
    if (!opened) {
      RaiseOpenFailure(errno != 0 ? errno : EIO, __LINE__);
      return;
    }
    // The cache needs the size: input that cannot be positioned is refused.
    if (m_file.pubseekoff(0, std::ios::end) == std::streampos(std::streamoff(-1)) ||
        m_file.pubseekpos(0) == std::streampos(std::streamoff(-1))) {
      m_file.close();
      RaiseOpenFailure(ESPIPE, __LINE__);
      return;
    }
    m_mode = mode;
    m_position = 0;
  }

  void IOSetOpenMode(ULONG) override {
    Raise(m_mode ? kErrStreamOpenModeNotExact : kErrStreamClosed, ErrorSeverityAbort, __LINE__);
  }

  ULONG IOGetAvailableOpenModes() const override { return OpenReadWrite; }

  void IOClose() override {
    if (m_mode == 0) {
      Raise(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
      return;
    }
    const bool closed = m_file.close() != nullptr;
    m_mode = 0;
    m_position = 0;
    if (!closed)
      Raise(kErrStreamShortWrite, ErrorSeverityError, __LINE__);
  }

  void IOFlush() override {
    if (m_mode == 0) {
      Raise(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
      return;
    }
    if (m_file.pubsync() != 0)
      Raise(kErrStreamShortWrite, ErrorSeverityError, __LINE__);
  }

  ULONG IOOpenMode() const override { return m_mode; }

  void IOSetSize(unsigned __int64 size) override {
    if (!Require(OpenWrite, kErrStreamNotWritable))
      return;
    const unsigned __int64 current = IOGetSize();
    if (size > current) {
      // One zero byte at the new end: the system fills the gap (sparsely
      // where it can).
      const char zero = 0;
      if (!SeekTo(size - 1) || m_file.sputn(&zero, 1) != 1 || m_file.pubsync() != 0)
        Raise(kErrStreamShortWrite, ErrorSeverityError, __LINE__);
    } else if (size < current) {
      Shrink(size);
    }
    if (m_mode != 0)
      SeekTo(m_position);
  }

  unsigned __int64 IOGetSize() const override {
    if (m_mode == 0)
      return 0;
    const std::streampos end = m_file.pubseekoff(0, std::ios::end);
    m_file.pubseekpos(static_cast<std::streamoff>(m_position));
    return end == std::streampos(std::streamoff(-1))
               ? 0
               : static_cast<unsigned __int64>(static_cast<std::streamoff>(end));
  }

  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override {
    if (m_mode == 0) {
      Raise(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
      return;
    }
    unsigned __int64 target = 0;
    switch (mode) {
    case SeekFwd:
      target = m_position + offset;
      break;
    case SeekBack:
      if (offset > m_position) {
        Raise(kErrStreamSeekBeforeStart, ErrorSeverityAbort, __LINE__);
        return;
      }
      target = m_position - offset;
      break;
    case SeekFromStart:
      target = offset;
      break;
    case SeekFromEnd: {
      const unsigned __int64 size = IOGetSize();
      if (offset > size) {
        Raise(kErrStreamSeekBeforeStart, ErrorSeverityAbort, __LINE__);
        return;
      }
      target = size - offset;
      break;
    }
    default:
      Raise(kErrStreamBadSeekMode, ErrorSeverityAbort, __LINE__);
      return;
    }
    // Past the end is allowed, as for any file: a write there extends it.
    if (!SeekTo(target)) {
      Raise(kErrStreamSeekPastEnd, ErrorSeverityAbort, __LINE__);
      return;
    }
    m_position = target;
  }

  unsigned __int64 IOGetPos() const override { return m_position; }

  bool IOIsAtEnd() const override { return m_position >= IOGetSize(); }

private:
  static constexpr const char* kSource = "FileStreamHdl";

  // True when the file is open with `bit`; else raises `withoutBit` (or
  // 1223 when it is closed).
  bool Require(ULONG bit, int withoutBit) {
    if (m_mode & bit)
      return true;
    Raise(m_mode ? withoutBit : kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return false;
  }

  // Moves `bytes` through `step` (a read or a write of the file buffer at an
  // offset in the caller's buffer) until all are moved or the file takes or
  // gives no more; the position follows. Returns the bytes moved.
  template <typename Step>
  unsigned __int64 Transfer(unsigned __int64 bytes, Step step) {
    unsigned __int64 done = 0;
    while (done < bytes) {
      const std::streamsize moved = step(done, static_cast<std::streamsize>(bytes - done));
      if (moved <= 0)
        break;
      done += static_cast<unsigned __int64>(moved);
    }
    m_position += done;
    return done;
  }

  bool OpenFile(std::ios::openmode mode) {
    // Unbuffered: the handler's blocks are the buffering, and the file's
    // position is then exactly the handler's.
    m_file.pubsetbuf(nullptr, 0);
    return m_file.open(m_path, mode | std::ios::binary) != nullptr;
  }

  bool SeekTo(unsigned __int64 position) {
    if (position > static_cast<unsigned __int64>(INT64_MAX))
      return false;
    return m_file.pubseekpos(static_cast<std::streamoff>(position)) !=
           std::streampos(std::streamoff(-1));
  }

  // The standard library shrinks files only by name: the file is closed,
  // cut, and opened again for update where it was.
  void Shrink(unsigned __int64 size) {
    m_file.close();
    std::error_code error;
    std::filesystem::resize_file(m_path, size, error);
    if (!OpenFile(std::ios::in | std::ios::out)) {
      const int cause = errno != 0 ? errno : EIO;
      m_mode = 0;
      m_position = 0;
      RaiseOpenFailure(cause, __LINE__);
      return;
    }
    if (m_position > size)
      m_position = size;
    if (error)
      Raise(kErrStreamShortWrite, ErrorSeverityError, __LINE__);
  }

  void Raise(int code, TypErrorSeverityEnum severity, ULONG line) {
    PError error(code, severity, kSource, line);
    Signal(error);
  }

  void RaiseOpenFailure(int cause, ULONG line) {
    const int code = cause == ENOENT   ? kErrNotFound
                     : cause == EACCES ? kErrAccessDenied
                                       : kErrOpenFailed;
    PError error(code, ErrorSeverityAbort, kSource, line);
    error.SetStringInfo("path", PMBString(m_path.c_str()));
    error.SetIntegerInfo("nativecode", cause);
    error.SetStringInfo("nativeerror", PMBString(std::strerror(cause)));
    Signal(error);
  }

  // Prepared by the handler, then by the protections, then signalled.
  void Signal(PError& error) {
    PError own = PrepareError(error);
    PError prepared = PErrorProtectionStatus().PrepareError(own);
    PErrorProtectionStatus().SignalError(prepared);
  }

  std::string m_path;
  mutable std::filebuf m_file;
  ULONG m_mode;
  unsigned __int64 m_position;
};

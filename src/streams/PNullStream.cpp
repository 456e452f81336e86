// PNullStream.cpp - the counting handler behind PNullStream.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PNullStream.h>

#include "errors/RaiseError.h"

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PNullStream";

constexpr unsigned __int64 kMaxPosition = ~0ull;

unsigned __int64 SaturatedSum(unsigned __int64 a, unsigned __int64 b) {
  return b > kMaxPosition - a ? kMaxPosition : a + b;
}

// Stores nothing: writes move the position and raise the size to the
// highest position reached.
class PNullStreamHdl : public PStreamHdl {
public:
  PNullStreamHdl() : m_opened(false), m_position(0), m_size(0) {}

protected:
  ULONG IORead(char*, ULONG, ULONG) override {
    RaiseError(kErrStreamNotReadable, __LINE__);
    return 0;
  }

  ULONG IOWrite(const char*, ULONG count, ULONG itemSize) override {
    if (!m_opened) {
      RaiseError(kErrStreamClosed, __LINE__);
      return 0;
    }
    // The data are not looked at.
    m_position = SaturatedSum(m_position, static_cast<unsigned __int64>(count) * itemSize);
    if (m_position > m_size)
      m_size = m_position;
    return count;
  }

  void IOOpen(ULONG mode) override {
    if (m_opened) {
      RaiseError(kErrStreamAlreadyOpen, __LINE__);
      return;
    }
    if (mode & OpenRead) {
      RaiseError(kErrStreamOpenModeNotExact, __LINE__);
      return;
    }
    m_position = 0;
    m_size = 0;
    m_opened = true;
  }

  void IOSetOpenMode(ULONG mode) override {
    if (!m_opened)
      RaiseError(kErrStreamClosed, __LINE__);
    else if (mode & OpenRead)
      RaiseError(kErrStreamOpenModeNotExact, __LINE__);
  }

  ULONG IOGetAvailableOpenModes() const override { return OpenWrite; }

  void IOClose() override {
    if (!m_opened) {
      RaiseError(kErrStreamClosed, __LINE__);
      return;
    }
    m_opened = false;
  }

  void IOFlush() override {}

  ULONG IOOpenMode() const override { return m_opened ? OpenWrite : 0; }

  void IOSetSize(unsigned __int64 size) override {
    m_size = size;
    if (m_position > size)
      m_position = size;
  }

  unsigned __int64 IOGetSize() const override { return m_size; }

  // As a memory stream seeks: past the end is signalled and, when let
  // through, carried out; back before the start is thrown; from the end
  // beyond the size is signalled and stops at the start.
  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override {
    if (!m_opened) {
      RaiseError(kErrStreamClosed, __LINE__);
      return;
    }
    switch (mode) {
    case SeekFwd:
      if (m_position > m_size || offset > m_size - m_position)
        RaiseError(kErrStreamSeekPastEnd, __LINE__);
      m_position = SaturatedSum(m_position, offset);
      break;
    case SeekBack:
      if (offset > m_position)
        ThrowError(kErrStreamSeekBeforeStart, __LINE__);
      m_position -= offset;
      break;
    case SeekFromStart:
      if (offset > m_size)
        RaiseError(kErrStreamSeekPastEnd, __LINE__);
      m_position = offset;
      break;
    case SeekFromEnd:
      if (offset > m_size) {
        RaiseError(kErrStreamSeekBeforeStart, __LINE__);
        m_position = 0;
        break;
      }
      m_position = m_size - offset;
      break;
    default:
      ThrowError(kErrStreamBadSeekMode, __LINE__);
    }
  }

  unsigned __int64 IOGetPos() const override { return m_position; }

  bool IOIsAtEnd() const override { return m_position >= m_size; }

private:
  // Every error of the null stream is an abort error.
  void RaiseError(int code, ULONG line) {
    qvbase::errors::RaiseThrough(*this, code, ErrorSeverityAbort, kSourceFile, line);
  }

  [[noreturn]] void ThrowError(int code, ULONG line) {
    qvbase::errors::ThrowThrough(*this, code, ErrorSeverityAbort, kSourceFile, line);
  }

  bool m_opened;
  unsigned __int64 m_position;
  unsigned __int64 m_size;
};

} // namespace

PNullStream::PNullStream() : PStream(new PNullStreamHdl) {}

PNullStream::PNullStream(const PNullStream& other) = default;

PNullStream& PNullStream::operator=(const PNullStream& other) = default;

PNullStream::~PNullStream() = default;

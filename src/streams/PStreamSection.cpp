// PStreamSection.cpp - identified, versioned, nested blocks inside a stream.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PStreamSection.h>

#include <qvbase/PBenchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "errors/RaiseError.h"
#include "streams/InPlace.h"

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PStreamSection";

// The classes a switched-on benchmark names for the calls timed here.
const char kProfiledSection[] = "PStreamSection";
const char kProfiledHandler[] = "PStreamSectionHdl";

constexpr ULONG kHeaderSize = 28;

// Positions computed from header fields saturate instead of wrapping: a
// size read from a damaged stream must not send the parent back to its start.
unsigned __int64 SaturatingAdd(unsigned __int64 a, unsigned __int64 b) {
  return a + b < a ? ~static_cast<unsigned __int64>(0) : a + b;
}

} // namespace

// ---------------------------------------------------------------------------
// PStreamSectionHdl

PStreamSectionHdl::PStreamSectionHdl(PStream& parent)
    : POverStreamHdl(parent), m_version(0), m_size(0), m_start(0), m_afterIdentifier(0) {}

PStreamSectionHdl::PStreamSectionHdl(const PStreamSectionHdl& other) = default;

PStreamSectionHdl& PStreamSectionHdl::operator=(const PStreamSectionHdl& other) = default;

PStreamSectionHdl::~PStreamSectionHdl() = default;

void PStreamSectionHdl::RaiseError(int code, TypErrorSeverityEnum severity, ULONG line) {
  // The parent's handler adds its context, as for any over-stream handler.
  qvbase::errors::RaiseThrough(*this, code, severity, kSourceFile, line);
}

bool PStreamSectionHdl::RequireOpenMode(ULONG mode, int wrongMode, ULONG line) {
  if (m_openMode == mode)
    return true;
  RaiseError(m_openMode == 0 ? kErrStreamClosed : wrongMode, ErrorSeverityAbort, line);
  return false;
}

PUniversalID PStreamSectionHdl::GetID() { return m_identifier; }

ULONG PStreamSectionHdl::GetVersion() const { return m_version; }

void PStreamSectionHdl::SetID(const PUniversalID& id) {
  if (m_openMode != 0) {
    RaiseError(kErrStreamAlreadyOpen, ErrorSeverityAbort, __LINE__);
    return; // the header already written keeps its identifier
  }
  m_identifier = id;
}

// Deliberately accepted at any time, unlike SetID: the version is written
// again at close, the identifier is not.
void PStreamSectionHdl::SetVersion(ULONG version) { m_version = version; }

void PStreamSectionHdl::IOOpen(ULONG mode) {
  if (m_openMode != 0) {
    RaiseError(kErrStreamAlreadyOpen, ErrorSeverityAbort, __LINE__);
    return;
  }
  if (mode == OpenRead) {
    if (!m_stream.IsReadable()) {
      RaiseError(kErrStreamNotReadable, ErrorSeverityAbort, __LINE__);
      return;
    }
    m_start = m_stream.GetPos();
    m_stream.Read(&m_identifier);
    m_afterIdentifier = m_stream.GetPos();
    LONG version = 0;
    __int64 size = 0;
    m_stream.Read(&version);
    m_stream.Read(&size);
    m_version = static_cast<ULONG>(version);
    m_size = static_cast<unsigned __int64>(size);
    m_openMode = OpenRead;
    // Deliberately refused although nothing else checks sizes: a section
    // shorter than its header would send readers back into it.
    if (m_size < kHeaderSize) {
      RaiseError(kErrStreamBadFormat, ErrorSeverityAbort, __LINE__);
      m_size = kHeaderSize;
    }
  } else if (mode == OpenWrite) {
    if (!m_stream.IsWritable()) {
      RaiseError(kErrStreamNotWritable, ErrorSeverityAbort, __LINE__);
      return;
    }
    m_start = m_stream.GetPos();
    m_stream.Write(m_identifier);
    m_afterIdentifier = m_stream.GetPos();
    // Provisional, and deliberately 24 rather than 28: closing always
    // writes the real size; only a section never closed shows this one.
    m_size = (m_afterIdentifier - m_start) + 8;
    m_stream.Write(static_cast<LONG>(m_version));
    m_stream.Write(static_cast<__int64>(m_size));
    m_openMode = OpenWrite;
  } else {
    RaiseError(kErrStreamOpenModeNotExact, ErrorSeverityAbort, __LINE__);
  }
}

ULONG PStreamSectionHdl::IOWrite(const char* buffer, ULONG count, ULONG itemSize) {
  if (!RequireOpenMode(OpenWrite, kErrStreamNotReadable, __LINE__))
    return 0;
  ULONG written = m_stream.Write(buffer, count, itemSize);
  unsigned __int64 position = m_stream.GetPos() - m_start;
  if (position > m_size)
    m_size = position;
  return written;
}

ULONG PStreamSectionHdl::IORead(char* buffer, ULONG count, ULONG itemSize) {
  if (!RequireOpenMode(OpenRead, kErrStreamNotReadable, __LINE__))
    return 0;
  // No limit at the section's end: readers bound themselves with IsAtEnd or
  // GetSize, and a reader that goes on reads what follows.
  return m_stream.Read(buffer, count, itemSize);
}

// ---------------------------------------------------------------------------
// Opening and closing without the guard

// Opening reads or writes the 28-byte header where the parent stands; when
// the parent is the plain memory handler, open in that mode and standing
// inside its content with the whole header inside it (reading) or inside its
// block (writing), every call of IOOpen is an in-place copy. Reading also
// needs a size field of at least a header's length, which is the one thing
// IOOpen refuses. Writing under "MM" orders the identifier in a scratch
// block, which an installed memory manager is asked for: that open stays
// guarded.
bool qvbase::streams::InPlace::OpenSection(PStreamHdl* handler, ULONG mode) {
  PStreamSectionHdl* s = PlainSection(handler);
  if (!s || s->m_openMode != 0)
    return false;
  PStreamHdl* parentHandler = s->m_stream.GetHandler();
  const PMemoryStreamHdl* m = parentHandler ? PlainMemory(parentHandler) : nullptr;
  if (!m || m->m_position > m->m_size)
    return false;
  const bool motorola = s->m_stream.GetByteOrdering() == kByteOrderingMotorola;
  if (mode == OpenRead) {
    if ((m->m_openMode & OpenRead) == 0 ||
        static_cast<unsigned __int64>(m->m_position) + kHeaderSize > m->m_size)
      return false;
    std::uint64_t size = 0;
    std::memcpy(&size, m->m_buffer + m->m_position + 20, sizeof size);
    if (motorola)
      size = __builtin_bswap64(size);
    if (size < kHeaderSize)
      return false;
  } else if (mode == OpenWrite) {
    if ((m->m_openMode & OpenWrite) == 0 || motorola)
      return false;
    // The identifier, the version and the size: each write must stay in
    // place, and the first that extends the content decides.
    for (const ULONG written : {16u, 20u, 28u}) {
      if (!EndsInsideBlock(m, static_cast<unsigned __int64>(m->m_position) + written))
        return false;
    }
  } else {
    return false;
  }
  s->m_failed = false;
  s->PStreamSectionHdl::IOOpen(mode);
  return true;
}

// Closing a written section seeks back to its version and size, rewrites
// them and seeks to where the writer stood; closing a read one seeks past
// its end. With the plain memory handler as the parent and every one of
// those positions inside its content, each call is an in-place copy.
bool qvbase::streams::InPlace::CloseSection(PStreamHdl* handler) {
  PStreamSectionHdl* s = PlainSection(handler);
  if (!s)
    return false;
  PStreamHdl* parentHandler = s->m_stream.GetHandler();
  const PMemoryStreamHdl* m = parentHandler ? PlainMemory(parentHandler) : nullptr;
  if (!m || m->m_position > m->m_size)
    return false;
  if (s->m_openMode == OpenWrite) {
    if ((m->m_openMode & OpenWrite) == 0 || s->m_afterIdentifier > m->m_size ||
        m->m_size - s->m_afterIdentifier < 12)
      return false;
  } else if (s->m_openMode == OpenRead) {
    if (m->m_openMode == 0 || SaturatingAdd(s->m_start, s->m_size) > m->m_size)
      return false;
  } else {
    return false;
  }
  s->m_failed = false;
  s->PStreamSectionHdl::IOClose();
  return true;
}

unsigned __int64 PStreamSectionHdl::IOGetPos() const { return m_stream.GetPos() - m_start; }

unsigned __int64 PStreamSectionHdl::IOGetSize() const { return m_size; }

// Also at its end where the parent is: a damaged size larger than the
// parent's data must not keep a reader going forever.
bool PStreamSectionHdl::IOIsAtEnd() const { return IOGetPos() >= m_size || m_stream.IsAtEnd(); }

ULONG PStreamSectionHdl::IOOpenMode() const { return m_openMode; }

void PStreamSectionHdl::IOSetPos(TypSeekMode mode, unsigned __int64 offset) {
  if (m_openMode == 0) {
    RaiseError(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return;
  }
  switch (mode) {
  case SeekFwd:
  case SeekBack:
    m_stream.SetPos(mode, offset);
    break;
  case SeekFromStart:
    m_stream.MoveTo(SaturatingAdd(m_start, offset));
    break;
  case SeekFromEnd:
    m_stream.MoveTo(SaturatingAdd(m_start, m_size) -
                    std::min(offset, SaturatingAdd(m_start, m_size)));
    break;
  default:
    // Deliberately ignored without an error, unlike the memory handler.
    break;
  }
}

void PStreamSectionHdl::IOSetSize(unsigned __int64 size) {
  if (!RequireOpenMode(OpenWrite, kErrStreamNotWritable, __LINE__))
    return;
  m_size = size;
  // The parent grows to hold the section; it is never shrunk.
  unsigned __int64 end = SaturatingAdd(m_start, size);
  if (m_stream.GetSize() < end)
    m_stream.SetSize(end);
}

void PStreamSectionHdl::IOSetOpenMode(ULONG mode) {
  if (m_openMode == 0) {
    RaiseError(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
    return;
  }
  if (mode != m_openMode)
    RaiseError(kErrStreamOpenModeNotExact, ErrorSeverityAbort, __LINE__);
}

ULONG PStreamSectionHdl::IOGetAvailableOpenModes() const {
  return m_openMode != 0 ? m_openMode : m_stream.OpenMode();
}

void PStreamSectionHdl::IOClose() {
  PBenchmarkCall call(kProfiledHandler, "Close", kSourceFile);
  if (m_openMode == OpenWrite) {
    // The size is where the writer stands at close, not the furthest it got.
    unsigned __int64 end = m_stream.GetPos();
    m_size = end - m_start;
    m_openMode = 0;
    m_stream.MoveTo(m_afterIdentifier);
    m_stream.Write(static_cast<LONG>(m_version));
    m_stream.Write(static_cast<__int64>(m_size));
    m_stream.MoveTo(end);
  } else if (m_openMode == OpenRead) {
    // Whatever part of the body was not read is skipped.
    m_openMode = 0;
    m_stream.MoveTo(SaturatingAdd(m_start, m_size));
  } else {
    RaiseError(kErrStreamClosed, ErrorSeverityAbort, __LINE__);
  }
}

// ---------------------------------------------------------------------------
// PStreamSection

PStreamSection::PStreamSection() = default;

PStreamSection::PStreamSection(const PStreamSection& other) = default;

PStreamSection& PStreamSection::operator=(const PStreamSection& other) = default;

PStreamSection::~PStreamSection() = default;

PStreamSection::PStreamSection(PStream& parent) : PStream(new PStreamSectionHdl(parent)) {
  SetByteOrdering(parent.GetByteOrdering());
}

PStreamSectionHdl* PStreamSection::SectionHandler() const {
  return static_cast<PStreamSectionHdl*>(GetHandler());
}

PUniversalID PStreamSection::ID() const {
  return SectionHandler() ? SectionHandler()->GetID() : PUniversalID();
}

ULONG PStreamSection::Version() const {
  return SectionHandler() ? SectionHandler()->GetVersion() : 0;
}

void PStreamSection::SetID(const PUniversalID& id) {
  if (SectionHandler())
    SectionHandler()->SetID(id);
}

void PStreamSection::SetVersion(ULONG version) {
  if (SectionHandler())
    SectionHandler()->SetVersion(version);
}

// ---------------------------------------------------------------------------
// Free functions

PStreamSection OpenWriteSection(PStream& parent, const PUniversalID& id, ULONG version) {
  PBenchmarkCall call(kProfiledSection, "OpenWriteSection", kSourceFile);
  PStreamSection section(parent);
  section.SetVersion(version);
  section.SetID(id);
  section.Open(OpenWrite);
  return section;
}

PStreamSection OpenReadSection(PStream& parent) {
  PStreamSection section(parent);
  section.Open(OpenRead);
  return section;
}

PStreamSection OpenReadSection(PStream& parent, const PUniversalID& id) {
  PBenchmarkCall call(kProfiledSection, "OpenReadSection", kSourceFile);
  PStreamSection section = OpenReadSection(parent);
  if (section.ID() != id) {
    // Closing first leaves the parent after the rejected section, so a
    // caller that catches the error can go on with the next one.
    section.Close();
    // The section's handlers add their context.
    qvbase::errors::RaiseThrough(section, kErrStreamBadFormat, ErrorSeverityError, kSourceFile,
                                 __LINE__);
  }
  return section;
}

PUniversalID GetNextSection(PStream& parent) {
  unsigned __int64 position = parent.GetPos();
  PUniversalID id;
  parent.Read(&id);
  parent.MoveTo(position);
  return id;
}

void SkipCurrentSection(PStream& parent) {
  PBenchmarkCall call(kProfiledSection, "SkipCurrentSection", kSourceFile);
  unsigned __int64 position = parent.GetPos();
  PUniversalID id;
  LONG version = 0;
  __int64 size = 0;
  parent.Read(&id);
  parent.Read(&version);
  parent.Read(&size);
  unsigned __int64 length = static_cast<unsigned __int64>(size);
  if (length < kHeaderSize) {
    qvbase::errors::RaiseThrough(parent, kErrStreamBadFormat, ErrorSeverityAbort, kSourceFile,
                                 __LINE__);
    length = kHeaderSize; // let through: skip the header at least
  }
  parent.MoveTo(SaturatingAdd(position, length));
}

ULONG GetWriteSectionSize(const PStream&) { return kHeaderSize; }

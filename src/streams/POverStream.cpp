// POverStream.cpp - the handler that carries out its operations on the
// stream beneath it.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/POverStream.h>

POverStreamHdl::POverStreamHdl(PStream& stream) : m_stream(stream), m_openMode(0) {}

POverStreamHdl::POverStreamHdl(const POverStreamHdl& other)
    : PStreamHdl(other), m_stream(other.m_stream), m_openMode(other.m_openMode) {}

POverStreamHdl& POverStreamHdl::operator=(const POverStreamHdl& other) {
  PStreamHdl::operator=(other);
  m_stream = other.m_stream;
  m_openMode = other.m_openMode;
  return *this;
}

POverStreamHdl::~POverStreamHdl() = default;

ULONG POverStreamHdl::IORead(char* buffer, ULONG count, ULONG itemSize) {
  return m_stream.Read(buffer, count, itemSize);
}

ULONG POverStreamHdl::IOWrite(const char* buffer, ULONG count, ULONG itemSize) {
  return m_stream.Write(buffer, count, itemSize);
}

void POverStreamHdl::IOOpen(ULONG mode) { m_stream.Open(mode); }

void POverStreamHdl::IOSetOpenMode(ULONG mode) { m_stream.SetOpenMode(mode); }

ULONG POverStreamHdl::IOGetAvailableOpenModes() const {
  PStreamHdl* beneath = m_stream.GetHandler();
  return beneath ? beneath->GetAvailableOpenModes() : 0;
}

void POverStreamHdl::IOClose() { m_stream.Close(); }

void POverStreamHdl::IOFlush() { m_stream.Flush(); }

ULONG POverStreamHdl::IOOpenMode() const { return m_stream.OpenMode(); }

void POverStreamHdl::IOSetSize(unsigned __int64 size) { m_stream.SetSize(size); }

unsigned __int64 POverStreamHdl::IOGetSize() const { return m_stream.GetSize(); }

void POverStreamHdl::IOSetPos(TypSeekMode mode, unsigned __int64 offset) {
  m_stream.SetPos(mode, offset);
}

unsigned __int64 POverStreamHdl::IOGetPos() const { return m_stream.GetPos(); }

bool POverStreamHdl::IOIsAtEnd() const { return m_stream.IsAtEnd(); }

PError POverStreamHdl::IOPrepareError(PError& error) { return m_stream.PrepareError(error); }

// PTextStream.cpp - the front object of text handlers.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PTextStream.h>

#include "streams/PStreamHandlerRef.h"

PTextStream::PTextStream() : m_handler(nullptr) {}

PTextStream::PTextStream(PStreamHdl* handler) : m_handler(nullptr) {
  qvbase::streams::AssignStreamHandler(m_handler, handler);
}

PTextStream::PTextStream(const PTextStream& other) : PRoot(other), m_handler(nullptr) {
  qvbase::streams::AssignStreamHandler(m_handler, other.m_handler);
}

PTextStream& PTextStream::operator=(const PTextStream& other) {
  qvbase::streams::AssignStreamHandler(m_handler, other.m_handler);
  return *this;
}

PTextStream::~PTextStream() {
  try {
    qvbase::streams::AssignStreamHandler(m_handler, nullptr);
  } catch (...) {
    // Signalled through the protections already; a destructor cannot throw.
  }
}

// FuzzSupport.h - what the fuzz targets share.
// Part of qvbase, the QVKernel foundation class library.
//
// The scripted targets read their input in two parts: a short script of
// operations chosen by the first bytes, then the bytes the operations work
// on. ScriptedInput splits it; LoadedStreamHdl makes the second part the
// content of a stream the way an application loads a document (a memory
// handler whose content comes from elsewhere, loaded at open).
//
//   input:  flags (1 byte) | script length n (1 byte) | n script bytes | content
#pragma once

#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace qvbase::fuzz {

// Stops the run with a message: what a target calls when the library broke a
// promise it checks (libFuzzer reports the input that did it).
[[noreturn]] inline void Broken(const char* what) {
  std::fprintf(stderr, "broken promise: %s\n", what);
  std::abort();
}

inline void Check(bool holds, const char* what) {
  if (!holds)
    Broken(what);
}

// The script bytes of a scripted input, handed out one at a time; past the
// end every byte reads 0.
class Script {
public:
  Script() = default;
  explicit Script(std::string_view bytes) : m_bytes(bytes) {}

  bool Done() const { return m_next >= m_bytes.size(); }
  std::uint8_t Next() {
    return m_next < m_bytes.size() ? static_cast<std::uint8_t>(m_bytes[m_next++]) : 0;
  }
  // Starts again from the first byte: for replaying the same script.
  void Rewind() { m_next = 0; }

private:
  std::string_view m_bytes;
  std::size_t m_next = 0;
};

struct ScriptedInput {
  std::uint8_t flags = 0;
  Script script;
  std::string_view content;
};

// Splits an input into its flags, script and content; a short input gives
// what it has (an empty script, empty content).
inline ScriptedInput SplitInput(const std::uint8_t* data, std::size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  ScriptedInput input;
  if (bytes.empty())
    return input;
  input.flags = static_cast<std::uint8_t>(bytes[0]);
  bytes.remove_prefix(1);
  if (bytes.empty())
    return input;
  std::size_t length = static_cast<std::uint8_t>(bytes[0]);
  bytes.remove_prefix(1);
  length = length < bytes.size() ? length : bytes.size();
  input.script = Script(bytes.substr(0, length));
  input.content = bytes.substr(length);
  return input;
}

// A memory handler whose content is given bytes, loaded when it is opened,
// as a document's content is loaded from a file or a resource.
class LoadedStreamHdl : public PMemoryStreamHdl {
public:
  explicit LoadedStreamHdl(std::string_view content, ULONG granularity = 0x10000)
      : PMemoryStreamHdl(granularity), m_content(content) {}

protected:
  ULONG NeededSize() override { return static_cast<ULONG>(m_content.size()); }
  void MemoryRead(char* buffer, ULONG size) override {
    std::memcpy(buffer, m_content.data(), size < m_content.size() ? size : m_content.size());
  }

private:
  std::string_view m_content;
};

// A stream opened for reading over `content`; empty content opens too.
inline PStream OpenContent(std::string_view content, unsigned short ordering) {
  PStream stream(new LoadedStreamHdl(content));
  stream.Open(OpenRead | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

// A stream in memory for writing and reading back.
inline PStream OpenScratch(unsigned short ordering) {
  PStream stream(new PMemoryStreamHdl(/*granularity=*/256));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

// Keeps a run from the user's registry store: the error trace switch is read
// from the registry at a process's first error. Called from each target's
// LLVMFuzzerInitialize; a store named by the environment stays.
inline void UsePrivateRegistry() {
  if (!std::getenv("QVBASE_REGISTRY"))
    setenv("QVBASE_REGISTRY", "/nonexistent/qvbase-fuzz/registry.reg", /*overwrite=*/0);
}

} // namespace qvbase::fuzz

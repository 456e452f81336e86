// Guid.h - the platform layer's source of fresh 128-bit identifiers.
// Part of qvbase, the QVKernel foundation class library.
//
// CreateGuid makes a new random identifier, as CoCreateGuid does. On Windows it
// is CoCreateGuid. On POSIX it is a version 4 identifier (122 random bits from
// the operating system's random source, version nibble 4, variant bits 10)
// read with getrandom(), or from /dev/urandom where getrandom() is missing.
// When no random bytes can be had the call fails with E_FAIL rather than hand
// out an identifier that someone else could predict or repeat.
//
// All functions may be called from any thread.
#pragma once

#include <qvbase/QVCompat.h>

#include <cstddef>

namespace qvbase {
namespace native {

// A fresh identifier in `*out`. E_INVALIDARG when `out` is null; E_FAIL (POSIX)
// or the system's status (Windows) when no random bytes could be had, and
// `*out` is then left as it was.
HRESULT CreateGuid(GUID* out);

// Fills `count` bytes with random bytes; false when the source failed.
typedef bool (*RandomSource)(void* bytes, std::size_t count);

// The POSIX construction, open to any source so that tests can feed it known
// bytes or a failing source: 16 bytes from `source` laid into `*out` in memory
// order, then the version nibble (top of Data3) set to 4 and the top two bits
// of Data4[0] set to the RFC 4122 variant 10. E_FAIL when the source fails.
HRESULT MakeRandomGuid(RandomSource source, GUID* out);

} // namespace native
} // namespace qvbase

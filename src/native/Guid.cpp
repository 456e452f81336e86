// Guid.cpp - version 4 identifiers from a random source.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Guid.h"

#include <cstring>

namespace qvbase {
namespace native {

HRESULT MakeRandomGuid(RandomSource source, GUID* out) {
  if (!out)
    return E_INVALIDARG;
  unsigned char bytes[sizeof(GUID)];
  if (!source || !source(bytes, sizeof bytes))
    return E_FAIL;
  GUID id;
  std::memcpy(&id, bytes, sizeof id);
  id.Data3 = static_cast<unsigned short>((id.Data3 & 0x0FFFu) | 0x4000u);
  id.Data4[0] = static_cast<unsigned char>((id.Data4[0] & 0x3Fu) | 0x80u);
  *out = id;
  return S_OK;
}

} // namespace native
} // namespace qvbase

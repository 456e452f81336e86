// GuidWin32.cpp - random identifiers from COM.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Guid.h"

namespace qvbase {
namespace native {

HRESULT CreateGuid(GUID* out) {
  if (!out)
    return E_INVALIDARG;
  GUID id;
  HRESULT hr = CoCreateGuid(&id);
  if (SUCCEEDED(hr))
    *out = id;
  return hr;
}

} // namespace native
} // namespace qvbase

// ResourceText.h - loading a string resource without a fallback.
// Part of qvbase, the QVKernel foundation class library.
#pragma once

#include <qvbase/PMBString.h>
#include <qvbase/QVCompat.h>

namespace qvbase {
namespace components {

// String `id` of the module `container`, loaded as NResourceString loads it
// (a buffer of 128 bytes growing by 128 while the text may have been cut).
// False, with `text` untouched, when the module lacks the string: callers
// that must not show the fallback text, such as the error display mapper,
// tell a missing string from a loaded one.
bool LoadResourceText(void* container, ULONG id, PMBString* text);

} // namespace components
} // namespace qvbase

// PMBStringRefill.h - new 7-bit text written into the multibyte handler a
// string already holds, where a new handler would be indistinguishable.
// Part of qvbase, the QVKernel foundation class library.
//
// For the library's typed stream reads, which give a string new text over
// and over. Private to the library.
#pragma once

#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>

namespace qvbase {
namespace strings {

// Gives `target` the `bytes` bytes at `text` by writing them into the
// handler it holds, leaving that handler exactly as a new one made by
// PMBStringHandler::FromBytes(text, bytes, bytes) and assigned to `target`
// would be, when nobody can tell the two apart; see PMBString.cpp for when
// that is. Returns false, with nothing changed, when the new handler must be
// made and assigned.
//
// `text` holds `bytes` (at least one) bytes from 1 to 127 and a terminator
// behind them, and lies outside the target's buffer.
bool RefillSevenBitText(PString* target, const char* text, ULONG bytes);

} // namespace strings
} // namespace qvbase

// Placeholders (^name^) found, filled and finished in arbitrary text, in
// each of the three string handlers.
//
// Input: one byte choosing the handler, then the text, a name and a value
// separated by 0 bytes. Every placeholder FindNextParameter reports must be
// a caret pair at or after the start asked for; SetParameter replaces the
// first ^name^ or nothing; ValidateParams with a value without carets must
// end and leave no pair of carets behind.
#include "FuzzSupport.h"

#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PString.h>
#include <qvbase/PUNIString.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using qvbase::fuzz::Check;

class IgnoringHook : public PErrorHook {
public:
  TypErrorHandlingEnum DisplayError(PError&, ULONG) override { return ErrorHandlingIgnore; }
};

std::vector<std::string> SplitAtZeros(const std::string& bytes) {
  std::vector<std::string> parts(1);
  for (char c : bytes) {
    if (c == '\0')
      parts.emplace_back();
    else
      parts.back().push_back(c);
  }
  return parts;
}

PString InHandler(const std::string& bytes, std::uint8_t choice) {
  const PMBString text(bytes.c_str(), /*copy=*/true);
  switch (choice % 3) {
  case 0:
    return PASCIIString(text);
  case 1:
    return text;
  default:
    return PUNIString(text);
  }
}

ULONG Carets(const PString& text) {
  ULONG carets = 0;
  for (ULONG i = 0; i < text.Len(); ++i)
    carets += text.GetChar(i) == '^';
  return carets;
}

void CheckPlaceholders(const PString& text) {
  ULONG from = 0;
  while (from <= text.Len()) {
    PASCIIString name;
    ULONG length = 0;
    const ULONG at = text.FindNextParameter(&name, &length, from);
    if (at == 0xFFFFFFFFu)
      return;
    Check(at >= from, "a placeholder found before the start asked for");
    Check(length >= 2 && at + length <= text.Len(), "a placeholder longer than the text");
    Check(text.GetChar(at) == '^' && text.GetChar(at + length - 1) == '^',
          "a placeholder that is not a caret pair");
    // A name is ASCII: one with other characters cannot be held whole.
    bool ascii = true;
    for (ULONG i = at + 1; i + 1 < at + length; ++i)
      ascii = ascii && text.GetChar(i) >= 0 && text.GetChar(i) < 0x80;
    if (ascii)
      Check(name.Len() == (length < 3 ? 0 : length - 2), "a placeholder name of the wrong length");
    from = at + length;
  }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const std::uint8_t choice = data[0];
  std::vector<std::string> parts =
      SplitAtZeros(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
  parts.resize(3);
  // ValidateParams searches the inserted value again: its callers pass
  // values without carets.
  parts[2].erase(std::remove(parts[2].begin(), parts[2].end(), '^'), parts[2].end());

  // The promises below are checked on 7-bit text and values. Other text is
  // read as the locale's multibyte characters, and a multibyte handler made
  // from text counts its bytes as its length (a kept quirk), so positions
  // past its first multibyte character are not those of its characters:
  // such text is only run, for crashes, hangs and allocations.
  bool sevenBit = true;
  for (const std::string* part : {&parts[0], &parts[2]})
    for (char c : *part)
      sevenBit = sevenBit && static_cast<unsigned char>(c) < 0x80;

  // Text the handler cannot hold is reported and kept as it can be.
  IgnoringHook hook;
  PErrorHookProtection protection(&hook, /*set=*/true);
  PString text = InHandler(parts[0], choice);
  const PString value = InHandler(parts[2], choice / 3);

  if (sevenBit)
    CheckPlaceholders(text);

  const ULONG before = text.Len();
  PASCIIString name(PMBString(parts[1].c_str(), /*copy=*/true));
  text.SetParameter(name, value);
  const ULONG pattern = name.Len() + 2;
  if (sevenBit)
    Check(text.Len() == before || text.Len() + pattern == before + value.Len(),
          "SetParameter changed the text by another length than one placeholder");
  if (sevenBit)
    CheckPlaceholders(text);

  text.SetParameter(static_cast<ULONG>(choice), value);
  if (sevenBit)
    CheckPlaceholders(text);

  text.ValidateParams(value);
  if (sevenBit)
    Check(Carets(text) <= 1, "a pair of carets survived ValidateParams");
  return 0;
}

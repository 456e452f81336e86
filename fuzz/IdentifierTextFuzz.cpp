// Identifiers parsed from arbitrary text, and made from arbitrary names.
//
// The first byte chooses whether errors are thrown (no protection) or let
// through by a hook that ignores them, so that the parse goes on past every
// check as the library defines; the rest is the text. A parse that raises
// nothing must give the identifier whose text form is the input (digits in
// upper case); any other text must raise the invalid-argument or bad-digit
// error. PAutomaticUID of the same bytes is a pure function of them.
#include "FuzzSupport.h"

#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUniversalID.h>

#include <cctype>
#include <cstdint>
#include <string>

namespace {

using qvbase::fuzz::Check;

// Answers every error with "ignore" and counts them.
class IgnoringHook : public PErrorHook {
public:
  TypErrorHandlingEnum DisplayError(PError&, ULONG) override {
    ++errors;
    return ErrorHandlingIgnore;
  }
  int errors = 0;
};

std::string Upper(std::string text) {
  for (char& c : text)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const bool ignore = data[0] & 1;
  // The text up to the first 0 byte, as a terminated text reaches the library.
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string terminated(text.c_str());

  IgnoringHook hook;
  int code = 0;
  PUniversalID id;
  try {
    if (ignore) {
      PErrorHookProtection protection(&hook, /*set=*/true);
      id = PUniversalID(PASCIIString(terminated.c_str(), /*copy=*/true));
    } else {
      id = PUniversalID(PASCIIString(terminated.c_str(), /*copy=*/true));
    }
  } catch (const PError& e) {
    code = e.Code();
  }
  const bool clean = code == 0 && hook.errors == 0;
  if (clean) {
    const PMBString back = static_cast<PString>(id);
    Check(std::string(static_cast<const char*>(back)) == Upper(terminated),
          "a parsed identifier does not print as its text");
  } else if (!ignore) {
    Check(code == kErrInvalidArgument || code == kErrStringBadHexDigit ||
              code == kErrStringCharOutOfRange,
          "bad identifier text raised another error");
  }

  Check(PAutomaticUID(terminated.c_str()) == PAutomaticUID(terminated.c_str()),
        "PAutomaticUID is not a function of its name");
  return 0;
}

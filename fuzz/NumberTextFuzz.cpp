// Hexadecimal and decimal numbers read from arbitrary text.
//
// The hexadecimal readers take a fixed number of digits from the start of
// the text: with every one of them a hexadecimal digit they must give the
// value the digits spell and raise nothing; with any other character among
// them (the end of the text included) they must raise the bad-digit error.
// With a hook that ignores errors they must still return. The decimal and
// floating-point readers must read any text without failing, and give back
// every number the matching writer wrote.
#include "FuzzSupport.h"

#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStringConversions.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

using qvbase::fuzz::Check;

class IgnoringHook : public PErrorHook {
public:
  TypErrorHandlingEnum DisplayError(PError&, ULONG) override { return ErrorHandlingIgnore; }
};

int DigitValue(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

// The value of the first `digits` characters, or -1 when one of them is not
// a hexadecimal digit.
long long Expected(const std::string& text, std::size_t digits) {
  long long value = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const int d = i < text.size() ? DigitValue(text[i]) : -1;
    if (d < 0)
      return -1;
    value = value * 16 + d;
  }
  return value;
}

template <typename Read>
void CheckHexReader(const PASCIIString& text, const std::string& bytes, std::size_t digits,
                    Read read) {
  const long long expected = Expected(bytes, digits);
  int code = 0;
  unsigned long long value = 0;
  try {
    value = read(text);
  } catch (const PError& e) {
    code = e.Code();
  }
  if (expected >= 0) {
    Check(code == 0, "valid hexadecimal digits raised an error");
    Check(value == static_cast<unsigned long long>(expected), "hexadecimal digits misread");
  } else {
    Check(code == kErrStringBadHexDigit, "a bad hexadecimal digit raised another error");
  }
  // Let through, the reader returns whatever it has.
  IgnoringHook hook;
  PErrorHookProtection protection(&hook, /*set=*/true);
  read(text);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string terminated(bytes.c_str());

  bool sevenBit = true;
  for (char c : terminated)
    sevenBit = sevenBit && static_cast<unsigned char>(c) < 0x80;
  if (sevenBit) {
    const PASCIIString text(terminated.c_str(), /*copy=*/true);
    CheckHexReader(text, terminated, 2, [](const PASCIIString& t) { return HexaToUInt8(t); });
    CheckHexReader(text, terminated, 4, [](const PASCIIString& t) { return HexaToUInt16(t); });
    CheckHexReader(text, terminated, 8, [](const PASCIIString& t) { return HexaToUInt32(t); });
  }

  // Decimal readers take any text; non-ASCII text reads as empty.
  const PMBString text(terminated.c_str(), /*copy=*/true);
  {
    IgnoringHook hook;
    PErrorHookProtection protection(&hook, /*set=*/true);
    PStringToUInt(text);
    PStringToSInt(text);
    PStringToFloat(text);
  }

  // Numbers made from the input's bytes come back from their text.
  std::uint32_t number = 0;
  std::memcpy(&number, bytes.data(), bytes.size() < 4 ? bytes.size() : 4);
  Check(PStringToUInt(UIntToPString(number)) == number, "an unsigned number did not come back");
  const LONG signedNumber = static_cast<LONG>(number);
  Check(PStringToSInt(SIntToPString(signedNumber)) == signedNumber,
        "a signed number did not come back");
  Check(HexaToUInt32(UInt32ToHexa(number)) == number, "a hexadecimal number did not come back");
  double real = 0;
  std::memcpy(&real, bytes.data(), bytes.size() < 8 ? bytes.size() : 8);
  if (real == real) {
    const double back = PStringToFloat(FloatToPString(real, 17));
    Check(back == real, "a floating-point number did not come back from 17 digits");
  }
  return 0;
}

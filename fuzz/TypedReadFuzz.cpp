// Typed reads of every type, in both byte orderings, from arbitrary bytes.
//
// The script chooses the reads (and their counts and terminators); the
// content is the stream they read. Every read must end normally or with a
// PError, never crash, hang or allocate without bound (a length prefix of
// 0xFFFFFFFF in a short input included). What was read is written again
// with the same members into a second stream, and reading that stream with
// the same reads must give the same values: whatever a reader accepts, the
// writer reproduces.
#include "FuzzSupport.h"

#include <qvbase/PDate.h>
#include <qvbase/PError.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStream.h>
#include <qvbase/PTime.h>
#include <qvbase/PUniversalID.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using qvbase::fuzz::Check;
using qvbase::fuzz::Script;

enum Op : std::uint8_t {
  kChar,
  kShort,
  kLong,
  kInt64,
  kBool,
  kFloat,
  kDouble,
  kCountedText,
  kTerminatedText,
  kIdentifier,
  kTime,
  kDate,
  kCharArray,
  kShortArray,
  kLongArray,
  kInt64Array,
  kFloatArray,
  kDoubleArray,
  kByteOrderingMarker,
  kMoveTo,
  kSwitchOrdering,
  kOpCount
};

// One read the script asked for, with its argument byte.
struct Step {
  Op op;
  std::uint8_t argument;
};

std::string Bytes(const void* data, std::size_t size) {
  return std::string(static_cast<const char*>(data), size);
}

std::string TextBytes(const PString& text) {
  PMBString bytes(text);
  return std::string(static_cast<const char*>(bytes), bytes.Size());
}

// A double as its bits, with every NaN the same: a NaN read back from its
// text is a NaN, not necessarily the same one.
std::string DoubleBits(double value) {
  if (std::isnan(value))
    return "nan";
  return Bytes(&value, sizeof value);
}

template <typename T>
std::string ReadIntegers(PStream& in, PStream* out, ULONG count) {
  std::vector<T> values(count);
  if (count)
    in.ReadArray(values.data(), count);
  if (out && count)
    out->WriteArray(values.data(), count);
  return Bytes(values.data(), values.size() * sizeof(T));
}

template <typename T>
std::string ReadFloats(PStream& in, PStream* out, ULONG count) {
  std::vector<T> values(count);
  if (count)
    in.ReadArray(values.data(), count);
  std::string seen;
  for (T v : values)
    seen += DoubleBits(v);
  if (out && count)
    out->WriteArray(values.data(), count, /*digits=*/17);
  return seen;
}

// Carries out one step on `in`, writes what it read to `out` (when given)
// and returns the value as bytes, for comparing.
std::string Run(const Step& step, PStream& in, PStream* out) {
  switch (step.op) {
  case kChar: {
    char v = 0;
    in.Read(&v);
    if (out)
      out->Write(v);
    return Bytes(&v, 1);
  }
  case kShort: {
    short v = 0;
    in.Read(&v);
    if (out)
      out->Write(v);
    return Bytes(&v, sizeof v);
  }
  case kLong: {
    LONG v = 0;
    in.Read(&v);
    if (out)
      out->Write(v);
    return Bytes(&v, sizeof v);
  }
  case kInt64: {
    __int64 v = 0;
    in.Read(&v);
    if (out)
      out->Write(v);
    return Bytes(&v, sizeof v);
  }
  case kBool: {
    bool v = false;
    in.Read(&v);
    if (out)
      out->Write(v);
    return v ? "true" : "false";
  }
  case kFloat: {
    float v = 0;
    in.Read(&v);
    if (out)
      out->Write(v, /*digits=*/17);
    return DoubleBits(v);
  }
  case kDouble: {
    double v = 0;
    in.Read(&v);
    if (out)
      out->Write(v, /*digits=*/17);
    return DoubleBits(v);
  }
  case kCountedText: {
    PString v;
    in.Read(&v);
    if (out)
      out->Write(v);
    return TextBytes(v);
  }
  case kTerminatedText: {
    PString v;
    const char terminator = static_cast<char>(step.argument);
    in.Read(&v, terminator);
    const std::string bytes = TextBytes(v);
    Check(bytes.find(terminator) == std::string::npos, "a terminated text holds its terminator");
    if (out)
      out->Write(v, terminator);
    return bytes;
  }
  case kIdentifier: {
    PUniversalID v;
    in.Read(&v);
    if (out)
      out->Write(v);
    _GUID g = v;
    return Bytes(&g, sizeof g);
  }
  case kTime: {
    PTime v;
    in.Read(&v);
    if (out)
      out->Write(v);
    const __int64 ticks = v.GetValue();
    return Bytes(&ticks, sizeof ticks);
  }
  case kDate: {
    PUTDate v;
    in.Read(&v);
    if (out)
      out->Write(v);
    const __int64 ticks = v.GetValue().GetValue();
    return Bytes(&ticks, sizeof ticks);
  }
  case kCharArray: {
    std::vector<char> values(step.argument);
    if (!values.empty())
      in.ReadArray(values.data(), static_cast<ULONG>(values.size()));
    if (out && !values.empty())
      out->WriteArray(values.data(), static_cast<ULONG>(values.size()));
    return Bytes(values.data(), values.size());
  }
  case kShortArray:
    return ReadIntegers<short>(in, out, step.argument);
  case kLongArray:
    return ReadIntegers<LONG>(in, out, step.argument);
  case kInt64Array:
    return ReadIntegers<__int64>(in, out, step.argument);
  case kFloatArray:
    return ReadFloats<float>(in, out, step.argument % 16);
  case kDoubleArray:
    return ReadFloats<double>(in, out, step.argument % 16);
  case kByteOrderingMarker:
    in.ReadByteOrdering();
    if (out) {
      out->SetByteOrdering(in.GetByteOrdering());
      out->WriteByteOrdering();
    }
    return std::to_string(in.GetByteOrdering());
  case kMoveTo:
    // Only on the first pass: the stream written again holds the values
    // without the bytes skipped or read twice.
    if (out)
      in.MoveTo(step.argument);
    return std::string();
  case kSwitchOrdering: {
    const unsigned short other =
        in.GetByteOrdering() == kByteOrderingIntel ? kByteOrderingMotorola : kByteOrderingIntel;
    in.SetByteOrdering(other);
    if (out)
      out->SetByteOrdering(other);
    return std::string();
  }
  case kOpCount:
    break;
  }
  return std::string();
}

// Steps that take an argument byte from the script.
bool TakesArgument(Op op) {
  return op == kTerminatedText || (op >= kCharArray && op <= kDoubleArray) || op == kMoveTo;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qvbase::fuzz::ScriptedInput input = qvbase::fuzz::SplitInput(data, size);
  const unsigned short ordering = (input.flags & 1) ? kByteOrderingMotorola : kByteOrderingIntel;

  // First pass: the script on the content; what each step read is written
  // to `out`. A step that raised an error is left out of the replay.
  std::vector<Step> done;
  std::vector<std::string> seen;
  PStream out = qvbase::fuzz::OpenScratch(ordering);
  {
    PStream in = qvbase::fuzz::OpenContent(input.content, ordering);
    while (!input.script.Done()) {
      Step step;
      step.op = static_cast<Op>(input.script.Next() % kOpCount);
      step.argument = TakesArgument(step.op) ? input.script.Next() : 0;
      const unsigned __int64 written = out.GetSize();
      try {
        std::string value = Run(step, in, &out);
        if (step.op != kMoveTo) {
          done.push_back(step);
          seen.push_back(std::move(value));
        }
      } catch (const PError&) {
        // Nothing of a failed step may have reached the copy.
        Check(out.GetSize() == written, "a failed read wrote to the copy");
      }
    }
  }

  // Second pass: the same reads on what was written must give the same
  // values.
  out.MoveTo(0);
  out.SetByteOrdering(ordering);
  for (std::size_t i = 0; i < done.size(); ++i) {
    std::string again;
    try {
      again = Run(done[i], out, nullptr);
    } catch (const PError&) {
      qvbase::fuzz::Broken("reading back what was written raised an error");
    }
    Check(again == seen[i], "a value read back differs from the value written");
  }
  Check(out.IsAtEnd(), "reading back stopped before the end of what was written");
  return 0;
}

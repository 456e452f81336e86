// LibraryErrorTexts.cpp - display texts of the library's own error codes,
// from its resource module.
// Part of qvbase, the QVKernel foundation class library.
//
// One display mapper, constructed when the library is loaded, gives
// PError::GetDisplayString the texts of QVKernelRes12: the text of a code is
// the library's string whose identifier is the code's low 16 bits (1229 for
// 1229, 65535 for -1), at gTesselComponentFile's resource location, read
// when an error asks. It accepts the codes from -32768 to 32767 but 0, the
// range whose low 16 bits name one code each; a code the module has no text
// for is left to the other mappers (and an empty display string). Mappers an
// application constructs later are asked first, so an application can
// always give a code a text of its own.
#include <qvbase/NResource.h>
#include <qvbase/PComponent.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>

#include "components/ResourceText.h"

namespace {

constexpr int kLowestMappedCode = -32768;
constexpr int kHighestMappedCode = 32767;

class LibraryErrorTexts : public PErrorDisplayMapper {
public:
  bool Accepts(int code) override {
    return code != 0 && code >= kLowestMappedCode && code <= kHighestMappedCode;
  }

  bool Map(int code, TypErrorSeverityEnum /*severity*/, PString* text) override {
    const NResourceString resource(static_cast<ULONG>(code) & 0xFFFFu,
                                   gTesselComponentFile.ResourceLocation());
    // Without the fallback text: a code without a text shows none.
    PMBString loaded;
    if (!resource.IsValid() || !qvbase::components::LoadResourceText(
                                   resource.ResourceContainer(), resource.ResourceNum(), &loaded))
      return false;
    *text = loaded;
    return true;
  }
};

LibraryErrorTexts gLibraryErrorTexts;

} // namespace

// Locale.cpp - the string forms of the multibyte and UTF-16 conversions.
// Part of qvbase, the QVKernel foundation class library.
//
// Built on the buffer forms, which each platform implements.
#include "native/Locale.h"

namespace qvbase {
namespace native {

std::u16string MultiByteToUnits(const std::string& text) {
  std::size_t n = MultiByteToUnits(text.data(), text.size(), nullptr, 0);
  std::u16string units(n, u'\0');
  MultiByteToUnits(text.data(), text.size(), reinterpret_cast<unsigned short*>(&units[0]), n);
  return units;
}

std::string UnitsToMultiByte(const std::u16string& units) {
  const unsigned short* data = reinterpret_cast<const unsigned short*>(units.data());
  std::size_t n = UnitsToMultiByte(data, units.size(), nullptr, 0);
  std::string text(n, '\0');
  UnitsToMultiByte(data, units.size(), &text[0], n);
  return text;
}

} // namespace native
} // namespace qvbase

// Locale.cpp - what the locale services share on every platform: adopting
// the user's locale, the string forms of the multibyte and UTF-16 conversions
// (built on the buffer forms, which each platform implements), and the memory
// of the 7-bit traits of each locale met.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Locale.h"

#include <atomic>
#include <clocale>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace qvbase {
namespace native {

// The same on every platform: the C runtime's own notion of the user's
// locale (the environment on POSIX, the user's settings on Windows).
const char* AdoptUserLocale() {
  const char* name = std::setlocale(LC_ALL, "");
  return name ? name : "C";
}

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

namespace {

struct RememberedTraits {
  std::string key;
  SevenBitTraits traits;
};

// Every locale met so far, kept for the life of the process (a process meets
// few), and the one met last, which is looked at first without a lock.
std::atomic<const RememberedTraits*> gLatestTraits{nullptr};

std::mutex& TraitsLock() {
  static std::mutex* lock = new std::mutex;
  return *lock;
}

std::vector<const RememberedTraits*>& AllTraits() {
  static std::vector<const RememberedTraits*>* all = new std::vector<const RememberedTraits*>;
  return *all;
}

} // namespace

SevenBitTraits CurrentSevenBitTraits() {
  const char* key = SevenBitTraitsKey();
  if (!key)
    return SevenBitTraits{false, false};
  const RememberedTraits* latest = gLatestTraits.load(std::memory_order_acquire);
  if (latest && std::strcmp(latest->key.c_str(), key) == 0)
    return latest->traits;
  std::lock_guard<std::mutex> guard(TraitsLock());
  for (const RememberedTraits* known : AllTraits()) {
    if (known->key == key) {
      gLatestTraits.store(known, std::memory_order_release);
      return known->traits;
    }
  }
  const RememberedTraits* made = new RememberedTraits{key, ProbeSevenBitTraits()};
  AllTraits().push_back(made);
  gLatestTraits.store(made, std::memory_order_release);
  return made->traits;
}

} // namespace native
} // namespace qvbase

// ResourceImage.h - the resources held by a compiled resource file or a PE image.
// Part of qvbase, the QVKernel foundation class library.
//
// A resource module is the output of a resource compiler: on Windows a
// resource-only DLL (a PE image whose resource directory holds the data), on
// the other platforms the compiled resource file itself (.res, a sequence of
// resource records). ResourceImage reads either form from bytes in memory and
// answers what the Win32 resource calls answer on a module handle: which
// resource a type and a name designate (FindResource), where its bytes are
// and how many (LoadResource, SizeofResource), and the strings of string
// tables (LoadString).
//
// The bytes come from outside and are not trusted. Every offset and count is
// checked against the bytes before it is used, each structure is visited at
// most once, and nothing is allocated beyond what the bytes themselves hold,
// so a truncated or hostile file is refused with a failure naming its offset,
// never read out of bounds, looped over forever or answered with a huge
// allocation.
//
//   ResourceImage image;
//   ParseFailure failure;
//   if (!image.Parse(bytes.data(), bytes.size(), &failure))
//     report(failure.offset, failure.message);
//   const ResourceEntry* entry = image.Find(ResourceKey::Number(kTypeRawData),
//                                           ResourceKey::Name(u"SETTINGS"));
//
// An image refers to the bytes it was parsed from: they must outlive it. An
// image is not changed after Parse and may be read from several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qvcomponent {
namespace resmodule {

// Windows resource type numbers that the readers need by name.
constexpr std::uint16_t kTypeString = 6;
constexpr std::uint16_t kTypeRawData = 10;

// Strings travel in bundles of 16: string n is entry n % 16 of bundle
// n / 16 + 1.
constexpr std::uint32_t kStringsPerBundle = 16;

// Neither file form may be larger: a module is read into memory whole.
constexpr std::uint64_t kMaxImageSize = std::uint64_t(256) << 20;

// A resource's type or name: a 16-bit number, or a name in UTF-16 units
// (resource compilers store names upper-cased).
struct ResourceKey {
  bool isName = false;
  std::uint16_t number = 0;
  std::u16string name;

  static ResourceKey Number(std::uint16_t number);
  static ResourceKey Name(std::u16string name);

  // Numbers by value; names ignoring the case of the letters A-Z, as the
  // system's lookup does for the names that resource compilers accept.
  bool Matches(const ResourceKey& other) const;
};

// One resource of the image.
struct ResourceEntry {
  ResourceKey type;
  ResourceKey name;
  std::uint16_t language = 0;
  // Where its bytes are in the image, and how many.
  std::uint64_t dataOffset = 0;
  std::uint32_t size = 0;
  // Where the record or directory entry that describes it starts.
  std::uint64_t describedAt = 0;
};

enum class ImageFormat { kNone, kResourceFile, kPortableExecutable };

// Why an image was refused: the offset in the bytes where the fault lies and
// one line saying what is wrong there.
struct ParseFailure {
  std::uint64_t offset = 0;
  std::string message;
};

class ResourceImage {
public:
  // Reads the `size` bytes at `data` as a compiled resource file (it starts
  // with the empty 32-byte record every such file opens with) or as a PE
  // image (it starts with "MZ"). True with the entries in file order; false
  // with `failure` set and no entries. May be called again on other bytes.
  bool Parse(const std::uint8_t* data, std::size_t size, ParseFailure* failure);

  ImageFormat Format() const { return m_format; }
  const std::vector<ResourceEntry>& Entries() const { return m_entries; }
  // The first byte of an entry's data (valid while the parsed bytes are).
  const std::uint8_t* Data(const ResourceEntry& entry) const { return m_data + entry.dataOffset; }

  // The resource that FindResource designates by type and name. When it
  // exists in several languages the neutral one is taken, else US English,
  // else another English one, else the lowest language number: the order in
  // which the system prefers them for a process without a language of its
  // own. Null when there is none.
  const ResourceEntry* Find(const ResourceKey& type, const ResourceKey& name) const;

  // String `id` (its low 16 bits) of the string tables, as UTF-16 units.
  // False when the bundle is absent, the string is empty (a string table
  // does not tell an empty string from a missing one) or lies beyond the
  // bundle's bytes.
  bool FindString(std::uint32_t id, std::u16string* text) const;

private:
  bool ParseResourceFile(ParseFailure* failure);
  bool ParsePortableExecutable(ParseFailure* failure);

  const std::uint8_t* m_data = nullptr;
  std::uint64_t m_size = 0;
  ImageFormat m_format = ImageFormat::kNone;
  std::vector<ResourceEntry> m_entries;
};

// The text form of a key for messages and listings: the number in decimal,
// or the name in double quotes with characters outside printable ASCII as
// \uXXXX.
std::string KeyText(const ResourceKey& key);

} // namespace resmodule
} // namespace qvcomponent

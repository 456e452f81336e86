// ResourceImage.cpp - reads the resources of a compiled resource file or a PE image.
// Part of qvbase, the QVKernel foundation class library.
#include "resmodule/ResourceImage.h"

#include <cstdio>
#include <unordered_set>
#include <utility>

namespace qvcomponent {
namespace resmodule {

namespace {

// Every compiled resource file opens with this empty record (data size 0,
// header size 32, type 0 and name 0 as numbers): it tells the 32-bit form
// from the 16-bit one, which has no such record.
constexpr std::uint8_t kEmptyRecord[32] = {0, 0,    0,    0, 0x20, 0, 0, 0, 0xFF, 0xFF, 0,
                                           0, 0xFF, 0xFF, 0, 0,    0, 0, 0, 0,    0,    0,
                                           0, 0,    0,    0, 0,    0, 0, 0, 0,    0};
constexpr std::uint64_t kRecordHeaderMinimum = 32;
constexpr std::uint16_t kNumberMarker = 0xFFFF;

// PE layout.
constexpr std::uint64_t kDosHeaderSize = 64;
constexpr std::uint64_t kPeOffsetField = 0x3C;
constexpr std::uint32_t kPeSignature = 0x00004550; // "PE\0\0"
constexpr std::uint64_t kCoffHeaderSize = 20;
constexpr std::uint16_t kMagicPe32 = 0x10B;
constexpr std::uint16_t kMagicPe32Plus = 0x20B;
constexpr std::uint32_t kResourceDirectoryIndex = 2;
constexpr std::uint64_t kSectionHeaderSize = 40;
constexpr std::uint64_t kDirectoryHeaderSize = 16;
constexpr std::uint64_t kDirectoryEntrySize = 8;
constexpr std::uint64_t kDataEntrySize = 16;
constexpr std::uint32_t kHighBit = 0x80000000u;

// Languages in the order Find prefers them.
constexpr std::uint16_t kLanguageNeutral = 0x0000;
constexpr std::uint16_t kLanguageUsEnglish = 0x0409;
constexpr std::uint16_t kPrimaryLanguageMask = 0x03FF;
constexpr std::uint16_t kPrimaryEnglish = 0x09;

std::string Hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
  return text;
}

std::string Decimal(std::uint64_t value) {
  return std::to_string(static_cast<unsigned long long>(value));
}

// Little-endian reads from bytes whose extent the caller has checked.
class Bytes {
public:
  Bytes(const std::uint8_t* data, std::uint64_t size) : m_data(data), m_size(size) {}

  // True when `count` bytes at `at` lie within the bytes (no overflow).
  bool Has(std::uint64_t at, std::uint64_t count) const {
    return at <= m_size && count <= m_size - at;
  }
  std::uint16_t U16(std::uint64_t at) const {
    return static_cast<std::uint16_t>(m_data[at] | (m_data[at + 1] << 8));
  }
  std::uint32_t U32(std::uint64_t at) const {
    return static_cast<std::uint32_t>(U16(at)) | (static_cast<std::uint32_t>(U16(at + 2)) << 16);
  }
  std::uint64_t Size() const { return m_size; }

private:
  const std::uint8_t* m_data;
  std::uint64_t m_size;
};

bool Fail(ParseFailure* failure, std::uint64_t offset, std::string message) {
  if (failure) {
    failure->offset = offset;
    failure->message = std::move(message);
  }
  return false;
}

std::uint64_t AlignToWord(std::uint64_t offset) { return (offset + 3) & ~std::uint64_t(3); }

char16_t FoldAscii(char16_t unit) {
  return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - (u'a' - u'A')) : unit;
}

int LanguageRank(std::uint16_t language) {
  if (language == kLanguageNeutral)
    return 0;
  if (language == kLanguageUsEnglish)
    return 1;
  if ((language & kPrimaryLanguageMask) == kPrimaryEnglish)
    return 2;
  return 3;
}

// ---------------------------------------------------------------------------
// Compiled resource files

// A type or name field of a record header: 0xFFFF and a number, or UTF-16
// units up to a 0 unit, all before `end` (the end of the header).
bool ReadRecordKey(const Bytes& bytes, std::uint64_t* at, std::uint64_t end, const char* what,
                   std::uint64_t record, ResourceKey* key, ParseFailure* failure) {
  if (*at + 2 > end)
    return Fail(failure, record, std::string("record header ends before its ") + what);
  if (bytes.U16(*at) == kNumberMarker) {
    if (*at + 4 > end)
      return Fail(failure, record, std::string("record header ends inside its ") + what);
    *key = ResourceKey::Number(bytes.U16(*at + 2));
    *at += 4;
    return true;
  }
  std::u16string name;
  for (std::uint64_t p = *at; p + 2 <= end; p += 2) {
    const char16_t unit = bytes.U16(p);
    if (unit == 0) {
      *key = ResourceKey::Name(std::move(name));
      *at = p + 2;
      return true;
    }
    name.push_back(unit);
  }
  return Fail(failure, record,
              std::string("the ") + what + " name has no terminator within the record header");
}

// ---------------------------------------------------------------------------
// PE images

struct Section {
  std::uint32_t virtualAddress;
  std::uint64_t fileOffset;
  std::uint64_t length; // bytes that the file holds for it
};

class PeImage {
public:
  PeImage(const Bytes& bytes, ParseFailure* failure) : m_bytes(bytes), m_failure(failure) {}

  bool Read(std::vector<ResourceEntry>* entries);

private:
  bool ReadSections(std::uint64_t table, std::uint32_t count);
  // The file offset of `length` bytes at `rva`, when one section holds them.
  bool MapRva(std::uint32_t rva, std::uint64_t length, std::uint64_t* offset) const;
  // A directory of the resource tree at `offset` (from the tree's start),
  // which the field at `referrer` points at: its entry count, after checking
  // that it has not been seen before and fits.
  bool OpenDirectory(std::uint32_t offset, std::uint64_t referrer, std::uint64_t* count);
  bool ReadEntryKey(std::uint64_t entry, ResourceKey* key);
  bool SubdirectoryOf(std::uint64_t entry, const char* what, std::uint32_t* offset);
  bool ReadData(std::uint64_t entry, ResourceEntry* resource);
  bool Fail(std::uint64_t offset, std::string message) {
    return resmodule::Fail(m_failure, offset, std::move(message));
  }

  const Bytes& m_bytes;
  ParseFailure* m_failure;
  std::vector<Section> m_sections;
  std::uint64_t m_treeStart = 0; // file offset of the resource tree
  std::uint64_t m_treeLength = 0;
  std::unordered_set<std::uint32_t> m_seenDirectories;
  std::unordered_set<std::uint32_t> m_seenData;
};

bool PeImage::Read(std::vector<ResourceEntry>* entries) {
  if (!m_bytes.Has(0, kDosHeaderSize))
    return Fail(0, "the DOS header is cut short: " + Decimal(m_bytes.Size()) + " bytes");
  const std::uint32_t pe = m_bytes.U32(kPeOffsetField);
  if (!m_bytes.Has(pe, 4 + kCoffHeaderSize))
    return Fail(kPeOffsetField, "the PE header offset " + Hex(pe) + " lies outside the file");
  if (m_bytes.U32(pe) != kPeSignature)
    return Fail(pe, "no PE signature where the DOS header points");
  const std::uint16_t sectionCount = m_bytes.U16(pe + 4 + 2);
  const std::uint16_t optionalSize = m_bytes.U16(pe + 4 + 16);
  const std::uint64_t optional = pe + 4 + kCoffHeaderSize;
  if (!m_bytes.Has(optional, optionalSize))
    return Fail(optional, "the optional header of " + Decimal(optionalSize) +
                              " bytes runs past the end of the file");
  if (optionalSize < 2)
    return Fail(optional, "the optional header is missing");
  std::uint64_t countField;
  std::uint64_t directories;
  const std::uint16_t magic = m_bytes.U16(optional);
  if (magic == kMagicPe32) {
    countField = 92;
    directories = 96;
  } else if (magic == kMagicPe32Plus) {
    countField = 108;
    directories = 112;
  } else {
    return Fail(optional, "unknown optional header magic " + Hex(magic));
  }
  if (optionalSize < directories)
    return Fail(optional, "the optional header of " + Decimal(optionalSize) +
                              " bytes is too short for its data directories");
  const std::uint32_t directoryCount = m_bytes.U32(optional + countField);
  if (directoryCount > (optionalSize - directories) / 8)
    return Fail(optional + countField,
                Decimal(directoryCount) + " data directories do not fit in the optional header");
  if (!ReadSections(optional + optionalSize, sectionCount))
    return false;
  if (directoryCount <= kResourceDirectoryIndex)
    return true; // no resource directory: a module without resources
  const std::uint64_t resourceField = optional + directories + 8 * kResourceDirectoryIndex;
  const std::uint32_t treeRva = m_bytes.U32(resourceField);
  if (treeRva == 0)
    return true;
  // The tree's own structures (directories, names, data entries) must lie in
  // the section that holds its start; the data they describe may be anywhere.
  bool found = false;
  for (const Section& s : m_sections) {
    if (treeRva >= s.virtualAddress && treeRva - s.virtualAddress < s.length) {
      m_treeStart = s.fileOffset + (treeRva - s.virtualAddress);
      m_treeLength = s.length - (treeRva - s.virtualAddress);
      found = true;
      break;
    }
  }
  if (!found)
    return Fail(resourceField,
                "the resource directory at RVA " + Hex(treeRva) + " lies outside every section");

  std::uint64_t typeCount = 0;
  if (!OpenDirectory(0, resourceField, &typeCount))
    return false;
  for (std::uint64_t t = 0; t < typeCount; ++t) {
    const std::uint64_t typeEntry = m_treeStart + kDirectoryHeaderSize + t * kDirectoryEntrySize;
    ResourceKey type;
    std::uint32_t names = 0;
    std::uint64_t nameCount = 0;
    if (!ReadEntryKey(typeEntry, &type) || !SubdirectoryOf(typeEntry, "type", &names) ||
        !OpenDirectory(names, typeEntry + 4, &nameCount))
      return false;
    for (std::uint64_t n = 0; n < nameCount; ++n) {
      const std::uint64_t nameEntry =
          m_treeStart + names + kDirectoryHeaderSize + n * kDirectoryEntrySize;
      ResourceKey name;
      std::uint32_t languages = 0;
      std::uint64_t languageCount = 0;
      if (!ReadEntryKey(nameEntry, &name) || !SubdirectoryOf(nameEntry, "name", &languages) ||
          !OpenDirectory(languages, nameEntry + 4, &languageCount))
        return false;
      for (std::uint64_t l = 0; l < languageCount; ++l) {
        const std::uint64_t languageEntry =
            m_treeStart + languages + kDirectoryHeaderSize + l * kDirectoryEntrySize;
        ResourceKey language;
        if (!ReadEntryKey(languageEntry, &language))
          return false;
        if (language.isName)
          return Fail(languageEntry, "a language entry carries a name instead of a number");
        ResourceEntry resource;
        resource.type = type;
        resource.name = name;
        resource.language = language.number;
        if (!ReadData(languageEntry, &resource))
          return false;
        entries->push_back(std::move(resource));
      }
    }
  }
  return true;
}

bool PeImage::ReadSections(std::uint64_t table, std::uint32_t count) {
  if (!m_bytes.Has(table, count * kSectionHeaderSize))
    return Fail(table,
                "the table of " + Decimal(count) + " sections runs past the end of the file");
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint64_t header = table + i * kSectionHeaderSize;
    const std::uint32_t virtualSize = m_bytes.U32(header + 8);
    Section s;
    s.virtualAddress = m_bytes.U32(header + 12);
    const std::uint32_t rawSize = m_bytes.U32(header + 16);
    s.fileOffset = m_bytes.U32(header + 20);
    // Past its virtual size a section is not loaded; past its raw size the
    // loader fills zeros that the file does not hold.
    s.length = virtualSize == 0 || virtualSize > rawSize ? rawSize : virtualSize;
    if (!m_bytes.Has(s.fileOffset, s.length))
      return Fail(header, "section " + Decimal(i + 1) + " (" + Decimal(s.length) + " bytes at " +
                              Hex(s.fileOffset) + ") runs past the end of the file");
    m_sections.push_back(s);
  }
  return true;
}

bool PeImage::MapRva(std::uint32_t rva, std::uint64_t length, std::uint64_t* offset) const {
  for (const Section& s : m_sections) {
    if (rva < s.virtualAddress)
      continue;
    const std::uint64_t into = rva - s.virtualAddress;
    if (into <= s.length && length <= s.length - into) {
      *offset = s.fileOffset + into;
      return true;
    }
  }
  return false;
}

bool PeImage::OpenDirectory(std::uint32_t offset, std::uint64_t referrer, std::uint64_t* count) {
  if (offset > m_treeLength || kDirectoryHeaderSize > m_treeLength - offset)
    return Fail(referrer, "a resource directory lies outside the resource section");
  // A directory reached twice would make the tree a graph: a few bytes could
  // then stand for an endless number of resources.
  if (!m_seenDirectories.insert(offset).second)
    return Fail(referrer, "a resource directory is referred to twice");
  const std::uint64_t at = m_treeStart + offset;
  *count = std::uint64_t(m_bytes.U16(at + 12)) + m_bytes.U16(at + 14);
  if (*count * kDirectoryEntrySize > m_treeLength - offset - kDirectoryHeaderSize)
    return Fail(at, "the " + Decimal(*count) +
                        " entries of a resource directory run past the resource section");
  return true;
}

bool PeImage::ReadEntryKey(std::uint64_t entry, ResourceKey* key) {
  const std::uint32_t field = m_bytes.U32(entry);
  if ((field & kHighBit) == 0) {
    if (field > 0xFFFF)
      return Fail(entry, "the resource number " + Decimal(field) + " is above 65535");
    *key = ResourceKey::Number(static_cast<std::uint16_t>(field));
    return true;
  }
  // A name: a count of UTF-16 units and the units.
  const std::uint64_t offset = field & ~kHighBit;
  if (offset > m_treeLength || 2 > m_treeLength - offset)
    return Fail(entry, "a resource name lies outside the resource section");
  const std::uint64_t at = m_treeStart + offset;
  const std::uint16_t length = m_bytes.U16(at);
  if (2 + 2 * std::uint64_t(length) > m_treeLength - offset)
    return Fail(at, "a resource name of " + Decimal(length) +
                        " characters runs past the resource section");
  std::u16string name;
  name.reserve(length);
  for (std::uint16_t i = 0; i < length; ++i)
    name.push_back(static_cast<char16_t>(m_bytes.U16(at + 2 + 2 * std::uint64_t(i))));
  *key = ResourceKey::Name(std::move(name));
  return true;
}

bool PeImage::SubdirectoryOf(std::uint64_t entry, const char* what, std::uint32_t* offset) {
  const std::uint32_t field = m_bytes.U32(entry + 4);
  if ((field & kHighBit) == 0)
    return Fail(entry, std::string("a ") + what + " entry points at data instead of a directory");
  *offset = field & ~kHighBit;
  return true;
}

bool PeImage::ReadData(std::uint64_t entry, ResourceEntry* resource) {
  const std::uint32_t field = m_bytes.U32(entry + 4);
  if (field & kHighBit)
    return Fail(entry, "a language entry points at a directory instead of data");
  if (field > m_treeLength || kDataEntrySize > m_treeLength - field)
    return Fail(entry, "a data entry lies outside the resource section");
  if (!m_seenData.insert(field).second)
    return Fail(entry, "a data entry is referred to twice");
  const std::uint64_t at = m_treeStart + field;
  const std::uint32_t rva = m_bytes.U32(at);
  const std::uint32_t size = m_bytes.U32(at + 4);
  std::uint64_t offset = 0;
  if (!MapRva(rva, size, &offset))
    return Fail(at, "the " + Decimal(size) + " bytes of data at RVA " + Hex(rva) +
                        " are not all held by one section of the file");
  resource->dataOffset = offset;
  resource->size = size;
  resource->describedAt = at;
  return true;
}

} // namespace

// ---------------------------------------------------------------------------
// ResourceKey

ResourceKey ResourceKey::Number(std::uint16_t number) {
  ResourceKey key;
  key.number = number;
  return key;
}

ResourceKey ResourceKey::Name(std::u16string name) {
  ResourceKey key;
  key.isName = true;
  key.name = std::move(name);
  return key;
}

bool ResourceKey::Matches(const ResourceKey& other) const {
  if (isName != other.isName)
    return false;
  if (!isName)
    return number == other.number;
  if (name.size() != other.name.size())
    return false;
  for (std::size_t i = 0; i < name.size(); ++i)
    if (FoldAscii(name[i]) != FoldAscii(other.name[i]))
      return false;
  return true;
}

std::string KeyText(const ResourceKey& key) {
  if (!key.isName)
    return Decimal(key.number);
  std::string text = "\"";
  for (char16_t unit : key.name) {
    if (unit >= 0x20 && unit < 0x7F && unit != u'"' && unit != u'\\') {
      text.push_back(static_cast<char>(unit));
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(unit));
      text += escape;
    }
  }
  text.push_back('"');
  return text;
}

// ---------------------------------------------------------------------------
// ResourceImage

bool ResourceImage::Parse(const std::uint8_t* data, std::size_t size, ParseFailure* failure) {
  m_data = data;
  m_size = size;
  m_format = ImageFormat::kNone;
  m_entries.clear();
  if (size > kMaxImageSize)
    return Fail(failure, 0,
                "the file of " + Decimal(size) + " bytes is larger than a resource module may be");
  bool parsed = false;
  if (size >= 2 && data[0] == 'M' && data[1] == 'Z') {
    m_format = ImageFormat::kPortableExecutable;
    parsed = ParsePortableExecutable(failure);
  } else if (size >= sizeof kEmptyRecord &&
             std::equal(kEmptyRecord, kEmptyRecord + sizeof kEmptyRecord, data)) {
    m_format = ImageFormat::kResourceFile;
    parsed = ParseResourceFile(failure);
  } else {
    Fail(failure, 0, "neither a compiled resource file nor a PE image");
  }
  if (!parsed) {
    m_format = ImageFormat::kNone;
    m_entries.clear();
  }
  return parsed;
}

bool ResourceImage::ParseResourceFile(ParseFailure* failure) {
  const Bytes bytes(m_data, m_size);
  std::uint64_t at = 0;
  while (at < m_size) {
    if (!bytes.Has(at, 8))
      return Fail(failure, at,
                  "a record header is cut short: " + Decimal(m_size - at) + " bytes left");
    const std::uint32_t dataSize = bytes.U32(at);
    const std::uint32_t headerSize = bytes.U32(at + 4);
    // Every record moves on by at least this much: the loop ends.
    if (headerSize < kRecordHeaderMinimum)
      return Fail(failure, at,
                  "header size " + Decimal(headerSize) + " is below the 32 bytes of a header");
    if (!bytes.Has(at, headerSize))
      return Fail(failure, at,
                  "the header of " + Decimal(headerSize) + " bytes runs past the end of the file");
    const std::uint64_t headerEnd = at + headerSize;
    ResourceEntry entry;
    std::uint64_t p = at + 8;
    if (!ReadRecordKey(bytes, &p, headerEnd, "type", at, &entry.type, failure) ||
        !ReadRecordKey(bytes, &p, headerEnd, "name", at, &entry.name, failure))
      return false;
    p = AlignToWord(p);
    // Data version (4 bytes), memory flags (2), language (2), version (4),
    // characteristics (4).
    if (p + 16 > headerEnd)
      return Fail(failure, at,
                  "header size " + Decimal(headerSize) + " leaves no room for the fixed fields");
    entry.language = bytes.U16(p + 6);
    if (!bytes.Has(headerEnd, dataSize))
      return Fail(failure, at,
                  "the data of " + Decimal(dataSize) + " bytes runs past the end of the file");
    entry.dataOffset = headerEnd;
    entry.size = dataSize;
    entry.describedAt = at;
    // Empty records of type 0 (the opening one) describe nothing.
    if (entry.type.isName || entry.type.number != 0 || dataSize != 0)
      m_entries.push_back(std::move(entry));
    // The padding after the last record's data may be left out.
    const std::uint64_t next = AlignToWord(headerEnd + dataSize);
    at = next < m_size ? next : m_size;
  }
  return true;
}

bool ResourceImage::ParsePortableExecutable(ParseFailure* failure) {
  const Bytes bytes(m_data, m_size);
  PeImage image(bytes, failure);
  return image.Read(&m_entries);
}

const ResourceEntry* ResourceImage::Find(const ResourceKey& type, const ResourceKey& name) const {
  const ResourceEntry* best = nullptr;
  for (const ResourceEntry& entry : m_entries) {
    if (!entry.type.Matches(type) || !entry.name.Matches(name))
      continue;
    if (!best) {
      best = &entry;
      continue;
    }
    const int rank = LanguageRank(entry.language);
    const int bestRank = LanguageRank(best->language);
    if (rank < bestRank || (rank == bestRank && entry.language < best->language))
      best = &entry;
  }
  return best;
}

bool ResourceImage::FindString(std::uint32_t id, std::u16string* text) const {
  const std::uint16_t number = static_cast<std::uint16_t>(id);
  const ResourceEntry* bundle =
      Find(ResourceKey::Number(kTypeString),
           ResourceKey::Number(static_cast<std::uint16_t>(number / kStringsPerBundle + 1)));
  if (!bundle)
    return false;
  const Bytes bytes(Data(*bundle), bundle->size);
  std::uint64_t at = 0;
  for (std::uint32_t index = 0;; ++index) {
    if (!bytes.Has(at, 2))
      return false;
    const std::uint64_t length = bytes.U16(at);
    at += 2;
    if (!bytes.Has(at, 2 * length))
      return false;
    if (index == number % kStringsPerBundle) {
      if (length == 0)
        return false;
      text->resize(static_cast<std::size_t>(length));
      for (std::uint64_t i = 0; i < length; ++i)
        (*text)[static_cast<std::size_t>(i)] = static_cast<char16_t>(bytes.U16(at + 2 * i));
      return true;
    }
    at += 2 * length;
  }
}

} // namespace resmodule
} // namespace qvcomponent

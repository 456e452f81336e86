// The reader of resource modules: compiled resource files and PE images as
// the resource compilers and linkers make them, the lookups answered from
// them, and truncated or hostile bytes, which are refused with the offset of
// the fault and never read out of bounds.
#include "resmodule/ResourceImage.h"
#include "support/TestSupport.h"

#include "ResourceTestIds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using qvcomponent::resmodule::ImageFormat;
using qvcomponent::resmodule::KeyText;
using qvcomponent::resmodule::ParseFailure;
using qvcomponent::resmodule::ResourceEntry;
using qvcomponent::resmodule::ResourceImage;
using qvcomponent::resmodule::ResourceKey;

constexpr std::uint16_t kTypeString = 6;
constexpr std::uint16_t kTypeRawData = 10;
constexpr std::uint16_t kEnglishUs = 0x0409;

typedef std::vector<std::uint8_t> Bytes;

Bytes FileBytes(const std::string& path) {
  const std::string text = qvbase::test::ReadFile(path);
  return Bytes(text.begin(), text.end());
}

std::string BuiltModule(const std::string& file) { return qvbase::test::BinaryDir() + "/" + file; }

std::string Text(const Bytes& bytes, const ResourceImage& image, const ResourceEntry& entry) {
  (void)bytes;
  return std::string(reinterpret_cast<const char*>(image.Data(entry)), entry.size);
}

std::string Narrow(const std::u16string& units) {
  std::string text;
  for (char16_t unit : units)
    text.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
  return text;
}

void Put16(Bytes* bytes, std::size_t at, std::uint16_t value) {
  (*bytes)[at] = static_cast<std::uint8_t>(value);
  (*bytes)[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

void Put32(Bytes* bytes, std::size_t at, std::uint32_t value) {
  Put16(bytes, at, static_cast<std::uint16_t>(value));
  Put16(bytes, at + 2, static_cast<std::uint16_t>(value >> 16));
}

void Append16(Bytes* bytes, std::uint16_t value) {
  bytes->push_back(static_cast<std::uint8_t>(value));
  bytes->push_back(static_cast<std::uint8_t>(value >> 8));
}

void Append32(Bytes* bytes, std::uint32_t value) {
  Append16(bytes, static_cast<std::uint16_t>(value));
  Append16(bytes, static_cast<std::uint16_t>(value >> 16));
}

void PadToWord(Bytes* bytes) {
  while (bytes->size() % 4)
    bytes->push_back(0);
}

// One resource to build into a file.
struct Resource {
  ResourceKey type;
  ResourceKey name;
  std::uint16_t language;
  std::string data;
};

// A compiled resource file: the opening empty record, then one record each.
Bytes ResourceFile(const std::vector<Resource>& resources) {
  Bytes bytes = {0, 0, 0, 0, 0x20, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0};
  bytes.resize(32, 0);
  for (const Resource& r : resources) {
    const std::size_t start = bytes.size();
    Append32(&bytes, static_cast<std::uint32_t>(r.data.size()));
    Append32(&bytes, 0); // header size, below
    for (const ResourceKey* key : {&r.type, &r.name}) {
      if (key->isName) {
        for (char16_t unit : key->name)
          Append16(&bytes, unit);
        Append16(&bytes, 0);
      } else {
        Append16(&bytes, 0xFFFF);
        Append16(&bytes, key->number);
      }
    }
    PadToWord(&bytes);
    Append32(&bytes, 0);      // data version
    Append16(&bytes, 0x1030); // memory flags
    Append16(&bytes, r.language);
    Append32(&bytes, 0); // version
    Append32(&bytes, 0); // characteristics
    Put32(&bytes, start + 4, static_cast<std::uint32_t>(bytes.size() - start));
    bytes.insert(bytes.end(), r.data.begin(), r.data.end());
    PadToWord(&bytes);
  }
  return bytes;
}

// Where a built PE image keeps the parts that the hostile cases change.
struct PeLayout {
  std::size_t peHeader = 0x40;
  std::size_t optionalHeader = 0x58;
  std::size_t sectionTable = 0;
  std::size_t section = 0x200; // file offset of the one section
  std::uint32_t sectionRva = 0x1000;
  std::size_t firstTypeEntry = 0;     // file offset of the root's first entry
  std::size_t firstDataEntry = 0;     // file offset of the first data entry
  std::size_t firstLanguageEntry = 0; // of the first language directory's entry
};

// A resource-only PE image (PE32+ or PE32) with one section holding the
// resource tree, laid out as linkers do: directories, data entries, names,
// then the data.
Bytes PeImage(const std::vector<Resource>& resources, bool pe32Plus, PeLayout* layout = nullptr) {
  PeLayout l;
  // Group: type -> name -> language.
  std::vector<const Resource*> order;
  for (const Resource& r : resources)
    order.push_back(&r);
  // Tree: root, one directory per type, per (type, name); each directory
  // lists its children in the order met.
  struct Dir {
    std::vector<std::pair<ResourceKey, int>> children; // key, index of child dir or data
  };
  std::vector<Dir> typeDirs, nameDirs;
  Dir root;
  std::vector<std::pair<int, const Resource*>> dataEntries; // language dir index, resource
  std::map<std::string, int> typeIndex, nameIndex;
  for (const Resource* r : order) {
    const std::string tkey = KeyText(r->type);
    if (!typeIndex.count(tkey)) {
      typeIndex[tkey] = static_cast<int>(typeDirs.size());
      root.children.push_back({r->type, static_cast<int>(typeDirs.size())});
      typeDirs.push_back({});
    }
    const int t = typeIndex[tkey];
    const std::string nkey = tkey + "/" + KeyText(r->name);
    if (!nameIndex.count(nkey)) {
      nameIndex[nkey] = static_cast<int>(nameDirs.size());
      typeDirs[t].children.push_back({r->name, static_cast<int>(nameDirs.size())});
      nameDirs.push_back({});
    }
    const int n = nameIndex[nkey];
    nameDirs[n].children.push_back(
        {ResourceKey::Number(r->language), static_cast<int>(dataEntries.size())});
    dataEntries.push_back({n, r});
  }
  // Offsets within the section.
  auto dirSize = [](const Dir& d) { return 16 + 8 * d.children.size(); };
  std::size_t at = dirSize(root);
  std::vector<std::size_t> typeAt, nameAt;
  for (const Dir& d : typeDirs) {
    typeAt.push_back(at);
    at += dirSize(d);
  }
  for (const Dir& d : nameDirs) {
    nameAt.push_back(at);
    at += dirSize(d);
  }
  const std::size_t dataEntriesAt = at;
  at += 16 * dataEntries.size();
  // Names.
  std::map<std::string, std::size_t> nameStringAt;
  Bytes names;
  auto addName = [&](const ResourceKey& key) {
    if (!key.isName || nameStringAt.count(KeyText(key)))
      return;
    nameStringAt[KeyText(key)] = at + names.size();
    Append16(&names, static_cast<std::uint16_t>(key.name.size()));
    for (char16_t unit : key.name)
      Append16(&names, unit);
  };
  for (const Resource* r : order) {
    addName(r->type);
    addName(r->name);
  }
  at += names.size();
  while (at % 4)
    ++at;
  std::vector<std::size_t> dataAt;
  for (const auto& e : dataEntries) {
    dataAt.push_back(at);
    at += e.second->data.size();
    while (at % 4)
      ++at;
  }
  Bytes section(at, 0);
  auto putDir = [&](std::size_t offset, const Dir& d, bool leaves,
                    const std::vector<std::size_t>& childAt) {
    std::uint16_t named = 0, numbered = 0;
    for (const auto& c : d.children)
      (c.first.isName ? named : numbered)++;
    Put16(&section, offset + 12, named);
    Put16(&section, offset + 14, numbered);
    for (std::size_t i = 0; i < d.children.size(); ++i) {
      const ResourceKey& key = d.children[i].first;
      const std::size_t entry = offset + 16 + 8 * i;
      Put32(&section, entry,
            key.isName ? 0x80000000u | static_cast<std::uint32_t>(nameStringAt[KeyText(key)])
                       : key.number);
      const std::size_t child = childAt[static_cast<std::size_t>(d.children[i].second)];
      Put32(&section, entry + 4, static_cast<std::uint32_t>(child) | (leaves ? 0 : 0x80000000u));
    }
  };
  putDir(0, root, false, typeAt);
  for (std::size_t i = 0; i < typeDirs.size(); ++i)
    putDir(typeAt[i], typeDirs[i], false, nameAt);
  std::vector<std::size_t> entryAt;
  for (std::size_t i = 0; i < dataEntries.size(); ++i)
    entryAt.push_back(dataEntriesAt + 16 * i);
  for (std::size_t i = 0; i < nameDirs.size(); ++i)
    putDir(nameAt[i], nameDirs[i], true, entryAt);
  for (std::size_t i = 0; i < dataEntries.size(); ++i) {
    const Resource* r = dataEntries[i].second;
    Put32(&section, entryAt[i], l.sectionRva + static_cast<std::uint32_t>(dataAt[i]));
    Put32(&section, entryAt[i] + 4, static_cast<std::uint32_t>(r->data.size()));
    std::memcpy(section.data() + dataAt[i], r->data.data(), r->data.size());
  }
  std::copy(names.begin(), names.end(),
            section.begin() + static_cast<std::ptrdiff_t>(dataEntriesAt + 16 * dataEntries.size()));

  // Headers.
  const std::uint16_t optionalSize = pe32Plus ? 240 : 224;
  Bytes image(l.section, 0);
  image[0] = 'M';
  image[1] = 'Z';
  Put32(&image, 0x3C, static_cast<std::uint32_t>(l.peHeader));
  std::memcpy(image.data() + l.peHeader, "PE\0\0", 4);
  const std::size_t coff = l.peHeader + 4;
  Put16(&image, coff, pe32Plus ? 0x8664 : 0x14C);
  Put16(&image, coff + 2, 1); // sections
  Put16(&image, coff + 16, optionalSize);
  Put16(&image, coff + 18, 0x2102);
  l.optionalHeader = coff + 20;
  Put16(&image, l.optionalHeader, pe32Plus ? 0x20B : 0x10B);
  const std::size_t countField = l.optionalHeader + (pe32Plus ? 108 : 92);
  const std::size_t directories = l.optionalHeader + (pe32Plus ? 112 : 96);
  Put32(&image, countField, 16);
  Put32(&image, directories + 16, l.sectionRva);
  Put32(&image, directories + 20, static_cast<std::uint32_t>(section.size()));
  l.sectionTable = l.optionalHeader + optionalSize;
  std::memcpy(image.data() + l.sectionTable, ".rsrc\0\0\0", 8);
  Put32(&image, l.sectionTable + 8, static_cast<std::uint32_t>(section.size()));
  Put32(&image, l.sectionTable + 12, l.sectionRva);
  Put32(&image, l.sectionTable + 16, static_cast<std::uint32_t>(section.size()));
  Put32(&image, l.sectionTable + 20, static_cast<std::uint32_t>(l.section));
  Put32(&image, l.sectionTable + 36, 0x40000040);
  image.insert(image.end(), section.begin(), section.end());
  l.firstTypeEntry = l.section + 16;
  l.firstDataEntry = l.section + dataEntriesAt;
  l.firstLanguageEntry = l.section + (nameAt.empty() ? 0 : nameAt[0]) + 16;
  if (layout)
    *layout = l;
  return image;
}

std::vector<Resource> SmallSet() {
  return {
      {ResourceKey::Number(kTypeRawData), ResourceKey::Name(u"FIRST"), kEnglishUs, "first data"},
      {ResourceKey::Name(u"QVDATA"), ResourceKey::Number(7), kEnglishUs, "seven"},
      {ResourceKey::Number(kTypeRawData), ResourceKey::Number(3), 0, "three"},
  };
}

ParseFailure MustFail(const Bytes& bytes) {
  ResourceImage image;
  ParseFailure failure;
  EXPECT_FALSE(image.Parse(bytes.data(), bytes.size(), &failure));
  EXPECT_FALSE(failure.message.empty());
  EXPECT_TRUE(image.Entries().empty());
  EXPECT_EQ(image.Format(), ImageFormat::kNone);
  return failure;
}

// ---------------------------------------------------------------------------
// Built modules: the same .rc read from every form

class BuiltModules : public ::testing::TestWithParam<const char*> {};

TEST_P(BuiltModules, HoldEveryResourceOfTheSource) {
  const std::string path = BuiltModule(GetParam());
  if (!qvbase::test::FileExists(path))
    GTEST_SKIP() << path << " is not built on this machine";
  const Bytes bytes = FileBytes(path);
  ResourceImage image;
  ParseFailure failure;
  ASSERT_TRUE(image.Parse(bytes.data(), bytes.size(), &failure))
      << failure.offset << ": " << failure.message;

  const ResourceEntry* worked =
      image.Find(ResourceKey::Number(kTypeRawData), ResourceKey::Name(u"WORKEDEXAMPLE"));
  ASSERT_NE(worked, nullptr);
  EXPECT_EQ(Text(bytes, image, *worked), std::string("A\0\x05\0BC\0\x34\x12\0", 10));
  EXPECT_EQ(worked->language, kEnglishUs);

  const ResourceEntry* numbered =
      image.Find(ResourceKey::Number(kTypeRawData), ResourceKey::Number(RAW_NUMBERED));
  ASSERT_NE(numbered, nullptr);
  EXPECT_EQ(Text(bytes, image, *numbered), std::string("raw\0data\xFE\xFF", 10));

  const ResourceEntry* payload =
      image.Find(ResourceKey::Name(u"QVDATA"), ResourceKey::Name(u"PAYLOAD"));
  ASSERT_NE(payload, nullptr);
  EXPECT_EQ(Text(bytes, image, *payload), "payload of a named type");
  const ResourceEntry* namedTypeNumbered =
      image.Find(ResourceKey::Name(u"QVDATA"), ResourceKey::Number(CUSTOM_NUMBERED));
  ASSERT_NE(namedTypeNumbered, nullptr);
  EXPECT_EQ(Text(bytes, image, *namedTypeNumbered), "numbered payload");
  const ResourceEntry* numberedType =
      image.Find(ResourceKey::Number(CUSTOM_TYPE_NUMBER), ResourceKey::Number(CUSTOM_NUMBERED));
  ASSERT_NE(numberedType, nullptr);
  EXPECT_EQ(Text(bytes, image, *numberedType), "payload of a numbered type");

  std::u16string text;
  ASSERT_TRUE(image.FindString(IDS_FIRST, &text));
  EXPECT_EQ(Narrow(text), "The first string");
  ASSERT_TRUE(image.FindString(IDS_LAST, &text));
  EXPECT_EQ(Narrow(text), "The last string there can be");
  ASSERT_TRUE(image.FindString(IDS_SHIFTED_BASE + 7, &text));
  EXPECT_EQ(Narrow(text), "Shifted string 7");
  ASSERT_TRUE(image.FindString(IDS_ACCENTED, &text));
  EXPECT_EQ(text, u"caf\u00E9");
}

#if defined(_WIN32)
INSTANTIATE_TEST_SUITE_P(ResourceImage, BuiltModules, ::testing::Values("ResourceTest.dll"));
#else
INSTANTIATE_TEST_SUITE_P(ResourceImage, BuiltModules,
                         ::testing::Values("ResourceTest.res", "ResourceTestImage.dll",
                                           "ResourceTestImage32.dll"));
#endif

TEST(ResourceImage, TellsTheTwoFileFormsApart) {
  const Bytes res = ResourceFile(SmallSet());
  const Bytes pe = PeImage(SmallSet(), true);
  ResourceImage image;
  ParseFailure failure;
  ASSERT_TRUE(image.Parse(res.data(), res.size(), &failure)) << failure.message;
  EXPECT_EQ(image.Format(), ImageFormat::kResourceFile);
  EXPECT_EQ(image.Entries().size(), 3u);
  ASSERT_TRUE(image.Parse(pe.data(), pe.size(), &failure)) << failure.message;
  EXPECT_EQ(image.Format(), ImageFormat::kPortableExecutable);
  EXPECT_EQ(image.Entries().size(), 3u);
}

TEST(ResourceImage, ReadsBothPeHeaderWidths) {
  for (bool pe32Plus : {true, false}) {
    SCOPED_TRACE(pe32Plus ? "PE32+" : "PE32");
    const Bytes pe = PeImage(SmallSet(), pe32Plus);
    ResourceImage image;
    ParseFailure failure;
    ASSERT_TRUE(image.Parse(pe.data(), pe.size(), &failure)) << failure.message;
    const ResourceEntry* seven = image.Find(ResourceKey::Name(u"QVDATA"), ResourceKey::Number(7));
    ASSERT_NE(seven, nullptr);
    EXPECT_EQ(Text(pe, image, *seven), "seven");
  }
}

TEST(ResourceImage, ListsEntriesWithTypeNameLanguageAndSize) {
  const Bytes res = ResourceFile(SmallSet());
  ResourceImage image;
  ASSERT_TRUE(image.Parse(res.data(), res.size(), nullptr));
  ASSERT_EQ(image.Entries().size(), 3u);
  const ResourceEntry& first = image.Entries()[0];
  EXPECT_EQ(KeyText(first.type), "10");
  EXPECT_EQ(KeyText(first.name), "\"FIRST\"");
  EXPECT_EQ(first.language, kEnglishUs);
  EXPECT_EQ(first.size, 10u);
  EXPECT_EQ(first.describedAt, 32u);
  EXPECT_EQ(KeyText(image.Entries()[1].type), "\"QVDATA\"");
  EXPECT_EQ(image.Entries()[2].language, 0);
}

TEST(ResourceImage, KeyTextEscapesWhatIsNotPrintableAscii) {
  EXPECT_EQ(KeyText(ResourceKey::Number(65535)), "65535");
  EXPECT_EQ(KeyText(ResourceKey::Name(u"A\"B\\C\u00E9\n")), "\"A\\u0022B\\u005CC\\u00E9\\u000A\"");
}

TEST(ResourceImage, FindsNamesIgnoringTheCaseOfAsciiLetters) {
  const Bytes res = ResourceFile(SmallSet());
  ResourceImage image;
  ASSERT_TRUE(image.Parse(res.data(), res.size(), nullptr));
  EXPECT_NE(image.Find(ResourceKey::Number(kTypeRawData), ResourceKey::Name(u"first")), nullptr);
  EXPECT_NE(image.Find(ResourceKey::Name(u"qvData"), ResourceKey::Number(7)), nullptr);
  // A name never designates a number, nor a number a name.
  EXPECT_EQ(image.Find(ResourceKey::Number(kTypeRawData), ResourceKey::Name(u"3")), nullptr);
  EXPECT_EQ(image.Find(ResourceKey::Number(kTypeRawData), ResourceKey::Name(u"FIRSTX")), nullptr);
  EXPECT_EQ(image.Find(ResourceKey::Number(11), ResourceKey::Number(3)), nullptr);
}

TEST(ResourceImage, PrefersNeutralThenUsEnglishThenEnglishThenTheLowestLanguage) {
  struct Row {
    std::vector<std::uint16_t> languages;
    std::uint16_t chosen;
  };
  const Row rows[] = {
      {{0x0407, 0x0000, 0x0409}, 0x0000},
      {{0x0407, 0x0409, 0x0809}, 0x0409},
      {{0x0407, 0x0809, 0x040C}, 0x0809},
      {{0x040C, 0x0407, 0x0410}, 0x0407},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.chosen);
    std::vector<Resource> resources;
    for (std::uint16_t language : row.languages)
      resources.push_back({ResourceKey::Number(kTypeRawData), ResourceKey::Number(1), language,
                           std::to_string(language)});
    for (const Bytes& bytes : {ResourceFile(resources), PeImage(resources, true)}) {
      ResourceImage image;
      ASSERT_TRUE(image.Parse(bytes.data(), bytes.size(), nullptr));
      const ResourceEntry* found =
          image.Find(ResourceKey::Number(kTypeRawData), ResourceKey::Number(1));
      ASSERT_NE(found, nullptr);
      EXPECT_EQ(found->language, row.chosen);
    }
  }
}

// ---------------------------------------------------------------------------
// String tables

std::string Bundle(const std::vector<std::u16string>& strings) {
  Bytes bytes;
  for (const std::u16string& s : strings) {
    Append16(&bytes, static_cast<std::uint16_t>(s.size()));
    for (char16_t unit : s)
      Append16(&bytes, unit);
  }
  return std::string(bytes.begin(), bytes.end());
}

TEST(ResourceImage, StringIdSelectsBundleIdOver16PlusOneAndPlaceIdModulo16) {
  std::vector<std::u16string> second(16);
  second[0] = u"sixteen";
  second[1] = u"seventeen";
  second[15] = u"thirty-one";
  std::vector<std::u16string> last(16);
  last[15] = u"65535";
  const Bytes res = ResourceFile({
      {ResourceKey::Number(kTypeString), ResourceKey::Number(2), kEnglishUs, Bundle(second)},
      {ResourceKey::Number(kTypeString), ResourceKey::Number(4096), kEnglishUs, Bundle(last)},
  });
  ResourceImage image;
  ASSERT_TRUE(image.Parse(res.data(), res.size(), nullptr));
  struct Row {
    std::uint32_t id;
    const char16_t* text; // null: missing
  };
  const Row rows[] = {
      {16, u"sixteen"}, {17, u"seventeen"}, {31, u"thirty-one"}, {18, nullptr},
      {15, nullptr},    {32, nullptr},      {65535, u"65535"},   {65536 + 17, u"seventeen"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.id);
    std::u16string text = u"unchanged";
    EXPECT_EQ(image.FindString(row.id, &text), row.text != nullptr);
    if (row.text) {
      EXPECT_EQ(text, row.text);
    }
  }
}

TEST(ResourceImage, StringsBeyondACutBundleAreMissing) {
  // Four strings, the last cut in the middle of its units; then nothing.
  std::string bytes = Bundle({u"a", u"", u"ccc", u"dddd"});
  bytes.resize(bytes.size() - 3);
  const Bytes res =
      ResourceFile({{ResourceKey::Number(kTypeString), ResourceKey::Number(1), kEnglishUs, bytes}});
  ResourceImage image;
  ASSERT_TRUE(image.Parse(res.data(), res.size(), nullptr));
  std::u16string text;
  EXPECT_TRUE(image.FindString(0, &text));
  EXPECT_EQ(text, u"a");
  EXPECT_FALSE(image.FindString(1, &text)); // empty is missing
  EXPECT_TRUE(image.FindString(2, &text));
  EXPECT_EQ(text, u"ccc");
  EXPECT_FALSE(image.FindString(3, &text));
  EXPECT_FALSE(image.FindString(4, &text));
  EXPECT_FALSE(image.FindString(15, &text));
}

// ---------------------------------------------------------------------------
// Untrusted bytes

TEST(ResourceImage, RefusesBytesThatAreNeitherForm) {
  for (const char* text : {"", "M", "hello, world", "ZM\x90\0"}) {
    SCOPED_TRACE(text);
    const Bytes bytes(text, text + std::strlen(text));
    EXPECT_EQ(MustFail(bytes).offset, 0u);
  }
  // 32 bytes that are almost the opening record.
  Bytes almost = ResourceFile({});
  almost[4] = 0x21;
  EXPECT_EQ(MustFail(almost).message, "neither a compiled resource file nor a PE image");
}

TEST(ResourceImage, RefusesEveryCutOfAResourceFileThatEndsInsideARecord) {
  const Bytes whole = ResourceFile(SmallSet());
  ResourceImage image;
  ASSERT_TRUE(image.Parse(whole.data(), whole.size(), nullptr));
  for (std::size_t length = 32; length < whole.size(); ++length) {
    SCOPED_TRACE(length);
    // A cut is whole records when it falls after some record's data, in
    // the padding that the last record may leave out, or at the start.
    bool wholeRecords = length == 32;
    for (const ResourceEntry& e : image.Entries()) {
      const std::size_t dataEnd = static_cast<std::size_t>(e.dataOffset) + e.size;
      wholeRecords =
          wholeRecords || (length >= dataEnd && length <= ((dataEnd + 3) & ~std::size_t(3)));
    }
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    ResourceImage partial;
    ParseFailure failure;
    const bool parsed = partial.Parse(cut.data(), cut.size(), &failure);
    EXPECT_EQ(parsed, wholeRecords) << failure.message;
    if (!parsed) {
      EXPECT_LT(failure.offset, length);
    }
  }
}

TEST(ResourceImage, RefusesMalformedRecordsNamingTheRecordsOffset) {
  const Bytes good = ResourceFile(SmallSet());
  struct Row {
    const char* what;
    std::size_t at;
    std::uint32_t value;
    const char* message;
  };
  const Row rows[] = {
      {"header size below 32", 36, 16, "header size 16 is below the 32 bytes of a header"},
      {"header past the end", 36, 0x10000,
       "the header of 65536 bytes runs past the end of the file"},
      {"data past the end", 32, 0x7FFFFFFF,
       "the data of 2147483647 bytes runs past the end of the file"},
      {"no room for the fixed fields", 36, 32,
       "header size 32 leaves no room for the fixed fields"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Bytes bad = good;
    Put32(&bad, row.at, row.value);
    const ParseFailure failure = MustFail(bad);
    EXPECT_EQ(failure.offset, 32u);
    EXPECT_EQ(failure.message, row.message);
  }
}

TEST(ResourceImage, RefusesANameWithoutTerminatorInsideItsHeader) {
  Bytes bad = ResourceFile({{ResourceKey::Number(kTypeRawData),
                             ResourceKey::Name(u"ABCDEFGHIJKLMNOPQRSTUVWXYZ"), 0, "x"}});
  // Shrink the header so that it ends inside the name.
  Put32(&bad, 36, 32);
  const ParseFailure failure = MustFail(bad);
  EXPECT_EQ(failure.offset, 32u);
  EXPECT_EQ(failure.message, "the name name has no terminator within the record header");
}

TEST(ResourceImage, RefusesARecordHeaderCutShortAtTheEnd) {
  Bytes bad = ResourceFile(SmallSet());
  const std::size_t end = bad.size();
  bad.insert(bad.end(), {1, 0, 0, 0});
  const ParseFailure failure = MustFail(bad);
  EXPECT_EQ(failure.offset, end);
  EXPECT_EQ(failure.message, "a record header is cut short: 4 bytes left");
}

TEST(ResourceImage, RefusesPeImagesWithHeadersOutsideTheFile) {
  PeLayout l;
  const Bytes good = PeImage(SmallSet(), true, &l);
  struct Row {
    const char* what;
    std::size_t at;
    std::uint32_t value;
    std::uint64_t offset;
  };
  const Row rows[] = {
      {"PE header offset past the end", 0x3C, 0x7FFFFFF0, 0x3C},
      {"no signature", l.peHeader, 0x00004551, l.peHeader},
      {"unknown magic", l.optionalHeader, 0x107, l.optionalHeader},
      {"too many data directories", l.optionalHeader + 108, 1000, l.optionalHeader + 108},
      {"section data past the end", l.sectionTable + 20, 0x10000, l.sectionTable},
      {"resource tree outside every section", l.optionalHeader + 112 + 16, 0x9000,
       l.optionalHeader + 112 + 16},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Bytes bad = good;
    Put32(&bad, row.at, row.value);
    EXPECT_EQ(MustFail(bad).offset, row.offset);
  }
  const Bytes shortDos(good.begin(), good.begin() + 40);
  EXPECT_EQ(MustFail(shortDos).offset, 0u);
}

TEST(ResourceImage, RefusesADirectoryReachedTwiceInsteadOfLoopingOverIt) {
  PeLayout l;
  Bytes bad = PeImage(SmallSet(), true, &l);
  // The first type points back at the root.
  Put32(&bad, l.firstTypeEntry + 4, 0x80000000u);
  const ParseFailure failure = MustFail(bad);
  EXPECT_EQ(failure.offset, l.firstTypeEntry + 4);
  EXPECT_EQ(failure.message, "a resource directory is referred to twice");
}

TEST(ResourceImage, RefusesADataEntryReachedTwice) {
  PeLayout l;
  const std::vector<Resource> two = {
      {ResourceKey::Number(kTypeRawData), ResourceKey::Number(1), 0x0407, "de"},
      {ResourceKey::Number(kTypeRawData), ResourceKey::Number(1), 0x0409, "en"},
  };
  Bytes bad = PeImage(two, true, &l);
  // Both languages point at the first data entry.
  const std::uint32_t first = static_cast<std::uint32_t>(l.firstDataEntry - l.section);
  Put32(&bad, l.firstLanguageEntry + 8 + 4, first);
  EXPECT_EQ(MustFail(bad).message, "a data entry is referred to twice");
}

TEST(ResourceImage, RefusesDataOutsideTheSectionsAndEntriesOfTheWrongKind) {
  PeLayout l;
  const Bytes good = PeImage(SmallSet(), true, &l);
  struct Row {
    const char* what;
    std::size_t at;
    std::uint32_t value;
    const char* message;
  };
  const Row rows[] = {
      {"data RVA outside", l.firstDataEntry, 0x50000,
       "the 10 bytes of data at RVA 0x50000 are not all held by one section of the file"},
      {"data size past the section", l.firstDataEntry + 4, 0x100000,
       "the 1048576 bytes of data at RVA 0x10EC are not all held by one section of the file"},
      {"type entry pointing at data", l.firstTypeEntry + 4, 0x40,
       "a type entry points at data instead of a directory"},
      {"language entry pointing at a directory", l.firstLanguageEntry + 4, 0x80000040,
       "a language entry points at a directory instead of data"},
      {"numbered entry above 65535", l.firstTypeEntry, 0x10000,
       "the resource number 65536 is above 65535"},
      {"name outside the section", l.firstTypeEntry, 0x8FFFFFF0,
       "a resource name lies outside the resource section"},
      {"directory outside the section", l.firstTypeEntry + 4, 0x8FFFFFF0,
       "a resource directory lies outside the resource section"},
      {"too many entries", l.section + 14, 0xFFFF,
       "the 65536 entries of a resource directory run past the resource section"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Bytes bad = good;
    if (row.at == l.section + 14)
      Put16(&bad, row.at, static_cast<std::uint16_t>(row.value));
    else
      Put32(&bad, row.at, row.value);
    EXPECT_EQ(MustFail(bad).message, row.message);
  }
}

TEST(ResourceImage, AcceptsAPeImageWithoutResources) {
  PeLayout l;
  Bytes image = PeImage(SmallSet(), false, &l);
  Put32(&image, l.optionalHeader + 96 + 16, 0); // no resource directory
  ResourceImage parsed;
  ASSERT_TRUE(parsed.Parse(image.data(), image.size(), nullptr));
  EXPECT_TRUE(parsed.Entries().empty());
  std::u16string text;
  EXPECT_FALSE(parsed.FindString(0, &text));
}

TEST(ResourceImage, SurvivesEveryCutAndEverySingleByteChangeOfAPeImage) {
  const Bytes good = PeImage(SmallSet(), true);
  for (std::size_t length = 0; length < good.size(); ++length) {
    const Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length));
    ResourceImage image;
    ParseFailure failure;
    if (!image.Parse(cut.data(), cut.size(), &failure)) {
      EXPECT_LE(failure.offset, length);
    }
  }
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (std::uint8_t value : {0x00, 0x7F, 0x80, 0xFF}) {
      Bytes changed = good;
      changed[at] = value;
      ResourceImage image;
      ParseFailure failure;
      if (image.Parse(changed.data(), changed.size(), &failure)) {
        // Whatever it accepts lies within the bytes.
        for (const ResourceEntry& e : image.Entries())
          ASSERT_LE(e.dataOffset + e.size, changed.size()) << at;
      } else {
        ASSERT_LE(failure.offset, changed.size()) << at;
      }
    }
  }
}

} // namespace

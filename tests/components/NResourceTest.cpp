// Resource locations, types, descriptions and string resources: the type
// table both ways, the kept asymmetry of NResourceDesc's !=, string loading
// in 128-byte steps, and the fallback text that a missing string gives.
#include <qvbase/MemoryManager.h>
#include <qvbase/NResource.h>
#include <qvbase/PComponent.h>
#include <qvbase/PMBString.h>

#include "support/ForwardingManager.h"
#include "support/KernelResourcesTestSupport.h"
#include "support/ResourceTestSupport.h"

#include "ResourceTestIds.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using qvbase::test::ScopedResourceModule;

const char* Native(std::uintptr_t number) { return reinterpret_cast<const char*>(number); }

std::uintptr_t NativeValue(const NResourceType& type) {
  return reinterpret_cast<std::uintptr_t>(type.NativeType());
}

std::string Text(const PMBString& text) { return static_cast<const char*>(text); }

std::string ModulePath(void* module) {
  char path[1024] = "";
  QVRes_GetModuleFileName(module, path, sizeof path);
  return path;
}

// ---------------------------------------------------------------------------
// NResourceLocation

TEST(NResourceLocation, DefaultIsNoModuleAndInvalid) {
  NResourceLocation none;
  EXPECT_EQ(none.ResourceContainer(), nullptr);
  EXPECT_EQ(none.ResourceBase(), 0u);
  EXPECT_FALSE(none.IsValid());
  EXPECT_TRUE(none.IsNotValid());
}

TEST(NResourceLocation, ComparesModuleAndBase) {
  int a = 0, b = 0;
  const NResourceLocation location(&a, 1000);
  EXPECT_TRUE(location.IsValid());
  EXPECT_EQ(NResourceLocation(&a).ResourceBase(), 0u);
  EXPECT_TRUE(location == NResourceLocation(&a, 1000));
  EXPECT_FALSE(location != NResourceLocation(&a, 1000));
  EXPECT_TRUE(location != NResourceLocation(&b, 1000));
  EXPECT_TRUE(location != NResourceLocation(&a, 1001));
  NResourceLocation copy;
  copy = location;
  EXPECT_EQ(copy.ResourceContainer(), &a);
  EXPECT_EQ(copy.ResourceBase(), 1000u);
}

// ---------------------------------------------------------------------------
// NResourceType

TEST(NResourceType, TableMapsEveryNativeNumberToItsCodeAndBack) {
  struct Row {
    ULONG native;
    const char* code;
  };
  const Row rows[] = {
      {1, "CURS"},  {2, "PICT"},  {3, "ICON"},  {4, "MENU"},  {5, "DIAL"},
      {6, "STR "},  {7, "FDIR"},  {8, "FONT"},  {9, "ACCE"},  {10, "RAWC"},
      {11, "MSGT"}, {12, "GCUR"}, {14, "GICO"}, {16, "VERS"}, {17, "DLGI"},
      {19, "PnPl"}, {20, "VxD "}, {21, "ACUR"}, {22, "AICO"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.code);
    const ULONG code = (ULONG(row.code[0]) << 24) | (ULONG(row.code[1]) << 16) |
                       (ULONG(row.code[2]) << 8) | ULONG(row.code[3]);
    const NResourceType fromNative(Native(row.native), 0);
    EXPECT_EQ(fromNative.PortableType(), code);
    EXPECT_EQ(NativeValue(fromNative), row.native);
    const NResourceType fromPortable(code);
    EXPECT_EQ(fromPortable.NativeNumber(), row.native);
    EXPECT_EQ(NativeValue(fromPortable), row.native);
  }
}

TEST(NResourceType, BitmapNumberGivesPict) {
  EXPECT_EQ(NResourceType(Native(2), 0).PortableType(), kResTypeBitmap);
  EXPECT_EQ(NResourceType(Native(2), 0).PortableType(), 0x50494354u);
}

TEST(NResourceType, TableNumberIgnoresTheGivenCode) {
  EXPECT_EQ(NResourceType(Native(6), 0x12345678).PortableType(), kResTypeString);
}

TEST(NResourceType, NumbersOutsideTheTableKeepTheGivenCode) {
  for (ULONG number : {13u, 15u, 18u, 23u, 300u, 65535u}) {
    SCOPED_TRACE(number);
    const NResourceType type(Native(number), 0x12345678);
    EXPECT_EQ(type.PortableType(), 0x12345678u);
    EXPECT_EQ(type.NativeNumber(), number);
  }
  EXPECT_EQ(NResourceType(Native(13), 0).PortableType(), 0u);
  EXPECT_FALSE(NResourceType(Native(13), 0).IsValid());
}

TEST(NResourceType, NameWithoutCodePacksItsFirstFourCharacters) {
  const NResourceType type("ABCD", 0);
  EXPECT_EQ(type.PortableType(), 0x41424344u);
  EXPECT_EQ(type.NativeNumber(), 0u);
  EXPECT_STREQ(type.NativeType(), "ABCD");
  EXPECT_EQ(NResourceType("QVDATA", 0).PortableType(), 0x51564441u); // "QVDA"
  // A shorter name packs as though padded with zero bytes.
  EXPECT_EQ(NResourceType("AB", 0).PortableType(), 0x41420000u);
}

TEST(NResourceType, NameWithCodeKeepsTheCode) {
  const NResourceType type("QVDATA", 0x51564454);
  EXPECT_EQ(type.PortableType(), 0x51564454u);
  EXPECT_STREQ(type.NativeType(), "QVDATA");
}

TEST(NResourceType, RawDataCodeGivesNativeNumberTen) {
  const NResourceType type(0x52415743);
  EXPECT_EQ(type.NativeNumber(), 10u);
  EXPECT_EQ(NativeValue(type), 10u);
}

TEST(NResourceType, CodeOutsideTheTableGivesANativeName) {
  const NResourceType type(0x41424344);
  EXPECT_EQ(type.NativeNumber(), 0u);
  EXPECT_STREQ(type.NativeType(), "ABCD");
  EXPECT_EQ(type.PortableType(), 0x41424344u);
}

TEST(NResourceType, ValidityEqualityAndCopies) {
  EXPECT_FALSE(NResourceType().IsValid());
  EXPECT_TRUE(NResourceType(kResTypeRawData).IsValid());
  EXPECT_TRUE(NResourceType(Native(10), 0) == NResourceType(kResTypeRawData));
  EXPECT_TRUE(NResourceType(Native(10), 0) == kResTypeRawData);
  EXPECT_TRUE(NResourceType(Native(10), 0) != kResTypeString);
  EXPECT_TRUE(NResourceType("ABCD", 0) != NResourceType(kResTypeRawData));
  NResourceType copy(NResourceType("QVDATA", 0));
  EXPECT_STREQ(copy.NativeType(), "QVDATA");
  copy = NResourceType(kResTypeIcon);
  EXPECT_EQ(NativeValue(copy), 3u);
  EXPECT_EQ(copy.PortableType(), kResTypeIcon);
}

// ---------------------------------------------------------------------------
// NResourceDesc

TEST(NResourceDesc, IdentifierIsAddedToTheBase) {
  int module = 0;
  const NResourceDesc desc(NResourceLocation(&module, 1000), NResourceType(kResTypeRawData), 7);
  EXPECT_EQ(desc.Location().ResourceContainer(), &module);
  EXPECT_EQ(desc.Location().ResourceBase(), 1007u);
  EXPECT_EQ(desc.Type().PortableType(), kResTypeRawData);
  EXPECT_TRUE(desc.IsValid());
  EXPECT_FALSE(NResourceDesc().IsValid());
  EXPECT_TRUE(NResourceDesc(NResourceLocation(), NResourceType(kResTypeRawData), 7).IsNotValid());
  EXPECT_TRUE(NResourceDesc(NResourceLocation(&module), NResourceType(), 7).IsNotValid());
}

TEST(NResourceDesc, NotEqualIsDeliberatelyNotTheNegationOfEqual) {
  int a = 0, b = 0;
  const NResourceType raw(kResTypeRawData);
  const NResourceDesc desc(NResourceLocation(&a, 0), raw, 7);
  struct Row {
    const char* what;
    NResourceDesc other;
    bool equal;
    bool unequal;
  };
  const Row rows[] = {
      {"same", NResourceDesc(NResourceLocation(&a, 0), raw, 7), true, false},
      // Kept as it is: differing only in module, or only in identifier,
      // is neither equal nor unequal.
      {"other module only", NResourceDesc(NResourceLocation(&b, 0), raw, 7), false, false},
      {"other identifier only", NResourceDesc(NResourceLocation(&a, 0), raw, 8), false, false},
      {"other module and identifier", NResourceDesc(NResourceLocation(&b, 0), raw, 8), false, true},
      {"other type", NResourceDesc(NResourceLocation(&a, 0), NResourceType(kResTypeIcon), 7), false,
       true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(desc == row.other, row.equal);
    EXPECT_EQ(desc != row.other, row.unequal);
  }
}

// ---------------------------------------------------------------------------
// NResourceString

TEST(NResourceString, NumberIsShiftedByTheBase) {
  int module = 0;
  const NResourceString s(7, NResourceLocation(&module, 1000));
  EXPECT_EQ(s.ResourceContainer(), &module);
  EXPECT_EQ(s.ResourceNum(), 1007u);
  EXPECT_TRUE(s.ResourceLocation() == NResourceLocation(&module, 1007));
  EXPECT_TRUE(s.IsValid());
  EXPECT_FALSE(NResourceString().IsValid());
  EXPECT_TRUE(s == NResourceString(1007, NResourceLocation(&module)));
  EXPECT_TRUE(s != NResourceString(1008, NResourceLocation(&module)));
}

TEST(NResourceString, DescribesTheSameResourceWithTheStringType) {
  int module = 0;
  const NResourceDesc desc = NResourceString(7, NResourceLocation(&module, 1000));
  EXPECT_EQ(desc.Location().ResourceContainer(), &module);
  EXPECT_EQ(desc.Location().ResourceBase(), 1007u);
  EXPECT_EQ(desc.Type().PortableType(), kResTypeString);
  EXPECT_EQ(NativeValue(desc.Type()), 6u);
}

TEST(NResourceString, SevenUnderBaseThousandLoadsString1007) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  NResourceString s(7, NResourceLocation(module.handle(), IDS_SHIFTED_BASE));
  EXPECT_EQ(Text(s), "Shifted string 7");
  EXPECT_TRUE(s.IsValid());
  EXPECT_EQ(s.ResourceNum(), 1007u);
}

TEST(NResourceString, LoadsStringsOfEveryLengthAroundTheSteps) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceLocation location(module.handle());
  struct Row {
    ULONG id;
    std::size_t length;
  };
  const Row rows[] = {{IDS_LENGTH_1, 1},     {IDS_LENGTH_126, 126}, {IDS_LENGTH_127, 127},
                      {IDS_LENGTH_128, 128}, {IDS_LENGTH_254, 254}, {IDS_LENGTH_255, 255},
                      {IDS_LENGTH_256, 256}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.length);
    NResourceString s(row.id, location);
    const std::string text = Text(s);
    EXPECT_EQ(text.size(), row.length);
    if (row.length > 1) {
      EXPECT_EQ(text.substr(0, text.find(':')), std::to_string(row.length) + " chars");
    }
  }
}

// What the manager is asked for beyond a block's own size: the header in
// which every block remembers its manager.
ULONG BlockHeaderSize() {
  qvbase::test::ScopedAllocationLog log;
  GMemFree(GMemAllocation(nullptr, 1, /*mode=*/0));
  return log.sizes.empty() ? 0 : log.sizes.front() - 1;
}

// The load buffers among the blocks: the multiples of 128 from 128 up, in
// the order asked for, up to the first that is not the next step.
std::vector<ULONG> LoadBuffers(const std::vector<ULONG>& sizes) {
  const ULONG header = BlockHeaderSize();
  std::vector<ULONG> buffers;
  for (ULONG size : sizes) {
    if (size - header == 128u * (buffers.size() + 1))
      buffers.push_back(size - header);
  }
  return buffers;
}

TEST(NResourceString, BufferGrowsBy128BytesWhileTheTextMayBeCut) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceLocation location(module.handle());
  struct Row {
    ULONG id;
    std::vector<ULONG> buffers;
  };
  const Row rows[] = {
      {IDS_LENGTH_1, {128}},
      {IDS_LENGTH_126, {128}},
      // Exactly 127 characters fill 128 bytes to size - 1: a second
      // attempt with 256 bytes.
      {IDS_LENGTH_127, {128, 256}},
      {IDS_LENGTH_128, {128, 256}},
      {IDS_LENGTH_254, {128, 256}},
      {IDS_LENGTH_255, {128, 256, 384}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.id);
    NResourceString s(row.id, location);
    std::vector<ULONG> sizes;
    {
      qvbase::test::ScopedAllocationLog log;
      PMBString text = s;
      sizes = log.sizes;
    }
    EXPECT_EQ(LoadBuffers(sizes), row.buffers);
  }
}

TEST(NResourceString, MissingStringGivesTheFallbackWithModulePathAndNumber) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  NResourceString s(7, NResourceLocation(module.handle(), 2000));
  const std::string text = Text(s);
  EXPECT_EQ(text, "****" + ModulePath(module.handle()) + ": UNDEFINED RESOURCE STRING #2007****");
  EXPECT_FALSE(ModulePath(module.handle()).empty());
}

TEST(NResourceString, SevenUnderBaseThousandMissingGivesTheFallbackWith1007) {
  // A module that holds strings, but not 1007.
  ScopedResourceModule module(qvbase::test::TestModulePath("ResourceTestUnshifted"));
  ASSERT_EQ(module.result(), QVRES_OK);
  EXPECT_EQ(Text(NResourceString(IDS_FIRST, NResourceLocation(module.handle()))),
            "The first string of the other module");
  NResourceString s(7, NResourceLocation(module.handle(), 1000));
  const std::string path = ModulePath(module.handle());
  EXPECT_NE(path.find("ResourceTestUnshifted"), std::string::npos);
  EXPECT_EQ(Text(s), "****" + path + ": UNDEFINED RESOURCE STRING #1007****");
  EXPECT_FALSE(s.IsValid());
}

TEST(NResourceString, MissingStringLeavesTheStringInvalid) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  NResourceString s(7, NResourceLocation(module.handle(), 2000));
  PMBString first = s;
  // Intended: the miss clears module and identifier.
  EXPECT_FALSE(s.IsValid());
  EXPECT_EQ(s.ResourceContainer(), nullptr);
  EXPECT_EQ(s.ResourceNum(), 0u);
  // Converted again, it asks the null module (the executable, which holds
  // no such string) for string 0.
  const std::string again = Text(s);
  EXPECT_EQ(again, "****" + qvbase::test::SelfPath() + ": UNDEFINED RESOURCE STRING #0****");
}

#if !defined(_WIN32)
// (Windows' own calls take only real module handles.)
TEST(NResourceString, ModuleParameterStaysWhenThePathCannotBeHad) {
  // A module handle that nothing loaded: no string, no path.
  int notAModule = 0;
  NResourceString s(5, NResourceLocation(&notAModule));
  EXPECT_EQ(Text(s), "****^module^: UNDEFINED RESOURCE STRING #5****");
}
#endif

// ---------------------------------------------------------------------------
// This library's own resources

using qvbase::test::ScopedKernelResources;

const char kShortReadText[] = "The stream's medium delivered fewer bytes than were asked for.";

TEST(NTesselResourceLocation, DefaultIsTheTesselFilesLocation) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  const NTesselResourceLocation location;
  EXPECT_TRUE(location == gTesselComponentFile.ResourceLocation());
  EXPECT_EQ(location.ResourceContainer(), kernel.handle());
  EXPECT_EQ(location.ResourceBase(), 0u);
}

TEST(NTesselResourceLocation, IsBuiltAndAssignedFromAnyLocation) {
  int module = 0;
  NTesselResourceLocation location(NResourceLocation(&module, 40));
  EXPECT_EQ(location.ResourceContainer(), &module);
  EXPECT_EQ(location.ResourceBase(), 40u);
  location = NResourceLocation(nullptr, 7);
  EXPECT_TRUE(location.IsNotValid());
  EXPECT_EQ(location.ResourceBase(), 7u);
}

TEST(NTesselResourceLocation, FollowsTheTesselPartsOffset) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  gTesselComponentFile.SetResourceOffset(1000);
  const NTesselResourceLocation shifted;
  gTesselComponentFile.SetResourceOffset(0);
  EXPECT_EQ(shifted.ResourceContainer(), kernel.handle());
  EXPECT_EQ(shifted.ResourceBase(), 1000u);
}

TEST(GTesselString, GivesTheLibrarysOwnTexts) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  EXPECT_EQ(Text(GTesselString(1229)), kShortReadText);
  EXPECT_EQ(Text(GTesselString(0)), "Undefined Resource String");
}

TEST(GTesselString, FindsTheLibrarysResourceModuleByItself) {
  // No module given: the registry library finds QVKernelRes12 beside the
  // library, as it was built.
  EXPECT_EQ(Text(GTesselString(1229)), kShortReadText);
  EXPECT_TRUE(NTesselResourceLocation().IsValid());
}

TEST(GTesselString, MissingTextGivesTheFallbackWithTheModulesPath) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  EXPECT_EQ(Text(GTesselString(31000)),
            "****" + ModulePath(kernel.handle()) + ": UNDEFINED RESOURCE STRING #31000****");
}

TEST(GTesselString, ReadsAtTheTesselPartsOffset) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  // Shifted by 1000, number 229 is the library's string 1229.
  gTesselComponentFile.SetResourceOffset(1000);
  const std::string text = Text(GTesselString(229));
  const NResourceString resource = GTesselResourceString(229);
  gTesselComponentFile.SetResourceOffset(0);
  EXPECT_EQ(text, kShortReadText);
  EXPECT_EQ(resource.ResourceContainer(), kernel.handle());
  EXPECT_EQ(resource.ResourceNum(), 1229u);
}

TEST(GTesselResource, DescribesTheResourceAtTheTesselLocation) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  const NResourceDesc resource = GTesselResource(NResourceType(kResTypeRawData), 300);
  EXPECT_EQ(resource.Location().ResourceContainer(), kernel.handle());
  EXPECT_EQ(resource.Location().ResourceBase(), 300u);
  EXPECT_TRUE(resource.Type() == kResTypeRawData);
  EXPECT_TRUE(resource.IsValid());
}

} // namespace

// Fresh identifiers: version 4 layout, uniqueness, refusal without randomness.
#include "native/Guid.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

namespace {

using qvbase::native::CreateGuid;
using qvbase::native::MakeRandomGuid;

std::string Bytes(const GUID& id) {
  return std::string(reinterpret_cast<const char*>(&id), sizeof id);
}

bool FailingSource(void*, std::size_t) { return false; }

bool AllOnesSource(void* bytes, std::size_t count) {
  std::memset(bytes, 0xFF, count);
  return true;
}

bool AllZeroSource(void* bytes, std::size_t count) {
  std::memset(bytes, 0x00, count);
  return true;
}

bool CountingSource(void* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    static_cast<unsigned char*>(bytes)[i] = static_cast<unsigned char>(i + 1);
  return true;
}

TEST(Guid, FreshIdentifiersCarryVersionFourAndTheStandardVariant) {
  for (int i = 0; i < 10000; ++i) {
    GUID id;
    ASSERT_EQ(CreateGuid(&id), S_OK);
    ASSERT_EQ(id.Data3 >> 12, 4) << "identifier " << i;
    ASSERT_EQ(id.Data4[0] & 0xC0, 0x80) << "identifier " << i;
  }
}

TEST(Guid, TenThousandFreshIdentifiersAreAllDifferent) {
  std::set<std::string> seen;
  for (int i = 0; i < 10000; ++i) {
    GUID id;
    ASSERT_EQ(CreateGuid(&id), S_OK);
    seen.insert(Bytes(id));
  }
  EXPECT_EQ(seen.size(), 10000u);
}

TEST(Guid, NullOutputIsAnInvalidArgument) { EXPECT_EQ(CreateGuid(nullptr), E_INVALIDARG); }

TEST(Guid, FailingRandomSourceFailsAndLeavesTheOutputAlone) {
  GUID id = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
  const GUID before = id;
  EXPECT_EQ(MakeRandomGuid(&FailingSource, &id), E_FAIL);
  EXPECT_TRUE(id == before);
  EXPECT_EQ(MakeRandomGuid(nullptr, &id), E_FAIL);
  EXPECT_TRUE(id == before);
}

TEST(Guid, VersionAndVariantBitsOverrideTheRandomBytes) {
  GUID ones, zeros;
  ASSERT_EQ(MakeRandomGuid(&AllOnesSource, &ones), S_OK);
  ASSERT_EQ(MakeRandomGuid(&AllZeroSource, &zeros), S_OK);
  EXPECT_EQ(ones.Data1, 0xFFFFFFFFu);
  EXPECT_EQ(ones.Data2, 0xFFFF);
  EXPECT_EQ(ones.Data3, 0x4FFF);
  EXPECT_EQ(ones.Data4[0], 0xBF);
  EXPECT_EQ(zeros.Data3, 0x4000);
  EXPECT_EQ(zeros.Data4[0], 0x80);
  EXPECT_EQ(zeros.Data1, 0u);
}

TEST(Guid, RandomBytesFillTheIdentifierInMemoryOrder) {
  GUID id;
  ASSERT_EQ(MakeRandomGuid(&CountingSource, &id), S_OK);
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&id);
  for (int i = 0; i < 16; ++i) {
    SCOPED_TRACE(i);
    if (i == 7)
      EXPECT_EQ(bytes[i], 0x48); // 0x08 with the version nibble
    else if (i == 8)
      EXPECT_EQ(bytes[i], 0x89); // 0x09 with the variant bits
    else
      EXPECT_EQ(bytes[i], i + 1);
  }
}

} // namespace

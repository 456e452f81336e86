// Identifiers as values: the null identifier, copies and bytewise comparison.
#include <qvbase/PUniversalID.h>

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

namespace {

// {12345678-9ABC-DEF0-0123-456789ABCDEF}
const _GUID kSample = {0x12345678, 0x9ABC, 0xDEF0, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

TEST(PUniversalID, DefaultIsTheNullIdentifier) {
  PUniversalID id;
  EXPECT_FALSE(id.IsValid());
  const _GUID null = {};
  EXPECT_TRUE(id == null);
  EXPECT_EQ(std::memcmp(static_cast<const _GUID*>(id), &null, sizeof null), 0);
}

TEST(PUniversalID, FromGuidKeepsTheSixteenBytes) {
  PUniversalID id(kSample);
  EXPECT_TRUE(id.IsValid());
  EXPECT_EQ(std::memcmp(static_cast<const _GUID*>(id), &kSample, sizeof kSample), 0);
  _GUID copy = id;
  EXPECT_TRUE(IsEqualGUID(copy, kSample));
}

TEST(PUniversalID, CopyAndAssignmentCopyTheBytes) {
  PUniversalID original(kSample);
  PUniversalID copy(original);
  EXPECT_TRUE(copy == original);
  PUniversalID assigned;
  assigned = original;
  EXPECT_TRUE(assigned == kSample);
  EXPECT_NE(static_cast<const _GUID*>(assigned), static_cast<const _GUID*>(original));
}

TEST(PUniversalID, AnySetByteMakesItValidAndDifferent) {
  for (int byte = 0; byte < 16; ++byte) {
    SCOPED_TRACE(byte);
    _GUID raw = {};
    reinterpret_cast<unsigned char*>(&raw)[byte] = 0x01;
    PUniversalID id(raw);
    EXPECT_TRUE(id.IsValid());
    EXPECT_TRUE(id != PUniversalID());
    EXPECT_FALSE(id == PUniversalID());
    EXPECT_TRUE(id != kSample);
  }
}

TEST(PUniversalID, IsARootObjectWithTheIdentifierBehindItsVirtualTablePointer) {
  EXPECT_TRUE((std::is_base_of<PRoot, PUniversalID>::value));
  EXPECT_EQ(sizeof(PUniversalID), sizeof(void*) + 16);
}

} // namespace

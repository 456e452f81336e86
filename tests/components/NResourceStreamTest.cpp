// The stream over a resource: its bytes by number and type (raw data, named
// and numbered custom types), read-only opening (1221 for any other mode),
// and a missing resource signalled as -1 through the protections.
#include <qvbase/NResourceStream.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PStream.h>

#include "support/ErrorTestSupport.h"
#include "support/KernelResourcesTestSupport.h"
#include "support/ResourceTestSupport.h"

#include "ResourceTestIds.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using qvbase::test::Caught;
using qvbase::test::CountingHook;
using qvbase::test::ScopedErrorCapture;
using qvbase::test::ScopedResourceModule;

const char* Native(std::uintptr_t number) { return reinterpret_cast<const char*>(number); }

NResourceDesc RawData(void* module, ULONG id) {
  return NResourceDesc(NResourceLocation(module), NResourceType(kResTypeRawData), id);
}

// The whole content of a resource, read through a stream over it.
std::string Content(const NResourceDesc& resource) {
  PStream stream(new NResourceStream(resource));
  stream.Open(OpenRead);
  std::string bytes(static_cast<std::size_t>(stream.GetSize()), '\0');
  if (!bytes.empty()) {
    EXPECT_EQ(stream.Read(&bytes[0], static_cast<ULONG>(bytes.size()), 1), bytes.size());
  }
  stream.Close();
  return bytes;
}

TEST(NResourceStream, ReadsTheBytesOfARawDataResource) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  EXPECT_EQ(Content(RawData(module.handle(), STRUCT_WORKED_EXAMPLE)),
            std::string("A\0\x05\0BC\0\x34\x12\0", 10));
  EXPECT_EQ(Content(RawData(module.handle(), RAW_NUMBERED)), std::string("raw\0data\xFE\xFF", 10));
}

TEST(NResourceStream, ReadsTypedValuesLittleEndian) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  PStream stream(new NResourceStream(RawData(module.handle(), RAW_NUMBERED)));
  stream.Open(OpenRead);
  stream.MoveTo(8);
  short value = 0;
  stream.Read(&value);
  EXPECT_EQ(static_cast<unsigned short>(value), 0xFFFEu);
}

TEST(NResourceStream, FindsNamedAndNumberedCustomTypes) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceLocation location(module.handle());
  // The named type QVDATA, from its native name or from its code "QVDA".
  EXPECT_EQ(Content(NResourceDesc(location, NResourceType("QVDATA", 0), CUSTOM_NUMBERED)),
            "numbered payload");
  // The numbered type 300, which has no code of its own.
  EXPECT_EQ(Content(NResourceDesc(location, NResourceType(Native(CUSTOM_TYPE_NUMBER), 0x43555354),
                                  CUSTOM_NUMBERED)),
            "payload of a numbered type");
}

TEST(NResourceStream, IdentifierIsTheLocationsBasePlusTheNumberInItsLow16Bits) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceType raw(kResTypeRawData);
  EXPECT_EQ(Content(NResourceDesc(NResourceLocation(module.handle(), 200), raw, 1)),
            std::string("A\0\x05\0BC\0\x34\x12\0", 10));
  EXPECT_EQ(Content(NResourceDesc(NResourceLocation(module.handle(), 0x10000), raw, RAW_NUMBERED)),
            std::string("raw\0data\xFE\xFF", 10));
}

TEST(NResourceStream, IsReadOnly) {
  NResourceStream* handler = new NResourceStream;
  PStream stream(handler);
  EXPECT_EQ(handler->GetAvailableOpenModes(), OpenRead);
}

TEST(NResourceStream, OpeningInAnyOtherModeSignals1221AndStaysClosed) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  for (ULONG mode : {OpenWrite, OpenReadWrite, OpenRead | OpenAllowEmpty, OpenRead | OpenNoLoad}) {
    SCOPED_TRACE(mode);
    PStream stream(new NResourceStream(RawData(module.handle(), STRUCT_WORKED_EXAMPLE)));
    const PError error = Caught([&] { stream.Open(mode); });
    EXPECT_EQ(error.Code(), kErrStreamOpenModeInvalid);
    EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
    EXPECT_STREQ(error.File(), "src\\NResourceStream");
    EXPECT_FALSE(stream.IsOpened());
  }
}

TEST(NResourceStream, WritableOpenLetThroughByAHookLeavesTheStreamClosed) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  PStream stream(new NResourceStream(RawData(module.handle(), STRUCT_WORKED_EXAMPLE)));
  ScopedErrorCapture capture(ErrorHandlingIgnore);
  stream.Open(OpenReadWrite);
  EXPECT_EQ(capture.hook.codes, std::vector<int>{kErrStreamOpenModeInvalid});
  EXPECT_FALSE(stream.IsOpened());
}

TEST(NResourceStream, MissingResourceSignalsMinusOneThroughTheUsersHook) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  PStream stream(new NResourceStream(RawData(module.handle(), 999)));
  CountingHook hook(ErrorHandlingNone);
  PErrorHookProtection protection(&hook, /*set=*/true);
  const PError error = Caught([&] { stream.Open(OpenRead); });
  EXPECT_EQ(error.Code(), kErrResourceMissing);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(error.File(), "src\\NResourceStream");
  ASSERT_EQ(hook.codes, std::vector<int>{kErrResourceMissing});
  EXPECT_EQ(hook.errors[0].Severity(), ErrorSeverityAbort);
  EXPECT_FALSE(stream.IsOpened());
}

TEST(NResourceStream, MissingResourceLetThroughOpensNothingToRead) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  PStream stream(new NResourceStream(RawData(module.handle(), 999)));
  ScopedErrorCapture capture(ErrorHandlingIgnore);
  stream.Open(OpenRead);
  // Then the empty content is refused as by every memory stream.
  EXPECT_EQ(capture.hook.codes, (std::vector<int>{kErrResourceMissing, kErrStreamOpenModeInvalid}));
  EXPECT_EQ(capture.hook.errors[1].Severity(), ErrorSeverityError);
  EXPECT_EQ(stream.GetSize(), 0u);
}

TEST(NResourceStream, NoModuleOrWrongTypeIsAMissingResource) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceDesc descs[] = {
      NResourceDesc(),
      NResourceDesc(NResourceLocation(module.handle()), NResourceType(kResTypeIcon),
                    STRUCT_WORKED_EXAMPLE),
  };
  for (const NResourceDesc& desc : descs) {
    PStream stream(new NResourceStream(desc));
    EXPECT_EQ(Caught([&] { stream.Open(OpenRead); }).Code(), kErrResourceMissing);
  }
}

TEST(NResourceStream, ContentIsCopiedAtOpenAndOutlivesTheModule) {
  std::string bytes(10, '\0');
  PStream stream;
  {
    ScopedResourceModule module;
    ASSERT_EQ(module.result(), QVRES_OK);
    stream = PStream(new NResourceStream(RawData(module.handle(), STRUCT_WORKED_EXAMPLE)));
    stream.Open(OpenRead);
  }
  EXPECT_EQ(stream.Read(&bytes[0], 10, 1), 10u);
  EXPECT_EQ(bytes, std::string("A\0\x05\0BC\0\x34\x12\0", 10));
}

TEST(NResourceStream, CopyKeepsTheResource) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceStream original(RawData(module.handle(), RAW_NUMBERED));
  NResourceStream* copy = new NResourceStream(original);
  EXPECT_TRUE(copy->Resource() == original.Resource());
  PStream stream(copy);
  stream.Open(OpenRead);
  EXPECT_EQ(stream.GetSize(), 10u);
  NResourceStream assigned;
  assigned = original;
  EXPECT_EQ(assigned.Resource().Location().ResourceBase(), static_cast<ULONG>(RAW_NUMBERED));
}

TEST(GTesselResourceStream, ReadsOneOfTheLibrarysOwnResources) {
  qvbase::test::ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  // The string table bundle that holds strings 1216 to 1231, read raw.
  constexpr ULONG kBundle = 1229 / 16 + 1;
  void* found = QVRes_FindResource(kernel.handle(), QVRES_INTRESOURCE(kBundle), Native(6));
  ASSERT_NE(found, nullptr);
  const char* bytes =
      static_cast<const char*>(QVRes_LockResource(QVRes_LoadResource(kernel.handle(), found)));
  const std::string expected(bytes, QVRes_SizeofResource(kernel.handle(), found));
  PStream stream = GTesselResourceStream(NResourceType(kResTypeString), kBundle);
  stream.Open(OpenRead);
  std::string content(static_cast<std::size_t>(stream.GetSize()), '\0');
  ASSERT_FALSE(content.empty());
  EXPECT_EQ(stream.Read(&content[0], static_cast<ULONG>(content.size()), 1), content.size());
  stream.Close();
  EXPECT_EQ(content, expected);
}

TEST(GTesselResourceStream, MissingResourceSignalsMinusOne) {
  qvbase::test::ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  PStream stream = GTesselResourceStream(NResourceType(kResTypeRawData), 999);
  const PError error = Caught([&] { stream.Open(OpenRead); });
  EXPECT_EQ(error.Code(), kErrResourceMissing);
  EXPECT_FALSE(stream.IsOpened());
}

} // namespace

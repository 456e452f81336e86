// Tagged structure resources: the worked example, exact tag matching, the
// parse that stops at the end of the data with the records read so far,
// under a full protection and the trace's no-error mode.
#include <qvbase/GDbg.h>
#include <qvbase/NResourceStruct.h>
#include <qvbase/PErrorProtection.h>

#include "native/Registry.h"
#include "support/ErrorTestSupport.h"
#include "support/ResourceTestSupport.h"

#include "ResourceTestIds.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::test::CountingHook;
using qvbase::test::ScopedResourceModule;
namespace native = qvbase::native;

NResourceStruct Struct(void* module, ULONG id) {
  return NResourceStruct(
      NResourceDesc(NResourceLocation(module), NResourceType(kResTypeRawData), id));
}

std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }

// Tag=value pairs in resource order.
std::vector<std::string> Entries(const NResourceStruct& s) {
  std::vector<std::string> entries;
  for (ULONG i = 0; i < s.Size(); ++i) {
    const std::string tag = Text(s.GetTag(i));
    entries.push_back(tag + "=" + std::to_string(s.GetValue(tag.c_str()).ResourceBase()));
  }
  return entries;
}

TEST(NResourceStruct, WorkedExampleHasTwoEntries) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceStruct s = Struct(module.handle(), STRUCT_WORKED_EXAMPLE);
  ASSERT_EQ(s.Size(), 2u);
  EXPECT_EQ(Text(s.GetTag(0)), "A");
  EXPECT_EQ(Text(s[1]), "BC");
  EXPECT_EQ(Entries(s), (std::vector<std::string>{"A=5", "BC=4660"}));
}

TEST(NResourceStruct, LookingUpBCGivesTheModuleAnd0x1234) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceStruct s = Struct(module.handle(), STRUCT_WORKED_EXAMPLE);
  const NResourceLocation bc = s["BC"];
  EXPECT_EQ(bc.ResourceContainer(), module.handle());
  EXPECT_EQ(bc.ResourceBase(), 0x1234u);
  NResourceLocation out;
  EXPECT_TRUE(s.GetValue("BC", out));
  EXPECT_TRUE(out == NResourceLocation(module.handle(), 0x1234));
  EXPECT_TRUE(s.HasTag("A"));
  EXPECT_TRUE(s.HasTag("BC"));
}

TEST(NResourceStruct, TagsMatchExactly) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceStruct s = Struct(module.handle(), STRUCT_WORKED_EXAMPLE);
  const NResourceLocation bc = s["bc"];
  EXPECT_EQ(bc.ResourceContainer(), nullptr);
  EXPECT_EQ(bc.ResourceBase(), 0u);
  EXPECT_FALSE(s.HasTag("bc"));
  EXPECT_FALSE(s.HasTag("B"));
  EXPECT_FALSE(s.HasTag(""));
  EXPECT_FALSE(s.HasTag(nullptr));
  int marker = 0;
  NResourceLocation out(&marker, 99);
  EXPECT_FALSE(s.GetValue("bc", out));
  EXPECT_TRUE(out == NResourceLocation(&marker, 99)); // unchanged
}

TEST(NResourceStruct, FirstOfEqualTagsWins) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceStruct s = Struct(module.handle(), STRUCT_REPEATED_TAG);
  EXPECT_EQ(s.Size(), 2u);
  EXPECT_EQ(s.GetValue("A").ResourceBase(), 1u);
}

TEST(NResourceStruct, IndexOutOfRangeGivesAnEmptyTag) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  const NResourceStruct s = Struct(module.handle(), STRUCT_WORKED_EXAMPLE);
  EXPECT_TRUE(s.GetTag(2).IsEmpty());
  EXPECT_TRUE(s[0xFFFFFFFFu].IsEmpty());
}

TEST(NResourceStruct, ParseStopsAtTheEndOfTheDataWithTheRecordsReadSoFar) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  struct Row {
    const char* what;
    ULONG id;
    std::vector<std::string> entries;
  };
  const Row rows[] = {
      {"no empty tag at the end", STRUCT_NO_TERMINATOR, {"A=5", "BC=4660"}},
      {"value cut to one byte", STRUCT_CUT_VALUE, {"A=5"}},
      {"tag without its zero byte", STRUCT_CUT_TAG, {"A=5"}},
      {"the empty tag alone", STRUCT_EMPTY, {}},
      {"records after the empty tag", STRUCT_TRAILING, {"A=5"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    CountingHook hook(ErrorHandlingNone);
    PErrorHookProtection outside(&hook, /*set=*/true);
    EXPECT_EQ(Entries(Struct(module.handle(), row.id)), row.entries);
    EXPECT_EQ(hook.calls, 0);
  }
}

TEST(NResourceStruct, MissingResourceGivesNoEntriesAndNoErrorReachesTheUser) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  CountingHook hook(ErrorHandlingNone);
  PErrorHookProtection outside(&hook, /*set=*/true);
  const NResourceStruct s = Struct(module.handle(), 999);
  EXPECT_EQ(s.Size(), 0u);
  EXPECT_FALSE(s.HasTag("A"));
  // The parse's full protection answers the -1 itself.
  EXPECT_EQ(hook.calls, 0);
  EXPECT_EQ(PErrorProtection::Innermost(), &outside);
}

TEST(NResourceStruct, WithoutBodyItIsEmpty) {
  const NResourceStruct s;
  EXPECT_TRUE(s.IsNull());
  EXPECT_EQ(s.Size(), 0u);
  EXPECT_TRUE(s.GetTag(0).IsEmpty());
  EXPECT_FALSE(s.HasTag("A"));
  NResourceLocation out(nullptr, 7);
  EXPECT_FALSE(s.GetValue("A", out));
  EXPECT_EQ(out.ResourceBase(), 7u);
}

TEST(NResourceStruct, CopiesShareOneParsedBody) {
  ScopedResourceModule module;
  ASSERT_EQ(module.result(), QVRES_OK);
  NResourceStruct copy;
  {
    const NResourceStruct s = Struct(module.handle(), STRUCT_WORKED_EXAMPLE);
    copy = s;
    EXPECT_EQ(static_cast<void*>(copy), static_cast<void*>(s));
  }
  // The body outlives the first handle; its entries stay.
  EXPECT_EQ(Entries(copy), (std::vector<std::string>{"A=5", "BC=4660"}));
  const NResourceStruct again(copy);
  EXPECT_EQ(again.Size(), 2u);
}

// The trace's no-error mode, seen in a child process with the machine's
// trace switched on: the parse's error is written without the block around
// it and without its handling.
int ParseMissingRole(const std::vector<std::string>& args) {
  if (args.empty())
    return 98;
  ScopedResourceModule module(args[0]);
  if (module.result() != QVRES_OK)
    return 97;
  const NResourceStruct s = Struct(module.handle(), 999);
  return s.Size() == 0 ? 0 : 96;
}
const bool kParseMissingRegistered =
    qvbase::test::RegisterChildRole("parse-missing", ParseMissingRole);

TEST(NResourceStruct, ParseRunsInTheTracesNoErrorMode) {
  ASSERT_TRUE(kParseMissingRegistered);
  qvbase::test::ScratchRegistry registry;
  qvbase::test::TempDir dir;
  const std::string trace = dir.File("trace.log");
  native::RegKey key = nullptr;
  ASSERT_EQ(native::CreateRegKey(native::kRegLocalMachine, "Software\\Varnel\\Config", nullptr,
                                 native::kKeyAllAccess, &key, nullptr),
            ERROR_SUCCESS);
  ASSERT_EQ(native::SetRegValue(key, "errorfile", native::kRegSz,
                                reinterpret_cast<const BYTE*>(trace.c_str()),
                                static_cast<DWORD>(trace.size() + 1)),
            ERROR_SUCCESS);
  const qvbase::test::RunResult run =
      qvbase::test::Run({qvbase::test::SelfPath(), "--qvtest-child", "parse-missing",
                         qvbase::test::TestModulePath()});
  native::DeleteRegValue(key, "errorfile");
  native::CloseRegKey(key);
  EXPECT_EQ(run.status, 0) << run.err;
  ASSERT_TRUE(qvbase::test::FileExists(trace));
  std::string text = qvbase::test::ReadFile(trace);
  for (std::size_t p; (p = text.find("\r\n")) != std::string::npos;)
    text.erase(p, 1);
  // The -1 is recorded as a bare line: no "***" block, no handling.
  EXPECT_NE(text.find("src\\NResourceStream("), std::string::npos) << text;
  EXPECT_NE(text.find(" -1: "), std::string::npos) << text;
  EXPECT_EQ(text.find("***"), std::string::npos) << text;
  EXPECT_EQ(text.find("-->"), std::string::npos) << text;
}

} // namespace

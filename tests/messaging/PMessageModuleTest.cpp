// Kinds of message declared by a module loaded at run time: their records
// join the message family at load and leave it at unload, so that a log
// section of such a kind reads back as known, then as unknown.
#include <qvbase/PMessage.h>

#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>

#include "native/Modules.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qvbase::native::CloseModule;
using qvbase::native::Module;
using qvbase::native::ModuleSuffix;
using qvbase::native::ModuleSymbol;
using qvbase::native::OpenModule;

std::string ModulePath() {
  return qvbase::test::BinaryDir() + "/qvbase_test_message_kinds" + ModuleSuffix();
}

DC_ROOT_INFOS* MessageFamily() { return &PMessageData::dcobj_firstclass; }

// A log holding one greeting section, as the module writes it.
PStream GreetingLog(LONG value) {
  PStream log(new PMemoryStreamHdl(/*granularity=*/256));
  log.Open(OpenReadWrite | OpenAllowEmpty);
  PStreamSection section = OpenWriteSection(log, PAutomaticUID("ModuleGreeting"), 1);
  section.Write(value);
  section.Close();
  log.MoveTo(0);
  return log;
}

TEST(PDynClass, RecordsOfALoadedModuleJoinTheFamilyAndLeaveItAtUnload) {
  const ULONG before = MessageFamily()->count;
  EXPECT_STREQ(GDynClassFindCLSIDName(MessageFamily(), PAutomaticUID("ModuleGreeting")),
               "Unknown object");
  std::string error;
  Module module = OpenModule(ModulePath(), &error);
  ASSERT_NE(module, nullptr) << error;
  EXPECT_EQ(MessageFamily()->count, before + 2);
  const PDynClass* greeting =
      GDynClassFindCLSIDHandler(MessageFamily(), PAutomaticUID("ModuleGreeting"));
  ASSERT_NE(greeting, nullptr);
  EXPECT_STREQ(greeting->ClassName(), "ModuleGreeting");
  const PDynClass* farewell =
      GDynClassFindCLSIDHandler(MessageFamily(), PAutomaticUID("ModuleFarewell"));
  ASSERT_NE(farewell, nullptr);
  EXPECT_EQ(farewell->DistanceTo(&PMessageData::dcobj_class), 2u);
  EXPECT_EQ(MessageFamily()->first, farewell); // the newest records
  EXPECT_TRUE(CloseModule(module));
  EXPECT_EQ(MessageFamily()->count, before);
  EXPECT_EQ(GDynClassFindCLSIDHandler(MessageFamily(), PAutomaticUID("ModuleGreeting")), nullptr);
  EXPECT_EQ(GDynClassFindCLSIDHandler(MessageFamily(), PAutomaticUID("ModuleFarewell")), nullptr);
}

TEST(PMessage, KindOfAModuleReadsBackWhileTheModuleIsLoadedAndIsUnknownAfter) {
  std::string error;
  Module module = OpenModule(ModulePath(), &error);
  ASSERT_NE(module, nullptr) << error;
  typedef LONG (*ValueFunction)(PMessageData*);
  ValueFunction value =
      reinterpret_cast<ValueFunction>(ModuleSymbol(module, "ModuleGreetingValue"));
  ASSERT_NE(value, nullptr);
  {
    PStream log = GreetingLog(77);
    PMessage message;
    EXPECT_EQ(message.ReadFrom(log), MessageReadKnown);
    EXPECT_STREQ(message.GetData()->DC_Name(), "ModuleGreeting");
    EXPECT_EQ(value(message.GetData()), 77);
  } // the module's payload goes before its module
  EXPECT_TRUE(CloseModule(module));
  PStream log = GreetingLog(78);
  PMessage message;
  EXPECT_EQ(message.ReadFrom(log), MessageReadUnknown);
  EXPECT_TRUE(message.IsEmpty());
  EXPECT_TRUE(log.IsAtEnd());
}

TEST(PMessage, ModuleThatCannotBeLoadedIsReported) {
  std::string error;
  EXPECT_EQ(OpenModule(qvbase::test::BinaryDir() + "/no-such-module" + ModuleSuffix(), &error),
            nullptr);
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(CloseModule(nullptr));
  EXPECT_EQ(ModuleSymbol(nullptr, "anything"), nullptr);
}

} // namespace

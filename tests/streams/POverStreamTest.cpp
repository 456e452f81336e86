// Over-stream handlers: forwarding to the stream beneath and preparing
// errors at the innermost layer.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/POverStream.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using qvbase::test::Caught;

// A memory handler that names itself in every error it prepares.
class TaggingMemoryHdl : public PMemoryStreamHdl {
public:
  TaggingMemoryHdl() : PMemoryStreamHdl(16) {}

protected:
  PError IOPrepareError(PError& error) override {
    PError prepared(error);
    prepared.SetStringInfo("preparedby", PMBString("memory"));
    return prepared;
  }
};

// A layer that raises an error of its own, as a section does, through its
// PrepareError.
class RaisingOverHdl : public POverStreamHdl {
public:
  explicit RaisingOverHdl(PStream& stream) : POverStreamHdl(stream) {}
  const PStream& Beneath() const { return m_stream; }
  ULONG OwnOpenMode() const { return m_openMode; }

  void RaiseOwnError() {
    PError error(kErrStreamOpenModeNotExact, ErrorSeverityAbort, "src\\PStreamSection", 1);
    PError own = PrepareError(error);
    PError prepared = PErrorProtectionStatus().PrepareError(own);
    PErrorProtectionStatus().SignalError(prepared);
  }
};

TEST(POverStream, ForwardsEveryOperationToTheStreamBeneath) {
  PMemoryStreamHdl* memory = new PMemoryStreamHdl(16);
  PStream base(memory);
  PStream over(new POverStreamHdl(base));
  over.Open(OpenReadWrite | OpenAllowEmpty);
  EXPECT_EQ(base.OpenMode(), OpenReadWrite | OpenAllowEmpty);
  EXPECT_EQ(over.OpenMode(), base.OpenMode());
  EXPECT_EQ(over.Write("abcdef", 3, 2), 3u);
  EXPECT_EQ(base.GetPos(), 6u);
  over.MoveTo(2);
  EXPECT_EQ(base.GetPos(), 2u);
  char buffer[4] = {};
  EXPECT_EQ(over.Read(buffer, 2, 1), 2u);
  EXPECT_EQ(std::string(buffer, 2), "cd");
  over.MoveFwd(1);
  over.MoveBack(2);
  EXPECT_EQ(over.GetPos(), 3u);
  over.MoveFromEnd(1);
  EXPECT_EQ(over.GetPos(), 5u);
  EXPECT_FALSE(over.IsAtEnd());
  over.SetSize(4);
  EXPECT_EQ(base.GetSize(), 4u);
  EXPECT_EQ(over.GetSize(), 4u);
  EXPECT_TRUE(over.IsAtEnd());
  over.Flush();
  over.MoveTo(0); // the scratch content is not kept across a mode change
  over.SetOpenMode(OpenWrite);
  EXPECT_EQ(base.OpenMode(), OpenWrite);
  over.Close();
  EXPECT_EQ(base.OpenMode(), 0u);
}

TEST(POverStream, SharesTheHandlerAndOrderingOfTheStreamGiven) {
  PStream base(new PMemoryStreamHdl);
  base.SetByteOrdering(kByteOrderingMotorola);
  RaisingOverHdl* over = new RaisingOverHdl(base);
  PStream layered(over);
  EXPECT_EQ(over->Beneath().GetHandler(), base.GetHandler());
  EXPECT_EQ(over->Beneath().GetByteOrdering(), kByteOrderingMotorola);
  EXPECT_EQ(base.GetHandler()->NumSmartLocks(), 2u);
  EXPECT_EQ(over->OwnOpenMode(), 0u);
}

TEST(POverStream, AvailableModesComeFromTheHandlerBeneath) {
  PStream base(new PMemoryStreamHdl);
  PStream over(new POverStreamHdl(base));
  EXPECT_EQ(over.GetHandler()->GetAvailableOpenModes(), 0x30000000u);
  PStream empty;
  PStream overNothing(new POverStreamHdl(empty));
  EXPECT_EQ(overNothing.GetHandler()->GetAvailableOpenModes(), 0u);
  EXPECT_EQ(overNothing.OpenMode(), 0u);
}

TEST(POverStream, ErrorOfTheStreamBeneathReachesTheCaller) {
  PStream base(new TaggingMemoryHdl);
  PStream over(new POverStreamHdl(base));
  PError thrown = Caught([&] { over.Close(); });
  EXPECT_EQ(thrown.Code(), kErrStreamClosed);
  EXPECT_STREQ(thrown.File(), "src\\PMemoryStream");
  EXPECT_STREQ(static_cast<const char*>(thrown.GetStringInfo("preparedby", "")), "memory");
}

TEST(POverStream, ErrorRaisedByALayerIsPreparedByTheMemoryHandlerBeneath) {
  PStream base(new TaggingMemoryHdl);
  RaisingOverHdl* over = new RaisingOverHdl(base);
  PStream layered(over);
  PError thrown = Caught([&] { over->RaiseOwnError(); });
  EXPECT_EQ(thrown.Code(), kErrStreamOpenModeNotExact);
  EXPECT_STREQ(thrown.File(), "src\\PStreamSection");
  EXPECT_STREQ(static_cast<const char*>(thrown.GetStringInfo("preparedby", "")), "memory");
  // The front object's preparation goes the same way.
  PError error(1, ErrorSeverityAbort);
  EXPECT_TRUE(layered.PrepareError(error).HasStringInfo("preparedby"));
}

TEST(POverStream, StackedLayersArePreparedByTheInnermostHandler) {
  PStream base(new TaggingMemoryHdl);
  PStream middle(new POverStreamHdl(base));
  RaisingOverHdl* top = new RaisingOverHdl(middle);
  PStream layered(top);
  PError thrown = Caught([&] { top->RaiseOwnError(); });
  EXPECT_TRUE(thrown.HasStringInfo("preparedby"));
}

TEST(POverStream, LayerOverAStreamWithoutHandlerRaises1220) {
  PStream empty;
  PStream over(new POverStreamHdl(empty));
  PError thrown = Caught([&] { over.Open(OpenWrite); });
  EXPECT_EQ(thrown.Code(), kErrStreamNoHandler);
  EXPECT_EQ(thrown.Severity(), ErrorSeverityFatal);
}

} // namespace

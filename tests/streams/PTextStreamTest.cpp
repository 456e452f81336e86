// Text streams: the handler reference, counted as streams count it.
#include <qvbase/PMemoryStream.h>
#include <qvbase/PTextStream.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// A memory handler that reports its destruction and whether it was closed.
class ObservedHdl : public PMemoryStreamHdl {
public:
  ObservedHdl(int* destroyed, std::vector<std::string>* stored)
      : m_destroyed(destroyed), m_stored(stored) {}
  ~ObservedHdl() override { ++*m_destroyed; }

protected:
  void MemoryWrite(const char* data, ULONG size) override { m_stored->emplace_back(data, size); }

private:
  int* m_destroyed;
  std::vector<std::string>* m_stored;
};

TEST(PTextStream, CountsItsHandlerAsAStreamDoes) {
  int destroyed = 0;
  std::vector<std::string> stored;
  ObservedHdl* handler = new ObservedHdl(&destroyed, &stored);
  {
    PTextStream first(handler);
    EXPECT_EQ(handler->NumSmartLocks(), 1u);
    {
      PTextStream second(first);
      PTextStream third;
      third = second;
      EXPECT_EQ(handler->NumSmartLocks(), 3u);
      third = third;
      EXPECT_EQ(handler->NumSmartLocks(), 3u);
    }
    EXPECT_EQ(handler->NumSmartLocks(), 1u);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(PTextStream, SharesItsHandlerWithStreams) {
  int destroyed = 0;
  std::vector<std::string> stored;
  ObservedHdl* handler = new ObservedHdl(&destroyed, &stored);
  PTextStream text(handler);
  {
    PStream stream(handler);
    EXPECT_EQ(handler->NumSmartLocks(), 2u);
  }
  EXPECT_EQ(destroyed, 0);
  text = PTextStream();
  EXPECT_EQ(destroyed, 1);
}

TEST(PTextStream, LastReferenceClosesAnOpenHandler) {
  int destroyed = 0;
  std::vector<std::string> stored;
  ObservedHdl* handler = new ObservedHdl(&destroyed, &stored);
  {
    PTextStream text(handler);
    PStream stream(handler);
    stream.Open(OpenWrite);
    stream.Write("line", 4, 1);
  }
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(stored, std::vector<std::string>{"line"});
}

} // namespace

// The messaging examples: a listener tree recorded in a log file that
// qvdump shows and a fresh tree replays, and worker threads whose results
// reach the main loop through a port.
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qvbase::test::Lines;

TEST(MessageLogExample, RecordsTheTreesTrafficAndReplaysItIntoAFreshTree) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("traffic.qvd");
  qvbase::test::RunResult r =
      qvbase::test::Run({qvbase::test::BuiltProgram("qvbase_message_log"), path});
  ASSERT_EQ(r.status, 0) << r.err;
  // The urgent alarm first; the siren consumes it. The broadcast reaches the
  // house (a top-level broadcaster) and the top-level monitor.
  const std::string delivered = "  siren received alarm level 3 \"smoke in the kitchen\"\n"
                                "  thermostat received temperature kitchen 21.5 C\n"
                                "  diary received temperature kitchen 21.5 C\n"
                                "  thermostat received temperature hall 19.8 C\n"
                                "  diary received temperature hall 19.8 C\n";
  EXPECT_EQ(Lines(r.out), "recording:\n" + delivered +
                              "  monitor received temperature hall 19.8 C\n"
                              "saved 139 bytes to " +
                              path + "\nreplaying " + path + ":\n" + delivered +
                              "replayed, 0 of an unknown kind\n");
  EXPECT_EQ(qvbase::test::ReadFile(path).size(), 139u);

  qvbase::test::RunResult dump = qvbase::test::Run({qvbase::test::BuiltProgram("qvdump"), path});
  ASSERT_EQ(dump.status, 0) << dump.err;
  EXPECT_EQ(Lines(dump.out),
            "0 {40000000-976C-E2F0-0000-0000000000D0} \"Alarm\" version 2 size 56\n"
            "56 {76978E76-C74A-87A9-0000-0000000040EA} \"Temperature\" version 1 size 43\n"
            "99 {76978E76-C74A-87A9-0000-0000000040EA} \"Temperature\" version 1 size 40\n");
}

TEST(WorkerPortExample, EveryResultReachesTheMainLoopInEachWorkersOrder) {
  qvbase::test::RunResult r = qvbase::test::Run({qvbase::test::BuiltProgram("qvbase_worker_port")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(r.out),
            "worker 1: job 1 = 506 job 2 = 650 job 3 = 819 job 4 = 1015 job 5 = 1240\n"
            "worker 2: job 1 = 3311 job 2 = 3795 job 3 = 4324 job 4 = 4900 job 5 = 5525\n"
            "worker 3: job 1 = 10416 job 2 = 11440 job 3 = 12529 job 4 = 13685 job 5 = 14910\n"
            "15 results on the main thread, none waiting\n");
}

} // namespace

// Opening, streaming and closing over TLS leaves nothing behind.
#include <malloc.h>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

namespace {

struct Use {
  int threads;
  int descriptors;
  size_t bytes;
};

Use useNow() { return {support::threadCount(), support::descriptorCount(), mallinfo2().uordblks}; }

TEST(HttpMemory, HundredRoundsOfTlsLeaveNothingBehind) {
  const support::TestCertificate own;
  support::FaultServer server(own.certificate(), own.key());
  server.on("/a", support::serveRanges(100000));
  Use first{};
  Use last{};
  support::Watchdog watchdog(60, [] { return std::string("rounds of TLS"); });
  for (int round = 0; round < 20 + support::scaled(100); ++round) {
    {
      ApiFile file(server.url("/a"), 4 * FVFR_BUFFER_BLOCK);
      ASSERT_TRUE(file.restIsPattern(0, 100000, 30000));
    }
    ASSERT_TRUE(server.waitUntilIdle());
    watchdog.at("round " + std::to_string(round));
    last = useNow();
    if (round == 20) first = last;
  }
  // The count includes what this test's server keeps of each request.
  EXPECT_LT(last.bytes, first.bytes + 200 * 1024);
  EXPECT_TRUE(support::eventually([&] { return useNow().threads <= first.threads; }));
  EXPECT_TRUE(support::eventually([&] { return useNow().descriptors <= first.descriptors; }));
}

}  // namespace

// The link that simulates a long way to the server.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/SlowLink.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

namespace {

std::string through(const support::SlowLink& link) {
  return "http://127.0.0.1:" + std::to_string(link.port()) + "/film";
}

TEST(SlowLink, BytesTakeTheRateAndTheRoundTrip) {
  support::FaultServer server;
  server.on("/film", support::serveRanges(500000));
  support::SlowLink link(server.port(), 100, 1000000);
  ApiFile file(through(link));
  const support::Stopwatch watch;
  EXPECT_TRUE(file.readsPattern(0, 1));
  EXPECT_GE(watch.seconds(), 0.2) << "a connection and a request, one round trip each";
  EXPECT_TRUE(file.readsPattern(1, 499999));
  EXPECT_GE(watch.seconds(), 0.65) << "half a second of link more, but for what was lent";
  EXPECT_GE(link.bytesDown(), 500000);
  EXPECT_EQ(link.connectionCount(), 1);
}

TEST(SlowLink, EndOfTheClientReachesTheServer) {
  support::FaultServer server;
  server.on("/film", support::serveRanges(1LL << 40));
  support::SlowLink link(server.port(), 0, 1000000);
  {
    ApiFile file(through(link));
    EXPECT_TRUE(file.readsPattern(0, 100000));
  }
  EXPECT_TRUE(server.waitUntilIdle());
}

TEST(SlowLink, EndsWhileBytesAreOnTheWay) {
  support::FaultServer server;
  server.on("/film", support::serveRanges(1LL << 40));
  ApiFile* file = nullptr;
  {
    support::SlowLink link(server.port(), 1000, 1000000);
    file = new ApiFile(through(link));
    int id = 0;
    support::Completions done;
    char byte = 0;
    EXPECT_EQ(x_fluvia_file_read_async(file->handle, &byte, 1, &support::Completions::completed,
                                       &done, &id),
              FVFR_OK);
    EXPECT_TRUE(support::eventually([&] { return link.connectionCount() == 1; }));
    file->close();
  }
  delete file;
}

}  // namespace

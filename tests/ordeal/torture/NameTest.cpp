// How long the address of a host name is cached.
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <thread>

#include "tests/ordeal/torture/Interpose.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/SessionProbe.h"

namespace {

using torture::Point;

// Advances all clocks by that many seconds.
void pass(int seconds) {
  const time_t until = time(nullptr) + seconds;
  torture::setClockSpeed(200);
  while (time(nullptr) < until) std::this_thread::yield();
  torture::setClockSpeed(1);
}

TEST(Name, IsLookedUpAgainAfterAMinute) {
  support::FaultServer server;
  server.on("/a", support::serveRanges(10));
  const std::string url =
      std::string("http://") + torture::kHostName + ":" + std::to_string(server.port()) + "/a";
  const auto lookUps = [&url] {
    support::SessionProbe probe;
    torture::arm(Point::kResolve, 0, 0);
    EXPECT_EQ(probe.get(url), 0);
    return torture::disarm();
  };
  EXPECT_EQ(lookUps(), 1);
  EXPECT_EQ(lookUps(), 0);
  pass(30);
  EXPECT_EQ(lookUps(), 0);
  pass(40);
  EXPECT_EQ(lookUps(), 1);
}

}  // namespace

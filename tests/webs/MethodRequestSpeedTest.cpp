// The speed that a session measures and keeps to.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/Watchdog.h"

namespace {

using support::FaultServer;
using support::SessionProbe;

TEST(MethodRequestSpeed, ReportsTheAverageUntilAWindowHasClosed) {
  FaultServer server;
  server.on("/a", support::drip(3000, 1000, 150));
  support::CapturedStderr log(0);
  SessionProbe probe;
  probe.get(server.url("/a"));
  const long long speed = probe.session.getSpeed();
  EXPECT_GT(speed, 500);
  EXPECT_LT(speed, 30000);
  EXPECT_NE(log.text().find(", show cal_avg_speed :" + std::to_string(speed)), std::string::npos);
}

TEST(MethodRequestSpeed, ReportsTheSmoothedRateOnceAWindowHasClosed) {
  FaultServer server;
  server.on("/a", support::drip(15000, 1000, 100));
  support::CapturedStderr log(0);
  SessionProbe probe;
  probe.get(server.url("/a"));
  const long long speed = probe.session.getSpeed();
  EXPECT_GT(speed, 3000);
  EXPECT_LT(speed, 11000);
  EXPECT_NE(log.text().find("show dash_speed :" + std::to_string(speed) + "  cal_avg_speed :"),
            std::string::npos);
  EXPECT_NE(log.text().find(" Bytes/s, im_speed is "), std::string::npos);
}

TEST(MethodRequestSpeed, NothingYetIsLibcurlsFigure) {
  support::CapturedStderr log(0);
  SessionProbe probe;
  EXPECT_EQ(probe.session.getSpeed(), 0);
  EXPECT_NE(log.text().find("show avg_speed :0"), std::string::npos);
}

TEST(MethodRequestSpeed, CapHoldsOnTheAverage) {
  FaultServer server;
  server.on("/a", support::serveRanges(200000));
  SessionProbe probe;
  probe.session.setSpeed(100000);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/a")), 0);
  EXPECT_GE(watch.seconds(), 1.95);
  EXPECT_LT(watch.seconds(), support::patience(5));
}

}  // namespace

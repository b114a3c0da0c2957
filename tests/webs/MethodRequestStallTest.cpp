// Transfers on which nothing comes.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <thread>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pattern.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/Watchdog.h"

namespace {

// Seconds that the wall clock is wrong by.
std::atomic<long> clockError{0};

}  // namespace

// Takes the place of the C library's function for the session.
extern "C" __attribute__((visibility("default"))) int gettimeofday(struct timeval* time,
                                                                   void* zone) noexcept {
  using Function = int (*)(struct timeval*, void*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "gettimeofday"));
  const int result = real(time, zone);
  time->tv_sec += clockError;
  return result;
}

namespace {

using support::FaultServer;
using support::SessionProbe;

TEST(MethodRequestStall, SilenceBeforeTheFirstByteEndsAfterTenSeconds) {
  FaultServer server;
  server.on("/s", support::staySilent());
  support::CapturedStderr log(2);
  SessionProbe probe(1);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -2);
  EXPECT_GE(watch.seconds(), 9.99) << "the short time-outs are for the data phase";
  EXPECT_LT(watch.seconds(), support::patience(13));
  EXPECT_NE(log.text().find(" s No data in, don't wait anymaore..."), std::string::npos);
  EXPECT_NE(log.text().find(" s No data in\n"), std::string::npos);
}

TEST(MethodRequestStall, SilenceMidBodyEndsAfterTenSeconds) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  SessionProbe probe;
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -2);
  EXPECT_GE(watch.seconds(), 9.99);
  EXPECT_LT(watch.seconds(), support::patience(13));
}

TEST(MethodRequestStall, ShortTimeoutsEndSilenceMidBodyAfterFourSeconds) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  support::CapturedStderr log(2);
  SessionProbe probe(1);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -2);
  EXPECT_GE(watch.seconds(), 3.99);
  EXPECT_LT(watch.seconds(), support::patience(7));
  EXPECT_NE(log.text().find("Too long time no data comes, the connection is die, disconnect"),
            std::string::npos);
  EXPECT_NE(log.text().find("The http connection speed is low and "), std::string::npos);
}

TEST(MethodRequestStall, BreakEndsAStallAfterTwoSecondsOnce) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  support::CapturedStderr log(2);
  SessionProbe probe(1);
  probe.session.setBreak();
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -1);
  EXPECT_GE(watch.seconds(), 1.99);
  EXPECT_LT(watch.seconds(), support::patience(5));
  EXPECT_NE(log.text().find(" s no data comes, customer cancel read"), std::string::npos);
  EXPECT_EQ(probe.get(server.url("/s")), -2) << "the request was used up";
}

TEST(MethodRequestStall, BreakEndsTheConnectionPhaseToo) {
  FaultServer server;
  server.on("/s", support::staySilent());
  SessionProbe probe;
  probe.session.setBreak();
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -1);
  EXPECT_GE(watch.seconds(), 1.99);
  EXPECT_LT(watch.seconds(), support::patience(5));
}

TEST(MethodRequestStall, ClockSetBackStartsTheWatchAgain) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  SessionProbe probe(1);
  probe.start(server.url("/s"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  support::CapturedStderr log(-4);
  const support::Stopwatch watch;
  while (log.text().find("connection speed is low") == std::string::npos && watch.seconds() < 20) {
    std::this_thread::yield();
  }
  clockError = -1000;
  EXPECT_EQ(probe.join(), -2);
  clockError = 0;
  EXPECT_LT(watch.seconds(), support::patience(12)) << "a watch that counts backwards never ends";
}

TEST(MethodRequestStall, DripKeepsATransferAlive) {
  FaultServer server;
  server.on("/d", support::drip(6, 1, 900));
  SessionProbe probe(1);
  EXPECT_EQ(probe.get(server.url("/d")), 0);
  EXPECT_EQ(probe.receiver.body(), support::pattern(0, 6));
}

}  // namespace

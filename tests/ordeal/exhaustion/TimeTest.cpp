// Time: a wall clock that is set, and a player that sleeps.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

namespace {
std::atomic<long> clockSetBy{0};  // seconds
}

// Replaces the system's function in this program: a clock that can be set.
extern "C" int gettimeofday(struct timeval* now, void*) noexcept {
  struct timespec real = {};
  clock_gettime(CLOCK_REALTIME, &real);
  now->tv_sec = real.tv_sec + clockSetBy;
  now->tv_usec = real.tv_nsec / 1000;
  return 0;
}

namespace {

using support::FaultServer;

class Time : public ::testing::Test {
 protected:
  void SetUp() override {
    support::silenceStderr();
    clockSetBy = 0;
  }
  void TearDown() override { clockSetBy = 0; }
};

TEST_F(Time, ClockSetBackAgainAndAgainDuringATransferCostsNothing) {
  constexpr long long kSize = 2000000;
  FaultServer server;
  server.on("/a", support::drip(kSize, 20000, 3));
  ApiFile file(server.url("/a"), 98304);
  x_fluvia_file_http_set_speed(file.handle, 5000000);  // the limiter reads the clock too
  const support::Stopwatch watch;
  for (long long at = 0; at < kSize; at += 20000) {
    ASSERT_TRUE(file.readsPattern(at, 20000));
    clockSetBy = clockSetBy - 10;
  }
  EXPECT_EQ(server.requestCount("/a"), 1);
  EXPECT_GE(x_fluvia_file_http_get_speed(file.handle), 0);
  EXPECT_LT(watch.seconds(), 60);
}

TEST_F(Time, StallIsFoundAlsoWhenTheClockIsSetBackDuringIt) {
  FaultServer server;
  std::atomic<bool> settled{false};
  server.on("/a", support::stallAndTell(1000000, 50000, &settled));
  ApiFile file(server.url("/a"), 98304);
  x_fluvia_file_set_featureflag(file.handle, 1);  // four seconds
  EXPECT_TRUE(file.readsPattern(0, 50000));
  ASSERT_TRUE(support::eventually([&] { return settled.load(); }, 30));
  clockSetBy = -1000;
  const support::Stopwatch watch;
  EXPECT_TRUE(file.readsPattern(50000, 1000));
  EXPECT_EQ(server.requestCount("/a"), 2);
  EXPECT_LT(watch.seconds(), 60);
}

// The watches count wall-clock time in 32 bits of microseconds. Ten seconds forward between two
// pieces, or more than 35 minutes back, are a stall to them.
TEST_F(Time, ClockSetForwardNeverGivesAWrongByteOrAHang) {
  constexpr long long kSize = 2000000;
  FaultServer server;
  server.on("/a", support::drip(kSize, 20000, 3));
  {
    ApiFile file(server.url("/a"), 98304);
    long long at = 0;
    while (at < kSize) {
      const std::string bytes = file.read(20000);
      ASSERT_LT(
          support::firstDifference(static_cast<unsigned long long>(at), bytes.data(), bytes.size()),
          0);
      at += static_cast<long long>(bytes.size());
      if (file.last != FVFR_OK) break;
      clockSetBy = clockSetBy + 3600;
    }
    if (at < kSize) {
      EXPECT_TRUE(file.last == FVFR_NOT_FOUND || file.last == FVFR_FAILED) << file.last;
      EXPECT_EQ(file.status(), FVFR_DOWNLOAD_NO_DATA);
    }
  }
  ApiFile again(server.url("/a"), 98304);
  EXPECT_TRUE(again.restIsPattern(0, kSize, 30000));
}

// The server waits as long as the player: the first connection still stands.
TEST_F(Time, ReaderThatSleptReadsOn) {
  const char* seconds = getenv("FLUVIA_SLEEP_SECONDS");
  if (seconds == nullptr) GTEST_SKIP() << "FLUVIA_SLEEP_SECONDS says how long";
  constexpr long long kSize = 20000000;
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ApiFile file(server.url("/a"), 98304);
  EXPECT_TRUE(file.readsPattern(0, 1000000));
  sleep(static_cast<unsigned int>(atoi(seconds)));
  EXPECT_TRUE(file.restIsPattern(1000000, kSize, 100000));
  EXPECT_EQ(server.requestCount("/a"), 1);
}

}  // namespace

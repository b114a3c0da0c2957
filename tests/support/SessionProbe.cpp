#include "tests/support/SessionProbe.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Behaviours.h"
#include "tests/support/Watchdog.h"

namespace support {

SessionProbe::SessionProbe(int featureFlag) {
  if (featureFlag != -1) session.setMethodFeatureFlag(featureFlag);
  session.initialize(&receiver, "");
}

SessionProbe::~SessionProbe() {
  session.stop();
  join();
}

int SessionProbe::get(const std::string& url, long long start, long long end) {
  return session.executeGet(url, start, end, 1);
}

void SessionProbe::start(const std::string& url) {
  runner = std::thread([=] { result = session.executeGet(url, 0, 0, 1); });
}

int SessionProbe::join() {
  if (runner.joinable()) runner.join();
  return result;
}

testing::AssertionResult stopsAtOnce(FaultServer* server, long long count) {
  constexpr double kAtOnce = 0.3;
  SessionProbe probe;
  double seconds = 0;
  for (int round = 0; round < 3; ++round) {
    std::atomic<bool> settled{false};
    server->on("/s", stallAndTell(100000, count, &settled));
    probe.start(server->url("/s"));
    EXPECT_TRUE(eventually([&] { return settled.load(); }));
    const Stopwatch watch;
    probe.session.stop();
    seconds = watch.seconds();
    EXPECT_EQ(probe.join(), kAborted) << count;
    EXPECT_TRUE(server->waitUntilIdle());
    if (seconds < kAtOnce) return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "the last stop took " << seconds << " s";
}

}  // namespace support

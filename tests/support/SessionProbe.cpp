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

double shortestStop(FaultServer* server) {
  SessionProbe probe;
  double shortest = 1000;
  for (const long long count : {-1LL, 0LL, 1000LL}) {
    std::atomic<bool> settled{false};
    server->on("/s", stallAndTell(100000, count, &settled));
    probe.start(server->url("/s"));
    EXPECT_TRUE(eventually([&] { return settled.load(); }));
    const Stopwatch watch;
    probe.session.stop();
    shortest = std::min(shortest, watch.seconds());
    EXPECT_EQ(probe.join(), kAborted) << count;
    EXPECT_TRUE(server->waitUntilIdle());
  }
  return shortest;
}

}  // namespace support

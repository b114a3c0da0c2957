// Stopped transfers.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/webs/TestResolver.h"

namespace {

using support::FaultServer;
using support::kAborted;
using support::SessionProbe;

// Before the first byte of the response, before the body, and in it: each has its own limit.
class MethodRequestSilence : public testing::TestWithParam<int> {};

TEST_P(MethodRequestSilence, IsStoppedAtOnce) {
  FaultServer server;
  EXPECT_TRUE(support::stopsAtOnce(&server, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Bytes, MethodRequestSilence, testing::Values(-1, 0, 1000));

// A server that waits until it may send more does not notice an orderly end.
TEST(MethodRequestStop, ResetsTheConnection) {
  FaultServer server;
  std::atomic<bool> reset{false};
  server.on("/s", [&](support::Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
    exchange.sendPattern(0, 10);
    reset = exchange.waitForReset();
  });
  SessionProbe probe;
  probe.start(server.url("/s"));
  ASSERT_TRUE(probe.receiver.waitForBytes(10));
  probe.session.stop();
  EXPECT_EQ(probe.join(), kAborted);
  EXPECT_TRUE(server.waitUntilIdle(30));
  EXPECT_TRUE(reset);
}

TEST(MethodRequestStop, EndsAConnectThatNobodyAnswers) {
  support::FullListener listener;
  SessionProbe probe;
  probe.session.arm();
  probe.start("http://127.0.0.1:" + std::to_string(listener.port()) + "/");
  const support::Stopwatch watch;
  probe.session.stop();
  EXPECT_LT(watch.seconds(), support::patience(5)) << "the connect's own limit is ten seconds";
  EXPECT_EQ(probe.join(), kAborted);
}

TEST(MethodRequestStop, DoesNotWaitForTheNameResolver) {
  test_resolver::held = true;
  double shortest = 1000;
  for (int round = 0; round < 2; ++round) {
    SessionProbe probe;
    const int before = test_resolver::begun;
    probe.start("http://slow.test/");
    ASSERT_TRUE(support::eventually([&] { return test_resolver::begun > before; }));
    const support::Stopwatch watch;
    probe.session.stop();
    shortest = std::min(shortest, watch.seconds());
    EXPECT_EQ(probe.join(), kAborted);
  }
  EXPECT_LT(shortest, 2) << "the resolver takes five seconds";
  test_resolver::held = false;
  EXPECT_TRUE(support::eventually([] { return test_resolver::over == test_resolver::begun; }));
}

TEST(MethodRequestStop, CutBodyWithoutALengthSetsNoSize) {
  FaultServer server;
  server.on("/live", support::serveLive(5000));
  SessionProbe probe;
  probe.start(server.url("/live"));
  ASSERT_TRUE(probe.receiver.waitForBytes(5000));
  probe.session.stop();
  EXPECT_EQ(probe.join(), kAborted);
  EXPECT_EQ(probe.session.getFileSize(), 0);
}

TEST(MethodRequestStop, AnnouncedTransferIsEndedBeforeItOpensASocket) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  SessionProbe probe;
  probe.session.arm();
  std::thread stopper([&] { probe.session.stop(); });
  EXPECT_TRUE(support::eventually([&] { return !probe.session.isActive(); }));
  EXPECT_EQ(probe.get(server.url("/a")), kAborted);
  stopper.join();
  EXPECT_EQ(server.connectionCount(), 0);
  EXPECT_EQ(probe.get(server.url("/a")), 0) << "the next one runs";
}

TEST(MethodRequestStop, SecondCallerWaitsToo) {
  FaultServer server;
  server.on("/a", support::serveRanges(100000));
  SessionProbe probe;
  std::atomic<bool> release{false};
  std::atomic<bool> left{false};
  std::atomic<bool> entered{false};
  probe.receiver.onPiece = [&](void*, int size) {
    entered = true;
    support::eventually([&] { return release.load(); });
    left = true;
    return size;
  };
  probe.start(server.url("/a"));
  ASSERT_TRUE(support::eventually([&] { return entered.load(); }));
  std::thread first([&] { probe.session.stop(); });
  EXPECT_TRUE(support::eventually([&] { return !probe.session.isActive(); }));
  std::thread second([&] {
    probe.session.stop();
    EXPECT_TRUE(left) << "the transfer was still inside the receiver";
  });
  std::this_thread::yield();
  release = true;
  first.join();
  second.join();
  EXPECT_EQ(probe.join(), kAborted);
}

TEST(MethodRequestStop, CutsALimitersSleepShort) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000000));
  SessionProbe probe;
  probe.session.setSpeed(100);
  probe.start(server.url("/a"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1));
  const support::Stopwatch watch;
  probe.session.stop();
  EXPECT_LT(watch.seconds(), support::patience(10)) << "the first piece is worth minutes of sleep";
  EXPECT_EQ(probe.join(), kAborted);
}

TEST(MethodRequestStop, NeverTouchesADescriptorThatWasClosed) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  SessionProbe probe;
  probe.get(server.url("/a"));
  // The lowest free descriptors are reused first: one of these was the session's.
  int pairs[8][2];
  for (auto& pair : pairs) ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  server.on("/s", support::staySilent());
  probe.start(server.url("/s"));
  ASSERT_TRUE(server.waitForRequests("/s", 1));
  probe.session.stop();
  for (auto& pair : pairs) {
    EXPECT_EQ(write(pair[0], "x", 1), 1);
    EXPECT_EQ(write(pair[1], "x", 1), 1);
    close(pair[0]);
    close(pair[1]);
  }
}

}  // namespace

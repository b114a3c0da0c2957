// Stopped runs.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/IsPattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/Watchdog.h"
#include "webs/HttpFileRequest.h"

namespace {

using support::FaultServer;
using support::isPattern;
using support::ProducerProbe;
using webs::HttpFileRequest;
using Events = std::vector<int>;

constexpr long long kSize = 200000;

TEST(HttpFileRequestStop, ReturnsAfterTheCancelEvent) {
  FaultServer server;
  server.on("/a", support::stallAfter(kSize, 1000));
  ProducerProbe probe(server.url("/a"));
  probe.start(1, 0, 0);
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  const support::Stopwatch watch;
  probe.producer.stopStreaming();
  EXPECT_LT(watch.seconds(), support::patience(5)) << "the stall watch ended it";
  EXPECT_EQ(probe.receiver.events(), (Events{0, 7}));
}

TEST(HttpFileRequestStop, StoppedProducerRunsAgain) {
  FaultServer server;
  server.on("/a", support::inTurn({support::stallAfter(kSize, 1000), support::serveRanges(kSize)}));
  ProducerProbe probe(server.url("/a"));
  probe.start(1, 0, 0);
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  probe.producer.stopStreaming();
  EXPECT_EQ(probe.run(2, 1000, 0), (Events{3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 0, kSize));
}

TEST(HttpFileRequestStop, WithoutARunReturnsAtOnce) {
  FaultServer server;
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.producer.stopStreaming(), 0);
  EXPECT_TRUE(probe.receiver.events().empty());
}

TEST(HttpFileRequestStop, ReceiverThatFollowsAfterAnAnnouncedStopIsLetGo) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ProducerProbe probe(server.url("/a"));
  // As the buffer queue does when it opens a fragment: announces the stop, refuses the data.
  probe.receiver.onPiece = [&] {
    probe.producer.setStopWait();
    probe.receiver.refuseAfter = 0;
  };
  probe.start(1, 0, 0);
  ASSERT_TRUE(support::eventually([&] { return probe.producer.getStopWait(); }));
  EXPECT_EQ(probe.receiver.events(), (Events{0})) << "the transfer waits for the stop";
  probe.producer.stopStreaming();
  EXPECT_EQ(probe.receiver.events(), (Events{0, 7}));
  EXPECT_FALSE(probe.producer.getStopWait());
}

TEST(HttpFileRequestStop, AnnouncementThatComesAfterTheStopHoldsNothingUp) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ProducerProbe probe(server.url("/a"));
  std::atomic<bool> inPiece{false};
  std::atomic<bool> goOn{false};
  probe.receiver.onPiece = [&] {
    inPiece = true;
    support::eventually([&] { return goOn.load(); });
    probe.producer.setStopWait();
  };
  probe.start(1, 0, 0);
  EXPECT_TRUE(support::eventually([&] { return inPiece.load(); }));
  support::CapturedStderr log(1);
  std::thread stopper([&] { probe.producer.stopStreaming(); });
  EXPECT_TRUE(
      support::eventually([&] { return log.has("stop: notify curl to stop and wait stop end"); }));
  goOn = true;
  stopper.join();
  EXPECT_EQ(probe.receiver.events().back(), util::STREAM_CANCELED);
}

// Everything except starting and stopping works while the run is parked in its last event.
TEST(HttpFileRequestStop, ParkedEventHoldsUpOnlyTheStop) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000));
  ProducerProbe probe(server.url("/a"));
  probe.receiver.parkOn = util::EVENT_STREAM_PARTIAL_END;
  probe.start(1, 0, 0);
  ASSERT_TRUE(probe.receiver.waitForEvent(util::EVENT_STREAM_PARTIAL_END));
  std::atomic<bool> done{false};
  std::thread caller([&] {
    HttpFileRequest& producer = probe.producer;
    char text[16];
    int length = 0;
    producer.getContentSize();
    producer.isRandomAccess();
    producer.getDownloadStatus();
    producer.setBreak();
    producer.getStopWait();
    producer.setStopWait();
    producer.setUserAgent("a");
    producer.setProxy("");
    producer.setCookie("c");
    producer.setCAPath("/");
    producer.setCA("/");
    producer.setClientAuthertication("x");
    producer.setPrivateKey("x");
    producer.setKeyType("PEM");
    producer.setIpResolve("IPv4");
    producer.setFeatureFlag(1);
    producer.setSpeed(1);
    producer.getSpeed();
    producer.getContentType();
    producer.getServerName();
    producer.getUrlIP(text);
    producer.getResponseHeader(nullptr, 0, &length);
    done = true;
  });
  EXPECT_TRUE(support::eventually([&] { return done.load(); }))
      << "one of them waits for the transfer";
  probe.receiver.unpark();
  caller.join();
}

#if defined(FLUVIA_PAUSE_POINTS)

// Holds a run at a pause point while it is stopped.
void stopAt(const char* point, const Events& expected) {
  FaultServer server;
  server.on("/a", support::staySilent());
  support::Pauses pauses;
  pauses.holdAt(point);
  support::CapturedStderr log(1);
  ProducerProbe probe(server.url("/a"));
  probe.start(1, 0, 0);
  ASSERT_TRUE(pauses.reached(point));
  const support::Stopwatch watch;
  std::thread stopper([&] { probe.producer.stopStreaming(); });
  EXPECT_TRUE(support::eventually([&] {
    return log.has("stop: MethodRequest begin to stop active = 0") ||
           log.has("stop: notify curl to stop and wait stop end");
  }));
  pauses.release(point);
  stopper.join();
  probe.join();
  EXPECT_LT(watch.seconds(), support::patience(5))
      << "the stop was lost and the stall watch had to end the run";
  EXPECT_EQ(probe.receiver.events(), expected);
  EXPECT_EQ(log.count("sendRequest: aborted by callback :42"), static_cast<int>(expected.size()));
  EXPECT_EQ(server.connectionCount(), 0);
}

TEST(HttpFileRequestStop, BeforeTheRequestIsTakenUpEndsTheRunSilently) {
  support::CapturedStderr log(0);
  stopAt("HttpFileRequest::startStreaming before sendRequest", {});
}

TEST(HttpFileRequestStop, BetweenTheRequestAndItsTransferIsNotLost) {
  stopAt("HttpFileRequest::sendRequest before executeGet", {7});
}

#endif

}  // namespace

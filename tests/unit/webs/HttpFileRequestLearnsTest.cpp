// The size and seekability learnt from the first response.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pauses.h"
#include "webs/HttpFileRequest.h"

namespace {

using support::FaultServer;
using support::ProducerProbe;
using util::UNKNOWN_CONTENT_SIZE;
using Events = std::vector<int>;

constexpr long long kSize = 200000;

struct Learnt {
  long long size;
  bool seekable;
};

Learnt learn(const support::Behaviour& behaviour, Events expected = {0}) {
  FaultServer server;
  server.on("/a", behaviour);
  ProducerProbe probe(server.url("/a"));
  Learnt learnt{-7, false};
  probe.receiver.onEvent = [&](int event) {
    if (event == util::STREAM_NORMAL) {
      learnt = {probe.producer.getContentSize(), probe.producer.isRandomAccess()};
    }
  };
  const Events events = probe.run(1, 0, 0);
  EXPECT_EQ(events.front(), expected.front());
  return learnt;
}

TEST(HttpFileRequestLearns, SizeFromTheLengthLine) {
  const Learnt learnt = learn(support::serveRanges(1234));
  EXPECT_EQ(learnt.size, 1234);
  EXPECT_TRUE(learnt.seekable);
}

TEST(HttpFileRequestLearns, SizeFromTheRangeLineOfAPartialAnswer) {
  const Learnt learnt = learn(support::serveContentRangeOnly(1234));
  EXPECT_EQ(learnt.size, 1234);
  EXPECT_TRUE(learnt.seekable);
}

TEST(HttpFileRequestLearns, NothingFromARangeLineInLowerCase) {
  const Learnt learnt = learn(support::serveContentRangeOnly(1234, "content-range"));
  EXPECT_EQ(learnt.size, UNKNOWN_CONTENT_SIZE);
  EXPECT_FALSE(learnt.seekable);
}

TEST(HttpFileRequestLearns, NothingFromANegativeTotal) {
  const Learnt learnt = learn(support::answerRaw(
      "HTTP/1.1 206 P\r\nConnection: close\r\nContent-Range: bytes 0-4/-5\r\n\r\nhello"));
  EXPECT_EQ(learnt.size, UNKNOWN_CONTENT_SIZE);
  EXPECT_FALSE(learnt.seekable);
}

TEST(HttpFileRequestLearns, NothingWithoutALength) {
  for (const auto& behaviour :
       {support::serveChunked(1000), support::serveUntilClose(1000), support::serveIcy(1000)}) {
    const Learnt learnt = learn(behaviour);
    EXPECT_EQ(learnt.size, UNKNOWN_CONTENT_SIZE);
    EXPECT_FALSE(learnt.seekable);
  }
}

TEST(HttpFileRequestLearns, NothingFromASmallLengthInAnotherSpelling) {
  EXPECT_EQ(learn(support::serveLengthSpelt(1000, "Content-LENGTH")).size, UNKNOWN_CONTENT_SIZE);
  EXPECT_EQ(learn(support::serveLengthSpelt(1000, "content-length")).size, 1000);
  EXPECT_EQ(learn(support::serveLengthSpelt(0x100000, "Content-LENGTH")).size, 0x100000)
      << "a megabyte is trusted";
  EXPECT_EQ(learn(support::serveLengthSpelt(0xFFFFF, "Content-LENGTH")).size, UNKNOWN_CONTENT_SIZE);
}

TEST(HttpFileRequestLearns, NoSizeFromALengthBesideChunks) {
  const Learnt learnt = learn(support::serveChunked(1000, "Content-Length: 77\r\n"));
  EXPECT_EQ(learnt.size, UNKNOWN_CONTENT_SIZE) << "libcurl says -1 there, and a length line stands";
  EXPECT_FALSE(learnt.seekable);
}

TEST(HttpFileRequestLearns, SizesPastFourGigabytes) {
  const Learnt learnt = learn(support::dropAfter(5LL << 30, 1000));
  EXPECT_EQ(learnt.size, 5LL << 30);
}

TEST(HttpFileRequestLearns, RealSizeOfAnUnsizedResourceAtItsEnd) {
  FaultServer server;
  server.on("/a", support::serveChunked(kSize));
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 3}));
  EXPECT_EQ(probe.producer.getContentSize(), kSize);
  EXPECT_TRUE(log.has("sendRequest: setFileSize: 200000"));
}

TEST(HttpFileRequestLearns, CutChunkLeavesTheSizeUnknown) {
  FaultServer server;
  server.on("/a", support::cutChunk(kSize, 1000));
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 3}));
  EXPECT_EQ(probe.producer.getContentSize(), UNKNOWN_CONTENT_SIZE);
}

TEST(HttpFileRequestLearns, LogsItsDecisions) {
  support::CapturedStderr log(0);
  learn(support::serveRanges(1234));
  for (const char* line :
       {"receive: first time receive , get content length !!", "receive: response code: 200 !!",
        "receive: contentSize:1234",
        "receive: got http:200 double check if server still support seek",
        "receive: check seekable", "receive: double check seek:1",
        "setSupportSeek: set byte support : 1", "HttpFileRequest: in construction",
        "startStreaming: begin to start requestCount=0", "sendRequest: errorCode:0",
        "sendRequest: [QV]return EVENT_STREAM_PARTIAL_END",
        "stopStreaming: begin to stop streaming", "stopStreaming: End to stop streaming"}) {
    EXPECT_TRUE(log.has(line)) << line;
  }
  learn(support::serveChunked(10));
  EXPECT_TRUE(log.has("receive: contentSize:-1"));
  EXPECT_TRUE(log.has("receive: got contentSize is too small:0"));
  EXPECT_TRUE(log.has("receive: Can't get size from the network file"));
  learn(support::serveContentRangeOnly(1234));
  EXPECT_TRUE(log.has("receive: new revise content size is:1234"));
  learn(support::serveContentRangeOnly(1234, "content-range"));
  EXPECT_TRUE(log.has("receive: Can't get size from content-range, don't support seek"));
}

#if defined(FLUVIA_PAUSE_POINTS)
// Other threads query size and seekability all the time: intermediate states of the analysis must
// not be visible.
TEST(HttpFileRequestLearns, SizeAndSeekabilityInOneStep) {
  FaultServer server;
  server.on("/a", support::serveContentRangeOnly(1000));
  constexpr char kPoint[] = "HttpFileRequest::decideSizeAndSeeking decided";
  support::Pauses pauses;
  pauses.holdAt(kPoint);
  ProducerProbe probe(server.url("/a"));
  const long long size = probe.producer.getContentSize();
  const bool seekable = probe.producer.isRandomAccess();
  probe.start(1, 0, 0);
  ASSERT_TRUE(pauses.reached(kPoint));
  EXPECT_EQ(probe.producer.getContentSize(), size);
  EXPECT_EQ(probe.producer.isRandomAccess(), seekable);
  pauses.release(kPoint);
  probe.join();
  EXPECT_EQ(probe.producer.getContentSize(), 1000);
  EXPECT_TRUE(probe.producer.isRandomAccess());
}
#endif

}  // namespace

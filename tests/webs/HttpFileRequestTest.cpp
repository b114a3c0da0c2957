#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"
#include "util/PausePoint.h"
#include "webs/HttpFileRequest.h"

namespace {

// While set, no host can be reached.
std::atomic<bool> unreachable{false};

}  // namespace

// Takes the place of the C library's connect() for libcurl.
extern "C" __attribute__((visibility("default"))) int connect(int socket,
                                                              const struct sockaddr* address,
                                                              socklen_t length) {
  if (unreachable) {
    errno = EHOSTUNREACH;
    return -1;
  }
  using Connect = int (*)(int, const struct sockaddr*, socklen_t);
  static const auto real = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "connect"));
  return real(socket, address, length);
}

namespace {

using support::FaultServer;
using support::ProducerProbe;
using util::UNKNOWN_CONTENT_SIZE;
using webs::HttpFileRequest;
using Events = std::vector<int>;

constexpr long long kSize = 200000;

// The bytes that came are the resource's from offset on; their count.
::testing::AssertionResult isPattern(const std::string& bytes, long long from, size_t count) {
  if (bytes.size() != count) {
    return ::testing::AssertionFailure() << bytes.size() << " bytes, not " << count;
  }
  const long long at =
      support::firstDifference(static_cast<unsigned long long>(from), bytes.data(), bytes.size());
  if (at < 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "byte " << at << " from " << from << " is wrong";
}

// --- one run ------------------------------------------------------------------------------------

TEST(HttpFileRequest, RunDeliversAndEndsWithOneEvent) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.producer.getContentSize(), 0);
  EXPECT_FALSE(probe.producer.isRandomAccess());
  EXPECT_EQ(probe.producer.getType(), 1);
  EXPECT_EQ(probe.run(7, 0, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 0, kSize));
  EXPECT_EQ(probe.receiver.versions().back(), 7);
  EXPECT_EQ(probe.producer.getContentSize(), kSize);
  EXPECT_TRUE(probe.producer.isRandomAccess());
  EXPECT_EQ(probe.producer.getDownloadStatus(), webs::DOWNLOAD_OK);
}

TEST(HttpFileRequest, LaterRunsAskForTheirRangeAndSendNoStartEvent) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.run(2, 32768, 65536), (Events{3}));
  EXPECT_EQ(probe.run(3, 65536, 0), (Events{3}));
  EXPECT_EQ(probe.run(4, 0, 0), (Events{3}));
  EXPECT_EQ(server.ranges("/a"),
            (std::vector<std::string>{"", "bytes=32768-98303", "bytes=65536-", "bytes=0-"}));
  EXPECT_TRUE(isPattern(probe.receiver.body().substr(kSize, 65536), 32768, 65536));
}

TEST(HttpFileRequest, WithoutAReceiverNothingStarts) {
  FaultServer server;
  HttpFileRequest producer(server.url("/a"));
  producer.initialize();
  EXPECT_EQ(producer.startStreaming(1, 0, 0), -1);
  EXPECT_EQ(server.connectionCount(), 0);
}

TEST(HttpFileRequest, OffsetWithoutRangesIsReachedBySkipping) {
  FaultServer server;
  server.on("/a", support::serveChunked(5200000));
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.run(1, 5000000, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 5000000, 200000));
  EXPECT_FALSE(probe.producer.isRandomAccess());
  EXPECT_EQ(probe.producer.getContentSize(), 5200000) << "learnt at the end";
}

TEST(HttpFileRequest, OffsetOnAFirstRunIsReachedBySkipping) {
  FaultServer server;
  server.on("/a", support::ignoreRanges(5200000));
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.run(1, 5000000, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 5000000, 200000));
  EXPECT_TRUE(probe.producer.isRandomAccess()) << "a sized 200 counts as seekable";
}

TEST(HttpFileRequest, LaterOffsetOfAnUnsizedResourceIsReachedBySkipping) {
  FaultServer server;
  server.on("/a", support::serveUntilClose(100000));
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.run(2, 65536, 0), (Events{3}));
  EXPECT_TRUE(isPattern(probe.receiver.body().substr(100000), 65536, 100000 - 65536));
  EXPECT_TRUE(
      log.has("sendRequest: server not support seek, but requestOffset is 65536, so "
              "download data from 0"));
  EXPECT_EQ(server.ranges("/a"), (std::vector<std::string>{"", ""}));
}

// --- size and seekability -----------------------------------------------------------------------

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

// --- results ------------------------------------------------------------------------------------

struct Outcome {
  Events events;
  int status;
};

Outcome outcomeOf(const std::string& url, int featureFlag = -1) {
  ProducerProbe probe(url, featureFlag);
  const Events events = probe.run(1, 0, 0);
  return {events, probe.producer.getDownloadStatus()};
}

Outcome outcomeOf(const support::Behaviour& behaviour, int featureFlag = -1) {
  FaultServer server;
  server.on("/a", behaviour);
  return outcomeOf(server.url("/a"), featureFlag);
}

#define EXPECT_OUTCOME(expression, expectedEvents, expectedStatus) \
  do {                                                             \
    const Outcome outcome = (expression);                          \
    EXPECT_EQ(outcome.events, (Events expectedEvents));            \
    EXPECT_EQ(outcome.status, expectedStatus);                     \
  } while (false)

TEST(HttpFileRequestResult, PartialFileIsAPartialEnd) {
  EXPECT_OUTCOME(outcomeOf(support::lieAboutLength(1000, 200)), ({0, 3}), 0);
}

TEST(HttpFileRequestResult, ClientErrorsAreNotFound) {
  for (const int status : {400, 403, 404, 416, 499}) {
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({5}), status);
  }
}

TEST(HttpFileRequestResult, ServerErrorsAreNotAvailable) {
  for (const int status : {500, 503, 599}) {
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({6}), status);
  }
}

TEST(HttpFileRequestResult, StatusOf600AndAboveIsNotFound) {
  for (const int status : {600, 999}) {
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({5}), status);
  }
}

TEST(HttpFileRequestResult, EmptySuccessIsNotFound) {
  EXPECT_OUTCOME(outcomeOf(support::answerStatus(200, "")), ({5}), 404);
}

TEST(HttpFileRequestResult, AnswerWithoutABodyIsAnError) {
  for (const int status : {204, 304}) {
    support::CapturedStderr log(0);
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({1}), 0);
    EXPECT_TRUE(log.has("sendRequest: http error " + std::to_string(status)));
    EXPECT_FALSE(log.has("sendRequest: [QV]return EVENT_STREAM_PARTIAL_END"));
  }
}

TEST(HttpFileRequestResult, OtherSuccessWithABodyIsAnErrorAtOnce) {
  support::CapturedStderr log(0);
  EXPECT_OUTCOME(outcomeOf(support::answerStatus(300)), ({1, 7}), 0);
  EXPECT_TRUE(log.has("receive: http error 300"));
}

TEST(HttpFileRequestResult, ErrorPageIsNotDelivered) {
  FaultServer server;
  server.on("/a", support::answerStatus(404));
  support::CapturedStderr log(-4);
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.receiver.body(), "");
  EXPECT_TRUE(log.has("receive: error, the server send 404 respond code"));
}

TEST(HttpFileRequestResult, StallIsNotFound) {
  EXPECT_OUTCOME(outcomeOf(support::staySilent()), ({5}), webs::DOWNLOAD_NOT_REVEIVE_DATA);
}

TEST(HttpFileRequestResult, StallWithTheFlagIsATimeout) {
  support::CapturedStderr log(-4);
  EXPECT_OUTCOME(outcomeOf(support::stallAfter(1000, 100), 1), ({0, 4}),
                 webs::DOWNLOAD_NOT_REVEIVE_DATA);
  EXPECT_TRUE(log.has("sendRequest: FBZ Case DOWNLOAD_NOT_REVEIVE_DATA"));
}

TEST(HttpFileRequestResult, BreakIsADeadConnection) {
  FaultServer server;
  server.on("/a", support::stallAfter(1000, 100));
  support::CapturedStderr log(-4);
  ProducerProbe probe(server.url("/a"));
  probe.producer.setBreak();
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 2}));
  EXPECT_EQ(probe.producer.getDownloadStatus(), webs::DOWNLOAD_CONNECTION_DEAD);
  EXPECT_TRUE(log.has("sendRequest: connection is dead"));
}

TEST(HttpFileRequestResult, UnknownHostIsNotFoundAndWithTheFlagAnError) {
  support::CapturedStderr log(-4);
  EXPECT_OUTCOME(outcomeOf(std::string("http://a..b/")), ({5}), webs::DOWNLOAD_DNS_UNABLE_RESOLVED);
  EXPECT_TRUE(log.has("sendRequest: NO FBZ CASE, couldn't resolve host"));
  EXPECT_OUTCOME(outcomeOf(std::string("http://a..b/"), 1), ({1}),
                 webs::DOWNLOAD_DNS_UNABLE_RESOLVED);
  EXPECT_TRUE(log.has("sendRequest: FBZ Case DOWNLOAD_DNS_UNABLE_RESOLVED"));
}

TEST(HttpFileRequestResult, RefusedConnectionIsAnErrorWithItsStatus) {
  support::CapturedStderr log(2);
  EXPECT_OUTCOME(outcomeOf("http://127.0.0.1:" + std::to_string(support::closedPort()) + "/"),
                 ({1}), webs::DOWNLOAD_CONNECT_REJECT);
  EXPECT_TRUE(log.has("sendRequest: set status DOWNLOAD_CONNECT_REJECT"));
  EXPECT_TRUE(log.has("sendRequest: notify EVENT_STREAM_ERROR"));
}

TEST(HttpFileRequestResult, UnreachableHostIsAnErrorWithItsStatus) {
  support::CapturedStderr log(2);
  unreachable = true;
  EXPECT_OUTCOME(outcomeOf(std::string("http://127.0.0.1:1/")), ({1}), webs::DOWNLOAD_CONNECT_FAIL);
  unreachable = false;
  EXPECT_TRUE(log.has("sendRequest: set status DOWNLOAD_CONNECT_FAIL"));
  EXPECT_TRUE(log.has("sendRequest: notify EVENT_STREAM_ERROR"));
}

TEST(HttpFileRequestResult, ConnectThatNobodyAnswersIsATimeout) {
  support::FullListener listener;
  EXPECT_OUTCOME(outcomeOf("http://127.0.0.1:" + std::to_string(listener.port()) + "/", 1), ({4}),
                 webs::DOWNLOAD_TIMEOUT);
}

TEST(HttpFileRequestResult, ResetIsAnError) {
  support::CapturedStderr log(0);
  EXPECT_OUTCOME(outcomeOf(support::resetAfter(100000, 1000)), ({0, 1}), 0);
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:56 "));
}

TEST(HttpFileRequestResult, TlsFailuresAreErrors) {
  const support::TestCertificate own;
  const support::TestCertificate other;
  FaultServer server(own.certificate(), own.key());
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.producer.setCA(other.certificate());
  EXPECT_EQ(probe.run(1, 0, 0), (Events{1}));
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:60 "));
  probe.producer.setCA("/nowhere");
  EXPECT_EQ(probe.run(2, 0, 0), (Events{1}));
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:77 "));
  probe.producer.setClientAuthertication("/nowhere");
  EXPECT_EQ(probe.run(3, 0, 0), (Events{1}));
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:58 "));
}

TEST(HttpFileRequestResult, RefusedDataIsACancel) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.receiver.refuseAfter = 40000;
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 7}));
  EXPECT_TRUE(log.has("receive: to terminate http perform"));
}

// --- servers that treat a range their own way ---------------------------------------------------

constexpr long long kOffset = 98304;

// A second run from kOffset, its answer given by behaviour. Returns what was delivered.
std::string secondRun(const support::Behaviour& behaviour, const Events& expected,
                      long long count = 0) {
  FaultServer server;
  server.on("/a", support::inTurn({support::serveRanges(kSize), behaviour}));
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.run(2, kOffset, count), expected);
  EXPECT_TRUE(probe.producer.isRandomAccess()) << "learnt once";
  EXPECT_EQ(probe.producer.getContentSize(), kSize) << "learnt once";
  return probe.receiver.body().substr(kSize);
}

TEST(HttpFileRequestRange, IgnoredRangeIsSkippedTo) {
  EXPECT_TRUE(isPattern(secondRun(support::ignoreRanges(kSize), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, IgnoredRangeWithoutALengthIsSkippedTo) {
  EXPECT_TRUE(isPattern(secondRun(support::serveChunked(kSize), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, RestCalled200IsTakenAsItIs) {
  EXPECT_TRUE(
      isPattern(secondRun(support::serveRestAs200(kSize, true), {3}), kOffset, kSize - kOffset));
  EXPECT_TRUE(
      isPattern(secondRun(support::serveRestAs200(kSize, false), {3}), kOffset, kSize - kOffset));
  EXPECT_TRUE(
      isPattern(secondRun(support::serveRestAs200(kSize, false), {3}, 32768), kOffset, 32768));
}

TEST(HttpFileRequestRange, PartialAnswerThatStartsBeforeIsTrimmed) {
  EXPECT_TRUE(
      isPattern(secondRun(support::startBeside(kSize, -5000), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, PartialAnswerThatStartsAfterIsAnError) {
  support::CapturedStderr log(0);
  EXPECT_EQ(secondRun(support::startBeside(kSize, 5000), {1, 7}), "");
  EXPECT_TRUE(log.has("receive: http error 206"));
}

// Where the body begins is what the line says, also when the server calls it 200.
TEST(HttpFileRequestRange, WholeAnswerThatStartsBeforeIsTrimmed) {
  EXPECT_TRUE(
      isPattern(secondRun(support::startBeside(kSize, -5000, 200), {3}), kOffset, kSize - kOffset));
}

TEST(HttpFileRequestRange, WholeAnswerThatStartsAfterIsAnError) {
  EXPECT_EQ(secondRun(support::startBeside(kSize, 5000, 200), {1, 7}), "");
}

TEST(HttpFileRequestRange, ErrorPagesOfLaterRunsAreNotDelivered) {
  EXPECT_EQ(secondRun(support::answerStatus(404), {5}), "");
  EXPECT_EQ(secondRun(support::answerStatus(503), {6}), "");
  EXPECT_EQ(secondRun(support::answerStatus(416), {5}), "");
  EXPECT_EQ(secondRun(support::answerStatus(300), {1, 7}), "");
}

TEST(HttpFileRequestRange, BodilessAnswerOfALaterRunIsAPartialEnd) {
  EXPECT_EQ(secondRun(support::answerStatus(204), {3}), "");
}

// --- stopping -----------------------------------------------------------------------------------

TEST(HttpFileRequestStop, ReturnsAfterTheCancelEvent) {
  FaultServer server;
  server.on("/a", support::stallAfter(kSize, 1000));
  ProducerProbe probe(server.url("/a"));
  probe.start(1, 0, 0);
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  const support::Stopwatch watch;
  probe.producer.stopStreaming();
  EXPECT_LT(watch.seconds(), support::patience(0.5));
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
  // What the buffer queue does when it opens a fragment: announce the stop, refuse the data.
  probe.receiver.onPiece = [&] {
    probe.producer.setStopWait();
    probe.receiver.refuseAfter = 0;
  };
  probe.start(1, 0, 0);
  while (!probe.producer.getStopWait()) std::this_thread::yield();
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
    while (!goOn) std::this_thread::yield();
    probe.producer.setStopWait();
  };
  probe.start(1, 0, 0);
  while (!inPiece) std::this_thread::yield();
  support::CapturedStderr log(1);
  std::thread stopper([&] { probe.producer.stopStreaming(); });
  const support::Stopwatch watch;
  while (!log.has("stop: notify curl to stop and wait stop end") && watch.seconds() < 20) {
    std::this_thread::yield();
  }
  goOn = true;
  stopper.join();
  EXPECT_EQ(probe.receiver.events().back(), util::STREAM_CANCELED);
}

// Everything but starting and stopping goes on while the run is parked in its last event.
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
  const support::Stopwatch watch;
  while (!done && watch.seconds() < 2) std::this_thread::yield();
  EXPECT_TRUE(done) << "one of them waits for the transfer";
  probe.receiver.unpark();
  caller.join();
}

#if defined(FLUVIA_PAUSE_POINTS)

std::atomic<const char*> heldName{nullptr};
std::atomic<bool> isHeld{false};
std::atomic<bool> mayGo{false};

void holdThere(const char* name) {
  if (heldName.load() == nullptr || std::string(name) != heldName.load()) return;
  isHeld = true;
  while (!mayGo) std::this_thread::yield();
}

// A run held at a pause point while a stop is made.
void stopAt(const char* name, const Events& expected) {
  FaultServer server;
  server.on("/a", support::staySilent());
  isHeld = false;
  mayGo = false;
  heldName = name;
  util::setPauseHook(holdThere);
  support::CapturedStderr log(1);
  ProducerProbe probe(server.url("/a"));
  probe.start(1, 0, 0);
  while (!isHeld) std::this_thread::yield();
  const support::Stopwatch watch;
  std::thread stopper([&] { probe.producer.stopStreaming(); });
  while (!log.has("stop: MethodRequest begin to stop active = 0") &&
         !log.has("stop: notify curl to stop and wait stop end") && watch.seconds() < 20) {
    std::this_thread::yield();
  }
  mayGo = true;
  stopper.join();
  probe.join();
  heldName = nullptr;
  util::setPauseHook(nullptr);
  EXPECT_LT(watch.seconds(), support::patience(5))
      << "the stop was lost and the stall watch had to end the run";
  EXPECT_EQ(probe.receiver.events(), expected);
  EXPECT_EQ(log.count("sendRequest: aborted by callback :42"), static_cast<int>(expected.size()));
  EXPECT_EQ(server.connectionCount(), 0);
}

// Other threads ask for size and seekability all the time: what the analysis tries first must not
// show.
TEST(HttpFileRequestLearns, SizeAndSeekabilityInOneStep) {
  FaultServer server;
  server.on("/a", support::serveContentRangeOnly(1000));
  isHeld = false;
  mayGo = false;
  heldName = "HttpFileRequest::decideSizeAndSeeking decided";
  util::setPauseHook(holdThere);
  ProducerProbe probe(server.url("/a"));
  const long long size = probe.producer.getContentSize();
  const bool seekable = probe.producer.isRandomAccess();
  probe.start(1, 0, 0);
  while (!isHeld) std::this_thread::yield();
  EXPECT_EQ(probe.producer.getContentSize(), size);
  EXPECT_EQ(probe.producer.isRandomAccess(), seekable);
  mayGo = true;
  probe.join();
  heldName = nullptr;
  util::setPauseHook(nullptr);
  EXPECT_EQ(probe.producer.getContentSize(), 1000);
  EXPECT_TRUE(probe.producer.isRandomAccess());
}

TEST(HttpFileRequestStop, BeforeTheRequestIsTakenUpEndsTheRunSilently) {
  support::CapturedStderr log(0);
  stopAt("HttpFileRequest::startStreaming before sendRequest", {});
}

TEST(HttpFileRequestStop, BetweenTheRequestAndItsTransferIsNotLost) {
  stopAt("HttpFileRequest::sendRequest before executeGet", {7});
}

#endif

// --- settings -----------------------------------------------------------------------------------

TEST(HttpFileRequestSettings, AreLoggedAndSent) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.producer.setUserAgent("tv");
  probe.producer.setCookie("k=v");
  probe.producer.setProxy("http://127.0.0.1:1");
  probe.producer.setCAPath("/ca");
  probe.producer.setCA("/ca.pem");
  probe.producer.setClientAuthertication("/c");
  probe.producer.setPrivateKey("/k");
  probe.producer.setKeyType("DER");
  probe.producer.setIpResolve("whatever");
  probe.producer.setSpeed(0);
  probe.producer.setFeatureFlag(2);
  EXPECT_EQ(probe.producer.getDownloadStatus(), 0);
  probe.producer.setBreak();
  for (const char* line :
       {"setUserAgent: set UAString = tv", "setCookie: set http cookie :k=v",
        "setProxy: set http proxy :http://127.0.0.1:1", "setCAPath: set CA path:/ca",
        "setCAPath: setCAPath: /ca", "setCA: set CA Info:/ca.pem", "setCA: setCA: /ca.pem",
        "setClientAuthertication: set Client Authertication:/c",
        "setPrivateKey: set Private Key:/k", "setKeyType: set Key Type:DER",
        "setIpResolve: set ip resolve:whatever", "setIpResolve: set WHATEVER",
        "setSpeed: set speed:0", "setFeatureFlag: set feature flag:2",
        "getDownloadStatus: download status:0", "setBreak: HttpFileRequest::call setBreak"}) {
    EXPECT_TRUE(log.has(line)) << line;
  }
  EXPECT_NE(log.text().find(", MethodRequest set flag :2"), std::string::npos);
  probe.run(1, 0, 0);
  EXPECT_EQ(server.requests("/a")[0].header("User-Agent"), "tv")
      << "127.0.0.1 is reached without the proxy";
  EXPECT_EQ(server.requests("/a")[0].header("Cookie"), "k=v");
}

TEST(HttpFileRequestSettings, ProxyIsUsedForOtherNames) {
  FaultServer proxy;
  proxy.on("http://media.test/a", support::serveRanges(1000));
  ProducerProbe probe("http://media.test/a");
  probe.producer.setProxy(proxy.url(""));
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 0, 1000));
}

}  // namespace

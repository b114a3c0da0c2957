// The effect of a producer's event: another connection, the end of the stream, or a park.
#include <gtest/gtest.h>

#include "tests/support/SteppedQueue.h"
#include "util/BufferQueue.h"
#include "util/Log.h"

namespace {

using support::eventually;
using support::kBlock;
using support::Reading;
using support::Started;
using support::WaitingCall;
using util::BufferQueue;
using util::BufferQueueProbe;
using BufferQueueTest = support::SteppedQueue;

TEST_F(BufferQueueTest, FirstErrorReconnectsAtTheWriteHeadAndTheSecondIsFinal) {
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 300), 1);
  event(util::STREAM_ERROR);
  EXPECT_TRUE(log.has("notifyStreamException: reset cause of STREAM_ERROR"));
  EXPECT_FALSE(queue->needExit());
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1], (Started{1, 300, 0}));
  event(util::STREAM_ERROR);
  EXPECT_TRUE(log.has("notifyStreamException: retry finished in not available error"));
  EXPECT_TRUE(queue->needExit());
  EXPECT_TRUE(log.has("needExit: stream status is :2, retry finished:2 times"));
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, -4);
  EXPECT_EQ(reading->got, 300u) << "what arrived before the end is the reader's";
  EXPECT_TRUE(log.has("read: error status that read fail but status is ok 2"));
}

TEST_F(BufferQueueTest, DataBetweenTwoErrorsStartsTheCountAnew) {
  make(4);
  auto reading = connect(0, 1000);
  for (size_t round = 1; round <= 4; ++round) {
    EXPECT_EQ(deliver(static_cast<long long>(round - 1) * 100, 100), 1);
    event(util::STREAM_ERROR);
    ASSERT_TRUE(runs(round + 1));
    EXPECT_FALSE(queue->needExit());
  }
  EXPECT_EQ(deliver(400, 600), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, 0);
  EXPECT_TRUE(right(*reading, 0));
}

TEST_F(BufferQueueTest, ChunkOfNothingDoesNotEndASequenceOfRetries) {
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_ERROR);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(deliver(0, 0), 1);
  event(util::STREAM_TIMEOUT);
  EXPECT_TRUE(queue->needExit()) << "an error and a time-out share the count";
  ASSERT_TRUE(reading->hasEnded());
}

TEST_F(BufferQueueTest, SecondTimeoutInARowIsFinal) {
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_TIMEOUT);
  EXPECT_TRUE(log.has("notifyStreamException: reset stream cause of timeout"));
  ASSERT_TRUE(runs(2));
  event(util::STREAM_TIMEOUT);
  EXPECT_TRUE(log.has("notifyStreamException: retry finished in timeout"));
  EXPECT_EQ(BufferQueueProbe::status(*queue), util::STATUS_TIMEOUT);
  EXPECT_EQ(BufferQueueProbe::retries(*queue), 2);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, -6);
}

struct Final {
  int event;
  int status;
  int result;
  const char* line;
};
class BufferQueueFinalEvent : public BufferQueueTest, public testing::WithParamInterface<Final> {};

TEST_P(BufferQueueFinalEvent, EndsEveryRead) {
  make(4);
  auto reading = read(0, 1000);
  event(GetParam().event);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, GetParam().result);
  EXPECT_EQ(BufferQueueProbe::status(*queue), GetParam().status);
  EXPECT_TRUE(log.has(GetParam().line));
  Reading later(queue.get(), 0, 10);
  ASSERT_TRUE(later.hasEnded());
  EXPECT_FALSE(later.moved) << "a failed stream refuses the move";
  event(util::STREAM_NORMAL);
  EXPECT_TRUE(log.has("notifyStreamException: request exit by user"));
}

INSTANTIATE_TEST_SUITE_P(
    All, BufferQueueFinalEvent,
    testing::Values(Final{util::STREAM_FILE_NOT_FOUND, util::STATUS_NOT_FOUND, -21,
                          "notifyStreamException: File not found"},
                    Final{util::STREAM_NOT_AVAILABLE, util::STATUS_NOT_AVAILABLE, -17,
                          "notifyStreamException: retry finished in not available error"}));

TEST_F(BufferQueueTest, DeadConnectionRestartsWithoutCounting) {
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 200), 1);
  for (size_t round = 1; round <= 3; ++round) {
    event(util::STREAM_DEAD);
    ASSERT_TRUE(runs(round + 1));
    EXPECT_EQ(producer.started()[round].from, 200);
  }
  EXPECT_EQ(deliver(200, 800), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 0));
}

TEST_F(BufferQueueTest, UnknownEventIsReported) {
  make(4);
  event(99);
  EXPECT_TRUE(log.has("notifyStreamException: error !!! event hasn't been handled, canceled is:7"));
}

TEST_F(BufferQueueTest, EarlyEndOfAStreamThatCannotSeekReconnectsAtTheWriteHead) {
  producer.seekable = false;
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 300), 1);
  event(util::EVENT_STREAM_PARTIAL_END);
  EXPECT_TRUE(
      log.has("notifyStreamException: reset stream!!! in a unseekable file which has disconnected "
              "normally"));
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1].from, 300);
  EXPECT_EQ(deliver(300, 700), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 0));
}

TEST_F(BufferQueueTest, EndOfAStreamWithoutASizeReconnectsAtTheWriteHead) {
  producer.size = 0;
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 300), 1);
  event(util::EVENT_STREAM_PARTIAL_END);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1].from, 300);
  EXPECT_EQ(deliver(300, 700), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 0));
}

TEST_F(BufferQueueTest, SecondEndInARowWithoutAByteIsFinal) {
  make(4);
  auto reading = connect(0, 1000);
  event(util::EVENT_STREAM_PARTIAL_END);
  ASSERT_TRUE(runs(2)) << "the first is forgiven";
  EXPECT_FALSE(queue->needExit());
  event(util::EVENT_STREAM_PARTIAL_END);
  EXPECT_TRUE(log.has("notifyStreamException: retry finished in not available error"));
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, -4);
  EXPECT_EQ(producer.started().size(), 2u);
}

TEST_F(BufferQueueTest, ErrorAfterTheLastByteDoesNotAskPastTheEnd) {
  producer.size = 300;
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 300), 1);
  ASSERT_TRUE(reading->hasEnded());
  WaitingCall end(queue.get(), [&] { event(util::STREAM_ERROR); });
  ASSERT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
  EXPECT_EQ(producer.started().size(), 1u);
  EXPECT_FALSE(log.has("notifyStreamException: reset cause of STREAM_ERROR"));
}

// As above, for the ends that need no error: silence after the last byte.
class BufferQueueLastByte : public BufferQueueTest, public testing::WithParamInterface<int> {};

TEST_P(BufferQueueLastByte, ParksInsteadOfReconnecting) {
  producer.size = 300;
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 300), 1);
  ASSERT_TRUE(reading->hasEnded());
  WaitingCall end(queue.get(), [&] { event(GetParam()); });
  EXPECT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
  EXPECT_EQ(producer.started().size(), 1u) << "nothing is there to ask for";
  Reading again(queue.get(), 100, 200);
  EXPECT_TRUE(again.hasEnded());
  EXPECT_EQ(again.result, 0) << "what is held can still be read";
  EXPECT_TRUE(right(again, 100));
}

INSTANTIATE_TEST_SUITE_P(All, BufferQueueLastByte,
                         testing::Values(static_cast<int>(util::STREAM_TIMEOUT),
                                         static_cast<int>(util::STREAM_DEAD)));

TEST_F(BufferQueueTest, ParkedTransferServesAReaderOutsideTheBuffer) {
  producer.size = 6 * kBlock;
  ASSERT_TRUE(beginsWith(2, kBlock));
  Reading last(queue.get(), 5 * kBlock, 10);
  ASSERT_TRUE(givesWay(kBlock, 1));
  EXPECT_EQ(deliver(5 * kBlock, kBlock), 1);
  ASSERT_TRUE(last.hasEnded());
  WaitingCall parked(queue.get(), [&] { event(util::EVENT_STREAM_PARTIAL_END); });
  ASSERT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
  EXPECT_TRUE(log.has("notifyStreamException: no need to continue another stream for fragment"));
  Reading back(queue.get(), 3 * kBlock + 5, 10);
  parked.join();
  ASSERT_TRUE(runs(3));
  EXPECT_EQ(producer.started()[2].from, 3 * kBlock);
  EXPECT_EQ(deliver(3 * kBlock, 16384), 1);
  ASSERT_TRUE(back.hasEnded());
  EXPECT_TRUE(right(back, 3 * kBlock + 5));
}

TEST_F(BufferQueueTest, EverySixthWaitOfAParkedTransferDumpsTheBuffer) {
  BufferQueueProbe::forgetParkedWaits();
  producer.size = 1000;
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 1000), 1);
  ASSERT_TRUE(reading->hasEnded());
  util::LOG_LEV = 3;
  const std::string dump = "dumpBuffer: begin to dump buffer";
  const std::string end =
      "notifyStreamException: Read end of file and notify all other thread to execute";
  const std::string wait = "notifyStreamException: wait for new feeding request";
  WaitingCall parked(queue.get(), [&] { event(util::EVENT_STREAM_PARTIAL_END); });
  for (int waits = 1; waits <= 12; ++waits) {
    ASSERT_TRUE(eventually([&] { return log.count(wait) == waits; }));
    ASSERT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
    EXPECT_EQ(log.count(end), waits);
    EXPECT_EQ(log.count(dump), waits / 6) << waits << " waits";
    BufferQueueProbe::wake(*queue);
  }
}

// The gap before a buffered block, filled by connections that all end early while the reader is
// elsewhere.
class BufferQueueEarlyBlock : public BufferQueueTest {
 protected:
  void begin() {
    ASSERT_TRUE(beginsWith(8, 10));
    Reading far(queue.get(), gap + kBlock, 10);
    ASSERT_TRUE(givesWay(10, 10));
    ASSERT_EQ(producer.started().back().from, gap + kBlock);
    ASSERT_EQ(deliver(gap + kBlock, kBlock), 1);
    ASSERT_TRUE(far.hasEnded());
    Reading before(queue.get(), gap, 10);
    ASSERT_TRUE(givesWay(gap + 2 * kBlock, 10));
    ASSERT_EQ(producer.started().back().from, gap);
    ASSERT_EQ(deliver(gap, 10), 1);
    ASSERT_TRUE(before.hasEnded());
    Reading elsewhere(queue.get(), gap + kBlock, 10);
    ASSERT_TRUE(elsewhere.hasEnded());
  }
  // The connection brings that many more bytes and ends with that event. Returns where the next one
  // begins.
  long long endsAfter(long long at, unsigned int bytes, int with) {
    const size_t before = producer.started().size();
    EXPECT_EQ(deliver(at, bytes), 1);
    event(with);
    EXPECT_TRUE(runs(before + 1));
    return producer.started().back().from;
  }
  void isRightIn(long long at, unsigned int bytes) {
    EXPECT_EQ(deliver(at, bytes), 1);
    Reading all(queue.get(), gap, 2000);
    ASSERT_TRUE(all.hasEnded());
    EXPECT_EQ(all.got, 2000u);
    EXPECT_TRUE(right(all, gap));
  }

  const long long gap = 100LL * kBlock;
};

TEST_F(BufferQueueEarlyBlock, IsContinuedTheSecondTimeInARow) {
  ASSERT_NO_FATAL_FAILURE(begin());
  EXPECT_EQ(endsAfter(gap + 10, 990, util::EVENT_STREAM_PARTIAL_END), gap) << "from its beginning";
  EXPECT_EQ(endsAfter(gap, 1500, util::EVENT_STREAM_PARTIAL_END), gap + 1500) << "where it ends";
  EXPECT_EQ(endsAfter(gap + 1500, 100, util::EVENT_STREAM_PARTIAL_END), gap + 1600) << "and on";
  isRightIn(gap + 1600, 400);
}

TEST_F(BufferQueueEarlyBlock, BeginsAgainAfterARestartForSomethingElse) {
  ASSERT_NO_FATAL_FAILURE(begin());
  EXPECT_EQ(endsAfter(gap + 10, 990, util::EVENT_STREAM_PARTIAL_END), gap);
  EXPECT_EQ(endsAfter(gap, 500, util::STREAM_DEAD), gap + 500) << "where writing stopped";
  EXPECT_EQ(endsAfter(gap + 500, 100, util::EVENT_STREAM_PARTIAL_END), gap) << "not twice in a row";
  isRightIn(gap, 2000);
}

TEST_F(BufferQueueTest, EventAfterAMonitorResetIsDropped) {
  make(4);
  auto reading = connect(0, 1000);
  queue->feedManually();
  EXPECT_TRUE(log.has("feedManually: no need to feed"));
  Reading far(queue.get(), 5000000, 10);
  EXPECT_EQ(deliver(0, 1000), 1);
  ASSERT_TRUE(reading->hasEnded());
  ASSERT_TRUE(wants());
  BufferQueue::fillMonitor(queue.get());
  EXPECT_TRUE(log.has("feedManually: begin to fix connection"));
  EXPECT_EQ(BufferQueueProbe::status(*queue), util::STATUS_RESET);
  event(util::STREAM_ERROR);
  EXPECT_EQ(BufferQueueProbe::status(*queue), util::STATUS_IDLE);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1].from, 0) << "the write head's block is streamed anew";
  EXPECT_EQ(queue->getBufferedSize(0), 0) << "and not behind what it held";
  queue->release();
}

}  // namespace

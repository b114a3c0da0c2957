// Outgoing data: reads, their ends, breaks, seeks of streams that cannot seek, buffered sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pauses.h"
#include "tests/support/SteppedQueue.h"
#include "util/BufferQueue.h"

namespace {

using support::eventually;
using support::kBlock;
using support::Reading;
using support::Started;
using support::WaitingCall;
using util::BufferQueueProbe;
using BufferQueueTest = support::SteppedQueue;

TEST_F(BufferQueueTest, EndOfFileIsKnownWithoutWaiting) {
  producer.size = 100;
  make(2);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 100), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, 0);
  EXPECT_EQ(reading->got, 100u);
  Reading atEnd(queue.get(), 100, 10);
  ASSERT_TRUE(atEnd.hasEnded());
  EXPECT_EQ(atEnd.result, -13);
  EXPECT_EQ(atEnd.got, 0u);
  Reading beyond(queue.get(), 101, 10);
  ASSERT_TRUE(beyond.hasEnded());
  EXPECT_FALSE(beyond.moved);
  Reading before(queue.get(), -1, 10);
  ASSERT_TRUE(before.hasEnded());
  EXPECT_FALSE(before.moved);
}

// The transfer first takes the blocks before the last read: the bytes that are read next stay.
TEST_F(BufferQueueTest, ExpectedReaderKeepsItsBytes) {
  producer.size = 100LL * kBlock;
  make(4);
  BufferQueueProbe::arrange(*queue, {{0, kBlock}, {kBlock, kBlock}, {50LL * kBlock, kBlock}});
  queue->expectReader(kBlock + 10);
  EXPECT_EQ(BufferQueueProbe::readTail(*queue), kBlock);
  queue->expectReader(50LL * kBlock);
  EXPECT_EQ(BufferQueueProbe::readTail(*queue), 50LL * kBlock);
  queue->expectReader(10LL * kBlock);
  EXPECT_EQ(BufferQueueProbe::readTail(*queue), 50LL * kBlock) << "not buffered: nothing to keep";
}

// No read has left a block: nothing else wakes the transfer.
TEST_F(BufferQueueTest, ExpectedReaderWakesATransferThatGetsRoom) {
  ASSERT_TRUE(beginsWith(4, 4 * kBlock));
  WaitingCall transfer(queue.get(), [this] { EXPECT_EQ(deliver(4LL * kBlock, 10), 1); });
  ASSERT_TRUE(transferWaits());
  queue->expectReader(10);
  queue->expectReader(50LL * kBlock);
  EXPECT_EQ(BufferQueueProbe::readTail(*queue), 0) << "there already, or not buffered";
  queue->expectReader(kBlock + 10);
  EXPECT_TRUE(transfer.hasReturned());
  transfer.join();
  EXPECT_EQ(queue->getBufferedSize(kBlock), 3LL * kBlock + 10);
}

TEST_F(BufferQueueTest, SizeLearntWhileAReaderWaitsEndsItsRead) {
  producer.size = util::UNKNOWN_CONTENT_SIZE;
  producer.seekable = false;
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 300), 1);
  producer.size = 300;
  WaitingCall end(queue.get(), [&] { event(util::EVENT_STREAM_PARTIAL_END); });
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, 0);
  EXPECT_EQ(reading->got, 300u);
  EXPECT_TRUE(log.has("notifyStreamException: setFileSize: 300"));
  Reading atEnd(queue.get(), 300, 10);
  ASSERT_TRUE(atEnd.hasEnded());
  EXPECT_EQ(atEnd.result, -13);
  EXPECT_EQ(producer.started().size(), 1u) << "the body is not downloaded again";
}

TEST_F(BufferQueueTest, BreakMakesAWaitingReadFail) {
  make(4);
  auto reading = read(0, 1000);
  ASSERT_TRUE(waits());
  queue->breakRead();
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, -4);
  EXPECT_EQ(producer.breaks, 1);
  EXPECT_TRUE(log.has("breakRead: Have broken from reading"));
  Reading again(queue.get(), 0, 100);
  EXPECT_EQ(deliver(0, 100), 1);
  ASSERT_TRUE(again.hasEnded());
  EXPECT_EQ(again.result, 0) << "the flag does not outlive its read";
}

TEST_F(BufferQueueTest, StatusLeftByABrokenReadIsNotForEver) {
  make(4);
  auto reading = read(0, 1000);
  ASSERT_TRUE(waits());
  // The stop of a restart sends its cancel event during a break.
  producer.duringStop = [&] {
    if (disturbed) return;
    std::thread breaker([&] { queue->breakRead(); });
    eventually([&] { return log.has("breakRead: bread end request but read is running"); });
    event(util::STREAM_CANCELED);
    breaker.join();
    disturbed = true;
  };
  event(util::STREAM_DEAD);
  ASSERT_TRUE(eventually([&] { return disturbed.load(); }));
  ASSERT_TRUE(reading->hasEnded());
  Reading again(queue.get(), 0, 100);
  ASSERT_TRUE(runs(2)) << "the restart goes on, or the next read asks for one";
  ASSERT_TRUE(eventually([&] {
    deliver(0, 100);
    return again.ended.load();
  }));
  EXPECT_EQ(again.result, 0);
  queue->release();
  producer.duringStop = nullptr;  // it captures locals
}

TEST_F(BufferQueueTest, StatusOfABrokenReadIsGoneWithTheNextRead) {
  make(4);
  auto reading = connect(0, 100);
  EXPECT_EQ(deliver(0, 200), 1);
  ASSERT_TRUE(reading->hasEnded());
  BufferQueueProbe::leaveBroken(*queue);
  EXPECT_TRUE(queue->errorOccured());
  Reading again(queue.get(), 100, 100);
  ASSERT_TRUE(again.hasEnded());
  EXPECT_EQ(again.result, 0);
  BufferQueueProbe::leaveBroken(*queue);
  queue->release();
  Reading late(queue.get(), 0, 100);
  ASSERT_TRUE(late.hasEnded());
  EXPECT_EQ(late.result, -4) << "after release it is for good";
}

// How often the calling thread's read of an ended queue wrote why the queue has ended.
int reasonsOfARead(util::BufferQueue* queue) {
  const support::CapturedStderr quieter(0);  // the trace of level 2 asks once more
  char bytes[10];
  unsigned int got = 77;
  EXPECT_EQ(queue->read(bytes, sizeof bytes, &got), -1);
  EXPECT_EQ(got, 0u);
  const std::vector<std::string> lines = quieter.ownMessages();
  return static_cast<int>(std::count(lines.begin(), lines.end(), "needExit: stream status is :6"));
}

TEST_F(BufferQueueTest, ReadOfAnEndedQueueWritesTheStatusOnce) {
  make(2);
  event(util::STREAM_NOT_AVAILABLE);
  EXPECT_EQ(reasonsOfARead(queue.get()), 1) << "the read that starts the worker";
  EXPECT_EQ(reasonsOfARead(queue.get()), 1) << "a later one";
}

TEST_F(BufferQueueTest, BackwardReadOfAStreamThatCannotSeekBeginsItAnew) {
  producer.seekable = false;
  make(2);
  auto reading = connect(100000, 10);
  for (long long at = 0; at < 110000; at += 10000) ASSERT_EQ(deliver(at, 10000), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 100000));
  Reading back(queue.get(), 20, 10);
  ASSERT_TRUE(givesWay(110000, 10));
  EXPECT_TRUE(log.has("streamIn: reconnecting connection/stream"));
  EXPECT_EQ(producer.started()[1], (Started{1, 0, 0}));
  EXPECT_EQ(deliver(0, 1000), 1);
  ASSERT_TRUE(back.hasEnded());
  EXPECT_EQ(back.result, 0);
  EXPECT_TRUE(right(back, 20));
}

TEST_F(BufferQueueTest, StreamThatCannotSeekBeginsAt0AlsoAfterAReconnection) {
  producer.seekable = false;
  make(2);
  auto reading = connect(100000, 10);
  for (long long at = 0; at < 50000; at += 10000) ASSERT_EQ(deliver(at, 10000), 1);
  event(util::STREAM_DEAD);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1].from, 50000);
  for (long long at = 50000; at < 110000; at += 10000) ASSERT_EQ(deliver(at, 10000), 1);
  ASSERT_TRUE(reading->hasEnded());
  Reading back(queue.get(), 20, 10);
  ASSERT_TRUE(givesWay(110000, 10));
  EXPECT_EQ(producer.started()[2], (Started{2, 0, 0}));
  EXPECT_EQ(deliver(0, 1000), 1);
  ASSERT_TRUE(back.hasEnded());
  EXPECT_TRUE(right(back, 20));
}

TEST_F(BufferQueueTest, BufferedSizeIsTheStretchAtTheOffset) {
  make(8);
  EXPECT_EQ(queue->getBufferedSize(100), 0) << "a block without data holds nothing";
  auto reading = connect(0, 10);
  EXPECT_EQ(deliver(0, 50000), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(queue->getBufferedSize(0), 50000);
  EXPECT_EQ(queue->getBufferedSize(49999), 1);
  EXPECT_EQ(queue->getBufferedSize(70000), 0);
  EXPECT_EQ(queue->getMiniBlockOffset(), 0);
  Reading far(queue.get(), 1000000, 10);
  ASSERT_TRUE(givesWay(50000, 10));
  const long long from = producer.started()[1].from;
  EXPECT_EQ(deliver(from, 30000), 1);
  ASSERT_TRUE(far.hasEnded());
  EXPECT_EQ(queue->getBufferedSize(1000000), from + 30000 - 1000000);
  EXPECT_GT(queue->getBufferedSize(0), 0);
  EXPECT_LE(queue->getBufferedSize(0), 50010) << "never measured to the write head over a gap";
}

TEST_F(BufferQueueTest, BufferedSizeBehindTheWriteHeadStaysWhatIsHeld) {
  make(2);
  auto far = connect(5 * kBlock, 10);
  ASSERT_TRUE(givesWay(0, 100));
  EXPECT_EQ(deliver(5 * kBlock, 100), 1);
  ASSERT_TRUE(far->hasEnded());
  EXPECT_EQ(deliver(5 * kBlock + 100, kBlock - 100), 1);
  Reading back(queue.get(), 3 * kBlock, 10);
  ASSERT_TRUE(givesWay(6 * kBlock, 100));
  EXPECT_EQ(deliver(3 * kBlock, 100), 1);
  ASSERT_TRUE(back.hasEnded());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(queue->getBufferedSize(3 * kBlock), 100);
    EXPECT_EQ(queue->getBufferedSize(5 * kBlock), kBlock) << "the write head is before it";
  }
}

TEST_F(BufferQueueTest, ProbeLearnsTheSizeAndLeavesTheOffset) {
  make(4);
  WaitingCall asking(queue.get(), [&] { queue->probe(); });
  ASSERT_TRUE(runs(1));
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 100), 1);
  asking.join();
  EXPECT_EQ(queue->getContentSize(), 10000000);
  EXPECT_EQ(queue->getReadPosition(), 0);
  queue->probe();
  EXPECT_EQ(producer.started().size(), 1u);
}

#if defined(FLUVIA_PAUSE_POINTS)
// However early the first connection fails, the read that opened it reports the cause.
class BufferQueueFirstConnection
    : public BufferQueueTest,
      public testing::WithParamInterface<std::tuple<const char*, std::pair<int, int>>> {};

TEST_P(BufferQueueFirstConnection, TellsItsReadWhyItFailed) {
  const char* point = std::get<0>(GetParam());
  make(2);
  support::Pauses pauses;
  pauses.holdAt(point);
  Reading reading(queue.get(), 0, 10);
  EXPECT_TRUE(pauses.reached(point));
  EXPECT_TRUE(runs(1));
  event(std::get<1>(GetParam()).first);
  pauses.release(point);
  ASSERT_TRUE(reading.hasEnded());
  EXPECT_EQ(reading.result, std::get<1>(GetParam()).second);
  Reading next(queue.get(), 0, 10);
  ASSERT_TRUE(next.hasEnded());
  EXPECT_LT(next.result, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Races, BufferQueueFirstConnection,
    testing::Combine(testing::Values("BufferQueue::read begun",
                                     "BufferQueue::read before feedLock"),
                     testing::Values(std::make_pair(int{util::STREAM_FILE_NOT_FOUND}, -21),
                                     std::make_pair(int{util::STREAM_NOT_AVAILABLE}, -17))));

TEST_F(BufferQueueTest, SizeLearntJustBeforeAReadWaitsEndsIt) {
  make(2);
  producer.size = 1000;
  support::Pauses pauses;
  pauses.holdAt("BufferQueue::read before feedLock");
  Reading reading(queue.get(), 2 * kBlock, 10);
  EXPECT_TRUE(pauses.reached("BufferQueue::read before feedLock"));
  EXPECT_TRUE(runs(1));
  event(util::STREAM_NORMAL);
  pauses.release("BufferQueue::read before feedLock");
  ASSERT_TRUE(reading.hasEnded()) << "nothing wakes it any more";
  EXPECT_EQ(reading.result, -13);
}

// The block at the position exists, but is empty from the position on.
TEST_F(BufferQueueTest, SizeLearntJustBeforeAReadInItsBlockEndsIt) {
  producer.size = util::UNKNOWN_CONTENT_SIZE;
  producer.seekable = false;
  make(4);
  auto reading = connect(0, 300);
  EXPECT_EQ(deliver(0, 300), 1);
  ASSERT_TRUE(reading->hasEnded());
  support::Pauses pauses;
  pauses.holdAt("BufferQueue::read before feedLock");
  Reading atEnd(queue.get(), 300, 10);
  EXPECT_TRUE(pauses.reached("BufferQueue::read before feedLock"));
  producer.size = 300;
  WaitingCall end(queue.get(), [&] { event(util::EVENT_STREAM_PARTIAL_END); });
  EXPECT_TRUE(eventually([&] { return log.has("notifyStreamException: setFileSize: 300"); }));
  pauses.release("BufferQueue::read before feedLock");
  ASSERT_TRUE(atEnd.hasEnded());
  EXPECT_EQ(atEnd.result, -13) << "0 would be a read that succeeded";
  EXPECT_EQ(atEnd.got, 0u);
}
#endif

}  // namespace

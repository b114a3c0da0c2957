// A waiting reader is served: wishes that outlive a restart, and the bytes of a broken read.
#include <gtest/gtest.h>

#include <atomic>

#include "tests/support/Pauses.h"
#include "tests/support/SteppedQueue.h"
#include "util/BufferQueue.h"

namespace {

using support::eventually;
using support::kBlock;
using support::Reading;
using support::Started;
using util::BufferQueueProbe;

constexpr long long kFar = 100LL * kBlock;
constexpr long long kFarther = 200LL * kBlock;

// A queue whose connection lasts until it is stopped, so that only a chunk wakes a reader.
class BufferQueueService : public support::SteppedQueue {
 protected:
  ~BufferQueueService() override {
    if (queue != nullptr) queue->release();
  }
};

#if defined(FLUVIA_PAUSE_POINTS)
// A reader that begins to wait after a restart for another place was announced, and before the new
// connection is prepared.
class BufferQueueRestartWish : public BufferQueueService {
 protected:
  ~BufferQueueRestartWish() override {
    if (queue != nullptr) queue->release();
    waiting.reset();
  }

  void begin(long long offset) {
    producer.staysInside = true;
    ASSERT_TRUE(beginsWith(8, kBlock));
    support::Pauses pauses;
    pauses.holdAt("BufferQueue::restart noted");
    BufferQueueProbe::ask(*queue, kFar);
    ASSERT_EQ(deliver(kBlock, 100), 0);
    ASSERT_TRUE(pauses.reached("BufferQueue::restart noted"));
    waiting.reset(new Reading(queue.get(), offset, 100));
    ASSERT_TRUE(waits());
    pauses.release("BufferQueue::restart noted");
    ASSERT_TRUE(runs(2));
    ASSERT_EQ(producer.started()[1], (Started{1, kFar, 0}));
  }
  // True if at most one chunk is taken before the stream is restarted at that offset.
  testing::AssertionResult isServedAt(long long offset) {
    if (deliver(kFar, 1000) == 1 && deliver(kFar + 1000, 1000) == 1) {
      return testing::AssertionFailure() << "nobody serves the reader";
    }
    if (!runs(3)) return testing::AssertionFailure() << "no restart comes";
    if (producer.started()[2].from != offset) {
      return testing::AssertionFailure() << "it begins at " << producer.started()[2].from;
    }
    return testing::AssertionSuccess();
  }

  std::unique_ptr<Reading> waiting;
};

TEST_F(BufferQueueRestartWish, CostsAtMostOneChunkWhenItIsFarAhead) {
  ASSERT_NO_FATAL_FAILURE(begin(kFarther + 10));
  ASSERT_TRUE(isServedAt(kFarther));
  EXPECT_EQ(deliver(kFarther, 110), 1);
  ASSERT_TRUE(waiting->hasEnded());
  EXPECT_TRUE(right(*waiting, kFarther + 10));
}

TEST_F(BufferQueueRestartWish, CostsAtMostOneChunkWhenItIsBehind) {
  ASSERT_NO_FATAL_FAILURE(begin(kFar - 10LL * kBlock));
  ASSERT_TRUE(isServedAt(kFar - 10LL * kBlock));
  EXPECT_EQ(deliver(kFar - 10LL * kBlock, 100), 1);
  ASSERT_TRUE(waiting->hasEnded());
  EXPECT_TRUE(right(*waiting, kFar - 10LL * kBlock));
}

TEST_F(BufferQueueRestartWish, IsServedByTheNewConnectionWhenThatBringsIt) {
  ASSERT_NO_FATAL_FAILURE(begin(kFar + 40000));
  for (long long at = 0; at < 50000; at += 1000) ASSERT_EQ(deliver(kFar + at, 1000), 1);
  ASSERT_TRUE(waiting->hasEnded());
  EXPECT_TRUE(right(*waiting, kFar + 40000));
  EXPECT_EQ(producer.started().size(), 2u);
}
#endif

// The reader gets the bytes that came before a break, in every kind of wait.
class BufferQueueBrokenRead : public BufferQueueService,
                              public testing::WithParamInterface<unsigned int> {};

TEST_P(BufferQueueBrokenRead, KeepsTheBytesThatHadArrived) {
  const unsigned int arrived = GetParam();
  producer.staysInside = true;
  make(8);
  auto reading = connect(0, 200000);
  for (unsigned int at = 0; at < arrived; at += 1000) ASSERT_EQ(deliver(at, 1000), 1);
  queue->breakRead();
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, -4);
  EXPECT_EQ(reading->got, arrived);
  EXPECT_TRUE(right(*reading, 0));
  EXPECT_EQ(queue->getReadPosition(), arrived);
}

INSTANTIATE_TEST_SUITE_P(Arrived, BufferQueueBrokenRead,
                         testing::Values(0u, 20000u, 32000u, 33000u, 170000u));

TEST_F(BufferQueueService, FailedReadKeepsTheBytesThatHadArrived) {
  producer.staysInside = true;
  make(8);
  auto reading = connect(0, 200000);
  for (unsigned int at = 0; at < 100000; at += 1000) ASSERT_EQ(deliver(at, 1000), 1);
  event(util::STREAM_NOT_AVAILABLE);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, -17);
  EXPECT_EQ(reading->got, 100000u);
  EXPECT_TRUE(right(*reading, 0));
}

// Its bytes are buffered and it was woken, but it has not had the lock: the transfer must neither
// drop the rest of a chunk for it nor restart the stream.
TEST_F(BufferQueueService, TransferWithoutRoomKeepsItsChunkForAReaderThatHasItsBytes) {
  ASSERT_TRUE(beginsWith(2, kBlock));
  BufferQueueProbe::waitWoken(*queue, 10);
  std::atomic<int> result{-1};
  support::WaitingCall transfer(queue.get(), [&] { result = deliver(kBlock, kBlock + 100); });
  ASSERT_TRUE(transferWaits());
  BufferQueueProbe::wake(*queue);
  EXPECT_TRUE(eventually([&] { return log.count("streamIn: wait in streamIn") == 2; }))
      << "it gives the chunk up";
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(log.has("streamIn: break 2"));
  EXPECT_EQ(producer.started().size(), 1u);
}

// The same if the chunk itself brought them.
TEST_F(BufferQueueService, TransferWithoutRoomKeepsTheRestOfAChunkThatBroughtTheReaderItsBytes) {
  producer.staysInside = true;
  ASSERT_TRUE(beginsWith(2, 100));
  BufferQueueProbe::waitWoken(*queue, 1000);
  std::atomic<int> result{-1};
  support::WaitingCall transfer(queue.get(), [&] { result = deliver(100, 2 * kBlock); });
  ASSERT_TRUE(transferWaits());
  BufferQueueProbe::wake(*queue);
  EXPECT_TRUE(eventually([&] { return log.count("streamIn: wait in streamIn") == 2; }))
      << "it gives the rest up";
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(log.has("streamIn: break 2"));
  EXPECT_EQ(producer.started().size(), 1u);
}

// The flag may have been raised before the stream was known to be unable to seek.
TEST_F(BufferQueueService, ReaderOfAStreamThatCannotSeekIsWaitedForByNoRestart) {
  producer.staysInside = true;
  producer.seekable = false;
  make(8);
  auto reading = connect(50000, 100000);
  const std::string waiting = "fill: wait in fill";
  ASSERT_TRUE(eventually([&] { return log.count(waiting) == 2; }));
  BufferQueueProbe::ask(*queue, 50000);
  BufferQueueProbe::wake(*queue);
  ASSERT_TRUE(eventually([&] { return log.count(waiting) == 3; }));
  for (long long at = 0; at < 10 * 16384; at += 16384) ASSERT_EQ(deliver(at, 16384), 1) << at;
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, 0);
  EXPECT_TRUE(right(*reading, 50000));
  EXPECT_FALSE(log.has("streamIn: reconnecting connection/stream"));
  EXPECT_EQ(producer.started().size(), 1u);
}

// A connection ends without an announced one, while the size is still unknown.
TEST_F(BufferQueueService, ReaderWithoutASizeGoesOnInItsBlock) {
  producer.size = 0;
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 100), 1);
  event(util::STREAM_CANCELED);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1], (Started{1, 100, 0}));
  EXPECT_EQ(deliver(100, 900), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->got, 1000u);
  EXPECT_TRUE(right(*reading, 0));
}

// A parked thread that leaves late must not change the state of the connection that has begun.
TEST_F(BufferQueueService, ParkedThreadThatLeavesLateLeavesTheNewConnectionAlone) {
  producer.size = 2 * kBlock;
  make(4);
  auto reading = connect(0, kBlock);
  EXPECT_EQ(deliver(0, 2 * kBlock), 1);
  ASSERT_TRUE(reading->hasEnded());
  support::WaitingCall parked(queue.get(), [&] { event(util::EVENT_STREAM_PARTIAL_END); });
  ASSERT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
  producer.staysInside = true;
  BufferQueueProbe::announce(*queue, false);
  ASSERT_TRUE(runs(2));
  EXPECT_FALSE(parked.returned) << "nobody has woken it";
  BufferQueueProbe::wake(*queue);
  ASSERT_TRUE(parked.hasReturned());
  EXPECT_TRUE(queue->comesNext(2 * kBlock)) << "the connection that runs is forgotten";
}

// The request of a broken read is no longer a reason to leave the running connection.
TEST_F(BufferQueueService, BrokenFarReadLeavesNoWish) {
  producer.staysInside = true;
  ASSERT_TRUE(beginsWith(4, kBlock));
  Reading far(queue.get(), kFar, 10);
  ASSERT_TRUE(wants());
  queue->breakRead();
  ASSERT_TRUE(far.hasEnded());
  EXPECT_EQ(deliver(kBlock, 100), 1) << "the stream is restarted for nobody";
  EXPECT_EQ(producer.started().size(), 1u);
}

// A break names the reads that it applies to, also one that has not reached the queue yet.
TEST_F(BufferQueueService, BreakThatNamesAReadMeetsItHoweverLateItComes) {
  producer.staysInside = true;
  ASSERT_TRUE(beginsWith(4, kBlock));
  queue->breakReads(7);
  char buffer[100];
  unsigned int got = 77;
  long long now = 0;
  ASSERT_TRUE(queue->seek(kFar, &now));
  EXPECT_EQ(queue->read(buffer, sizeof buffer, &got, 6), -4) << "it must not even wait";
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(queue->read(buffer, sizeof buffer, &got, 7), -4);
  EXPECT_EQ(producer.started().size(), 1u) << "nobody waits for what it wants";
  ASSERT_TRUE(queue->seek(0, &now));
  EXPECT_EQ(queue->read(buffer, sizeof buffer, &got, 8), 0)
      << "later reads are none of its business";
  EXPECT_EQ(queue->read(buffer, sizeof buffer, &got), 0) << "nor are reads without a number";
}

TEST_F(BufferQueueService, BreakThatNamesAReadMeetsItWhileItWaits) {
  producer.staysInside = true;
  ASSERT_TRUE(beginsWith(4, kBlock));
  int result = 77;
  support::WaitingCall call(queue.get(), [&] {
    char buffer[100];
    unsigned int got = 0;
    long long now = 0;
    queue->seek(kFar, &now);
    result = queue->read(buffer, sizeof buffer, &got, 5);
  });
  ASSERT_TRUE(wants());
  queue->breakReads(4);
  EXPECT_TRUE(BufferQueueProbe::readWaits(*queue)) << "it breaks an earlier one";
  queue->breakReads(5);
  ASSERT_TRUE(call.hasReturned());
  EXPECT_EQ(result, -4);
}

}  // namespace

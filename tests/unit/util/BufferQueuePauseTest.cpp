// A transfer without room pauses until a reader comes near the write head. The clock that ends a
// pause is stopped here, unless a test is about it: no waiting thread may depend on it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <vector>

#include "tests/support/Pattern.h"
#include "tests/support/SteppedQueue.h"
#include "util/BufferQueue.h"

namespace {

using support::eventually;
using support::kBlock;
using support::Reading;
using support::WaitingCall;
using util::BufferQueueProbe;

constexpr int kHour = 3600000;
constexpr int kBlocks = 64;
constexpr long long kFilled = static_cast<long long>(kBlocks) * kBlock;

class BufferQueuePause : public support::SteppedQueue {
 protected:
  BufferQueuePause() { BufferQueueProbe::setLongestPause(kHour); }
  ~BufferQueuePause() override {
    if (queue != nullptr) queue->release();
    transfer.reset();
    BufferQueueProbe::resetLongestPause();
  }

  // All blocks are filled from 0 on, and a transfer has 100 bytes more.
  void fill() {
    producer.staysInside = true;
    ASSERT_TRUE(beginsWith(kBlocks, kFilled));
    transfer.reset(new WaitingCall(queue.get(), [this] { result = deliver(kFilled, 100); }));
    ASSERT_TRUE(transferWaits());
  }
  // Reads block number index, which is buffered.
  void readBlock(int index) {
    Reading reading(queue.get(), static_cast<long long>(index) * kBlock, kBlock);
    ASSERT_TRUE(reading.hasEnded());
    ASSERT_EQ(reading.got, kBlock);
    ASSERT_TRUE(right(reading, static_cast<long long>(index) * kBlock));
  }
  bool goesOn() { return transfer->hasReturned(); }

  std::atomic<int> result{-1};
  std::unique_ptr<WaitingCall> transfer;
};

// Resumes with 36 blocks ahead: half of them and a sixteenth, less the block that is read next.
TEST_F(BufferQueuePause, EndsWhenTheNextReadWouldBeNearTheWriteHead) {
  ASSERT_NO_FATAL_FAILURE(fill());
  for (int i = 0; i < 26; ++i) {
    ASSERT_NO_FATAL_FAILURE(readBlock(i));
    ASSERT_TRUE(BufferQueueProbe::transferRests(*queue)) << "woken by block " << i;
  }
  ASSERT_NO_FATAL_FAILURE(readBlock(26));
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 1);
  EXPECT_EQ(producer.started().size(), 1u);
}

TEST_F(BufferQueuePause, EndsWithAReadThatJumpsNearTheWriteHead) {
  ASSERT_NO_FATAL_FAILURE(fill());
  ASSERT_NO_FATAL_FAILURE(readBlock(10));
  ASSERT_TRUE(BufferQueueProbe::transferRests(*queue));
  ASSERT_NO_FATAL_FAILURE(readBlock(40));
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 1);
}

TEST_F(BufferQueuePause, EndsWithAnExpectedReaderNearTheWriteHead) {
  ASSERT_NO_FATAL_FAILURE(fill());
  queue->expectReader(10LL * kBlock);
  ASSERT_TRUE(BufferQueueProbe::transferRests(*queue));
  queue->expectReader(40LL * kBlock);
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 1);
}

// The reader behind has plenty; the one in front would reach the end.
TEST_F(BufferQueuePause, EndsForTheForemostOfTwoReaders) {
  ASSERT_NO_FATAL_FAILURE(fill());
  for (int i = 1; i < 7; ++i) {
    ASSERT_NO_FATAL_FAILURE(readBlock(19 + i));
    queue->expectReader(static_cast<long long>(i) * kBlock);
    ASSERT_TRUE(BufferQueueProbe::transferRests(*queue)) << "woken by block " << 19 + i;
  }
  ASSERT_NO_FATAL_FAILURE(readBlock(26));
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 1);
}

TEST_F(BufferQueuePause, EndsForAReaderThatWaitsFarAway) {
  ASSERT_NO_FATAL_FAILURE(fill());
  ASSERT_NO_FATAL_FAILURE(readBlock(3));
  Reading far(queue.get(), 5000000, 10);
  EXPECT_TRUE(goesOn());
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1].from, 5000000 / kBlock * kBlock);
  queue->release();
  EXPECT_TRUE(far.hasEnded());
}

TEST_F(BufferQueuePause, EndsForAReaderThatWaitsForTheBytesOfItsChunk) {
  ASSERT_NO_FATAL_FAILURE(fill());
  ASSERT_NO_FATAL_FAILURE(readBlock(3));
  Reading next(queue.get(), kFilled + 50, 50);
  EXPECT_TRUE(next.hasEnded());
  EXPECT_TRUE(right(next, kFilled + 50));
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(producer.started().size(), 1u);
}

// A reader that already waits is woken when the transfer has no room, and wakes the transfer when
// it waits again.
TEST_F(BufferQueuePause, EndsForAReaderThatWaitsOn) {
  producer.staysInside = true;
  ASSERT_TRUE(beginsWith(kBlocks, kFilled));
  Reading far(queue.get(), 5000000, 10);
  ASSERT_TRUE(wants());
  transfer.reset(new WaitingCall(queue.get(), [this] { result = deliver(kFilled, 100); }));
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 0);
  ASSERT_TRUE(runs(2));
  queue->release();
  EXPECT_TRUE(far.hasEnded());
}

// The reader near the write head does not read; the other one is far from it.
TEST_F(BufferQueuePause, DoesNotBeginWhereAReaderIsNear) {
  producer.staysInside = true;
  ASSERT_TRUE(beginsWith(kBlocks, kFilled));
  ASSERT_NO_FATAL_FAILURE(readBlock(40));
  queue->expectReader(0);
  transfer.reset(new WaitingCall(queue.get(), [this] { result = deliver(kFilled, 100); }));
  ASSERT_TRUE(transferWaits());
  ASSERT_NO_FATAL_FAILURE(readBlock(0));
  ASSERT_TRUE(BufferQueueProbe::transferRests(*queue)) << "no block was left";
  ASSERT_NO_FATAL_FAILURE(readBlock(1));
  EXPECT_TRUE(goesOn()) << "the connection is silent for ever";
  EXPECT_EQ(result, 1);
}

TEST_F(BufferQueuePause, EndsWithANewerVersion) {
  ASSERT_NO_FATAL_FAILURE(fill());
  ASSERT_NO_FATAL_FAILURE(readBlock(3));
  BufferQueueProbe::announce(*queue);
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 0);
}

TEST_F(BufferQueuePause, EndsWithTheRelease) {
  ASSERT_NO_FATAL_FAILURE(fill());
  ASSERT_NO_FATAL_FAILURE(readBlock(3));
  queue->release();
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 0);
}

TEST_F(BufferQueuePause, EndsAfterItsTimeWhenABlockWasLeft) {
  BufferQueueProbe::setLongestPause(200);
  ASSERT_NO_FATAL_FAILURE(fill());
  ASSERT_NO_FATAL_FAILURE(readBlock(0));
  ASSERT_NO_FATAL_FAILURE(readBlock(1));
  EXPECT_TRUE(goesOn()) << "the connection is silent for ever";
  EXPECT_EQ(result, 1);
}

// No reader plays: no clock runs, and after a pause that has lasted its time no other one follows.
TEST_F(BufferQueuePause, SleepsOnAfterItsTimeUntilABlockIsLeft) {
  BufferQueueProbe::setLongestPause(1);
  ASSERT_NO_FATAL_FAILURE(fill());
  ASSERT_TRUE(eventually([&] { return BufferQueueProbe::transferSleepsOn(*queue); }));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(log.count("streamIn: wake up  in streamIn"), 0);
  ASSERT_NO_FATAL_FAILURE(readBlock(0));
  ASSERT_NO_FATAL_FAILURE(readBlock(1));
  EXPECT_TRUE(goesOn());
  EXPECT_EQ(result, 1);
}

// A transfer that never ends by itself, as from a server that is faster than any reader.
class BufferQueueEndlessTransfer : public BufferQueuePause,
                                   public testing::WithParamInterface<int> {
 protected:
  ~BufferQueueEndlessTransfer() override {
    if (queue != nullptr) queue->release();
    transfer.reset();
  }
  void stream(unsigned int seed) {
    std::mt19937 random(seed);
    long long at = 10;
    for (;;) {
      const unsigned int size = static_cast<unsigned int>(1 + random() % 200000);
      if (deliver(at, size) == 0) return;
      at += size;
    }
  }
};

// Where the transfer pauses, the next read of the same size leaves half of the buffer, or there is
// no room. A reader with reads of at most half the buffer never waits for long.
TEST_P(BufferQueueEndlessTransfer, KeepsHalfOfTheBufferAheadOfItsReader) {
  const unsigned int seed = support::printedSeed();
  const long long capacity = static_cast<long long>(GetParam()) * kBlock;
  std::mt19937 random(seed);
  producer.size = util::UNKNOWN_CONTENT_SIZE;
  producer.staysInside = true;
  ASSERT_TRUE(beginsWith(GetParam(), 10));
  transfer.reset(new WaitingCall(queue.get(), [&] { stream(seed + 1); }));
  std::vector<char> buffer(static_cast<size_t>(capacity));
  long long at = 0;
  long long now = 0;
  ASSERT_TRUE(queue->seek(0, &now));
  for (int step = 0, steps = support::scaled(400); step < steps; ++step) {
    const unsigned int most = static_cast<unsigned int>(random() % 2 == 0 ? 3000 : capacity / 2);
    const unsigned int size = 1 + static_cast<unsigned int>(random()) % most;
    unsigned int got = 0;
    ASSERT_EQ(queue->read(buffer.data(), size, &got), 0);
    ASSERT_EQ(got, size);
    ASSERT_EQ(support::firstDifference(static_cast<unsigned long long>(at), buffer.data(), got),
              -1);
    at += got;
    ASSERT_TRUE(eventually([&] { return BufferQueueProbe::transferRests(*queue); }))
        << "the transfer waits for nothing after read " << step;
    ASSERT_GE(queue->getBufferedSize(at), std::min(capacity / 2 + size, capacity - kBlock))
        << "after read " << step << " of " << size << " bytes, up to " << at;
  }
}

INSTANTIATE_TEST_SUITE_P(Buffers, BufferQueueEndlessTransfer,
                         testing::Values(2, 3, 4, 5, 8, 13, 64));

}  // namespace

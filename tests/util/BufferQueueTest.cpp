// The buffer queue driven step by step: the test is the producer.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/QueueProbe.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "util/BufferQueue.h"

namespace {

using support::CapturedStderr;
using support::eventually;
using util::BufferQueue;
using util::BufferQueueProbe;

constexpr unsigned int kBlock = 32768;

struct Started {
  int version;
  long long from;
  long long length;
  bool operator==(const Started& other) const {
    return version == other.version && from == other.from && length == other.length;
  }
};

// A producer that only notes what is asked of it; the test delivers in its place.
class SteppedProducer : public util::BufferQueueProducer {
 public:
  void setOutput(util::BufferQueueDataReceiver*) override {}
  void release() override {}
  int startStreaming(int version, long long from, long long length) override {
    {
      std::lock_guard<std::mutex> guard(lock);
      runs.push_back({version, from, length});
      stopped = false;
    }
    while (staysInside && !stopped) std::this_thread::yield();
    return startResult;
  }
  int stopStreaming() override {
    ++stops;
    stopped = true;
    if (duringStop) duringStop();
    stopWait = false;
    return 0;
  }
  bool isRandomAccess() override { return seekable; }
  long long getContentSize() override { return size; }
  void setBreak() override { ++breaks; }
  bool getStopWait() override { return stopWait; }
  void setStopWait() override { stopWait = true; }

  std::vector<Started> started() const {
    std::lock_guard<std::mutex> guard(lock);
    return runs;
  }

  std::atomic<long long> size{10000000};
  std::atomic<bool> seekable{true};
  std::atomic<bool> stopWait{false};
  std::atomic<bool> stopped{false};  // since the last start
  std::atomic<int> startResult{0};
  std::atomic<bool> staysInside{false};  // a start returns when it is stopped
  std::atomic<int> stops{0};
  std::atomic<int> breaks{0};
  std::function<void()> duringStop;

 private:
  mutable std::mutex lock;
  std::vector<Started> runs;
};

// Reads on a thread of its own.
class Reading {
 public:
  Reading(BufferQueue* queue, long long offset, unsigned int size)
      : buffer(std::max(1u, size)), thread([this, queue, offset, size] {
          long long now = 0;
          moved = queue->seek(offset, &now);
          result = moved ? queue->read(buffer.data(), size, &got) : -4;
          ended = true;
        }) {}
  ~Reading() { thread.join(); }

  bool hasEnded() {
    return eventually([this] { return ended.load(); });
  }

  std::vector<char> buffer;
  bool moved = false;
  unsigned int got = 77;
  int result = 77;
  std::atomic<bool> ended{false};

 private:
  std::thread thread;
};

class BufferQueueTest : public testing::Test {
 protected:
  void make(int blocks) {
    queue.reset(new BufferQueue(blocks * static_cast<int>(kBlock)));
    ASSERT_TRUE(queue->initialize(&producer));
  }
  ~BufferQueueTest() override {
    if (queue != nullptr) queue->release();
  }

  // Starts a read and waits until the queue has asked for its first connection.
  std::unique_ptr<Reading> read(long long offset, unsigned int size) {
    std::unique_ptr<Reading> reading(new Reading(queue.get(), offset, size));
    EXPECT_TRUE(runs(1));
    EXPECT_TRUE(waits());
    return reading;
  }
  bool runs(size_t count) {
    return eventually([&] { return producer.started().size() >= count; });
  }
  bool waits() {
    return eventually([&] { return BufferQueueProbe::readWaits(*queue); });
  }
  bool wants() {
    return eventually([&] { return BufferQueueProbe::wantsFeed(*queue); });
  }
  // Delivers size bytes of the pattern from offset on as the current version.
  int deliver(long long offset, unsigned int size) {
    return deliverAs(BufferQueueProbe::version(*queue), offset, size);
  }
  int deliverAs(int version, long long offset, unsigned int size) {
    std::string bytes = support::pattern(static_cast<unsigned long long>(offset), size);
    return queue->streamIn(&bytes[0], size, version);
  }
  void event(int number) { queue->notifyStreamException(number); }
  static bool right(const Reading& reading, long long offset) {
    return support::firstDifference(static_cast<unsigned long long>(offset), reading.buffer.data(),
                                    reading.got) == -1;
  }

  const CapturedStderr log{2};
  std::atomic<bool> disturbed{false};  // a read was disturbed during the first stop
  SteppedProducer producer;
  std::unique_ptr<BufferQueue> queue;
  support::Watchdog watchdog{60, [this] { return BufferQueueProbe::describe(*queue); }};
};

TEST_F(BufferQueueTest, SizesComeInWholeBlocksAndTwoAtLeast) {
  for (const auto& size : {std::pair<int, int>{40000, 32768}, {0, 0}, {-1, 0}, {65536, 65536}}) {
    BufferQueue made(size.first);
    EXPECT_EQ(BufferQueueProbe::blockCount(made), 2);
    EXPECT_EQ(made.getBufferSize(), size.second);
  }
  BufferQueue made(100000);
  EXPECT_EQ(BufferQueueProbe::blockCount(made), 3);
}

TEST_F(BufferQueueTest, SecondInitializeSwapsTheProducerAndClaimsNothing) {
  make(2);
  SteppedProducer second;
  EXPECT_TRUE(queue->initialize(&second));
  queue->breakRead();
  EXPECT_EQ(second.breaks, 1);
  EXPECT_EQ(log.count("claimPool: claimPool 1"), 0) << "level 2 is below that line";
  EXPECT_TRUE(queue->initialize(&producer));
}

TEST_F(BufferQueueTest, ReadCrossesABlockBoundary) {
  make(4);
  auto reading = read(0, 40000);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(producer.started()[0], (Started{0, 0, 0}));
  EXPECT_EQ(deliver(0, 50000), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, 0);
  EXPECT_EQ(reading->got, 40000u);
  EXPECT_TRUE(right(*reading, 0));
  EXPECT_TRUE(log.has("fill: second fill 1, 7232"));
}

TEST_F(BufferQueueTest, ChunkThatFillsTheBlockExactlyClaimsNoOther) {
  make(2);
  auto reading = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, kBlock), 1);
  EXPECT_FALSE(log.has("streamIn: insert"));
  EXPECT_EQ(deliver(kBlock, 1), 1);
  EXPECT_TRUE(log.has("streamIn: insert"));
  ASSERT_TRUE(reading->hasEnded());
}

TEST_F(BufferQueueTest, ReaderWithinTheMarginWaitsForTheRunningConnection) {
  make(8);
  auto reading = read(65536, 10);
  event(util::STREAM_NORMAL);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(0, 1000), 1) << "64 KiB ahead of 0 is within the margin of 1000";
  for (long long at = 1000; at < 70000; at += 1000) ASSERT_EQ(deliver(at, 1000), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 65536));
  EXPECT_EQ(producer.started().size(), 1u);
}

TEST_F(BufferQueueTest, ReaderOneByteBeyondTheMarginGetsAConnectionOfItsOwn) {
  make(8);
  auto reading = read(1000 + 65536 + 1, 10);
  event(util::STREAM_NORMAL);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(0, 1000), 0);
  EXPECT_TRUE(producer.stopWait || producer.stops > 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1], (Started{1, 65536, 0})) << "aligned down to a block";
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(65536, 16384), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, 0);
  EXPECT_TRUE(right(*reading, 66537));
}

TEST_F(BufferQueueTest, DataOfAnOlderVersionIsDropped) {
  make(8);
  auto reading = read(5000000, 10);
  event(util::STREAM_NORMAL);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(0, 1000), 0);
  ASSERT_TRUE(runs(2));
  const long long from = producer.started()[1].from;
  EXPECT_EQ(deliverAs(0, 1000, 1000), 0);
  EXPECT_TRUE(log.has("streamIn: ver = 0, version =1, needExit = 0"));
  EXPECT_EQ(deliver(from, 16384), 1);
  EXPECT_EQ(deliver(from + 16384, 16384), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 5000000)) << "stale data must not move the new write head";
}

TEST_F(BufferQueueTest, FullBufferHoldsTheTransferUntilAReaderMovesOn) {
  make(2);
  auto first = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 2 * kBlock), 1);
  ASSERT_TRUE(first->hasEnded());
  std::atomic<int> result{-1};
  std::thread transfer([&] { result = deliver(2 * kBlock, 100); });
  EXPECT_TRUE(eventually([&] { return log.has("streamIn: wait in streamIn"); }));
  EXPECT_EQ(result, -1);
  Reading second(queue.get(), kBlock, 10);
  ASSERT_TRUE(second.hasEnded());
  EXPECT_TRUE(eventually([&] { return result == -1 || result == 1; }));
  Reading third(queue.get(), 2 * kBlock, 10);
  ASSERT_TRUE(third.hasEnded());
  transfer.join();
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(right(third, 2 * kBlock));
}

TEST_F(BufferQueueTest, ReaderElsewhereReleasesAHeldTransferAndTheChunkIsDropped) {
  make(2);
  auto first = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 2 * kBlock), 1);
  ASSERT_TRUE(first->hasEnded());
  std::atomic<int> result{-1};
  std::thread transfer([&] { result = deliver(2 * kBlock, 100); });
  EXPECT_TRUE(eventually([&] { return log.has("streamIn: wait in streamIn"); }));
  Reading far(queue.get(), 5000000, 10);
  ASSERT_TRUE(runs(2));
  transfer.join();
  EXPECT_EQ(result, 0);
  const long long from = producer.started()[1].from;
  EXPECT_EQ(from, 5000000 / kBlock * kBlock);
  for (long long at = from; at < 5000010; at += 8192) deliver(at, 8192);
  ASSERT_TRUE(far.hasEnded());
  EXPECT_TRUE(right(far, 5000000));
}

TEST_F(BufferQueueTest, OverdeliveryEndsTheConnectionAndCountsAsItsEnd) {
  make(4);
  auto far = read(5 * kBlock, 10);
  event(util::STREAM_NORMAL);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(0, 100), 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(deliver(5 * kBlock, kBlock), 1);
  ASSERT_TRUE(far->hasEnded());
  // Back to the block before: its connection is bounded by the block that is held.
  Reading back(queue.get(), 4 * kBlock, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(6 * kBlock, 100), 0);
  ASSERT_TRUE(runs(3));
  EXPECT_EQ(producer.started()[2], (Started{2, 4 * kBlock, kBlock}));
  EXPECT_EQ(deliver(4 * kBlock, kBlock), 1);
  ASSERT_TRUE(back.hasEnded());
  EXPECT_EQ(deliver(5 * kBlock, 100), 0) << "more than was asked";
  EXPECT_TRUE(log.has("streamIn: Server gives more than the client required, stop streaming"));
  // The cancel of another queue is not taken for it.
  SteppedProducer otherProducer;
  BufferQueue other(2 * static_cast<int>(kBlock));
  ASSERT_TRUE(other.initialize(&otherProducer));
  other.notifyStreamException(util::STREAM_CANCELED);
  EXPECT_TRUE(log.has("notifyStreamException: cancel without continuing"));
  std::thread end([&] { event(util::STREAM_CANCELED); });
  EXPECT_TRUE(eventually([&] {
    return log.has(
        "notifyStreamException: manually translate cancel action to partition end action");
  }));
  queue->release();
  other.release();
  end.join();
}

TEST_F(BufferQueueTest, ProducerThatDoesNotStartFailsTheRead) {
  producer.startResult = -1;
  make(4);
  Reading reading(queue.get(), 0, 1000);
  ASSERT_TRUE(reading.hasEnded()) << "no event will come";
  // -1 when the stream has failed before the read looks at it.
  EXPECT_TRUE(reading.result == -4 || reading.result == -1) << reading.result;
  EXPECT_TRUE(queue->errorOccured());
}

// A transfer that gave up bytes for a reader elsewhere must not go on behind them, even for a
// reader within the margin.
TEST_F(BufferQueueTest, TransferThatDroppedBytesDoesNotGoOn) {
  make(2);
  auto first = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 100), 1);
  ASSERT_TRUE(first->hasEnded());
  Reading second(queue.get(), 3 * kBlock, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(100, 1), 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(deliver(3 * kBlock, kBlock), 1);
  ASSERT_TRUE(second.hasEnded());
  Reading back(queue.get(), kBlock + 5, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(4 * kBlock, 10), 0);
  ASSERT_TRUE(runs(3));
  EXPECT_EQ(deliver(kBlock, kBlock), 1);
  ASSERT_TRUE(back.hasEnded());
  // Both blocks are full and the reader is in the second one: there is no room for block 2.
  Reading ahead(queue.get(), 4 * kBlock, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(2 * kBlock, 100), 0) << "exactly the margin behind the reader";
  EXPECT_TRUE(log.has("streamIn: break 2"));
  ASSERT_TRUE(runs(4));
  EXPECT_EQ(producer.started()[3].from, 4 * kBlock);
  EXPECT_EQ(deliver(4 * kBlock, 100), 1);
  ASSERT_TRUE(ahead.hasEnded());
  EXPECT_TRUE(right(ahead, 4 * kBlock));
}

// A transfer may ask what a reader wants before that reader has had its turn: what it wants may
// have been stored since it last looked, and must neither be placed again nor fail for want of a
// place.
class HeldDataOfAWaitingReader : public BufferQueueTest, public testing::WithParamInterface<int> {};

TEST_P(HeldDataOfAWaitingReader, IsNotPlacedAgain) {
  const int blocks = GetParam();
  make(blocks);
  const long long far = 100 * static_cast<long long>(kBlock);
  auto first = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, kBlock), 1);
  ASSERT_TRUE(first->hasEnded());
  BufferQueueProbe::ask(*queue, far + 10);
  EXPECT_EQ(deliver(kBlock, 100), 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1], (Started{1, far, 0}));
  BufferQueueProbe::ask(*queue, far + 10);
  // Every block but the one where the reader last was is filled: the transfer waits for room.
  std::atomic<bool> left{false};
  std::thread transfer([&] {
    deliver(far, static_cast<unsigned int>(blocks - 1) * kBlock + 100);
    left = true;
  });
  EXPECT_TRUE(eventually([&] { return log.has("streamIn: wait in streamIn"); }));
  BufferQueueProbe::wake(*queue);
  EXPECT_TRUE(eventually([&] { return left.load(); }));
  EXPECT_EQ(BufferQueueProbe::fault(*queue, 0), "");
  EXPECT_FALSE(queue->errorOccured());
  EXPECT_EQ(producer.started().size(), 2u);
  Reading second(queue.get(), far + 10, 100);
  EXPECT_TRUE(second.hasEnded());
  EXPECT_EQ(second.got, 100u);
  EXPECT_TRUE(right(second, far + 10));
  queue->release();
  transfer.join();
}

INSTANTIATE_TEST_SUITE_P(Buffers, HeldDataOfAWaitingReader, testing::Values(3, 4, 5));

// The last thing to do when a reader's place is refused twice, however it came to that: its read
// must end, and so must the transfer that was told to hold still.
TEST_F(BufferQueueTest, ReaderWithoutAPlaceFailsAndItsTransferEnds) {
  make(3);
  auto first = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 100), 1);
  ASSERT_TRUE(first->hasEnded());
  BufferQueueProbe::arrange(
      *queue, {{0, kBlock - 100}, {100LL * kBlock, kBlock}, {200LL * kBlock, kBlock}});
  BufferQueueProbe::ask(*queue, 250LL * kBlock);
  EXPECT_EQ(deliver(kBlock - 100, 100), 0);
  EXPECT_TRUE(producer.stopWait || producer.stops > 0);
  EXPECT_TRUE(log.has("streamIn: fragmentStreaming failed"));
  EXPECT_TRUE(eventually([&] { return producer.stops > 0; }));
  Reading next(queue.get(), 250LL * kBlock, 10);
  ASSERT_TRUE(next.hasEnded());
  EXPECT_LT(next.result, 0);
}

// A wake-up is a system call and a switch: a reader sleeps until all it asked for is there.
TEST_F(BufferQueueTest, ReaderIsWokenOnceForAllItWants) {
  make(8);
  auto reading = read(0, kBlock);
  event(util::STREAM_NORMAL);
  EXPECT_TRUE(
      eventually([&] { return log.count("fill: begin to easyFill from 0, count:32768") == 1; }));
  // The worker wakes everybody when it has started the producer.
  EXPECT_TRUE(eventually([&] { return !BufferQueueProbe::isConnecting(*queue); }));
  const std::string woken = "easyFill: wake up at easyfill";
  const int before = log.count(woken);
  for (long long at = 0; at < kBlock - 1000; at += 1000) EXPECT_EQ(deliver(at, 1000), 1);
  EXPECT_LE(log.count(woken), before + 1) << "the event may still have woken it";
  EXPECT_EQ(deliver(32000, 768), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_LE(log.count(woken), before + 2);
  EXPECT_TRUE(right(*reading, 0));
}

TEST_F(BufferQueueTest, ReaderThatSoughtBackIsWokenByTheFewBytesItWants) {
  producer.size = 101LL * kBlock;
  make(32);
  auto first = read(0, 10);
  event(util::STREAM_NORMAL);
  const long long far = 100LL * kBlock;
  EXPECT_EQ(deliver(0, kBlock), 1);
  ASSERT_TRUE(first->hasEnded());
  BufferQueueProbe::ask(*queue, far);
  EXPECT_EQ(deliver(kBlock, 100), 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(deliver(far, kBlock), 1);
  Reading there(queue.get(), far, kBlock);
  ASSERT_TRUE(there.hasEnded());
  std::thread end([&] { event(util::EVENT_STREAM_PARTIAL_END); });
  EXPECT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
  producer.staysInside = true;
  Reading back(queue.get(), 50LL * kBlock, 10);
  EXPECT_TRUE(runs(3));
  end.join();
  EXPECT_EQ(deliver(50LL * kBlock, 1000), 1);
  EXPECT_TRUE(back.hasEnded()) << "it waits for as much as the read before wanted";
  EXPECT_TRUE(right(back, 50LL * kBlock));
  queue->release();
}

TEST_F(BufferQueueTest, ReadsThatLeaveNoBlockDoNotWakeATransferWithoutRoom) {
  make(2);
  auto first = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 2 * kBlock), 1);
  ASSERT_TRUE(first->hasEnded());
  std::atomic<int> result{-1};
  std::thread transfer([&] { result = deliver(2 * kBlock, 100); });
  EXPECT_TRUE(eventually([&] { return log.has("streamIn: wait in streamIn"); }));
  for (long long at = 10; at < 1000; at += 10) {
    Reading next(queue.get(), at, 10);
    ASSERT_TRUE(next.hasEnded());
  }
  EXPECT_EQ(log.count("streamIn: wake up  in streamIn"), 0);
  Reading last(queue.get(), kBlock, 10);
  ASSERT_TRUE(last.hasEnded());
  EXPECT_TRUE(eventually([&] { return result == 1; })) << "the first block is free";
  queue->release();
  transfer.join();
}

// A reader that takes what there is, and sleeps again, while the chunk waits for room.
TEST_F(BufferQueueTest, ChunkThatWaitedForRoomWakesItsReaderAtItsEnd) {
  make(2);
  auto reading = read(0, 2 * kBlock + 100);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 2 * kBlock + 100), 1);
  ASSERT_TRUE(reading->hasEnded()) << "nothing else comes";
  EXPECT_EQ(reading->got, 2 * kBlock + 100);
  EXPECT_TRUE(right(*reading, 0));
}

TEST_F(BufferQueueTest, TwoRestartsOnTheirWayMakeOneConnection) {
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 200), 1);
  // The connection ends once more while the first restart stops it.
  producer.duringStop = [this] {
    if (!disturbed.exchange(true)) event(util::STREAM_DEAD);
  };
  event(util::STREAM_DEAD);
  ASSERT_TRUE(runs(2));
  ASSERT_TRUE(eventually([&] { return BufferQueueProbe::activeWork(*queue) == 1; }));
  EXPECT_EQ(producer.started()[1], (Started{2, 200, 0}));
  EXPECT_EQ(producer.started().size(), 2u);
  EXPECT_EQ(producer.stops, 1) << "the second restart finds its version started";
  EXPECT_EQ(deliver(200, 800), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 0));
}

TEST_F(BufferQueueTest, EndOfFileIsKnownWithoutWaiting) {
  producer.size = 100;
  make(2);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
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

TEST_F(BufferQueueTest, SizeLearntWhileAReaderWaitsEndsItsRead) {
  producer.size = util::UNKNOWN_CONTENT_SIZE;
  producer.seekable = false;
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 300), 1);
  producer.size = 300;
  std::thread end([&] { event(util::EVENT_STREAM_PARTIAL_END); });
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, 0);
  EXPECT_EQ(reading->got, 300u);
  EXPECT_TRUE(log.has("notifyStreamException: setFileSize: 300"));
  Reading atEnd(queue.get(), 300, 10);
  ASSERT_TRUE(atEnd.hasEnded());
  EXPECT_EQ(atEnd.result, -13);
  EXPECT_EQ(producer.started().size(), 1u) << "the body is not downloaded again";
  queue->release();
  end.join();
}

TEST_F(BufferQueueTest, FirstErrorReconnectsAtTheWriteHeadAndTheSecondIsFinal) {
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
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
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
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
class FinalEvent : public BufferQueueTest, public testing::WithParamInterface<Final> {};

TEST_P(FinalEvent, EndsEveryRead) {
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
    All, FinalEvent,
    testing::Values(Final{util::STREAM_FILE_NOT_FOUND, util::STATUS_NOT_FOUND, -21,
                          "notifyStreamException: File not found"},
                    Final{util::STREAM_NOT_AVAILABLE, util::STATUS_NOT_AVAILABLE, -17,
                          "notifyStreamException: retry finished in not available error"}));

TEST_F(BufferQueueTest, DeadConnectionRestartsWithoutCounting) {
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
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
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
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

TEST_F(BufferQueueTest, SecondEndInARowWithoutAByteIsFinal) {
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
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
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 300), 1);
  ASSERT_TRUE(reading->hasEnded());
  std::thread end([&] { event(util::STREAM_ERROR); });
  ASSERT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
  EXPECT_EQ(producer.started().size(), 1u);
  EXPECT_FALSE(log.has("notifyStreamException: reset cause of STREAM_ERROR"));
  queue->release();
  end.join();
}

// As above, for the ends that need no error: a silence behind the last byte.
class EndAfterTheLastByte : public BufferQueueTest, public testing::WithParamInterface<int> {};

TEST_P(EndAfterTheLastByte, ParksInsteadOfReconnecting) {
  producer.size = 300;
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 300), 1);
  ASSERT_TRUE(reading->hasEnded());
  std::thread end([&] { event(GetParam()); });
  EXPECT_TRUE(eventually([&] { return BufferQueueProbe::isParked(*queue); }));
  EXPECT_EQ(producer.started().size(), 1u) << "nothing is there to ask for";
  Reading again(queue.get(), 100, 200);
  EXPECT_TRUE(again.hasEnded());
  EXPECT_EQ(again.result, 0) << "what is held can still be read";
  EXPECT_TRUE(right(again, 100));
  queue->release();
  end.join();
}

INSTANTIATE_TEST_SUITE_P(All, EndAfterTheLastByte,
                         testing::Values(static_cast<int>(util::STREAM_TIMEOUT),
                                         static_cast<int>(util::STREAM_DEAD)));

TEST_F(BufferQueueTest, ParkedTransferServesAReaderOutsideTheBuffer) {
  producer.size = 6 * kBlock;
  make(2);
  auto reading = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, kBlock), 1);
  ASSERT_TRUE(reading->hasEnded());
  Reading last(queue.get(), 5 * kBlock, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(kBlock, 1), 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(deliver(5 * kBlock, kBlock), 1);
  ASSERT_TRUE(last.hasEnded());
  std::thread parked([&] { event(util::EVENT_STREAM_PARTIAL_END); });
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

TEST_F(BufferQueueTest, EventAfterAMonitorResetIsDropped) {
  make(4);
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
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
  queue->release();
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
  // The stop of a restart sends its cancel event while a break is under way.
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
  producer.duringStop = nullptr;  // it looks at locals
}

TEST_F(BufferQueueTest, ReleaseEndsAWaitingReadAndStopsTheProducer) {
  make(4);
  auto reading = read(0, 1000);
  ASSERT_TRUE(waits());
  queue->release();
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(reading->result, -4);
  EXPECT_GE(producer.stops, 1);
  EXPECT_TRUE(log.has("release: going  to release"));
  EXPECT_TRUE(log.has("release:  begin to stopWorker"));
  EXPECT_TRUE(log.has("stopWorker: stopWorker in "));
  EXPECT_TRUE(log.has("release:  begin to stop timer"));
}

TEST_F(BufferQueueTest, BackwardReadOfAStreamThatCannotSeekBeginsItAnew) {
  producer.seekable = false;
  make(2);
  auto reading = read(100000, 10);
  event(util::STREAM_NORMAL);
  for (long long at = 0; at < 110000; at += 10000) ASSERT_EQ(deliver(at, 10000), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 100000));
  Reading back(queue.get(), 20, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(110000, 10), 0);
  EXPECT_TRUE(log.has("streamIn: reconnecting connection/stream"));
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1], (Started{1, 0, 0}));
  EXPECT_EQ(deliver(0, 1000), 1);
  ASSERT_TRUE(back.hasEnded());
  EXPECT_EQ(back.result, 0);
  EXPECT_TRUE(right(back, 20));
}

TEST_F(BufferQueueTest, BufferedSizeIsTheStretchAtTheOffset) {
  make(8);
  EXPECT_EQ(queue->getBufferedSize(100), 0) << "a block without data holds nothing";
  auto reading = read(0, 10);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 50000), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_EQ(queue->getBufferedSize(0), 50000);
  EXPECT_EQ(queue->getBufferedSize(49999), 1);
  EXPECT_EQ(queue->getBufferedSize(70000), 0);
  EXPECT_EQ(queue->getMiniBlockOffset(), 0);
  Reading far(queue.get(), 1000000, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(50000, 10), 0);
  ASSERT_TRUE(runs(2));
  const long long from = producer.started()[1].from;
  EXPECT_EQ(deliver(from, 30000), 1);
  ASSERT_TRUE(far.hasEnded());
  EXPECT_EQ(queue->getBufferedSize(1000000), from + 30000 - 1000000);
  EXPECT_GT(queue->getBufferedSize(0), 0);
  EXPECT_LE(queue->getBufferedSize(0), 50010) << "never measured to the write head over a gap";
}

TEST_F(BufferQueueTest, BufferedSizeBehindTheWriteHeadStaysWhatIsHeld) {
  make(2);
  auto far = read(5 * kBlock, 10);
  event(util::STREAM_NORMAL);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(0, 100), 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(deliver(5 * kBlock, 100), 1);
  ASSERT_TRUE(far->hasEnded());
  EXPECT_EQ(deliver(5 * kBlock + 100, kBlock - 100), 1);
  Reading back(queue.get(), 3 * kBlock, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(6 * kBlock, 100), 0);
  ASSERT_TRUE(runs(3));
  EXPECT_EQ(deliver(3 * kBlock, 100), 1);
  ASSERT_TRUE(back.hasEnded());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(queue->getBufferedSize(3 * kBlock), 100);
    EXPECT_EQ(queue->getBufferedSize(5 * kBlock), kBlock) << "the write head is before it";
  }
}

TEST_F(BufferQueueTest, StatusOfABrokenReadIsGoneWithTheNextRead) {
  make(4);
  auto reading = read(0, 100);
  event(util::STREAM_NORMAL);
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

TEST_F(BufferQueueTest, StreamThatCannotSeekBeginsAt0AlsoAfterAReconnection) {
  producer.seekable = false;
  make(2);
  auto reading = read(100000, 10);
  event(util::STREAM_NORMAL);
  for (long long at = 0; at < 50000; at += 10000) ASSERT_EQ(deliver(at, 10000), 1);
  event(util::STREAM_DEAD);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1].from, 50000);
  for (long long at = 50000; at < 110000; at += 10000) ASSERT_EQ(deliver(at, 10000), 1);
  ASSERT_TRUE(reading->hasEnded());
  Reading back(queue.get(), 20, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(110000, 10), 0);
  ASSERT_TRUE(runs(3));
  EXPECT_EQ(producer.started()[2], (Started{2, 0, 0}));
  EXPECT_EQ(deliver(0, 1000), 1);
  ASSERT_TRUE(back.hasEnded());
  EXPECT_TRUE(right(back, 20));
}

TEST_F(BufferQueueTest, ProbeLearnsTheSizeAndLeavesTheOffset) {
  make(4);
  std::thread asking([&] { queue->probe(); });
  ASSERT_TRUE(runs(1));
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 100), 1);
  asking.join();
  EXPECT_EQ(queue->getContentSize(), 10000000);
  EXPECT_EQ(queue->getReadPosition(), 0);
  queue->probe();
  EXPECT_EQ(producer.started().size(), 1u);
}

TEST_F(BufferQueueTest, HeadComparisonTellsTheSameStreamFromAnother) {
  make(4);
  std::string head = support::pattern(0, kBlock);
  std::string other = support::pattern(77, kBlock);
  unsigned char* bytes = reinterpret_cast<unsigned char*>(&head[0]);
  unsigned char* others = reinterpret_cast<unsigned char*>(&other[0]);
  EXPECT_TRUE(queue->cacheHeadToCheck(bytes, 100)) << "undecided";
  EXPECT_TRUE(queue->cacheHeadToCheck(bytes + 100, kBlock - 100)) << "nothing to compare with";
  EXPECT_FALSE(queue->cacheHeadToCheck(others, 0)) << "the same head";
  EXPECT_TRUE(log.has("cacheHeadToCheck: file size is realized again and changed from 0 to 0"));
}

#if defined(FLUVIA_PAUSE_POINTS)
// However soon the first connection fails, the read that opened it tells why.
class FirstConnection
    : public BufferQueueTest,
      public testing::WithParamInterface<std::tuple<const char*, std::pair<int, int>>> {};

TEST_P(FirstConnection, TellsItsReadWhyItFailed) {
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
    Races, FirstConnection,
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

// The block at the position is there, but empty from the position on.
TEST_F(BufferQueueTest, SizeLearntJustBeforeAReadInItsBlockEndsIt) {
  producer.size = util::UNKNOWN_CONTENT_SIZE;
  producer.seekable = false;
  make(4);
  auto reading = read(0, 300);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 300), 1);
  ASSERT_TRUE(reading->hasEnded());
  support::Pauses pauses;
  pauses.holdAt("BufferQueue::read before feedLock");
  Reading atEnd(queue.get(), 300, 10);
  EXPECT_TRUE(pauses.reached("BufferQueue::read before feedLock"));
  producer.size = 300;
  std::thread end([&] { event(util::EVENT_STREAM_PARTIAL_END); });
  EXPECT_TRUE(
      support::eventually([&] { return log.has("notifyStreamException: setFileSize: 300"); }));
  pauses.release("BufferQueue::read before feedLock");
  ASSERT_TRUE(atEnd.hasEnded());
  EXPECT_EQ(atEnd.result, -13) << "0 would be a read that succeeded";
  EXPECT_EQ(atEnd.got, 0u);
  queue->release();
  end.join();
}

// A restart task that comes late finds its version started and only gives its count back: until
// then an end must not take it for a connection to come.
TEST_F(BufferQueueTest, LateRestartTaskIsNoConnectionToCome) {
  make(4);
  support::Pauses pauses;
  auto reading = read(0, 1000);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, 200), 1);
  producer.duringStop = [&] {
    if (disturbed.exchange(true)) return;
    pauses.holdAt("BufferQueue::restart begun");
    event(util::STREAM_DEAD);
  };
  event(util::STREAM_DEAD);
  ASSERT_TRUE(runs(2));
  EXPECT_TRUE(pauses.reached("BufferQueue::restart begun"));
  EXPECT_EQ(producer.started()[1], (Started{2, 200, 0}));
  EXPECT_EQ(BufferQueueProbe::activeWork(*queue), 2);
  event(util::EVENT_STREAM_PARTIAL_END);
  ASSERT_TRUE(runs(3)) << "the reader would wait for ever";
  pauses.release("BufferQueue::restart begun");
  EXPECT_EQ(producer.started()[2], (Started{3, 200, 0}));
  EXPECT_EQ(deliver(200, 800), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 0));
}

// The queue's owner frees it as soon as release() has returned.
TEST_F(BufferQueueTest, ReleaseWaitsForARestartTaskThatHasBegun) {
  make(2);
  support::Pauses pauses;
  auto reading = read(0, 10);
  event(util::STREAM_NORMAL);
  pauses.holdAt("BufferQueue::restart begun");
  event(util::STREAM_DEAD);
  EXPECT_TRUE(pauses.reached("BufferQueue::restart begun"));
  std::atomic<bool> released{false};
  std::thread closer([&] {
    queue->release();
    released = true;
  });
  EXPECT_TRUE(eventually([&] { return log.has("release:  begin to stop timer"); }));
  for (int i = 0; i < 100 && !released; ++i) std::this_thread::yield();
  EXPECT_FALSE(released);
  pauses.release("BufferQueue::restart begun");
  closer.join();
  ASSERT_TRUE(reading->hasEnded());
}

// A stop that comes between the worker's decision to start and the producer's start must be
// repeated.
TEST_F(BufferQueueTest, StopThatComesBeforeTheProducerStartsIsRepeated) {
  support::Pauses pauses;
  pauses.holdAt("BufferQueue::workBegin before start");
  make(4);
  Reading reading(queue.get(), 0, 1000);
  ASSERT_TRUE(pauses.reached("BufferQueue::workBegin before start"));
  std::thread releasing([&] { queue->release(); });
  ASSERT_TRUE(eventually([&] { return producer.stops >= 3; }));
  pauses.release("BufferQueue::workBegin before start");
  releasing.join();
  ASSERT_TRUE(reading.hasEnded());
  EXPECT_TRUE(producer.stopped) << "a producer with a thread of its own goes on";
}
#endif

}  // namespace

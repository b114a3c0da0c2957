// Incoming data: where it is stored, whether its connection may continue, and which threads it
// wakes.
#include <gtest/gtest.h>

#include <atomic>

#include "tests/support/SteppedQueue.h"
#include "util/BufferQueue.h"

namespace {

using support::eventually;
using support::kBlock;
using support::Reading;
using support::Started;
using support::SteppedProducer;
using support::WaitingCall;
using util::BufferQueue;
using util::BufferQueueProbe;
using BufferQueueTest = support::SteppedQueue;

TEST_F(BufferQueueTest, ReadCrossesABlockBoundary) {
  make(4);
  auto reading = connect(0, 40000);
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
  auto reading = connect(0, 10);
  EXPECT_EQ(deliver(0, kBlock), 1);
  EXPECT_FALSE(log.has("streamIn: insert"));
  EXPECT_EQ(deliver(kBlock, 1), 1);
  EXPECT_TRUE(log.has("streamIn: insert"));
  ASSERT_TRUE(reading->hasEnded());
}

TEST_F(BufferQueueTest, ReaderWithinTheMarginWaitsForTheRunningConnection) {
  make(8);
  auto reading = connect(65536, 10);
  ASSERT_TRUE(wants());
  EXPECT_EQ(deliver(0, 1000), 1) << "64 KiB ahead of 0 is within the margin of 1000";
  for (long long at = 1000; at < 70000; at += 1000) ASSERT_EQ(deliver(at, 1000), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 65536));
  EXPECT_EQ(producer.started().size(), 1u);
}

TEST_F(BufferQueueTest, ReaderOneByteBeyondTheMarginGetsAConnectionOfItsOwn) {
  make(8);
  auto reading = connect(1000 + 65536 + 1, 10);
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
  auto reading = connect(5000000, 10);
  ASSERT_TRUE(givesWay(0, 1000));
  const long long from = producer.started()[1].from;
  EXPECT_EQ(deliverAs(0, 1000, 1000), 0);
  EXPECT_TRUE(log.has("streamIn: ver = 0, version =1, needExit = 0"));
  EXPECT_EQ(deliver(from, 16384), 1);
  EXPECT_EQ(deliver(from + 16384, 16384), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_TRUE(right(*reading, 5000000)) << "stale data must not move the new write head";
}

TEST_F(BufferQueueTest, DataOfAnOlderVersionLeavesTheWriteHeadAlone) {
  const long long far = 100LL * kBlock;
  ASSERT_TRUE(beginsWith(4, kBlock));
  BufferQueueProbe::ask(*queue, far);
  ASSERT_TRUE(givesWay(kBlock, 100));
  EXPECT_EQ(deliver(far, 1000), 1);
  EXPECT_EQ(deliverAs(0, kBlock + 100, 100), 0);
  EXPECT_EQ(queue->getBufferedSize(far), 1000);
  EXPECT_EQ(deliver(far + 1000, 1000), 1);
  EXPECT_EQ(queue->getBufferedSize(far), 2000);
}

TEST_F(BufferQueueTest, FullBufferHoldsTheTransferUntilAReaderMovesOn) {
  ASSERT_TRUE(beginsWith(2, 2 * kBlock));
  std::atomic<int> result{-1};
  WaitingCall transfer(queue.get(), [&] { result = deliver(2 * kBlock, 100); });
  EXPECT_TRUE(transferWaits());
  EXPECT_EQ(result, -1);
  Reading second(queue.get(), kBlock, 10);
  ASSERT_TRUE(second.hasEnded());
  EXPECT_NE(result, 0) << "a reader within the buffer costs it nothing";
  Reading third(queue.get(), 2 * kBlock, 10);
  ASSERT_TRUE(third.hasEnded());
  transfer.join();
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(right(third, 2 * kBlock));
}

TEST_F(BufferQueueTest, ReaderElsewhereReleasesAHeldTransferAndTheChunkIsDropped) {
  ASSERT_TRUE(beginsWith(2, 2 * kBlock));
  std::atomic<int> result{-1};
  WaitingCall transfer(queue.get(), [&] { result = deliver(2 * kBlock, 100); });
  EXPECT_TRUE(transferWaits());
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

// A newer version was announced while the chunk waited for room: its bytes are discarded.
TEST_F(BufferQueueTest, ChunkThatWaitedForRoomIsNotStoredAfterANewerVersionWasAnnounced) {
  ASSERT_TRUE(beginsWith(2, 2 * kBlock));
  std::atomic<int> result{-1};
  WaitingCall transfer(queue.get(), [&] { result = deliver(2 * kBlock, 100); });
  EXPECT_TRUE(transferWaits());
  BufferQueueProbe::announce(*queue);
  ASSERT_TRUE(transfer.hasReturned()) << "it waits on for room";
  EXPECT_EQ(result, 0);
  ASSERT_TRUE(runs(2));
  EXPECT_EQ(producer.started()[1], (Started{1, 2 * kBlock, 0}));
  Reading third(queue.get(), kBlock, kBlock + 10);
  ASSERT_TRUE(eventually([&] { return log.has("fill: wait in fill"); }));
  EXPECT_EQ(queue->getBufferedSize(2 * kBlock), 0) << "the chunk was stored";
  EXPECT_EQ(deliver(2 * kBlock, 10), 1);
  ASSERT_TRUE(third.hasEnded());
  EXPECT_TRUE(right(third, kBlock));
}

TEST_F(BufferQueueTest, OverdeliveryEndsTheConnectionAndCountsAsItsEnd) {
  make(4);
  auto far = connect(5 * kBlock, 10);
  ASSERT_TRUE(givesWay(0, 100));
  EXPECT_EQ(deliver(5 * kBlock, kBlock), 1);
  ASSERT_TRUE(far->hasEnded());
  // Back to the block before: its connection ends at the buffered block.
  Reading back(queue.get(), 4 * kBlock, 10);
  ASSERT_TRUE(givesWay(6 * kBlock, 100));
  EXPECT_EQ(producer.started()[2], (Started{2, 4 * kBlock, kBlock}));
  EXPECT_EQ(deliver(4 * kBlock, kBlock), 1);
  ASSERT_TRUE(back.hasEnded());
  EXPECT_EQ(deliver(5 * kBlock, 100), 0) << "more than was asked";
  EXPECT_TRUE(log.has("streamIn: Server gives more than the client required, stop streaming"));
  // Another queue's cancel must have no effect here.
  SteppedProducer otherProducer;
  BufferQueue other(2 * static_cast<int>(kBlock));
  ASSERT_TRUE(other.initialize(&otherProducer));
  other.notifyStreamException(util::STREAM_CANCELED);
  EXPECT_TRUE(log.has("notifyStreamException: cancel without continuing"));
  WaitingCall end(queue.get(), [&] { event(util::STREAM_CANCELED); });
  EXPECT_TRUE(eventually([&] {
    return log.has(
        "notifyStreamException: manually translate cancel action to partition end action");
  }));
  other.release();
}

// A transfer that dropped bytes for a reader elsewhere must not continue behind them, even for a
// reader within the margin.
TEST_F(BufferQueueTest, TransferThatDroppedBytesDoesNotGoOn) {
  ASSERT_TRUE(beginsWith(2, 100));
  Reading second(queue.get(), 3 * kBlock, 10);
  ASSERT_TRUE(givesWay(100, 1));
  EXPECT_EQ(deliver(3 * kBlock, kBlock), 1);
  ASSERT_TRUE(second.hasEnded());
  Reading back(queue.get(), kBlock + 5, 10);
  ASSERT_TRUE(givesWay(4 * kBlock, 10));
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

// A transfer may look up a reader's request before that reader has had its turn. The requested
// bytes may have been stored meanwhile: they must neither be placed again nor fail for lack of a
// block.
class BufferQueueHeldData : public BufferQueueTest, public testing::WithParamInterface<int> {};

TEST_P(BufferQueueHeldData, IsNotPlacedAgain) {
  const int blocks = GetParam();
  ASSERT_TRUE(beginsWith(blocks, kBlock));
  const long long far = 100 * static_cast<long long>(kBlock);
  BufferQueueProbe::ask(*queue, far + 10);
  ASSERT_TRUE(givesWay(kBlock, 100));
  EXPECT_EQ(producer.started()[1], (Started{1, far, 0}));
  BufferQueueProbe::ask(*queue, far + 10);
  // Every block except the reader's last one is filled: the transfer waits for room.
  WaitingCall transfer(queue.get(),
                       [&] { deliver(far, static_cast<unsigned int>(blocks - 1) * kBlock + 100); });
  EXPECT_TRUE(transferWaits());
  BufferQueueProbe::wake(*queue);
  EXPECT_TRUE(transfer.hasReturned());
  EXPECT_EQ(BufferQueueProbe::fault(*queue, 0), "");
  EXPECT_FALSE(queue->errorOccured());
  EXPECT_EQ(producer.started().size(), 2u);
  Reading second(queue.get(), far + 10, 100);
  EXPECT_TRUE(second.hasEnded());
  EXPECT_EQ(second.got, 100u);
  EXPECT_TRUE(right(second, far + 10));
}

INSTANTIATE_TEST_SUITE_P(Buffers, BufferQueueHeldData, testing::Values(3, 4, 5));

// The last resort when a reader gets no place twice, for any cause: its read must end, and so must
// the paused transfer.
TEST_F(BufferQueueTest, ReaderWithoutAPlaceFailsAndItsTransferEnds) {
  ASSERT_TRUE(beginsWith(3, 100));
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

// A wake-up is a system call and a switch: a reader sleeps until all requested bytes are buffered.
TEST_F(BufferQueueTest, ReaderIsWokenOnceForAllItWants) {
  make(8);
  auto reading = connect(0, kBlock);
  EXPECT_TRUE(
      eventually([&] { return log.count("fill: begin to easyFill from 0, count:32768") == 1; }));
  const std::string woken = "easyFill: wake up at easyfill";
  const int before = log.count(woken);
  for (long long at = 0; at < kBlock - 1000; at += 1000) EXPECT_EQ(deliver(at, 1000), 1);
  EXPECT_LE(log.count(woken), before + 1) << "the event may still have woken it";
  EXPECT_EQ(deliver(32000, 768), 1);
  ASSERT_TRUE(reading->hasEnded());
  EXPECT_LE(log.count(woken), before + 2);
  EXPECT_TRUE(right(*reading, 0));
}

// The reader batches a quarter of the blocks, but no more bytes come.
TEST_F(BufferQueueTest, ReaderThatKeepsUpGoesOnWithTheFewBytesItWants) {
  make(8);
  const unsigned int stretch = 3 * kBlock;
  auto first = read(0, stretch);
  event(util::STREAM_NORMAL);
  EXPECT_EQ(deliver(0, stretch), 1);
  ASSERT_TRUE(first->hasEnded());
  for (int i = 0; i < 20; ++i) {
    const long long at = stretch + 100LL * i;
    BufferQueueProbe::keepUp(*queue);
    Reading next(queue.get(), at, 100);
    EXPECT_TRUE(waits());
    EXPECT_EQ(deliver(at, 100), 1);
    ASSERT_TRUE(next.hasEnded()) << "it waits for what does not come";
    EXPECT_EQ(next.got, 100u);
    EXPECT_TRUE(right(next, at));
  }
}

TEST_F(BufferQueueTest, ReaderThatSoughtBackIsWokenByTheFewBytesItWants) {
  producer.size = 101LL * kBlock;
  ASSERT_TRUE(beginsWith(32, kBlock));
  const long long far = 100LL * kBlock;
  BufferQueueProbe::ask(*queue, far);
  ASSERT_TRUE(givesWay(kBlock, 100));
  EXPECT_EQ(deliver(far, kBlock), 1);
  Reading there(queue.get(), far, kBlock);
  ASSERT_TRUE(there.hasEnded());
  WaitingCall end(queue.get(), [&] { event(util::EVENT_STREAM_PARTIAL_END); });
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
  ASSERT_TRUE(beginsWith(2, 2 * kBlock));
  std::atomic<int> result{-1};
  WaitingCall transfer(queue.get(), [&] { result = deliver(2 * kBlock, 100); });
  EXPECT_TRUE(transferWaits());
  for (long long at = 10; at < 1000; at += 10) {
    Reading next(queue.get(), at, 10);
    ASSERT_TRUE(next.hasEnded());
  }
  EXPECT_EQ(log.count("streamIn: wake up  in streamIn"), 0);
  Reading last(queue.get(), kBlock, 10);
  ASSERT_TRUE(last.hasEnded());
  EXPECT_TRUE(eventually([&] { return result == 1; })) << "the first block is free";
}

// The reader takes the available bytes and sleeps again while the chunk waits for room.
TEST_F(BufferQueueTest, ChunkThatWaitedForRoomWakesItsReaderAtItsEnd) {
  make(2);
  auto reading = connect(0, 2 * kBlock + 100);
  EXPECT_EQ(deliver(0, 2 * kBlock + 100), 1);
  ASSERT_TRUE(reading->hasEnded()) << "nothing else comes";
  EXPECT_EQ(reading->got, 2 * kBlock + 100);
  EXPECT_TRUE(right(*reading, 0));
}

}  // namespace

// The worker, its restarts and its end; the parts of a queue.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>

#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/SteppedQueue.h"
#include "util/BufferQueue.h"

namespace {

using support::eventually;
using support::kBlock;
using support::Reading;
using support::Started;
using support::SteppedProducer;
using util::BufferQueue;
using util::BufferQueueProbe;
using BufferQueueTest = support::SteppedQueue;

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

TEST_F(BufferQueueTest, ProducerThatDoesNotStartFailsTheRead) {
  producer.startResult = -1;
  make(4);
  Reading reading(queue.get(), 0, 1000);
  ASSERT_TRUE(reading.hasEnded()) << "no event will come";
  // -1 if the stream has failed before the read checks it.
  EXPECT_TRUE(reading.result == -4 || reading.result == -1) << reading.result;
  EXPECT_TRUE(queue->errorOccured());
}

TEST_F(BufferQueueTest, TwoRestartsOnTheirWayMakeOneConnection) {
  make(4);
  auto reading = connect(0, 1000);
  EXPECT_EQ(deliver(0, 200), 1);
  // The connection ends again while the first restart stops it.
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
  BufferQueueProbe::changeHead(*queue);
  EXPECT_TRUE(queue->cacheHeadToCheck(others, 0)) << "another head, in its last byte";
  EXPECT_EQ(log.count("cacheHeadToCheck: file size is realized again and changed from 0 to 0"), 1);
}

#if defined(FLUVIA_PAUSE_POINTS)
// A restart task that comes late finds its version started and only decrements its count. Until
// then an end must not treat it as a connection to come.
TEST_F(BufferQueueTest, LateRestartTaskIsNoConnectionToCome) {
  make(4);
  support::Pauses pauses;
  auto reading = connect(0, 1000);
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
  EXPECT_FALSE(log.has("notifyStreamException: another connection is in constructing"))
      << "the transfer itself goes on, before the reader asks for it";
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
  auto reading = connect(0, 10);
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

// The order in which the handles of one resource read.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"
#include "util/BufferQueue.h"
#include "webs/ReadTurns.h"

namespace webs {

class ReadTurnsProbe {
 public:
  static size_t waiting(ReadTurns& turns) {
    util::Lock guard(turns.lock);
    return turns.waiters.size();
  }
  static size_t known(ReadTurns& turns) {
    util::Lock guard(turns.lock);
    return turns.readers.size();
  }
};

}  // namespace webs

namespace {

using support::eventually;

constexpr int kBlock = 32768;
constexpr int kCapacity = 4 * kBlock;

class IdleProducer : public util::BufferQueueProducer {
 public:
  void setOutput(util::BufferQueueDataReceiver*) override {}
  void release() override {}
  int startStreaming(int, long long, long long) override { return 0; }
  int stopStreaming() override { return 0; }
  bool isRandomAccess() override { return true; }
  long long getContentSize() override { return 100LL * kCapacity; }
  void setBreak() override {}
  bool getStopWait() override { return false; }
  void setStopWait() override {}
};

class ReadTurnsTest : public testing::Test {
 protected:
  ReadTurnsTest() : queue(kCapacity), turns(&queue) {
    EXPECT_TRUE(queue.initialize(&producer));
    queue.notifyStreamException(util::STREAM_NORMAL);
    std::string bytes = support::pattern(0, 2 * kBlock);
    EXPECT_EQ(queue.streamIn(&bytes[0], 2 * kBlock, 0), 1);
    queue.notifyStreamException(util::STREAM_DEAD);  // the next connection goes on there
  }
  ~ReadTurnsTest() override {
    release();
    queue.release();
  }

  // Has a read wait for its turn on a thread of its own; it then notes its name and its bytes.
  void enter(const std::string& name, int reader, long long position, unsigned int bytes = 0) {
    const size_t before = webs::ReadTurnsProbe::waiting(turns);
    threads.emplace_back([=] {
      webs::ReadTurns::Turn turn(&turns, handle(reader), position, false);
      {
        std::lock_guard<std::mutex> guard(lock);
        order += name;
      }
      turn.hasRead(bytes);
    });
    EXPECT_TRUE(eventually([&] { return webs::ReadTurnsProbe::waiting(turns) > before; }));
  }
  // A read of no bytes, which makes the reader known.
  void readOnce(int reader, long long position) {
    const webs::ReadTurns::Turn turn(&turns, handle(reader), position, false);
  }
  // Waits until all have had their turn, and tells in which order.
  std::string release() {
    for (std::thread& each : threads) each.join();
    threads.clear();
    std::lock_guard<std::mutex> guard(lock);
    return order;
  }
  const webs::FluviaFile* handle(int number) const {
    return reinterpret_cast<const webs::FluviaFile*>(&handles[number]);
  }

  // Compared only.
  const char handles[8] = {};
  const support::CapturedStderr log{0};
  IdleProducer producer;
  util::BufferQueue queue;
  webs::ReadTurns turns;
  std::mutex lock;
  std::string order;
  std::vector<std::thread> threads;
  support::Watchdog watchdog{60, [] { return std::string("turns"); }};
};

TEST_F(ReadTurnsTest, HeldBytesGoBeforeThoseThatMustCome) {
  {
    const webs::ReadTurns::Turn first(&turns, handle(0), 0, false);
    enter("f", 1, 50LL * kCapacity);
    enter("n", 2, 2 * kBlock);
    enter("h", 3, kBlock);
  }
  EXPECT_EQ(release(), "hnf");
}

TEST_F(ReadTurnsTest, EqualClaimsGoInTheOrderTheyCame) {
  {
    const webs::ReadTurns::Turn first(&turns, handle(0), 0, false);
    enter("a", 1, 100);
    enter("b", 2, kBlock);
    enter("c", 3, 0);
  }
  EXPECT_EQ(release(), "abc");
}

TEST_F(ReadTurnsTest, OfReadsThatNeedDataTheOneBehindTakesTheOthersAlong) {
  {
    const webs::ReadTurns::Turn first(&turns, handle(0), 0, false);
    enter("f", 1, 50LL * kCapacity + kBlock);
    enter("b", 2, 50LL * kCapacity);
  }
  EXPECT_EQ(release(), "bf");
}

TEST_F(ReadTurnsTest, NobodyIsPassedByMoreThanABufferOfNewBytes) {
  readOnce(3, 0);
  readOnce(4, 0);
  {
    webs::ReadTurns::Turn first(&turns, handle(0), 2 * kBlock, false);
    enter("f", 1, 50LL * kCapacity);
    enter("h", 2, 0);
    first.hasRead(kCapacity);
  }
  EXPECT_EQ(release(), "fh");
}

// Readers that keep together read each byte of the stream as often as they are many.
TEST_F(ReadTurnsTest, HeldBytesThatOthersReadKeepNobodyFromItsTurnForLong) {
  readOnce(3, 0);
  readOnce(4, 0);
  {
    webs::ReadTurns::Turn first(&turns, handle(0), 0, false);
    enter("f", 1, 50LL * kCapacity);
    enter("h", 2, 0);
    first.hasRead(kCapacity);
  }
  EXPECT_EQ(release(), "hf") << "one buffer is little among three";
  {
    webs::ReadTurns::Turn first(&turns, handle(0), 0, false);
    enter("F", 1, 50LL * kCapacity);
    enter("H", 2, 0);
    first.hasRead(5 * kCapacity);
  }
  EXPECT_EQ(release(), "hfFH") << "readers of held bytes must not go on for ever";
}

// The stream was moved for handle 1: it reads on there, also when another one has waited longer.
TEST_F(ReadTurnsTest, RestartIsFollowedByARunOfItsReader) {
  {
    webs::ReadTurns::Turn first(&turns, handle(1), 0, false);
    queue.notifyStreamException(util::STREAM_DEAD);
    first.hasRead(kBlock);
    enter("f", 2, 50LL * kCapacity);
    enter("n", 1, 2 * kBlock + 10);
  }
  EXPECT_EQ(release(), "nf");
}

// Else each of several that have waited long would take the stream from the one before it after a
// single read.
TEST_F(ReadTurnsTest, RunIsNotBrokenByOneThatHasWaitedLong) {
  std::thread restarting;
  {
    webs::ReadTurns::Turn first(&turns, handle(0), 2 * kBlock, false);
    restarting = std::thread([this] {
      webs::ReadTurns::Turn turn(&turns, handle(1), 20LL * kCapacity, false);
      queue.notifyStreamException(util::STREAM_DEAD);
      enter("n", 1, 20LL * kCapacity + kBlock);
      turn.hasRead(kBlock);
    });
    EXPECT_TRUE(eventually([&] { return webs::ReadTurnsProbe::waiting(turns) == 1; }));
    enter("f", 2, 50LL * kCapacity);
    first.hasRead(3 * kBlock);
  }
  restarting.join();
  EXPECT_EQ(release(), "nf");
}

TEST_F(ReadTurnsTest, ReadThatAllKeepBackGoesWhenTheyDoNothing) {
  {
    webs::ReadTurns::Turn lagging(&turns, handle(1), 0, false);
    queue.notifyStreamException(util::STREAM_DEAD);
    enter("f", 2, 3 * kBlock);
    enter("g", 3, 50LL * kCapacity);
  }
  EXPECT_EQ(release().size(), 2u) << "or they wait for ever";
}

TEST_F(ReadTurnsTest, ClosedHandleIsForgotten) {
  { const webs::ReadTurns::Turn first(&turns, handle(1), 0, false); }
  { const webs::ReadTurns::Turn first(&turns, handle(2), 0, false); }
  EXPECT_EQ(webs::ReadTurnsProbe::known(turns), 2u);
  turns.forget(handle(1));
  EXPECT_EQ(webs::ReadTurnsProbe::known(turns), 1u);
}

TEST_F(ReadTurnsTest, HandleThatIsAloneWaitsForNothing) {
  const webs::ReadTurns::Turn first(&turns, handle(0), 0, false);
  const webs::ReadTurns::Turn alone(&turns, handle(1), 0, true);
  EXPECT_EQ(webs::ReadTurnsProbe::waiting(turns), 0u);
}

}  // namespace

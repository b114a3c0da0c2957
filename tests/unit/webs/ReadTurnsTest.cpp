// The order in which the handles of one resource read.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/SteppedQueue.h"
#include "tests/support/Watchdog.h"
#include "util/BufferQueue.h"
#include "util/Clock.h"
#include "util/PausePoint.h"
#include "webs/ReadTurns.h"

namespace webs {

class ReadTurnsProbe {
 public:
  static size_t waiting(ReadTurns& turns) {
    util::Lock guard(turns.lock);
    size_t count = 0;
    for (const ReadTurns::Waiter* each = turns.first; each != nullptr; each = each->next) ++count;
    return count;
  }
  static size_t known(ReadTurns& turns) {
    util::Lock guard(turns.lock);
    return turns.readers.size();
  }
  // Sets the state of a reader.
  static void note(ReadTurns& turns, const FluviaFile* file, long long position, long long lastRead,
                   bool steady) {
    util::Lock guard(turns.lock);
    ReadTurns::Reader* reader = turns.find(file);
    reader->position = position;
    reader->lastRead = lastRead;
    reader->steady = steady;
  }
  static void startRun(ReadTurns& turns, const FluviaFile* file, long long began, long long from) {
    util::Lock guard(turns.lock);
    turns.run = ReadTurns::Run{file, began, from};
  }
  // Who has the run.
  static const FluviaFile* runner(ReadTurns& turns) {
    util::Lock guard(turns.lock);
    return turns.run.of;
  }
  // When a read that has waited since then may go, as far as readers that lag or the run decide.
  static long long lagEnds(ReadTurns& turns, const FluviaFile* file, long long position,
                           long long since, long long now) {
    ReadTurns::Waiter waiter;
    fill(&waiter, file, position, since);
    util::Lock guard(turns.lock);
    return turns.lagEnds(waiter, now);
  }
  static long long runEnds(ReadTurns& turns, const FluviaFile* file, long long position,
                           long long since, long long now) {
    ReadTurns::Waiter waiter;
    fill(&waiter, file, position, since);
    util::Lock guard(turns.lock);
    return turns.runEnds(waiter, now);
  }
  // True if a waiter sleeps until a time.
  static bool somebodyLooks(ReadTurns& turns) {
    util::Lock guard(turns.lock);
    return turns.keeper != nullptr && !turns.busy;
  }

 private:
  static void fill(ReadTurns::Waiter* waiter, const FluviaFile* file, long long position,
                   long long since) {
    waiter->file = file;
    waiter->request = nullptr;
    waiter->position = position;
    waiter->size = 1;
    waiter->since = since;
    waiter->fetchedBefore = 0;
  }
};

}  // namespace webs

namespace {

using support::eventually;
using Turns = webs::ReadTurns;
using ProbedTurns = webs::ReadTurnsProbe;

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
    queue.notifyStreamException(util::STREAM_DEAD);  // the next connection continues there
    for (int i = 0; i < 8; ++i) turns.join(handle(i));
  }
  ~ReadTurnsTest() override {
    release();
    queue.release();
  }

  // Makes a read wait for its turn on a thread of its own; the read then records its name and its
  // bytes.
  void enter(const std::string& name, int reader, long long position, unsigned int bytes = 0) {
    const size_t before = webs::ReadTurnsProbe::waiting(turns);
    threads.emplace_back([=] {
      webs::ReadTurns::Turn turn(&turns, handle(reader), position, 1);
      if (turn.isBroken()) return;
      {
        std::lock_guard<std::mutex> guard(lock);
        order += name;
      }
      turn.hasRead(bytes);
    });
    EXPECT_TRUE(eventually([&] { return webs::ReadTurnsProbe::waiting(turns) > before; }));
  }
  // The same for a read that nothing holds back.
  void enterAndLeave(const std::string& name, int reader) {
    const webs::ReadTurns::Turn turn(&turns, handle(reader), 0, 1);
    if (!turn.isBroken()) order += name;
  }
  // Waits until all have had their turn. Returns their order.
  std::string release() {
    for (std::thread& each : threads) each.join();
    threads.clear();
    std::lock_guard<std::mutex> guard(lock);
    return order;
  }
  const webs::FluviaFile* handle(int number) const {
    return reinterpret_cast<const webs::FluviaFile*>(&handles[number]);
  }

  // Only their addresses are used.
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
    const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
    enter("f", 1, 50LL * kCapacity);
    enter("n", 2, 2 * kBlock);
    enter("h", 3, kBlock);
  }
  EXPECT_EQ(release(), "hnf");
}

TEST_F(ReadTurnsTest, EqualClaimsGoInTheOrderTheyCame) {
  {
    const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
    enter("a", 1, 100);
    enter("b", 2, kBlock);
    enter("c", 3, 0);
  }
  EXPECT_EQ(release(), "abc");
}

TEST_F(ReadTurnsTest, OfReadsThatNeedDataTheOneBehindTakesTheOthersAlong) {
  {
    const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
    enter("f", 1, 50LL * kCapacity + kBlock);
    enter("b", 2, 50LL * kCapacity);
  }
  EXPECT_EQ(release(), "bf");
}

// The test controls the time: it sets the state of the readers and passes the current time.

TEST_F(ReadTurnsTest, ReaderThatLagsHoldsAReadBackForALagInAll) {
  const long long wanted = 3 * kBlock;
  ProbedTurns::note(turns, handle(1), 0, 1000, true);
  EXPECT_EQ(ProbedTurns::lagEnds(turns, handle(2), wanted, 1000, 1000), 1000 + Turns::kLagMs);
  // It reads every millisecond, and never catches up.
  ProbedTurns::note(turns, handle(1), 188, 1019, true);
  EXPECT_EQ(ProbedTurns::lagEnds(turns, handle(2), wanted, 1000, 1019), 1000 + Turns::kLagMs);
  ProbedTurns::note(turns, handle(1), 2 * 188, 1025, true);
  EXPECT_LE(ProbedTurns::lagEnds(turns, handle(2), wanted, 1000, 1025), 1025);
}

TEST_F(ReadTurnsTest, ReaderThatDoesNothingIsNotWaitedForAsOneThatLags) {
  ProbedTurns::note(turns, handle(1), 0, 1000, true);
  EXPECT_LE(ProbedTurns::lagEnds(turns, handle(2), 3 * kBlock, 1500, 1500), 1500);
}

TEST_F(ReadTurnsTest, RunWhoseBytesAreStoredEndsInTimeHoweverItsReaderReadsOn) {
  ProbedTurns::startRun(turns, handle(1), 1000, 0);
  ProbedTurns::note(turns, handle(1), 188, 1079, true);
  EXPECT_EQ(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1079),
            1000 + Turns::kTurnMs);
  ProbedTurns::note(turns, handle(1), 2 * 188, 1090, true);
  EXPECT_LE(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1090), 1090);
}

TEST_F(ReadTurnsTest, RunWhoseBytesAreStoredEndsWithAPauseOfItsReader) {
  ProbedTurns::startRun(turns, handle(1), 1000, 0);
  ProbedTurns::note(turns, handle(1), 188, 1010, true);
  EXPECT_EQ(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1012),
            1010 + Turns::kPauseMs);
}

TEST_F(ReadTurnsTest, SteadyReaderKeepsItsRunThroughPausesUntilBytesAreStored) {
  const long long far = 2 * kBlock;  // where the transfer stores
  ProbedTurns::startRun(turns, handle(1), 1000, far);
  ProbedTurns::note(turns, handle(1), far + 188, 1000, true);
  EXPECT_GT(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1100), 1100);
  EXPECT_LE(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1000 + Turns::kFillMs),
            1000 + Turns::kFillMs)
      << "at most so long";
}

TEST_F(ReadTurnsTest, RunThatTheTransferHasLeftEndsWithAPauseOfItsReader) {
  const long long far = 20LL * kCapacity;
  ProbedTurns::startRun(turns, handle(1), 1000, far);
  ProbedTurns::note(turns, handle(1), far + 188, 1000, true);
  EXPECT_LE(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1010), 1010)
      << "nobody stores the bytes that it waits for";
}

TEST_F(ReadTurnsTest, ReaderThatJumpedKeepsNoRunThroughPauses) {
  const long long far = 2 * kBlock;
  ProbedTurns::startRun(turns, handle(1), 1000, far);
  ProbedTurns::note(turns, handle(1), far + 188, 1000, false);
  EXPECT_EQ(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1002),
            1000 + Turns::kPauseMs);
}

TEST_F(ReadTurnsTest, LooksAtARunGrowRareAsItGrowsOld) {
  const long long far = 2 * kBlock;  // where the transfer stores
  ProbedTurns::startRun(turns, handle(1), 1000, far);
  ProbedTurns::note(turns, handle(1), far + 188, 1000, true);
  int looks = 0;
  for (long long now = 1000;;) {
    const long long next = ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1000, now);
    if (next <= now) break;
    now = next;
    ASSERT_LE(++looks, 10);
  }
  EXPECT_GE(looks, 3);
}

TEST_F(ReadTurnsTest, NobodyLooksWhileAReadHasTheTurn) {
  {
    webs::ReadTurns::Turn turn(&turns, handle(0), 0, 1);
    enter("f", 1, 50LL * kCapacity);
    enter("h", 2, 0);
    EXPECT_FALSE(ProbedTurns::somebodyLooks(turns)) << "the end of the turn wakes them";
  }
  EXPECT_EQ(release(), "hf");
}

// Aborts and closes.

TEST_F(ReadTurnsTest, BrokenWaitEndsWhileAnotherReadHasTheTurn) {
  const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
  enter("b", 1, 0);
  turns.breakWait(handle(2), nullptr);
  turns.breakWait(handle(1), this);
  EXPECT_EQ(ProbedTurns::waiting(turns), 1u) << "another handle's, or another request's";
  turns.breakWait(handle(1), nullptr);
  EXPECT_EQ(release(), "") << "it has not read";
}

TEST_F(ReadTurnsTest, BreakMeetsNoReadThatComesLater) {
  turns.breakWait(handle(1), nullptr);
  enterAndLeave("a", 1);
  EXPECT_EQ(release(), "a");
}

TEST_F(ReadTurnsTest, BreakIsNotedOfTheReadThatHasTheTurnAndOfNoOther) {
  {
    const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
    turns.breakWait(handle(1), nullptr);
    turns.breakWait(handle(0), this);
    EXPECT_FALSE(first.wasMet()) << "another handle's, or another request's";
    turns.breakWait(handle(0), nullptr);
    EXPECT_TRUE(first.wasMet());
    EXPECT_FALSE(first.isBroken()) << "it did not wait any more";
  }
  turns.breakWait(handle(0), nullptr);
  const webs::ReadTurns::Turn next(&turns, handle(0), 0, 1);
  EXPECT_FALSE(next.wasMet());
}

TEST_F(ReadTurnsTest, CloseBreaksTheWaitsThatAreAndThoseToCome) {
  const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
  enter("b", 1, 0);
  turns.breakForClose(handle(1));
  EXPECT_EQ(release(), "");
  const webs::ReadTurns::Turn late(&turns, handle(1), 0, 1);
  EXPECT_TRUE(late.isBroken());
  turns.forget(handle(1));
  const webs::ReadTurns::Turn later(&turns, handle(1), 0, 1);
  EXPECT_TRUE(later.isBroken());
}

TEST_F(ReadTurnsTest, TurnThatOutlivesItsHandleDoesNotBringItBack) {
  const size_t before = ProbedTurns::known(turns);
  {
    const webs::ReadTurns::Turn turn(&turns, handle(1), 0, 1);
    turns.forget(handle(1));
  }
  EXPECT_EQ(ProbedTurns::known(turns), before - 1);
}

TEST_F(ReadTurnsTest, ReadThatBeganAloneIsWaitedForAndTheWaitCanBeBroken) {
  for (int i = 1; i < 8; ++i) turns.forget(handle(i));
  {
    const webs::ReadTurns::Turn alone(&turns, handle(0), 0, 1);
    turns.join(handle(1));
    enter("b", 1, 0);
    turns.breakWait(handle(1), nullptr);
    EXPECT_EQ(release(), "");
    enter("a", 1, 0);
  }
  EXPECT_EQ(release(), "a") << "its end lets the other go";
}

TEST_F(ReadTurnsTest, EndOfTheOnlyOtherHandleLetsItsWaiterGo) {
  {
    webs::ReadTurns::Turn lagging(&turns, handle(1), 0, 1);
    queue.notifyStreamException(util::STREAM_DEAD);
    enter("f", 2, 50LL * kCapacity);
  }
  turns.forget(handle(1));
  EXPECT_EQ(release(), "f");
}

// The stream was moved for handle 1: it continues there, even if another handle has waited longer.
TEST_F(ReadTurnsTest, RestartIsFollowedByARunOfItsReader) {
  {
    webs::ReadTurns::Turn first(&turns, handle(1), 20LL * kCapacity, 1);
    queue.notifyStreamException(util::STREAM_DEAD);
    first.hasRead(kBlock);
    enter("f", 2, 50LL * kCapacity);
    enter("n", 1, 20LL * kCapacity + kBlock);
  }
  EXPECT_EQ(release(), "nf");
}

// Otherwise each of several long waiters would take the stream from the previous one after a single
// read.
TEST_F(ReadTurnsTest, RunIsNotBrokenByOneThatHasWaitedLong) {
  std::thread restarting;
  {
    webs::ReadTurns::Turn first(&turns, handle(0), 2 * kBlock, 1);
    restarting = std::thread([this] {
      webs::ReadTurns::Turn turn(&turns, handle(1), 20LL * kCapacity, 1);
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

// Otherwise a reader that jumps after each read would begin a new run each time, and no other
// reader would get a turn.
TEST_F(ReadTurnsTest, RunEndsWhenItsReaderNeedsAnotherConnectionElsewhere) {
  {
    const webs::ReadTurns::Turn turn(&turns, handle(0), 0, 1);
    enter("f", 2, 50LL * kCapacity);
    enter("j", 1, 80LL * kCapacity);
    ProbedTurns::startRun(turns, handle(1), util::monotonicMs(), 20LL * kCapacity);
    ProbedTurns::note(turns, handle(1), 20LL * kCapacity + kBlock, util::monotonicMs(), false);
  }
  EXPECT_EQ(release(), "fj") << "in the order they came";
}

TEST_F(ReadTurnsTest, ReadThatAllKeepBackGoesWhenTheyDoNothing) {
  {
    webs::ReadTurns::Turn lagging(&turns, handle(1), 0, 1);
    queue.notifyStreamException(util::STREAM_DEAD);
    enter("f", 2, 3 * kBlock);
    enter("g", 3, 50LL * kCapacity);
  }
  EXPECT_EQ(release().size(), 2u) << "or they wait for ever";
}

TEST_F(ReadTurnsTest, HandleThatIsAloneWaitsForNothing) {
  for (int i = 1; i < 8; ++i) turns.forget(handle(i));
  const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
  const webs::ReadTurns::Turn second(&turns, handle(0), 50LL * kCapacity, 1);
  EXPECT_EQ(ProbedTurns::waiting(turns), 0u);
}

TEST_F(ReadTurnsTest, TimeThatAReadIsHeldBackIsRecorded) {
  Turns::forgetLongestHoldback();
  {
    webs::ReadTurns::Turn turn(&turns, handle(1), 2 * kBlock, 1);
    queue.notifyStreamException(util::STREAM_DEAD);
    enter("f", 2, 50LL * kCapacity);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // a fetch: not counted
  }
  release();
  EXPECT_GE(Turns::longestHoldback(), Turns::kPauseMs - 1) << "the run of the other";
  EXPECT_LT(Turns::longestHoldback(), 100) << "but not its fetch";
}

// Turns over a queue that the test feeds.
class SteppedTurns : public support::SteppedQueue {
 protected:
  const webs::FluviaFile* handle(int number) const {
    return reinterpret_cast<const webs::FluviaFile*>(&handles[number]);
  }

  // Compared only.
  const char handles[2] = {};
};

TEST_F(SteppedTurns, RunWhoseReaderHasTheRestOfTheResourceEndsWithAPause) {
  producer.size = 2 * kBlock;
  ASSERT_TRUE(beginsWith(16, 2 * kBlock));
  webs::ReadTurns turns(queue.get());
  turns.join(handle(0));
  ProbedTurns::startRun(turns, handle(0), 1000, 0);
  ProbedTurns::note(turns, handle(0), 188, 1000, true);
  EXPECT_LE(ProbedTurns::runEnds(turns, handle(1), 0, 1001, 1010), 1010)
      << "a quarter of the buffer is more than there is";
}

#if defined(FLUVIA_PAUSE_POINTS)
// The read's bytes are there when it gets the turn, and are gone when it comes to the queue. Else
// the run would stay with the one before, for which nobody stores anything any more.
TEST_F(SteppedTurns, ReadWhoseBytesAreReusedAfterItGotTheTurnBeginsARunIfItRestarts) {
  ASSERT_TRUE(beginsWith(4, 2 * kBlock));
  webs::ReadTurns turns(queue.get());
  for (int i = 0; i < 2; ++i) turns.join(handle(i));
  const long long began = util::monotonicMs();
  ProbedTurns::startRun(turns, handle(1), began, 2 * kBlock);
  ProbedTurns::note(turns, handle(1), 2 * kBlock + 188, began, true);
  support::Pauses pauses;
  pauses.holdAt("ReadTurns::Turn over");
  unsigned int got = 0;
  support::WaitingCall reading(queue.get(), [&] {
    webs::ReadTurns::Turn turn(&turns, handle(0), 0, 188);
    char bytes[188];
    long long now = 0;
    EXPECT_TRUE(queue->seek(0, &now));
    EXPECT_EQ(queue->read(bytes, 188, &got), 0);
    turn.hasRead(got);
  });
  EXPECT_TRUE(pauses.reached("ReadTurns::Turn over"));
  queue->expectReader(kBlock);
  EXPECT_EQ(deliver(2 * kBlock, 3 * kBlock), 1);
  EXPECT_EQ(queue->getBufferedSize(0), 0);
  pauses.release("ReadTurns::Turn over");
  EXPECT_TRUE(givesWay(5LL * kBlock, 1));
  EXPECT_EQ(deliver(0, kBlock), 1);
  EXPECT_TRUE(reading.hasReturned());
  EXPECT_EQ(got, 188u);
  EXPECT_EQ(ProbedTurns::runner(turns), handle(0));
  EXPECT_LE(ProbedTurns::runEnds(turns, handle(0), 50LL * kCapacity, began, began), began)
      << "it waits for a run that is over";
}

std::atomic<int> looks{0};

void countLooks(const char* name) {
  if (std::string(name) == "ReadTurns::wait") ++looks;
}

// Bytes that the transfer stores are not announced, but a read that waits for them must not spin.
TEST_F(ReadTurnsTest, ReadThatIsHeldBackLooksOnlyNowAndThen) {
  ProbedTurns::note(turns, handle(1), kBlock, util::monotonicMs() + 100000, true);
  ProbedTurns::startRun(turns, handle(1), util::monotonicMs(), 10 * kBlock);
  looks = 0;
  Turns::forgetLongestHoldback();
  util::setPauseHook(&countLooks);
  enter("f", 2, 50LL * kCapacity);
  release();
  util::setPauseHook(nullptr);
  EXPECT_EQ(order, "f");
  EXPECT_GE(looks, 2) << "it was not held back";
  EXPECT_LE(looks, 20);
  EXPECT_LT(Turns::longestHoldback(), Turns::kTurnMs)
      << "the transfer stores for the run meanwhile";
}

// A wait that polls would pass here more often.
TEST_F(ReadTurnsTest, BreakOrCloseWakesAWaitThatSleepsAndNothingElseDoes) {
  const webs::ReadTurns::Turn first(&turns, handle(0), 0, 1);
  looks = 0;
  util::setPauseHook(&countLooks);
  enter("b", 1, 0);
  enter("c", 2, 50LL * kCapacity);
  EXPECT_TRUE(eventually([] { return looks.load() == 2; }));
  turns.breakWait(handle(1), nullptr);
  turns.breakForClose(handle(2));
  EXPECT_EQ(release(), "");
  util::setPauseHook(nullptr);
  EXPECT_EQ(looks, 2) << "each slept once, until it was broken";
}

// A held back read that goes to sleep while another has the turn is woken at that turn's end.
TEST_F(ReadTurnsTest, TurnThatEndsWhileAHeldBackReadGoesToSleepIsNotMissed) {
  ProbedTurns::note(turns, handle(1), kBlock, util::monotonicMs() + 100000, true);
  ProbedTurns::startRun(turns, handle(1), util::monotonicMs(), 10 * kBlock);
  support::Pauses pauses;
  pauses.holdAt("ReadTurns::wait");
  std::atomic<bool> over{false};
  std::thread late([&] {
    const webs::ReadTurns::Turn mine(&turns, handle(2), 50LL * kCapacity, 1);
    over = true;
  });
  EXPECT_TRUE(pauses.reached("ReadTurns::wait"));
  {
    const webs::ReadTurns::Turn turn(&turns, handle(3), kBlock, 1);
    pauses.release("ReadTurns::wait");
    EXPECT_TRUE(eventually([&] { return !ProbedTurns::somebodyLooks(turns); }));
  }
  EXPECT_TRUE(eventually([&] { return over.load(); })) << "nobody tells it to look";
  if (!over) turns.breakForClose(handle(2));
  late.join();
}
#endif

// A new handle may come at the address of a closed one; the stream was not restarted for it.
TEST_F(ReadTurnsTest, RunOfAClosedHandleIsNotThatOfTheNextOneAtItsAddress) {
  const long long far = 20LL * kCapacity;
  ProbedTurns::startRun(turns, handle(1), 1000, far);
  turns.forget(handle(1));
  turns.join(handle(1));
  ProbedTurns::note(turns, handle(1), far + 188, 1009, true);
  EXPECT_LE(ProbedTurns::runEnds(turns, handle(2), 50LL * kCapacity, 1001, 1010), 1010);
}

}  // namespace

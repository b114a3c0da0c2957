#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pauses.h"
#include "tests/support/Watchdog.h"
#include "util/Semaphore.h"
#include "util/ThreadObject.h"

namespace {

using support::CapturedStderr;
using support::eventually;
using util::ThreadObject;

// Counts runs; a run can be held until it is released.
struct Runs {
  std::atomic<int> begun{0};
  std::atomic<int> ended{0};
  std::atomic<bool> hold{false};
  std::atomic<void*> lastArg{nullptr};
  std::atomic<long> thread{0};
};
Runs* current = nullptr;

void* countRun(void* arg) {
  current->lastArg = arg;
  current->thread = syscall(SYS_gettid);
  ++current->begun;
  eventually([] { return !current->hold.load(); });
  ++current->ended;
  return nullptr;
}

// Returns how often that thread of this process has gone to sleep.
long sleepsOf(long thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  const std::string name = "voluntary_ctxt_switches:";
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, name.size(), name) == 0) return std::stol(line.substr(name.size()));
  }
  return -1;
}

class ThreadObjectTest : public testing::Test {
 protected:
  ThreadObjectTest() { current = &runs; }
  bool begun(int count) {
    return eventually([&] { return runs.begun == count; });
  }
  bool ended(int count) {
    return eventually([&] { return runs.ended == count; });
  }
  bool parked(int times = 1) {
    return eventually([&] { return log.count("runner: thread begin to sleep") >= times; });
  }
  // One run, after which the thread sleeps.
  bool runsAndParks() { return object.start(nullptr) && parked(); }

  Runs runs;
  const CapturedStderr log{0};
  ThreadObject object{countRun};
  support::Watchdog watchdog{60, [] { return std::string(); }};
};

TEST_F(ThreadObjectTest, StartRunsTheFunctionOnceWithItsArgument) {
  int argument = 0;
  EXPECT_FALSE(object.isAlive());
  EXPECT_TRUE(object.start(&argument));
  ASSERT_TRUE(ended(1));
  EXPECT_EQ(runs.lastArg, &argument);
  EXPECT_TRUE(log.has("start: create thread 0"));
  ASSERT_TRUE(parked());
  EXPECT_EQ(runs.begun, 1);
}

TEST_F(ThreadObjectTest, StartDuringARunCausesExactlyOneMore) {
  runs.hold = true;
  ASSERT_TRUE(object.start(nullptr));
  ASSERT_TRUE(begun(1));
  EXPECT_TRUE(object.needExit()) << "the request ends as its run begins";
  EXPECT_TRUE(object.start(nullptr));
  EXPECT_FALSE(object.needExit());
  EXPECT_TRUE(log.has("start: re-alive a thread before it is going to sleep"));
  EXPECT_FALSE(object.start(nullptr)) << "a run is requested already";
  runs.hold = false;
  ASSERT_TRUE(parked());
  EXPECT_EQ(runs.begun, 2);
  EXPECT_TRUE(log.has("runner: thread continues next loop 1"));
}

TEST_F(ThreadObjectTest, StartWakesAParkedObject) {
  ASSERT_TRUE(runsAndParks());
  EXPECT_TRUE(object.start(nullptr));
  EXPECT_TRUE(log.has("start: Tend to wake up or restart thread, sleep:1, alive:0"));
  ASSERT_TRUE(parked(2));
  EXPECT_TRUE(log.has("runner: thread woken up"));
  EXPECT_TRUE(log.has("runner: thread continues next loop"));
}

TEST_F(ThreadObjectTest, PauseOfAParkedObjectChangesNothing) {
  ASSERT_TRUE(runsAndParks());
  object.stop(false);
  EXPECT_TRUE(log.has("stop: have already paused"));
  EXPECT_TRUE(object.start(nullptr));
  EXPECT_TRUE(ended(2));
}

TEST_F(ThreadObjectTest, ForcedStopEndsAParkedThreadForGood) {
  ASSERT_TRUE(runsAndParks());
  object.stop(true);
  EXPECT_TRUE(log.has("stop: wait for thread object to be destroyed"));
  EXPECT_TRUE(log.has("stop: stop OK"));
  EXPECT_TRUE(object.needForceClose());
  EXPECT_FALSE(object.start(nullptr));
  EXPECT_TRUE(log.has("start: The thread has been froced to destroyed yet, start failed 0"));
  object.stop(true);
  EXPECT_TRUE(log.has("stop: have already stopped"));
  EXPECT_TRUE(eventually([&] { return log.has("runner: attached end "); }));
  EXPECT_EQ(runs.begun, 1);
}

TEST_F(ThreadObjectTest, ForcedStopWaitsForTheRun) {
  runs.hold = true;
  ASSERT_TRUE(object.start(nullptr));
  ASSERT_TRUE(begun(1));
  std::atomic<int> stopped{0};
  std::thread first([&] {
    object.stop(true);
    EXPECT_EQ(runs.ended, 1);
    ++stopped;
  });
  ASSERT_TRUE(eventually([&] { return object.needForceClose(); }));
  std::thread second([&] {
    object.stop(true);
    EXPECT_EQ(runs.ended, 1) << "a second stop waits too";
    ++stopped;
  });
  ASSERT_TRUE(eventually([&] { return log.has("stop: have already stopped"); }));
  EXPECT_EQ(stopped, 0);
  runs.hold = false;
  first.join();
  second.join();
}

TEST_F(ThreadObjectTest, ForcedStopOfAnObjectNeverStartedLeavesItStartable) {
  object.stop(true);
  EXPECT_TRUE(log.has("stop: hasn't ever started"));
  EXPECT_TRUE(object.start(nullptr));
  EXPECT_TRUE(ended(1));
}

TEST_F(ThreadObjectTest, StartFollowedAtOnceByAPauseStillRunsOnce) {
  ASSERT_TRUE(runsAndParks());
  // Many times: the test needs a pause that comes before the thread has woken.
  for (int run = 2; run <= 200; ++run) {
    EXPECT_TRUE(object.start(nullptr));
    object.stop(false);
    ASSERT_TRUE(ended(run));
    ASSERT_TRUE(parked(run));
    EXPECT_EQ(runs.begun, run);
  }
}

TEST_F(ThreadObjectTest, WakeUpThatNobodyAskedForRunsNothing) {
  ASSERT_TRUE(runsAndParks());
  // Wakes the thread until it has gone to sleep again many times.
  const long before = sleepsOf(runs.thread);
  ASSERT_GE(before, 0);
  EXPECT_TRUE(eventually([&] {
    object.notifyAll(0);
    return sleepsOf(runs.thread) > before + 20;
  }));
  EXPECT_FALSE(log.has("runner: thread woken up"));
  EXPECT_EQ(runs.begun, 1);
  EXPECT_TRUE(object.start(nullptr));
  ASSERT_TRUE(ended(2));
  ASSERT_TRUE(parked(2));
  EXPECT_EQ(runs.begun, 2);
}

TEST_F(ThreadObjectTest, ThousandFreshObjectsRunOnceEach) {
  for (int i = 0; i < 1000; ++i) {
    const int before = runs.begun;
    ThreadObject fresh(countRun);
    ASSERT_TRUE(fresh.start(nullptr));
    ASSERT_TRUE(ended(before + 1));
    fresh.stop(true);
    ASSERT_EQ(runs.begun, before + 1);
  }
}

// Sanitizers choose the stacks of threads themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(ThreadObjectTest, ThreadThatCannotBeMadeIsNotWaitedFor) {
  pthread_attr_t attributes;
  size_t size = 0;
  ASSERT_EQ(pthread_getattr_default_np(&attributes), 0);
  ASSERT_EQ(pthread_attr_getstacksize(&attributes, &size), 0);
  // More than the address space has, for any width.
  const size_t impossible = SIZE_MAX / 65536 / 16 * 15 * 65536;
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, impossible), 0);
  ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
  EXPECT_FALSE(object.start(nullptr)) << "there is no room for its stack";
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
  ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
  pthread_attr_destroy(&attributes);
  EXPECT_TRUE(log.has("start: create failed11"));
  EXPECT_TRUE(object.start(nullptr)) << "it counts as created, wanted";
  object.stop(true);
  EXPECT_EQ(runs.begun, 0);
}
#endif

#if defined(FLUVIA_PAUSE_POINTS)
TEST_F(ThreadObjectTest, SecondStartOfAParkedObjectIsRefused) {
  ASSERT_TRUE(runsAndParks());
  support::Pauses pauses;
  pauses.holdAt("runner before run");
  EXPECT_TRUE(object.start(nullptr));
  ASSERT_TRUE(pauses.reached("runner before run"));
  EXPECT_FALSE(object.start(nullptr)) << "the run that was asked for has not begun";
  EXPECT_TRUE(log.has("start: error, has already started"));
  pauses.release("runner before run");
  ASSERT_TRUE(parked(2));
  EXPECT_EQ(runs.begun, 2);
}

// The run must not begin before start() has recorded its request, or it would run again.
TEST_F(ThreadObjectTest, RunThatIsReadyBeforeStartReturnsIsNotRepeated) {
  support::Pauses pauses;
  pauses.holdAt("ThreadObject::start created");
  std::thread starter([&] { object.start(nullptr); });
  ASSERT_TRUE(pauses.reached("ThreadObject::start created"));
  pauses.release("ThreadObject::start created");
  starter.join();
  ASSERT_TRUE(parked());
  EXPECT_EQ(runs.begun, 1);
}
#endif

TEST(ThreadObjectDelay, BelowASecondDoesNotSleep) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 1000; ++i) util::delay(999);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5))
      << "a thousand sleeps of a second";
}

TEST(ThreadObjectDelay, SleepsWholeSeconds) {
  const auto begin = std::chrono::steady_clock::now();
  util::delay(2500);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1999));
}

}  // namespace

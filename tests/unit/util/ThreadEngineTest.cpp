#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/util/RecordedTasks.h"
#include "util/ThreadEngine.h"

namespace {

using support::eventually;
using util::TENGINE_EXECUTE;

using ThreadEngineTest = RecordedTasks;

TEST_F(ThreadEngineTest, RunsEachTaskOnceOnSixWorkers) {
  const support::CapturedStderr log(1);
  const int before = support::threadCount();
  util::ThreadEngine engine;
  engine.requestExecute(record, &a, &sender);
  EXPECT_EQ(callCount(), 0u) << "tasks wait until there are workers";
  engine.initialize();
  engine.initialize();
  EXPECT_EQ(support::threadCount(), before + 6);
  for (int i = 0; i < 99; ++i) engine.requestExecuteOrderly(record, &b, &sender);
  ASSERT_TRUE(eventually([] { return callCount() == 100; }));
  for (const Call& call : calls) EXPECT_EQ(call.event, TENGINE_EXECUTE);
  EXPECT_TRUE(log.has("requestExecute: 1"));
  EXPECT_FALSE(log.has("requestExecuteOrderly: 1"));
  EXPECT_TRUE(log.has("initialize: creat thread 5 OK"));
  EXPECT_FALSE(log.has("initialize: creat thread 6 OK"));
  EXPECT_EQ(log.count("initialize: end to init"), 1);
  EXPECT_EQ(log.count("detectLoglevel: Log level==1"), 1);
  EXPECT_TRUE(eventually([&] { return log.has("execute: ThreadEngine 0 begin to popTask"); }));
}

TEST_F(ThreadEngineTest, StartedByManyThreadsAtOnceHasSixWorkers) {
  const int before = support::threadCount();
  for (int round = 0; round < 20; ++round) {
    util::ThreadEngine engine;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        ++ready;
        while (ready < 4) std::this_thread::yield();
        engine.initialize();
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(eventually([before] { return support::threadCount() == before + 6; }))
        << support::threadCount() - before << " workers";
  }
}

TEST_F(ThreadEngineTest, OneTaskWakesOneWorker) {
  const std::string waits = "popTask: thread engine waiting for task";
  const support::CapturedStderr log(1);
  util::ThreadEngine engine;
  engine.initialize();
  ASSERT_TRUE(eventually([&] { return log.count(waits) == 6; }));
  for (int i = 1; i <= 20; ++i) {
    engine.requestExecuteOrderly(record, &a, &sender);
    // Its worker waits again, and no other worker was woken.
    ASSERT_TRUE(eventually([&] { return log.count(waits) >= 6 + i; }));
    ASSERT_EQ(log.count(waits), 6 + i);
  }
  EXPECT_EQ(callCount(), 20u);
}

TEST_F(ThreadEngineTest, DestructionRunsWhatIsPendingAndJoins) {
  const int before = support::threadCount();
  {
    util::ThreadEngine engine;
    engine.initialize();
    for (int i = 0; i < 200; ++i) engine.requestExecute(record, &a, &sender);
  }
  EXPECT_EQ(callCount(), 200u);
  EXPECT_TRUE(eventually([before] { return support::threadCount() == before; }))
      << support::threadCount() << " threads, before there were " << before;
}

}  // namespace

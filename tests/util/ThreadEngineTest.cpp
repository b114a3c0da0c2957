#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "util/ThreadEngine.h"

namespace {

using support::eventually;
using util::TaskQueue;
using util::TENGINE_CANCELLED;
using util::TENGINE_EXECUTE;
using util::TEngineEvent_E;

// What was called, in order.
struct Call {
  int* arg;
  TEngineEvent_E event;
  bool operator==(const Call& other) const { return arg == other.arg && event == other.event; }
};
std::mutex callsLock;
std::vector<Call> calls;

void record(void* arg, TEngineEvent_E event) {
  std::lock_guard<std::mutex> guard(callsLock);
  calls.push_back({static_cast<int*>(arg), event});
}
size_t callCount() {
  std::lock_guard<std::mutex> guard(callsLock);
  return calls.size();
}

class Engine : public testing::Test {
 protected:
  Engine() {
    calls.clear();
    support::makeFirstThread();
  }
  int a = 0;
  int b = 0;
  int sender = 0;
  int other = 0;
};

using TaskQueueTest = Engine;

TEST_F(TaskQueueTest, CancelWithdrawsTheOldestOfItsArgument) {
  TaskQueue queue;
  EXPECT_EQ(queue.putTask(record, &a, &sender), 0);
  queue.putTask(record, &b, &sender);
  queue.putTask(record, &a, &other);
  EXPECT_TRUE(queue.cancel(&a));
  EXPECT_EQ(calls, std::vector<Call>({{&a, TENGINE_CANCELLED}}));
  EXPECT_EQ(queue.cancelAll(&other), 1) << "the younger one of that argument was left";
  EXPECT_FALSE(queue.cancel(&a));
  EXPECT_TRUE(queue.cancel(&b));
}

TEST_F(TaskQueueTest, CancelAllOfASenderCallsInOrderAndCounts) {
  TaskQueue queue;
  queue.putTask(record, &a, &sender);
  queue.putTask(record, &sender, &other);
  queue.putTask(record, &b, &sender);
  EXPECT_EQ(queue.cancelAll(&a), 0) << "an argument is no sender";
  EXPECT_EQ(queue.cancelAll(&sender), 2);
  EXPECT_EQ(calls, std::vector<Call>({{&a, TENGINE_CANCELLED}, {&b, TENGINE_CANCELLED}}));
  EXPECT_EQ(queue.popTask(nullptr)->arg, &sender);
}

TEST_F(TaskQueueTest, CancelAllWithoutArgumentIsSilent) {
  TaskQueue queue;
  queue.putTask(record, &a, &sender);
  queue.putTask(record, &b, &other);
  EXPECT_EQ(queue.cancelAll(), 2);
  EXPECT_TRUE(calls.empty());
  EXPECT_EQ(queue.cancelAll(), 0);
}

TEST_F(TaskQueueTest, TakenTaskCannotBeCancelledAndIsReusedOnlyWhenItsWorkerComesBack) {
  TaskQueue queue;
  queue.putTask(record, &a, &sender);
  util::Task* first = queue.popTask(nullptr);
  EXPECT_FALSE(queue.cancel(&a));
  EXPECT_EQ(queue.cancelAll(&sender), 0);
  queue.putTask(record, &b, &sender);
  util::Task* second = queue.popTask(first);
  EXPECT_NE(second, first);
  queue.putTask(record, &a, &sender);
  EXPECT_EQ(queue.popTask(nullptr), first) << "a finished task object is used again";
}

// Queues and withdraws from within a withdrawal.
TaskQueue* nested = nullptr;
void recordAndNest(void* arg, TEngineEvent_E event) {
  record(arg, event);
  nested->putTask(record, arg, nullptr);
  nested->cancel(arg);
}

TEST_F(TaskQueueTest, CancelledCallbackMayQueueAndCancel) {
  support::Watchdog watchdog(20, [] { return std::string("the callback waits for its queue"); });
  TaskQueue queue;
  nested = &queue;
  queue.putTask(recordAndNest, &a, &sender);
  EXPECT_TRUE(queue.cancel(&a));
  EXPECT_EQ(calls, std::vector<Call>({{&a, TENGINE_CANCELLED}, {&a, TENGINE_CANCELLED}}));
}

TEST_F(Engine, RunsEachTaskOnceOnSixWorkers) {
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

TEST_F(TaskQueueTest, TasksAreTakenInTheOrderTheyCame) {
  std::vector<int> marks(50);
  TaskQueue queue;
  for (int& mark : marks) queue.putTask(record, &mark, &sender);
  for (int& mark : marks) EXPECT_EQ(queue.popTask(nullptr)->arg, &mark);
}

TEST_F(Engine, StartedByManyThreadsAtOnceHasSixWorkers) {
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

TEST_F(TaskQueueTest, QueuesOfTwoThreadsDoNotDisturbEachOther) {
  std::atomic<int> missed{0};
  std::atomic<int> ready{0};
  const auto putAndCancel = [&](int* mark) {
    TaskQueue queue;
    ++ready;
    while (ready < 2) std::this_thread::yield();
    for (int i = 0; i < 200000; ++i) {
      queue.putTask([](void*, TEngineEvent_E) {}, mark, &sender);
      if (!queue.cancel(mark)) ++missed;
    }
  };
  std::thread first(putAndCancel, &a);
  std::thread second(putAndCancel, &b);
  first.join();
  second.join();
  EXPECT_EQ(missed, 0);
}

TEST_F(Engine, DestructionRunsWhatIsPendingAndJoins) {
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

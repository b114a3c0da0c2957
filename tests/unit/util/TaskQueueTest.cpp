#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/util/RecordedTasks.h"
#include "util/TaskQueue.h"

namespace {

using support::eventually;
using util::TaskQueue;
using util::TENGINE_CANCELLED;
using util::TEngineEvent_E;

class TaskQueueTest : public RecordedTasks {
 protected:
  // Queues and withdraws inside a withdrawal.
  static void recordAndNest(void* arg, TEngineEvent_E event) {
    record(arg, event);
    nested->putTask(record, arg, nullptr);
    nested->cancel(arg);
  }

  static inline TaskQueue* nested = nullptr;
};

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

TEST_F(TaskQueueTest, CancelledCallbackMayQueueAndCancel) {
  support::Watchdog watchdog(20, [] { return std::string("the callback waits for its queue"); });
  TaskQueue queue;
  nested = &queue;
  queue.putTask(recordAndNest, &a, &sender);
  EXPECT_TRUE(queue.cancel(&a));
  EXPECT_EQ(calls, std::vector<Call>({{&a, TENGINE_CANCELLED}, {&a, TENGINE_CANCELLED}}));
}

TEST_F(TaskQueueTest, TasksAreTakenInTheOrderTheyCame) {
  std::vector<int> marks(50);
  TaskQueue queue;
  for (int& mark : marks) queue.putTask(record, &mark, &sender);
  for (int& mark : marks) EXPECT_EQ(queue.popTask(nullptr)->arg, &mark);
}

TEST_F(TaskQueueTest, SearchesOfTwoThreadsDoNotDisturbEachOther) {
  TaskQueue queue;
  std::atomic<int> missed{0};
  std::atomic<int> ready{0};
  const auto putAndCancel = [&](int* mark) {
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

TEST_F(TaskQueueTest, WhatIsSearchedForStandsInOneWordOfAllThreadsAndQueues) {
  TaskQueue queue;
  TaskQueue second;
  queue.putTask(record, &a, &sender);
  EXPECT_FALSE(second.cancel(&a)) << "the tasks are a queue's own";
  util::Task sought(record, &a, &sender);
  util::Task unsought(record, &b, &a);
  std::thread([&] {
    EXPECT_TRUE(TaskQueue::isTaskOfArg(&sought));
    EXPECT_FALSE(TaskQueue::isTaskOfArg(&unsought));
    EXPECT_TRUE(TaskQueue::isTaskOfSender(&unsought));
  }).join();
  EXPECT_TRUE(queue.cancel(&a));
}

// A thread that waits on the queue's own condition, where a notify may find it.
class Bystander {
 public:
  explicit Bystander(TaskQueue* queue)
      : thread([this, queue] {
          const util::Lock lock(*queue);
          waits = true;
          woken = queue->waitFor(static_cast<int>(support::patienceOf(5).count()));
        }) {}
  ~Bystander() { thread.join(); }
  Bystander(const Bystander&) = delete;
  Bystander& operator=(const Bystander&) = delete;

  // Once it waits, its lock is free again.
  bool isWaiting(TaskQueue* queue) {
    return eventually([&] {
      const util::Lock lock(*queue);
      return waits;
    });
  }

  std::atomic<bool> woken{false};

 private:
  bool waits = false;  // under the queue's lock
  std::thread thread;
};

TEST_F(TaskQueueTest, EveryTaskIsBroadcastAndStillReachesItsWorker) {
  support::Watchdog watchdog(40, [] { return std::string("no worker was called"); });
  TaskQueue queue;
  const support::CapturedStderr log(1);
  std::unique_ptr<Bystander> bystanders[3];
  for (auto& bystander : bystanders) {
    bystander.reset(new Bystander(&queue));
    ASSERT_TRUE(bystander->isWaiting(&queue));
  }
  std::atomic<void*> taken{nullptr};
  std::thread worker([&] { taken = queue.popTask(nullptr)->arg; });
  ASSERT_TRUE(eventually([&] { return log.has("popTask: thread engine waiting for task"); }));
  EXPECT_EQ(queue.putTask(record, &a, &sender), 0);
  EXPECT_TRUE(eventually([&] { return taken == &a; }, 4)) << "somebody else got its wake-up";
  if (taken == nullptr) queue.notifyAll(0);
  worker.join();
  for (auto& bystander : bystanders) {
    EXPECT_TRUE(eventually([&] { return bystander->woken.load(); })) << "not a broadcast";
  }
}

TEST_F(TaskQueueTest, MoreWorkersThanPlacesAreServedToo) {
  constexpr int kMany = 20;
  support::Watchdog watchdog(40, [] { return std::string("a worker was forgotten"); });
  TaskQueue queue;
  std::vector<int> marks(kMany);
  for (int round = 0; round < 50; ++round) {
    std::vector<std::thread> workers;
    for (int i = 0; i < kMany; ++i) workers.emplace_back([&] { queue.popTask(nullptr); });
    for (int& mark : marks) queue.putTask(record, &mark, &sender);
    for (std::thread& worker : workers) worker.join();
  }
  EXPECT_EQ(queue.cancelAll(), 0);
}

}  // namespace

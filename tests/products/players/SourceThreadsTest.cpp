// The threads of the element's readers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <memory>
#include <set>
#include <vector>

#include "SourceThreads.h"
#include "tests/support/Watchdog.h"

namespace {

// Returns the thread that did a piece of work; the kernel does not reuse a number so early.
pid_t doneBy() {
  auto done = std::make_shared<std::promise<pid_t>>();
  std::future<pid_t> id = done->get_future();
  EXPECT_TRUE(SourceThreads::instance().run([done] { done->set_value(gettid()); }));
  EXPECT_EQ(id.wait_for(support::patienceOf(20)), std::future_status::ready);
  return id.get();
}

// A thread that has just done its work may not be ready for the next; then another one is.
TEST(SourceThreads, WorkOneAfterTheOtherTakesNoThreadEach) {
  std::set<pid_t> used;
  for (int i = 0; i < 300; ++i) used.insert(doneBy());
  EXPECT_LE(used.size(), 30u);
}

TEST(SourceThreads, NoWorkWaitsForAnothersEnd) {
  constexpr int kMany = 20;
  std::promise<void> goOn;
  const std::shared_future<void> told = goOn.get_future().share();
  std::vector<std::future<void>> begun;
  for (int i = 0; i < kMany; ++i) {
    auto begins = std::make_shared<std::promise<void>>();
    begun.push_back(begins->get_future());
    ASSERT_TRUE(SourceThreads::instance().run([begins, told] {
      begins->set_value();
      told.wait();
    }));
  }
  for (std::future<void>& each : begun) {
    EXPECT_EQ(each.wait_for(support::patienceOf(20)), std::future_status::ready);
  }
  goOn.set_value();
}

}  // namespace

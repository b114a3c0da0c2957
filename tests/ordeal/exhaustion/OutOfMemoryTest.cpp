// Memory or threads run out at one particular place.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/ordeal/torture/Interpose.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/PrivateData.h"
#include "tests/support/QueueProbe.h"
#include "tests/support/SteppedQueue.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "util/BufferBlockPool.h"
#include "util/BufferQueue.h"
#include "util/ThreadEngine.h"

namespace {

using support::Completions;
using support::eventually;
using support::kBlock;
using support::Reading;
using support::SteppedProducer;
using torture::Point;
using util::BufferQueue;
using util::BufferQueueProbe;
using util::ThreadEngine;

class OutOfMemory : public testing::Test {
 protected:
  OutOfMemory() { EXPECT_TRUE(queue.initialize(&producer)); }
  ~OutOfMemory() override { queue.release(); }

  SteppedProducer producer;
  BufferQueue queue{4 * kBlock};
  support::Watchdog watchdog{60, [this] { return BufferQueueProbe::describe(queue); }};
};

TEST_F(OutOfMemory, InAProducersStartFailsTheReadAndNotTheWorker) {
  producer.duringStart = [] { throw std::bad_alloc(); };
  Reading reading(&queue, 0, 100);
  ASSERT_TRUE(reading.hasEnded());
  EXPECT_EQ(reading.result, FVFR_FAILED);
  EXPECT_EQ(producer.started().size(), 1u);
}

TEST_F(OutOfMemory, ForARestartIsNoticedBeforeTheTransferHoldsStillForIt) {
  Reading reading(&queue, 5000000, 100);
  ASSERT_TRUE(eventually([&] { return producer.started().size() == 1; }));
  ASSERT_TRUE(eventually([&] { return BufferQueueProbe::wantsFeed(queue); }));
  std::string bytes = support::pattern(0, 1000);
  torture::arm(Point::kAllocation, 1, 0);
  const int goOn = queue.streamIn(&bytes[0], 1000, BufferQueueProbe::version(queue));
  torture::disarm();
  EXPECT_EQ(goOn, 0);
  EXPECT_GT(torture::failures(), 0);
  EXPECT_FALSE(producer.stopWait) << "nobody would ever end its waiting";
  ASSERT_TRUE(reading.hasEnded());
  EXPECT_EQ(reading.result, FVFR_FAILED);
}

TEST(OutOfMemoryPool, FreesABlockThatItCannotRemember) {
  util::BufferBlockPool pool(100);
  util::BufferBlock* block = pool.pop();
  ASSERT_NE(block, nullptr);
  torture::arm(Point::kAllocation, 1, 0);
  pool.push(block);
  torture::disarm();
  EXPECT_GT(torture::failures(), 0);
  EXPECT_EQ(pool.getFreeBlockNumber(), 0);
  EXPECT_EQ(pool.getTotalBlockNumber(), 0);
}

// The engine of a process is started once. A test that needs an engine with few workers starts it
// if it does not run yet; otherwise the test runs again in a separate process.
class FewWorkers : public testing::Test {
 protected:
  // Starts the engine with that many workers. Returns false if it was already started: then the
  // test is over, and has passed or failed in another process.
  bool startWorkers(int count) {
    if (wasStarted || ThreadEngine::getInstance()->workerCount() != 0) {
      passElsewhere();
      return false;
    }
    wasStarted = true;
    torture::arm(Point::kThread, count + 1, 1);
    ThreadEngine::getInstance()->initialize();
    torture::disarm();
    EXPECT_EQ(ThreadEngine::getInstance()->workerCount(), count);
    return true;
  }

 private:
  static void passElsewhere() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string only =
        std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    const support::ChildResult child = support::inChild(
        [&only] {
          unsetenv("GTEST_OUTPUT");
          execl("/proc/self/exe", "out_of_memory_tests", only.c_str(), nullptr);
          _exit(91);
        },
        100);
    EXPECT_EQ(child.exitCode, 0) << child.error;
  }

  static inline bool wasStarted = false;  // also without any worker
};

class OutOfThreads : public FewWorkers {};
class OutOfMemoryRequests : public FewWorkers {};

constexpr long long kSize = 1000000;

TEST_F(OutOfThreads, WithoutAWorkerReadsAreServedInOrderAndElseFail) {
  if (!startWorkers(0)) return;
  const support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", kSize);
  int handle = 0;
  ASSERT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, 4 * kBlock), 0);
  std::vector<char> buffer(1000);
  unsigned int got = 0;
  EXPECT_EQ(x_fluvia_file_read(handle, buffer.data(), 1000, &got), 0);
  EXPECT_EQ(got, 1000u);
  int id = 0;
  Completions completions;
  EXPECT_EQ(x_fluvia_file_read_async(handle, buffer.data(), 1000, &Completions::completed,
                                     &completions, &id),
            FVFR_FAILED);
  long long now = 0;
  EXPECT_EQ(x_fluvia_file_seek(handle, 900000, &now), 0);
  EXPECT_EQ(x_fluvia_file_read(handle, buffer.data(), 1000, &got), FVFR_FAILED);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
  EXPECT_EQ(completions.count(), 0u);
}

#if defined(FLUVIA_PAUSE_POINTS)
TEST_F(OutOfThreads, TwoWorkersServeFiveReadsThatWaitForRestarts) {
  if (!startWorkers(2)) return;
  support::Pauses pauses;
  pauses.holdAt("DullFile::perform started");
  const support::TemporaryFolder folder;
  constexpr size_t kFiles = 5;
  Completions completions;
  std::vector<int> handles(kFiles);
  std::vector<std::vector<char>> buffers(kFiles, std::vector<char>(1000));
  for (size_t i = 0; i < kFiles; ++i) {
    const std::string path = folder.makePattern("f" + std::to_string(i), kSize);
    ASSERT_EQ(x_fluvia_file_open_x(path.c_str(), &handles[i], 4 * kBlock), 0);
    unsigned int got = 0;
    ASSERT_EQ(x_fluvia_file_read(handles[i], buffers[i].data(), 1000, &got), 0);
    long long now = 0;
    ASSERT_EQ(x_fluvia_file_seek(handles[i], 900000, &now), 0);
  }
  for (size_t i = 0; i < kFiles; ++i) {
    int id = 0;
    EXPECT_EQ(x_fluvia_file_read_async(handles[i], buffers[i].data(), 1000, &Completions::completed,
                                       &completions, &id),
              0);
  }
  // All were issued before the first one begins: a request with a place is ahead of its restart.
  ASSERT_TRUE(pauses.reached("DullFile::perform started"));
  pauses.release("DullFile::perform started");
  EXPECT_TRUE(completions.waitFor(kFiles, 60));
  for (const Completions::Call& call : completions.calls()) EXPECT_EQ(call.status, FVFR_ASYNC_DONE);
  for (const int handle : handles) EXPECT_EQ(x_fluvia_file_close(handle), 0);
}
#endif

// The stack addresses at which the callbacks of a test ran.
struct Places {
  std::atomic<int> failed{0};
  std::atomic<int> other{0};
  std::atomic<uintptr_t> highest{0};
  std::atomic<uintptr_t> lowest{UINTPTR_MAX};

  static void completed(int /*id*/, void* userData, int status, int /*bytes*/) {
    auto* self = static_cast<Places*>(userData);
    const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    self->highest = std::max(self->highest.load(), here);
    self->lowest = std::min(self->lowest.load(), here);
    ++(status == FVFR_ASYNC_FAILED ? self->failed : self->other);
  }
};

// From this callback on there is no memory.
void endMemory(int /*id*/, void* allAsked, int /*status*/, int /*bytes*/) {
  const torture::Spared spared;
  EXPECT_TRUE(eventually([&] { return static_cast<std::atomic<bool>*>(allAsked)->load(); }));
  torture::arm(Point::kAllocation, 1, 0);
}

// Otherwise each would be refused inside the call that refused the previous one: the worker's
// stack, or the runtime's reserve for exceptions, would run out and end the process.
TEST_F(OutOfMemoryRequests, ThatFindNoPlaceFailOneAfterTheOther) {
  constexpr int kRequests = 500;
  if (!startWorkers(2)) return;
  const support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", kSize);
  int handle = 0;
  ASSERT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, 4 * kBlock), 0);
  std::vector<char> buffer(1000);
  int id = 0;
  std::atomic<bool> allAsked{false};
  ASSERT_EQ(x_fluvia_file_read_async(handle, buffer.data(), 1000, &endMemory, &allAsked, &id), 0);
  Places places;
  for (int i = 0; i < kRequests; ++i) {
    ASSERT_EQ(
        x_fluvia_file_read_async(handle, buffer.data(), 1000, &Places::completed, &places, &id), 0);
  }
  allAsked = true;
  EXPECT_TRUE(eventually([&] { return places.failed + places.other == kRequests; }));
  torture::disarm();
  EXPECT_EQ(places.failed, kRequests);
  EXPECT_LT(places.highest - places.lowest, 20000u);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

}  // namespace

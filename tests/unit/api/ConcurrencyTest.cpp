// Many handles, many threads, closes in the middle of reads: nothing is lost, stuck or leaked.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/BlockedReads.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace {

using support::BackgroundRead;
using support::Completions;

class FileApiConcurrency : public testing::Test {
 protected:
  int open(const std::string& path, int bufferSize = 65536) {
    int handle = 0;
    EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, bufferSize), 0);
    return handle;
  }
  int openBlocked(const std::string& name) { return support::openBlocked(folder, name); }

  const support::CapturedStderr quiet{-100};
  support::TemporaryFolder folder;
  support::Watchdog watchdog{90, [] { return std::string(); }};
};

TEST_F(FileApiConcurrency, AbortEndsABlockedReadAndTheOffsetStays) {
  const int handle = openBlocked("a");
  const support::CapturedStderr steps(0);
  BackgroundRead read(handle);
  ASSERT_TRUE(support::isBlocked(steps));
  EXPECT_TRUE(support::eventually([&] {
    EXPECT_EQ(x_fluvia_file_read_abort(handle, 0), 0);
    return read.ended.load();
  }));
  EXPECT_EQ(read.result, -4);
  EXPECT_EQ(x_fluvia_file_offset(handle), support::kBlockedOffset);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

TEST_F(FileApiConcurrency, CloseEndsABlockedRead) {
  const int handle = openBlocked("a");
  const support::CapturedStderr steps(0);
  BackgroundRead read(handle);
  ASSERT_TRUE(support::isBlocked(steps));
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
  EXPECT_TRUE(read.hasEnded());
  EXPECT_EQ(read.result, -4);
}

TEST_F(FileApiConcurrency, CloseOfOneHandleLeavesTheBlockedReadOfAnother) {
  const int blocked = openBlocked("a");
  const int other = open(folder.file("a"));
  const support::CapturedStderr steps(0);
  BackgroundRead read(blocked);
  ASSERT_TRUE(support::isBlocked(steps));
  for (int i = 0; i < 50; ++i) {
    const int third = open(folder.file("a"));
    EXPECT_EQ(x_fluvia_file_close(third), 0);
  }
  EXPECT_EQ(x_fluvia_file_close(other), 0);
  EXPECT_FALSE(read.ended) << "only its own close or abort breaks it";
  EXPECT_EQ(x_fluvia_file_close(blocked), 0);
}

TEST_F(FileApiConcurrency, CloseAnswersARequestThatWaitsForTheReadOfAnotherHandle) {
  const int blocked = openBlocked("a");
  const int waiting = open(folder.file("a"));
  const support::CapturedStderr steps(0);
  BackgroundRead read(blocked);
  ASSERT_TRUE(support::isBlocked(steps));
  Completions done;
  char byte[1];
  int id = 0;
  EXPECT_EQ(x_fluvia_file_read_async(waiting, byte, 1, &Completions::completed, &done, &id), 0);
  EXPECT_EQ(x_fluvia_file_close(waiting), 0) << "must not wait for the other handle's read";
  ASSERT_EQ(done.count(), 1u);
  EXPECT_EQ(done.calls()[0].status, 3);
  EXPECT_EQ(x_fluvia_file_close(blocked), 0);
}

#if defined(FLUVIA_PAUSE_POINTS)
// The same if a worker has already taken the request.
TEST_F(FileApiConcurrency, CloseAnswersARequestThatAWorkerIsAboutToRead) {
  const int handle = open(folder.makePattern("a", 1000));
  support::Pauses pauses;
  pauses.holdAt("DullFile::perform started");
  Completions done;
  char byte[1];
  int id = 0;
  ASSERT_EQ(x_fluvia_file_read_async(handle, byte, 1, &Completions::completed, &done, &id), 0);
  ASSERT_TRUE(pauses.reached("DullFile::perform started"));
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
  ASSERT_EQ(done.count(), 1u);
  EXPECT_EQ(done.calls()[0].status, 3);
  pauses.release("DullFile::perform started");
}
#endif

TEST_F(FileApiConcurrency, AbortOfARunningRequestReportsItCancelledOnce) {
  const int handle = openBlocked("a");
  Completions done;
  char byte[1];
  int id = 0;
  ASSERT_EQ(x_fluvia_file_read_async(handle, byte, 1, &Completions::completed, &done, &id), 0);
  ASSERT_TRUE(support::eventually([&] {
    // Until a worker takes the request, abort itself calls back, twice.
    return x_fluvia_file_read_abort(handle, id) == 0 && done.count() > 0;
  }));
  for (const Completions::Call& call : done.calls()) EXPECT_EQ(call.status, 3);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

TEST_F(FileApiConcurrency, TwoThousandOpensLeaveNothingBehind) {
  const std::string path = folder.makePattern("a", 100000);
  const auto round = [&] {
    const int handle = open(path);
    char buffer[1000];
    unsigned int got = 0;
    EXPECT_EQ(x_fluvia_file_read(handle, buffer, 1000, &got), 0);
    EXPECT_EQ(x_fluvia_file_close(handle), 0);
  };
  round();
  ASSERT_TRUE(support::eventually([] { return support::threadCount() <= 2 + 6 + 1; }));
  const int descriptors = support::descriptorCount();
  const int threads = support::threadCount();
  for (int i = 0; i < support::scaled(2000); ++i) round();
  EXPECT_EQ(support::descriptorCount(), descriptors);
  EXPECT_TRUE(support::eventually([&] { return support::threadCount() <= threads; }));
}

TEST_F(FileApiConcurrency, SixtyFourThreadsOnEightFiles) {
  const unsigned int seed = support::seedOr(std::random_device()());
  printf("FLUVIA_SEED=%u\n", seed);
  std::vector<std::string> paths;
  for (unsigned int i = 0; i < 8; ++i) {
    paths.push_back(folder.makePattern(std::to_string(i), 400000, i * 1000000ULL));
  }
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (unsigned int t = 0; t < 64; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(seed + t);
      for (int i = 0; i < 10; ++i) {
        const unsigned int which = static_cast<unsigned int>(random() % 8);
        int handle = 0;
        if (x_fluvia_file_open_x(paths[which].c_str(), &handle, 98304) != 0) ++wrong;
        for (int j = 0; j < 10; ++j) {
          const long long offset = static_cast<long long>(random() % 400000);
          long long now = 0;
          char buffer[3000];
          unsigned int got = 0;
          if (x_fluvia_file_seek(handle, offset, &now) != 0) ++wrong;
          if (x_fluvia_file_read(handle, buffer, sizeof buffer, &got) != 0) ++wrong;
          if (support::firstDifference(which * 1000000ULL + static_cast<unsigned long long>(offset),
                                       buffer, got) >= 0) {
            ++wrong;
          }
        }
        if (x_fluvia_file_close(handle) != 0) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

#if defined(FLUVIA_PAUSE_POINTS)
// The call that a handle's close overtakes at that point gives that result.
struct Overtaken {
  const char* point;
  bool hasFile;
};
class FileApiOvertakenCall : public FileApiConcurrency,
                             public testing::WithParamInterface<Overtaken> {};

TEST_P(FileApiOvertakenCall, HasTheFileOrKnowsThatItIsClosed) {
  const int handle = open(folder.makePattern("a", 100));
  const int size = x_fluvia_file_bufferSize(handle);
  ASSERT_GT(size, 0);
  support::Pauses pauses;
  pauses.holdAt(GetParam().point);
  int result = 0;
  std::thread asking([&] { result = x_fluvia_file_bufferSize(handle); });
  EXPECT_TRUE(pauses.reached(GetParam().point));
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
  pauses.release(GetParam().point);
  asking.join();
  EXPECT_EQ(result, GetParam().hasFile ? size : FVFR_FAILED);
}

INSTANTIATE_TEST_SUITE_P(EveryPlace, FileApiOvertakenCall,
                         testing::Values(Overtaken{"FluviaFile::SharedUse counted", false},
                                         Overtaken{"FluviaFile::SharedUse taken", true}));
#endif

// The size probe reads a byte: it must not come between another thread's seek and read.
TEST_F(FileApiConcurrency, SizeAndOpenOfTheSameFileDoNotShiftTheFirstReads) {
  for (int round = 0; round < 100; ++round) {
    const std::string path = folder.makePattern("r" + std::to_string(round), 100000);
    const int handle = open(path);
    const int second = open(path);
    std::atomic<bool> ended{false};
    std::thread asking([&] {
      while (!ended) {
        if (x_fluvia_file_size(second) != 100000) ADD_FAILURE() << "size";
        int third = 0;
        if (x_fluvia_file_open(path.c_str(), &third) != 0) ADD_FAILURE() << "open";
        x_fluvia_file_close(third);
      }
    });
    std::string all;
    char buffer[700];
    for (unsigned int got = 1; x_fluvia_file_read(handle, buffer, sizeof buffer, &got) == 0;) {
      all.append(buffer, got);
    }
    ended = true;
    asking.join();
    EXPECT_EQ(all.size(), 100000u);
    EXPECT_EQ(support::firstDifference(0, all.data(), all.size()), -1);
    x_fluvia_file_close(handle);
    x_fluvia_file_close(second);
  }
}

}  // namespace

// The life of a process: its end, unloading the library, and the limits of the handle table. Each
// test runs in a separate child.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/PrivateData.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace {

using Lines = std::vector<std::string>;
using support::CapturedStderr;

class Process : public testing::Test {
 protected:
  support::TemporaryFolder folder;
};

// Leaves a handle whose read waits for ever: the file was removed, so that the stream cannot
// restart at the far position of the read.
int openBlocked(const std::string& path, long long size) {
  int handle = 0;
  char byte[1];
  unsigned int got = 0;
  long long now = 0;
  if (x_fluvia_file_open_x(path.c_str(), &handle, 65536) != 0) _exit(11);
  if (x_fluvia_file_read(handle, byte, 1, &got) != 0) _exit(12);
  unlink(path.c_str());
  if (x_fluvia_file_seek(handle, size - 10, &now) != 0) _exit(13);
  return handle;
}

TEST_F(Process, ExitReturnsWithIdleWorkersAndOpenHandles) {
  const std::string path = folder.makePattern("a", 300000);
  const support::ChildResult child = support::inChild(
      [&] {
        int handle = 0;
        char buffer[1000];
        unsigned int got = 0;
        if (x_fluvia_file_open(path.c_str(), &handle) != 0) _exit(1);
        if (x_fluvia_file_read(handle, buffer, sizeof buffer, &got) != 0) _exit(2);
        exit(7);
      },
      20);
  EXPECT_EQ(child.exitCode, 7) << child.error;
}

TEST_F(Process, ExitReturnsWithABlockedRead) {
  const long long size = 3000000;
  const std::string path = folder.makePattern("a", size);
  const support::ChildResult child = support::inChild(
      [&] {
        const int handle = openBlocked(path, size);
        char byte[1];
        int id = 0;
        if (x_fluvia_file_read_async(
                handle, byte, 1, [](int, void*, int, int) {}, nullptr, &id)) {
          _exit(1);
        }
        std::thread([handle] {
          char other[1];
          unsigned int got = 0;
          x_fluvia_file_read(handle, other, 1, &got);
        }).detach();
        exit(7);
      },
      20);
  EXPECT_EQ(child.exitCode, 7) << child.error;
}

// The functions of a library loaded at run time.
struct Loaded {
  void* image = dlopen(FLUVIA_LIBRARY, RTLD_NOW);
  decltype(&x_fluvia_file_open) open = nullptr;
  decltype(&x_fluvia_file_read) read = nullptr;
  decltype(&x_fluvia_file_close) close = nullptr;

  Loaded() {
    if (image == nullptr) _exit(21);
    open = reinterpret_cast<decltype(open)>(dlsym(image, "x_fluvia_file_open"));
    read = reinterpret_cast<decltype(read)>(dlsym(image, "x_fluvia_file_read"));
    close = reinterpret_cast<decltype(close)>(dlsym(image, "x_fluvia_file_close"));
    if (open == nullptr || read == nullptr || close == nullptr) _exit(22);
  }
};

TEST_F(Process, UnloadingWithIdleWorkersAndOpenHandlesIsHarmless) {
  const std::string path = folder.makePattern("a", 300000);
  const support::ChildResult child = support::inChild(
      [&] {
        for (int round = 0; round < 3; ++round) {
          Loaded loaded;
          int handle = 0;
          char buffer[1000];
          unsigned int got = 0;
          if (loaded.open(path.c_str(), &handle) != 0) _exit(1);
          if (loaded.read(handle, buffer, sizeof buffer, &got) != 0 || got != 1000) _exit(2);
          if (round == 1 && loaded.close(handle) != 0) _exit(3);
          if (dlclose(loaded.image) != 0) _exit(4);
        }
        exit(7);
      },
      20);
  EXPECT_EQ(child.exitCode, 7) << child.error;
}

TEST_F(Process, ThreadsAreSixForTheEngineOneForAQueueAndOneForALocalFile) {
  const std::string path = folder.makePattern("a", 300000);
  const std::string other = folder.makePattern("b", 300000);
  const support::ChildResult child = support::inChild([&] {
    x_fluvia_file_set_log_level(-100);
    support::makeFirstThread();
    const int before = support::threadCount();
    int first = 0;
    int second = 0;
    char byte[1];
    unsigned int got = 0;
    const auto grownBy = [before](int threads) {
      return support::eventually([&] { return support::threadCount() == before + threads; });
    };
    if (x_fluvia_file_open(path.c_str(), &first) != 0 || !grownBy(6)) _exit(1);
    if (x_fluvia_file_open(other.c_str(), &second) != 0 || !grownBy(6)) _exit(2);
    if (x_fluvia_file_read(first, byte, 1, &got) != 0 || !grownBy(8)) _exit(3);
    if (x_fluvia_file_read(second, byte, 1, &got) != 0 || !grownBy(10)) _exit(4);
    if (x_fluvia_file_close(first) != 0 || !grownBy(8)) _exit(5);
    if (x_fluvia_file_close(second) != 0 || !grownBy(6)) _exit(6);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
}

// The file object that found no handle keeps its reference; this is intentional.
TEST_F(Process, TwoHundredFiftySixthOpenFails) {
  const std::string path = folder.makePattern("a", 10);
  const support::ChildResult child = support::inChild([&] {
    x_fluvia_file_set_log_level(-100);
    int handle = 0;
    for (int i = 1; i <= 255; ++i) {
      if (x_fluvia_file_open_x(path.c_str(), &handle, 65536) != 0 || handle != i) _exit(1);
    }
    Lines lines;
    {
      const CapturedStderr captured(0);
      if (x_fluvia_file_open(path.c_str(), &handle) != -4 || handle != -1) _exit(2);
      for (const std::string& line : captured.messages()) {  // of this call, not of other threads
        if (line.find("_fluvia_file_") != std::string::npos) lines.push_back(line);
      }
    }
    if (lines.size() < 3 ||
        Lines(lines.end() - 3, lines.end()) !=
            Lines({"_fluvia_file_get_index: open too many file, exceed the limitation 255",
                   "x_fluvia_file_open: alloc file handle fail",
                   "x_fluvia_file_open: End x_fluvia_file_open(handle: -1)"})) {
      for (const std::string& line : lines) fprintf(stderr, "%s\n", line.c_str());
      _exit(3);
    }
    if (x_fluvia_file_close(100) != 0) _exit(4);
    if (x_fluvia_file_open(path.c_str(), &handle) != 0 || handle != 100) _exit(5);
    for (int i = 1; i <= 255; ++i) {
      if (x_fluvia_file_close(i) != 0) _exit(6);
    }
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
}

// Sanitizers reserve the address space themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Process, BufferThatDoesNotFitIntoMemoryLeavesAHandleWithoutFile) {
  const std::string path = folder.makePattern("a", 100);
  const support::ChildResult child = support::inChild([&] {
    struct rlimit limit;
    limit.rlim_cur = limit.rlim_max = 512u << 20;
    if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(1);
    int handle = 0;
    if (x_fluvia_file_open_x(path.c_str(), &handle, INT_MAX) != 0) _exit(2);
    if (x_fluvia_file_size(handle) != -4) _exit(3);
    if (x_fluvia_file_close(handle) != 0) _exit(4);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
}
#endif

}  // namespace

// Asynchronous reads: completion, cancelling, closing, and what callbacks may do.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace {

using support::Completions;

class FileApiAsyncRead : public testing::Test {
 protected:
  int open(const std::string& path, int bufferSize = 0x200000) {
    int handle = 0;
    EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, bufferSize), 0);
    return handle;
  }
  int start(int handle, char* buffer, unsigned int size, Completions* done) {
    int id = 0;
    EXPECT_EQ(x_fluvia_file_read_async(handle, buffer, size, &Completions::completed, done, &id),
              0);
    return id;
  }

  const support::CapturedStderr quiet{-100};
  support::TemporaryFolder folder;
  support::Watchdog watchdog{60, [] { return std::string(); }};
};

// Keeps the engine's worker that took a request of a handle busy until it is released.
class Holdup {
 public:
  static void held(int /*id*/, void* self, int /*status*/, int /*bytes*/) {
    static_cast<Holdup*>(self)->hold();
  }
  bool entered() {
    return support::eventually([this] { return isEntered.load(); });
  }
  void letGo() {
    std::lock_guard<std::mutex> guard(lock);
    mayGo = true;
    changed.notify_all();
  }

 private:
  void hold() {
    isEntered = true;
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, support::patienceOf(30), [this] { return mayGo; });
  }

  std::mutex lock;
  std::condition_variable changed;
  bool mayGo = false;
  std::atomic<bool> isEntered{false};
};

// Takes all places of asynchronous reads on the engine with callbacks that do not return: later
// requests stay in the queue until the callbacks are released.
class FullEngine {
 public:
  explicit FullEngine(const support::TemporaryFolder& folder) {
    for (size_t i = 0; i < kPlaces; ++i) {
      const std::string path = folder.makePattern("holdup" + std::to_string(i), 100);
      int id = 0;
      EXPECT_EQ(x_fluvia_file_open(path.c_str(), &handles[i]), 0);
      EXPECT_EQ(x_fluvia_file_read_async(handles[i], &bytes[i], 1, &Holdup::held, &holdups[i], &id),
                0);
      EXPECT_TRUE(holdups[i].entered());
    }
  }
  ~FullEngine() {
    letGo();
    for (const int handle : handles) x_fluvia_file_close(handle);
  }
  FullEngine(const FullEngine&) = delete;
  FullEngine& operator=(const FullEngine&) = delete;

  void letGo() {
    for (Holdup& holdup : holdups) holdup.letGo();
  }
  // An open handle whose request is in its callback.
  int handle() const { return handles[0]; }

 private:
  static constexpr size_t kPlaces = 5;
  Holdup holdups[kPlaces];
  int handles[kPlaces] = {};
  char bytes[kPlaces] = {};
};

TEST_F(FileApiAsyncRead, DeliversAndMovesTheOffset) {
  const int handle = open(folder.makePattern("a", 100));
  char buffer[60];
  Completions done;
  for (int i = 0; i < 3; ++i) {
    start(handle, buffer, 60, &done);
    ASSERT_TRUE(done.waitFor(static_cast<size_t>(i) + 1));
  }
  const std::vector<Completions::Call> calls = done.calls();
  EXPECT_EQ(calls[0].status, 1);
  EXPECT_EQ(calls[0].bytes, 60);
  EXPECT_EQ(calls[1].status, 1) << "a short read is done";
  EXPECT_EQ(calls[1].bytes, 40);
  EXPECT_EQ(calls[2].status, 4);
  EXPECT_EQ(calls[2].bytes, 0);
  EXPECT_EQ(x_fluvia_file_offset(handle), 100);
  x_fluvia_file_close(handle);
}

// An id is free once its callback has returned. Up to five workers may not have reached that point
// when the next request is made.
TEST_F(FileApiAsyncRead, IdsAreUsedAgain) {
  const int handle = open(folder.makePattern("a", 100));
  char byte = 0;
  Completions done;
  for (size_t i = 0; i < 100; ++i) {
    EXPECT_LE(start(handle, &byte, 1, &done), 6);
    ASSERT_TRUE(done.waitFor(i + 1));
  }
  x_fluvia_file_close(handle);
}

TEST_F(FileApiAsyncRead, TwoRequestsOfOneHandleStartAtTheSameOffset) {
  const int handle = open(folder.makePattern("a", 100000));
  char first[1000];
  char second[1000];
  Completions done;
  start(handle, first, 1000, &done);
  start(handle, second, 1000, &done);
  ASSERT_TRUE(done.waitFor(2));
  EXPECT_EQ(support::firstDifference(0, first, 1000), -1);
  const long long at = support::firstDifference(0, second, 1000) == -1 ? 0 : 1000;
  EXPECT_EQ(support::firstDifference(static_cast<unsigned long long>(at), second, 1000), -1);
  EXPECT_EQ(x_fluvia_file_offset(handle), at + 1000);
  x_fluvia_file_close(handle);
}

TEST_F(FileApiAsyncRead, FiveHundredTwelfthRequestIsRefused) {
  char buffer[512];  // a byte for each request
  Completions done;
  FullEngine engine(folder);
  for (int i = 6; i <= 511; ++i) ASSERT_EQ(start(engine.handle(), buffer + i, 1, &done), i);
  {
    const support::CapturedStderr captured(1);
    int id = 77;
    EXPECT_EQ(
        x_fluvia_file_read_async(engine.handle(), buffer, 1, &Completions::completed, &done, &id),
        -4);
    EXPECT_EQ(id, 77);
    const std::vector<std::string> wanted = {
        "x_fluvia_file_read_async: before x_fluvia_file_read_async(handle: 1, size: 1)",
        "readAsync: send too many read request, exceed the limitation 511",
        "readAsync: alloc request id fail",
        "x_fluvia_file_read_async: end x_fluvia_file_read_async(reqID: 77)"};
    EXPECT_EQ(captured.ownMessages(), wanted);
  }
  engine.letGo();
  EXPECT_TRUE(done.waitFor(506));
}

TEST_F(FileApiAsyncRead, AbortOfAQueuedRequestCallsBackTwice) {
  char byte[1];
  Completions done;
  FullEngine engine(folder);
  const int id = start(engine.handle(), byte, 1, &done);
  EXPECT_EQ(x_fluvia_file_read_abort(engine.handle(), id), 0);
  ASSERT_EQ(done.count(), 2u) << "both calls are made before abort returns";
  for (const Completions::Call& call : done.calls()) {
    EXPECT_EQ(call.id, id);
    EXPECT_EQ(call.status, 3);
    EXPECT_EQ(call.bytes, 0);
  }
  EXPECT_EQ(x_fluvia_file_read_abort(engine.handle(), id), 0) << "a finished id is no error";
  EXPECT_EQ(done.count(), 2u);
}

TEST_F(FileApiAsyncRead, AbortOfAnIdThatCannotBeOneFails) {
  const int handle = open(folder.makePattern("a", 100));
  const support::CapturedStderr captured(-1);
  EXPECT_EQ(x_fluvia_file_read_abort(handle, -1), -1);
  EXPECT_EQ(x_fluvia_file_read_abort(handle, 512), -1);
  EXPECT_EQ(x_fluvia_file_read_abort(handle, 511), 0);
  EXPECT_EQ(x_fluvia_file_read_abort(handle, 0), 0);
  const std::vector<std::string> wanted = {
      "cancelRead: cancelRead, reqID:-1",  "cancelRead: reqID(-1) is invalid",
      "cancelRead: cancelRead, reqID:512", "cancelRead: reqID(512) is invalid",
      "cancelRead: cancelRead, reqID:511", "cancelRead: cancelRead, reqID:0"};
  EXPECT_EQ(captured.messages(), wanted);
  x_fluvia_file_close(handle);
}

TEST_F(FileApiAsyncRead, CloseAnswersEveryQueuedRequestOnce) {
  const int handle = open(folder.makePattern("a", 100000));
  std::vector<int> ids;
  Completions done;
  {
    const FullEngine engine(folder);
    {
      std::vector<char> buffer(20000);
      for (int i = 0; i < 20; ++i) {
        ids.push_back(start(handle, buffer.data() + i * 1000, 1000, &done));
      }
      EXPECT_EQ(x_fluvia_file_close(handle), 0);
    }
    std::vector<int> called;
    for (const Completions::Call& call : done.calls()) {
      EXPECT_EQ(call.status, 3);
      called.push_back(call.id);
    }
    std::sort(called.begin(), called.end());
    EXPECT_EQ(called, ids);
  }
  EXPECT_EQ(done.count(), 20u) << "none after close";
}

TEST_F(FileApiAsyncRead, EightFarReadsOfOneFileComplete) {
  const long long size = 40 << 20;
  const std::string path = folder.makePattern("a", size);
  std::vector<int> handles;
  std::vector<std::vector<char>> buffers(8, std::vector<char>(3 << 20));
  Completions done;
  for (int i = 0; i < 8; ++i) {
    handles.push_back(open(path));
    long long now = 0;
    ASSERT_EQ(x_fluvia_file_seek(handles.back(), (7 - i) * (5LL << 20), &now), 0);
  }
  for (size_t i = 0; i < 8; ++i) {
    start(handles[i], buffers[i].data(), static_cast<unsigned int>(buffers[i].size()), &done);
  }
  ASSERT_TRUE(done.waitFor(8, 40));
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(
        support::firstDifference((7 - i) * (5ULL << 20), buffers[i].data(), buffers[i].size()), -1);
  }
  for (const int handle : handles) x_fluvia_file_close(handle);
}

// A reader that continues in its own callbacks to the end of its file, then closes itself.
struct Chain {
  int handle = 0;
  char buffer[5000];
  std::atomic<long long> total{0};
  std::atomic<bool> wrong{false};
  std::atomic<bool> closed{false};

  static void next(int /*id*/, void* self, int status, int bytes) {
    Chain* chain = static_cast<Chain*>(self);
    if (status == 1) {
      if (support::firstDifference(static_cast<unsigned long long>(chain->total), chain->buffer,
                                   static_cast<size_t>(bytes)) >= 0) {
        chain->wrong = true;
      }
      chain->total += bytes;
      chain->go();
      return;
    }
    if (status != 4) chain->wrong = true;
    if (x_fluvia_file_close(chain->handle) != 0) chain->wrong = true;
    chain->closed = true;
  }
  void go() {
    int id = 0;
    if (x_fluvia_file_read_async(handle, buffer, sizeof buffer, &Chain::next, this, &id) != 0) {
      wrong = true;
    }
  }
};

TEST_F(FileApiAsyncRead, CallbacksChainReadsAndCloseTheirHandle) {
  const std::string path = folder.makePattern("a", 300000);
  Chain chains[8];
  for (Chain& chain : chains) {
    chain.handle = open(path);
    chain.go();
  }
  for (Chain& chain : chains) {
    EXPECT_TRUE(support::eventually([&] { return chain.closed.load(); }, 40));
    EXPECT_FALSE(chain.wrong);
    EXPECT_EQ(chain.total, 300000);
  }
}

// A callback that reads, seeks and closes another handle.
struct Meddler {
  int other = 0;
  std::atomic<bool> done{false};
  std::atomic<bool> wrong{false};

  static void meddle(int /*id*/, void* self, int /*status*/, int /*bytes*/) {
    Meddler* meddler = static_cast<Meddler*>(self);
    char buffer[100];
    unsigned int got = 0;
    long long now = 0;
    const bool ok = x_fluvia_file_seek(meddler->other, 50, &now) == 0 &&
                    x_fluvia_file_read(meddler->other, buffer, 100, &got) == 0 && got == 50 &&
                    x_fluvia_file_close(meddler->other) == 0;
    if (!ok) meddler->wrong = true;
    meddler->done = true;
  }
};

TEST_F(FileApiAsyncRead, CallbackMayUseAndCloseAnotherHandle) {
  const std::string path = folder.makePattern("a", 100);
  const int handle = open(path);
  for (int i = 0; i < 20; ++i) {
    Meddler meddler;
    meddler.other = open(path);
    char byte[1];
    int id = 0;
    ASSERT_EQ(x_fluvia_file_read_async(handle, byte, 1, &Meddler::meddle, &meddler, &id), 0);
    ASSERT_TRUE(support::eventually([&] { return meddler.done.load(); }));
    EXPECT_FALSE(meddler.wrong);
  }
  x_fluvia_file_close(handle);
}

// Both calls of an abort start a new read; none of the ids is lost.
struct Restarter {
  int handle = 0;
  char buffer[10];
  Completions done;
  std::atomic<int> started{0};

  static void again(int /*id*/, void* self, int status, int /*bytes*/) {
    Restarter* restarter = static_cast<Restarter*>(self);
    if (status != 3) return;
    int id = 0;
    if (x_fluvia_file_read_async(restarter->handle, restarter->buffer, 10, &Completions::completed,
                                 &restarter->done, &id) == 0 &&
        id > 0) {
      ++restarter->started;
    }
  }
};

TEST_F(FileApiAsyncRead, ReadStartedInBothCallsOfAnAbortCompletes) {
  FullEngine engine(folder);
  Restarter restarter;
  restarter.handle = open(folder.makePattern("a", 100));
  int id = 0;
  ASSERT_EQ(x_fluvia_file_read_async(restarter.handle, restarter.buffer, 10, &Restarter::again,
                                     &restarter, &id),
            0);
  EXPECT_EQ(x_fluvia_file_read_abort(restarter.handle, id), 0);
  EXPECT_EQ(restarter.started, 2);
  engine.letGo();
  EXPECT_TRUE(restarter.done.waitFor(2));
  x_fluvia_file_close(restarter.handle);
}

TEST_F(FileApiAsyncRead, CallbackRunsOnAWorker) {
  const int handle = open(folder.makePattern("a", 100));
  struct Where {
    pthread_t thread;
    std::atomic<bool> done{false};
  } where;
  char byte[1];
  int id = 0;
  const auto note = [](int, void* self, int, int) {
    static_cast<Where*>(self)->thread = pthread_self();
    static_cast<Where*>(self)->done = true;
  };
  ASSERT_EQ(x_fluvia_file_read_async(handle, byte, 1, note, &where, &id), 0);
  ASSERT_TRUE(support::eventually([&] { return where.done.load(); }));
  EXPECT_EQ(pthread_equal(where.thread, pthread_self()), 0);
  x_fluvia_file_close(handle);
}

TEST_F(FileApiAsyncRead, LogsItsSteps) {
  const int handle = open(folder.makePattern("a", 100));
  const support::CapturedStderr captured(1);
  char byte[1];
  Completions done;
  start(handle, byte, 1, &done);
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_TRUE(captured.has(
      "x_fluvia_file_read_async: before x_fluvia_file_read_async(handle: 1, size: 1)"));
  EXPECT_TRUE(captured.has("readAsync: request thread engine to run read request"));
  EXPECT_TRUE(captured.has("x_fluvia_file_read_async: end x_fluvia_file_read_async(reqID: 1)"));
  EXPECT_TRUE(captured.has("perform: async read 1 ok in perform ((((((()))))))"));
  x_fluvia_file_close(handle);
}

}  // namespace

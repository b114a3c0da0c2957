// Aborts and closes between two steps of a read, forced by pause points.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"
#include "tests/support/BlockedReads.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "webs/FluviaFile.h"

namespace {

using support::BackgroundRead;
using support::Completions;
using support::eventually;

constexpr long long kFar = support::kBlockedOffset;
const char kBreak[] = "breakRead: Going to break read";

class DullFileRace : public testing::Test {
 protected:
  int open(const std::string& path) {
    int handle = 0;
    EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, 65536), 0);
    return handle;
  }
  int openBlocked(const std::string& name) { return support::openBlocked(folder, name); }
  // Reads one byte, into to or, if it is null, into a place of its own.
  int start(int handle, Completions* done, char* to = nullptr) {
    if (to == nullptr) to = &places[started++ % places.size()];
    return startFor(handle, &Completions::completed, done, to);
  }
  // The same with a callback of the test.
  int startFor(int handle, fluvia_file_read_callback callback, void* data, char* to) {
    int id = 0;
    EXPECT_EQ(x_fluvia_file_read_async(handle, to, 1, callback, data, &id), 0);
    return id;
  }
  bool waitForLine(const std::string& line, int times = 1) {
    return eventually([&] { return log.count(line) >= times; });
  }

  const support::CapturedStderr log{0};
  support::TemporaryFolder folder;
  support::Watchdog watchdog{80, [this] { return log.text(); }};
  char byte[1];
  std::vector<char> places = std::vector<char>(512);
  size_t started = 0;
};

// --- places on the engine ------------------------------------------------------------------------

TEST_F(DullFileRace, RequestsThatWaitOnManyFilesLeaveAWorkerForRestarts) {
  std::vector<int> handles;
  Completions done;
  for (int i = 0; i < 6; ++i) {
    handles.push_back(openBlocked(std::to_string(i)));
    start(handles.back(), &done);
  }
  // For a far read of another file a worker must restart its stream.
  const int other = open(folder.makePattern("other", 3000000));
  long long now = 0;
  unsigned int got = 0;
  EXPECT_EQ(x_fluvia_file_read(other, byte, 1, &got), 0);
  EXPECT_EQ(x_fluvia_file_seek(other, kFar, &now), 0);
  EXPECT_EQ(x_fluvia_file_read(other, byte, 1, &got), 0);
  EXPECT_EQ(support::firstDifference(kFar, byte, 1), -1);
  EXPECT_EQ(done.count(), 0u);
  for (const int handle : handles) EXPECT_EQ(x_fluvia_file_close(handle), 0);
  EXPECT_EQ(done.count(), 6u);
  EXPECT_EQ(x_fluvia_file_close(other), 0);
}

TEST_F(DullFileRace, RequestsOfOneFileTakeOnePlace) {
  const int blocked = openBlocked("a");
  Completions done;
  for (int i = 0; i < 8; ++i) start(blocked, &done);
  const int other = open(folder.makePattern("other", 100));
  Completions others;
  start(other, &others);
  EXPECT_TRUE(others.waitFor(1)) << "the blocked file's requests hold one worker, not all";
  EXPECT_EQ(done.count(), 0u);
  EXPECT_EQ(x_fluvia_file_close(blocked), 0);
  EXPECT_EQ(done.count(), 8u);
  EXPECT_EQ(x_fluvia_file_close(other), 0);
}

// --- aborts --------------------------------------------------------------------------------------

TEST_F(DullFileRace, CloseOfAnotherHandleDoesNotDisarmAnAbort) {
  const int blocked = openBlocked("a");
  const int other = open(folder.file("a"));
  Completions done;
  const int id = start(blocked, &done);
  ASSERT_TRUE(support::isBlocked(log));
  EXPECT_EQ(x_fluvia_file_close(other), 0);
  EXPECT_EQ(x_fluvia_file_read_abort(blocked, id), 0);
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_EQ(done.calls()[0].status, 3);
  EXPECT_EQ(x_fluvia_file_close(blocked), 0);
}

TEST_F(DullFileRace, AbortOfARequestThatWaitsLeavesTheOneThatReads) {
  const int blocked = openBlocked("a");
  Completions reading;
  Completions waiting;
  start(blocked, &reading);
  ASSERT_TRUE(support::isBlocked(log));
  const int id = start(blocked, &waiting);
  EXPECT_EQ(x_fluvia_file_read_abort(blocked, id), 0);
  EXPECT_EQ(waiting.count(), 2u) << "both calls of a request that was queued";
  EXPECT_EQ(reading.count(), 0u);
  EXPECT_EQ(x_fluvia_file_close(blocked), 0);
  EXPECT_EQ(reading.calls()[0].status, -1) << "broken by the close, not aborted";
}

// Its second call issues another read, which gets the aborted one's id: the end of the abort must
// not remove that.
struct AskAgain {
  int handle = 0;
  char byte[1];
  int calls = 0;
  int id = 0;
  Completions done;

  static void called(int /*id*/, void* data, int /*status*/, int /*bytes*/) {
    AskAgain* self = static_cast<AskAgain*>(data);
    if (++self->calls != 2) return;
    x_fluvia_file_read_async(self->handle, self->byte, 1, &Completions::completed, &self->done,
                             &self->id);
  }
};

TEST_F(DullFileRace, IdOfARequestMadeInTheSecondCallStaysItsOwn) {
  AskAgain asking;
  asking.handle = openBlocked("a");
  Completions first;
  start(asking.handle, &first);
  const int id = startFor(asking.handle, &AskAgain::called, &asking, byte);
  EXPECT_EQ(x_fluvia_file_read_abort(asking.handle, id), 0);
  ASSERT_EQ(asking.calls, 2);
  ASSERT_EQ(asking.id, id) << "the lowest free one";
  EXPECT_EQ(x_fluvia_file_read_abort(asking.handle, asking.id), 0);
  EXPECT_EQ(asking.done.count(), 2u) << "it is known by its id";
  EXPECT_EQ(x_fluvia_file_close(asking.handle), 0);
}

// --- closing in callbacks ------------------------------------------------------------------------

struct CloseOnce {
  int handle = 0;
  std::atomic<int> calls{0};
  std::atomic<int> result{-1};

  static void called(int /*id*/, void* data, int /*status*/, int /*bytes*/) {
    CloseOnce* self = static_cast<CloseOnce*>(data);
    if (++self->calls == 1) self->result = x_fluvia_file_close(self->handle);
  }
};

TEST_F(DullFileRace, CloseInTheFirstCallOfAnAbortLeavesOutTheSecond) {
  CloseOnce closing;
  closing.handle = openBlocked("a");
  Completions first;
  start(closing.handle, &first);
  const int id = startFor(closing.handle, &CloseOnce::called, &closing, byte);
  EXPECT_EQ(x_fluvia_file_read_abort(closing.handle, id), 0);
  EXPECT_EQ(closing.result, 0);
  EXPECT_EQ(closing.calls, 1) << "no callback comes after the close";
  EXPECT_TRUE(first.waitFor(1));
  EXPECT_EQ(x_fluvia_file_close(closing.handle), -4);
}

// Records whether the close of its handle returned while it was still running.
struct SlowCallback {
  std::mutex lock;
  std::condition_variable changed;
  bool entered = false;
  bool closing = false;
  bool closed = false;
  bool overtaken = false;

  static void called(int /*id*/, void* data, int /*status*/, int /*bytes*/) {
    SlowCallback* self = static_cast<SlowCallback*>(data);
    std::unique_lock<std::mutex> guard(self->lock);
    self->entered = true;
    self->changed.notify_all();
    self->changed.wait_for(guard, support::patienceOf(20), [self] { return self->closing; });
    self->overtaken = self->changed.wait_for(guard, std::chrono::milliseconds(300),
                                             [self] { return self->closed; });
  }
  void set(bool* flag) {
    std::lock_guard<std::mutex> guard(lock);
    *flag = true;
    changed.notify_all();
  }
};

TEST_F(DullFileRace, CloseWaitsForItsCallbackOnAnotherThread) {
  const int handle = open(folder.makePattern("a", 100));
  SlowCallback slow;
  startFor(handle, &SlowCallback::called, &slow, byte);
  ASSERT_TRUE(eventually([&] {
    std::lock_guard<std::mutex> guard(slow.lock);
    return slow.entered;
  }));
  std::thread closing([&] {
    EXPECT_EQ(x_fluvia_file_close(handle), 0);
    slow.set(&slow.closed);
  });
  EXPECT_TRUE(waitForLine("cancelRead: cancelRead, reqID:0"));
  slow.set(&slow.closing);
  closing.join();
  EXPECT_FALSE(slow.overtaken) << "close returned while a callback was running";
}

// --- blocking reads ------------------------------------------------------------------------------

TEST_F(DullFileRace, ReadThatWaitsForItsTurnIsRefusedAfterItsClose) {
  const int blocked = openBlocked("a");
  const int waiting = open(folder.file("a"));
  BackgroundRead first(blocked);
  ASSERT_TRUE(support::isBlocked(log));
  {
    const support::CapturedStderr steps(1);
    BackgroundRead second(waiting);
    EXPECT_TRUE(support::hasBegun(steps, waiting));
    EXPECT_EQ(x_fluvia_file_close(waiting), 0) << "it does not wait for the other's read";
    EXPECT_FALSE(first.ended);
    EXPECT_EQ(x_fluvia_file_close(blocked), 0);
    EXPECT_TRUE(second.hasEnded());
    EXPECT_EQ(second.result, -4);
  }
  EXPECT_TRUE(first.hasEnded());
  EXPECT_EQ(first.result, -4);
}

#if defined(FLUVIA_PAUSE_POINTS)

TEST_F(DullFileRace, RequestAbortedBeforeItReadsDoesNotRead) {
  support::Pauses pauses;
  const int handle = open(folder.makePattern("a", 100));
  Completions done;
  pauses.holdAt("DullFile::perform started");
  byte[0] = 'x';
  const int id = start(handle, &done, byte);
  ASSERT_TRUE(pauses.reached("DullFile::perform started"));
  EXPECT_EQ(x_fluvia_file_read_abort(handle, id), 0);
  EXPECT_EQ(done.count(), 0u) << "its worker calls back";
  pauses.release("DullFile::perform started");
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_EQ(done.calls()[0].status, 3);
  EXPECT_EQ(done.calls()[0].bytes, 0);
  EXPECT_EQ(byte[0], 'x');
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

TEST_F(DullFileRace, CloseAnswersARequestThatAWorkerHasJustTaken) {
  support::Pauses pauses;
  const int handle = open(folder.makePattern("a", 100));
  Completions done;
  pauses.holdAt("DullFile::perform started");
  start(handle, &done);
  ASSERT_TRUE(pauses.reached("DullFile::perform started"));
  std::thread closing([&] { EXPECT_EQ(x_fluvia_file_close(handle), 0); });
  EXPECT_TRUE(done.waitFor(1)) << "the close does not wait for the worker";
  pauses.release("DullFile::perform started");
  closing.join();
  ASSERT_EQ(done.count(), 1u);
  EXPECT_EQ(done.calls()[0].status, 3);
}

TEST_F(DullFileRace, AbortedReadThatMeetsTheEndKeepsItsStatus) {
  support::Pauses pauses;
  const int handle = open(folder.makePattern("a", 100));
  long long now = 0;
  EXPECT_EQ(x_fluvia_file_seek(handle, 100, &now), 0);
  Completions done;
  pauses.holdAt("DullFile::read moved");
  const int id = start(handle, &done);
  ASSERT_TRUE(pauses.reached("DullFile::read moved"));
  std::thread aborting([&] { EXPECT_EQ(x_fluvia_file_read_abort(handle, id), 0); });
  EXPECT_TRUE(waitForLine(kBreak));
  pauses.release("DullFile::read moved");
  aborting.join();
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_EQ(done.calls()[0].status, 4) << "its read met the end, not the break";
  EXPECT_EQ(done.calls()[0].bytes, 0);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

// It no longer waits for its turn, and has not reached the buffer yet.
TEST_F(DullFileRace, ReadAbortedBetweenItsTurnAndTheBufferDoesNotRead) {
  support::Pauses pauses;
  const int handle = open(folder.makePattern("a", 100));
  const int other = open(folder.file("a"));
  pauses.holdAt("ReadTurns::Turn over");
  {
    BackgroundRead reading(handle);
    ASSERT_TRUE(pauses.reached("ReadTurns::Turn over"));
    EXPECT_EQ(x_fluvia_file_read_abort(handle, 0), 0);
    pauses.release("ReadTurns::Turn over");
    EXPECT_TRUE(reading.hasEnded());
    EXPECT_EQ(reading.result, -4);
  }
  EXPECT_EQ(x_fluvia_file_offset(handle), 0);
  unsigned int got = 0;
  EXPECT_EQ(x_fluvia_file_read(handle, byte, 1, &got), 0) << "one that comes later is not met";
  EXPECT_EQ(got, 1u);
  EXPECT_EQ(x_fluvia_file_close(other), 0);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

TEST_F(DullFileRace, AbortsOfOthersLeaveAReadBetweenItsTurnAndTheBuffer) {
  support::Pauses pauses;
  const int handle = open(folder.makePattern("a", 100));
  const int other = open(folder.file("a"));
  EXPECT_EQ(x_fluvia_file_read_abort(handle, 0), 0);
  pauses.holdAt("ReadTurns::Turn over");
  BackgroundRead reading(handle);
  ASSERT_TRUE(pauses.reached("ReadTurns::Turn over"));
  EXPECT_EQ(x_fluvia_file_read_abort(other, 0), 0);
  EXPECT_EQ(x_fluvia_file_read_abort(handle, 1), 0) << "a request that is not there";
  pauses.release("ReadTurns::Turn over");
  EXPECT_TRUE(reading.hasEnded());
  EXPECT_EQ(reading.result, 0);
  EXPECT_EQ(x_fluvia_file_close(other), 0);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

TEST_F(DullFileRace, RequestAbortedBetweenItsTurnAndTheBufferDoesNotRead) {
  support::Pauses pauses;
  const int handle = open(folder.makePattern("a", 100));
  const int other = open(folder.file("a"));
  Completions done;
  byte[0] = 'x';
  pauses.holdAt("ReadTurns::Turn over");
  const int id = start(handle, &done, byte);
  ASSERT_TRUE(pauses.reached("ReadTurns::Turn over"));
  EXPECT_EQ(x_fluvia_file_read_abort(handle, id), 0);
  pauses.release("ReadTurns::Turn over");
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_EQ(done.calls()[0].status, 3);
  EXPECT_EQ(done.calls()[0].bytes, 0);
  EXPECT_EQ(byte[0], 'x');
  EXPECT_EQ(x_fluvia_file_close(other), 0);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

// The read that a close must end is over when the break comes, and another handle reads.
TEST_F(DullFileRace, BreakOfACloseReachesItsOwnReadOnly) {
  support::Pauses pauses;
  const int blocked = openBlocked("a");
  const int closed = open(folder.file("a"));
  EXPECT_EQ(log.count(kBreak), 0);
  pauses.holdAt("DullFile::read begun");
  pauses.holdAt("DullFile::breakUntilEnded");
  {
    BackgroundRead own(closed);
    ASSERT_TRUE(pauses.reached("DullFile::read begun"));
    std::thread closing([&] { EXPECT_EQ(x_fluvia_file_close(closed), 0); });
    EXPECT_TRUE(pauses.reached("DullFile::breakUntilEnded"));
    pauses.release("DullFile::read begun");
    EXPECT_TRUE(own.hasEnded());
    BackgroundRead other(blocked);
    EXPECT_TRUE(support::isBlocked(log));
    pauses.release("DullFile::breakUntilEnded");
    closing.join();
    EXPECT_EQ(log.count("breakRead: bread end request but read is running"), 0);
    EXPECT_FALSE(other.ended);
    EXPECT_EQ(x_fluvia_file_close(blocked), 0);
    EXPECT_TRUE(other.hasEnded());
    EXPECT_EQ(other.result, -4);
  }
}

// The read has its number, and the buffer does not know the read yet: one break must be enough.
class DullFileBreak : public DullFileRace, public testing::WithParamInterface<const char*> {};

TEST_P(DullFileBreak, OneAbortEndsTheRead) {
  support::Pauses pauses;
  const int handle = openBlocked("a");
  Completions done;
  pauses.holdAt(GetParam());
  const int id = start(handle, &done);
  ASSERT_TRUE(pauses.reached(GetParam()));
  std::thread aborting([&] { EXPECT_EQ(x_fluvia_file_read_abort(handle, id), 0); });
  EXPECT_TRUE(waitForLine(kBreak));
  pauses.release(GetParam());
  EXPECT_TRUE(done.waitFor(1));
  aborting.join();
  EXPECT_EQ(log.count(kBreak), 1) << "it is not repeated";
  EXPECT_EQ(done.calls()[0].status, 3);
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

TEST_P(DullFileBreak, OneBreakOfACloseEndsTheRead) {
  const std::string path = folder.makePattern("a", 3000000);
  webs::FluviaFile* file = new webs::FluviaFile(65536);
  ASSERT_TRUE(file->open(path));
  unsigned int got = 0;
  long long now = 0;
  EXPECT_EQ(file->read(byte, 1, &got), 0);
  unlink(path.c_str());
  EXPECT_EQ(file->seek(kFar, &now), 0);
  support::Pauses pauses;
  pauses.holdAt(GetParam());
  std::thread reading([&] { EXPECT_EQ(file->read(byte, 1, &got), -4); });
  EXPECT_TRUE(pauses.reached(GetParam()));
  std::thread closing([&] { file->close(); });
  EXPECT_TRUE(waitForLine(kBreak));
  pauses.release(GetParam());
  reading.join();
  closing.join();
  EXPECT_EQ(log.count(kBreak), 2) << "its own, and when the reference is given back";
  file->unuse();
}

INSTANTIATE_TEST_SUITE_P(EveryPlace, DullFileBreak,
                         testing::Values("DullFile::read begun", "DullFile::read moved",
                                         "BufferQueue::read before feedLock"));

// --- breaks while the size is unknown ------------------------------------------------------------

// Queries a handle's size on a thread of its own.
class BackgroundSize {
 public:
  explicit BackgroundSize(int handle)
      : thread([this, handle] {
          size = x_fluvia_file_size(handle);
          ended = true;
        }) {}
  ~BackgroundSize() { thread.join(); }
  BackgroundSize(const BackgroundSize&) = delete;
  BackgroundSize& operator=(const BackgroundSize&) = delete;

  std::atomic<long long> size{-1};
  std::atomic<bool> ended{false};

 private:
  std::thread thread;
};

// The query waits behind the aborted read.
TEST_F(DullFileRace, QuestionForTheSizeOutlivesTheAbortOfARead) {
  support::FaultServer server;
  server.on("/a", support::inTurn({support::staySilent(), support::serveRanges(1000)}));
  support::Pauses pauses;
  const int handle = open(server.url("/a"));
  Completions done;
  const int id = start(handle, &done);
  ASSERT_TRUE(eventually([&] { return server.requestCount("/a") == 1; }));
  pauses.holdAt("DullFile::probe begun");
  {
    BackgroundSize asking(handle);
    EXPECT_TRUE(pauses.reached("DullFile::probe begun"));
    EXPECT_EQ(x_fluvia_file_read_abort(handle, id), 0);
    EXPECT_TRUE(done.waitFor(1));
    EXPECT_EQ(done.calls()[0].status, 3);
    pauses.release("DullFile::probe begun");
    EXPECT_TRUE(eventually([&] { return asking.ended.load(); }));
    EXPECT_EQ(asking.size, 1000);
  }
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

// The abort is for the query itself, before the buffer knows it.
TEST_F(DullFileRace, QuestionForTheSizeIsEndedByItsOwnAbort) {
  support::FaultServer server;
  server.on("/a", support::staySilent());
  support::Pauses pauses;
  const int handle = open(server.url("/a"));
  pauses.holdAt("DullFile::probe begun");
  BackgroundSize asking(handle);
  EXPECT_TRUE(pauses.reached("DullFile::probe begun"));
  EXPECT_EQ(x_fluvia_file_read_abort(handle, 0), 0);
  pauses.release("DullFile::probe begun");
  EXPECT_TRUE(eventually([&] { return asking.ended.load(); }, 5)) << "the server is silent";
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

// The query came later and is ahead of the read in the buffer.
TEST_F(DullFileRace, AbortOfAReadDoesNotWaitForAQuestionAheadOfIt) {
  support::FaultServer server;
  server.on("/a", support::staySilent());
  support::Pauses pauses;
  const int handle = open(server.url("/a"));
  Completions done;
  pauses.holdAt("DullFile::read begun");
  const int id = start(handle, &done);
  ASSERT_TRUE(pauses.reached("DullFile::read begun"));
  {
    BackgroundSize asking(handle);
    EXPECT_TRUE(eventually([&] { return server.requestCount("/a") == 1; }));
    std::thread aborting([&] { EXPECT_EQ(x_fluvia_file_read_abort(handle, id), 0); });
    EXPECT_TRUE(waitForLine(kBreak));
    pauses.release("DullFile::read begun");
    aborting.join();
    EXPECT_FALSE(asking.ended) << "the server's silence ends it, ten seconds later";
    EXPECT_TRUE(done.waitFor(1));
    EXPECT_EQ(done.calls()[0].status, 3);
    EXPECT_EQ(x_fluvia_file_close(handle), 0);
  }
}

#endif

}  // namespace

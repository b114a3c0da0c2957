// The producer of local files against a scripted receiver.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "webs/LocalFileRequest.h"

// Reaches into a producer from the receiver's calls, which run under its lock.
class LocalFileRequestProbe {
 public:
  // What a medium that was pulled out leaves: reads give nothing, and it is not the end.
  static void breakStream(LocalFileRequest& request) NO_THREAD_SAFETY_ANALYSIS {
    request.file.setstate(std::ios::badbit);
  }
};

namespace {

using support::CapturedStderr;
using support::eventually;
using Lines = std::vector<std::string>;

constexpr int kChunk = 16384;

// Takes what a producer delivers, refuses or holds it as told.
class ScriptedReceiver : public util::BufferQueueDataReceiver {
 public:
  // One call of the producer: a chunk (event -1) or an event.
  struct Call {
    int event;
    int version;
    std::string bytes;
  };

  int streamIn(void* data, unsigned int size, int version) override {
    std::function<void()> act;
    {
      std::lock_guard<std::mutex> guard(lock);
      made.push_back({-1, version, std::string(static_cast<char*>(data), size)});
      ++chunks;
      changed.notify_all();
      act = onChunk;
    }
    if (act) act();
    std::unique_lock<std::mutex> guard(lock);
    waitWhile(guard, [this] { return holdChunks; });
    return chunks == refuseAt ? 0 : 1;
  }

  void notifyStreamException(int event) override {
    std::unique_lock<std::mutex> guard(lock);
    made.push_back({event, 0, ""});
    changed.notify_all();
    if (event == util::EVENT_STREAM_PARTIAL_END) waitWhile(guard, [this] { return holdEnds; });
  }

  void holdNextChunks(bool hold) { set(&holdChunks, hold); }
  // Parks the transfer thread in the events of its end.
  void parkEnds(bool park) { set(&holdEnds, park); }

  std::vector<Call> calls() const {
    std::lock_guard<std::mutex> guard(lock);
    return made;
  }
  int count(int event) const {
    int found = 0;
    for (const Call& call : calls()) found += call.event == event ? 1 : 0;
    return found;
  }
  bool waitFor(int event, int times) const {
    return eventually([&] { return count(event) >= times; });
  }
  std::vector<int> sizes() const {
    std::vector<int> all;
    for (const Call& call : calls()) {
      if (call.event == -1) all.push_back(static_cast<int>(call.bytes.size()));
    }
    return all;
  }
  // The bytes delivered under a version.
  std::string bytes(int version) const {
    std::string all;
    for (const Call& call : calls()) {
      if (call.event == -1 && call.version == version) all += call.bytes;
    }
    return all;
  }

  std::function<void()> onChunk;
  int refuseAt = -1;  // the chunk, counted from 1, that is refused

 private:
  void set(bool* flag, bool value) {
    std::lock_guard<std::mutex> guard(lock);
    *flag = value;
    changed.notify_all();
  }
  template <typename Condition>
  void waitWhile(std::unique_lock<std::mutex>& guard, Condition holds) {
    changed.wait_for(guard, std::chrono::seconds(40), [&] { return !holds(); });
  }

  mutable std::mutex lock;
  std::condition_variable changed;
  std::vector<Call> made;
  int chunks = 0;
  bool holdChunks = false;
  bool holdEnds = false;
};

class LocalFileRequestTest : public testing::Test {
 protected:
  ~LocalFileRequestTest() override {
    receiver.holdNextChunks(false);
    receiver.parkEnds(false);
    request.reset();
  }
  // A producer of a file of the pattern, ready to stream.
  void make(long long size) { use(folder.makePattern("a", size)); }
  void use(const std::string& path) {
    request.reset(new LocalFileRequest(path));
    ASSERT_TRUE(request->initialize());
    request->setOutput(&receiver);
  }
  bool ended(int times = 1) { return receiver.waitFor(util::EVENT_STREAM_PARTIAL_END, times); }
  // The run has left its function and reported why, or not.
  bool finished(int times = 1) {
    return eventually([&] {
      int lines = 0;
      for (const std::string& line : log.messages("perform")) {
        lines += line.find("LocalFileRequest::perform finished, count:") != std::string::npos;
      }
      return lines >= times;
    });
  }
  static bool right(const std::string& bytes, long long from) {
    return support::firstDifference(static_cast<unsigned long long>(from), bytes.data(),
                                    bytes.size()) == -1;
  }

  const CapturedStderr log{1};
  support::TemporaryFolder folder;
  ScriptedReceiver receiver;
  std::unique_ptr<LocalFileRequest> request;
  support::Watchdog watchdog{60, [this] { return log.text(); }};
};

// --- initialize ---------------------------------------------------------------------------------

TEST_F(LocalFileRequestTest, InitializeMeasuresTheFile) {
  LocalFileRequest made(folder.makePattern("a", 100000));
  EXPECT_EQ(made.getContentSize(), 0);
  EXPECT_EQ(made.getVersion(), 0);
  EXPECT_EQ(made.getRequestCount(), 0u);
  EXPECT_TRUE(made.initialize());
  EXPECT_EQ(made.getContentSize(), 100000);
  EXPECT_TRUE(made.isRandomAccess());
  EXPECT_FALSE(made.getStopWait());
  made.setStopWait();
  made.setBreak();
  EXPECT_FALSE(made.getStopWait()) << "setStopWait does nothing";
  EXPECT_EQ(made.getType(), 0);
  EXPECT_EQ(log.messages(),
            Lines({"FileRequest: FileRequest construction", "initialize: xxxxx file size:100000"}));
}

TEST_F(LocalFileRequestTest, SizeIsTheLow32BitsAndNeverNegative) {
  LocalFileRequest three(folder.makeSparse("three", 3LL << 30));
  EXPECT_TRUE(three.initialize());
  EXPECT_EQ(three.getContentSize(), 3LL << 30);
  LocalFileRequest more(folder.makeSparse("more", (4LL << 30) + 1000));
  EXPECT_TRUE(more.initialize());
  EXPECT_EQ(more.getContentSize(), 1000);
  LocalFileRequest exactly(folder.makeSparse("exactly", 4LL << 30));
  EXPECT_TRUE(exactly.initialize());
  EXPECT_EQ(exactly.getContentSize(), 0);
}

TEST_F(LocalFileRequestTest, NothingButAFileIsInitialized) {
  ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
  for (const std::string& path :
       {folder.file("missing"), folder.path(), folder.file("fifo"), std::string("/dev/null")}) {
    const CapturedStderr quiet(1);
    LocalFileRequest made(path);
    EXPECT_FALSE(made.initialize()) << path;
    EXPECT_EQ(quiet.messages(), Lines({"FileRequest: FileRequest construction"}))
        << "the failure is not logged";
  }
}

TEST_F(LocalFileRequestTest, ReleaseAndDestructorLog) {
  make(10);
  request->release();
  request.reset();
  const Lines lines = log.messages();
  ASSERT_GE(lines.size(), 5u);
  EXPECT_EQ(lines[2], "release: file relsease begin");
  EXPECT_EQ(lines[3], "release: file relsease end");
  EXPECT_EQ(lines[4], "~LocalFileRequest: 1");
}

// --- a run --------------------------------------------------------------------------------------

TEST_F(LocalFileRequestTest, RunWithoutCountReadsToTheEnd) {
  make(100000);
  EXPECT_EQ(request->startStreaming(7, 0, 0), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(receiver.sizes(),
            std::vector<int>({kChunk, kChunk, kChunk, kChunk, kChunk, kChunk, 100000 - 6 * kChunk}))
      << "the short chunk is the last one";
  EXPECT_EQ(receiver.bytes(7).size(), 100000u);
  EXPECT_TRUE(right(receiver.bytes(7), 0));
  EXPECT_EQ(receiver.calls().front().event, util::STREAM_NORMAL);
  EXPECT_EQ(receiver.calls().back().event, util::EVENT_STREAM_PARTIAL_END);
  EXPECT_EQ(receiver.count(util::STREAM_NORMAL), 1);
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), 1);
  EXPECT_EQ(request->getVersion(), 7);
}

TEST_F(LocalFileRequestTest, RunLogsItsSteps) {
  make(10);
  EXPECT_EQ(request->startStreaming(7, 4, 0), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(log.messages("startStreaming"),
            Lines({"startStreaming: 4 ~ 0", "startStreaming: file offset:4",
                   "startStreaming: local start streaming end"}));
  EXPECT_EQ(log.messages("perform"),
            Lines({"perform: local read begin version: 7, count:0, ",
                   "perform: LocalFileRequest break from streaming",
                   "perform: LocalFileRequest::perform finished, count:0"}));
}

TEST_F(LocalFileRequestTest, OnlyTheOffsetIsLoggedAtLevelZero) {
  const CapturedStderr quiet(0);
  make(10);
  EXPECT_EQ(request->startStreaming(7, 4, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(quiet.messages("startStreaming"), Lines({"startStreaming: file offset:4"}));
  EXPECT_EQ(quiet.messages("perform"), Lines());
}

TEST_F(LocalFileRequestTest, RunBeginsAtItsOffset) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 98304, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(receiver.bytes(1).size(), 1696u);
  EXPECT_TRUE(right(receiver.bytes(1), 98304));
}

TEST_F(LocalFileRequestTest, CountOfOneChunkStopsAfterIt) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 32768, kChunk), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(receiver.sizes(), std::vector<int>({kChunk}));
  EXPECT_TRUE(right(receiver.bytes(1), 32768));
  EXPECT_TRUE(log.has("perform: LocalFileRequest::perform finished, count:16384"));
  EXPECT_FALSE(log.has("perform: LocalFileRequest break from streaming"));
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), 1);
}

TEST_F(LocalFileRequestTest, CountThatTheChunksStepOverRunsToTheEnd) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 0, 10000), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(receiver.bytes(1).size(), 100000u);
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), 1);
}

TEST_F(LocalFileRequestTest, CountKeepsItsLow32Bits) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 0, (5LL << 32) + kChunk), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->getRequestCount(), 16384u);
  EXPECT_EQ(receiver.sizes(), std::vector<int>({kChunk}));
  EXPECT_TRUE(log.has("startStreaming: 0 ~ 21474852864"));
}

TEST_F(LocalFileRequestTest, FileOfWholeChunksEndsWithAChunkOfNothing) {
  make(2 * kChunk);
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(receiver.sizes(), std::vector<int>({kChunk, kChunk, 0}));
  EXPECT_TRUE(log.has("read: xxxxxx eof"));
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), 1);
}

TEST_F(LocalFileRequestTest, MediumThatGivesNothingEndsTheRun) {
  make(100000);
  receiver.onChunk = [this] { LocalFileRequestProbe::breakStream(*request); };
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(ended()) << "without an end of the file it would read nothing for ever";
  EXPECT_EQ(receiver.sizes(), std::vector<int>({kChunk, 0}));
  EXPECT_TRUE(log.has("read: xxxxxx eof"));
}

TEST_F(LocalFileRequestTest, WithoutReceiverNothingStarts) {
  make(100000);
  request->unsetOutput();
  EXPECT_EQ(request->startStreaming(3, 0, 555), -1);
  EXPECT_EQ(request->getRequestCount(), 555u) << "the count is taken before any check";
  EXPECT_EQ(request->getVersion(), 0);
  EXPECT_EQ(log.messages("startStreaming"),
            Lines({"startStreaming: 0 ~ 555",
                   "startStreaming: start streaming at local cause of out is null"}));
}

TEST_F(LocalFileRequestTest, RefusalEndsTheRunSilently) {
  make(100000);
  receiver.refuseAt = 2;
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(receiver.sizes(), std::vector<int>({kChunk, kChunk}));
  EXPECT_TRUE(log.has("read: write to buffer failed"));
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), 0);
}

TEST_F(LocalFileRequestTest, QuestionsDoNotWaitForAChunkUnderWay) {
  make(100000);
  receiver.holdNextChunks(true);
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(receiver.waitFor(-1, 1));
  // The transfer thread stands in the receiver with the producer's lock.
  EXPECT_TRUE(request->isRandomAccess());
  EXPECT_EQ(request->getContentSize(), 100000);
  request->setBreak();
  request->setStopWait();
  EXPECT_FALSE(request->getStopWait());
  EXPECT_EQ(receiver.sizes().size(), 1u);
  receiver.holdNextChunks(false);
  EXPECT_TRUE(ended());
}

// --- starting again -----------------------------------------------------------------------------

TEST_F(LocalFileRequestTest, StartsAgainWithoutStopAfterTheEndOfTheFile) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->startStreaming(2, 50000, 0), 0);
  ASSERT_TRUE(ended(2));
  EXPECT_EQ(receiver.bytes(2).size(), 50000u);
  EXPECT_TRUE(right(receiver.bytes(2), 50000));
  EXPECT_EQ(receiver.bytes(1).size(), 100000u);
}

TEST_F(LocalFileRequestTest, StartsAgainWithoutStopAfterItsCount) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 0, kChunk), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->startStreaming(2, kChunk, kChunk), 0);
  ASSERT_TRUE(ended(2));
  EXPECT_EQ(receiver.bytes(2).size(), static_cast<size_t>(kChunk));
  EXPECT_TRUE(right(receiver.bytes(2), kChunk));
}

TEST_F(LocalFileRequestTest, StartsAgainWithoutStopAfterARefusal) {
  make(100000);
  receiver.refuseAt = 1;
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(request->startStreaming(2, 98304, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(receiver.bytes(2).size(), 1696u);
  EXPECT_TRUE(right(receiver.bytes(2), 98304));
}

TEST_F(LocalFileRequestTest, RefusalHasTheFileOpenedAnew) {
  make(100000);
  receiver.refuseAt = 1;
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(finished());
  ASSERT_EQ(unlink(folder.file("a").c_str()), 0);
  folder.makePattern("a", 100000, 5000000);
  EXPECT_EQ(request->startStreaming(2, 98304, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_TRUE(right(receiver.bytes(2), 5098304)) << "the file that stands there now";
}

TEST_F(LocalFileRequestTest, StartsAgainAfterStop) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->stopStreaming(), 0);
  EXPECT_EQ(log.messages("stopStreaming"),
            Lines({"stopStreaming: begin to stop LocalFile streaming",
                   "stopStreaming:  stop LocalFile streaming OK"}));
  EXPECT_EQ(log.messages("release"),
            Lines({"release: file relsease begin", "release: file relsease end"}));
  EXPECT_EQ(request->startStreaming(2, 98304, 0), 0) << "the file is opened anew";
  ASSERT_TRUE(ended(2));
  EXPECT_TRUE(right(receiver.bytes(2), 98304));
  EXPECT_EQ(receiver.bytes(2).size(), 1696u);
}

TEST_F(LocalFileRequestTest, FileThatIsGoneAtTheNextStartGivesZeroAndNothingElse) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->stopStreaming(), 0);
  const size_t before = receiver.calls().size();
  ASSERT_EQ(unlink(folder.file("a").c_str()), 0);
  {
    const CapturedStderr quiet(0);
    EXPECT_EQ(request->startStreaming(2, 0, 0), 0);
    EXPECT_EQ(quiet.messages(), Lines({"startStreaming: Open file fail"}));
  }
  EXPECT_EQ(receiver.calls().size(), before) << "neither event nor data";
  folder.makePattern("a", 100000);
  EXPECT_EQ(request->startStreaming(3, 98304, 0), 0);
  ASSERT_TRUE(ended(2));
  EXPECT_EQ(receiver.bytes(3).size(), 1696u);
}

// --- while the receiver parks the thread in the end event ---------------------------------------

TEST_F(LocalFileRequestTest, StopDoesNotWaitForAThreadThatIsParkedInItsEnd) {
  make(100000);
  receiver.parkEnds(true);
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->stopStreaming(), 0) << "the event is sent without the lock";
  EXPECT_EQ(request->startStreaming(2, 50000, 0), 0);
  EXPECT_EQ(receiver.bytes(2), "") << "its thread is still parked";
  receiver.parkEnds(false);
  ASSERT_TRUE(ended(2));
  EXPECT_EQ(receiver.bytes(2).size(), 50000u);
  EXPECT_TRUE(right(receiver.bytes(2), 50000));
}

TEST_F(LocalFileRequestTest, StartWithoutStopIsTakenWhileTheThreadIsParked) {
  make(100000);
  receiver.parkEnds(true);
  EXPECT_EQ(request->startStreaming(1, 0, kChunk), 0);
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->startStreaming(2, 50000, 0), 0) << "the run is over, only its thread is not";
  receiver.parkEnds(false);
  ASSERT_TRUE(ended(2));
  EXPECT_TRUE(right(receiver.bytes(2), 50000));
  EXPECT_EQ(receiver.bytes(2).size(), 50000u);
}

#if defined(FLUVIA_PAUSE_POINTS)

TEST_F(LocalFileRequestTest, SecondStartWhileTheWorkerRunsChangesOnlyTheCount) {
  support::Pauses pauses;
  make(100000);
  pauses.holdAt("LocalFileRequest::read");
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(pauses.reached("LocalFileRequest::read"));
  EXPECT_EQ(request->startStreaming(2, 50000, kChunk), -1);
  EXPECT_TRUE(log.has("startStreaming: 1"));
  EXPECT_EQ(request->getVersion(), 1);
  EXPECT_EQ(request->getRequestCount(), static_cast<unsigned int>(kChunk));
  pauses.release("LocalFileRequest::read");
  ASSERT_TRUE(ended());
  EXPECT_EQ(receiver.bytes(1).size(), 100000u) << "the run keeps the count it began with";
  EXPECT_EQ(receiver.count(util::STREAM_NORMAL), 1);
}

TEST_F(LocalFileRequestTest, RunThatIsStoppedSendsNoEnd) {
  support::Pauses pauses;
  make(100000);
  pauses.holdAt("LocalFileRequest::read");
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(pauses.reached("LocalFileRequest::read"));
  EXPECT_EQ(request->stopStreaming(), 0);
  pauses.release("LocalFileRequest::read");
  ASSERT_TRUE(finished());
  EXPECT_TRUE(log.has("perform: LocalFileRequest break from streaming"));
  EXPECT_EQ(receiver.sizes(), std::vector<int>());
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), 0);
}

// The refused run has ended although its thread has not come to its end yet.
TEST_F(LocalFileRequestTest, StartIsTakenAsSoonAsTheReceiverHasRefused) {
  support::Pauses pauses;
  make(100000);
  receiver.refuseAt = 1;
  pauses.holdAt("LocalFileRequest::perform before end");
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(pauses.reached("LocalFileRequest::perform before end"));
  EXPECT_EQ(request->startStreaming(2, 98304, 0), 0);
  pauses.release("LocalFileRequest::perform before end");
  ASSERT_TRUE(ended());
  EXPECT_TRUE(right(receiver.bytes(2), 98304));
  EXPECT_EQ(receiver.bytes(2).size(), 1696u);
}

TEST_F(LocalFileRequestTest, DestructionEndsARunUnderWay) {
  support::Pauses pauses;
  make(3000000);
  pauses.holdAt("LocalFileRequest::read");
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(pauses.reached("LocalFileRequest::read"));
  std::thread destroying([&] { request.reset(); });
  ASSERT_TRUE(eventually([&] { return log.has("stop: wait for thread object to be destroyed"); }));
  pauses.release("LocalFileRequest::read");
  destroying.join();
  EXPECT_EQ(receiver.sizes().size(), 0u) << "not the rest of the file";
}

// The old run is picked up at one place of its way, and a stop and a start come in between.
class RestartAt : public LocalFileRequestTest, public testing::WithParamInterface<const char*> {};

TEST_P(RestartAt, GivesTheNewRunItsBytesAndOneEnd) {
  support::Pauses pauses;
  make(200000);
  pauses.holdAt(GetParam());
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(pauses.reached(GetParam()));
  const int endsBefore = receiver.count(util::EVENT_STREAM_PARTIAL_END);
  EXPECT_EQ(request->stopStreaming(), 0);
  const size_t oldBytes = receiver.bytes(1).size();
  EXPECT_EQ(request->startStreaming(2, 65536, 0), 0);
  pauses.release(GetParam());
  // An end that was decided before the stop still comes.
  const bool decided = std::string(GetParam()) == "LocalFileRequest::notifyPerformEnd before event";
  const int ends = endsBefore + (decided ? 2 : 1);
  ASSERT_TRUE(eventually([&] { return receiver.bytes(2).size() >= 200000u - 65536u; }));
  ASSERT_TRUE(ended(ends));
  ASSERT_TRUE(eventually([&] { return log.has("runner: thread begin to sleep"); }));
  EXPECT_EQ(receiver.bytes(2).size(), 200000u - 65536u);
  EXPECT_TRUE(right(receiver.bytes(2), 65536));
  EXPECT_EQ(receiver.bytes(1).size(), oldBytes) << "nothing of the old run after its stop";
  EXPECT_TRUE(right(receiver.bytes(1), 0));
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), ends) << "no false end";
}

INSTANTIATE_TEST_SUITE_P(EveryPlace, RestartAt,
                         testing::Values("runner before run", "LocalFileRequest::perform begin",
                                         "LocalFileRequest::read",
                                         "LocalFileRequest::perform before end",
                                         "LocalFileRequest::notifyPerformEnd before event"));

TEST_F(LocalFileRequestTest, StopBeforeTheRunBeganLeavesNothingToRun) {
  support::Pauses pauses;
  make(100000);
  pauses.holdAt("LocalFileRequest::perform begin");
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(pauses.reached("LocalFileRequest::perform begin"));
  EXPECT_EQ(request->stopStreaming(), 0);
  pauses.release("LocalFileRequest::perform begin");
  ASSERT_TRUE(eventually([&] { return log.has("runner: thread begin to sleep"); }));
  EXPECT_EQ(receiver.sizes(), std::vector<int>());
  EXPECT_EQ(receiver.count(util::EVENT_STREAM_PARTIAL_END), 0);
  EXPECT_EQ(log.messages("perform"), Lines());
}

// The run of the second start is taken by the thread that was still on its way to the first one:
// the request it leaves standing is no reason to refuse a third.
TEST_F(LocalFileRequestTest, RequestLeftStandingIsFoundByTheNextRun) {
  support::Pauses pauses;
  make(100000);
  pauses.holdAt("LocalFileRequest::perform begin");
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(pauses.reached("LocalFileRequest::perform begin"));
  EXPECT_EQ(request->stopStreaming(), 0);
  EXPECT_EQ(request->startStreaming(2, 0, kChunk), 0);
  receiver.parkEnds(true);
  pauses.release("LocalFileRequest::perform begin");
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->startStreaming(3, 50000, 0), 0);
  receiver.parkEnds(false);
  ASSERT_TRUE(ended(2));
  EXPECT_EQ(receiver.bytes(2).size(), static_cast<size_t>(kChunk));
  EXPECT_EQ(receiver.bytes(3).size(), 50000u);
  EXPECT_TRUE(right(receiver.bytes(3), 50000));
}

#endif

}  // namespace

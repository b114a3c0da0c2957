// The producer of local files, restarted and stopped at every point of a run.
#include <unistd.h>

#include <thread>

#include "tests/unit/webs/LocalFileRequestFixture.h"

namespace {

using support::CapturedStderr;
using support::eventually;

// --- starting again -----------------------------------------------------------------------------

TEST_F(LocalFileRequestTest, StartsAgainWithoutStopAfterTheEndOfTheFile) {
  make(100000);
  ASSERT_TRUE(run(1, 0));
  ASSERT_TRUE(run(2, 50000));
  EXPECT_TRUE(delivered(2, 50000, 50000));
  EXPECT_TRUE(delivered(1, 0, 100000));
}

TEST_F(LocalFileRequestTest, StartsAgainWithoutStopAfterItsCount) {
  make(100000);
  ASSERT_TRUE(run(1, 0, kChunk));
  ASSERT_TRUE(run(2, kChunk, kChunk));
  EXPECT_TRUE(delivered(2, kChunk, kChunk));
}

TEST_F(LocalFileRequestTest, StartsAgainWithoutStopAfterARefusal) {
  make(100000);
  receiver.refuseAt = 1;
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(finished());
  ASSERT_TRUE(run(2, 98304));
  EXPECT_TRUE(delivered(2, 98304, 1696));
}

TEST_F(LocalFileRequestTest, RefusalHasTheFileOpenedAnew) {
  make(100000);
  receiver.refuseAt = 1;
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(finished());
  ASSERT_EQ(unlink(folder.file("a").c_str()), 0);
  folder.makePattern("a", 100000, 5000000);
  ASSERT_TRUE(run(2, 98304));
  EXPECT_TRUE(support::isPattern(receiver.bytes(2), 5098304, 1696))
      << "the file that stands there now";
}

TEST_F(LocalFileRequestTest, StartsAgainAfterStop) {
  make(100000);
  ASSERT_TRUE(run(1, 0));
  EXPECT_EQ(request->stopStreaming(), 0);
  EXPECT_EQ(log.messages("stopStreaming"),
            Lines({"stopStreaming: begin to stop LocalFile streaming",
                   "stopStreaming:  stop LocalFile streaming OK"}));
  EXPECT_EQ(log.messages("release"),
            Lines({"release: file relsease begin", "release: file relsease end"}));
  ASSERT_TRUE(run(2, 98304)) << "the file is opened anew";
  EXPECT_TRUE(delivered(2, 98304, 1696));
}

TEST_F(LocalFileRequestTest, FileThatIsGoneAtTheNextStartGivesZeroAndNothingElse) {
  make(100000);
  ASSERT_TRUE(run(1, 0));
  EXPECT_EQ(request->stopStreaming(), 0);
  ASSERT_TRUE(asleep()) << "or lines of the ended run come in between";
  const size_t before = receiver.calls().size();
  ASSERT_EQ(unlink(folder.file("a").c_str()), 0);
  {
    const CapturedStderr quiet(0);
    EXPECT_EQ(request->startStreaming(2, 0, 0), 0);
    EXPECT_EQ(quiet.messages(), Lines({"startStreaming: Open file fail"}));
  }
  EXPECT_EQ(receiver.calls().size(), before) << "neither event nor data";
  folder.makePattern("a", 100000);
  ASSERT_TRUE(run(3, 98304));
  EXPECT_TRUE(delivered(3, 98304, 1696));
}

// --- while the receiver parks the thread in the end event ---------------------------------------

TEST_F(LocalFileRequestTest, StopDoesNotWaitForAThreadThatIsParkedInItsEnd) {
  make(100000);
  receiver.parkEnds(true);
  ASSERT_TRUE(run(1, 0));
  EXPECT_EQ(request->stopStreaming(), 0) << "the event is sent without the lock";
  EXPECT_EQ(request->startStreaming(2, 50000, 0), 0);
  EXPECT_EQ(receiver.bytes(2), "") << "its thread is still parked";
  receiver.parkEnds(false);
  ASSERT_TRUE(ended(2));
  EXPECT_TRUE(delivered(2, 50000, 50000));
}

TEST_F(LocalFileRequestTest, StartWithoutStopIsTakenWhileTheThreadIsParked) {
  make(100000);
  receiver.parkEnds(true);
  ASSERT_TRUE(run(1, 0, kChunk));
  EXPECT_EQ(request->startStreaming(2, 50000, 0), 0) << "the run is over, only its thread is not";
  receiver.parkEnds(false);
  ASSERT_TRUE(ended(2));
  EXPECT_TRUE(delivered(2, 50000, 50000));
}

#if defined(FLUVIA_PAUSE_POINTS)

TEST_F(LocalFileRequestTest, SecondStartWhileTheWorkerRunsChangesOnlyTheCount) {
  support::Pauses pauses;
  make(100000);
  ASSERT_TRUE(startHeldAt(&pauses, "LocalFileRequest::read"));
  EXPECT_EQ(request->startStreaming(2, 50000, kChunk), -1);
  EXPECT_TRUE(log.has("startStreaming: 1"));
  EXPECT_EQ(request->getVersion(), 1);
  EXPECT_EQ(request->getRequestCount(), static_cast<unsigned int>(kChunk));
  pauses.release("LocalFileRequest::read");
  ASSERT_TRUE(ended());
  EXPECT_TRUE(delivered(1, 0, 100000)) << "the run keeps the count it began with";
  EXPECT_EQ(receiver.count(util::STREAM_NORMAL), 1);
}

TEST_F(LocalFileRequestTest, RunThatIsStoppedSendsNoEnd) {
  support::Pauses pauses;
  make(100000);
  ASSERT_TRUE(startHeldAt(&pauses, "LocalFileRequest::read"));
  EXPECT_EQ(request->stopStreaming(), 0);
  pauses.release("LocalFileRequest::read");
  ASSERT_TRUE(finished());
  EXPECT_TRUE(log.has("perform: LocalFileRequest break from streaming"));
  EXPECT_EQ(receiver.sizes(), std::vector<int>());
  EXPECT_EQ(ends(), 0);
}

// The refused run has ended although its thread has not reached its end yet.
TEST_F(LocalFileRequestTest, StartIsTakenAsSoonAsTheReceiverHasRefused) {
  support::Pauses pauses;
  make(100000);
  receiver.refuseAt = 1;
  ASSERT_TRUE(startHeldAt(&pauses, "LocalFileRequest::perform before end"));
  EXPECT_EQ(request->startStreaming(2, 98304, 0), 0);
  pauses.release("LocalFileRequest::perform before end");
  ASSERT_TRUE(ended());
  EXPECT_TRUE(delivered(2, 98304, 1696));
}

TEST_F(LocalFileRequestTest, DestructionEndsARunUnderWay) {
  support::Pauses pauses;
  make(3000000);
  ASSERT_TRUE(startHeldAt(&pauses, "LocalFileRequest::read"));
  std::thread destroying([&] { request.reset(); });
  EXPECT_TRUE(eventually([&] { return log.has("stop: wait for thread object to be destroyed"); }));
  pauses.release("LocalFileRequest::read");
  destroying.join();
  EXPECT_EQ(receiver.sizes().size(), 0u) << "not the rest of the file";
}

// The old run is held at one point, and a stop and a start come in between.
class LocalFileRequestRestart : public LocalFileRequestTest,
                                public testing::WithParamInterface<const char*> {};

TEST_P(LocalFileRequestRestart, GivesTheNewRunItsBytesAndOneEnd) {
  support::Pauses pauses;
  make(200000);
  ASSERT_TRUE(startHeldAt(&pauses, GetParam()));
  const int endsBefore = ends();
  EXPECT_EQ(request->stopStreaming(), 0);
  const size_t oldBytes = receiver.bytes(1).size();
  EXPECT_EQ(request->startStreaming(2, 65536, 0), 0);
  pauses.release(GetParam());
  // An end that was decided before the stop is still reported.
  const bool decided = std::string(GetParam()) == "LocalFileRequest::notifyPerformEnd before event";
  const int allEnds = endsBefore + (decided ? 2 : 1);
  ASSERT_TRUE(eventually([&] { return receiver.bytes(2).size() >= 200000u - 65536u; }));
  ASSERT_TRUE(ended(allEnds));
  ASSERT_TRUE(asleep());
  EXPECT_TRUE(delivered(2, 65536, 200000 - 65536));
  EXPECT_TRUE(delivered(1, 0, oldBytes)) << "nothing of the old run after its stop";
  EXPECT_EQ(ends(), allEnds) << "no false end";
}

INSTANTIATE_TEST_SUITE_P(EveryPlace, LocalFileRequestRestart,
                         testing::Values("runner before run", "LocalFileRequest::perform begin",
                                         "LocalFileRequest::read",
                                         "LocalFileRequest::perform before end",
                                         "LocalFileRequest::notifyPerformEnd before event"));

TEST_F(LocalFileRequestTest, StopBeforeTheRunBeganLeavesNothingToRun) {
  support::Pauses pauses;
  make(100000);
  ASSERT_TRUE(startHeldAt(&pauses, "LocalFileRequest::perform begin"));
  EXPECT_EQ(request->stopStreaming(), 0);
  pauses.release("LocalFileRequest::perform begin");
  ASSERT_TRUE(asleep());
  EXPECT_EQ(receiver.sizes(), std::vector<int>());
  EXPECT_EQ(ends(), 0);
  EXPECT_EQ(log.messages("perform"), Lines());
}

// The thread that was still starting the first run takes the second start's run: the pending
// request is no reason to refuse a third start.
TEST_F(LocalFileRequestTest, RequestLeftStandingIsFoundByTheNextRun) {
  support::Pauses pauses;
  make(100000);
  ASSERT_TRUE(startHeldAt(&pauses, "LocalFileRequest::perform begin"));
  EXPECT_EQ(request->stopStreaming(), 0);
  EXPECT_EQ(request->startStreaming(2, 0, kChunk), 0);
  receiver.parkEnds(true);
  pauses.release("LocalFileRequest::perform begin");
  ASSERT_TRUE(ended());
  EXPECT_EQ(request->startStreaming(3, 50000, 0), 0);
  receiver.parkEnds(false);
  ASSERT_TRUE(ended(2));
  EXPECT_TRUE(delivered(2, 0, kChunk));
  EXPECT_TRUE(delivered(3, 50000, 50000));
}

#endif

}  // namespace

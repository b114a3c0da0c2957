// Single runs of the producer of local files.
#include <sys/stat.h>

#include "tests/unit/webs/LocalFileRequestFixture.h"

// Accesses a producer from the receiver's calls, which run under its lock.
class LocalFileRequestProbe {
 public:
  // Imitates a medium that was pulled out: reads return nothing, and it is not the end.
  static void breakStream(LocalFileRequest& request) NO_THREAD_SAFETY_ANALYSIS {
    request.file.setstate(std::ios::badbit);
  }
};

namespace {

using support::CapturedStderr;

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
  EXPECT_TRUE(delivered(7, 0, 100000));
  EXPECT_EQ(receiver.calls().front().event, util::STREAM_NORMAL);
  EXPECT_EQ(receiver.calls().back().event, util::EVENT_STREAM_PARTIAL_END);
  EXPECT_EQ(receiver.count(util::STREAM_NORMAL), 1);
  EXPECT_EQ(ends(), 1);
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
  ASSERT_TRUE(run(7, 4));
  EXPECT_EQ(quiet.messages("startStreaming"), Lines({"startStreaming: file offset:4"}));
  EXPECT_EQ(quiet.messages("perform"), Lines());
}

TEST_F(LocalFileRequestTest, RunBeginsAtItsOffset) {
  make(100000);
  ASSERT_TRUE(run(1, 98304));
  EXPECT_TRUE(delivered(1, 98304, 1696));
}

TEST_F(LocalFileRequestTest, CountOfOneChunkStopsAfterIt) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 32768, kChunk), 0);
  ASSERT_TRUE(finished());
  EXPECT_EQ(receiver.sizes(), std::vector<int>({kChunk}));
  EXPECT_TRUE(delivered(1, 32768, kChunk));
  EXPECT_TRUE(log.has("perform: LocalFileRequest::perform finished, count:16384"));
  EXPECT_FALSE(log.has("perform: LocalFileRequest break from streaming"));
  EXPECT_EQ(ends(), 1);
}

TEST_F(LocalFileRequestTest, CountThatTheChunksStepOverRunsToTheEnd) {
  make(100000);
  EXPECT_EQ(request->startStreaming(1, 0, 10000), 0);
  ASSERT_TRUE(finished());
  EXPECT_TRUE(delivered(1, 0, 100000));
  EXPECT_EQ(ends(), 1);
}

TEST_F(LocalFileRequestTest, CountKeepsItsLow32Bits) {
  make(100000);
  ASSERT_TRUE(run(1, 0, (5LL << 32) + kChunk));
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
  EXPECT_EQ(ends(), 1);
}

TEST_F(LocalFileRequestTest, MediumThatGivesNothingEndsTheRun) {
  make(100000);
  receiver.onChunk = [this] { LocalFileRequestProbe::breakStream(*request); };
  ASSERT_TRUE(run(1, 0)) << "without an end of the file it would read nothing for ever";
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
  EXPECT_EQ(ends(), 0);
}

TEST_F(LocalFileRequestTest, QuestionsDoNotWaitForAChunkUnderWay) {
  make(100000);
  receiver.holdNextChunks(true);
  EXPECT_EQ(request->startStreaming(1, 0, 0), 0);
  ASSERT_TRUE(receiver.waitFor(support::ChunkReceiver::kChunk, 1));
  // The transfer thread is in the receiver and holds the producer's lock.
  EXPECT_TRUE(request->isRandomAccess());
  EXPECT_EQ(request->getContentSize(), 100000);
  request->setBreak();
  request->setStopWait();
  EXPECT_FALSE(request->getStopWait());
  EXPECT_EQ(receiver.sizes().size(), 1u);
  receiver.holdNextChunks(false);
  EXPECT_TRUE(ended());
}

}  // namespace

// One shared file by itself: its results and log lines.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "webs/DullFile.h"
#include "webs/FileRequest.h"
#include "webs/FluviaFile.h"

namespace {

using support::CapturedStderr;
using webs::DullFile;
using webs::FluviaFile;
using Lines = std::vector<std::string>;

class DullFileTest : public testing::Test {
 protected:
  DullFileTest() {
    EXPECT_TRUE(file.open(folder.makePattern("a", 100)));
    file.reference(&handle);
  }
  ~DullFileTest() override {
    const CapturedStderr silent(-100);
    file.close();
  }

  // Reads for a handle, under the file lock; the count is in got.
  int read(FluviaFile* reader, long long offset, unsigned int size) {
    const util::Lock lock(file);
    got = 77;
    return file.read(buffer, size, offset, &got, reader);
  }

  const CapturedStderr quiet{-100};
  support::TemporaryFolder folder;
  support::Watchdog watchdog{60, [] { return std::string(); }};
  FluviaFile handle{65536};
  FluviaFile stranger{65536};
  DullFile file{65536};
  char buffer[100];
  unsigned int got = 0;
};

TEST_F(DullFileTest, OpenAndCloseLogTheirSteps) {
  DullFile other(65536);
  {
    const CapturedStderr log(1);
    EXPECT_TRUE(other.open(folder.file("a")));
    EXPECT_EQ(log.messages("open"), Lines({"open: producer init  ok", "open: open file ok"}));
  }
  const CapturedStderr log(1);
  other.close();
  EXPECT_EQ(log.messages("close"),
            Lines({"close: begin to cancelAll", "close: begin to release rbuffer",
                   "close: begin to release producer", "close: close End"}));
  EXPECT_EQ(other.getRequest(), nullptr);
}

TEST_F(DullFileTest, OpenTellsWhyItFailed) {
  const CapturedStderr log(1);
  DullFile nameless(65536);
  EXPECT_FALSE(nameless.open("no-slash"));
  EXPECT_EQ(log.messages("open"), Lines({"open: producer is null"}));
  DullFile missing(65536);
  EXPECT_FALSE(missing.open(folder.file("missing")));
  EXPECT_EQ(log.messages("open"), Lines({"open: producer is null", "open: producer init failed"}));
  // A file whose open failed keeps its producer; the test frees this one.
  delete missing.getRequest();
}

TEST_F(DullFileTest, KnowsItsNameSizeAndProducer) {
  EXPECT_EQ(file.getUri(), folder.file("a"));
  EXPECT_TRUE(file.equalTo(folder.file("a")));
  EXPECT_FALSE(file.equalTo(folder.file("A")));
  EXPECT_FALSE(file.equalTo(folder.file("a") + "?"));
  EXPECT_EQ(file.getBufferSize(), 65536);
  ASSERT_NE(file.getRequest(), nullptr);
  EXPECT_EQ(file.getRequest()->getType(), 0);
  EXPECT_FALSE(file.isVolatile());
  file.volatileContent();
  EXPECT_TRUE(file.isVolatile());
}

TEST_F(DullFileTest, CountsItsHandles) {
  EXPECT_EQ(file.referenceNumber(), 1);
  file.reference(&stranger);
  EXPECT_EQ(file.referenceNumber(), 2);
  file.dereference(&handle);
  EXPECT_EQ(file.referenceNumber(), 1);
  EXPECT_EQ(read(&stranger, 0, 10), 0);
  EXPECT_EQ(read(&handle, 0, 10), -4) << "it has given the file up";
}

TEST_F(DullFileTest, ReadLogsWhereItReads) {
  const CapturedStderr log(1);
  EXPECT_EQ(read(&handle, 40, 10), 0);
  EXPECT_EQ(got, 10u);
  EXPECT_EQ(support::firstDifference(40, buffer, 10), -1);
  EXPECT_TRUE(log.has("read: seek:  1 , offset =40, curOffset = 40"));
  EXPECT_TRUE(log.has("read: read end, error = 0"));
}

TEST_F(DullFileTest, ReadPastTheSizeFailsWhereTheOffsetStays) {
  EXPECT_EQ(read(&handle, 40, 10), 0);
  const CapturedStderr log(1);
  EXPECT_EQ(read(&handle, 101, 10), -4);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(log.messages("read"),
            Lines({"read: seek:  0 , offset =101, curOffset = 50",
                   "read: move position failed before read", "read: read end, error = -4"}));
  EXPECT_EQ(read(&handle, 100, 10), -13);
  EXPECT_EQ(got, 0u);
}

TEST_F(DullFileTest, ReadOfAStrangerIsRefused) {
  const CapturedStderr log(1);
  EXPECT_EQ(read(&stranger, 0, 10), -4);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(log.messages("read"), Lines({"read: read failed in dull file"}));
}

TEST_F(DullFileTest, DereferenceBreaksOnlyForTheHandleThatReadLast) {
  file.reference(&stranger);
  EXPECT_EQ(read(&handle, 0, 10), 0);
  {
    const CapturedStderr log(1);
    file.dereference(&stranger);
    EXPECT_EQ(log.messages("dereference"),
              Lines({"dereference: begin dereference dullfile", "dereference: dereference a file",
                     "dereference: End dereference dullfile"}));
  }
  EXPECT_EQ(read(&handle, 0, 10), 0);
  const CapturedStderr log(1);
  file.dereference(&handle);
  EXPECT_EQ(log.messages("dereference"),
            Lines({"dereference: begin dereference dullfile", "dereference: breakRead",
                   "dereference: breakRead End", "dereference: dereference a file",
                   "dereference: End dereference dullfile"}));
}

TEST_F(DullFileTest, SizeIsLearntByReadingAByteOnce) {
  const CapturedStderr log(2);
  EXPECT_EQ(file.getSize(), 100);
  EXPECT_EQ(log.messages("getSize"),
            Lines({"getSize: DullFile getSize", "getSize: begin to read"}));
  EXPECT_EQ(file.getSize(), 100);
  EXPECT_EQ(log.count("getSize: begin to read"), 1);
  EXPECT_EQ(log.count("getSize: DullFile getSize"), 2);
  EXPECT_TRUE(file.randomAccessable());
  EXPECT_FALSE(log.has("randomAccessable: begin to read")) << "it is known by now";
}

TEST_F(DullFileTest, SeekabilityIsLearntByReadingAByteOnce) {
  const CapturedStderr log(1);
  EXPECT_TRUE(file.randomAccessable());
  EXPECT_TRUE(file.randomAccessable());
  EXPECT_EQ(log.messages("randomAccessable"), Lines({"randomAccessable: begin to read"}));
}

TEST_F(DullFileTest, SizeOfAResourceThatFailedIsZeroAndNotAskedAgain) {
  DullFile dead(65536);
  ASSERT_TRUE(dead.open("http://127.0.0.1:" + std::to_string(support::closedPort()) + "/a"));
  EXPECT_EQ(dead.getSize(), 0);
  const CapturedStderr log(2);
  EXPECT_EQ(dead.getSize(), 0);
  EXPECT_EQ(log.messages("getSize"),
            Lines({"getSize: DullFile getSize", "getSize:  errorOccured:1"}));
  dead.randomAccessable();
  EXPECT_FALSE(log.has("randomAccessable: begin to read"));
  const CapturedStderr silent(-100);
  dead.close();
}

TEST_F(DullFileTest, BufferedSizeIsWhatIsHeldFromTheOffsetOn) {
  EXPECT_EQ(file.getBufferedSize(50), 0) << "nothing is held before the first read";
  EXPECT_EQ(read(&handle, 0, 100), 0);
  EXPECT_EQ(file.getBufferedSize(0), 100);
  EXPECT_EQ(file.getBufferedSize(99), 1);
  EXPECT_EQ(file.getBufferedSize(100), 0);
  EXPECT_EQ(file.getBufferedSize(5000), 0) << "never negative";
  EXPECT_EQ(file.getMiniBufferSeq(), 0);
}

TEST_F(DullFileTest, ErrorThatIsResetLetsTheNextReadTryAgain) {
  file.resetError();
  EXPECT_EQ(read(&handle, 0, 10), 0);
}

TEST_F(DullFileTest, EmptyFileIsNeverAsked) {
  DullFile empty(65536);
  ASSERT_TRUE(empty.open(folder.makePattern("empty", 0)));
  empty.reference(&handle);
  const CapturedStderr log(2);
  EXPECT_EQ(empty.getSize(), 0);
  EXPECT_TRUE(empty.randomAccessable());
  EXPECT_FALSE(log.has("getSize: begin to read"));
  EXPECT_FALSE(log.has("randomAccessable: begin to read"));
  {
    const util::Lock lock(empty);
    got = 77;
    EXPECT_EQ(empty.read(buffer, 10, 0, &got, &handle), -13);
  }
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(log.messages("startStreaming"), Lines());
  const CapturedStderr silent(-100);
  empty.close();
}

#if defined(FLUVIA_PAUSE_POINTS)
// The size is queried after another thread's read has moved the buffer and before it reads.
TEST_F(DullFileTest, ProbeBetweenSeekAndReadDoesNotShiftTheRead) {
  support::Pauses pauses;
  pauses.holdAt("DullFile::read moved");
  std::thread reading([&] { EXPECT_EQ(read(&handle, 50, 20), 0); });
  EXPECT_TRUE(pauses.reached("DullFile::read moved"));
  EXPECT_EQ(file.getSize(), 100);
  pauses.release("DullFile::read moved");
  reading.join();
  EXPECT_EQ(got, 20u);
  EXPECT_EQ(support::firstDifference(50, buffer, got), -1);
}
#endif

}  // namespace

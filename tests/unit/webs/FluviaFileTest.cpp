// One handle: its position, its seeks, and the rule for live streams.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "webs/FileRequest.h"
#include "webs/FluviaFile.h"

namespace {

using support::CapturedStderr;
using webs::FluviaFile;
using Lines = std::vector<std::string>;

constexpr long long kMebibyte = 1 << 20;

class FluviaFileTest : public testing::Test {
 protected:
  ~FluviaFileTest() override { close(); }
  void open(const std::string& url) {
    file = new FluviaFile(65536);
    ASSERT_TRUE(file->open(url));
  }
  void close() {
    if (file == nullptr) return;
    file->close();
    file->unuse();
    file = nullptr;
  }
  int read(unsigned int size) {
    buffer.assign(size, 'x');
    got = 77;
    return file->read(buffer.data(), size, &got);
  }
  bool right(long long offset) const {
    return support::firstDifference(static_cast<unsigned long long>(offset), buffer.data(), got) ==
           -1;
  }
  int seek(long long offset) {
    now = -77;
    return file->seek(offset, &now);
  }

  const CapturedStderr quiet{-100};
  support::TemporaryFolder folder;
  support::Watchdog watchdog{60, [] { return std::string(); }};
  FluviaFile* file = nullptr;
  std::vector<char> buffer;
  unsigned int got = 0;
  long long now = 0;
};

TEST_F(FluviaFileTest, WithoutASharedFileEverythingFails) {
  file = new FluviaFile(65536);
  EXPECT_FALSE(file->open(folder.file("missing")));
  got = 77;
  char byte = 0;
  EXPECT_EQ(file->read(&byte, 1, &got), -4);
  EXPECT_EQ(got, 77u) << "not touched";
  int id = 77;
  EXPECT_EQ(file->readAsync(&byte, 1, nullptr, nullptr, &id), -4);
  EXPECT_EQ(id, 77);
  EXPECT_EQ(file->getBufferSize(), -4);
  EXPECT_EQ(file->getBufferedSize(), -4);
  EXPECT_EQ(file->getPosition(), 0);
  EXPECT_EQ(file->getRequest(), nullptr);
  file->volatileContent();
  const CapturedStderr log(1);
  EXPECT_EQ(seek(1), -4);
  EXPECT_EQ(now, -77);
  EXPECT_EQ(file->getSize(), -4);
  EXPECT_EQ(file->cancelRead(3), -4);
  EXPECT_EQ(log.messages(), Lines({"seek: seek begin", "seek: seek fail",
                                   "getSize: fluviafile getSize", "cancelRead: cancelRead"}));
}

TEST_F(FluviaFileTest, ReadLogsAtLevelTwo) {
  open(folder.makePattern("a", 100));
  EXPECT_EQ(file->getSize(), 100);
  const CapturedStderr log(2);
  EXPECT_EQ(read(60), 0);
  EXPECT_TRUE(log.has("read: FluviaFile read: size=60, position=0, seekable=1, miniSeq=0"));
  EXPECT_TRUE(log.has("read: FluviaFile readed=60"));
}

TEST_F(FluviaFileTest, QuestionsOfTheTraceLineAreNotAskedBelowItsLevel) {
  open(folder.makePattern("a", 100));
  const CapturedStderr log(1);
  EXPECT_EQ(read(60), 0);
  EXPECT_FALSE(log.has("randomAccessable: begin to read")) << "no probe before the first read";
}

TEST_F(FluviaFileTest, OnlyGoodReadsMoveThePosition) {
  open(folder.makePattern("a", 100));
  EXPECT_EQ(read(60), 0);
  EXPECT_EQ(file->getPosition(), 60);
  EXPECT_EQ(read(60), 0);
  EXPECT_EQ(got, 40u);
  EXPECT_TRUE(right(60));
  EXPECT_EQ(file->getPosition(), 100);
  EXPECT_EQ(read(60), -13);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(file->getPosition(), 100);
  EXPECT_EQ(seek(-9), 0);
  EXPECT_EQ(read(1), -4);
  EXPECT_EQ(file->getPosition(), -9);
}

TEST_F(FluviaFileTest, SeekLogsItsSteps) {
  open(folder.makePattern("a", 100));
  EXPECT_EQ(read(60), 0);
  const CapturedStderr log(1);
  EXPECT_EQ(seek(200), 0);
  EXPECT_EQ(now, 100);
  EXPECT_EQ(
      log.messages("seek"),
      Lines({"seek: seek begin", "seek: FluviaFile-Seek : range:=140, offset=200, position=60",
             "seek: FluviaFile-getSize : 100", "seek: current Offset:=100, getsize=100",
             "seek: current position: 100", "seek: seek End"}));
  EXPECT_EQ(file->getPosition(), 100);
}

TEST_F(FluviaFileTest, DistanceOfASeekThatDoesNotFitIsTheLargestThatDoes) {
  open(folder.makePattern("a", 100));
  EXPECT_EQ(read(60), 0);
  const CapturedStderr log(1);
  EXPECT_EQ(seek(LLONG_MIN), 0);
  EXPECT_EQ(now, LLONG_MIN);
  EXPECT_TRUE(
      log.has("seek: FluviaFile-Seek : range:=-9223372036854775808, "
              "offset=-9223372036854775808, position=60"));
  EXPECT_EQ(read(1), -4);
  EXPECT_EQ(file->getBufferedSize(), 0);
  EXPECT_EQ(seek(LLONG_MAX), 0);
  EXPECT_EQ(now, 100);
  EXPECT_TRUE(
      log.has("seek: FluviaFile-Seek : range:=9223372036854775807, "
              "offset=9223372036854775807, position=-9223372036854775808"));
}

TEST_F(FluviaFileTest, SeekAnywhereInASeekableFile) {
  open(folder.makeSparse("a", 10 * kMebibyte));
  for (const long long offset :
       {5 * kMebibyte, 0LL, 10 * kMebibyte, 3 * kMebibyte, 2 * kMebibyte}) {
    EXPECT_EQ(seek(offset), 0);
    EXPECT_EQ(now, offset);
    EXPECT_EQ(file->getPosition(), offset);
  }
}

TEST_F(FluviaFileTest, PositionMovesOnlyFromWhereTheReadBegan) {
  open(folder.makePattern("a", 100));
  file->newPosMovedByDullFile(0, 10);
  EXPECT_EQ(file->getPosition(), 10);
  file->newPosMovedByDullFile(0, 20);
  EXPECT_EQ(file->getPosition(), 10) << "moved meanwhile";
}

TEST_F(FluviaFileTest, VolatileAndBufferAreTheSharedFiles) {
  open(folder.makePattern("a", 100));
  FluviaFile* other = new FluviaFile(0x200000);
  ASSERT_TRUE(other->open(folder.file("a")));
  EXPECT_EQ(other->getBufferSize(), 65536);
  EXPECT_EQ(read(10), 0);
  EXPECT_EQ(file->getBufferedSize(), 90);
  EXPECT_EQ(other->getBufferedSize(), 100) << "from its own position on";
  EXPECT_EQ(file->getRequest(), other->getRequest());
  file->volatileContent();
  other->close();
  other->unuse();
}

// --- a stream that cannot seek -----------------------------------------------------------------

class FluviaFileUnseekable : public FluviaFileTest {
 protected:
  FluviaFileUnseekable() {
    server.on("/a", support::serveUntilClose(4 * kMebibyte));
    open(server.url("/a"));
  }
  ~FluviaFileUnseekable() override { close(); }
  // Reads up to that offset.
  void readTo(long long offset) {
    while (file->getPosition() < offset) {
      const long long left = offset - file->getPosition();
      ASSERT_EQ(read(static_cast<unsigned int>(std::min(left, 100000LL))), 0);
    }
  }

  support::FaultServer server;
};

TEST_F(FluviaFileUnseekable, ForwardSeekSpansOneMebibyte) {
  EXPECT_EQ(read(10), 0);
  const CapturedStderr log(1);
  EXPECT_EQ(seek(10 + kMebibyte + 1), -12);
  EXPECT_EQ(now, 10 + kMebibyte + 1) << "reported although refused";
  EXPECT_EQ(file->getPosition(), 10);
  EXPECT_TRUE(log.has("seek: fluviafs seek busy: range:1048577, new position:1048587"));
  EXPECT_TRUE(log.has("seek: randomAccessable false and offset=1048587, miniSeq=0"));
  EXPECT_FALSE(log.has("seek: seek End"));
  EXPECT_EQ(seek(10 + kMebibyte), 0);
  EXPECT_EQ(file->getPosition(), 10 + kMebibyte);
  EXPECT_EQ(read(100), 0);
  EXPECT_TRUE(right(10 + kMebibyte));
}

TEST_F(FluviaFileUnseekable, BackwardSeekEndsInTheFirstMebibyte) {
  readTo(kMebibyte + 500000);
  EXPECT_EQ(seek(kMebibyte + 1), -12);
  EXPECT_EQ(file->getPosition(), kMebibyte + 500000);
  EXPECT_EQ(seek(kMebibyte), 0);
  EXPECT_EQ(file->getPosition(), kMebibyte);
}

TEST_F(FluviaFileUnseekable, LiveRuleAddsTheOldestOffsetToThePosition) {
  readTo(300000);
  EXPECT_EQ(seek(10), 0);
  const CapturedStderr log(0);
  EXPECT_EQ(read(100), 0);
  EXPECT_EQ(got, 100u);
  EXPECT_TRUE(log.has("read: fluviaFile : read: liveflag = true"));
  const long long began = file->getPosition() - 100;
  EXPECT_GT(began, 10) << "the oldest offset was added";
  EXPECT_EQ((began - 10) % 32768, 0);
  EXPECT_TRUE(right(began));
}

TEST_F(FluviaFileUnseekable, LiveRuleNeedsASeekBelowTheOldestOffset) {
  readTo(300000);
  EXPECT_EQ(seek(300010), 0);
  const CapturedStderr log(0);
  EXPECT_EQ(read(100), 0);
  EXPECT_FALSE(log.has("read: fluviaFile : read: liveflag = true"));
  EXPECT_TRUE(right(300010));
}

}  // namespace

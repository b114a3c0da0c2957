// The file entry points as a caller sees them: results and log lines, in order.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <regex>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"
#include "tests/unit/api/ApiCalls.h"

namespace {

using support::CapturedStderr;

class FileApi : public ApiCalls {};

TEST_F(FileApi, TwinLogsUnderTheOtherName) {
  EXPECT_EQ(linesOf(0, [] { c_fluvia_file_size(300); }),
            Lines({"x_fluvia_file_size: INVALID_HANDLE"}));
}

TEST_F(FileApi, NullArgumentsOfOpenAreRefused) {
  int handle = 42;
  EXPECT_EQ(linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_open(nullptr, &handle), -4); }),
            Lines({"x_fluvia_file_open: Begin x_fluvia_file_open(url: (null))",
                   "x_fluvia_file_open: NULL POINT"}));
  EXPECT_EQ(handle, 42);
  EXPECT_EQ(linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_open("/a", nullptr), -4); }),
            Lines({"x_fluvia_file_open: Begin x_fluvia_file_open(url: /a)",
                   "x_fluvia_file_open: NULL POINT"}));
  EXPECT_EQ(x_fluvia_file_open_x(nullptr, &handle, 1), -4);
}

TEST_F(FileApi, UrlsWithAnotherBeginningAreRefused) {
  for (const char* url : {"", "file.txt", "ftp://a", "file:///a", "http:/a", " http://a"}) {
    int handle = 42;
    EXPECT_EQ(linesOf(-1, [&] { EXPECT_EQ(x_fluvia_file_open(url, &handle), -4); }),
              Lines({"x_fluvia_file_open: url is invalid"}))
        << url;
    EXPECT_EQ(handle, 42);
  }
}

TEST_F(FileApi, SchemeInCapitalsPassesOpenAndIsAMissingFile) {
  const int handle = open("HTTP://127.0.0.1/a");
  EXPECT_EQ(x_fluvia_file_size(handle), -4);
  close(handle);
}

TEST_F(FileApi, DefaultLevelPrintsPoolAndCancelLines) {
  const std::string path = folder.makePattern("a", 10);
  const CapturedStderr captured(-4);
  int handle = 0;
  ASSERT_EQ(x_fluvia_file_open(path.c_str(), &handle), 0);
  char buffer[10];
  unsigned int got = 0;
  ASSERT_EQ(x_fluvia_file_read(handle, buffer, 10, &got), 0);
  ASSERT_EQ(x_fluvia_file_close(handle), 0);
  std::string text;
  for (const std::string& line : captured.messages()) text += line + "\n";
  EXPECT_TRUE(std::regex_match(
      text, std::regex("claimPool: BufferBlockPoolManager\\(0x\\w+\\), create pool\\(0x\\w+\\)\n"
                       "cancelRead: cancelRead, reqID:0\n"
                       "declaimPool: declaimPool, pool->dereferencount\\(\\) = 1\n"
                       "declaimPool: BufferBlockPoolManager\\(0x\\w+\\), delete pool\\(0x\\w+\\) "
                       "from poollist\n"
                       "declaimPool: BufferBlockPoolManager\\(0x\\w+\\), release pool\\(0x\\w+\\) "
                       "memory, delete block : 1\n"
                       "~BufferQueue: BufferQueue\\(0x\\w+\\) poolManagersize:0\n")))
      << text;
}

TEST_F(FileApi, ThirtyTwoMebibytesOfBlocksAreFreedInsteadOfPooled) {
  std::vector<int> handles;
  for (int i = 0; i < 16; ++i) {
    handles.push_back(open(folder.makePattern(std::to_string(i), 10)));
  }
  const CapturedStderr captured(-4);
  EXPECT_EQ(x_fluvia_file_close(handles.back()), 0);
  EXPECT_NE(captured.text().find(") deleck block count:64\n"), std::string::npos);
  handles.pop_back();
  EXPECT_EQ(x_fluvia_file_close(handles.back()), 0);
  handles.pop_back();
  EXPECT_EQ(captured.text().find("deleck", captured.text().find("deleck") + 1), std::string::npos);
  for (const int handle : handles) x_fluvia_file_close(handle);
}

TEST_F(FileApi, MissingFileOpensAndThenFails) {
  int handle = 0;
  {
    const CapturedStderr captured(-4);
    EXPECT_EQ(x_fluvia_file_open(folder.file("missing").c_str(), &handle), 0);
    EXPECT_EQ(captured.messages().size(), 1u);
    EXPECT_NE(captured.text().find("poolManagersize:0"), std::string::npos);
  }
  char buffer[4];
  unsigned int got = 77;
  int id = 77;
  long long now = 77;
  EXPECT_EQ(x_fluvia_file_read(handle, buffer, 4, &got), -4);
  EXPECT_EQ(got, 77u);
  EXPECT_EQ(x_fluvia_file_read_async(handle, buffer, 4, nullptr, nullptr, &id), -4);
  EXPECT_EQ(id, 77);
  EXPECT_EQ(x_fluvia_file_seek(handle, 1, &now), -4);
  EXPECT_EQ(now, 77);
  EXPECT_EQ(x_fluvia_file_size(handle), -4);
  EXPECT_EQ(x_fluvia_file_offset(handle), 0);
  EXPECT_EQ(x_fluvia_file_bufferSize(handle), -4);
  EXPECT_EQ(x_fluvia_file_bufferedSize(handle), -4);
  EXPECT_EQ(x_fluvia_file_volatile(handle), 0);
  {
    const CapturedStderr captured(1);
    EXPECT_EQ(x_fluvia_file_read_abort(handle, 5), -4);
    EXPECT_EQ(captured.messages(),
              Lines({"x_fluvia_file_read_abort: before x_fluvia_file_read_abort(handle: 1, reqID: "
                     "5)",
                     "cancelRead: cancelRead",
                     "x_fluvia_file_read_abort: end x_fluvia_file_read_abort"}));
  }
  EXPECT_EQ(x_fluvia_file_close(handle), 0);
}

TEST_F(FileApi, DirectoryAndFifoAreNoFiles) {
  for (const std::string& path : {folder.path(), folder.file("fifo")}) {
    if (path != folder.path()) {
      ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    }
    const int handle = open(path);
    EXPECT_EQ(x_fluvia_file_size(handle), -4) << path;
    close(handle);
  }
}

TEST_F(FileApi, BufferSizeIsReportedInWholeBlocks) {
  const std::string path = folder.makePattern("a", 10);
  const int sizes[][2] = {{0, 0},          {1, 0},           {-1, 0},          {32767, 0},
                          {-32767, 0},     {32768, 32768},   {40000, 32768},   {65536, 65536},
                          {100000, 98304}, {-40000, -32768}, {-32768, -32768}, {INT_MIN, INT_MIN}};
  for (const auto& size : sizes) {
    const int handle = open(path, size[0]);
    EXPECT_EQ(x_fluvia_file_bufferSize(handle), size[1]) << size[0];
    close(handle);
  }
  const int first = open(path);
  const int second = open(path, 65536);
  EXPECT_EQ(x_fluvia_file_bufferSize(first), 2097152);
  EXPECT_EQ(x_fluvia_file_bufferSize(second), 2097152) << "the first handle's buffer is shared";
  close(first);
  close(second);
}

TEST_F(FileApi, ReadsUpToTheEndAndThenReportsIt) {
  const int handle = open(folder.makePattern("a", 100));
  char buffer[60];
  unsigned int got = 77;
  EXPECT_EQ(x_fluvia_file_bufferedSize(handle), 0) << "nothing before the first read";
  EXPECT_EQ(x_fluvia_file_read(handle, buffer, 60, &got), 0);
  EXPECT_EQ(got, 60u);
  EXPECT_EQ(x_fluvia_file_offset(handle), 60);
  EXPECT_EQ(x_fluvia_file_bufferedSize(handle), 40);
  EXPECT_EQ(x_fluvia_file_read(handle, buffer, 60, &got), 0);
  EXPECT_EQ(got, 40u);
  EXPECT_EQ(support::firstDifference(60, buffer, 40), -1);
  got = 77;
  EXPECT_EQ(x_fluvia_file_read(handle, buffer, 60, &got), -13);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(x_fluvia_file_offset(handle), 100);
  EXPECT_EQ(x_fluvia_file_read(handle, buffer, 0, &got), -13);
  close(handle);
}

TEST_F(FileApi, ReadOfNothingSucceedsBeforeTheEnd) {
  const int handle = open(folder.makePattern("a", 100));
  unsigned int got = 77;
  EXPECT_EQ(x_fluvia_file_read(handle, nullptr, 0, &got), 0);
  EXPECT_EQ(got, 0u);
  close(handle);
}

TEST_F(FileApi, ReadLogsItsSizeAndResult) {
  const int handle = open(folder.makePattern("a", 100));
  char buffer[10];
  unsigned int got = 0;
  EXPECT_EQ(linesOf(1, [&] { x_fluvia_file_read(handle, buffer, 10, &got); }),
            Lines({"x_fluvia_file_read: befor x_fluvia_file_read(handle: 1, size: 10)",
                   "x_fluvia_file_read: end x_fluvia_file_read : 0"}));
  close(handle);
}

TEST_F(FileApi, SizeLogsAndDoesNotMoveTheOffset) {
  const int handle = open(folder.makePattern("a", 100));
  const CapturedStderr captured(0);
  EXPECT_EQ(x_fluvia_file_size(handle), 100);
  EXPECT_EQ(x_fluvia_file_offset(handle), 0);
  EXPECT_TRUE(captured.has("x_fluvia_file_size: x_fluvia_file_size begin(handle: 1)"));
  EXPECT_TRUE(captured.has("getSize: fluviafile getSize"));
  EXPECT_TRUE(captured.has("x_fluvia_file_size: x_fluvia_file_size end(size: 100)"));
  x_fluvia_file_close(handle);
}

TEST_F(FileApi, SeekClampsToTheEndAndReportsIt) {
  const int handle = open(folder.makePattern("a", 100));
  char buffer[10];
  unsigned int got = 0;
  long long now = 77;
  for (const long long offset : {0LL, 50LL, 100LL}) {
    EXPECT_EQ(x_fluvia_file_seek(handle, offset, &now), 0);
    EXPECT_EQ(now, offset);
    EXPECT_EQ(x_fluvia_file_offset(handle), offset);
  }
  EXPECT_EQ(x_fluvia_file_read(handle, buffer, 10, &got), -13);
  EXPECT_EQ(x_fluvia_file_seek(handle, 101, &now), 0);
  EXPECT_EQ(now, 100);
  EXPECT_EQ(x_fluvia_file_offset(handle), 100);
  EXPECT_EQ(linesOf(0, [&] { x_fluvia_file_seek(handle, 20, &now); }),
            Lines({"x_fluvia_file_seek: x_fluvia_file_seek begin(handle: 1, offset: 20)",
                   "x_fluvia_file_seek: x_fluvia_file_seek end(curOffset: 20)"}));
  close(handle);
}

TEST_F(FileApi, NegativeSeekSucceedsAndItsReadFails) {
  const int handle = open(folder.makePattern("a", 100));
  char buffer[10];
  unsigned int got = 77;
  long long now = 77;
  EXPECT_EQ(x_fluvia_file_seek(handle, -5, &now), 0);
  EXPECT_EQ(now, -5);
  EXPECT_EQ(x_fluvia_file_offset(handle), -5);
  {
    const CapturedStderr captured(1);
    EXPECT_EQ(x_fluvia_file_read(handle, buffer, 10, &got), -4);
    EXPECT_TRUE(captured.has("read: move position failed before read"));
  }
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(x_fluvia_file_offset(handle), -5);
  EXPECT_EQ(x_fluvia_file_seek(handle, 0, &now), 0);
  EXPECT_EQ(x_fluvia_file_read(handle, buffer, 10, &got), 0);
  close(handle);
}

TEST_F(FileApi, EmptyFileEndsAtOnceOnEveryWay) {
  const std::string path = folder.makePattern("a", 0);
  const int handle = open(path);
  const int second = open(path);
  char buffer[4];
  unsigned int got = 77;
  long long now = 77;
  EXPECT_EQ(x_fluvia_file_size(handle), 0);
  EXPECT_EQ(x_fluvia_file_read(second, buffer, 4, &got), -13);
  EXPECT_EQ(got, 0u);
  {
    const CapturedStderr captured(0);
    EXPECT_EQ(x_fluvia_file_seek(handle, 0, &now), -4);
    EXPECT_TRUE(captured.has("seek: lseek in a 0 size of file"));
    EXPECT_TRUE(captured.has("x_fluvia_file_seek: x_fluvia_file_seek end(curOffset: 77)"));
  }
  EXPECT_EQ(now, 77);
  support::Completions done;
  int id = 0;
  EXPECT_EQ(
      x_fluvia_file_read_async(handle, buffer, 4, &support::Completions::completed, &done, &id), 0);
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_EQ(done.calls()[0].status, 4);
  EXPECT_EQ(done.calls()[0].bytes, 0);
  close(handle);
  close(second);
}

TEST_F(FileApi, VolatileChangesNothingOfSharing) {
  const std::string path = folder.makePattern("a", 100);
  const int first = open(path);
  EXPECT_EQ(x_fluvia_file_volatile(first), 0);
  const CapturedStderr captured(1);
  int second = 0;
  EXPECT_EQ(x_fluvia_file_open(path.c_str(), &second), 0);
  EXPECT_TRUE(
      captured.has("openDullFile: have got a existing dull file because this file is seekable and "
                   "non-volatile"));
  x_fluvia_file_close(first);
  x_fluvia_file_close(second);
}

TEST_F(FileApi, PathsThatDifferInCaseAreTwoFiles) {
  const std::string lower = folder.makePattern("a", 100, 0);
  const std::string upper = folder.makePattern("A", 100, 500);
  const int first = open(lower);
  const int second = open(upper);
  char buffer[10];
  unsigned int got = 0;
  EXPECT_EQ(x_fluvia_file_read(first, buffer, 10, &got), 0);
  EXPECT_EQ(support::firstDifference(0, buffer, got), -1);
  EXPECT_EQ(x_fluvia_file_read(second, buffer, 10, &got), 0);
  EXPECT_EQ(support::firstDifference(500, buffer, got), -1);
  close(first);
  close(second);
}

TEST_F(FileApi, DumpBufferPrintsOnlyAtLevelThree) {
  const int handle = open(folder.makePattern("a", 100));
  char buffer[10];
  unsigned int got = 0;
  x_fluvia_file_read(handle, buffer, 10, &got);
  {
    const CapturedStderr captured(2);
    EXPECT_EQ(x_fluvia_file_dump_buffer(nullptr, nullptr), 0);
    EXPECT_EQ(captured.ownMessages(), Lines());
  }
  {
    const CapturedStderr captured(3);
    EXPECT_EQ(x_fluvia_file_dump_buffer(nullptr, nullptr), 0);
    EXPECT_TRUE(captured.has("dumpBuffer: begin to dump buffer"));
    EXPECT_TRUE(captured.has("dumpBuffer: s  0:         0 ~       100"));
  }
  close(handle);
  const CapturedStderr captured(3);
  EXPECT_EQ(x_fluvia_file_dump_buffer(nullptr, nullptr), 0);
  EXPECT_EQ(captured.ownMessages(), Lines()) << "no file is open";
}

}  // namespace

// What a caller sees of each entry point of the handle table: results and log lines, in order.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <functional>
#include <regex>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"

namespace {

using Lines = std::vector<std::string>;
using support::CapturedStderr;

class Api : public testing::Test {
 protected:
  // A handle on path, opened quietly.
  int open(const std::string& path, int bufferSize = 0x200000) {
    const CapturedStderr quiet(-100);
    int handle = 0;
    EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, bufferSize), 0);
    return handle;
  }
  int openMissing() { return open(folder.file("missing")); }
  void close(int handle) {
    const CapturedStderr quiet(-100);
    EXPECT_EQ(x_fluvia_file_close(handle), 0);
  }

  support::TemporaryFolder folder;
};

// The lines of one call at a level, of the functions whose names begin with x_fluvia.
Lines linesOf(int level, const std::function<void()>& call) {
  const CapturedStderr captured(level);
  call();
  Lines lines;
  for (const std::string& line : captured.messages()) {
    if (line.compare(0, 8, "x_fluvia") == 0) lines.push_back(line);
  }
  return lines;
}

TEST_F(Api, LineHasPrefixTextAndEmptyLineAfterATextThatEndsInOne) {
  const CapturedStderr captured(0);
  x_fluvia_file_offset(0);
  EXPECT_TRUE(std::regex_match(
      captured.text(),
      std::regex("\\[FluviaFS\\]\\[00:\\d+:\\d{1,3}\\]\\[\\d+\\]\\[x_fluvia_file_offset\\]\\[\\d+"
                 "\\]-------INVALID_HANDLE\n\n")))
      << captured.text();
}

TEST_F(Api, TwinLogsUnderTheOtherName) {
  EXPECT_EQ(linesOf(0, [] { c_fluvia_file_size(300); }),
            Lines({"x_fluvia_file_size: INVALID_HANDLE"}));
}

// Every entry point that takes a handle, with its result for a handle that cannot be one.
struct Entry {
  const char* name;
  std::function<long long(int)> call;
  Lines before;  // lines that come before the refusal
};

std::vector<Entry> entries() {
  static char buffer[16];
  static unsigned int got;
  static int id;
  static long long now;
  const auto ignore = [](int, void*, int, int) {};
  return {
      {"x_fluvia_file_close",
       [](int h) { return x_fluvia_file_close(h); },
       {"x_fluvia_file_close: Begin x_fluvia_file_close (handle: %)"}},
      {"x_fluvia_file_volatile", [](int h) { return x_fluvia_file_volatile(h); }, {}},
      {"x_fluvia_file_read", [](int h) { return x_fluvia_file_read(h, buffer, 16, &got); }, {}},
      {"x_fluvia_file_read_async",
       [ignore](int h) { return x_fluvia_file_read_async(h, buffer, 16, ignore, nullptr, &id); },
       {}},
      {"x_fluvia_file_read_abort", [](int h) { return x_fluvia_file_read_abort(h, 1); }, {}},
      {"x_fluvia_file_seek",
       [](int h) { return x_fluvia_file_seek(h, 5, &now); },
       {"x_fluvia_file_seek: x_fluvia_file_seek begin(handle: %, offset: 5)"}},
      {"x_fluvia_file_offset", [](int h) { return x_fluvia_file_offset(h); }, {}},
      {"x_fluvia_file_size", [](int h) { return x_fluvia_file_size(h); }, {}},
      {"x_fluvia_file_bufferSize", [](int h) { return x_fluvia_file_bufferSize(h); }, {}},
      {"x_fluvia_file_bufferedSize", [](int h) { return x_fluvia_file_bufferedSize(h); }, {}},
  };
}

TEST_F(Api, HandleOutOfRangeIsRefusedByEveryEntryPoint) {
  for (const Entry& entry : entries()) {
    for (const int handle : {0, 256, -1}) {
      Lines wanted = entry.before;
      for (std::string& line : wanted) {
        const size_t mark = line.find('%');
        line.replace(mark, 1, std::to_string(handle));
      }
      wanted.push_back(std::string(entry.name) + ": INVALID_HANDLE");
      long long result = 0;
      EXPECT_EQ(linesOf(0, [&] { result = entry.call(handle); }), wanted);
      EXPECT_EQ(result, -4) << entry.name << " of " << handle;
    }
  }
}

TEST_F(Api, HandleThatIsNotOpenIsRefusedByEveryEntryPoint) {
  for (const Entry& entry : entries()) {
    long long result = 0;
    const Lines lines = linesOf(3, [&] { result = entry.call(77); });
    EXPECT_EQ(result, -4) << entry.name;
    const std::string name = entry.name;
    if (name == "x_fluvia_file_close") {
      EXPECT_EQ(lines, Lines({name + ": Begin x_fluvia_file_close (handle: 77)",
                              name + ": x_fluvia_file_close exit"}));
    } else if (name == "x_fluvia_file_seek") {
      EXPECT_EQ(lines, Lines({name + ": x_fluvia_file_seek begin(handle: 77, offset: 5)",
                              name + ": x_fluvia_file_seek end(FVFR_FAILED)"}));
    } else if (name == "x_fluvia_file_size") {
      EXPECT_EQ(lines, Lines({name + ": x_fluvia_file_size begin(handle: 77)"}));
    } else if (name == "x_fluvia_file_read_abort") {
      EXPECT_EQ(lines, Lines({name + ": before x_fluvia_file_read_abort(handle: 77, reqID: 1)"}));
    } else {
      EXPECT_EQ(lines, Lines()) << name;
    }
  }
}

TEST_F(Api, OpenLogsAndHandsOutTheLowestFreeHandle) {
  const std::string path = folder.makePattern("a", 10);
  int handle = 0;
  EXPECT_EQ(linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_open(path.c_str(), &handle), 0); }),
            Lines({"x_fluvia_file_open: Begin x_fluvia_file_open(url: " + path + ")",
                   "x_fluvia_file_open: End x_fluvia_file_open(handle: 1)"}));
  EXPECT_EQ(handle, 1);
  const int second = open(path);
  EXPECT_EQ(second, 2);
  close(1);
  EXPECT_EQ(
      linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, 7), 0); }),
      Lines({"x_fluvia_file_open_x: Begin x_fluvia_file_open_x(url: " + path + ", buffersize: 7)",
             "x_fluvia_file_open_x: End x_fluvia_file_open_x(handle: 1)"}));
  close(1);
  close(2);
}

TEST_F(Api, NullArgumentsOfOpenAreRefused) {
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

TEST_F(Api, UrlsWithAnotherBeginningAreRefused) {
  for (const char* url : {"", "file.txt", "ftp://a", "file:///a", "http:/a", " http://a"}) {
    int handle = 42;
    EXPECT_EQ(linesOf(-1, [&] { EXPECT_EQ(x_fluvia_file_open(url, &handle), -4); }),
              Lines({"x_fluvia_file_open: url is invalid"}))
        << url;
    EXPECT_EQ(handle, 42);
  }
}

TEST_F(Api, SchemeInCapitalsPassesOpenAndIsAMissingFile) {
  const int handle = open("HTTP://127.0.0.1/a");
  EXPECT_EQ(x_fluvia_file_size(handle), -4);
  close(handle);
}

TEST_F(Api, CloseLogsTwiceOnlyOnce) {
  const int handle = open(folder.makePattern("a", 10));
  EXPECT_EQ(linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_close(handle), 0); }),
            Lines({"x_fluvia_file_close: Begin x_fluvia_file_close (handle: 1)",
                   "x_fluvia_file_close: End x_fluvia_file_close"}));
  EXPECT_EQ(linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_close(handle), -4); }),
            Lines({"x_fluvia_file_close: Begin x_fluvia_file_close (handle: 1)",
                   "x_fluvia_file_close: x_fluvia_file_close exit"}));
}

TEST_F(Api, DefaultLevelPrintsPoolAndCancelLines) {
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

TEST_F(Api, ThirtyTwoMebibytesOfBlocksAreFreedInsteadOfPooled) {
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

TEST_F(Api, MissingFileOpensAndThenFails) {
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

TEST_F(Api, DirectoryAndFifoAreNoFiles) {
  for (const std::string& path : {folder.path(), folder.file("fifo")}) {
    if (path != folder.path()) {
      ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    }
    const int handle = open(path);
    EXPECT_EQ(x_fluvia_file_size(handle), -4) << path;
    close(handle);
  }
}

TEST_F(Api, BufferSizeIsReportedInWholeBlocks) {
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

TEST_F(Api, ReadsUpToTheEndAndThenReportsIt) {
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

TEST_F(Api, ReadOfNothingSucceedsBeforeTheEnd) {
  const int handle = open(folder.makePattern("a", 100));
  unsigned int got = 77;
  EXPECT_EQ(x_fluvia_file_read(handle, nullptr, 0, &got), 0);
  EXPECT_EQ(got, 0u);
  close(handle);
}

TEST_F(Api, ReadLogsItsSizeAndResult) {
  const int handle = open(folder.makePattern("a", 100));
  char buffer[10];
  unsigned int got = 0;
  EXPECT_EQ(linesOf(1, [&] { x_fluvia_file_read(handle, buffer, 10, &got); }),
            Lines({"x_fluvia_file_read: befor x_fluvia_file_read(handle: 1, size: 10)",
                   "x_fluvia_file_read: end x_fluvia_file_read : 0"}));
  close(handle);
}

TEST_F(Api, SizeLogsAndDoesNotMoveTheOffset) {
  const int handle = open(folder.makePattern("a", 100));
  const CapturedStderr captured(0);
  EXPECT_EQ(x_fluvia_file_size(handle), 100);
  EXPECT_EQ(x_fluvia_file_offset(handle), 0);
  EXPECT_TRUE(captured.has("x_fluvia_file_size: x_fluvia_file_size begin(handle: 1)"));
  EXPECT_TRUE(captured.has("getSize: fluviafile getSize"));
  EXPECT_TRUE(captured.has("x_fluvia_file_size: x_fluvia_file_size end(size: 100)"));
  x_fluvia_file_close(handle);
}

TEST_F(Api, SeekClampsToTheEndAndReportsIt) {
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

TEST_F(Api, NegativeSeekSucceedsAndItsReadFails) {
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

TEST_F(Api, EmptyFileEndsAtOnceOnEveryWay) {
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

TEST_F(Api, VolatileChangesNothingOfSharing) {
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

TEST_F(Api, PathsThatDifferInCaseAreTwoFiles) {
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

TEST_F(Api, DumpBufferPrintsOnlyAtLevelThree) {
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

TEST_F(Api, LevelsAreStoredUnchecked) {
  const CapturedStderr captured(-4);
  for (const int level : {0, 3, 99, INT_MIN, INT_MAX}) {
    x_fluvia_file_set_log_level(level);
    EXPECT_EQ(x_fluvia_file_get_log_level(), level);
    EXPECT_EQ(c_fluvia_file_get_log_level(), level);
  }
  x_fluvia_file_set_log_level(INT_MIN);
  int handle = 0;
  x_fluvia_file_open("bad", &handle);
  EXPECT_EQ(captured.text(), "");
  x_fluvia_file_disable_log();
  EXPECT_EQ(x_fluvia_file_get_log_level(), -1);
  x_fluvia_file_open("bad", &handle);
  x_fluvia_file_offset(0);
  EXPECT_EQ(captured.messages(), Lines({"x_fluvia_file_open: url is invalid"}));
}

}  // namespace

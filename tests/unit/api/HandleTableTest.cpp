// The handle numbers that opens return, and the handles that every entry point refuses.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"
#include "tests/unit/api/ApiCalls.h"

namespace {

constexpr int kMostHandles = 255;
constexpr int kBuffer = 65536;

using Lines = std::vector<std::string>;

class HandleTableTest : public ApiCalls {};

TEST_F(HandleTableTest, OpenLogsAndHandsOutTheLowestFreeHandle) {
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

TEST_F(HandleTableTest, CloseLogsTwiceOnlyOnce) {
  const int handle = open(folder.makePattern("a", 10));
  EXPECT_EQ(linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_close(handle), 0); }),
            Lines({"x_fluvia_file_close: Begin x_fluvia_file_close (handle: 1)",
                   "x_fluvia_file_close: End x_fluvia_file_close"}));
  EXPECT_EQ(linesOf(0, [&] { EXPECT_EQ(x_fluvia_file_close(handle), -4); }),
            Lines({"x_fluvia_file_close: Begin x_fluvia_file_close (handle: 1)",
                   "x_fluvia_file_close: x_fluvia_file_close exit"}));
}

// Every entry point that takes a handle, with its result for an impossible handle.
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

TEST_F(HandleTableTest, HandleOutOfRangeIsRefusedByEveryEntryPoint) {
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

TEST_F(HandleTableTest, HandleThatIsNotOpenIsRefusedByEveryEntryPoint) {
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

TEST_F(HandleTableTest, OneTooManyIsRefusedUntilAnotherIsClosed) {
  const std::string path = folder.makePattern("a", 10);
  std::vector<int> handles;
  int handle = 0;
  while (handles.size() < kMostHandles &&
         x_fluvia_file_open_x(path.c_str(), &handle, kBuffer) == FVFR_OK) {
    handles.push_back(handle);
  }
  ASSERT_EQ(handles.size(), static_cast<size_t>(kMostHandles));
  {
    const support::CapturedStderr captured(0);
    EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, kBuffer), FVFR_FAILED);
    EXPECT_NE(captured.text().find("open too many file, exceed the limitation 255"),
              std::string::npos);
  }
  const int freed = handles[100];
  EXPECT_EQ(x_fluvia_file_close(freed), FVFR_OK);
  ASSERT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, kBuffer), FVFR_OK);
  EXPECT_EQ(handle, freed) << "the only free number";
  for (const int each : handles) close(each);
}

TEST_F(HandleTableTest, TwoHundredFiftyFiveHandlesOnAsManyPaths) {
  std::vector<int> handles;
  for (unsigned int i = 0; i < 255; ++i) {
    handles.push_back(open(folder.makePattern(std::to_string(i), 70000, i * 1000000ULL), kBuffer));
  }
  for (unsigned int i = 0; i < 255; ++i) {
    std::vector<char> buffer(70000);
    unsigned int got = 0;
    ASSERT_EQ(x_fluvia_file_read(handles[i], buffer.data(), 70000, &got), 0);
    ASSERT_EQ(got, 70000u);
    ASSERT_EQ(support::firstDifference(i * 1000000ULL, buffer.data(), got), -1);
  }
  for (const int handle : handles) close(handle);
}

}  // namespace

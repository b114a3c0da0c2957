// Measures how the time of an operation grows with open handles, blocks of a buffer and queued
// requests.
//
// Writes lines "variable,operation,count,microseconds". Prints the times, and where one grows
// faster than the count. Returns the number of operations that do.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FaultServer.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/TestFiles.h"

namespace {

constexpr int kBlock = FVFR_BUFFER_BLOCK;
// A shorter time is only the cost of the call.
constexpr double kFloorMicroseconds = 1.0;
// How much faster than the count a time may grow from one count to the next: caches get cold, and
// clocks are coarse.
constexpr double kTolerance = 1.5;
// The number of measured operations; fewer means that something was left out.
constexpr size_t kOperations = 12;

FILE* table = nullptr;
// By variable and operation: count and the least microseconds.
std::map<std::string, std::vector<std::pair<int, double>>> measured;

double now() {
  return std::chrono::duration<double, std::micro>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// The times of some rounds, in microseconds: the value for a picture, and the cost of an operation
// when no other process uses the processor.
struct Times {
  double median;
  double least;
};

Times summaryOf(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2], times.front()};
}

// Returns the times of one of count calls, over some rounds.
Times timeOf(int rounds, int calls, const std::function<void(int)>& call) {
  std::vector<double> times;
  for (int round = 0; round < rounds; ++round) {
    const double begin = now();
    for (int i = 0; i < calls; ++i) call(i);
    times.push_back((now() - begin) / calls);
  }
  return summaryOf(times);
}

void note(const char* variable, const char* operation, int count, const Times& times) {
  fprintf(table, "%s,%s,%d,%.3f\n", variable, operation, count, times.median);
  measured[std::string(variable) + ", " + operation].push_back({count, times.least});
}

void require(bool ok, const char* what) {
  if (ok) return;
  printf("%s failed\n", what);
  exit(100);
}

int openFile(const std::string& path, int bufferSize) {
  int handle = 0;
  require(x_fluvia_file_open_x(path.c_str(), &handle, bufferSize) == FVFR_OK, "open");
  return handle;
}

void readAt(int handle, long long offset, char* bytes, unsigned int size) {
  long long at = 0;
  unsigned int got = 0;
  require(x_fluvia_file_seek(handle, offset, &at) == FVFR_OK, "seek");
  require(x_fluvia_file_read(handle, bytes, size, &got) == FVFR_OK && got == size, "read");
}

void readAsync(int handle, char* bytes, unsigned int size) {
  support::Completions done;
  int id = 0;
  require(x_fluvia_file_read_async(handle, bytes, size, &support::Completions::completed, &done,
                                   &id) == FVFR_OK,
          "read_async");
  require(done.waitFor(1, 30), "completion");
}

void overHandles(const support::TemporaryFolder& folder) {
  constexpr long long kSize = 20000;
  std::vector<int> handles;
  char bytes[1024];
  for (const int count : {1, 16, 64, 254}) {
    while (static_cast<int>(handles.size()) < count) {
      const std::string path = folder.makePattern("h" + std::to_string(handles.size()), kSize);
      handles.push_back(openFile(path, 2 * kBlock));
      readAt(handles.back(), 0, bytes, sizeof bytes);
    }
    const int last = handles.back();
    const std::string more = folder.file("h" + std::to_string(count));
    const auto each = [&](const char* name, int calls, const std::function<void(int)>& call) {
      note("handles", name, count, timeOf(9, calls, call));
    };
    each("seek and read 1 KiB", 300, [&](int i) { readAt(last, i % 19000, bytes, 1000); });
    each("size", 1000, [&](int) { x_fluvia_file_size(last); });
    each("bufferedSize", 1000, [&](int) { x_fluvia_file_bufferedSize(last); });
    each("asynchronous read", 100, [&](int i) {
      long long at = 0;
      x_fluvia_file_seek(last, i, &at);
      readAsync(last, bytes, 1000);
    });
    folder.makePattern("h" + std::to_string(count), kSize);
    each("open and close", 30, [&](int) { x_fluvia_file_close(openFile(more, 2 * kBlock)); });
  }
  for (const int handle : handles) x_fluvia_file_close(handle);
}

void overBlocks(const support::TemporaryFolder& folder) {
  std::vector<char> bytes(1 << 20);
  for (const int count : {2, 16, 64, 256, 1024, 4096}) {
    const long long size = static_cast<long long>(count) * kBlock;
    const int handle = openFile(folder.makePattern("b", size), count * kBlock);
    for (long long at = 0; at < size; at += kBlock) readAt(handle, at, bytes.data(), kBlock);
    std::mt19937 random(1);
    const auto each = [&](const char* name, int calls, const std::function<void(int)>& call) {
      note("blocks", name, count, timeOf(9, calls, call));
    };
    const auto anywhere = [&] {
      return static_cast<long long>(random() % static_cast<unsigned long long>(size - 1024));
    };
    each("read 1 KiB anywhere", 200, [&](int) { readAt(handle, anywhere(), bytes.data(), 1024); });
    each("read on 1 KiB", 60, [&](int i) { readAt(handle, i * 1000, bytes.data(), 1024); });
    long long at = 0;
    x_fluvia_file_seek(handle, 0, &at);
    each("bufferedSize", 200, [&](int) { x_fluvia_file_bufferedSize(handle); });
    x_fluvia_file_close(handle);
  }
}

void ignore(int, void*, int, int) {}

void overRequests() {
  support::FaultServer server;
  server.on("/stalled", support::stallAfter(1000000, 1000));
  server.on("/sound", support::serveRanges(1000000));
  std::vector<char> bytes(1000);
  for (const int count : {1, 16, 64, 255, 500}) {
    std::vector<double> issue;
    std::vector<double> abort;
    std::vector<double> close;
    std::vector<double> other;
    for (int round = 0; round < 9; ++round) {
      const int handle = openFile(server.url("/stalled"), 2 * kBlock);
      // The first keeps the file busy: all others queue behind it.
      std::vector<char> large(20000);
      int id = 0;
      x_fluvia_file_read_async(handle, large.data(), 20000, &ignore, nullptr, &id);
      std::vector<int> ids(static_cast<size_t>(count));
      double last = 0;
      for (int& each : ids) {
        const double begin = now();
        x_fluvia_file_read_async(handle, bytes.data(), 1000, &ignore, nullptr, &each);
        last = now() - begin;
      }
      issue.push_back(last);
      const int sound = openFile(server.url("/sound"), 2 * kBlock);
      readAt(sound, 0, bytes.data(), 1000);
      other.push_back(timeOf(3, 10, [&](int) { readAsync(sound, bytes.data(), 1000); }).least);
      x_fluvia_file_close(sound);
      const double aborting = now();
      x_fluvia_file_read_abort(handle, ids.back());
      abort.push_back(now() - aborting);
      const double closing = now();
      x_fluvia_file_close(handle);
      close.push_back(now() - closing);
    }
    note("requests", "asynchronous read asked for", count, summaryOf(issue));
    note("requests", "abort of the last", count, summaryOf(abort));
    note("requests", "close of their handle", count, summaryOf(close));
    note("requests", "asynchronous read of another handle", count, summaryOf(other));
  }
}

// Judges each step by itself: over all of them a fixed cost would hide the growth.
bool growsFaster(const std::vector<std::pair<int, double>>& points) {
  bool faster = false;
  for (size_t i = 1; i < points.size(); ++i) {
    const auto& [fewer, before] = points[i - 1];
    const auto& [more, after] = points[i];
    const double factor = static_cast<double>(more) / fewer;
    const double grown = after / std::max(before, kFloorMicroseconds);
    if (grown <= factor * kTolerance) continue;
    printf("  grows by %.1f from %d to %d, where the count grows by %.1f\n", grown, fewer, more,
           factor);
    faster = true;
  }
  return faster;
}

int judge() {
  require(measured.size() == kOperations, "measuring every operation");
  int worse = 0;
  for (const auto& [name, points] : measured) {
    printf("%-45s", name.c_str());
    for (const auto& [count, microseconds] : points)
      printf(" %.2f us with %d,", microseconds, count);
    printf("\n");
    if (growsFaster(points)) ++worse;
  }
  return worse;
}

}  // namespace

int main(int count, char** words) {
  std::string file;
  support::CommandLine line(
      "How the time of an operation grows with handles, blocks and requests.");
  line.option("FILE", &file, "Where the figures go, as CSV").required();
  line.parseOrExit(count, words, 100);
  table = fopen(file.c_str(), "w");
  if (table == nullptr) return 100;
  support::silenceStderr();
  fprintf(table, "variable,operation,count,microseconds\n");
  const support::TemporaryFolder folder;
  overHandles(folder);
  overBlocks(folder);
  overRequests();
  if (fclose(table) != 0) return 100;
  return judge();
}

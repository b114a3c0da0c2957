#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include "bench/common/Workloads.h"

namespace bench {

namespace {

constexpr int kHeld = 1024 * 1024;
// Time for the peer to reach its wait; the measurement begins after it.
constexpr std::chrono::milliseconds kSettle(200);

// A read past the bytes that the server sends, on a thread of its own.
class WaitingRead {
 public:
  explicit WaitingRead(Source* source) : buffer(32768) {
    thread = std::thread([this, source] {
      // The server may have sent more than was requested before it fell silent. These bytes are not
      // checked.
      while (source->read(buffer.data(), buffer.size()) == static_cast<long long>(buffer.size())) {
      }
    });
  }
  void join() { thread.join(); }

 private:
  std::vector<char> buffer;
  std::thread thread;
};

// The time from the call until both the call and the read have returned.
void close(Source* source, Histogram* times) {
  WaitingRead waiting(source);
  std::this_thread::sleep_for(kSettle);
  const Clock::time_point begin = Clock::now();
  if (!source->closesWhileReading()) {
    source->abort();
    waiting.join();
  }
  source->close();
  if (source->closesWhileReading()) waiting.join();
  times->note(Clock::now() - begin);
}

void abortRead(Source* source, Histogram* times) {
  WaitingRead waiting(source);
  std::this_thread::sleep_for(kSettle);
  const Clock::time_point begin = Clock::now();
  source->abort();
  waiting.join();
  times->note(Clock::now() - begin);
  source->close();
}

bool seekAway(const Options& options, Source* source, Histogram* times) {
  std::this_thread::sleep_for(kSettle);
  const Clock::time_point begin = Clock::now();
  const bool moved = source->seek(options.size / 2);
  times->note(Clock::now() - begin);
  source->close();
  return moved;
}

}  // namespace

// Needs a server that sends more than 1 MiB of the resource and then nothing, and keeps
// connections.
bool silent(const Options& options, SourceMaker make, Outcome* outcome) {
  for (int i = 0; i < options.count; ++i) {
    Reader reader(options, make(options));
    if (!reader.open(options.url) || !reader.readAside(kHeld)) return false;
    if (options.call == "close") {
      close(reader.source(), &outcome->operations);
    } else if (options.call == "abort") {
      abortRead(reader.source(), &outcome->operations);
    } else if (options.call != "seek") {
      fprintf(stderr, "silent: which call?\n");
      return false;
    } else if (!seekAway(options, reader.source(), &outcome->operations)) {
      fprintf(stderr, "silent: cannot seek\n");
      return false;
    }
    outcome->bytes += reader.bytes();
  }
  return true;
}

}  // namespace bench

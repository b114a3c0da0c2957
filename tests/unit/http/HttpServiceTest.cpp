// No reader waits while the link brings unneeded bytes: a handle jumps over a slow link, and
// several handles read on over it. Each read is compared with the bytes that came down meanwhile.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Lateness.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/SlowLink.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"
#include "util/PausePoint.h"
#include "webs/ReadTurns.h"

namespace {

using support::FaultServer;
using support::SlowLink;

constexpr long long kSize = 64000000;
// The bytes that may come beside those of a read: the rest of the block before them, the read-ahead
// margin, the chunk that announces the restart, and bytes already on their way.
constexpr long long kMostUnneeded = 512 * 1024;

struct Jumps {
  const char* name;
  int bufferSize;        // bytes
  long long rate;        // of the link, bytes per second
  long long far;         // beginning of the far reads; the near ones begin at 0
  unsigned int farRead;  // bytes of each far read, and of each near one
  unsigned int nearRead;
  int inARow;  // reads at one end before the other's turn
  int count;   // reads
};

void PrintTo(const Jumps& jumps, std::ostream* out) { *out << jumps.name; }

class HttpService : public testing::TestWithParam<Jumps> {};

// One handle that jumps between two places and reads sequentially at each.
class Jumper {
 public:
  Jumper(const Jumps& jumps, const std::string& url, const SlowLink& slowLink, unsigned int seed)
      : plan(jumps), link(slowLink), file(url, jumps.bufferSize), random(seed) {}

  void jump(int number) {
    const bool far = number / plan.inARow % 2 == 0;
    long long& at = far ? farAt : nearAt;
    const unsigned int size = far ? plan.farRead : plan.nearRead;
    const auto pause = std::chrono::microseconds(random() % 3000);
    const auto until = std::chrono::steady_clock::now() + pause;
    while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
    const long long before = link.bytesDown();
    ASSERT_TRUE(file.readsPatternAt((far ? plan.far : 0) + at, size));
    const long long unneeded = link.bytesDown() - before - size;
    EXPECT_LE(unneeded, kMostUnneeded)
        << "read " << number << " of " << size << " bytes at " << (far ? plan.far : 0) + at;
    most = std::max(most, unneeded);
    at += size;
  }

  long long most = 0;

 private:
  const Jumps plan;
  const SlowLink& link;
  ApiFile file;
  std::mt19937 random;
  long long nearAt = 0;
  long long farAt = 0;
};

TEST_P(HttpService, NoReadWaitsForBytesThatNobodyNeeds) {
  const unsigned int seed = support::printedSeed();
  support::silenceStderr();
  FaultServer server;
  server.on("/film", support::serveRanges(kSize));
  SlowLink link(server.port(), 0, GetParam().rate);
  Jumper jumper(GetParam(), "http://127.0.0.1:" + std::to_string(link.port()) + "/film", link,
                seed);
  support::Watchdog watchdog(60, [&] { return std::to_string(link.bytesDown()) + " bytes"; });
  const int count = support::scaled(GetParam().count);
  for (int number = 0; number < count && !HasFailure(); ++number) {
    watchdog.at("read " + std::to_string(number));
    jumper.jump(number);
  }
  printf("%d connections, %lld bytes at most that were not asked for\n", link.connectionCount(),
         jumper.most);
}

// Several handles of one resource, each at a pace of its own, over a link that is faster than all
// paces together. Each read is held against what its bytes, a restart and the others' runs may
// cost.
struct Reader {
  unsigned int piece;
  double bytesPerSecond;  // 0: as fast as it can
  long long from;
};

struct Company {
  const char* name;
  long long rate;  // of the link, bytes per second
  std::vector<Reader> readers;
};

void PrintTo(const Company& company, std::ostream* out) { *out << company.name; }

class HttpServiceOfHandles : public testing::TestWithParam<Company> {
 protected:
  static constexpr int kBuffer = 262144;
  static constexpr double kSeconds = 2.5;
  // What a restart costs beside the bytes: a connection, a request, threads that are woken.
  static constexpr double kRestartMs = 30;

  ~HttpServiceOfHandles() override {
#if defined(FLUVIA_PAUSE_POINTS)
    util::setPauseHook(nullptr);
#endif
  }

  // Lets the transfer go on for up to 5 ms between the turn of a read and the read.
  static void dawdle(const char* point) {
    if (std::string(point) != "ReadTurns::Turn over") return;
    thread_local std::mt19937 random(1);
    const auto until = Clock::now() + std::chrono::microseconds(random() % 5000);
    while (Clock::now() < until) std::this_thread::yield();
  }

  double others() const { return static_cast<double>(GetParam().readers.size() - 1); }
  // How long a read may take: its bytes, what comes before them in their block, a restart, and that
  // the others had a turn and a restart each.
  double mostMs(const Reader& reader) const {
    const double each = 1e3 * (2 * 32768 + reader.piece) / static_cast<double>(GetParam().rate);
    const double turn = webs::ReadTurns::kTurnMs + each + kRestartMs;
    return support::patience(each + kRestartMs + others() * turn);
  }

  void readOne(const Reader& reader, ApiFile* file, const SlowLink& link, long long at) {
    const long long before = link.bytesDown();
    const long long tookBefore = taken;
    const auto start = Clock::now();
    EXPECT_TRUE(file->readsPattern(at, reader.piece));
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    taken += reader.piece;
    const long long came = link.bytesDown() - before;
    const long long unneeded = came - (taken - tookBefore);  // stored for a run, or for nobody
    const std::lock_guard<std::mutex> guard(lock);
    longest = std::max(longest, ms / mostMs(reader));
    most = std::max(most, unneeded);
  }

  void readOn(const Reader& reader, const std::string& url, const SlowLink& link) {
    ApiFile file(url, kBuffer);
    EXPECT_EQ(file.seek(reader.from), FVFR_OK);
    const auto start = Clock::now();
    for (long long i = 0; Clock::now() - start < std::chrono::duration<double>(kSeconds); ++i) {
      if (reader.bytesPerSecond > 0) {
        const double due = static_cast<double>(i) * reader.piece / reader.bytesPerSecond;
        std::this_thread::sleep_until(start + std::chrono::microseconds(std::llround(due * 1e6)));
      }
      readOne(reader, &file, link, reader.from + i * reader.piece);
    }
  }

  using Clock = std::chrono::steady_clock;

  std::atomic<long long> taken{0};  // bytes, by all
  std::mutex lock;
  double longest = 0;  // read, as a part of what it may take
  long long most = 0;  // bytes that came during one read, beside those that were read
};

TEST_P(HttpServiceOfHandles, NoReadWaitsForWhatNobodyNeeds) {
  support::silenceStderr();
  FaultServer server;
  server.on("/film", support::serveRanges(kSize));
  const SlowLink link(server.port(), 0, GetParam().rate);
  const std::string url = "http://127.0.0.1:" + std::to_string(link.port()) + "/film";
  support::Watchdog watchdog(60, [&] { return std::to_string(link.bytesDown()) + " bytes"; });
  webs::ReadTurns::forgetLongestHoldback();
  support::Lateness lateness;
#if defined(FLUVIA_PAUSE_POINTS)
  util::setPauseHook(&dawdle);
#endif
  std::vector<std::thread> threads;
  for (const Reader& reader : GetParam().readers) {
    threads.emplace_back([&] { readOn(reader, url, link); });
  }
  for (std::thread& thread : threads) thread.join();
  const double late = lateness.stop();
  const int heldBack = webs::ReadTurns::longestHoldback();
  printf(
      "%d connections, longest read %.2f of its limit, %lld bytes beside those read, "
      "held back %d ms, the machine is late by %.0f ms\n",
      link.connectionCount(), longest, most, heldBack, late);
  EXPECT_LE(longest, 4) << "also on a busy machine";
  // The forgotten run of another reader held reads back for 250 ms.
  EXPECT_LE(heldBack, support::patience(150) + 3 * late);
  // Half as much again: what the transfer stores for a run counts too.
  EXPECT_LE(static_cast<double>(most),
            1.5 * kMostUnneeded + 3e-3 * late * static_cast<double>(GetParam().rate));
}

std::string companyOf(const testing::TestParamInfo<Company>& parameter) {
  return parameter.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    All, HttpServiceOfHandles,
    testing::Values(
        Company{"FilmAndSound", 3000000, {{1316, 200e3, 6000000}, {1316, 16e3, 50000000}}},
        Company{"TwoFilms", 2000000, {{1316, 200e3, 6000000}, {1316, 200e3, 50000000}}},
        Company{"FilmAndCopy", 2000000, {{1316, 200e3, 6000000}, {32768, 0, 30000000}}}),
    companyOf);

std::string nameOf(const testing::TestParamInfo<Jumps>& parameter) { return parameter.param.name; }

INSTANTIATE_TEST_SUITE_P(
    All, HttpService,
    testing::Values(
        Jumps{"SmallReadsNearBigOnesFar", 2097152, 2000000, 1500000, 32768, 188, 1, 150},
        Jumps{"RowsAtBothEnds", 2097152, 3000000, 50000000, 1316, 1316, 20, 1200},
        Jumps{"RowsAtBothEndsOfASmallBuffer", 262144, 3000000, 50000000, 1316, 1316, 20, 1200},
        Jumps{"TwoBlocks", 65536, 3000000, 2000000, 10000, 5000, 1, 150}),
    nameOf);

}  // namespace

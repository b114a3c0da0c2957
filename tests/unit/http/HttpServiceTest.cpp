// No reader waits while the link brings unneeded bytes: a handle jumps over a slow link, and each
// read is compared with the bytes that came down meanwhile.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/SlowLink.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

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

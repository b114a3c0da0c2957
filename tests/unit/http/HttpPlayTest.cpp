// A player's pace over a link with a limit: how much is buffered ahead, and that nothing is
// requested twice.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/SlowLink.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using support::FaultServer;
using support::SlowLink;

constexpr long long kSize = 256000000;
constexpr int kBuffer = 2097152;
// Longer than a busy machine delays the transfer, and shorter than the rest of a pause that only
// its clock ends.
constexpr milliseconds kGrace(400);

struct Play {
  const char* name;
  unsigned int read;   // bytes
  long long rate;      // of the player, bytes per second
  long long linkRate;  // bytes per second
  int milliseconds;    // of playing
};

void PrintTo(const Play& play, std::ostream* out) { *out << play.name; }

class HttpPlay : public testing::TestWithParam<Play> {
 protected:
  HttpPlay() : link(server.port(), 20, GetParam().linkRate) {
    support::silenceStderr();
    server.on("/film", support::serveRanges(kSize));
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(link.port()) + "/film"; }

  FaultServer server;
  SlowLink link;
};

// True if that much is ahead of the reader now or within moments.
bool holds(const ApiFile& file, int wanted) {
  const auto until = Clock::now() + kGrace;
  while (x_fluvia_file_bufferedSize(file.handle) < wanted) {
    if (Clock::now() >= until) return false;
    std::this_thread::yield();
  }
  return true;
}

TEST_P(HttpPlay, HalfOfTheBufferStaysAhead) {
  const Play& play = GetParam();
  ApiFile file(url(), kBuffer);
  ASSERT_TRUE(file.readsPattern(0, 1));
  ASSERT_TRUE(support::eventually(
      [&] { return x_fluvia_file_bufferedSize(file.handle) >= kBuffer - 32768; }));
  const auto between = microseconds(play.read * 1000000LL / play.rate);
  const auto begin = Clock::now();
  int least = kBuffer;
  long long at = 1;
  for (auto due = begin; due < begin + milliseconds(play.milliseconds); at += play.read) {
    std::this_thread::sleep_until(due);  // a player's pace
    ASSERT_TRUE(file.readsPattern(at, play.read));
    const int held = x_fluvia_file_bufferedSize(file.handle);
    least = std::min(least, held);
    ASSERT_TRUE(holds(file, kBuffer / 2)) << held << " bytes are ahead of " << at + play.read;
    // Late reads are not made up for.
    due = std::max(due + between, Clock::now());
  }
  EXPECT_EQ(link.connectionCount(), 1);
  printf("%lld bytes played, at least %d ahead\n", at, least);
}

std::string nameOf(const testing::TestParamInfo<Play>& parameter) { return parameter.param.name; }

INSTANTIATE_TEST_SUITE_P(All, HttpPlay,
                         testing::Values(Play{"Blocks", 32768, 4000000, 16000000, 3000},
                                         Play{"Packets", 1316, 1500000, 6000000, 3000},
                                         Play{"LongReads", 262144, 4000000, 16000000, 3000}),
                         nameOf);

}  // namespace

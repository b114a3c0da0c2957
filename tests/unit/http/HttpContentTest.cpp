// Every byte is right, whatever the server does.
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

namespace {

using support::FaultServer;

constexpr long long kSize = 3000000;
constexpr int kBlock = 32768;

struct Server {
  const char* name;
  support::Behaviour behaviour;
  bool seekable;
};

std::vector<Server> servers() {
  return {{"ranges", support::serveRanges(kSize), true},
          {"ignores ranges", support::ignoreRanges(kSize), true},
          {"rest as 200, range line", support::serveRestAs200(kSize, true), true},
          {"rest as 200, length", support::serveRestAs200(kSize, false), true},
          {"starts before", support::startBeside(kSize, -3000), true},
          {"over-delivers", support::overDeliver(kSize), true},
          {"drops", support::dropAfter(kSize, 400000), true},
          {"resets", support::resetAfter(kSize, 700000), true},
          {"content-range only", support::serveContentRangeOnly(kSize), true},
          {"chunked", support::serveChunked(kSize), false},
          {"until close", support::serveUntilClose(kSize), false},
          {"icy", support::serveIcy(kSize), false},
          {"long headers", support::serveLongHeaders(kSize, 20000), true}};
}

class HttpContent : public ::testing::TestWithParam<int> {
 protected:
  HttpContent() { server.on("/a", each().behaviour); }
  Server each() const { return servers()[static_cast<size_t>(GetParam())]; }

  FaultServer server;
  support::Watchdog watchdog{60, [this] { return std::string(each().name); }};
};

TEST_P(HttpContent, SequentialReadsAreRight) {
  for (const int blocks : {2, 3, 64}) {
    for (const unsigned int piece : {1000U, 4096U, 32768U, 1048576U}) {
      watchdog.at(std::to_string(blocks) + " blocks, pieces of " + std::to_string(piece));
      ApiFile file(server.url("/a"), blocks * kBlock);
      EXPECT_TRUE(file.restIsPattern(0, kSize, piece))
          << each().name << ", " << blocks << " blocks, pieces of " << piece;
    }
  }
}

class HttpSeeks : public HttpContent {};

TEST_P(HttpSeeks, AreRight) {
  const unsigned int seed = support::seedOr(static_cast<unsigned int>(20 + GetParam()));
  SCOPED_TRACE(std::string(each().name) + ", seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (const int blocks : {2, 3, 64}) {
    ApiFile file(server.url("/a"), blocks * kBlock);
    long long position = 0;
    for (int i = 0; i < 60; ++i) {
      long long target = position;
      switch (random() % 4) {
        case 0:  // backward, possibly still buffered
          target -= static_cast<long long>(random() % 100000);
          break;
        case 1:  // forward within the look-ahead
          target += static_cast<long long>(random() % 65536);
          break;
        default:  // anywhere
          target = static_cast<long long>(random() % kSize);
      }
      target = std::max(0LL, std::min(target, kSize - 1));
      const auto size = static_cast<unsigned int>(
          std::min<long long>(1 + static_cast<long long>(random() % 80000), kSize - target));
      watchdog.at(std::to_string(blocks) + " blocks, step " + std::to_string(i) + ", " +
                  std::to_string(size) + " bytes at " + std::to_string(target));
      ASSERT_TRUE(file.readsPatternAt(target, size)) << blocks << " blocks, step " << i;
      position = target + size;
    }
  }
}

// The servers whose resource has a size, or those whose resource has none.
std::vector<int> which(bool sized) {
  std::vector<int> indexes;
  const std::vector<Server> all = servers();
  for (size_t i = 0; i < all.size(); ++i) {
    if (all[i].seekable == sized) indexes.push_back(static_cast<int>(i));
  }
  return indexes;
}

INSTANTIATE_TEST_SUITE_P(Sized, HttpContent, ::testing::ValuesIn(which(true)));
INSTANTIATE_TEST_SUITE_P(Streams, HttpContent, ::testing::ValuesIn(which(false)));
INSTANTIATE_TEST_SUITE_P(Sized, HttpSeeks, ::testing::ValuesIn(which(true)));

TEST(HttpStream, MovesForwardByReadingAndBackToWhatIsHeld) {
  FaultServer server;
  // The buffer holds all of it.
  server.on("/a", support::serveChunked(1900000));
  ApiFile file(server.url("/a"), 64 * kBlock);
  ASSERT_TRUE(file.readsPattern(0, 1000));
  ASSERT_TRUE(file.readsPatternAt(500000, 100000));
  ASSERT_TRUE(file.readsPatternAt(100, 100000));
  ASSERT_EQ(file.seek(1800000), FVFR_SEEK_REFUSED);
  ASSERT_TRUE(file.readsPattern(100100, 100000));
}

TEST(HttpStream, MovedBackToWhatIsGoneReadsWhereItsPositionSays) {
  FaultServer server;
  server.on("/a", support::serveChunked(kSize));
  for (const int blocks : {2, 3, 8}) {
    ApiFile file(server.url("/a"), blocks * kBlock);
    ASSERT_TRUE(file.readsPattern(0, 1000));
    ASSERT_TRUE(file.readsPatternAt(500000, 100000));
    ASSERT_EQ(file.seek(100), FVFR_OK);
    const std::string bytes = file.read(100000);
    ASSERT_EQ(file.last, FVFR_OK);
    // A stream of unknown length is treated as live: its position advances to the oldest buffered
    // byte.
    const long long from = x_fluvia_file_offset(file.handle) - static_cast<long long>(bytes.size());
    EXPECT_GT(from, 100);
    EXPECT_EQ(
        support::firstDifference(static_cast<unsigned long long>(from), bytes.data(), bytes.size()),
        -1)
        << blocks;
  }
}

TEST(HttpShared, TwoHandlesAreOneDownload) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000000));
  ApiFile one(server.url("/a"));
  EXPECT_TRUE(one.readsPattern(0, 100000));
  ApiFile two(server.url("/a"));
  EXPECT_TRUE(two.readsPattern(0, 100000));
  EXPECT_TRUE(one.restIsPattern(100000, 1000000, 65536));
  EXPECT_TRUE(two.restIsPattern(100000, 1000000, 65536));
  EXPECT_EQ(server.requestCount("/a"), 1);
  EXPECT_EQ(server.bodyBytes("/a"), 1000000);
}

TEST(HttpShared, EightThreadsOnFourUrls) {
  FaultServer server;
  const long long size = 2000000;
  for (const char* path : {"/0", "/1", "/2", "/3"}) server.on(path, support::serveRanges(size));
  support::Watchdog watchdog(100, [] { return std::string("eight threads"); });
  std::vector<std::thread> readers;
  std::atomic<int> wrong{0};
  for (int i = 0; i < 8; ++i) {
    readers.emplace_back([&, i] {
      ApiFile file(server.url("/" + std::to_string(i % 4)), 8 * kBlock);
      std::mt19937 random(static_cast<unsigned int>(i));
      for (int step = 0; step < 30; ++step) {
        const auto target = static_cast<long long>(random() % (size - 70000));
        if (file.seek(target) != FVFR_OK ||
            !file.readsPattern(target, 1 + static_cast<unsigned int>(random() % 65536))) {
          ++wrong;
        }
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0);
}

// --- the exact requests -------------------------------------------------------------------------

TEST(HttpRangeHeaders, FirstRequestHasNoneAndLaterOnesStartAtBlocks) {
  FaultServer server;
  server.on("/a", support::serveRanges(8000000));
  ApiFile file(server.url("/a"), 4 * kBlock);
  EXPECT_TRUE(file.readsPattern(0, 1000));
  EXPECT_TRUE(file.readsPatternAt(5000001, 1000));
  ASSERT_TRUE(file.readsPatternAt(0, 1000));
  const std::vector<std::string> ranges = server.ranges("/a");
  ASSERT_GE(ranges.size(), 2u);
  EXPECT_EQ(ranges[0], "");
  EXPECT_EQ(ranges[1], "bytes=4980736-") << "5000001 down to a block";
}

TEST(HttpRangeHeaders, BrokenConnectionGoesOnWhereItEnded) {
  FaultServer server;
  server.on("/a",
            support::inTurn({support::dropAfter(1000000, 100000), support::serveRanges(1000000)}));
  ApiFile file(server.url("/a"));
  EXPECT_TRUE(file.restIsPattern(0, 1000000, 65536));
  const std::vector<std::string> ranges = server.ranges("/a");
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(ranges[0], "");
  // A block without a reader is restarted: 100000 or, down to its block, 98304.
  EXPECT_TRUE(ranges[1] == "bytes=100000-" || ranges[1] == "bytes=98304-") << ranges[1];
}

TEST(HttpRangeHeaders, StreamWithoutALengthIsNeverAskedForOne) {
  FaultServer server;
  server.on("/a",
            support::inTurn({support::cutChunk(300000, 100000), support::serveChunked(300000)}));
  ApiFile file(server.url("/a"));
  EXPECT_TRUE(file.restIsPattern(0, 300000, 65536));
  for (const std::string& range : server.ranges("/a")) EXPECT_EQ(range, "");
}

TEST(HttpRangeHeaders, RequestBeforeAHeldBlockIsBounded) {
  FaultServer server;
  server.on("/a", support::serveRanges(8000000));
  ApiFile file(server.url("/a"), 64 * kBlock);
  EXPECT_TRUE(file.readsPattern(0, 1000));
  EXPECT_TRUE(file.readsPatternAt(4000000, 100000));
  EXPECT_TRUE(file.readsPatternAt(3900000, 50000));
  const std::vector<std::string> ranges = server.ranges("/a");
  ASSERT_GE(ranges.size(), 3u);
  EXPECT_EQ(ranges[1], "bytes=3997696-");
  // Up to the first block that is still buffered: meanwhile the transfer takes blocks behind the
  // reader.
  EXPECT_TRUE(ranges[2] == "bytes=3899392-3997695" || ranges[2] == "bytes=3899392-4030463" ||
              ranges[2] == "bytes=3899392-4063231")
      << ranges[2];
}

// --- sizes --------------------------------------------------------------------------------------

TEST(HttpSize, PastFourGigabytes) {
  FaultServer server;
  const long long size = 5LL << 30;
  server.on("/a", support::serveRanges(size));
  ApiFile file(server.url("/a"));
  EXPECT_EQ(file.size(), size);
  EXPECT_EQ(file.seek(size - 100000), FVFR_OK);
  EXPECT_TRUE(file.restIsPattern(size - 100000, size, 4096));
}

TEST(HttpSize, OfAnUnsizedResourceIsUnknownUntilItsEnd) {
  FaultServer server;
  server.on("/a", support::serveChunked(100000));
  ApiFile file(server.url("/a"));
  EXPECT_TRUE(file.readsPattern(0, 1000));
  EXPECT_TRUE(file.restIsPattern(1000, 100000, 4096));
  EXPECT_EQ(file.size(), 100000);
  EXPECT_EQ(server.requestCount("/a"), 1);
}

TEST(HttpSize, OfASilentUnsizedResourceIsTheUnknownOne) {
  FaultServer server;
  server.on("/a", support::serveLive(50000));
  ApiFile file(server.url("/a"));
  EXPECT_TRUE(file.readsPattern(0, 1000));
  EXPECT_EQ(file.size(), FVFR_UNKNOWN_SIZE);
}

// Two whole blocks: if one is partly filled, the end is noticed in another way.
TEST(HttpContent, EndOfVolatileContentWithoutALengthEndsItsReads) {
  support::FaultServer server;
  server.on("/live", support::serveUntilClose(65536));
  support::Watchdog watchdog(60, [] { return std::string("reading behind the end"); });
  ApiFile file(server.url("/live"), 5 * 32768);
  ASSERT_EQ(x_fluvia_file_volatile(file.handle), FVFR_OK);
  EXPECT_TRUE(file.readsPattern(0, 65536));
  EXPECT_EQ(file.read(100), "");
  EXPECT_EQ(file.last, FVFR_END_OF_FILE);
}

}  // namespace

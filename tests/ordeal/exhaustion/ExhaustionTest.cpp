// The limits of the process: handles, descriptors, stacks; and servers that change under a player.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/PrivateData.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

namespace {

using support::FaultServer;

// In other builds a call is many times slower.
#if !defined(NDEBUG)
constexpr long long kManyBytes = 1 << 20;
#else
constexpr long long kManyBytes = 10 << 20;
#endif

class Exhaustion : public ::testing::Test {
 protected:
  void SetUp() override { support::silenceStderr(); }
};

TEST_F(Exhaustion, AllHandlesStreamAtOnceOnUrlsOfTheirOwn) {
  constexpr long long kSize = 300000;
  constexpr int kThreads = 5;
  FaultServer server;
  std::vector<int> handles(FVFR_MAX_HANDLES);
  for (size_t i = 0; i < handles.size(); ++i) {
    const std::string path = "/" + std::to_string(i);
    server.setBase(path, i * 1000003);
    server.on(path, support::serveRanges(kSize));
    ASSERT_EQ(x_fluvia_file_open_x(server.url(path).c_str(), &handles[i], 65536), FVFR_OK);
    ASSERT_EQ(handles[i], static_cast<int>(i) + 1);
  }
  int none = 0;
  EXPECT_EQ(x_fluvia_file_open_x(server.url("/more").c_str(), &none, 65536), FVFR_FAILED);

  // In turns, one piece of each: all 255 transfers run together.
  std::atomic<int> wrong{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < kThreads; ++t) {
    readers.emplace_back([&, t] {
      std::vector<char> bytes(60000);
      for (long long at = 0; at < kSize; at += 60000) {
        for (size_t i = static_cast<size_t>(t); i < handles.size(); i += kThreads) {
          unsigned int got = 0;
          const int result = x_fluvia_file_read(handles[i], bytes.data(), 60000, &got);
          if (result != FVFR_OK || got != 60000 ||
              support::firstDifference(i * 1000003 + static_cast<unsigned long long>(at),
                                       bytes.data(), got) >= 0) {
            ++wrong;
          }
        }
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(server.connectionCount(), FVFR_MAX_HANDLES);
  for (const int handle : handles) EXPECT_EQ(x_fluvia_file_close(handle), FVFR_OK);
}

// Takes every free descriptor during its life.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &saved);
    struct rlimit limit = saved;
    limit.rlim_cur = 256;
    setrlimit(RLIMIT_NOFILE, &limit);
    for (int fd = dup(0); fd >= 0; fd = dup(0)) taken.push_back(fd);
  }
  ~NoDescriptors() {
    for (const int fd : taken) close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  struct rlimit saved;
  std::vector<int> taken;
};

// To check an object's type the undefined-behaviour sanitizer needs a pipe; without one it reports
// a wrong type.
#if defined(__SANITIZE_ADDRESS__)
#define SKIP_WHERE_CHECKS_NEED_DESCRIPTORS() GTEST_SKIP() << "the sanitizer needs descriptors"
#else
#define SKIP_WHERE_CHECKS_NEED_DESCRIPTORS() static_cast<void>(0)
#endif

TEST_F(Exhaustion, DescriptorsThatRanOutFailTheReadAndComeBack) {
  SKIP_WHERE_CHECKS_NEED_DESCRIPTORS();
  constexpr long long kSize = 200000;
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  const support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", kSize);
  for (int round = 0; round < 3; ++round) {
    {
      const NoDescriptors none;
      ApiFile url(server.url("/a"));
      url.read(1000);
      EXPECT_EQ(url.last, FVFR_FAILED);
      ApiFile file(path);
      file.read(1000);
      EXPECT_EQ(file.last, FVFR_FAILED);
    }
    ApiFile url(server.url("/a"));
    EXPECT_TRUE(url.restIsPattern(0, kSize, 30000));
    ApiFile file(path);
    EXPECT_TRUE(file.restIsPattern(0, kSize, 30000));
  }
}

TEST_F(Exhaustion, DescriptorsThatRunOutUnderAStreamCostNoByteOfIt) {
  SKIP_WHERE_CHECKS_NEED_DESCRIPTORS();
  constexpr long long kSize = 1000000;
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ApiFile url(server.url("/a"), 65536);
  EXPECT_TRUE(url.readsPattern(0, 1000));
  const NoDescriptors none;
  EXPECT_TRUE(url.restIsPattern(1000, kSize, 30000));
}

TEST_F(Exhaustion, StacksOfOneMebibyteAreEnough) {
  const support::TestCertificate certificate;
  const support::ChildResult child = support::inChild([&] {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (pthread_attr_setstacksize(&attributes, 1 << 20) != 0) _exit(1);
    if (pthread_setattr_default_np(&attributes) != 0) _exit(2);
    constexpr long long kSize = 1000000;
    FaultServer server(certificate.certificate(), certificate.key());
    server.on("/a", support::dropAfter(kSize, 150000));
    ApiFile file(server.url("/a"), 98304);
    if (!file.restIsPattern(0, kSize, 30000)) _exit(3);
    if (file.seek(500000) != FVFR_OK) _exit(4);
    support::Completions done;
    std::vector<char> bytes(100000);
    int id = 0;
    if (x_fluvia_file_read_async(file.handle, bytes.data(), 100000,
                                 &support::Completions::completed, &done, &id) != FVFR_OK) {
      _exit(5);
    }
    if (!done.waitFor(1, 30) || done.calls()[0].status != FVFR_ASYNC_DONE) _exit(6);
    if (support::firstDifference(500000, bytes.data(), bytes.size()) >= 0) _exit(7);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
}

TEST_F(Exhaustion, ReadsOfOneByteOverManyMegabytes) {
  FaultServer server;
  server.on("/a", support::serveRanges(kManyBytes));
  ApiFile file(server.url("/a"));
  for (long long i = 0; i < kManyBytes; ++i) {
    char byte = 0;
    unsigned int got = 0;
    const int result = x_fluvia_file_read(file.handle, &byte, 1, &got);
    if (result != FVFR_OK || got != 1 ||
        static_cast<unsigned char>(byte) !=
            support::patternByte(static_cast<unsigned long long>(i))) {
      FAIL() << "byte " << i << ": " << result << ", " << got;
    }
  }
  EXPECT_EQ(server.requestCount("/a"), 1);
}

TEST_F(Exhaustion, ServerThatIsBackAtOnceCostsNoByte) {
  constexpr long long kSize = 3000000;
  FaultServer server;
  server.on("/a", support::drip(kSize, 30000, 3));
  ApiFile file(server.url("/a"), 98304);
  long long at = 0;
  for (int restart = 0; restart < 6; ++restart) {
    for (int i = 0; i < 10; ++i, at += 30000) ASSERT_TRUE(file.readsPattern(at, 30000));
    server.endConnections();
  }
  EXPECT_TRUE(file.restIsPattern(at, kSize, 30000));
  EXPECT_GE(server.requestCount("/a"), 7);
}

TEST_F(Exhaustion, ServerThatStaysAwayFailsTheReadUntilTheUrlIsOpenedAnew) {
  constexpr long long kSize = 40000000;  // more than the sockets buffer of a server that has gone
  auto server = std::make_unique<FaultServer>();
  server->on("/a", support::serveRanges(kSize));
  const std::string url = server->url("/a");
  const int port = server->port();
  {
    ApiFile file(url, 65536);
    ASSERT_TRUE(file.readsPattern(0, 30000));
    server.reset();
    EXPECT_FALSE(file.restIsPattern(30000, kSize, 30000));
    EXPECT_EQ(file.last, FVFR_FAILED);
    EXPECT_EQ(file.status(), FVFR_DOWNLOAD_REFUSED);
    server = std::make_unique<FaultServer>(port);
    server->on("/a", support::serveRanges(kSize));
    file.read(1000);
    EXPECT_EQ(file.last, FVFR_FAILED) << "a stream that has failed stays so";
  }
  ApiFile again(url, 65536);
  EXPECT_TRUE(again.restIsPattern(0, kSize, 30000));
}

// The library cannot know: from then on its connections get the new resource.
TEST_F(Exhaustion, ResourceReplacedDuringPlayGivesBytesOfEitherAtTheirPlace) {
  constexpr long long kSize = 3000000;
  constexpr unsigned long long kNewBase = 777000;
  FaultServer server;
  server.on("/a", support::dropAfter(kSize, 200000));
  ApiFile file(server.url("/a"), 98304);
  long long at = 0;
  bool replaced = false;
  while (at < kSize) {
    if (!replaced && at >= kSize / 3) {
      server.setBase("/a", kNewBase);
      replaced = true;
    }
    const std::string bytes = file.read(30000);
    ASSERT_EQ(file.last, FVFR_OK);
    for (size_t i = 0; i < bytes.size(); ++i, ++at) {
      const auto offset = static_cast<unsigned long long>(at);
      const auto byte = static_cast<unsigned char>(bytes[i]);
      ASSERT_TRUE(byte == support::patternByte(offset) ||
                  (replaced && byte == support::patternByte(kNewBase + offset)))
          << "byte " << at;
    }
  }
}

TEST_F(Exhaustion, ResourceThatShrankDuringPlayEndsWithAFailure) {
  constexpr long long kSize = 3000000;
  FaultServer server;
  server.on("/a", support::dropAfter(kSize, 200000));
  ApiFile file(server.url("/a"), 98304);
  ASSERT_TRUE(file.readsPattern(0, 400000));
  server.on("/a", support::dropAfter(kSize / 2, 200000));
  EXPECT_FALSE(file.restIsPattern(400000, kSize, 30000));
  // "416": the server has no such range.
  EXPECT_TRUE(file.last == FVFR_NOT_FOUND || file.last == FVFR_FAILED) << file.last;
  // A failed stream returns no more bytes, not even buffered ones, which are at most its buffer.
  EXPECT_GE(x_fluvia_file_offset(file.handle), kSize / 2 - 98304 - 30000);
}

}  // namespace

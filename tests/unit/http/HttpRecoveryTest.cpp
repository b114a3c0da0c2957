// What a handle's calls return if the server fails, and how long they take.
#include <algorithm>
#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/IsPattern.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/http/ApiFile.h"

namespace {

using support::FaultServer;

TEST(HttpFailure, MissingResourceIsNotFoundOnceThenFailed) {
  for (const int status : {404, 403, 416}) {
    FaultServer server;
    server.on("/a", support::answerStatus(status));
    ApiFile file(server.url("/a"));
    EXPECT_EQ(file.read(100), "");
    EXPECT_EQ(file.last, FVFR_NOT_FOUND) << status;
    file.read(100);
    EXPECT_EQ(file.last, FVFR_FAILED);
    EXPECT_EQ(file.status(), status);
  }
}

TEST(HttpFailure, EmptySuccessIsNotFound) {
  FaultServer server;
  server.on("/a", support::answerStatus(200, ""));
  ApiFile file(server.url("/a"));
  file.read(100);
  EXPECT_EQ(file.last, FVFR_NOT_FOUND);
  EXPECT_EQ(file.status(), 404);
}

TEST(HttpFailure, ServerErrorIsNotAvailableOnceThenFailed) {
  for (const int status : {500, 503}) {
    FaultServer server;
    server.on("/a", support::answerStatus(status));
    ApiFile file(server.url("/a"));
    file.read(100);
    EXPECT_EQ(file.last, FVFR_NOT_AVAILABLE);
    file.read(100);
    EXPECT_EQ(file.last, FVFR_FAILED);
    EXPECT_EQ(file.status(), status);
  }
}

TEST(HttpFailure, RefusedConnectionIsTriedTwice) {
  const support::CapturedStderr log(-4);
  ApiFile file("http://127.0.0.1:" + std::to_string(support::closedPort()) + "/a");
  file.read(100);
  EXPECT_EQ(file.last, FVFR_FAILED);
  EXPECT_EQ(file.status(), FVFR_DOWNLOAD_REFUSED);
  file.read(100);
  EXPECT_EQ(file.last, FVFR_FAILED) << "failed for good";
  int tries = 0;
  for (const std::string& line : log.messages("executeGet")) {
    if (line.find("PFFFF begin to perform(url: ") != std::string::npos) ++tries;
  }
  EXPECT_EQ(tries, 2) << log.text();
  EXPECT_TRUE(log.has("notifyStreamException: retry finished in not available error"));
}

TEST(HttpFailure, OneConnectionWithoutAnAnswerRecoversTwoDoNot) {
  FaultServer server;
  server.on("/one", support::inTurn({support::answerRaw(""), support::serveRanges(1000)}));
  server.on("/two", support::answerRaw(""));
  ApiFile one(server.url("/one"));
  EXPECT_TRUE(one.readsPattern(0, 1000));
  ApiFile two(server.url("/two"));
  two.read(100);
  EXPECT_EQ(two.last, FVFR_FAILED);
  EXPECT_EQ(server.requestCount("/two"), 2);
}

TEST(HttpFailure, AnswerWithoutABodyCostsTwoRequests) {
  for (const int status : {204, 304}) {
    FaultServer server;
    server.on("/a", support::answerStatus(status));
    ApiFile file(server.url("/a"));
    file.read(100);
    EXPECT_EQ(file.last, FVFR_FAILED);
    EXPECT_EQ(server.requestCount("/a"), 2) << status;
  }
}

TEST(HttpFailure, ErrorPageOfALaterRequestIsNotMedia) {
  for (const int status : {404, 503, 300}) {
    FaultServer server;
    server.on("/a", support::inTurn({support::dropAfter(500000, 100000),
                                     support::answerStatus(status, std::string(5000, 'E'))}));
    ApiFile file(server.url("/a"));
    std::string all;
    for (;;) {
      const std::string bytes = file.read(4096);
      all += bytes;
      if (file.last != FVFR_OK) break;
    }
    EXPECT_LE(all.size(), 100000u);
    EXPECT_EQ(support::firstDifference(0, all.data(), all.size()), -1) << status;
    EXPECT_NE(file.last, FVFR_END_OF_FILE);
  }
}

TEST(HttpFailure, TruncatedResourceEndsInAnError) {
  FaultServer server;
  server.on("/a", support::inTurn({support::lieAboutLength(100000, 50000),
                                   support::answerRaw("HTTP/1.1 206 P\r\nContent-Range: bytes "
                                                      "50000-99999/100000\r\nContent-Length: "
                                                      "50000\r\n\r\n")}));
  support::Watchdog watchdog(60, [] { return std::string("truncated"); });
  ApiFile file(server.url("/a"));
  while (file.read(4096).size() == 4096) {
  }
  file.read(4096);
  EXPECT_EQ(file.last, FVFR_FAILED);
  EXPECT_LE(server.requestCount("/a"), 5) << "connections without a byte are counted";
}

TEST(HttpFailure, BodyLongerThanItsLengthEndsAtTheLength) {
  FaultServer server;
  server.on("/a", support::lieAboutLength(20000, 90000));
  ApiFile file(server.url("/a"));
  EXPECT_TRUE(file.restIsPattern(0, 20000, 4096));
  EXPECT_EQ(server.requestCount("/a"), 1);
}

TEST(HttpFailure, HostileHeadersHurtNothing) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string answers[] = {
      ok + "Content-Length: -5\r\n\r\nhello",
      ok + "Content-Length: 99999999999999999999999\r\n\r\nhello",
      ok + "Content-Length: 9223372036854775807\r\n\r\nhello",
      ok + "Content-Length: 5\r\nContent-Length: 7\r\n\r\nhello",
      ok + "Content-Length:\r\n\r\nhello",
      ok + "Content-Range: bytes 0-4/99999999999999999999\r\n\r\nhello",
      "HTTP/1.1 206 P\r\nContent-Range: bytes -9-4/-1\r\n\r\nhello",
      "HTTP/1.1 206 P\r\nContent-Range: /\r\n\r\nhello",
      "HTTP/1.1 206 P\r\nContent-Range: bytes 99999999999999999999-1/5\r\n\r\nhello",
      ok + "Server:\r\n\r\nhello",
      ok + std::string("Ser\0ver: x\r\n\r\nhello", 20),
      ok + ": no name\r\nnothing\r\n\r\nhello",
      ok + "Location: " + std::string(30000, 'x') + "\r\n\r\nhello",
      ok + std::string(90000, 'x') + "\r\n\r\nhello",
      "HTTP/1.1 \r\n\r\nhello",
      "HTTP/9.9 200 OK\r\n\r\nhello",
      "HTTP/1.1 99999 OK\r\n\r\nhello",
      "HTTP/1.1 302 Found\r\nLocation: \r\n\r\nhello",
      "HTTP/1.1 302 Found\r\nLocation: http://[::\r\n\r\nhello",
      "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 100 Continue\r\n\r\n",
      ok + "Transfer-Encoding: chunked\r\n\r\nzzzz\r\nhello",
      ok + "Transfer-Encoding: chunked\r\n\r\nffffffffffffffffff\r\nhello",
      ok + "Content-Encoding: gzip\r\n\r\nhello",
      "\r\n\r\n",
      std::string(20000, '\0')};
  support::Watchdog watchdog(40, [] { return std::string("hostile headers"); });
  for (const std::string& answer : answers) {
    FaultServer server;
    server.on("/a", support::answerRaw(answer));
    ApiFile file(server.url("/a"));
    watchdog.at(answer.substr(0, 100));
    const std::string bytes = file.read(1000);
    // Only bytes of the body count as content.
    EXPECT_EQ(bytes, std::string("hello").substr(0, bytes.size())) << answer.substr(0, 100);
    // A body shorter than its length fails, with the bytes that came.
    EXPECT_TRUE(file.last < FVFR_OK || !bytes.empty()) << answer.substr(0, 100);
    for (const char* text : {x_fluvia_file_http_get_server_name(file.handle),
                             x_fluvia_file_http_get_content_type(file.handle)}) {
      ASSERT_NE(text, nullptr);
      EXPECT_EQ(std::string(text).find_first_of("\r\n"), std::string::npos) << text;
    }
    const int status = x_fluvia_file_http_get_download_status(file.handle);
    EXPECT_TRUE((status <= 0 && status >= FVFR_DOWNLOAD_REFUSED) || status >= 400) << status;
    if (file.seek(3) == FVFR_OK) {
      const std::string rest = file.read(2);
      EXPECT_EQ(rest, std::string("lo").substr(0, rest.size())) << answer.substr(0, 100);
    }
    EXPECT_LE(server.requestCount("/a"), 5) << answer.substr(0, 100);
    // The next handle is served.
    server.on("/sound", support::serveRanges(1000));
    ApiFile sound(server.url("/sound"));
    EXPECT_TRUE(sound.readsPattern(0, 1000)) << answer.substr(0, 100);
  }
}

TEST(HttpFailure, IsSharedUntilTheLastHandleIsClosed) {
  FaultServer server;
  server.on("/a", support::inTurn({support::answerStatus(404), support::serveRanges(1000)}));
  ApiFile one(server.url("/a"));
  one.read(10);
  EXPECT_EQ(one.last, FVFR_NOT_FOUND);
  ApiFile two(server.url("/a"));
  two.read(10);
  EXPECT_NE(two.last, FVFR_OK);
  EXPECT_EQ(server.requestCount("/a"), 1);
  one.close();
  two.close();
  ApiFile again(server.url("/a"));
  EXPECT_TRUE(again.readsPattern(0, 1000));
}

TEST(HttpFailure, OneConnectionAtATimeIsEnough) {
  FaultServer server;
  server.on("/a", support::serveRanges(4000000));
  server.limitConnections("/a", 1);
  ApiFile file(server.url("/a"), 8 * FVFR_BUFFER_BLOCK);
  for (const long long target : {0LL, 3000000LL, 1000000LL, 2000000LL, 100000LL}) {
    ASSERT_TRUE(file.readsPatternAt(target, 100000));
  }
}

// Every connection ends before a block is full. Each one used to fill a gap from its beginning, and
// so never completed it.
TEST(HttpFailure, ConnectionsThatAllEndInsideABlockGetOn) {
  constexpr long long kSize = 300000;
  FaultServer server;
  server.on("/a", support::dropAfter(kSize, 22986));
  ApiFile file(server.url("/a"), 98304);
  std::mt19937 random(1);
  support::Watchdog watchdog(30, [&] {
    const std::vector<std::string> ranges = server.ranges("/a");
    return std::to_string(ranges.size()) + " connections, the last asks for " + ranges.back();
  });
  for (int step = 0; step < 400; ++step) {
    const long long offset = static_cast<long long>(random() % kSize);
    const long long size = static_cast<long long>(random() % (step % 5 == 0 ? 200000 : 20000)) + 1;
    watchdog.at(std::to_string(size) + " bytes at " + std::to_string(offset));
    ASSERT_TRUE(
        file.readsPatternAt(offset, static_cast<unsigned int>(std::min(size, kSize - offset))));
  }
}

// --- stops --------------------------------------------------------------------------------------

// Opens and closes streams of a server that sends more than any reader takes. A close with only an
// orderly end would leave the server waiting for a minute, and would keep the place of a server
// with one for each client.
void leaveWhileTheServerSends(FaultServer* server) {
  server->on("/a", support::serveRanges(100000000));
  for (int round = 0; round < 40; ++round) {
    ApiFile file(server->url("/a"), 2 * FVFR_BUFFER_BLOCK);
    EXPECT_TRUE(file.readsPattern(0, 1000 + 3000 * static_cast<unsigned int>(round)));
    if (round % 2 == 0) {
      EXPECT_TRUE(file.readsPatternAt(50000000, 1000));
    }
  }
  EXPECT_TRUE(server->waitUntilIdle()) << "connections are left";
}

TEST(HttpStop, EndsTheConnectionOfAServerThatWaitsToSend) {
  FaultServer server;
  leaveWhileTheServerSends(&server);
}

TEST(HttpStop, EndsTheTlsConnectionOfAServerThatWaitsToSend) {
  const support::TestCertificate certificate;
  FaultServer server(certificate.certificate(), certificate.key());
  leaveWhileTheServerSends(&server);
}

// --- stalls -------------------------------------------------------------------------------------

TEST(HttpStall, MidBodyIsNotFoundAfterTenSeconds) {
  FaultServer server;
  server.on("/a", support::stallAfter(100000, 5000));
  ApiFile file(server.url("/a"));
  const support::Stopwatch watch;
  EXPECT_EQ(file.read(50000).size(), 5000u) << "what came is reported";
  EXPECT_EQ(file.last, FVFR_NOT_FOUND);
  EXPECT_GE(watch.seconds(), 9.99);
  EXPECT_LT(watch.seconds(), support::patience(13.5));
  EXPECT_EQ(file.status(), FVFR_DOWNLOAD_NO_DATA);
  EXPECT_EQ(x_fluvia_file_offset(file.handle), 0) << "the position does not move";
}

TEST(HttpStall, MidBodyWithTheFlagReconnectsAfterFour) {
  FaultServer server;
  server.on("/a",
            support::inTurn({support::stallAfter(100000, 5000), support::serveRanges(100000)}));
  ApiFile file(server.url("/a"));
  EXPECT_EQ(x_fluvia_file_set_featureflag(file.handle, 1), FVFR_OK);
  const support::Stopwatch watch;
  EXPECT_TRUE(file.readsPattern(0, 50000));
  EXPECT_GE(watch.seconds(), 3.99);
  EXPECT_LT(watch.seconds(), support::patience(7.5));
}

TEST(HttpStall, AbortEndsTheReadAtOnceAndTheConnectionAfterTwoSeconds) {
  FaultServer server;
  server.on("/a",
            support::inTurn({support::stallAfter(100000, 5000), support::serveRanges(100000)}));
  ApiFile file(server.url("/a"));
  EXPECT_TRUE(file.readsPattern(0, 1000));
  std::atomic<bool> over{false};
  std::thread reader([&] {
    file.read(50000);
    over = true;
  });
  const support::Stopwatch watch;
  EXPECT_TRUE(support::eventually([&] {
    x_fluvia_file_read_abort(file.handle, 0);
    return over.load();
  }));
  reader.join();
  EXPECT_EQ(file.last, FVFR_FAILED);
  EXPECT_LT(watch.seconds(), support::patience(5));
  EXPECT_TRUE(server.waitForRequests("/a", 2)) << "a new connection";
  EXPECT_TRUE(file.readsPattern(1000, 50000));
}

// 20,000 of a million bytes come, then the server is silent.
class HttpStallAborted : public testing::Test {
 protected:
  HttpStallAborted() {
    server.on("/a", support::stallAfter(1000000, kArrived));
    file.reset(new ApiFile(server.url("/a")));
  }
  // Waits until all that comes is buffered: the read that made the connection has begun.
  bool hasArrived() const {
    return support::eventually(
        [&] { return x_fluvia_file_bufferedSize(file->handle) == kArrived; });
  }

  static constexpr int kArrived = 20000;
  static constexpr unsigned int kWanted = 32768;
  FaultServer server;
  std::string bytes = std::string(kWanted, '\0');
  support::Completions done;
  std::unique_ptr<ApiFile> file;  // closed before what a request still uses
};

TEST_F(HttpStallAborted, BlockingReadGivesWhatHadArrived) {
  std::string got;
  std::thread reader([&] { got = file->read(kWanted); });
  const bool arrived = hasArrived();
  EXPECT_EQ(x_fluvia_file_read_abort(file->handle, 0), FVFR_OK);
  reader.join();
  ASSERT_TRUE(arrived);
  EXPECT_EQ(file->last, FVFR_FAILED);
  EXPECT_TRUE(support::isPattern(got, 0, kArrived));
}

TEST_F(HttpStallAborted, AsynchronousReadIsCalledBackWithWhatHadArrived) {
  int id = 0;
  ASSERT_EQ(x_fluvia_file_read_async(file->handle, &bytes[0], kWanted,
                                     &support::Completions::completed, &done, &id),
            FVFR_OK);
  ASSERT_TRUE(hasArrived());
  EXPECT_EQ(x_fluvia_file_read_abort(file->handle, id), FVFR_OK);
  ASSERT_TRUE(done.waitFor(1));
  EXPECT_EQ(done.calls()[0].status, FVFR_ASYNC_CANCELLED);
  ASSERT_EQ(done.calls()[0].bytes, kArrived);
  EXPECT_TRUE(support::isPattern(bytes.substr(0, kArrived), 0, kArrived));
  file->close();
  EXPECT_EQ(done.count(), 1u);
}

// Before the first byte of the answer, and in its body.
class HttpClose : public testing::TestWithParam<int> {};

TEST_P(HttpClose, ReturnsAtOnce) {
  FaultServer server;
  double shortest = 1000;
  for (int round = 0; round < 3 && shortest >= 0.3; ++round) {
    std::atomic<bool> settled{false};
    server.on("/a", support::stallAndTell(100000, GetParam(), &settled));
    ApiFile file(server.url("/a"));
    std::thread reader([&] { file.read(50000); });
    EXPECT_TRUE(support::eventually([&] { return settled.load(); }));
    const support::Stopwatch watch;
    file.close();
    shortest = std::min(shortest, watch.seconds());
    reader.join();
    EXPECT_TRUE(server.waitUntilIdle());
  }
  EXPECT_LT(shortest, 0.3) << "libcurl alone looks around once a second";
}

INSTANTIATE_TEST_SUITE_P(Bytes, HttpClose, testing::Values(-1, 5000));

TEST(HttpStall, SeekOnASilentConnectionReturnsAtOnce) {
  FaultServer server;
  server.on("/a", support::stallAfter(5000000, 5000));
  ApiFile file(server.url("/a"), 4 * FVFR_BUFFER_BLOCK);
  EXPECT_TRUE(file.readsPattern(0, 1000));
  const support::Stopwatch watch;
  EXPECT_EQ(file.seek(3000000), FVFR_OK);
  EXPECT_LT(watch.seconds(), support::patience(5)) << "only the next read waits for the server";
}

// --- every entry point while a transfer is parked -----------------------------------------------

TEST(HttpParked, EveryEntryPointReturns) {
  FaultServer server;
  server.on("/a", support::serveRanges(20000));
  ApiFile file(server.url("/a"));
  EXPECT_TRUE(file.restIsPattern(0, 20000, 4096));
  std::atomic<bool> done{false};
  std::thread caller([&] {
    const int h = file.handle;
    char text[100];
    int length = 0;
    x_fluvia_file_set_featureflag(h, -1);
    x_fluvia_file_http_get_speed(h);
    x_fluvia_file_http_set_speed(h, 0);
    x_fluvia_file_http_get_content_type(h);
    x_fluvia_file_http_get_server_name(h);
    x_fluvia_file_http_set_userAgent(h, "x");
    x_fluvia_file_http_set_proxy(h, "");
    x_fluvia_file_http_set_CAPath(h, "/");
    x_fluvia_file_http_set_CA(h, "/");
    x_fluvia_file_http_set_cookie(h, "x");
    x_fluvia_file_http_set_client_authert(h, "x");
    x_fluvia_file_http_set_private_key(h, "x");
    x_fluvia_file_http_set_key_type(h, "PEM");
    x_fluvia_file_http_set_ip_resolve(h, "IPv4");
    x_fluvia_file_http_get_download_status(h);
    x_fluvia_file_http_get_url_ip(h, text);
    x_fluvia_file_http_get_header(h, text, sizeof text, &length);
    done = true;
  });
  EXPECT_TRUE(support::eventually([&] { return done.load(); }))
      << "one of them waits for the parked transfer";
  caller.join();
}

TEST(HttpSettings, InALoopWhileReadersReadHurtNothing) {
  FaultServer server;
  server.on("/a", support::dropAfter(3000000, 300000));
  ApiFile file(server.url("/a"), 4 * FVFR_BUFFER_BLOCK);
  std::atomic<bool> over{false};
  std::thread setter([&] {
    const int h = file.handle;
    char text[16];
    char buffer[200];
    int length = 0;
    for (int i = 0; !over; ++i) {
      const std::string value(static_cast<size_t>(1 + i % 200), 'v');
      x_fluvia_file_http_set_userAgent(h, value.c_str());
      x_fluvia_file_http_set_cookie(h, value.c_str());
      x_fluvia_file_http_set_proxy(h, "");
      x_fluvia_file_http_set_ip_resolve(h, "whatever");
      x_fluvia_file_http_set_speed(h, i % 2 == 0 ? 0 : 1LL << 40);
      x_fluvia_file_set_featureflag(h, i % 2);
      x_fluvia_file_http_get_content_type(h);
      x_fluvia_file_http_get_server_name(h);
      x_fluvia_file_http_get_header(h, buffer, sizeof buffer, &length);
      x_fluvia_file_http_get_url_ip(h, text);
      x_fluvia_file_http_get_speed(h);
      x_fluvia_file_http_get_download_status(h);
    }
  });
  EXPECT_TRUE(file.restIsPattern(0, 3000000, 65536));
  over = true;
  setter.join();
}

}  // namespace

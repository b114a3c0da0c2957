#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <thread>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"
#include "util/PausePoint.h"
#include "webs/MethodRequest.h"
#include "webs/SslMultithread.h"

namespace {

// Seconds that the wall clock is wrong by.
std::atomic<long> clockError{0};

}  // namespace

namespace {

// While held, a host name is being resolved, for five seconds at most.
std::atomic<bool> resolverHeld{false};
std::atomic<int> resolving{0};

}  // namespace

namespace {

// An option that libcurl does not know, 0 for none.
std::atomic<int> unknownOption{0};

}  // namespace

// The enumeration is as wide as what it is promoted to.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"
extern "C" __attribute__((visibility("default"))) CURLcode curl_easy_setopt(CURL* handle,
                                                                            CURLoption option,
                                                                            ...) {
  using Function = CURLcode (*)(CURL*, CURLoption, ...);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
  if (option == unknownOption) return CURLE_UNKNOWN_OPTION;
  va_list arguments;
  va_start(arguments, option);
  // A pointer or a long: both are handed on in the same way.
  void* value = va_arg(arguments, void*);
  va_end(arguments);
  return real(handle, option, value);
}
#pragma GCC diagnostic pop

// Take the place of the C library's functions for the session and libcurl.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node,
                                                                  const char* service,
                                                                  const struct addrinfo* hints,
                                                                  struct addrinfo** result) {
  using Function = int (*)(const char*, const char*, const struct addrinfo*, struct addrinfo**);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if (!resolverHeld) return real(node, service, hints, result);
  ++resolving;
  support::eventually([] { return !resolverHeld.load(); }, 5);
  --resolving;
  return EAI_FAIL;
}

extern "C" __attribute__((visibility("default"))) int gettimeofday(struct timeval* time,
                                                                   void* zone) noexcept {
  using Function = int (*)(struct timeval*, void*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "gettimeofday"));
  const int result = real(time, zone);
  time->tv_sec += clockError;
  return result;
}

namespace {

using support::FaultServer;

constexpr int kAborted = 42;

// A session with its receiver; a transfer can run on a thread of its own.
struct Probe {
  explicit Probe(int featureFlag = -1) {
    if (featureFlag != -1) session.setMethodFeatureFlag(featureFlag);
    session.initialize(&receiver, "");
  }
  ~Probe() {
    session.stop();
    join();
  }
  int get(const std::string& url, long long start = 0, long long end = 0) {
    return session.executeGet(url, start, end, 1);
  }
  void start(const std::string& url) {
    runner = std::thread([=] { result = session.executeGet(url, 0, 0, 1); });
  }
  int join() {
    if (runner.joinable()) runner.join();
    return result;
  }

  support::CollectingRequestor receiver;
  webs::MethodRequest session;
  std::thread runner;
  std::atomic<int> result{0};
};

TEST(MethodRequest, HandsOverTheWholeBodyWithItsVersion) {
  FaultServer server;
  server.on("/a", support::serveRanges(300000));
  Probe probe;
  EXPECT_EQ(probe.session.executeGet(server.url("/a"), 0, 0, 77), 0);
  EXPECT_EQ(probe.receiver.body(), support::pattern(0, 300000));
  EXPECT_EQ(probe.receiver.lastVersion, 77);
  EXPECT_NE(probe.receiver.lastHandle, nullptr);
  EXPECT_EQ(probe.session.getFileSize(), 300000);
  EXPECT_EQ(probe.session.getResponseCode(), 200);
  EXPECT_EQ(probe.session.getContentType(), "video/mp4");
  EXPECT_EQ(probe.session.getServerName(), "fault");
  EXPECT_FALSE(probe.session.isActive());
  EXPECT_FALSE(probe.session.isRangeGet());
}

TEST(MethodRequest, SendsTheHeadersPlayersAreKnownBy) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  Probe probe;
  probe.get(server.url("/a"));
  const support::Request request = server.requests("/a").at(0);
  EXPECT_EQ(request.header("User-Agent"), "curl/7.19.5");
  EXPECT_EQ(request.header("Pragma"), "no-cache");
  EXPECT_FALSE(request.has("Range"));
}

TEST(MethodRequest, RangeTextsAreOpenOrBounded) {
  FaultServer server;
  server.on("/a", support::serveRanges(5000));
  Probe probe;
  EXPECT_EQ(probe.get(server.url("/a"), 1000, 1999), 0);
  probe.session.setSupportSeek(true);
  probe.get(server.url("/a"), 1000, 0);
  EXPECT_TRUE(probe.session.isRangeGet());
  probe.get(server.url("/a"), 1000, 1999);
  probe.get(server.url("/a"), 0, 0);
  probe.session.setSupportSeek(false);
  probe.get(server.url("/a"), 1000, 0);
  EXPECT_EQ(server.ranges("/a"),
            (std::vector<std::string>{"", "bytes=1000-", "bytes=1000-1999", "bytes=0-", ""}));
}

TEST(MethodRequest, BoundedTransferSetsNoSize) {
  FaultServer server;
  server.on("/a", support::serveRanges(5000));
  Probe probe;
  probe.session.setSupportSeek(true);
  EXPECT_EQ(probe.get(server.url("/a"), 1000, 1999), 0);
  EXPECT_EQ(probe.session.getFileSize(), 0);
  EXPECT_EQ(probe.get(server.url("/a"), 1000, 0), 0);
  EXPECT_EQ(probe.session.getFileSize(), 5000);
}

TEST(MethodRequest, StatusOf400AndAboveIsTheResult) {
  FaultServer server;
  Probe probe;
  for (const int status : {400, 404, 403, 416, 500, 503, 600, 999}) {
    server.on("/s", support::answerStatus(status));
    EXPECT_EQ(probe.get(server.url("/s")), status);
  }
}

TEST(MethodRequest, EmptySuccessIsNotFound) {
  FaultServer server;
  server.on("/e", support::answerStatus(200, ""));
  server.on("/n", support::answerStatus(204));
  Probe probe;
  EXPECT_EQ(probe.get(server.url("/e")), 404);
  EXPECT_EQ(probe.get(server.url("/n")), 0);
  EXPECT_EQ(probe.session.getResponseCode(), 204);
}

TEST(MethodRequest, ReceiverThatTakesLessEndsTheTransfer) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000));
  Probe probe;
  probe.receiver.onPiece = [](void*, int size) { return size - 1; };
  EXPECT_EQ(probe.get(server.url("/a")), 23);
}

TEST(MethodRequest, ExceptionOfTheReceiverEndsTheTransferOnly) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000));
  Probe probe;
  probe.receiver.onPiece = [](void*, int) -> int { throw std::bad_alloc(); };
  EXPECT_EQ(probe.get(server.url("/a")), 27) << "23 is a piece that was refused, and no failure";
}

#if defined(FLUVIA_PAUSE_POINTS)
const char* throwingPoint = "";

void throwAtPoint(const char* name) {
  if (strcmp(name, throwingPoint) == 0) throw std::bad_alloc();
}

TEST(MethodRequest, ExceptionOfACallbackEndsTheTransferOnly) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000));
  Probe probe;
  util::setPauseHook(&throwAtPoint);
  throwingPoint = "MethodRequest::openSocket";
  EXPECT_EQ(probe.get(server.url("/a")), 27);
  throwingPoint = "MethodRequest::mayGoOn";
  EXPECT_EQ(probe.get(server.url("/a")), 27);
  throwingPoint = "MethodRequest::closeSocket";
  EXPECT_EQ(probe.get(server.url("/a")), 27);
  util::setPauseHook(nullptr);
  EXPECT_EQ(probe.get(server.url("/a")), 0);
}
#endif

TEST(MethodRequest, RedirectsAreNotFollowedWhenTheyCannotBeConfined) {
  FaultServer server;
  server.on("/a", support::redirect(302, server.url("/b")));
  server.on("/b", support::serveRanges(1000));
  {
    Probe probe;
    EXPECT_EQ(probe.get(server.url("/a")), 0);
  }
  unknownOption = CURLOPT_REDIR_PROTOCOLS_STR;
  Probe probe;
  unknownOption = 0;
  probe.get(server.url("/a"));
  EXPECT_EQ(probe.session.getResponseCode(), 302);
  EXPECT_EQ(server.requestCount("/b"), 1) << "the first session's";
}

TEST(MethodRequest, BrokenTransfersGiveLibcurlsCode) {
  FaultServer server;
  server.on("/short", support::lieAboutLength(1000, 200));
  server.on("/reset", support::resetAfter(100000, 1000));
  server.on("/none", support::answerRaw(""));
  server.on("/old", support::answerRaw("no header at all"));
  server.on("/chunk", support::cutChunk(1000, 100));
  Probe probe;
  EXPECT_EQ(probe.get(server.url("/short")), 18);
  EXPECT_EQ(probe.get(server.url("/reset")), 56);
  EXPECT_EQ(probe.get(server.url("/none")), 52);
  EXPECT_EQ(probe.get(server.url("/old")), 1) << "HTTP/0.9 is refused";
  EXPECT_EQ(probe.get(server.url("/chunk")), 18);
}

TEST(MethodRequest, RefusedConnectionLeavesTheSystemsError) {
  Probe probe;
  const std::string closed = "http://127.0.0.1:" + std::to_string(support::closedPort()) + "/";
  EXPECT_EQ(probe.get(closed), 7);
  EXPECT_EQ(probe.session.getErrno(), ECONNREFUSED);
  // No packet leaves for a name that cannot be one.
  EXPECT_EQ(probe.get("http://a..b/"), 6);
  EXPECT_EQ(probe.session.getErrno(), 0) << "an earlier transfer's error";
}

TEST(MethodRequest, ShortConnectTimeoutEndsAConnectThatNobodyAnswers) {
  support::FullListener listener;
  Probe probe(1);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get("http://127.0.0.1:" + std::to_string(listener.port()) + "/"), 28);
  EXPECT_GE(watch.seconds(), 5.9);
  EXPECT_LT(watch.seconds(), support::patience(9.5));
}

TEST(MethodRequest, ShoutcastAnswerCountsAs200) {
  FaultServer server;
  server.on("/icy", support::serveIcy(20000));
  Probe probe;
  EXPECT_EQ(probe.get(server.url("/icy")), 0);
  EXPECT_EQ(probe.session.getResponseCode(), 200);
  EXPECT_EQ(probe.receiver.body(), support::pattern(0, 20000));
  EXPECT_EQ(probe.session.getFileSize(), 20000);
}

TEST(MethodRequest, HeadersAreThoseOfTheFinalResponse) {
  FaultServer server;
  server.on("/to", support::serveRanges(100, "X-New: yes\r\n"));
  Probe probe;
  for (const int status : {301, 302, 303, 307, 308}) {
    server.on("/from", support::redirect(status, server.url("/to")));
    EXPECT_EQ(probe.get(server.url("/from")), 0) << status;
    char buffer[8192];
    int length = 0;
    probe.session.getResponseHeader(buffer, sizeof buffer, &length);
    const std::string text(buffer, static_cast<size_t>(length));
    EXPECT_EQ(text.find("HTTP/1.1 200 OK\r\n"), 0u) << status << text;
    EXPECT_EQ(text.find("X-Old"), std::string::npos) << status;
    EXPECT_EQ(text.substr(text.size() - 4), "\r\n\r\n");
  }
}

TEST(MethodRequest, RedirectLoopEndsAfterFifty) {
  FaultServer server;
  server.on("/loop", support::redirect(302, "/loop"));
  Probe probe;
  EXPECT_EQ(probe.get(server.url("/loop")), 47);
  EXPECT_EQ(server.requestCount("/loop"), 51);
}

TEST(MethodRequest, RedirectLeavesHttpForNothingElse) {
  FaultServer server;
  Probe probe;
  for (const char* target : {"file:///etc/hostname", "ftp://127.0.0.1/x", "gopher://127.0.0.1/"}) {
    server.on("/away", support::redirect(302, target));
    EXPECT_EQ(probe.get(server.url("/away")), 1) << target;
    EXPECT_EQ(probe.receiver.body(), "") << target;
  }
}

TEST(MethodRequest, MoreHeadersThanFitAreDropped) {
  FaultServer server;
  server.on("/long", support::serveLongHeaders(1000, 20000));
  Probe probe;
  EXPECT_EQ(probe.get(server.url("/long")), 0);
  int length = 0;
  probe.session.getResponseHeader(nullptr, 0, &length);
  EXPECT_EQ(length, 8192);
  EXPECT_FALSE(probe.session.checkFromContentLength());
}

TEST(MethodRequest, MissingContentTypeIsEmpty) {
  FaultServer server;
  server.on("/t", support::serveRanges(10));
  server.on("/n", support::answerStatus(200, "x"));
  Probe probe;
  EXPECT_EQ(probe.session.getContentType(), "");
  probe.get(server.url("/t"));
  EXPECT_EQ(probe.session.getContentType(), "video/mp4");
  probe.get(server.url("/n"));
  EXPECT_EQ(probe.session.getContentType(), "");
}

TEST(MethodRequest, AddressOfTheLastSocketIsKnown) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  support::CapturedStderr log(2);
  webs::MethodRequest bare;
  char text[16] = "x";
  EXPECT_EQ(bare.getUrlIP(text), -1);
  EXPECT_TRUE(log.has("getUrlIP: curl not init"));
  Probe probe;
  EXPECT_EQ(probe.session.getUrlIP(text), 0);
  EXPECT_STREQ(text, "") << "no socket yet";
  probe.get(server.url("/a"));
  EXPECT_EQ(probe.session.getUrlIP(text), 0);
  EXPECT_STREQ(text, "127.0.0.1");
  EXPECT_TRUE(log.has("FluviaSocket: URL IP: 127.0.0.1"));
  EXPECT_TRUE(log.has("getUrlIP: IP : 127.0.0.1"));
  EXPECT_EQ(probe.session.getUrlIP(nullptr), -1);
  EXPECT_TRUE(log.has("getUrlIP: Error, input ip_buf shouldn't be NULL"));
}

TEST(MethodRequest, LogsItsSteps) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  support::CapturedStderr log(2);
  {
    Probe probe;
    probe.get(server.url("/a"));
    probe.session.setStopWait();
    probe.session.setBreak();
    EXPECT_TRUE(probe.session.getStopWait());
    probe.session.stop();
    EXPECT_FALSE(probe.session.getStopWait());
  }
  for (const char* line :
       {"InitCurl: url is NULL", "executeGet: set fgrangeget to false",
        "executeGet: get file size : 10", "response: response in", "setStopWait: stopwait : 1",
        "setBreak: MethodRequest:: call Break", "stop: MethodRequest begin to stop active = 0",
        "stop: MethodRequest begin to stop End", "~MethodRequest: ~MethodRequest",
        "headerContentIn: response_code =200"}) {
    EXPECT_TRUE(log.has(line)) << line;
  }
  const std::string all = log.text();
  EXPECT_NE(all.find("PFFFF begin to perform(url: " + server.url("/a") + ", start: 0, end: 0)"),
            std::string::npos);
  EXPECT_NE(all.find("curl_easy_perform ret:0, respond code:200, socket_errno:"),
            std::string::npos);
  EXPECT_NE(all.find("maxspeed:0 Byte/s, download End size 10 Byte"), std::string::npos);
  EXPECT_NE(all.find(") Data In  size = 10, version = 1"), std::string::npos);
}

// --- stop ---------------------------------------------------------------------------------------

// Stops transfers from server that have been silent for a while: libcurl then looks around once a
// second. Returns the shortest stop in seconds: a busy
// machine may make any of them long.
double shortestStop(FaultServer* server) {
  Probe probe;
  double shortest = 1000;
  for (const long long count : {-1LL, 0LL, 1000LL}) {
    std::atomic<bool> settled{false};
    server->on("/s", support::stallAndTell(100000, count, &settled));
    probe.start(server->url("/s"));
    EXPECT_TRUE(support::eventually([&] { return settled.load(); }));
    const support::Stopwatch watch;
    probe.session.stop();
    shortest = std::min(shortest, watch.seconds());
    EXPECT_EQ(probe.join(), kAborted) << count;
    EXPECT_TRUE(server->waitUntilIdle());
  }
  return shortest;
}

TEST(MethodRequestStop, EndsASilentTransferAtOnce) {
  FaultServer server;
  EXPECT_LT(shortestStop(&server), 0.3);
}

TEST(MethodRequestStop, EndsAConnectThatNobodyAnswers) {
  support::FullListener listener;
  Probe probe;
  probe.session.arm();
  probe.start("http://127.0.0.1:" + std::to_string(listener.port()) + "/");
  const support::Stopwatch watch;
  probe.session.stop();
  EXPECT_LT(watch.seconds(), support::patience(1.5));
  EXPECT_EQ(probe.join(), kAborted);
}

TEST(MethodRequestStop, DoesNotWaitForTheNameResolver) {
  resolverHeld = true;
  double shortest = 1000;
  for (int round = 0; round < 2; ++round) {
    Probe probe;
    const int before = resolving;
    probe.start("http://slow.test/");
    ASSERT_TRUE(support::eventually([&] { return resolving > before; }));
    const support::Stopwatch watch;
    probe.session.stop();
    shortest = std::min(shortest, watch.seconds());
    EXPECT_EQ(probe.join(), kAborted);
  }
  EXPECT_LT(shortest, 2) << "the resolver takes five seconds";
  resolverHeld = false;
  EXPECT_TRUE(support::eventually([] { return resolving == 0; }));
}

TEST(MethodRequestStop, CutBodyWithoutALengthSetsNoSize) {
  FaultServer server;
  server.on("/live", [](support::Exchange& exchange) {
    exchange.send("HTTP/1.0 200 OK\r\n\r\n");
    exchange.sendPattern(0, 5000);
    exchange.hold();
  });
  Probe probe;
  probe.start(server.url("/live"));
  ASSERT_TRUE(probe.receiver.waitForBytes(5000));
  probe.session.stop();
  EXPECT_EQ(probe.join(), kAborted);
  EXPECT_EQ(probe.session.getFileSize(), 0);
}

TEST(MethodRequestStop, AnnouncedTransferIsEndedBeforeItOpensASocket) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  Probe probe;
  probe.session.arm();
  std::thread stopper([&] { probe.session.stop(); });
  while (probe.session.isActive()) std::this_thread::yield();
  EXPECT_EQ(probe.get(server.url("/a")), kAborted);
  stopper.join();
  EXPECT_EQ(server.connectionCount(), 0);
  EXPECT_EQ(probe.get(server.url("/a")), 0) << "the next one runs";
}

TEST(MethodRequestStop, SecondCallerWaitsToo) {
  FaultServer server;
  server.on("/a", support::serveRanges(100000));
  Probe probe;
  std::atomic<bool> release{false};
  std::atomic<bool> left{false};
  std::atomic<bool> entered{false};
  probe.receiver.onPiece = [&](void*, int size) {
    entered = true;
    while (!release) std::this_thread::yield();
    left = true;
    return size;
  };
  probe.start(server.url("/a"));
  ASSERT_TRUE(support::eventually([&] { return entered.load(); }));
  std::thread first([&] { probe.session.stop(); });
  while (probe.session.isActive()) std::this_thread::yield();
  std::thread second([&] {
    probe.session.stop();
    EXPECT_TRUE(left) << "the transfer was still inside the receiver";
  });
  std::this_thread::yield();
  release = true;
  first.join();
  second.join();
  EXPECT_EQ(probe.join(), kAborted);
}

TEST(MethodRequestStop, CutsALimitersSleepShort) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000000));
  Probe probe;
  probe.session.setSpeed(100);
  probe.start(server.url("/a"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1));
  const support::Stopwatch watch;
  probe.session.stop();
  EXPECT_LT(watch.seconds(), support::patience(1));
  EXPECT_EQ(probe.join(), kAborted);
}

TEST(MethodRequestStop, NeverTouchesADescriptorThatWasClosed) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  Probe probe;
  probe.get(server.url("/a"));
  // Descriptors are given again lowest first: one of these was the session's.
  int pairs[8][2];
  for (auto& pair : pairs) ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  server.on("/s", support::staySilent());
  probe.start(server.url("/s"));
  ASSERT_TRUE(server.waitForRequests("/s", 1));
  probe.session.stop();
  for (auto& pair : pairs) {
    EXPECT_EQ(write(pair[0], "x", 1), 1);
    EXPECT_EQ(write(pair[1], "x", 1), 1);
    close(pair[0]);
    close(pair[1]);
  }
}

// --- stalls -------------------------------------------------------------------------------------

TEST(MethodRequestStall, SilenceBeforeTheFirstByteEndsAfterTenSeconds) {
  FaultServer server;
  server.on("/s", support::staySilent());
  support::CapturedStderr log(2);
  Probe probe(1);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -2);
  EXPECT_GE(watch.seconds(), 9.99) << "the short time-outs are for the data phase";
  EXPECT_LT(watch.seconds(), support::patience(13));
  EXPECT_NE(log.text().find(" s No data in, don't wait anymaore..."), std::string::npos);
  EXPECT_NE(log.text().find(" s No data in\n"), std::string::npos);
}

TEST(MethodRequestStall, SilenceMidBodyEndsAfterTenSeconds) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  Probe probe;
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -2);
  EXPECT_GE(watch.seconds(), 9.99);
  EXPECT_LT(watch.seconds(), support::patience(13));
}

TEST(MethodRequestStall, ShortTimeoutsEndSilenceMidBodyAfterFourSeconds) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  support::CapturedStderr log(2);
  Probe probe(1);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -2);
  EXPECT_GE(watch.seconds(), 3.99);
  EXPECT_LT(watch.seconds(), support::patience(7));
  EXPECT_NE(log.text().find("Too long time no data comes, the connection is die, disconnect"),
            std::string::npos);
  EXPECT_NE(log.text().find("The http connection speed is low and "), std::string::npos);
}

TEST(MethodRequestStall, BreakEndsAStallAfterTwoSecondsOnce) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  support::CapturedStderr log(2);
  Probe probe(1);
  probe.session.setBreak();
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -1);
  EXPECT_GE(watch.seconds(), 1.99);
  EXPECT_LT(watch.seconds(), support::patience(5));
  EXPECT_NE(log.text().find(" s no data comes, customer cancel read"), std::string::npos);
  EXPECT_EQ(probe.get(server.url("/s")), -2) << "the request was used up";
}

TEST(MethodRequestStall, BreakEndsTheConnectionPhaseToo) {
  FaultServer server;
  server.on("/s", support::staySilent());
  Probe probe;
  probe.session.setBreak();
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/s")), -1);
  EXPECT_GE(watch.seconds(), 1.99);
  EXPECT_LT(watch.seconds(), support::patience(5));
}

TEST(MethodRequestStall, ClockSetBackStartsTheWatchAgain) {
  FaultServer server;
  server.on("/s", support::stallAfter(100000, 1000));
  Probe probe(1);
  probe.start(server.url("/s"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  support::CapturedStderr log(-4);
  const support::Stopwatch watch;
  while (log.text().find("connection speed is low") == std::string::npos && watch.seconds() < 20) {
    std::this_thread::yield();
  }
  clockError = -1000;
  EXPECT_EQ(probe.join(), -2);
  clockError = 0;
  EXPECT_LT(watch.seconds(), support::patience(12)) << "a watch that counts backwards never ends";
}

TEST(MethodRequestStall, DripKeepsATransferAlive) {
  FaultServer server;
  server.on("/d", support::drip(6, 1, 900));
  Probe probe(1);
  EXPECT_EQ(probe.get(server.url("/d")), 0);
  EXPECT_EQ(probe.receiver.body(), support::pattern(0, 6));
}

// --- settings -----------------------------------------------------------------------------------

TEST(MethodRequestSettings, AreSent) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  Probe probe;
  probe.session.setUserAgent("player/1");
  probe.session.setCookie("a=b; c=d");
  probe.get(server.url("/a"));
  EXPECT_EQ(server.requests("/a")[0].header("User-Agent"), "player/1");
  EXPECT_EQ(server.requests("/a")[0].header("Cookie"), "a=b; c=d");
}

TEST(MethodRequestSettings, CannotSmuggleHeaders) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  Probe probe;
  probe.session.setUserAgent("player\r\nX-One: 1");
  probe.session.setCookie("a=b\nX-Two: 2");
  probe.get(server.url("/a"));
  const support::Request request = server.requests("/a")[0];
  EXPECT_EQ(request.header("User-Agent"), "player");
  EXPECT_EQ(request.header("Cookie"), "a=b");
  EXPECT_FALSE(request.has("X-One"));
  EXPECT_FALSE(request.has("X-Two"));
}

TEST(MethodRequestSettings, MadeDuringATransferHoldFromTheNextOneOn) {
  FaultServer server;
  server.on("/a", support::stallAfter(100000, 1000));
  server.on("/b", support::serveRanges(10));
  Probe probe;
  probe.session.setUserAgent("before");
  probe.start(server.url("/a"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  const support::Stopwatch watch;
  for (int i = 0; i < 1000; ++i) {
    probe.session.setUserAgent("during " + std::to_string(i));
    probe.session.setCookie("n=" + std::to_string(i));
    probe.session.setIpResolve(i % 2 == 0 ? "IPv6" : "whatever");
  }
  EXPECT_LT(watch.seconds(), support::patience(5)) << "a setting waited for the transfer";
  probe.session.stop();
  probe.join();
  EXPECT_EQ(probe.get(server.url("/b")), 0) << "the last family holds";
  EXPECT_EQ(server.requests("/b")[0].header("User-Agent"), "during 999");
  EXPECT_EQ(server.requests("/b")[0].header("Cookie"), "n=999");
}

// A transfer may run for hours, and its caller keep setting.
TEST(MethodRequestSettings, MadeAgainAndAgainDuringATransferAreKeptOnce) {
  FaultServer server;
  server.on("/a", support::stallAfter(100000, 1000));
  Probe probe;
  probe.start(server.url("/a"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  constexpr size_t kValue = 100000;
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 500; ++i) probe.session.setUserAgent(std::string(kValue, 'v'));
  EXPECT_LT(mallinfo2().uordblks, before + 100 * kValue);
  probe.session.stop();
  probe.join();
}

// libcurl reads the headers that all sessions share while other sessions are made.
TEST(MethodRequestSettings, SessionsAreMadeOnManyThreads) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  std::vector<std::thread> makers;
  for (int i = 0; i < 8; ++i) {
    makers.emplace_back([&] {
      Probe probe;
      EXPECT_EQ(probe.get(server.url("/a")), 0);
    });
  }
  for (std::thread& maker : makers) maker.join();
  for (const auto& request : server.requests("/a")) {
    EXPECT_EQ(request.header("Pragma"), "no-cache");
  }
}

TEST(MethodRequestSettings, InALoopDuringTransfersHurtNothing) {
  FaultServer server;
  server.on("/from", support::redirect(302, "/a"));
  server.on("/a", support::serveRanges(200000));
  Probe probe;
  std::atomic<bool> over{false};
  std::thread setter([&] {
    for (int i = 0; !over; ++i) {
      const std::string value(static_cast<size_t>(i % 300), 'v');
      probe.session.setUserAgent(value);
      probe.session.setCookie(value);
      probe.session.setClientAuthertication(value);
      probe.session.setPrivateKey(value);
      probe.session.setKeyType("PEM");
      probe.session.setIpResolve("IPv4");
      probe.session.setSpeed(i % 2 == 0 ? 0 : 1LL << 40);
    }
  });
  std::thread getter([&] {
    char text[100];
    int length = 0;
    while (!over) {
      probe.session.getContentType();
      probe.session.getServerName();
      probe.session.getResponseHeader(text, sizeof text, &length);
      probe.session.getUrlIP(text);
      probe.session.getSpeed();
      probe.session.getFileSize();
      probe.session.isActive();
      probe.session.setStopWait();
      probe.session.getErrno();
    }
  });
  for (int i = 0; i < 20; ++i) EXPECT_EQ(probe.get(server.url("/from")), 0);
  over = true;
  setter.join();
  getter.join();
}

TEST(MethodRequestSettings, FamilyIsChosenByName) {
  support::CapturedStderr log(0);
  Probe probe;
  for (const char* type : {"IPv4", "IPv6", "whatever", "ipv4"}) probe.session.setIpResolve(type);
  EXPECT_EQ(log.messages("setIpResolve"),
            (std::vector<std::string>{"setIpResolve: set IPv4", "setIpResolve: set IPv6",
                                      "setIpResolve: set WHATEVER",
                                      "setIpResolve: IpType is invalid (ipv4)"}));
}

TEST(MethodRequestSettings, RetryFamilyIsTheOtherOneAndAnyBecomesIPv6) {
  support::CapturedStderr log(0);
  Probe probe;
  for (const char* type : {"IPv4", "IPv6", "whatever"}) {
    probe.session.setIpResolve(type);
    probe.session.changeIptype(true);
    probe.session.changeIptype(false);
  }
  EXPECT_EQ(log.messages("changeIptype"),
            (std::vector<std::string>{"changeIptype: set IPv6", "changeIptype: set IPv4",
                                      "changeIptype: set IPv4", "changeIptype: set IPv6",
                                      "changeIptype: set IPv4", "changeIptype: set IPv6"}));
}

// --- TLS ----------------------------------------------------------------------------------------

TEST(MethodRequestTls, ChecksAreOffUntilAnAuthorityIsNamed) {
  const support::TestCertificate own;
  const support::TestCertificate other;
  FaultServer server(own.certificate(), own.key());
  server.on("/a", support::serveRanges(100000));
  Probe probe;
  EXPECT_EQ(probe.get(server.url("/a")), 0);
  EXPECT_EQ(probe.receiver.body(), support::pattern(0, 100000));
  probe.session.setCA(own.certificate());
  EXPECT_EQ(probe.get(server.url("/a")), 0);
  probe.session.setCA(other.certificate());
  EXPECT_EQ(probe.get(server.url("/a")), 60);
  probe.session.setCA("/nowhere/ca.pem");
  EXPECT_EQ(probe.get(server.url("/a")), 77);
}

TEST(MethodRequestTls, WrongHostAndExpiredCertificatesAreRefused) {
  const support::TestCertificate elsewhere("elsewhere.test");
  FaultServer wrong(elsewhere.certificate(), elsewhere.key());
  Probe probe;
  probe.session.setCA(elsewhere.certificate());
  EXPECT_EQ(probe.get(wrong.url("/a")), 60);
  const support::TestCertificate old("127.0.0.1", true);
  FaultServer expired(old.certificate(), old.key());
  probe.session.setCA(old.certificate());
  EXPECT_EQ(probe.get(expired.url("/a")), 60);
}

TEST(MethodRequestTls, UnusableClientCertificateIsItsOwnError) {
  const support::TestCertificate own;
  FaultServer server(own.certificate(), own.key());
  Probe probe;
  probe.session.setClientAuthertication("/nowhere/cert.pem");
  EXPECT_EQ(probe.get(server.url("/a")), 58);
}

TEST(MethodRequestTls, StopEndsASilentTransferAtOnce) {
  const support::TestCertificate own;
  FaultServer server(own.certificate(), own.key());
  EXPECT_LT(shortestStop(&server), 0.3);
}

// A seek costs a connection; with its session taken up again it costs no certificate's check.
TEST(MethodRequestTls, NextConnectionTakesUpTheSessionOfAnEndedOne) {
  const support::TestCertificate own;
  FaultServer server(own.certificate(), own.key());
  server.on("/a", support::serveRanges(100000));
  Probe probe;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(probe.get(server.url("/a")), 0);
  ASSERT_EQ(server.requestCount("/a"), 3);
  EXPECT_FALSE(server.requests("/a")[0].resumed);
  EXPECT_TRUE(server.requests("/a")[1].resumed);
  EXPECT_TRUE(server.requests("/a")[2].resumed);
}

TEST(MethodRequestTls, NextConnectionTakesUpTheSessionOfAStoppedOne) {
  const support::TestCertificate own;
  FaultServer server(own.certificate(), own.key());
  Probe probe;
  constexpr int kStops = 4;
  for (int i = 0; i < kStops; ++i) {
    std::atomic<bool> settled{false};
    server.on("/s", support::stallAndTell(100000, i % 2 == 0 ? 1000 : 0, &settled));
    probe.start(server.url("/s"));
    ASSERT_TRUE(support::eventually([&] { return settled.load(); }));
    probe.session.stop();
    EXPECT_EQ(probe.join(), kAborted);
    ASSERT_TRUE(server.waitUntilIdle());
  }
  const std::vector<support::Request> seen = server.requests("/s");
  ASSERT_EQ(seen.size(), static_cast<size_t>(kStops));
  for (int i = 1; i < kStops; ++i) EXPECT_TRUE(seen[static_cast<size_t>(i)].resumed) << i;
}

TEST(SslMultithread, SetupAndCleanupMayBeRepeated) {
  EXPECT_EQ(cd_ssl_multithread_setup(), 0);
  EXPECT_EQ(cd_ssl_multithread_setup(), 0);
  EXPECT_EQ(cd_ssl_multithread_cleanup(), 0);
  EXPECT_EQ(cd_ssl_multithread_cleanup(), 0);
  EXPECT_EQ(cd_ssl_multithread_setup(), 0);
}

// --- speed --------------------------------------------------------------------------------------

TEST(MethodRequestSpeed, ReportsTheAverageUntilAWindowHasClosed) {
  FaultServer server;
  server.on("/a", support::drip(3000, 1000, 150));
  support::CapturedStderr log(0);
  Probe probe;
  probe.get(server.url("/a"));
  const long long speed = probe.session.getSpeed();
  EXPECT_GT(speed, 500);
  EXPECT_LT(speed, 30000);
  EXPECT_NE(log.text().find(", show cal_avg_speed :" + std::to_string(speed)), std::string::npos);
}

TEST(MethodRequestSpeed, ReportsTheSmoothedRateOnceAWindowHasClosed) {
  FaultServer server;
  server.on("/a", support::drip(15000, 1000, 100));
  support::CapturedStderr log(0);
  Probe probe;
  probe.get(server.url("/a"));
  const long long speed = probe.session.getSpeed();
  EXPECT_GT(speed, 3000);
  EXPECT_LT(speed, 11000);
  EXPECT_NE(log.text().find("show dash_speed :" + std::to_string(speed) + "  cal_avg_speed :"),
            std::string::npos);
  EXPECT_NE(log.text().find(" Bytes/s, im_speed is "), std::string::npos);
}

TEST(MethodRequestSpeed, NothingYetIsLibcurlsFigure) {
  support::CapturedStderr log(0);
  Probe probe;
  EXPECT_EQ(probe.session.getSpeed(), 0);
  EXPECT_NE(log.text().find("show avg_speed :0"), std::string::npos);
}

TEST(MethodRequestSpeed, CapHoldsOnTheAverage) {
  FaultServer server;
  server.on("/a", support::serveRanges(200000));
  Probe probe;
  probe.session.setSpeed(100000);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get(server.url("/a")), 0);
  EXPECT_GE(watch.seconds(), 1.95);
  EXPECT_LT(watch.seconds(), support::patience(5));
}

// --- web-service requests -----------------------------------------------------------------------

TEST(MethodRequestParams, AreAppendedOnce) {
  webs::MethodRequest session;
  session.pushParam("a", "1", webs::VALUE_NUMBER);
  session.pushParam("b", "x y", webs::VALUE_STRING);
  EXPECT_EQ(session.buildUrl("http://h/?"), "http://h/?") << "not asked for yet";
  session.buildParam2URL(true);
  EXPECT_EQ(session.buildUrl("http://h/?"), "http://h/?a=1&b=x y");
  EXPECT_EQ(session.buildUrl("http://h/?"), "http://h/?");
  session.pushParam("left", "over", webs::VALUE_BOOL);
}

TEST(MethodRequestParams, GoIntoTheRequest) {
  FaultServer server;
  server.on("/q?a=1", support::serveRanges(10));
  Probe probe;
  probe.session.buildParam2URL(true);
  probe.session.pushParam("a", "1", webs::VALUE_NUMBER);
  EXPECT_EQ(probe.get(server.url("/q?")), 0);
}

TEST(MethodRequestParams, ResetAnnouncesABody) {
  Probe probe;
  probe.session.reset();
  EXPECT_EQ(probe.receiver.ready, 1);
}

}  // namespace

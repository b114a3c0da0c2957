// The bytes and the result of a transfer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pattern.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/Watchdog.h"
#include "util/PausePoint.h"
#include "webs/MethodRequest.h"

namespace {

using support::FaultServer;
using support::SessionProbe;

TEST(MethodRequest, HandsOverTheWholeBodyWithItsVersion) {
  FaultServer server;
  server.on("/a", support::serveRanges(300000));
  SessionProbe probe;
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
  SessionProbe probe;
  probe.get(server.url("/a"));
  const support::Request request = server.requests("/a").at(0);
  EXPECT_EQ(request.header("User-Agent"), "curl/7.19.5");
  EXPECT_EQ(request.header("Pragma"), "no-cache");
  EXPECT_FALSE(request.has("Range"));
}

TEST(MethodRequest, RangeTextsAreOpenOrBounded) {
  FaultServer server;
  server.on("/a", support::serveRanges(5000));
  SessionProbe probe;
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
  SessionProbe probe;
  probe.session.setSupportSeek(true);
  EXPECT_EQ(probe.get(server.url("/a"), 1000, 1999), 0);
  EXPECT_EQ(probe.session.getFileSize(), 0);
  EXPECT_EQ(probe.get(server.url("/a"), 1000, 0), 0);
  EXPECT_EQ(probe.session.getFileSize(), 5000);
}

TEST(MethodRequest, StatusOf400AndAboveIsTheResult) {
  FaultServer server;
  SessionProbe probe;
  for (const int status : {400, 404, 403, 416, 500, 503, 600, 999}) {
    server.on("/s", support::answerStatus(status));
    EXPECT_EQ(probe.get(server.url("/s")), status);
  }
}

TEST(MethodRequest, EmptySuccessIsNotFound) {
  FaultServer server;
  server.on("/e", support::answerStatus(200, ""));
  server.on("/n", support::answerStatus(204));
  SessionProbe probe;
  EXPECT_EQ(probe.get(server.url("/e")), 404);
  EXPECT_EQ(probe.get(server.url("/n")), 0);
  EXPECT_EQ(probe.session.getResponseCode(), 204);
}

TEST(MethodRequest, ReceiverThatTakesLessEndsTheTransfer) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000));
  SessionProbe probe;
  probe.receiver.onPiece = [](void*, int size) { return size - 1; };
  EXPECT_EQ(probe.get(server.url("/a")), 23);
}

TEST(MethodRequest, ExceptionOfTheReceiverEndsTheTransferOnly) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000));
  SessionProbe probe;
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
  SessionProbe probe;
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

TEST(MethodRequest, BrokenTransfersGiveLibcurlsCode) {
  FaultServer server;
  server.on("/short", support::lieAboutLength(1000, 200));
  server.on("/reset", support::resetAfter(100000, 1000));
  server.on("/none", support::answerRaw(""));
  server.on("/old", support::answerRaw("no header at all"));
  server.on("/chunk", support::cutChunk(1000, 100));
  SessionProbe probe;
  EXPECT_EQ(probe.get(server.url("/short")), 18);
  EXPECT_EQ(probe.get(server.url("/reset")), 56);
  EXPECT_EQ(probe.get(server.url("/none")), 52);
  EXPECT_EQ(probe.get(server.url("/old")), 1) << "HTTP/0.9 is refused";
  EXPECT_EQ(probe.get(server.url("/chunk")), 18);
}

// Returns the process' sockets that are connected to that port of this machine.
std::vector<int> socketsTo(int port) {
  std::vector<int> found;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    struct sockaddr_in peer = {};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<struct sockaddr*>(&peer), &size) == 0 &&
        peer.sin_family == AF_INET && ntohs(peer.sin_port) == port) {
      found.push_back(descriptor);
    }
  }
  return found;
}

TEST(MethodRequest, SocketsAreClosedOnExec) {
  FaultServer server;
  server.on("/a", support::staySilent());
  SessionProbe probe;
  probe.start(server.url("/a"));
  ASSERT_TRUE(server.waitForRequests("/a", 1));
  const std::vector<int> sockets = socketsTo(server.port());
  EXPECT_EQ(sockets.size(), 1u);
  for (const int descriptor : sockets) {
    EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC)
        << "a program that the player starts would keep the connection open";
  }
  probe.session.stop();
  EXPECT_EQ(probe.join(), support::kAborted);
}

TEST(MethodRequest, RefusedConnectionLeavesTheSystemsError) {
  SessionProbe probe;
  const std::string closed = "http://127.0.0.1:" + std::to_string(support::closedPort()) + "/";
  EXPECT_EQ(probe.get(closed), 7);
  EXPECT_EQ(probe.session.getErrno(), ECONNREFUSED);
  // No packet is sent for an impossible name.
  EXPECT_EQ(probe.get("http://a..b/"), 6);
  EXPECT_EQ(probe.session.getErrno(), 0) << "an earlier transfer's error";
}

TEST(MethodRequest, ShortConnectTimeoutEndsAConnectThatNobodyAnswers) {
  support::FullListener listener;
  SessionProbe probe(1);
  const support::Stopwatch watch;
  EXPECT_EQ(probe.get("http://127.0.0.1:" + std::to_string(listener.port()) + "/"), 28);
  EXPECT_GE(watch.seconds(), 5.9);
  EXPECT_LT(watch.seconds(), support::patience(9.5));
}

TEST(MethodRequest, ShoutcastAnswerCountsAs200) {
  FaultServer server;
  server.on("/icy", support::serveIcy(20000));
  SessionProbe probe;
  EXPECT_EQ(probe.get(server.url("/icy")), 0);
  EXPECT_EQ(probe.session.getResponseCode(), 200);
  EXPECT_EQ(probe.receiver.body(), support::pattern(0, 20000));
  EXPECT_EQ(probe.session.getFileSize(), 20000);
}

TEST(MethodRequest, MoreHeadersThanFitAreDropped) {
  FaultServer server;
  server.on("/long", support::serveLongHeaders(1000, 20000));
  SessionProbe probe;
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
  SessionProbe probe;
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
  SessionProbe probe;
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
    SessionProbe probe;
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

}  // namespace

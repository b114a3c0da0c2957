// Settings of a session and their effect on its requests.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/Watchdog.h"
#include "webs/MethodRequest.h"

namespace {

using support::FaultServer;
using support::SessionProbe;

TEST(MethodRequestSettings, AreSent) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  SessionProbe probe;
  probe.session.setUserAgent("player/1");
  probe.session.setCookie("a=b; c=d");
  probe.get(server.url("/a"));
  EXPECT_EQ(server.requests("/a")[0].header("User-Agent"), "player/1");
  EXPECT_EQ(server.requests("/a")[0].header("Cookie"), "a=b; c=d");
}

TEST(MethodRequestSettings, CannotSmuggleHeaders) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  SessionProbe probe;
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
  SessionProbe probe;
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

// The same transfer follows a redirect.
TEST(MethodRequestSettings, MadeDuringATransferDoNotReachItsRedirect) {
  FaultServer server;
  std::atomic<bool> settingMade{false};
  server.on("/a", [&](support::Exchange& exchange) {
    EXPECT_TRUE(support::eventually([&] { return settingMade.load(); }));
    exchange.send("HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Length: 0\r\n\r\n");
  });
  server.on("/b", support::serveRanges(10));
  SessionProbe probe;
  probe.session.setCookie("when=before");
  probe.start(server.url("/a"));
  ASSERT_TRUE(server.waitForRequests("/a", 1));
  probe.session.setCookie("when=during");
  settingMade = true;
  EXPECT_EQ(probe.join(), 0);
  EXPECT_EQ(probe.get(server.url("/b")), 0);
  ASSERT_EQ(server.requestCount("/b"), 2);
  EXPECT_EQ(server.requests("/b")[0].header("Cookie"), "when=before");
  EXPECT_EQ(server.requests("/b")[1].header("Cookie"), "when=during");
}

// A transfer may run for hours while its caller makes settings again and again.
TEST(MethodRequestSettings, MadeAgainAndAgainDuringATransferAreKeptOnce) {
  FaultServer server;
  server.on("/a", support::stallAfter(100000, 1000));
  SessionProbe probe;
  probe.start(server.url("/a"));
  ASSERT_TRUE(probe.receiver.waitForBytes(1000));
  constexpr size_t kValue = 100000;
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 500; ++i) probe.session.setUserAgent(std::string(kValue, 'v'));
  EXPECT_LT(mallinfo2().uordblks, before + 100 * kValue);
  probe.session.stop();
  probe.join();
}

// libcurl reads the headers that all sessions share while other sessions are created.
TEST(MethodRequestSettings, SessionsAreMadeOnManyThreads) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  std::vector<std::thread> makers;
  for (int i = 0; i < 8; ++i) {
    makers.emplace_back([&] {
      SessionProbe probe;
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
  SessionProbe probe;
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
  SessionProbe probe;
  for (const char* type : {"IPv4", "IPv6", "whatever", "ipv4"}) probe.session.setIpResolve(type);
  EXPECT_EQ(log.messages("setIpResolve"),
            (std::vector<std::string>{"setIpResolve: set IPv4", "setIpResolve: set IPv6",
                                      "setIpResolve: set WHATEVER",
                                      "setIpResolve: IpType is invalid (ipv4)"}));
}

TEST(MethodRequestSettings, RetryFamilyIsTheOtherOneAndAnyBecomesIPv6) {
  support::CapturedStderr log(0);
  SessionProbe probe;
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
  SessionProbe probe;
  probe.session.buildParam2URL(true);
  probe.session.pushParam("a", "1", webs::VALUE_NUMBER);
  EXPECT_EQ(probe.get(server.url("/q?")), 0);
}

TEST(MethodRequestParams, ResetAnnouncesABody) {
  SessionProbe probe;
  probe.session.reset();
  EXPECT_EQ(probe.receiver.ready, 1);
}

}  // namespace

// Runs of the producer of a URL, and its settings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/IsPattern.h"
#include "webs/HttpFileRequest.h"

namespace {

using support::FaultServer;
using support::isPattern;
using support::ProducerProbe;
using webs::HttpFileRequest;
using Events = std::vector<int>;

constexpr long long kSize = 200000;

// --- one run ------------------------------------------------------------------------------------

TEST(HttpFileRequest, RunDeliversAndEndsWithOneEvent) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.producer.getContentSize(), 0);
  EXPECT_FALSE(probe.producer.isRandomAccess());
  EXPECT_EQ(probe.producer.getType(), 1);
  EXPECT_EQ(probe.run(7, 0, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 0, kSize));
  EXPECT_EQ(probe.receiver.versions().back(), 7);
  EXPECT_EQ(probe.producer.getContentSize(), kSize);
  EXPECT_TRUE(probe.producer.isRandomAccess());
  EXPECT_EQ(probe.producer.getDownloadStatus(), webs::DOWNLOAD_OK);
}

TEST(HttpFileRequest, LaterRunsAskForTheirRangeAndSendNoStartEvent) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.run(2, 32768, 65536), (Events{3}));
  EXPECT_EQ(probe.run(3, 65536, 0), (Events{3}));
  EXPECT_EQ(probe.run(4, 0, 0), (Events{3}));
  EXPECT_EQ(server.ranges("/a"),
            (std::vector<std::string>{"", "bytes=32768-98303", "bytes=65536-", "bytes=0-"}));
  EXPECT_TRUE(isPattern(probe.receiver.body().substr(kSize, 65536), 32768, 65536));
}

TEST(HttpFileRequest, WithoutAReceiverNothingStarts) {
  FaultServer server;
  HttpFileRequest producer(server.url("/a"));
  producer.initialize();
  EXPECT_EQ(producer.startStreaming(1, 0, 0), -1);
  EXPECT_EQ(server.connectionCount(), 0);
}

TEST(HttpFileRequest, OffsetWithoutRangesIsReachedBySkipping) {
  FaultServer server;
  server.on("/a", support::serveChunked(5200000));
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.run(1, 5000000, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 5000000, 200000));
  EXPECT_FALSE(probe.producer.isRandomAccess());
  EXPECT_EQ(probe.producer.getContentSize(), 5200000) << "learnt at the end";
}

TEST(HttpFileRequest, OffsetOnAFirstRunIsReachedBySkipping) {
  FaultServer server;
  server.on("/a", support::ignoreRanges(5200000));
  ProducerProbe probe(server.url("/a"));
  EXPECT_EQ(probe.run(1, 5000000, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 5000000, 200000));
  EXPECT_TRUE(probe.producer.isRandomAccess()) << "a sized 200 counts as seekable";
}

TEST(HttpFileRequest, LaterOffsetOfAnUnsizedResourceIsReachedBySkipping) {
  FaultServer server;
  server.on("/a", support::serveUntilClose(100000));
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.run(2, 65536, 0), (Events{3}));
  EXPECT_TRUE(isPattern(probe.receiver.body().substr(100000), 65536, 100000 - 65536));
  EXPECT_TRUE(
      log.has("sendRequest: server not support seek, but requestOffset is 65536, so "
              "download data from 0"));
  EXPECT_EQ(server.ranges("/a"), (std::vector<std::string>{"", ""}));
}

// --- settings -----------------------------------------------------------------------------------

TEST(HttpFileRequestSettings, AreLoggedAndSent) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.producer.setUserAgent("tv");
  probe.producer.setCookie("k=v");
  probe.producer.setProxy("http://127.0.0.1:1");
  probe.producer.setCAPath("/ca");
  probe.producer.setCA("/ca.pem");
  probe.producer.setClientAuthertication("/c");
  probe.producer.setPrivateKey("/k");
  probe.producer.setKeyType("DER");
  probe.producer.setIpResolve("whatever");
  probe.producer.setSpeed(0);
  probe.producer.setFeatureFlag(2);
  EXPECT_EQ(probe.producer.getDownloadStatus(), 0);
  probe.producer.setBreak();
  for (const char* line :
       {"setUserAgent: set UAString = tv", "setCookie: set http cookie :k=v",
        "setProxy: set http proxy :http://127.0.0.1:1", "setCAPath: set CA path:/ca",
        "setCAPath: setCAPath: /ca", "setCA: set CA Info:/ca.pem", "setCA: setCA: /ca.pem",
        "setClientAuthertication: set Client Authertication:/c",
        "setPrivateKey: set Private Key:/k", "setKeyType: set Key Type:DER",
        "setIpResolve: set ip resolve:whatever", "setIpResolve: set WHATEVER",
        "setSpeed: set speed:0", "setFeatureFlag: set feature flag:2",
        "getDownloadStatus: download status:0", "setBreak: HttpFileRequest::call setBreak"}) {
    EXPECT_TRUE(log.has(line)) << line;
  }
  EXPECT_NE(log.text().find(", MethodRequest set flag :2"), std::string::npos);
  probe.run(1, 0, 0);
  EXPECT_EQ(server.requests("/a")[0].header("User-Agent"), "tv")
      << "127.0.0.1 is reached without the proxy";
  EXPECT_EQ(server.requests("/a")[0].header("Cookie"), "k=v");
}

TEST(HttpFileRequestSettings, ProxyIsUsedForOtherNames) {
  FaultServer proxy;
  proxy.on("http://media.test/a", support::serveRanges(1000));
  ProducerProbe probe("http://media.test/a");
  probe.producer.setProxy(proxy.url(""));
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 3}));
  EXPECT_TRUE(isPattern(probe.receiver.body(), 0, 1000));
}

}  // namespace

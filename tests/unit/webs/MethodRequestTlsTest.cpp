// Transfers over TLS.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Pattern.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/Watchdog.h"
#include "webs/SslMultithread.h"

namespace {

using support::FaultServer;
using support::kAborted;
using support::SessionProbe;

TEST(MethodRequestTls, ChecksAreOffUntilAnAuthorityIsNamed) {
  const support::TestCertificate own;
  const support::TestCertificate other;
  FaultServer server(own.certificate(), own.key());
  server.on("/a", support::serveRanges(100000));
  SessionProbe probe;
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
  SessionProbe probe;
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
  SessionProbe probe;
  probe.session.setClientAuthertication("/nowhere/cert.pem");
  EXPECT_EQ(probe.get(server.url("/a")), 58);
}

class MethodRequestTlsSilence : public testing::TestWithParam<int> {};

TEST_P(MethodRequestTlsSilence, IsStoppedAtOnce) {
  const support::TestCertificate own;
  FaultServer server(own.certificate(), own.key());
  EXPECT_TRUE(support::stopsAtOnce(&server, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Bytes, MethodRequestTlsSilence, testing::Values(-1, 0, 1000));

// A seek needs a connection; since that resumes its session, it needs no check of a certificate.
TEST(MethodRequestTls, NextConnectionTakesUpTheSessionOfAnEndedOne) {
  const support::TestCertificate own;
  FaultServer server(own.certificate(), own.key());
  server.on("/a", support::serveRanges(100000));
  SessionProbe probe;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(probe.get(server.url("/a")), 0);
  ASSERT_EQ(server.requestCount("/a"), 3);
  EXPECT_FALSE(server.requests("/a")[0].resumed);
  EXPECT_TRUE(server.requests("/a")[1].resumed);
  EXPECT_TRUE(server.requests("/a")[2].resumed);
}

TEST(MethodRequestTls, NextConnectionTakesUpTheSessionOfAStoppedOne) {
  const support::TestCertificate own;
  FaultServer server(own.certificate(), own.key());
  SessionProbe probe;
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

}  // namespace

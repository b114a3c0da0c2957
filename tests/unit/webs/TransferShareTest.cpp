// State shared by sessions: the addresses of names, and TLS sessions if they trust the same.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/SessionProbe.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "tests/unit/webs/TestResolver.h"

namespace {

using support::FaultServer;
using support::SessionProbe;

std::string at(const std::string& host, const FaultServer& server, const std::string& path) {
  const std::string scheme = server.url("").substr(0, server.url("").find("://"));
  return scheme + "://" + host + ":" + std::to_string(server.port()) + path;
}

TEST(TransferShare, TwentyResourcesOfAHostCostOneLookUp) {
  FaultServer server;
  server.on("/a", support::serveRanges(1000));
  const int before = test_resolver::begun;
  for (int i = 0; i < 20; ++i) {
    SessionProbe probe;
    EXPECT_EQ(probe.get(at("film.test", server, "/a")), 0);
  }
  EXPECT_EQ(test_resolver::begun - before, 1);
}

TEST(TransferShare, NameIsLookedUpAnewAfterAConnectionFailed) {
  const std::string path = "/a";
  auto server = std::make_unique<FaultServer>();
  server->on(path, support::serveRanges(1000));
  const int port = server->port();
  const std::string url = at("moved.test", *server, path);
  const int before = test_resolver::begun;
  SessionProbe first;
  EXPECT_EQ(first.get(url), 0);
  server.reset();
  EXPECT_EQ(first.get(url), 7) << "not connected";
  EXPECT_EQ(test_resolver::begun - before, 1);
  server = std::make_unique<FaultServer>(port);
  server->on(path, support::serveRanges(1000));
  SessionProbe second;
  EXPECT_EQ(second.get(url), 0);
  EXPECT_EQ(test_resolver::begun - before, 2) << "another session looks it up";
  EXPECT_EQ(first.get(url), 0);
  EXPECT_EQ(second.get(url), 0);
  EXPECT_LE(test_resolver::begun - before, 3) << "and the new address holds";
}

class TransferShareTls : public testing::Test {
 protected:
  TransferShareTls() { server.on("/a", support::serveRanges(1000)); }

  using Setting = std::function<void(webs::MethodRequest*)>;

  // Gets the resource with a new session. Returns true if that resumed a TLS session.
  bool resumes(const Setting& setting, const std::string& host = "127.0.0.1") {
    SessionProbe probe;
    if (setting != nullptr) setting(&probe.session);
    EXPECT_EQ(probe.get(at(host, server, "/a")), 0);
    return server.requests("/a").back().resumed;
  }

  // A file with the same text under another name.
  std::string copyOf(const std::string& path, const std::string& name) const {
    std::ifstream from(path);
    return folder.makeText(name, std::string(std::istreambuf_iterator<char>(from), {}));
  }

  // Each meets a server with sessions of the other; both resume only their own.
  void expectApart(const Setting& one, const Setting& other) {
    EXPECT_FALSE(resumes(one));
    EXPECT_FALSE(resumes(other)) << "the other took up a session of the one";
    EXPECT_TRUE(resumes(one));
    EXPECT_TRUE(resumes(other));
  }

  const support::TestCertificate own;
  const support::TemporaryFolder folder;
  FaultServer server{own.certificate(), own.key()};
};

TEST_F(TransferShareTls, SecondResourceOfAHostTakesUpTheSessionOfTheFirst) {
  EXPECT_FALSE(resumes(nullptr));
  EXPECT_TRUE(resumes(nullptr));
  EXPECT_TRUE(resumes(nullptr));
}

TEST_F(TransferShareTls, IsNotTakenUpByAnotherHost) {
  EXPECT_FALSE(resumes(nullptr, "one.test"));
  EXPECT_FALSE(resumes(nullptr, "other.test"));
  EXPECT_TRUE(resumes(nullptr, "one.test"));
}

TEST_F(TransferShareTls, ChecksAndNoChecksAreApart) {
  expectApart(nullptr, [this](webs::MethodRequest* session) { session->setCA(own.certificate()); });
}

TEST_F(TransferShareTls, NoChecksNeverTakeUpACheckedSession) {
  expectApart([this](webs::MethodRequest* session) { session->setCA(own.certificate()); }, nullptr);
}

TEST_F(TransferShareTls, AuthoritiesAreApart) {
  const std::string copy = copyOf(own.certificate(), "other.pem");
  expectApart([this](webs::MethodRequest* session) { session->setCA(own.certificate()); },
              [copy](webs::MethodRequest* session) { session->setCA(copy); });
}

TEST_F(TransferShareTls, AuthorityThatDoesNotKnowTheServerRefusesItAfterASession) {
  const support::TestCertificate stranger;
  const Setting knows = [this](webs::MethodRequest* session) { session->setCA(own.certificate()); };
  resumes(knows);
  EXPECT_TRUE(resumes(knows));
  SessionProbe probe;
  probe.session.setCA(stranger.certificate());
  EXPECT_EQ(probe.get(server.url("/a")), 60);
}

TEST_F(TransferShareTls, FoldersOfAuthoritiesAreApart) {
  const support::TemporaryFolder other;
  const auto with = [this](const std::string& path) {
    return [this, path](webs::MethodRequest* session) {
      session->setCA(own.certificate());
      session->setCAPath(path);
    };
  };
  expectApart(with(folder.path()), with(other.path()));
}

TEST_F(TransferShareTls, ClientCertificatesAreApart) {
  const support::TestCertificate client;
  const auto with = [&client](const std::string& certificate) {
    return [&client, certificate](webs::MethodRequest* session) {
      session->setClientAuthertication(certificate);
      session->setPrivateKey(client.key());
    };
  };
  const std::string copy = copyOf(client.certificate(), "client.pem");
  EXPECT_FALSE(resumes(with(client.certificate())));
  EXPECT_FALSE(resumes(with(copy)));
  EXPECT_FALSE(resumes(nullptr)) << "without a certificate";
}

// The certificate's file contains its key as well.
TEST_F(TransferShareTls, ClientCertificatesWithTheirKeysInsideAreApart) {
  const support::TestCertificate client;
  std::ifstream certificate(client.certificate());
  std::ifstream key(client.key());
  const std::string both = std::string(std::istreambuf_iterator<char>(certificate), {}) +
                           std::string(std::istreambuf_iterator<char>(key), {});
  const auto with = [](const std::string& path) {
    return [path](webs::MethodRequest* session) { session->setClientAuthertication(path); };
  };
  const std::string one = folder.makeText("one.pem", both);
  const std::string other = folder.makeText("other.pem", both);
  expectApart(with(one), with(other));
  EXPECT_FALSE(resumes(nullptr)) << "without a certificate";
}

TEST_F(TransferShareTls, PrivateKeysAreApart) {
  const support::TestCertificate client;
  const auto with = [&client](const std::string& key) {
    return [&client, key](webs::MethodRequest* session) {
      session->setClientAuthertication(client.certificate());
      session->setPrivateKey(key);
    };
  };
  EXPECT_FALSE(resumes(with(client.key())));
  EXPECT_FALSE(resumes(with(copyOf(client.key(), "key.pem"))));
}

TEST_F(TransferShareTls, KeyTypesAreApart) {
  const auto with = [](const std::string& type) {
    return [type](webs::MethodRequest* session) { session->setKeyType(type); };
  };
  EXPECT_FALSE(resumes(with("PEM")));
  EXPECT_FALSE(resumes(with("DER")));
}

TEST_F(TransferShareTls, SessionWithAPrivateKeyTakesUpItsOwn) {
  const support::TestCertificate client;
  SessionProbe probe;
  probe.session.setClientAuthertication(client.certificate());
  probe.session.setPrivateKey(client.key());
  for (int i = 0; i < 2; ++i) EXPECT_EQ(probe.get(server.url("/a")), 0);
  EXPECT_FALSE(server.requests("/a")[0].resumed);
  EXPECT_TRUE(server.requests("/a")[1].resumed);
}

TEST_F(TransferShareTls, ManySessionsAtOnceGetTheirBytes) {
  constexpr int kSessions = 64;
  support::Watchdog watchdog(100, [] { return std::string("sessions at once"); });
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kSessions; ++i) {
    threads.emplace_back([this, &right, i] {
      SessionProbe probe;
      if (i % 3 == 0) probe.session.setCA(own.certificate());
      const std::string host = i % 3 == 0 ? "127.0.0.1" : "many.test";
      for (int round = 0; round < 3; ++round) {
        if (probe.get(at(host, server, "/a")) == 0) ++right;
      }
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(right, 3 * kSessions);
}

}  // namespace

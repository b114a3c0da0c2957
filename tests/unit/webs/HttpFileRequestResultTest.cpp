// The event and the download status of each outcome of a transfer.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "webs/HttpFileRequest.h"

namespace {

// While set, no host can be reached.
std::atomic<bool> unreachable{false};

}  // namespace

// Replaces the C library's connect() for libcurl.
extern "C" __attribute__((visibility("default"))) int connect(int socket,
                                                              const struct sockaddr* address,
                                                              socklen_t length) {
  if (unreachable) {
    errno = EHOSTUNREACH;
    return -1;
  }
  using Connect = int (*)(int, const struct sockaddr*, socklen_t);
  static const auto real = reinterpret_cast<Connect>(dlsym(RTLD_NEXT, "connect"));
  return real(socket, address, length);
}

namespace {

using support::FaultServer;
using support::ProducerProbe;
using Events = std::vector<int>;

constexpr long long kSize = 200000;

struct Outcome {
  Events events;
  int status;
};

Outcome outcomeOf(const std::string& url, int featureFlag = -1) {
  ProducerProbe probe(url, featureFlag);
  const Events events = probe.run(1, 0, 0);
  return {events, probe.producer.getDownloadStatus()};
}

Outcome outcomeOf(const support::Behaviour& behaviour, int featureFlag = -1) {
  FaultServer server;
  server.on("/a", behaviour);
  return outcomeOf(server.url("/a"), featureFlag);
}

#define EXPECT_OUTCOME(expression, expectedEvents, expectedStatus) \
  do {                                                             \
    const Outcome outcome = (expression);                          \
    EXPECT_EQ(outcome.events, (Events expectedEvents));            \
    EXPECT_EQ(outcome.status, expectedStatus);                     \
  } while (false)

TEST(HttpFileRequestResult, PartialFileIsAPartialEnd) {
  EXPECT_OUTCOME(outcomeOf(support::lieAboutLength(1000, 200)), ({0, 3}), 0);
}

TEST(HttpFileRequestResult, ClientErrorsAreNotFound) {
  for (const int status : {400, 403, 404, 416, 499}) {
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({5}), status);
  }
}

TEST(HttpFileRequestResult, ServerErrorsAreNotAvailable) {
  for (const int status : {500, 503, 599}) {
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({6}), status);
  }
}

TEST(HttpFileRequestResult, StatusOf600AndAboveIsNotFound) {
  for (const int status : {600, 999}) {
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({5}), status);
  }
}

TEST(HttpFileRequestResult, EmptySuccessIsNotFound) {
  EXPECT_OUTCOME(outcomeOf(support::answerStatus(200, "")), ({5}), 404);
}

TEST(HttpFileRequestResult, AnswerWithoutABodyIsAnError) {
  for (const int status : {204, 304}) {
    support::CapturedStderr log(0);
    EXPECT_OUTCOME(outcomeOf(support::answerStatus(status)), ({1}), 0);
    EXPECT_TRUE(log.has("sendRequest: http error " + std::to_string(status)));
    EXPECT_FALSE(log.has("sendRequest: [QV]return EVENT_STREAM_PARTIAL_END"));
  }
}

TEST(HttpFileRequestResult, OtherSuccessWithABodyIsAnErrorAtOnce) {
  support::CapturedStderr log(0);
  EXPECT_OUTCOME(outcomeOf(support::answerStatus(300)), ({1, 7}), 0);
  EXPECT_TRUE(log.has("receive: http error 300"));
}

TEST(HttpFileRequestResult, ErrorPageIsNotDelivered) {
  FaultServer server;
  server.on("/a", support::answerStatus(404));
  support::CapturedStderr log(-4);
  ProducerProbe probe(server.url("/a"));
  probe.run(1, 0, 0);
  EXPECT_EQ(probe.receiver.body(), "");
  EXPECT_TRUE(log.has("receive: error, the server send 404 respond code"));
}

TEST(HttpFileRequestResult, StallIsNotFound) {
  EXPECT_OUTCOME(outcomeOf(support::staySilent()), ({5}), webs::DOWNLOAD_NOT_REVEIVE_DATA);
}

TEST(HttpFileRequestResult, StallWithTheFlagIsATimeout) {
  support::CapturedStderr log(-4);
  EXPECT_OUTCOME(outcomeOf(support::stallAfter(1000, 100), 1), ({0, 4}),
                 webs::DOWNLOAD_NOT_REVEIVE_DATA);
  EXPECT_TRUE(log.has("sendRequest: FBZ Case DOWNLOAD_NOT_REVEIVE_DATA"));
}

TEST(HttpFileRequestResult, BreakIsADeadConnection) {
  FaultServer server;
  server.on("/a", support::stallAfter(1000, 100));
  support::CapturedStderr log(-4);
  ProducerProbe probe(server.url("/a"));
  probe.producer.setBreak();
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 2}));
  EXPECT_EQ(probe.producer.getDownloadStatus(), webs::DOWNLOAD_CONNECTION_DEAD);
  EXPECT_TRUE(log.has("sendRequest: connection is dead"));
}

TEST(HttpFileRequestResult, UnknownHostIsNotFoundAndWithTheFlagAnError) {
  support::CapturedStderr log(-4);
  EXPECT_OUTCOME(outcomeOf(std::string("http://a..b/")), ({5}), webs::DOWNLOAD_DNS_UNABLE_RESOLVED);
  EXPECT_TRUE(log.has("sendRequest: NO FBZ CASE, couldn't resolve host"));
  EXPECT_OUTCOME(outcomeOf(std::string("http://a..b/"), 1), ({1}),
                 webs::DOWNLOAD_DNS_UNABLE_RESOLVED);
  EXPECT_TRUE(log.has("sendRequest: FBZ Case DOWNLOAD_DNS_UNABLE_RESOLVED"));
}

TEST(HttpFileRequestResult, RefusedConnectionIsAnErrorWithItsStatus) {
  support::CapturedStderr log(2);
  EXPECT_OUTCOME(outcomeOf("http://127.0.0.1:" + std::to_string(support::closedPort()) + "/"),
                 ({1}), webs::DOWNLOAD_CONNECT_REJECT);
  EXPECT_TRUE(log.has("sendRequest: set status DOWNLOAD_CONNECT_REJECT"));
  EXPECT_TRUE(log.has("sendRequest: notify EVENT_STREAM_ERROR"));
}

TEST(HttpFileRequestResult, UnreachableHostIsAnErrorWithItsStatus) {
  support::CapturedStderr log(2);
  unreachable = true;
  EXPECT_OUTCOME(outcomeOf(std::string("http://127.0.0.1:1/")), ({1}), webs::DOWNLOAD_CONNECT_FAIL);
  unreachable = false;
  EXPECT_TRUE(log.has("sendRequest: set status DOWNLOAD_CONNECT_FAIL"));
  EXPECT_TRUE(log.has("sendRequest: notify EVENT_STREAM_ERROR"));
}

TEST(HttpFileRequestResult, ConnectThatNobodyAnswersIsATimeout) {
  support::FullListener listener;
  EXPECT_OUTCOME(outcomeOf("http://127.0.0.1:" + std::to_string(listener.port()) + "/", 1), ({4}),
                 webs::DOWNLOAD_TIMEOUT);
}

TEST(HttpFileRequestResult, ResetIsAnError) {
  support::CapturedStderr log(0);
  EXPECT_OUTCOME(outcomeOf(support::resetAfter(100000, 1000)), ({0, 1}), 0);
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:56 "));
}

TEST(HttpFileRequestResult, TlsFailuresAreErrors) {
  const support::TestCertificate own;
  const support::TestCertificate other;
  FaultServer server(own.certificate(), own.key());
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.producer.setCA(other.certificate());
  EXPECT_EQ(probe.run(1, 0, 0), (Events{1}));
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:60 "));
  probe.producer.setCA("/nowhere");
  EXPECT_EQ(probe.run(2, 0, 0), (Events{1}));
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:77 "));
  probe.producer.setClientAuthertication("/nowhere");
  EXPECT_EQ(probe.run(3, 0, 0), (Events{1}));
  EXPECT_TRUE(log.has("sendRequest: HttpFileRequest error:58 "));
}

TEST(HttpFileRequestResult, RefusedDataIsACancel) {
  FaultServer server;
  server.on("/a", support::serveRanges(kSize));
  support::CapturedStderr log(0);
  ProducerProbe probe(server.url("/a"));
  probe.receiver.refuseAfter = 40000;
  EXPECT_EQ(probe.run(1, 0, 0), (Events{0, 7}));
  EXPECT_TRUE(log.has("receive: to terminate http perform"));
}

}  // namespace

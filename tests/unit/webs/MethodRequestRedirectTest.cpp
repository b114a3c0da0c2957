// Where a transfer goes after a redirect.
#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/SessionProbe.h"

namespace {

// An option unknown to libcurl, 0 for none.
std::atomic<int> unknownOption{0};

}  // namespace

// The enumeration is as wide as the type it is promoted to.
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
  // A pointer or a long: both are passed on in the same way.
  void* value = va_arg(arguments, void*);
  va_end(arguments);
  return real(handle, option, value);
}
#pragma GCC diagnostic pop

namespace {

using support::FaultServer;
using support::SessionProbe;

TEST(MethodRequest, HeadersAreThoseOfTheFinalResponse) {
  FaultServer server;
  server.on("/to", support::serveRanges(100, "X-New: yes\r\n"));
  SessionProbe probe;
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
  SessionProbe probe;
  EXPECT_EQ(probe.get(server.url("/loop")), 47);
  EXPECT_EQ(server.requestCount("/loop"), 51);
}

TEST(MethodRequest, RedirectLeavesHttpForNothingElse) {
  FaultServer server;
  SessionProbe probe;
  for (const char* target : {"file:///etc/hostname", "ftp://127.0.0.1/x", "gopher://127.0.0.1/"}) {
    server.on("/away", support::redirect(302, target));
    EXPECT_EQ(probe.get(server.url("/away")), 1) << target;
    EXPECT_EQ(probe.receiver.body(), "") << target;
  }
}

TEST(MethodRequest, RedirectsAreNotFollowedWhenTheyCannotBeConfined) {
  FaultServer server;
  server.on("/a", support::redirect(302, server.url("/b")));
  server.on("/b", support::serveRanges(1000));
  {
    SessionProbe probe;
    EXPECT_EQ(probe.get(server.url("/a")), 0);
  }
  unknownOption = CURLOPT_REDIR_PROTOCOLS_STR;
  SessionProbe probe;
  unknownOption = 0;
  probe.get(server.url("/a"));
  EXPECT_EQ(probe.session.getResponseCode(), 302);
  EXPECT_EQ(server.requestCount("/b"), 1) << "the first session's";
}

}  // namespace

// The HTTP entry points: codes and log lines for every kind of handle.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/unit/http/ApiFile.h"

namespace {

using support::CapturedStderr;
using support::FaultServer;

struct TextSetter {
  const char* name;
  int (*set)(int, const char*);
  int (*twin)(int, const char*);
  const char* logged;
  bool refusesNull;
};

const TextSetter kTextSetters[] = {
    {"userAgent", x_fluvia_file_http_set_userAgent, c_fluvia_file_http_set_userAgent,
     "setUserAgent: set UAString = ", false},
    {"proxy", x_fluvia_file_http_set_proxy, c_fluvia_file_http_set_proxy,
     "setProxy: set http proxy :", false},
    {"CAPath", x_fluvia_file_http_set_CAPath, nullptr, "setCAPath: set CA path:", false},
    {"CA", x_fluvia_file_http_set_CA, c_fluvia_file_http_set_CA, "setCA: set CA Info:", false},
    {"cookie", x_fluvia_file_http_set_cookie, c_fluvia_file_http_set_cookie,
     "setCookie: set http cookie :", false},
    {"client_authert", x_fluvia_file_http_set_client_authert, c_fluvia_file_http_set_client_authert,
     "setClientAuthertication: set Client Authertication:", true},
    {"private_key", x_fluvia_file_http_set_private_key, c_fluvia_file_http_set_private_key,
     "setPrivateKey: set Private Key:", true},
    {"key_type", x_fluvia_file_http_set_key_type, c_fluvia_file_http_set_key_type,
     "setKeyType: set Key Type:", true},
    {"ip_resolve", x_fluvia_file_http_set_ip_resolve, c_fluvia_file_http_set_ip_resolve,
     "setIpResolve: set ip resolve:", true},
};

std::string entry(const TextSetter& setter) {
  return std::string("x_fluvia_file_http_set_") + setter.name;
}

// One handle of each kind: HTTP, local, and a closed one.
struct Handles {
  Handles() : local(localPath()), http(server.url("/a")), closed(0) {
    server.on("/a", support::serveRanges(1000));
    ApiFile last(localPath());
    closed = last.handle;
  }
  static std::string localPath() {
    static const std::string path = [] {
      std::string name = ::testing::TempDir() + "fluviafs-http-api-test";
      std::ofstream(name) << "local";
      return name;
    }();
    return path;
  }

  FaultServer server;
  ApiFile local;
  ApiFile http;
  int closed;
};

TEST(HttpApi, TextSettersOnHttpHandlesSetAndSaySo) {
  Handles handles;
  for (const TextSetter& setter : kTextSetters) {
    CapturedStderr log(0);
    EXPECT_EQ(setter.set(handles.http.handle, "value"), FVFR_OK) << setter.name;
    EXPECT_TRUE(log.has(std::string(setter.logged) + "value")) << setter.name << log.text();
    if (setter.twin != nullptr) {
      EXPECT_EQ(setter.twin(handles.http.handle, "value"), FVFR_OK);
      EXPECT_EQ(log.count(std::string(setter.logged) + "value"), 2);
    }
  }
}

TEST(HttpApi, TextSettersOnLocalHandlesAreNotApplied) {
  Handles handles;
  for (const TextSetter& setter : kTextSetters) {
    CapturedStderr log(0);
    EXPECT_EQ(setter.set(handles.local.handle, "value"), FVFR_NOT_APPLIED) << setter.name;
    EXPECT_TRUE(log.has(entry(setter) + ": not http file or no set")) << setter.name;
  }
}

TEST(HttpApi, TextSettersTakeNullInTwoWays) {
  Handles handles;
  for (const TextSetter& setter : kTextSetters) {
    CapturedStderr log(0);
    const int expected = setter.refusesNull ? FVFR_FAILED : FVFR_NOT_APPLIED;
    EXPECT_EQ(setter.set(handles.http.handle, nullptr), expected) << setter.name;
    EXPECT_TRUE(log.has(entry(setter) +
                        (setter.refusesNull ? ": NULL POINT" : ": not http file or no set")))
        << setter.name;
    EXPECT_EQ(setter.set(handles.closed, nullptr), FVFR_FAILED);
    EXPECT_EQ(log.count(entry(setter) + ": NULL POINT"), setter.refusesNull ? 2 : 0);
    EXPECT_EQ(setter.set(0, nullptr), FVFR_FAILED);
    EXPECT_EQ(log.count(entry(setter) + ": INVALID_HANDLE"), 1) << "the range comes first";
  }
}

TEST(HttpApi, ClosedHandlesAndWrongNumbersFailEverywhere) {
  Handles handles;
  char text[16];
  int length = 0;
  for (const int bad : {0, 256, -1, handles.closed}) {
    CapturedStderr log(0);
    for (const TextSetter& setter : kTextSetters) {
      EXPECT_EQ(setter.set(bad, "x"), FVFR_FAILED) << setter.name;
    }
    EXPECT_EQ(x_fluvia_file_set_featureflag(bad, 1), FVFR_FAILED);
    EXPECT_EQ(x_fluvia_file_http_get_speed(bad), FVFR_FAILED);
    EXPECT_EQ(x_fluvia_file_http_set_speed(bad, 1), FVFR_FAILED);
    EXPECT_EQ(x_fluvia_file_http_get_content_type(bad), nullptr);
    EXPECT_EQ(x_fluvia_file_http_get_server_name(bad), nullptr);
    EXPECT_EQ(x_fluvia_file_http_get_download_status(bad), FVFR_FAILED);
    EXPECT_EQ(x_fluvia_file_http_get_url_ip(bad, text), FVFR_FAILED);
    EXPECT_EQ(x_fluvia_file_http_get_header(bad, text, 16, &length), FVFR_FAILED);
    // Threads of the file that was just closed may still log their end.
    const std::vector<std::string> lines = log.messages();
    const auto refusals = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.compare(0, 8, "x_fluvia") == 0;
    });
    if (bad == handles.closed) {
      EXPECT_TRUE(
          log.has("x_fluvia_file_set_featureflag: could not find handle:" + std::to_string(bad)));
      EXPECT_TRUE(log.has("x_fluvia_file_http_get_server_name: not http file"))
          << "a closed handle is not refused there";
      EXPECT_EQ(refusals, 2);
    } else {
      EXPECT_EQ(refusals, 17) << "INVALID_HANDLE from every one";
    }
  }
}

TEST(HttpApi, TheOthersOnLocalHandlesSayThatItIsNotHttp) {
  Handles handles;
  const int h = handles.local.handle;
  CapturedStderr log(1);
  char text[16] = "x";
  int length = 77;
  EXPECT_EQ(x_fluvia_file_set_featureflag(h, 1), FVFR_OK);
  EXPECT_TRUE(log.has("x_fluvia_file_set_featureflag: not http file"));
  EXPECT_EQ(x_fluvia_file_http_get_speed(h), 0);
  EXPECT_TRUE(log.has("x_fluvia_file_http_get_speed: not http file"));
  EXPECT_EQ(x_fluvia_file_http_set_speed(h, 1), FVFR_OK);
  EXPECT_TRUE(log.has("x_fluvia_file_http_set_speed: not http file"));
  EXPECT_EQ(x_fluvia_file_http_get_content_type(h), nullptr);
  EXPECT_TRUE(log.has("x_fluvia_file_http_get_content_type: not http file"));
  EXPECT_EQ(x_fluvia_file_http_get_server_name(h), nullptr);
  EXPECT_TRUE(log.has("x_fluvia_file_http_get_server_name: not http file"));
  EXPECT_EQ(x_fluvia_file_http_get_download_status(h), 0);
  EXPECT_TRUE(log.has("x_fluvia_file_http_get_download_status: not http file or no set"));
  EXPECT_EQ(x_fluvia_file_http_get_url_ip(h, text), FVFR_NOT_APPLIED);
  EXPECT_EQ(x_fluvia_file_http_get_url_ip(h, nullptr), FVFR_NOT_APPLIED);
  EXPECT_STREQ(text, "x");
  EXPECT_EQ(log.count("x_fluvia_file_http_get_url_ip: not http file or no set"), 2);
  EXPECT_EQ(x_fluvia_file_http_get_header(h, text, 16, &length), FVFR_OK);
  EXPECT_EQ(length, 77);
  EXPECT_TRUE(log.has("x_fluvia_file_http_get_header: not http file or no set"));
}

TEST(HttpApi, TheOthersOnHttpHandlesTellWhatTheServerSaid) {
  Handles handles;
  const int h = handles.http.handle;
  CapturedStderr log(1);
  char text[16] = "x";
  char headers[4096];
  int length = 0;
  EXPECT_STREQ(x_fluvia_file_http_get_content_type(h), "") << "no answer yet";
  EXPECT_STREQ(x_fluvia_file_http_get_server_name(h), "");
  EXPECT_TRUE(handles.http.restIsPattern(0, 1000, 100));
  EXPECT_STREQ(x_fluvia_file_http_get_content_type(h), "video/mp4");
  EXPECT_STREQ(c_fluvia_file_http_get_content_type(h), "video/mp4");
  EXPECT_EQ(log.count("x_fluvia_file_http_get_content_type: Content type:video/mp4"), 2);
  EXPECT_STREQ(x_fluvia_file_http_get_server_name(h), "fault");
  EXPECT_STREQ(c_fluvia_file_http_get_server_name(h), "fault");
  EXPECT_TRUE(log.has("x_fluvia_file_http_get_server_name: Content type:fault"));
  EXPECT_EQ(x_fluvia_file_http_get_download_status(h), 0);
  EXPECT_EQ(c_fluvia_file_http_get_download_status(h), 0);
  EXPECT_TRUE(log.has("getDownloadStatus: download status:0"));
  EXPECT_TRUE(log.has("x_fluvia_file_http_get_download_status: download status : 0"));
  EXPECT_EQ(x_fluvia_file_http_get_url_ip(h, text), FVFR_OK);
  EXPECT_STREQ(text, "127.0.0.1");
  EXPECT_EQ(x_fluvia_file_http_get_url_ip(h, nullptr), FVFR_NOT_APPLIED);
  EXPECT_TRUE(log.has("getUrlIP: Error, input ip_buf shouldn't be NULL"));
  EXPECT_EQ(x_fluvia_file_http_get_header(h, headers, sizeof headers, &length), FVFR_OK);
  EXPECT_EQ(std::string(headers, static_cast<size_t>(length)).find("HTTP/1.1 200 OK\r\n"), 0u);
  const int whole = length;
  EXPECT_EQ(c_fluvia_file_http_get_header(h, headers, 10, &length), FVFR_OK);
  EXPECT_EQ(length, whole);
  EXPECT_GE(x_fluvia_file_http_get_speed(h), 0);
  EXPECT_GE(c_fluvia_file_http_get_speed(h), 0);
  EXPECT_EQ(x_fluvia_file_http_set_speed(h, 5), FVFR_OK);
  EXPECT_EQ(c_fluvia_file_http_set_speed(h, 0), FVFR_OK);
  EXPECT_TRUE(log.has("setSpeed: set speed:5"));
  EXPECT_EQ(x_fluvia_file_set_featureflag(h, 1), FVFR_OK);
  EXPECT_EQ(c_fluvia_file_set_featureflag(h, 2), FVFR_OK);
  EXPECT_TRUE(log.has("setFeatureFlag: set feature flag:2"));
}

TEST(HttpApi, TextOfAHandleOutlivesTheCallsOfAnother) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  server.on("/b", support::answerStatus(200, "x", "Content-Type: text/plain\r\n"));
  ApiFile a(server.url("/a"));
  ApiFile b(server.url("/b"));
  a.read(1);
  b.read(1);
  const char* type = x_fluvia_file_http_get_content_type(a.handle);
  x_fluvia_file_http_get_content_type(b.handle);
  x_fluvia_file_http_get_server_name(a.handle);
  EXPECT_STREQ(type, "video/mp4");
}

TEST(HttpApi, SchemeInsideAPathNamesAnHttpResource) {
  CapturedStderr log(0);
  int handle = 0;
  ASSERT_EQ(x_fluvia_file_open("/x/http://127.0.0.1/", &handle), FVFR_OK);
  EXPECT_EQ(x_fluvia_file_http_set_userAgent(handle, "x"), FVFR_OK);
  x_fluvia_file_close(handle);
}

TEST(HttpApi, SettingsReachTheServer) {
  FaultServer server;
  server.on("/a", support::serveRanges(10));
  ApiFile file(server.url("/a"));
  x_fluvia_file_http_set_userAgent(file.handle, "tv/2");
  x_fluvia_file_http_set_cookie(file.handle, "id=7");
  EXPECT_TRUE(file.readsPattern(0, 10));
  EXPECT_EQ(server.requests("/a")[0].header("User-Agent"), "tv/2");
  EXPECT_EQ(server.requests("/a")[0].header("Cookie"), "id=7");
}

TEST(HttpApi, CertificatesAreCheckedOnceAnAuthorityIsNamed) {
  const support::TestCertificate own;
  const support::TestCertificate other;
  FaultServer server(own.certificate(), own.key());
  server.on("/a", support::serveRanges(100000));
  {
    ApiFile unchecked(server.url("/a"));
    EXPECT_TRUE(unchecked.restIsPattern(0, 100000, 10000));
  }
  {
    ApiFile trusted(server.url("/a"));
    x_fluvia_file_http_set_CA(trusted.handle, own.certificate().c_str());
    EXPECT_TRUE(trusted.restIsPattern(0, 100000, 10000));
  }
  ApiFile untrusted(server.url("/a"));
  x_fluvia_file_http_set_CA(untrusted.handle, other.certificate().c_str());
  untrusted.read(10);
  EXPECT_EQ(untrusted.last, FVFR_FAILED);
}

}  // namespace

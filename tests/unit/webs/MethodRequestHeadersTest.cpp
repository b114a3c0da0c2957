#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/CapturedStderr.h"
#include "webs/MethodRequest.h"

namespace {

void feed(webs::MethodRequest* session, const std::string& text) {
  EXPECT_EQ(session->headerContentIn(text.data(), 1, text.size()), text.size());
}

// A session whose header buffer holds these lines.
struct Headers {
  explicit Headers(const std::string& text) { feed(&session, text); }
  webs::MethodRequest session;
};

TEST(MethodRequestHeaders, FourSpellingsOfTheLengthLineCount) {
  for (const char* line : {"Content-Length: 10", "content-length: 10", "Content-length: 10",
                           "CONTENT-LENGTH: 10", "Content-Lengthy"}) {
    EXPECT_TRUE(Headers(std::string("HTTP/1.1 200 OK\r\n") + line + "\r\n\r\n")
                    .session.checkFromContentLength())
        << line;
  }
  for (const char* line : {"Content-LENGTH: 10", "content-Length: 10", "X-Content-Length: 1", ""}) {
    EXPECT_FALSE(Headers(std::string("HTTP/1.1 200 OK\r\n") + line + "\r\n\r\n")
                     .session.checkFromContentLength())
        << line;
  }
}

TEST(MethodRequestHeaders, LengthCheckSaysWhatItFound) {
  support::CapturedStderr log(1);
  Headers("Content-Length: 1\r\n").session.checkFromContentLength();
  Headers("content-length: 1\r\n").session.checkFromContentLength();
  Headers("CONTENT-LENGTH: 1\r\n").session.checkFromContentLength();
  Headers("Nothing: 1\r\n").session.checkFromContentLength();
  EXPECT_EQ(log.count("checkFromContentLength: check content-lenth from response header"), 4);
  EXPECT_EQ(log.count("checkFromContentLength: Content-Length found"), 1);
  EXPECT_EQ(log.count("checkFromContentLength: Content-length found"), 1);
  EXPECT_EQ(log.count("checkFromContentLength: CONTENT-LENGTH found found"), 1);
  EXPECT_EQ(log.count("checkFromContentLength: can't find Content-Length"), 1);
}

TEST(MethodRequestHeaders, EmptyHeadersAreNotSeekable) {
  webs::MethodRequest session;
  EXPECT_FALSE(session.checkFromContentLength());
  EXPECT_FALSE(session.seekAbleCheckFromResponse());
  EXPECT_EQ(session.getSizeFromResponseRange(), 0);
}

TEST(MethodRequestHeaders, StatusLineDecidesThatRangesAreServed) {
  EXPECT_TRUE(Headers("HTTP/1.1 200 OK\r\nAccept-Ranges: none\r\n\r\n")
                  .session.seekAbleCheckFromResponse());
  EXPECT_TRUE(Headers("HTTP/1.1 200 OK\r\n\r\n").session.seekAbleCheckFromResponse());
}

TEST(MethodRequestHeaders, FirstLineMaySayNoRanges) {
  EXPECT_FALSE(Headers("Accept-Ranges: NONE\r\nX: y\r\n").session.seekAbleCheckFromResponse());
  EXPECT_TRUE(Headers("accept-ranges: bytes\r\n").session.seekAbleCheckFromResponse());
  EXPECT_TRUE(
      Headers("Access-Control-Allow-Headers: range\r\n").session.seekAbleCheckFromResponse());
}

TEST(MethodRequestHeaders, SeekCheckSaysWhatDecided) {
  support::CapturedStderr log(0);
  Headers("accept-ranges: bytes\r\n").session.seekAbleCheckFromResponse();
  EXPECT_TRUE(log.has("seekAbleCheckFromResponse: check seekable from response header"));
  EXPECT_TRUE(log.has("seekAbleCheckFromResponse: find Accept-range"));
  Headers("HTTP/1.1 200 OK\r\n").session.seekAbleCheckFromResponse();
  EXPECT_NE(log.text().find(") dlna support byte seek"), std::string::npos);
  Headers("Access-Control-Allow-Headers: x, range\r\n").session.seekAbleCheckFromResponse();
  EXPECT_NE(log.text().find(") support seek"), std::string::npos);
  webs::MethodRequest().seekAbleCheckFromResponse();
  EXPECT_TRUE(log.has("seekAbleCheckFromResponse: can't find Accept-Ranges"));
}

TEST(MethodRequestHeaders, TotalComesFromTheRangeLine) {
  EXPECT_EQ(Headers("HTTP/1.1 206 P\r\nContent-Range: bytes 0-99/5000\r\n\r\n")
                .session.getSizeFromResponseRange(),
            5000);
  EXPECT_EQ(Headers("CONTENT-RANGE: bytes 0-99/5000\r\n").session.getSizeFromResponseRange(), 5000);
  EXPECT_EQ(Headers("content-range: bytes 0-99/5000\r\n").session.getSizeFromResponseRange(), 0);
  EXPECT_EQ(Headers("Content-Range: bytes 0-99/*\r\n").session.getSizeFromResponseRange(), 0);
  EXPECT_EQ(Headers("Content-Range: bytes 0-99\r\n").session.getSizeFromResponseRange(), 0);
}

TEST(MethodRequestHeaders, TotalHasThirtyTwoBits) {
  EXPECT_EQ(Headers("Content-Range: bytes 0-9/5000000000\r\n").session.getSizeFromResponseRange(),
            2147483647);
}

TEST(MethodRequestHeaders, LastLineMayLackItsLineFeed) {
  EXPECT_EQ(
      Headers("HTTP/1.1 206 P\r\nContent-Range: bytes 0-9/77").session.getSizeFromResponseRange(),
      77);
  EXPECT_TRUE(Headers("HTTP/1.1 200 OK\r\nContent-Length: 5").session.checkFromContentLength());
}

TEST(MethodRequestHeaders, RangeStartIsReadInAnySpelling) {
  long long first = -1;
  EXPECT_TRUE(Headers("HTTP/1.1 206 P\r\nCONTENT-range:  Bytes 70000-99/5000\r\n")
                  .session.getStartFromResponseRange(&first));
  EXPECT_EQ(first, 70000);
  EXPECT_FALSE(
      Headers("Content-Range: bytes */5000\r\n").session.getStartFromResponseRange(&first));
  EXPECT_FALSE(Headers("Content-Range: bytes\r\n").session.getStartFromResponseRange(&first));
  EXPECT_FALSE(Headers("X: y\r\n").session.getStartFromResponseRange(&first));
}

TEST(MethodRequestHeaders, ServerNameIsCached) {
  support::CapturedStderr log(1);
  Headers headers("HTTP/1.1 200 OK\r\nServer:  nginx/1.2 \t\r\nDate: now\r\n");
  EXPECT_EQ(headers.session.getServerName(), "nginx/1.2");
  EXPECT_TRUE(log.has("getServerName: Server Name:nginx/1.2"));
  feed(&headers.session, "HTTP/1.1 200 OK\r\nServer: other\r\n");
  EXPECT_EQ(headers.session.getServerName(), "nginx/1.2");
  EXPECT_EQ(Headers("HTTP/1.1 200 OK\r\nserver: nginx\r\n").session.getServerName(), "");
}

TEST(MethodRequestHeaders, ValueIsWhatStandsBetweenTheBlanks) {
  const struct {
    const char* line;
    const char* value;
  } cases[] = {{"Server: a b \r\nX: y", "a b"},
               {"Server:a\nX: y", "a"},
               {"Server:\tx", "x"},
               {"Server", ""},
               {"Server: ", ""},
               {"S: a \n", "a"}};
  for (const auto& each : cases) {
    char* value = webs::_copy_header_value(each.line);
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value, each.value) << each.line;
    free(value);
  }
}

TEST(MethodRequestHeaderBuffer, CopiesWhatFitsAndTellsTheWholeLength) {
  Headers headers(std::string(300, 'h'));
  char buffer[101] = {};
  int length = 0;
  EXPECT_EQ(headers.session.getResponseHeader(buffer, 100, &length), 0);
  EXPECT_EQ(length, 300);
  EXPECT_EQ(strlen(buffer), 100u);
  EXPECT_EQ(headers.session.getResponseHeader(nullptr, 0, &length), 0);
  EXPECT_EQ(headers.session.getResponseHeader(nullptr, -5, &length), 0);
}

TEST(MethodRequestHeaderBuffer, ExcessIsDroppedAndReportedAsTaken) {
  webs::MethodRequest session;
  for (int i = 0; i < 200; ++i) feed(&session, std::string(99, 'x') + "\n");
  int length = 0;
  session.getResponseHeader(nullptr, 0, &length);
  EXPECT_EQ(length, 8192);
  EXPECT_FALSE(session.checkFromContentLength());
  EXPECT_EQ(session.getServerName(), "");
  EXPECT_EQ(session.headerContentIn("x", 0, 1), 0u);
}

TEST(MethodRequestHeaderBuffer, StartsAgainAtEveryStatusLine) {
  webs::MethodRequest session;
  for (const char* line : {"HTTP/1.1 100 Continue\r\n", "\r\n", "HTTP/1.1 307 Moved\r\n",
                           "Content-Length: 6\r\n", "\r\n", "ICY 200 OK\r\n", "icy-br: 128\r\n"}) {
    feed(&session, line);
  }
  char buffer[100];
  int length = 0;
  session.getResponseHeader(buffer, sizeof buffer, &length);
  EXPECT_EQ(std::string(buffer, static_cast<size_t>(length)), "ICY 200 OK\r\nicy-br: 128\r\n");
}

}  // namespace

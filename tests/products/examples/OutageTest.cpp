// The rules for reopening a failed handle.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "examples/reopen/fluvia_outage.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"

namespace {

using namespace support;

// A handle on a name, after a read that fails or returns the first byte.
class ReadOnce {
 public:
  explicit ReadOnce(const std::string& name) {
    EXPECT_EQ(x_fluvia_file_open(name.c_str(), &number), FVFR_OK);
    char first = 0;
    unsigned int got = 0;
    result = x_fluvia_file_read(number, &first, 1, &got);
  }
  ~ReadOnce() { x_fluvia_file_close(number); }
  ReadOnce(const ReadOnce&) = delete;
  ReadOnce& operator=(const ReadOnce&) = delete;

  int number = 0;
  int result = FVFR_OK;
};

std::string refusedUrl() { return "http://127.0.0.1:" + std::to_string(closedPort()) + "/film"; }

// The pauses of the outage if every try fails at once.
std::vector<long> pausesUntilTheEnd(FluviaOutage* outage, int handle) {
  std::vector<long> pauses;
  long long now = 12345;
  for (;;) {
    const long pause = fluvia_outage_pause(outage, handle, now);
    if (pause < 0 || pauses.size() > 100) return pauses;
    pauses.push_back(pause);
    now += pause;
  }
}

TEST(FluviaOutage, PausesGrowToFiveSecondsUntilAMinuteIsOver) {
  const std::string name = refusedUrl();
  const ReadOnce failed(name);
  FluviaOutage outage;
  fluvia_outage_init(&outage, name.c_str(), FLUVIA_OUTAGE_SECONDS);
  outage.known = 1;
  const std::vector<long> expected = {0,    500,  1000, 2000, 4000, 5000, 5000, 5000,
                                      5000, 5000, 5000, 5000, 5000, 5000, 5000, 2500};
  EXPECT_EQ(pausesUntilTheEnd(&outage, failed.number), expected);
}

TEST(FluviaOutage, NameThatNeverGaveAByteGetsTenSeconds) {
  const std::string name = refusedUrl();
  const ReadOnce failed(name);
  FluviaOutage outage;
  fluvia_outage_init(&outage, name.c_str(), FLUVIA_OUTAGE_SECONDS);
  const std::vector<long> expected = {0, 500, 1000, 2000, 4000, 2500};
  EXPECT_EQ(pausesUntilTheEnd(&outage, failed.number), expected);
}

TEST(FluviaOutage, BytesEndItAndTheNextOneBeginsAnew) {
  FaultServer server;
  server.on("/film", serveRanges(100000));
  const std::string name = refusedUrl();
  const ReadOnce failed(name);
  const ReadOnce good(server.url("/film"));
  FluviaOutage outage;
  fluvia_outage_init(&outage, name.c_str(), 1);
  EXPECT_EQ(fluvia_outage_pause(&outage, failed.number, 1000), 0);
  EXPECT_EQ(fluvia_outage_pause(&outage, failed.number, 1900), 100) << "no longer than is left";
  fluvia_outage_end(&outage, good.number);
  EXPECT_EQ(fluvia_outage_pause(&outage, failed.number, 90000), 0);
  EXPECT_EQ(fluvia_outage_pause(&outage, failed.number, 91000), -1);
}

TEST(FluviaOutage, IsOffWithoutSecondsAndForFiles) {
  const std::string name = refusedUrl();
  const ReadOnce failed(name);
  FluviaOutage outage;
  fluvia_outage_init(&outage, name.c_str(), 0);
  EXPECT_EQ(fluvia_outage_pause(&outage, failed.number, 0), -1);
  const ReadOnce missing("/no such file");
  fluvia_outage_init(&outage, "/no such file", 60);
  EXPECT_EQ(fluvia_outage_pause(&outage, missing.number, 0), -1);
}

TEST(FluviaOutage, StatusDecides) {
  FaultServer server;
  for (const int status : {400, 401, 403, 404, 410, 451, 408, 429, 500, 502, 503, 504, 600}) {
    const std::string path = "/" + std::to_string(status);
    server.on(path, answerStatus(status));
    const ReadOnce failed(server.url(path));
    FluviaOutage outage;
    fluvia_outage_init(&outage, "http://server/film", 60);
    const bool comesBack = status == 408 || status == 429 || (status >= 500 && status < 600);
    EXPECT_NE(failed.result, FVFR_OK);
    EXPECT_EQ(fluvia_outage_pause(&outage, failed.number, 0), comesBack ? 0 : -1) << status;
  }
}

// Longer than a part of a name may be: no name server is queried.
TEST(FluviaOutage, NameThatIsNotResolvedComesBack) {
  const ReadOnce failed("http://" + std::string(70, 'a') + ".test/film");
  FluviaOutage outage;
  fluvia_outage_init(&outage, "http://server/film", 60);
  EXPECT_EQ(x_fluvia_file_http_get_download_status(failed.number), FVFR_DOWNLOAD_UNKNOWN_HOST);
  EXPECT_EQ(fluvia_outage_pause(&outage, failed.number, 0), 0);
}

// To the library both look like a 404.
TEST(FluviaOutage, CutAnswerComesBackAndAnEmptyOneDoesNot) {
  FaultServer server;
  server.on("/cut", answerRaw("HTTP/1.1 200 OK\r\nCont"));
  server.on("/empty", answerRaw("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
  const ReadOnce cut(server.url("/cut"));
  const ReadOnce empty(server.url("/empty"));
  FluviaOutage outage;
  fluvia_outage_init(&outage, "http://server/film", 60);
  EXPECT_EQ(x_fluvia_file_http_get_download_status(cut.number), 404);
  EXPECT_EQ(x_fluvia_file_http_get_download_status(empty.number), 404);
  EXPECT_EQ(fluvia_outage_pause(&outage, cut.number, 0), 0);
  EXPECT_EQ(fluvia_outage_pause(&outage, empty.number, 0), -1);
}

TEST(FluviaOutage, OpensAStreamOfItsOwnThatTheServerKnowsByTheSameName) {
  FaultServer server;
  server.on("/film", inTurn({answerStatus(503), serveRanges(100000)}));
  const std::string name = server.url("/film");
  const ReadOnce failed(name);
  FluviaOutage outage;
  fluvia_outage_init(&outage, name.c_str(), 60);
  int handle = 0;
  ASSERT_EQ(fluvia_outage_open(&outage, FVFR_DEFAULT_BUFFER, &handle), FVFR_OK);
  char first = 0;
  unsigned int got = 0;
  EXPECT_EQ(x_fluvia_file_read(handle, &first, 1, &got), FVFR_OK) << "while the failed one is open";
  x_fluvia_file_close(handle);
  ASSERT_EQ(server.requestCount("/film"), 2);
  EXPECT_EQ(server.requests("/film")[1].raw.find('#'), std::string::npos);
}

TEST(FluviaOutage, ComparesSizeAndType) {
  FaultServer server;
  const std::string video = "Content-Type: video/mp4\r\n";
  server.on("/film", serveRanges(100000, video));
  server.on("/same", serveRanges(100000, video));
  server.on("/longer", serveRanges(100001, video));
  server.on("/page", serveRanges(100000, "Content-Type: text/html\r\n"));
  server.on("/untold",
            answerRaw("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + pattern(0, 100000)));
  server.on("/endless", serveChunked(200000, video));
  const ReadOnce film(server.url("/film"));
  FluviaOutage outage;
  fluvia_outage_init(&outage, "http://server/film", 60);
  const ReadOnce page(server.url("/page"));
  EXPECT_TRUE(fluvia_outage_is_same(&outage, page.number)) << "nothing is known yet";
  fluvia_outage_end(&outage, film.number);
  EXPECT_TRUE(fluvia_outage_is_same(&outage, ReadOnce(server.url("/same")).number));
  for (const char* other : {"/longer", "/page", "/untold", "/endless"}) {
    EXPECT_FALSE(fluvia_outage_is_same(&outage, ReadOnce(server.url(other)).number)) << other;
  }
  fluvia_outage_init(&outage, "http://server/film", 60);
  fluvia_outage_end(&outage, ReadOnce(server.url("/untold")).number);
  EXPECT_TRUE(fluvia_outage_is_same(&outage, page.number)) << "no type was given";
}

// The library learns the size of a chunked body from its end, which may come before the first
// query.
TEST(FluviaOutage, SizeLearntFromTheEndIsNoChange) {
  FaultServer server;
  server.on("/short", serveChunked(100000));
  server.on("/other", serveChunked(110000));
  server.on("/live", serveLive(100000));
  const ReadOnce ended(server.url("/short"));
  const ReadOnce other(server.url("/other"));
  const ReadOnce live(server.url("/live"));
  for (const int handle : {ended.number, other.number}) {
    ASSERT_TRUE(eventually([&] { return x_fluvia_file_size(handle) != FVFR_UNKNOWN_SIZE; }));
  }
  FluviaOutage outage;
  fluvia_outage_init(&outage, "http://server/live", 60);
  fluvia_outage_end(&outage, live.number);
  EXPECT_TRUE(fluvia_outage_is_same(&outage, ended.number));
  fluvia_outage_init(&outage, "http://server/short", 60);
  fluvia_outage_end(&outage, ended.number);
  outage.type[0] = '\0';
  EXPECT_TRUE(fluvia_outage_is_same(&outage, live.number));
  EXPECT_FALSE(fluvia_outage_is_same(&outage, other.number)) << "both are known";
}

TEST(FluviaOutage, ExplainsWithinItsRoom) {
  const ReadOnce failed(refusedUrl());
  char text[12] = "";
  EXPECT_STREQ(fluvia_outage_explain(failed.number, text, sizeof text), "the server ");
}

}  // namespace

// The AVIOContext for FFmpeg: behaviour that does not show in frames.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/error.h>

#include "examples/ffmpeg/fluvia_avio.h"
}

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"

namespace {

// Without the abort the read would fail after the library's own time limit, with another code.
TEST(FluviaAvio, AbortEndsAReadThatWaits) {
  support::FaultServer server;
  server.on("/stalls", support::stallAfter(1000000, 100000));
  FluviaAvio* source = nullptr;
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/stalls").c_str(), nullptr), 0);
  ASSERT_EQ(fluvia_avio_connect(source), 0);
  std::vector<unsigned char> bytes(200000);
  int result = 0;
  std::thread reading([&] {
    result = avio_read(fluvia_avio_context(source), bytes.data(), static_cast<int>(bytes.size()));
    if (result >= 0) result = fluvia_avio_context(source)->error;
  });
  ASSERT_TRUE(server.waitForRequests("/stalls", 1));
  fluvia_avio_abort(source);
  reading.join();
  EXPECT_EQ(result, AVERROR_EXIT);
  EXPECT_EQ(avio_seek(fluvia_avio_context(source), 900000, SEEK_SET), AVERROR_EXIT) << "for good";
  fluvia_avio_close(&source);
  EXPECT_EQ(source, nullptr);
}

TEST(FluviaAvio, AbortEndsTheFirstWait) {
  support::FaultServer server;
  server.on("/silent", support::staySilent());
  FluviaAvio* source = nullptr;
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/silent").c_str(), nullptr), 0);
  int result = 0;
  std::thread connecting([&] { result = fluvia_avio_connect(source); });
  fluvia_avio_abort(source);
  connecting.join();
  EXPECT_EQ(result, AVERROR_EXIT);
  fluvia_avio_close(&source);
}

TEST(FluviaAvio, TellsSizeSeekabilityAndWhatIsWrong) {
  support::FaultServer server;
  server.on("/film", support::serveRanges(3000000));
  server.on("/live", support::serveUntilClose(3000000));
  FluviaAvio* source = nullptr;
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/film").c_str(), nullptr), 0);
  ASSERT_EQ(fluvia_avio_connect(source), 0);
  AVIOContext* film = fluvia_avio_context(source);
  EXPECT_EQ(film->seekable, AVIO_SEEKABLE_NORMAL);
  EXPECT_EQ(avio_size(film), 3000000);
  EXPECT_EQ(avio_seek(film, 2500000, SEEK_SET), 2500000);
  std::vector<unsigned char> bytes(1000);
  EXPECT_EQ(avio_read(film, bytes.data(), 1000), 1000);
  EXPECT_EQ(support::firstDifference(2500000, bytes.data(), 1000), -1);
  fluvia_avio_close(&source);
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/live").c_str(), nullptr), 0);
  ASSERT_EQ(fluvia_avio_connect(source), 0);
  EXPECT_EQ(fluvia_avio_context(source)->seekable, 0);
  fluvia_avio_close(&source);
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/missing").c_str(), nullptr), 0);
  EXPECT_EQ(fluvia_avio_connect(source), AVERROR(ENOENT));
  fluvia_avio_close(&source);
  EXPECT_EQ(fluvia_avio_open(&source, "relative.ts", nullptr), AVERROR(EINVAL));
  EXPECT_EQ(source, nullptr);
}

// Returns the result of connecting to a name, with the default settings except for the seconds.
int connectTo(const std::string& name, int seconds) {
  FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
  settings.seconds = seconds;
  FluviaAvio* source = nullptr;
  EXPECT_EQ(fluvia_avio_open(&source, name.c_str(), &settings), 0);
  const int result = fluvia_avio_connect(source);
  fluvia_avio_close(&source);
  return result;
}

// For the first two the library's code is that of a missing resource.
TEST(FluviaAvio, ErrorsTellWhatTheTransferMet) {
  support::FaultServer server;
  server.on("/silent", support::staySilent());
  EXPECT_EQ(connectTo(server.url("/silent"), 0), AVERROR(ETIMEDOUT));
  for (const int status : {401, 403, 410, 451, 503}) {
    server.on("/" + std::to_string(status), support::answerStatus(status));
  }
  EXPECT_EQ(connectTo(server.url("/401"), 60), AVERROR_HTTP_UNAUTHORIZED);
  EXPECT_EQ(connectTo(server.url("/403"), 60), AVERROR_HTTP_FORBIDDEN);
  EXPECT_EQ(connectTo(server.url("/410"), 60), AVERROR(ENOENT));
  EXPECT_EQ(connectTo(server.url("/451"), 60), AVERROR_HTTP_OTHER_4XX);
  EXPECT_EQ(connectTo(server.url("/503"), 0), AVERROR_HTTP_SERVER_ERROR);
  const std::string refused = "http://127.0.0.1:" + std::to_string(support::closedPort()) + "/film";
  EXPECT_EQ(connectTo(refused, 0), AVERROR(ECONNREFUSED));
}

// A refused seek never returns bytes of another place.
TEST(FluviaAvio, NeverSeeksWhereTheLibraryCannot) {
  support::FaultServer server;
  server.on("/live", support::serveChunked(3000000));
  FluviaAvio* source = nullptr;
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/live").c_str(), nullptr), 0);
  ASSERT_EQ(fluvia_avio_connect(source), 0);
  AVIOContext* live = fluvia_avio_context(source);
  std::vector<unsigned char> bytes(500000);
  ASSERT_EQ(avio_read(live, bytes.data(), 500000), 500000);
  EXPECT_EQ(avio_seek(live, 1000, SEEK_SET), AVERROR(ESPIPE)) << "the library would say yes";
  ASSERT_EQ(avio_read(live, bytes.data(), 1000), 1000);
  EXPECT_EQ(support::firstDifference(500000, bytes.data(), 1000), -1);
  fluvia_avio_close(&source);
}

// FFmpeg reads the same bytes as without the outage.
TEST(FluviaAvio, OutageCostsNoByteAndAChangeIsAnError) {
  constexpr long long kSize = 16000000;
  support::FaultServer server;
  for (const bool changed : {false, true}) {
    const std::string path = changed ? "/changed" : "/film";
    server.on(path, support::inTurn({support::dropAfter(kSize, 2500000), support::answerStatus(503),
                                     support::answerStatus(503),
                                     support::serveRanges(changed ? kSize + 1 : kSize)}));
    FluviaAvio* source = nullptr;
    ASSERT_EQ(fluvia_avio_open(&source, server.url(path).c_str(), nullptr), 0);
    ASSERT_EQ(fluvia_avio_connect(source), 0);
    std::vector<unsigned char> bytes(kSize);
    AVIOContext* film = fluvia_avio_context(source);
    const int got = avio_read(film, bytes.data(), static_cast<int>(kSize));
    if (changed) {
      EXPECT_LT(got, kSize);
      EXPECT_EQ(film->error, AVERROR(ESTALE));
      EXPECT_STREQ(fluvia_avio_problem(source), "the resource has changed");
    } else {
      EXPECT_EQ(got, kSize);
      EXPECT_EQ(support::firstDifference(0, bytes.data(), bytes.size()), -1);
    }
    fluvia_avio_close(&source);
  }
}

}  // namespace

// The AVIOContext for FFmpeg: what a player does not see in frames.
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

// Left alone, the read would fail by the library's own time limit and with another code.
TEST(FluviaAvio, AbortEndsAReadThatWaits) {
  support::FaultServer server;
  server.on("/stalls", support::stallAfter(1000000, 100000));
  FluviaAvio* source = nullptr;
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/stalls").c_str(), 0), 0);
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
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/silent").c_str(), 0), 0);
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
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/film").c_str(), 0), 0);
  ASSERT_EQ(fluvia_avio_connect(source), 0);
  AVIOContext* film = fluvia_avio_context(source);
  EXPECT_EQ(film->seekable, AVIO_SEEKABLE_NORMAL);
  EXPECT_EQ(avio_size(film), 3000000);
  EXPECT_EQ(avio_seek(film, 2500000, SEEK_SET), 2500000);
  std::vector<unsigned char> bytes(1000);
  EXPECT_EQ(avio_read(film, bytes.data(), 1000), 1000);
  EXPECT_EQ(support::firstDifference(2500000, bytes.data(), 1000), -1);
  fluvia_avio_close(&source);
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/live").c_str(), 0), 0);
  ASSERT_EQ(fluvia_avio_connect(source), 0);
  EXPECT_EQ(fluvia_avio_context(source)->seekable, 0);
  fluvia_avio_close(&source);
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/missing").c_str(), 0), 0);
  EXPECT_EQ(fluvia_avio_connect(source), AVERROR(ENOENT));
  fluvia_avio_close(&source);
  EXPECT_EQ(fluvia_avio_open(&source, "relative.ts", 0), AVERROR(EINVAL));
  EXPECT_EQ(source, nullptr);
}

}  // namespace

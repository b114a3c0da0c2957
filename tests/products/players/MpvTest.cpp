// The streams for libmpv: stopping, which does not show in frames.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>

extern "C" {
#include "examples/mpv/fluvia_mpv.h"
}

#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Watchdog.h"

namespace {

using Clock = std::chrono::steady_clock;

// A player without a screen that begins to play a URL through the library.
class Player {
 public:
  explicit Player(const std::string& url) : player(mpv_create()) {
    settings.notice = [](FluviaStreamNotice, const char*, void* self) {
      ++static_cast<Player*>(self)->notices;
    };
    settings.data = this;
    mpv_set_option_string(player, "config", "no");
    mpv_set_option_string(player, "vo", "null");
    mpv_set_option_string(player, "ao", "null");
    EXPECT_EQ(mpv_initialize(player), 0);
    EXPECT_EQ(fluvia_mpv_add(player, &settings), 0);
    const std::string name = "fluvia+" + url;
    const char* command[] = {"loadfile", name.c_str(), nullptr};
    EXPECT_EQ(mpv_command(player, command), 0);
  }
  ~Player() { mpv_terminate_destroy(player); }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  // Stops and waits for the end of the file. Returns the seconds.
  double stop() {
    const auto begin = Clock::now();
    EXPECT_EQ(mpv_command_string(player, "stop"), 0);
    waitForEnd();
    return std::chrono::duration<double>(Clock::now() - begin).count();
  }

  // Returns how the file ended: a reason of mpv; -1 if it did not.
  int waitForEnd() {
    const auto until = Clock::now() + support::patienceOf(30);
    while (Clock::now() < until) {
      const mpv_event* event = mpv_wait_event(player, 1);
      if (event->event_id != MPV_EVENT_END_FILE) continue;
      return static_cast<const mpv_event_end_file*>(event->data)->reason;
    }
    ADD_FAILURE() << "the file does not end";
    return -1;
  }

  std::atomic<int> notices{0};

 private:
  FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
  mpv_handle* player;
};

// The library would wait for ten seconds.
TEST(FluviaMpv, StopEndsTheWaitForASilentServer) {
  support::FaultServer server;
  server.on("/silent", support::staySilent());
  Player player(server.url("/silent"));
  ASSERT_TRUE(server.waitForRequests("/silent", 1));
  EXPECT_LT(player.stop(), support::patience(5));
}

// The stream would retry for eight seconds more.
TEST(FluviaMpv, StopEndsTheWaitForAServerThatIsAway) {
  Player player("http://127.0.0.1:" + std::to_string(support::closedPort()) + "/film");
  ASSERT_TRUE(support::eventually([&] { return player.notices >= 4; })) << "a pause of two seconds";
  EXPECT_LT(player.stop(), support::patience(5));
}

TEST(FluviaMpv, MissingFileIsAnErrorAtOnce) {
  support::FaultServer server;
  Player player(server.url("/missing"));
  EXPECT_EQ(player.waitForEnd(), MPV_END_FILE_REASON_ERROR);
  EXPECT_EQ(server.requestCount("/missing"), 1);
}

// mpv's demuxer for HLS would let FFmpeg open the resources of the playlist. Without it mpv treats
// the playlist as a list of films, and opens those through the streams.
TEST(FluviaMpv, HlsIsAListOfItsPiecesAndNobodyElseAsks) {
  support::FaultServer server;
  const std::string playlist =
      "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\npiece.ts\n#EXT-X-ENDLIST\n";
  server.on("/film.m3u8", [&](support::Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(playlist.size()) +
                  "\r\n\r\n" + playlist);
  });
  server.on("/piece.ts", support::serveRanges(300000));
  Player player(server.url("/film.m3u8"));
  EXPECT_EQ(player.waitForEnd(), MPV_END_FILE_REASON_REDIRECT);
  ASSERT_TRUE(server.waitForRequests("/piece.ts", 1));
  for (const char* path : {"/film.m3u8", "/piece.ts"}) {
    for (const support::Request& request : server.requests(path)) {
      EXPECT_EQ(request.header("User-Agent").find("Lavf"), std::string::npos) << path;
      EXPECT_EQ(request.header("Icy-MetaData"), "") << path << ": FFmpeg's";
    }
  }
}

}  // namespace

// Players in typical use: scrubbing, two at a time.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "Pipeline.h"
#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/SlowLink.h"
#include "tests/support/Watchdog.h"

namespace {

using support::FaultServer;

std::string medium(const std::string& name) { return std::string(FLUVIA_MEDIA) + "/" + name; }

// Plays pictures and sound in real time, without output.
std::string player(const std::string& url, const std::string& more = "") {
  return "uridecodebin uri=fluvia+" + url +
         " name=decoder ! fakesink name=picture sync=true decoder. ! fakesink sync=true " + more;
}

void scrub(const std::string& url, unsigned int seed) {
  support::Watchdog watchdog(60, [&] { return url + ", seed " + std::to_string(seed); });
  std::mt19937 random(seed);
  watchdog.at("starting");
  auto pipeline = std::make_unique<Pipeline>(player(url));
  pipeline->set(GST_STATE_PLAYING);
  ASSERT_TRUE(pipeline->waitFor(GST_MESSAGE_ASYNC_DONE)) << pipeline->error();
  watchdog.at("pausing");
  pipeline->set(GST_STATE_PAUSED);
  // The test itself: the connection is left alone that long.
  std::this_thread::sleep_for(std::chrono::seconds(5));
  const gint64 length = pipeline->duration();
  ASSERT_GT(length, 0);
  for (int i = 0; i < 50; ++i) {
    watchdog.at("scrubbing, seek " + std::to_string(i));
    const gint64 to = static_cast<gint64>(random() % 1000) * (length / 1000);
    EXPECT_TRUE(pipeline->seek(to, GST_SEEK_FLAG_KEY_UNIT));
    // Sometimes the viewer waits for a picture.
    if (random() % 5 == 0) {
      ASSERT_EQ(gst_element_get_state(pipeline->element(), nullptr, nullptr, 60 * GST_SECOND),
                GST_STATE_CHANGE_SUCCESS);
    }
  }
  watchdog.at("playing on");
  pipeline->set(GST_STATE_PLAYING);
  ASSERT_EQ(gst_element_get_state(pipeline->element(), nullptr, nullptr, 60 * GST_SECOND),
            GST_STATE_CHANGE_SUCCESS);
  watchdog.at("closing");
  pipeline.reset();
  watchdog.at("ending");
}

TEST(FluviaSrcPlaying, StartedPausedScrubbedAndClosedNeverHangs) {
  const unsigned int seed = support::seedOr(std::random_device()());
  SCOPED_TRACE("seed " + std::to_string(seed));
  FaultServer server;
  server.on("/film.mkv", support::serveFile(medium("film.mkv"), 200000));
  support::SlowLink link(server.port(), 20, 2500000);
  scrub("http://127.0.0.1:" + std::to_string(link.port()) + "/film.mkv", seed);
}

TEST(FluviaSrcPlaying, ScrubbedFileNeverHangs) {
  const unsigned int seed = support::seedOr(std::random_device()());
  SCOPED_TRACE("seed " + std::to_string(seed));
  scrub("file://" + medium("film.mp4"), seed);
}

// Their buffers hold two fifths of the film: if one lags far behind, the bytes that the other has
// read are gone.
void playTogether(const std::string& name, long long size) {
  FaultServer server;
  server.on("/" + name, support::serveFile(medium(name)));
  constexpr int kSeconds = 20;
  support::SlowLink link(server.port(), 20, size / kSeconds * 13 / 10);
  const std::string url = "http://127.0.0.1:" + std::to_string(link.port()) + "/" + name;
  const auto setBuffer = +[](GstElement*, GstElement* source, gpointer) {
    g_object_set(source, "buffer-size", 32 * FVFR_BUFFER_BLOCK, nullptr);
  };
  Pipeline first(player(url));
  Pipeline second(player(url));
  for (const Pipeline* each : {&first, &second}) {
    g_signal_connect(each->inside("decoder"), "source-setup", G_CALLBACK(setBuffer), nullptr);
  }
  first.set(GST_STATE_PLAYING);
  second.set(GST_STATE_PLAYING);
  EXPECT_TRUE(first.waitFor(GST_MESSAGE_EOS, 90)) << first.error();
  EXPECT_TRUE(second.waitFor(GST_MESSAGE_EOS, 90)) << second.error();
  // Counted at the far end of the link: bytes left in the server's own socket were never sent.
  const long long sent = link.bytesDown();
  ::testing::Test::RecordProperty("sent", static_cast<int>(sent));
  ::testing::Test::RecordProperty("requests", server.requestCount("/" + name));
  std::string asked;
  for (const std::string& range : server.ranges("/" + name)) asked += " [" + range + "]";
  EXPECT_LE(sent, size * 12 / 10) << "in the requests" << asked;
}

TEST(FluviaSrcPlaying, TwoPlayersOfOneUrlLoadItOnce) { playTogether("film.mkv", 2586768); }

}  // namespace

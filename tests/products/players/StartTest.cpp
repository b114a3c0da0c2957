// The cost of a player's start and seek: requests, which on a long link take most of the time.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Pipeline.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/SlowLink.h"
#include "tests/support/Watchdog.h"

namespace {

using support::FaultServer;

// A medium behind a link of 100 ms and 20 Mbit/s.
class FarMedium {
 public:
  explicit FarMedium(const std::string& name)
      : path_("/" + name), link_(server_.port(), 100, 2500000) {
    server_.on(path_, support::serveFile(std::string(FLUVIA_MEDIA) + path_));
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(link_.port()) + path_; }
  int requests() const { return server_.requestCount(path_); }
  std::string asked() const {
    std::string all;
    for (const std::string& range : server_.ranges(path_)) all += " [" + range + "]";
    return all;
  }

 private:
  const std::string path_;
  FaultServer server_;
  support::SlowLink link_;
};

// Shows the first picture.
class Player {
 public:
  Player(const std::string& url, int bufferSize)
      : pipeline_("uridecodebin uri=fluvia+" + url +
                  " name=decoder ! fakesink sync=true decoder. ! fakesink sync=true"),
        bufferSize_(bufferSize) {
    const auto setBuffer = +[](GstElement*, GstElement* source, int* size) {
      g_object_set(source, "buffer-size", *size, "startup-wait", 20000, nullptr);
    };
    g_signal_connect(pipeline_.inside("decoder"), "source-setup", G_CALLBACK(setBuffer),
                     &bufferSize_);
    pipeline_.set(GST_STATE_PAUSED);
  }
  bool shows() { return pipeline_.waitFor(GST_MESSAGE_ASYNC_DONE); }
  bool showsAt(int second) {
    return pipeline_.seek(second * static_cast<gint64>(GST_SECOND), GST_SEEK_FLAG_KEY_UNIT) &&
           shows();
  }
  const std::string& error() const { return pipeline_.error(); }

 private:
  Pipeline pipeline_;
  int bufferSize_;
};

struct Cost {
  const char* name;
  int bufferSize;  // a part of the film
  int start;
  int firstSeek;
  int seek;
};

void PrintTo(const Cost& cost, std::ostream* out) { *out << cost.name; }

class FluviaSrcFarStart : public ::testing::TestWithParam<Cost> {};

TEST_P(FluviaSrcFarStart, CostsNoMoreRequestsThanItMust) {
  FarMedium medium(GetParam().name);
  Player player(medium.url(), GetParam().bufferSize);
  ASSERT_TRUE(player.shows()) << player.error();
  EXPECT_LE(medium.requests(), GetParam().start) << medium.asked();
  int before = medium.requests();
  ASSERT_TRUE(player.showsAt(14)) << player.error();
  EXPECT_LE(medium.requests() - before, GetParam().firstSeek) << medium.asked();
  for (const int second : {2, 18, 8}) {
    before = medium.requests();
    ASSERT_TRUE(player.showsAt(second)) << player.error();
    EXPECT_LE(medium.requests() - before, GetParam().seek) << medium.asked();
  }
}

// Pushed, a Matroska file starts without its index, and the first seek fetches it. An MP4 file
// needs its index: in front, or fetched from the end.
// A seek may have to fill a gap before the buffered bytes.
INSTANTIATE_TEST_SUITE_P(Media, FluviaSrcFarStart,
                         ::testing::Values(Cost{"film.mkv", 524288, 1, 3, 2},
                                           Cost{"front.mp4", 524288, 1, 2, 2},
                                           Cost{"film.mp4", 524288, 3, 2, 2}));

// Its demuxer reads the next fragment before it takes the pictures of one, and the sound, which is
// stored after all of them. Seeking there and back took six requests.
TEST(FluviaSrcFarFragments, SeekIsOneRequest) {
  FarMedium medium("fragmented.mp4");
  Player player(medium.url(), 1048576);
  ASSERT_TRUE(player.shows()) << player.error();
  EXPECT_LE(medium.requests(), 5) << medium.asked();
  const int before = medium.requests();
  ASSERT_TRUE(player.showsAt(14)) << player.error();
  EXPECT_LE(medium.requests() - before, 2) << medium.asked();
}

// Returns whether a pipeline agrees to play a medium backwards.
bool playsBackwards(const std::string& url, const char* access) {
  Pipeline pipeline("uridecodebin uri=fluvia+" + url + " name=decoder ! fakesink");
  const auto setAccess = +[](GstElement*, GstElement* source, const char* value) {
    gst_util_set_object_arg(G_OBJECT(source), "access", value);
  };
  g_signal_connect(pipeline.inside("decoder"), "source-setup", G_CALLBACK(setAccess),
                   const_cast<char*>(access));
  pipeline.set(GST_STATE_PAUSED);
  EXPECT_TRUE(pipeline.waitFor(GST_MESSAGE_ASYNC_DONE)) << pipeline.error();
  return gst_element_seek(pipeline.element(), -1.0, GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH,
                          GST_SEEK_TYPE_SET, 0, GST_SEEK_TYPE_SET, 10 * GST_SECOND) != 0 &&
         pipeline.waitFor(GST_MESSAGE_ASYNC_DONE);
}

// As docs/players.md says.
TEST(FluviaSrcBackwards, NeedsToBePulled) {
  for (const char* const name : {"film.mp4", "film.mkv"}) {
    SCOPED_TRACE(name);
    FaultServer server;
    server.on("/film", support::serveFile(std::string(FLUVIA_MEDIA) + "/" + name));
    EXPECT_TRUE(playsBackwards(server.url("/film"), "pull"));
    EXPECT_FALSE(playsBackwards(server.url("/film"), "auto"));
  }
}

struct Way {
  const char* name;
  bool pulled;
};

void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

class FluviaSrcAccess : public ::testing::TestWithParam<Way> {};

bool offersPull(const std::string& location, const std::string& more) {
  const Pipeline pipeline("fluviasrc name=source startup-wait=20000 " + more +
                          " location=" + location + " ! fakesink");
  gst_element_set_state(pipeline.inside("source"), GST_STATE_READY);
  GstQuery* query = gst_query_new_scheduling();
  EXPECT_TRUE(gst_element_query(pipeline.inside("source"), query));
  EXPECT_TRUE(gst_query_has_scheduling_mode(query, GST_PAD_MODE_PUSH));
  const bool pulled = gst_query_has_scheduling_mode_with_flags(query, GST_PAD_MODE_PULL,
                                                               GST_SCHEDULING_FLAG_SEEKABLE) != 0;
  gst_query_unref(query);
  return pulled;
}

// Media that seek less exactly if they are pushed, or not at all, are pulled.
TEST_P(FluviaSrcAccess, FollowsTheMedium) {
  const std::string name = GetParam().name;
  const std::string file = std::string(FLUVIA_MEDIA) + "/" + name;
  FaultServer server;
  server.on("/" + name, support::serveFile(file));
  EXPECT_EQ(offersPull(server.url("/" + name), ""), GetParam().pulled);
  EXPECT_TRUE(offersPull(server.url("/" + name), "access=pull"));
  EXPECT_FALSE(offersPull(server.url("/" + name), "access=push"));
  EXPECT_TRUE(offersPull(file, "")) << "a file has no round trips";
}

INSTANTIATE_TEST_SUITE_P(Media, FluviaSrcAccess,
                         ::testing::Values(Way{"film.mkv", false}, Way{"film.mp4", false},
                                           Way{"front.mp4", false}, Way{"fragmented.mp4", true},
                                           Way{"film.ts", true}, Way{"sound.mp3", true},
                                           Way{"sound.flac", true}));

}  // namespace

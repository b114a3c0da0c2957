// Decodes a URI with GStreamer and prints a checksum of every frame.
//
// A line has the stream's kind, the frame's time in nanoseconds and the MD5 of its bytes; pictures
// first, then sound. The results of --timing and --paced go to standard error.
#include <gst/gst.h>

#include <cstdio>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "tests/support/CommandLine.h"

namespace {

constexpr GstClockTime kDeadline = 60 * GST_SECOND;

struct Options {
  std::string plugin;
  std::string authorities;
  std::string userAgent;
  std::string uri;
  int seeks = 0;
  unsigned int seed = 1;
  bool timing = false;
  bool push = false;
  bool paced = false;
  bool prefer = false;
};

Options options;

// One decoded stream: its sink, and the lines of its frames if all of them are needed.
struct Stream {
  explicit Stream(const char* of) : kind(of) {}

  std::string kind;
  GstElement* sink = nullptr;
  std::vector<std::string> lines;
  // The clock minus the frames' times, in microseconds: of the most punctual frame, and how much
  // more it was for the latest one.
  gint64 ahead = G_MAXINT64;
  gint64 late = 0;
};

struct Player {
  GstElement* pipeline = nullptr;
  std::mutex lock;
  Stream video{"video"};
  Stream audio{"audio"};
};

std::string lineOf(const std::string& kind, GstBuffer* buffer) {
  GstMapInfo map;
  if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return kind + " cannot be read";
  char* sum = g_compute_checksum_for_data(G_CHECKSUM_MD5, map.data, map.size);
  gst_buffer_unmap(buffer, &map);
  const std::string line =
      kind + " " + std::to_string(GST_BUFFER_PTS(buffer)) + " " + std::string(sum);
  g_free(sum);
  return line;
}

void onFrame(GstElement*, GstBuffer* buffer, GstPad*, gpointer stream) {
  Stream* into = static_cast<Stream*>(stream);
  into->lines.push_back(lineOf(into->kind, buffer));
  const gint64 ahead = g_get_monotonic_time() - static_cast<gint64>(GST_BUFFER_PTS(buffer) / 1000);
  into->ahead = MIN(into->ahead, ahead);
  into->late = MAX(into->late, ahead - into->ahead);
}

GstElement* makeSink(Player* player, Stream* stream) {
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  g_object_set(sink, "sync", options.paced, nullptr);
  if (stream != nullptr && options.seeks == 0 && !options.timing) {
    g_object_set(sink, "signal-handoffs", TRUE, nullptr);
    g_signal_connect(sink, "handoff", G_CALLBACK(onFrame), stream);
  }
  gst_bin_add(GST_BIN(player->pipeline), sink);
  gst_element_sync_state_with_parent(sink);
  return sink;
}

// A sink for the first stream of each kind, and for its successor when an adaptive stream has
// changed its rate; other streams are discarded.
void onPad(GstElement*, GstPad* pad, gpointer data) {
  Player* player = static_cast<Player*>(data);
  GstCaps* caps = gst_pad_get_current_caps(pad);
  const std::string type = gst_structure_get_name(gst_caps_get_structure(caps, 0));
  gst_caps_unref(caps);
  const std::lock_guard<std::mutex> guard(player->lock);
  Stream* stream = type.compare(0, 6, "video/") == 0 ? &player->video : &player->audio;
  if (stream->sink == nullptr) stream->sink = makeSink(player, stream);
  GstPad* target = gst_element_get_static_pad(stream->sink, "sink");
  if (gst_pad_is_linked(target)) {
    gst_object_unref(target);
    target = gst_element_get_static_pad(makeSink(player, nullptr), "sink");
  }
  gst_pad_link(pad, target);
  gst_object_unref(target);
}

void onSource(GstElement*, GstElement* source, gpointer) {
  if (!options.authorities.empty() &&
      g_object_class_find_property(G_OBJECT_GET_CLASS(source), "ca") != nullptr) {
    g_object_set(source, "ca", options.authorities.c_str(), nullptr);
  }
  if (!options.userAgent.empty()) {
    g_object_set(source, "user-agent", options.userAgent.c_str(), nullptr);
  }
  if (options.push) g_object_set(source, "startup-wait", 0, nullptr);
}

// For the peer, also for the resources of a playlist: the measurement includes encryption, but not
// the check of certificates.
void onElement(GstBin*, GstBin*, GstElement* element, gpointer) {
  if (!options.authorities.empty() &&
      g_object_class_find_property(G_OBJECT_GET_CLASS(element), "ssl-strict") != nullptr) {
    g_object_set(element, "ssl-strict", FALSE, nullptr);
  }
}

// Prints our element's messages about an outage, as the other players do.
void tellOutage(GstMessage* message) {
  const GstStructure* told = gst_message_get_structure(message);
  if (told == nullptr || !gst_structure_has_name(told, "fluviasrc-outage")) return;
  gboolean waiting = FALSE;
  gint64 offset = 0;
  gst_structure_get(told, "waiting", G_TYPE_BOOLEAN, &waiting, "offset", G_TYPE_INT64, &offset,
                    nullptr);
  if (waiting) {
    fprintf(stderr, "gst-frames: %s; trying again\n", gst_structure_get_string(told, "reason"));
  } else {
    fprintf(stderr, "gst-frames: going on at byte %lld\n", static_cast<long long>(offset));
  }
}

// Waits for one of these messages. Returns false, and prints the error, if there is none.
bool waitFor(const Player& player, GstMessageType types) {
  GstBus* bus = gst_element_get_bus(player.pipeline);
  GstMessage* message = nullptr;
  for (bool again = true; again;) {
    message = gst_bus_timed_pop_filtered(
        bus, kDeadline,
        static_cast<GstMessageType>(types | GST_MESSAGE_ERROR | GST_MESSAGE_ELEMENT));
    again = message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ELEMENT;
    if (again) {
      tellOutage(message);
      gst_message_unref(message);
    }
  }
  gst_object_unref(bus);
  bool good = message != nullptr;
  if (message == nullptr) {
    fprintf(stderr, "gst-frames: nothing happened for %d s\n",
            static_cast<int>(kDeadline / GST_SECOND));
  } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    fprintf(stderr, "gst-frames: %s\n", error->message);
    g_error_free(error);
    good = false;
  }
  if (message != nullptr) gst_message_unref(message);
  return good;
}

double millisecondsSince(gint64 begin) {
  return static_cast<double>(g_get_monotonic_time() - begin) / 1000.0;
}

bool seekTo(Player& player, GstClockTime time) {
  const gint64 begin = g_get_monotonic_time();
  const auto flags = static_cast<GstSeekFlags>(
      GST_SEEK_FLAG_FLUSH | (options.timing ? GST_SEEK_FLAG_KEY_UNIT : GST_SEEK_FLAG_ACCURATE));
  if (!gst_element_seek_simple(player.pipeline, GST_FORMAT_TIME, flags,
                               static_cast<gint64>(time))) {
    fprintf(stderr, "gst-frames: the seek was refused\n");
    return false;
  }
  if (!waitFor(player, GST_MESSAGE_ASYNC_DONE)) return false;
  if (options.timing) fprintf(stderr, "seek %.1f ms\n", millisecondsSince(begin));
  GstSample* sample = nullptr;
  const Stream& shown = player.video.sink != nullptr ? player.video : player.audio;
  g_object_get(shown.sink, "last-sample", &sample, nullptr);
  if (sample == nullptr) {
    fprintf(stderr, "gst-frames: no frame after a seek\n");
    return false;
  }
  printf("seek to %llu: %s\n", static_cast<unsigned long long>(time),
         lineOf(shown.kind, gst_sample_get_buffer(sample)).c_str());
  gst_sample_unref(sample);
  return true;
}

bool seekAround(Player& player, gint64 begin) {
  gst_element_set_state(player.pipeline, GST_STATE_PAUSED);
  if (!waitFor(player, GST_MESSAGE_ASYNC_DONE)) return false;
  if (options.timing) fprintf(stderr, "first frame %.1f ms\n", millisecondsSince(begin));
  gint64 length = 0;
  if (!gst_element_query_duration(player.pipeline, GST_FORMAT_TIME, &length)) {
    fprintf(stderr, "gst-frames: the length is not known\n");
    return false;
  }
  std::mt19937 random(options.seed);
  for (int i = 0; i < options.seeks; ++i) {
    const double part = static_cast<double>(random()) / 4294967296.0;
    if (!seekTo(player, static_cast<GstClockTime>(part * 0.9 * static_cast<double>(length)))) {
      return false;
    }
  }
  return true;
}

bool playAll(Player& player) {
  gst_element_set_state(player.pipeline, GST_STATE_PLAYING);
  if (!waitFor(player, GST_MESSAGE_EOS)) return false;
  for (const Stream* stream : {&player.video, &player.audio}) {
    for (const std::string& line : stream->lines) printf("%s\n", line.c_str());
  }
  if (options.paced) {
    const gint64 late = MAX(player.video.late, player.audio.late);
    fprintf(stderr, "latest frame %.1f ms\n", static_cast<double>(late) / 1000.0);
  }
  return true;
}

void parse(int argc, char** argv) {
  support::CommandLine line("Decodes a URI with GStreamer and prints a checksum of every frame.");
  const support::CommandLine::Option plugin =
      line.option("--plugin", &options.plugin, "Load our element from this");
  line.flag("--prefer", &options.prefer, "Make it the source of all http").needs(plugin);
  line.flag("--push", &options.push, "It does not wait until it knows that it may be pulled");
  line.option("--ca", &options.authorities, "Certificates to verify the server with");
  line.option("--user-agent", &options.userAgent, "As whom to send requests");
  line.flag("--paced", &options.paced,
            "Show every frame at its time, and print by how much the latest one was late");
  line.option("--seeks", &options.seeks,
              "Seek to that many random times and print the picture (or sound) there");
  line.option("--seed", &options.seed, "Of the random times").withDefault();
  line.flag("--timing", &options.timing,
            "Print the milliseconds of the first frame, and of each seek to the key frame "
            "nearest before");
  line.option("URI", &options.uri, "What to decode").required();
  line.parseOrExit(argc, argv);
}

bool loadPlugin() {
  if (options.plugin.empty()) return true;
  GError* error = nullptr;
  GstPlugin* plugin = gst_plugin_load_file(options.plugin.c_str(), &error);
  if (plugin == nullptr) {
    fprintf(stderr, "gst-frames: %s\n", error->message);
    g_error_free(error);
    return false;
  }
  gst_object_unref(plugin);
  if (options.prefer) {
    GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), "fluviasrc");
    gst_plugin_feature_set_rank(feature, GST_RANK_PRIMARY + 100);
    gst_object_unref(feature);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(nullptr, nullptr);
  parse(argc, argv);
  if (!loadPlugin()) return 1;
  const gint64 begin = g_get_monotonic_time();
  Player player;
  player.pipeline = gst_pipeline_new("frames");
  GstElement* decoder = gst_element_factory_make("uridecodebin", nullptr);
  g_object_set(decoder, "uri", options.uri.c_str(), nullptr);
  g_signal_connect(decoder, "pad-added", G_CALLBACK(onPad), &player);
  g_signal_connect(decoder, "source-setup", G_CALLBACK(onSource), nullptr);
  g_signal_connect(decoder, "deep-element-added", G_CALLBACK(onElement), nullptr);
  gst_bin_add(GST_BIN(player.pipeline), decoder);
  const bool good =
      options.seeks > 0 || options.timing ? seekAround(player, begin) : playAll(player);
  gst_element_set_state(player.pipeline, GST_STATE_NULL);
  gst_object_unref(player.pipeline);
  return good ? 0 : 1;
}

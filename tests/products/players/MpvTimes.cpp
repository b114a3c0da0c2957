// Times of a player: libmpv shows a URI up to its first frame, and seeks. Prints to standard error,
// as gst-frames and FFmpeg's frames do.
#include <mpv/client.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <string>

extern "C" {
#include "examples/mpv/fluvia_mpv.h"
}

#include "tests/support/CommandLine.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kDeadline(60);

double millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// A paused player without a screen.
class Player {
 public:
  Player() : mpv_(mpv_create()) {
    if (mpv_ == nullptr) return;
    for (const auto& option : {std::pair<const char*, const char*>("config", "no"),
                               {"vo", "null"},
                               {"ao", "null"},
                               {"pause", "yes"},
                               {"hr-seek", "no"}}) {
      mpv_set_option_string(mpv_, option.first, option.second);
    }
    good_ = mpv_initialize(mpv_) >= 0 && fluvia_mpv_add(mpv_, &settings_) >= 0;
  }
  ~Player() { mpv_terminate_destroy(mpv_); }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  bool open(const std::string& uri) {
    const char* command[] = {"loadfile", uri.c_str(), nullptr};
    return good_ && mpv_command(mpv_, command) >= 0 && waitForFrame();
  }
  bool seek(double seconds) {
    const std::string time = std::to_string(seconds);
    const char* command[] = {"seek", time.c_str(), "absolute+keyframes", nullptr};
    return mpv_command(mpv_, command) >= 0 && waitForFrame();
  }
  double duration() {
    double seconds = 0;
    return mpv_get_property(mpv_, "duration", MPV_FORMAT_DOUBLE, &seconds) < 0 ? 0 : seconds;
  }

 private:
  // It restarts playback after an open or a seek, when the frame to show has been decoded.
  bool waitForFrame() {
    const auto until = Clock::now() + kDeadline;
    while (Clock::now() < until) {
      const mpv_event* event = mpv_wait_event(mpv_, 1);
      if (event->event_id == MPV_EVENT_PLAYBACK_RESTART) return true;
      if (event->event_id == MPV_EVENT_END_FILE) {
        fprintf(stderr, "mpv-times: the file has ended\n");
        return false;
      }
    }
    fprintf(stderr, "mpv-times: no frame\n");
    return false;
  }

  FluviaStreamSettings settings_ = FLUVIA_STREAM_SETTINGS;
  mpv_handle* mpv_;
  bool good_ = false;
};

bool measure(const std::string& uri, int seeks, unsigned int seed) {
  const Clock::time_point begin = Clock::now();
  Player player;
  if (!player.open(uri)) return false;
  fprintf(stderr, "first frame %.1f ms\n", millisecondsSince(begin));
  std::mt19937 random(seed);
  for (int i = 0; i < seeks; ++i) {
    const double part = static_cast<double>(random()) / 4294967296.0;
    const Clock::time_point asked = Clock::now();
    if (!player.seek(part * 0.9 * player.duration())) return false;
    fprintf(stderr, "seek %.1f ms\n", millisecondsSince(asked));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string uri;
  int seeks = 0;
  unsigned int seed = 1;
  bool timing = false;
  support::CommandLine line("Shows a URI with libmpv, and prints the milliseconds that it takes.");
  line.option("--seeks", &seeks, "Seek to that many random times");
  line.option("--seed", &seed, "Of the random times").withDefault();
  line.flag("--timing", &timing, "As for the other players; implied");
  line.option("URI", &uri, "What to show").required();
  line.parseOrExit(argc, argv);
  return measure(uri, seeks, seed) ? 0 : 1;
}

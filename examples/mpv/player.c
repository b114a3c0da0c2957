/* Plays a file or URL with libmpv, through the library; kUsage describes the options. */
#include <fluviafs.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "fluvia_mpv.h"

static const char kUsage[] =
    "usage: player [--headless] [--frames FILE] [--ca FILE] [--reopen SECONDS] SOURCE\n"
    "\n"
    "Plays fluvia+file:///PATH, fluvia+http://... or fluvia+https://... through the library, or\n"
    "what mpv opens by itself, to compare.\n"
    "\n"
    "  --headless        shows and plays nothing, as without a display\n"
    "  --frames FILE     writes the MD5 of every decoded frame into FILE, and plays nothing\n"
    "  --ca FILE         has servers' certificates checked against the authorities in FILE\n"
    "  --reopen SECONDS  bears an outage of the server that long; 60 by default, 0: not at all\n"
    "  --help            shows this text\n";

typedef struct Options {
  int help;
  int headless;
  const char* frames;
  int reopen; /* seconds */
  int failed; /* a stream has failed (to mpv, ended); read after the streams' threads have ended */
  const char* authorities;
  const char* source;
} Options;

static void set(mpv_handle* player, const char* name, const char* value) {
  const int result = mpv_set_option_string(player, name, value);
  if (result < 0) {
    fprintf(stderr, "player: option %s: %s\n", name, mpv_error_string(result));
    exit(1);
  }
}

static void applySettings(int handle, void* data) {
  const Options* options = data;
  if (options->authorities != NULL) x_fluvia_file_http_set_CA(handle, options->authorities);
}

static void printNotice(FluviaStreamNotice notice, const char* text, void* data) {
  Options* options = data;
  if (notice == FLUVIA_STREAM_FAILS) options->failed = 1;
  fprintf(stderr, "player: %s\n", text);
}

static void configure(mpv_handle* player, const Options* options) {
  set(player, "config", "no");
  if (options->frames != NULL) {
    set(player, "o", options->frames);
    set(player, "of", "framemd5");
    set(player, "ovc", "rawvideo");
    set(player, "oac", "pcm_s16le");
  } else if (options->headless) {
    set(player, "vo", "null");
    set(player, "ao", "null");
    set(player, "untimed", "yes");
    set(player, "ao-null-untimed", "yes");
  } else {
    set(player, "input-default-bindings", "yes");
    set(player, "input-vo-keyboard", "yes");
    set(player, "osc", "yes");
  }
}

/* Until the source or the viewer ends it. The entries of a playlist are played one by one. */
static int watch(mpv_handle* player) {
  int started = 0;
  int failed = 0;
  mpv_observe_property(player, 0, "idle-active", MPV_FORMAT_FLAG);
  for (;;) {
    const mpv_event* event = mpv_wait_event(player, -1);
    if (event->event_id == MPV_EVENT_SHUTDOWN) return failed;
    if (event->event_id == MPV_EVENT_START_FILE) started = 1;
    if (event->event_id == MPV_EVENT_PROPERTY_CHANGE && started) {
      const mpv_event_property* property = event->data;
      if (property->format == MPV_FORMAT_FLAG && *(const int*)property->data) return failed;
    }
    if (event->event_id != MPV_EVENT_END_FILE) continue;
    const mpv_event_end_file* end = event->data;
    if (end->reason != MPV_END_FILE_REASON_ERROR) continue;
    fprintf(stderr, "player: %s\n", mpv_error_string(end->error));
    failed = 1;
  }
}

static int parse(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--help") == 0) {
      options->help = 1;
      return 0;
    }
    if (strcmp(argv[i], "--headless") == 0) {
      options->headless = 1;
    } else if (strcmp(argv[i], "--frames") == 0 && i + 1 < argc) {
      options->frames = argv[++i];
    } else if (strcmp(argv[i], "--ca") == 0 && i + 1 < argc) {
      options->authorities = argv[++i];
    } else if (strcmp(argv[i], "--reopen") == 0 && i + 1 < argc) {
      options->reopen = atoi(argv[++i]);
    } else if (options->source == NULL && argv[i][0] != '-') {
      options->source = argv[i];
    } else {
      return -1;
    }
  }
  if (getenv("DISPLAY") == NULL && getenv("WAYLAND_DISPLAY") == NULL) options->headless = 1;
  return options->source == NULL ? -1 : 0;
}

int main(int argc, char** argv) {
  Options options = {0};
  options.reopen = FLUVIA_OUTAGE_SECONDS;
  if (parse(argc, argv, &options) != 0) {
    fputs(kUsage, stderr);
    return 2;
  }
  if (options.help) {
    fputs(kUsage, stdout);
    return 0;
  }
  FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
  settings.seconds = options.reopen;
  settings.apply = applySettings;
  settings.notice = printNotice;
  settings.data = &options;
  mpv_handle* player = mpv_create();
  if (player == NULL) return 1;
  configure(player, &options);
  int result = mpv_initialize(player);
  if (result >= 0) result = fluvia_mpv_add(player, &settings);
  const char* command[] = {"loadfile", options.source, NULL};
  if (result >= 0) result = mpv_command(player, command);
  if (result < 0) fprintf(stderr, "player: %s\n", mpv_error_string(result));
  const int failed = result < 0 ? 1 : watch(player);
  mpv_terminate_destroy(player);
  return failed || options.failed;
}

/*
 * Decodes a file or URL through the library and prints a checksum of every frame.
 *
 *   frames [--plain] [--ca FILE] [--user-agent NAME] [--reopen SECONDS] [--seeks N]
 *          [--byte-seeks N] [--seed N] [--timing] [--waits] [--paced] [--adapt] SOURCE
 *
 * Each line has the stream's kind and number, the frame's time in its stream's units and the MD5 of
 * its picture or samples.
 *
 *   --plain       reads with FFmpeg's own file and HTTP access instead, to compare
 *   --reopen      how many seconds to retry in an outage (0: not at all)
 *   --seeks       seeks to N random times and prints the first picture (or sound) at or after each
 *   --byte-seeks  seeks to N random bytes and prints the packet found there
 *   --timing      prints to standard error how many milliseconds the first frame and each seek took
 *   --waits       reads everything, decodes nothing, and prints there the longest wait for a packet
 *   --paced       like --waits at the pace of the medium; prints how long a viewer would have seen
 *                 it stand still
 *   --adapt       plays one rate of a medium that has several: after every 50 pictures the highest
 *                 one that three quarters of the speed suffice for
 */
#include <fluviafs.h>
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "fluvia_avio.h"
#include "frame_sum.h"

enum { kMostStreams = 16, kCushionMs = 200 };

typedef struct Options {
  int plain;
  int seeks;
  int byteSeeks;
  int timing;
  int waits;
  int paced;
  int adapt;
  unsigned int seed;
  int reopen; /* seconds */
  const char* authorities;
  const char* userAgent;
  const char* source;
} Options;

/* In milliseconds. */
typedef struct Pace {
  int measured;
  int kept;       /* waits until the time of each packet has come */
  int begun;      /* there was a packet */
  double longest; /* wait for a packet, after the first one */
  double zero;    /* on our clock, when the medium's time was 0 */
  double stalled;
  int stalls;
  struct timespec since;
} Pace;

typedef struct Adapt {
  int on;
  int program; /* the one that is played */
  int pictures;
  long long bytes;
  double waited;            /* milliseconds for them */
  int begins[kMostStreams]; /* the stream has just been selected: no key picture yet */
} Adapt;

typedef struct Player {
  FluviaAvio* source;
  AVFormatContext* format;
  AVCodecContext* decoders[kMostStreams];
  AVPacket* packet;
  AVFrame* frame;
  struct timespec begin;
  int timing;
  Pace pace;
  int blind; /* decodes nothing */
  Adapt adapt;
  int64_t wanted; /* frames of stream main before this time are not printed */
  int main;
  int once; /* stop after the first printed frame of stream main */
  int found;
} Player;

static double milliseconds(const struct timespec* since) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)(now.tv_sec - since->tv_sec) * 1e3 + (double)(now.tv_nsec - since->tv_nsec) / 1e6;
}

static void tellTime(Player* player, const char* what) {
  if (player->timing) fprintf(stderr, "%s %.1f ms\n", what, milliseconds(&player->begin));
}

static int fail(const char* what, int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(error, text, sizeof text);
  fprintf(stderr, "frames: cannot %s: %s\n", what, text);
  return error;
}

/* Uses the source's own text, if it has one. */
static int failSource(const Player* player, const char* what, int error) {
  if (player->source != NULL && fluvia_avio_problem(player->source)[0] != '\0') {
    fprintf(stderr, "frames: %s\n", fluvia_avio_problem(player->source));
  }
  return fail(what, error);
}

/* Prints what the demuxer has skipped. */
static int tellMissing(const Player* player) {
  const int missing = player->source == NULL ? 0 : fluvia_avio_missing(player->source);
  if (missing == 0) return 0;
  fprintf(stderr, "frames: %d of what the playlist names is missing; %s\n", missing,
          fluvia_avio_problem(player->source));
  return AVERROR(EIO);
}

static int printFrame(Player* player, int stream) {
  const AVFrame* frame = player->frame;
  const int video = player->decoders[stream]->codec_type == AVMEDIA_TYPE_VIDEO;
  if (player->once) {
    if (stream != player->main || frame->best_effort_timestamp < player->wanted) return 0;
    player->found = 1;
  }
  printf("%s %d %lld ", video ? "video" : "audio", stream, (long long)frame->best_effort_timestamp);
  return video ? frame_sum_picture(frame) : frame_sum_sound(frame);
}

/* Prints the frames that the decoder of a stream has ready. */
static int drain(Player* player, int stream) {
  for (;;) {
    int result = avcodec_receive_frame(player->decoders[stream], player->frame);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return 0;
    if (result < 0) return fail("decode", result);
    if (player->once && player->found) continue;
    result = printFrame(player, stream);
    if (result < 0) return fail("print", result);
  }
}

static int decode(Player* player, const AVPacket* packet, int stream) {
  if (stream >= kMostStreams || player->decoders[stream] == NULL) return 0;
  const int result = avcodec_send_packet(player->decoders[stream], packet);
  /* Damaged data is the medium's fault: players continue. */
  if (result < 0 && result != AVERROR_INVALIDDATA) return fail("decode", result);
  return drain(player, stream);
}

/*
 * Sleeps until the packet's time is near, or measures how late it is: the medium then stands still.
 * The decoded frames that players keep are available, from the beginning and again after each
 * stall.
 */
static void keepPace(Player* player) {
  Pace* pace = &player->pace;
  const AVPacket* packet = player->packet;
  if (packet->stream_index != player->main || packet->dts == AV_NOPTS_VALUE) return;
  const AVRational base = player->format->streams[player->main]->time_base;
  const double due = pace->zero + (double)packet->dts * av_q2d(base) * 1e3;
  const double early = due - milliseconds(&pace->since);
  if (pace->zero == 0 || early < 0) {
    if (pace->zero != 0) {
      pace->stalled += kCushionMs - early;
      ++pace->stalls;
    }
    pace->zero += kCushionMs - early;
    return;
  }
  if (early <= kCushionMs) return;
  const long us = (long)((early - kCushionMs) * 1e3);
  const struct timespec rest = {us / 1000000, us % 1000000 * 1000};
  nanosleep(&rest, NULL);
}

static long long rateOf(const Player* player, int program) {
  const AVProgram* of = player->format->programs[program];
  const AVDictionaryEntry* rate = av_dict_get(of->metadata, "variant_bitrate", NULL, 0);
  return rate == NULL ? 0 : atoll(rate->value);
}

/* From now on only the streams of that program are fetched. */
static int chooseProgram(Player* player, int program) {
  int result = 0;
  for (int i = 0; i < (int)player->format->nb_streams && i < kMostStreams; ++i) {
    AVStream* stream = player->format->streams[i];
    const AVProgram* of = player->format->programs[program];
    int chosen = 0;
    for (unsigned int k = 0; k < of->nb_stream_indexes; ++k) {
      chosen = chosen || (int)of->stream_index[k] == i;
    }
    const int left = !chosen && stream->discard != AVDISCARD_ALL;
    stream->discard = chosen ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    if (chosen && stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) player->main = i;
    if (!left || player->decoders[i] == NULL) continue;
    result = decode(player, NULL, i);
    avcodec_flush_buffers(player->decoders[i]);
    player->adapt.begins[i] = 1;
    if (result < 0) break;
  }
  player->adapt.program = program;
  fprintf(stderr, "rate %d\n", program);
  return result;
}

/* Counts a packet that took so long, and selects again after every 50 pictures. */
static int adapt(Player* player, double waited) {
  Adapt* state = &player->adapt;
  state->bytes += player->packet->size;
  state->waited += waited;
  if (player->packet->stream_index == player->main) ++state->pictures;
  if (state->pictures < 50 || state->waited <= 0) return 0;
  const double speed = (double)state->bytes * 8e3 / state->waited;
  int best = -1;
  int lowest = 0;
  for (int i = 0; i < (int)player->format->nb_programs; ++i) {
    if (rateOf(player, i) < rateOf(player, lowest)) lowest = i;
    const int affordable = (double)rateOf(player, i) < speed * 0.75;
    if (affordable && (best < 0 || rateOf(player, i) > rateOf(player, best))) best = i;
  }
  if (best < 0) best = lowest;
  state->pictures = 0;
  state->bytes = 0;
  state->waited = 0;
  return best == state->program ? 0 : chooseProgram(player, best);
}

/* True if a packet must be skipped: its stream was selected amid a group of pictures. */
static int isHeadless(Player* player, const AVPacket* packet) {
  if (packet->stream_index >= kMostStreams || !player->adapt.on) return 0;
  int* begins = &player->adapt.begins[packet->stream_index];
  if ((packet->flags & AV_PKT_FLAG_KEY) != 0) *begins = 0;
  return *begins;
}

static int readPacket(Player* player) {
  Pace* pace = &player->pace;
  if (!pace->measured) return av_read_frame(player->format, player->packet);
  const double began = milliseconds(&pace->since);
  const int result = av_read_frame(player->format, player->packet);
  const double wait = milliseconds(&pace->since) - began;
  if (pace->begun && result >= 0 && wait > pace->longest) pace->longest = wait;
  pace->begun = 1;
  if (result >= 0 && pace->kept) keepPace(player);
  return result < 0 || !player->adapt.on ? result : adapt(player, wait);
}

/* Decodes to the end, or to the first frame that was asked for. */
static int play(Player* player) {
  int result = 0;
  while (!(player->once && player->found)) {
    result = readPacket(player);
    /* Some demuxers take a failed read for the end. */
    if (result == AVERROR_EOF && player->format->pb->error < 0) result = player->format->pb->error;
    if (result == AVERROR_EOF) break;
    if (result < 0) return failSource(player, "read", result);
    if (!player->blind && !isHeadless(player, player->packet)) {
      result = decode(player, player->packet, player->packet->stream_index);
    }
    av_packet_unref(player->packet);
    if (result < 0) return result;
  }
  if (player->once && player->found) return 0;
  for (int i = 0; i < kMostStreams; ++i) {
    result = decode(player, NULL, i);
    if (result < 0) return result;
  }
  return 0;
}

static int openDecoder(Player* player, int index) {
  const AVStream* stream = player->format->streams[index];
  const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
  if (codec == NULL) return 0;
  AVCodecContext* decoder = avcodec_alloc_context3(codec);
  if (decoder == NULL) return AVERROR(ENOMEM);
  player->decoders[index] = decoder;
  avcodec_parameters_to_context(decoder, stream->codecpar);
  decoder->pkt_timebase = stream->time_base;
  decoder->thread_count = 1;
  return avcodec_open2(decoder, codec, NULL);
}

static void applySettings(int handle, void* data) {
  const Options* options = data;
  if (options->authorities != NULL) x_fluvia_file_http_set_CA(handle, options->authorities);
  if (options->userAgent != NULL) x_fluvia_file_http_set_userAgent(handle, options->userAgent);
}

static void printNotice(FluviaStreamNotice notice, const char* text, void* data) {
  (void)notice;
  (void)data;
  fprintf(stderr, "frames: %s\n", text);
}

static int openSource(Player* player, Options* options) {
  if (options->plain) {
    return avformat_open_input(&player->format, options->source, NULL, NULL);
  }
  FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
  settings.seconds = options->reopen;
  settings.apply = applySettings;
  settings.notice = printNotice;
  settings.data = options;
  const int result = fluvia_avio_open(&player->source, options->source, &settings);
  return result < 0 ? result : fluvia_avio_open_input(player->source, &player->format, NULL);
}

static int openPlayer(Player* player, Options* options) {
  player->packet = av_packet_alloc();
  player->frame = av_frame_alloc();
  if (player->packet == NULL || player->frame == NULL) return AVERROR(ENOMEM);
  int result = openSource(player, options);
  if (result < 0) return failSource(player, "open", result);
  result = avformat_find_stream_info(player->format, NULL);
  if (result < 0) return fail("find the streams", result);
  player->main = av_find_best_stream(player->format, AVMEDIA_TYPE_VIDEO, -1, -1, NULL, 0);
  if (player->main < 0) {
    player->main = av_find_best_stream(player->format, AVMEDIA_TYPE_AUDIO, -1, -1, NULL, 0);
  }
  if (player->main < 0) return fail("find a picture or sound", player->main);
  for (int i = 0; i < (int)player->format->nb_streams && i < kMostStreams; ++i) {
    result = openDecoder(player, i);
    if (result < 0) return fail("open a decoder", result);
  }
  return 0;
}

static void closePlayer(Player* player) {
  for (int i = 0; i < kMostStreams; ++i) avcodec_free_context(&player->decoders[i]);
  avformat_close_input(&player->format);
  fluvia_avio_close(&player->source);
  av_frame_free(&player->frame);
  av_packet_free(&player->packet);
}

static void flushDecoders(Player* player) {
  for (int i = 0; i < kMostStreams; ++i) {
    if (player->decoders[i] != NULL) avcodec_flush_buffers(player->decoders[i]);
  }
}

/* The same on every system, unlike rand(). */
static double randomFraction(unsigned int* seed) {
  *seed = *seed * 1664525U + 1013904223U;
  return (double)(*seed >> 8) / (double)(1 << 24);
}

static int firstFrame(Player* player) {
  player->once = 1;
  player->found = 0;
  player->wanted = INT64_MIN;
  const int result = play(player);
  tellTime(player, "first frame");
  return result;
}

static void tellPace(const Player* player) {
  const Pace* pace = &player->pace;
  fprintf(stderr, "longest wait %.1f ms\n", pace->longest);
  if (pace->kept) fprintf(stderr, "stalled %.1f ms in %d places\n", pace->stalled, pace->stalls);
}

static int seekTimes(Player* player, const Options* options) {
  unsigned int seed = options->seed;
  const AVStream* stream = player->format->streams[player->main];
  const int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
  const int64_t length = av_rescale_q(player->format->duration, AV_TIME_BASE_Q, stream->time_base);
  for (int i = 0; i < options->seeks; ++i) {
    /* A container may know its length only roughly, so the last tenth is not used. */
    player->wanted = start + (int64_t)(randomFraction(&seed) * 0.9 * (double)length);
    player->found = 0;
    player->once = 1;
    clock_gettime(CLOCK_MONOTONIC, &player->begin);
    int result = av_seek_frame(player->format, player->main, player->wanted, AVSEEK_FLAG_BACKWARD);
    if (result < 0) return fail("seek", result);
    flushDecoders(player);
    if (player->timing) player->wanted = INT64_MIN;
    printf("seek to %lld: ", (long long)player->wanted);
    result = play(player);
    tellTime(player, "seek");
    if (result < 0) return result;
    if (!player->found) printf("nothing\n");
  }
  return 0;
}

static int seekBytes(Player* player, const Options* options) {
  unsigned int seed = options->seed;
  const int64_t size = avio_size(player->format->pb);
  if (size < 0) return fail("learn the size", (int)size);
  for (int i = 0; i < options->byteSeeks; ++i) {
    const int64_t to = (int64_t)(randomFraction(&seed) * 0.9 * (double)size);
    int result = av_seek_frame(player->format, -1, to, AVSEEK_FLAG_BYTE);
    if (result < 0) return fail("seek to a byte", result);
    result = av_read_frame(player->format, player->packet);
    if (result < 0) return fail("read", result);
    uint8_t digest[16];
    av_md5_sum(digest, player->packet->data, (size_t)player->packet->size);
    printf("byte %lld of %lld: packet of stream %d at %lld ", (long long)to, (long long)size,
           player->packet->stream_index, (long long)player->packet->pos);
    frame_sum_print(digest);
    av_packet_unref(player->packet);
  }
  return 0;
}

static int parse(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const char* next = i + 1 < argc ? argv[i + 1] : "0";
    if (strcmp(argv[i], "--plain") == 0) {
      options->plain = 1;
    } else if (strcmp(argv[i], "--timing") == 0) {
      options->timing = 1;
    } else if (strcmp(argv[i], "--waits") == 0) {
      options->waits = 1;
    } else if (strcmp(argv[i], "--paced") == 0) {
      options->waits = options->paced = 1;
    } else if (strcmp(argv[i], "--adapt") == 0) {
      options->waits = options->adapt = 1;
    } else if (strcmp(argv[i], "--ca") == 0) {
      options->authorities = next, ++i;
    } else if (strcmp(argv[i], "--user-agent") == 0) {
      options->userAgent = next, ++i;
    } else if (strcmp(argv[i], "--reopen") == 0) {
      options->reopen = atoi(next), ++i;
    } else if (strcmp(argv[i], "--seeks") == 0) {
      options->seeks = atoi(next), ++i;
    } else if (strcmp(argv[i], "--byte-seeks") == 0) {
      options->byteSeeks = atoi(next), ++i;
    } else if (strcmp(argv[i], "--seed") == 0) {
      options->seed = (unsigned int)strtoul(next, NULL, 10), ++i;
    } else if (options->source == NULL && argv[i][0] != '-') {
      options->source = argv[i];
    } else {
      return -1;
    }
  }
  return options->source == NULL ? -1 : 0;
}

int main(int argc, char** argv) {
  Options options = {0};
  Player player = {0};
  options.seed = 1;
  options.reopen = FLUVIA_OUTAGE_SECONDS;
  if (parse(argc, argv, &options) != 0) {
    fprintf(stderr,
            "usage: frames [--plain] [--ca FILE] [--user-agent NAME] [--reopen SECONDS] [--seeks N]"
            " [--byte-seeks N] [--seed N] [--timing] [--waits] [--paced] [--adapt] SOURCE\n");
    return 2;
  }
  av_log_set_level(AV_LOG_FATAL);
  player.timing = options.timing;
  player.pace.measured = options.waits;
  player.pace.kept = options.paced;
  clock_gettime(CLOCK_MONOTONIC, &player.begin);
  player.pace.since = player.begin;
  player.adapt.on = options.adapt;
  int result = openPlayer(&player, &options);
  if (result >= 0 && options.timing) result = firstFrame(&player);
  if (result >= 0 && options.seeks > 0) result = seekTimes(&player, &options);
  if (result >= 0 && options.byteSeeks > 0) result = seekBytes(&player, &options);
  const int only = options.seeks > 0 || options.byteSeeks > 0 || options.timing;
  if (result >= 0 && (!only || options.waits)) {
    player.once = 0;
    player.blind = options.waits && !options.adapt;
    if (options.adapt && player.format->nb_programs > 0) result = chooseProgram(&player, 0);
    if (result >= 0) result = play(&player);
    if (options.waits) tellPace(&player);
  }
  if (result >= 0) result = tellMissing(&player);
  closePlayer(&player);
  return result < 0 ? 1 : 0;
}

/*
 * Decodes a file or URL through the library and prints a checksum of every frame.
 *
 *   frames [--plain] [--ca FILE] [--reopen SECONDS] [--seeks N] [--byte-seeks N] [--seed N]
 *          [--timing] SOURCE
 *
 * A line is the stream's kind and number, the frame's time in its stream's units and the MD5 of its
 * picture or samples. --plain reads with FFmpeg's own file and HTTP access instead, to compare.
 * --reopen sets how long an outage is borne (0: not at all). --seeks goes to N random times and
 * prints the first picture (or sound) at or after each;
 * --byte-seeks goes to N random bytes and prints the packet found there. --timing prints to
 * standard error how many milliseconds the first frame and each seek took.
 */
#include <fluviafs.h>
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "fluvia_avio.h"

enum { kMostStreams = 16 };

typedef struct Options {
  int plain;
  int seeks;
  int byteSeeks;
  int timing;
  unsigned int seed;
  int reopen; /* seconds */
  const char* authorities;
  const char* source;
} Options;

typedef struct Player {
  FluviaAvio* source;
  AVFormatContext* format;
  AVCodecContext* decoders[kMostStreams];
  AVPacket* packet;
  AVFrame* frame;
  struct timespec begin;
  int timing;
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

/* The source's own words, where it has some. */
static int failRead(const Player* player, int error) {
  if (player->source != NULL) {
    fprintf(stderr, "frames: %s\n", fluvia_avio_problem(player->source));
  }
  return fail("read", error);
}

static void printMd5(const uint8_t digest[16]) {
  for (int i = 0; i < 16; ++i) printf("%02x", digest[i]);
  printf("\n");
}

static int printPicture(const AVFrame* frame) {
  const int size = av_image_get_buffer_size(frame->format, frame->width, frame->height, 1);
  uint8_t* bytes = size > 0 ? av_malloc((size_t)size) : NULL;
  uint8_t digest[16];
  if (bytes == NULL) return AVERROR(ENOMEM);
  av_image_copy_to_buffer(bytes, size, (const uint8_t* const*)frame->data, frame->linesize,
                          frame->format, frame->width, frame->height, 1);
  av_md5_sum(digest, bytes, (size_t)size);
  av_free(bytes);
  printMd5(digest);
  return 0;
}

static int printSound(const AVFrame* frame) {
  const int planar = av_sample_fmt_is_planar(frame->format);
  const int channels = frame->ch_layout.nb_channels;
  const int planes = planar ? channels : 1;
  const int each = planar ? 1 : channels;
  const size_t bytes = (size_t)(frame->nb_samples * each * av_get_bytes_per_sample(frame->format));
  struct AVMD5* sum = av_md5_alloc();
  uint8_t digest[16];
  if (sum == NULL) return AVERROR(ENOMEM);
  av_md5_init(sum);
  for (int i = 0; i < planes; ++i) av_md5_update(sum, frame->extended_data[i], bytes);
  av_md5_final(sum, digest);
  av_free(sum);
  printMd5(digest);
  return 0;
}

static int printFrame(Player* player, int stream) {
  const AVFrame* frame = player->frame;
  const int video = player->decoders[stream]->codec_type == AVMEDIA_TYPE_VIDEO;
  if (player->once) {
    if (stream != player->main || frame->best_effort_timestamp < player->wanted) return 0;
    player->found = 1;
  }
  printf("%s %d %lld ", video ? "video" : "audio", stream, (long long)frame->best_effort_timestamp);
  return video ? printPicture(frame) : printSound(frame);
}

/* Prints what the decoder of a stream has ready. */
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
  /* Damaged data is the medium's matter: players go on. */
  if (result < 0 && result != AVERROR_INVALIDDATA) return fail("decode", result);
  return drain(player, stream);
}

/* Decodes to the end, or to the first frame that was wanted. */
static int play(Player* player) {
  int result = 0;
  while (!(player->once && player->found)) {
    result = av_read_frame(player->format, player->packet);
    /* To some demuxers a failed read is the end. */
    if (result == AVERROR_EOF && player->format->pb->error < 0) result = player->format->pb->error;
    if (result == AVERROR_EOF) break;
    if (result < 0) return failRead(player, result);
    result = decode(player, player->packet, player->packet->stream_index);
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
  int result = fluvia_avio_open(&player->source, options->source, &settings);
  if (result == 0) result = fluvia_avio_connect(player->source);
  if (result < 0) return result;
  player->format = avformat_alloc_context();
  if (player->format == NULL) return AVERROR(ENOMEM);
  player->format->pb = fluvia_avio_context(player->source);
  return avformat_open_input(&player->format, NULL, NULL, NULL);
}

static int openPlayer(Player* player, Options* options) {
  player->packet = av_packet_alloc();
  player->frame = av_frame_alloc();
  if (player->packet == NULL || player->frame == NULL) return AVERROR(ENOMEM);
  int result = openSource(player, options);
  if (result < 0) return fail("open", result);
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

static int seekTimes(Player* player, const Options* options) {
  unsigned int seed = options->seed;
  const AVStream* stream = player->format->streams[player->main];
  const int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
  const int64_t length = av_rescale_q(player->format->duration, AV_TIME_BASE_Q, stream->time_base);
  for (int i = 0; i < options->seeks; ++i) {
    /* The last tenth may be left by a container that knows its length only roughly. */
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
    printMd5(digest);
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
    } else if (strcmp(argv[i], "--ca") == 0) {
      options->authorities = next, ++i;
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
            "usage: frames [--plain] [--ca FILE] [--reopen SECONDS] [--seeks N] [--byte-seeks N]"
            " [--seed N] [--timing] SOURCE\n");
    return 2;
  }
  av_log_set_level(AV_LOG_FATAL);
  player.timing = options.timing;
  clock_gettime(CLOCK_MONOTONIC, &player.begin);
  int result = openPlayer(&player, &options);
  if (result >= 0 && options.timing) result = firstFrame(&player);
  if (result >= 0 && options.seeks > 0) result = seekTimes(&player, &options);
  if (result >= 0 && options.byteSeeks > 0) result = seekBytes(&player, &options);
  if (result >= 0 && options.seeks == 0 && options.byteSeeks == 0 && !options.timing) {
    result = play(&player);
  }
  closePlayer(&player);
  return result < 0 ? 1 : 0;
}

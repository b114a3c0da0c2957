#include "fluvia_mpv.h"

#include <fluviafs.h>
#include <mpv/stream_cb.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { kAbortRepeatNs = 5 * 1000 * 1000, kMostRead = 1 << 20 };

typedef struct Stream {
  int handle;
  pthread_mutex_t lock;
  pthread_cond_t left;
  int inside;    /* a call of the library that may wait is under way */
  int cancelled; /* for good */
} Stream;

static int enter(Stream* stream) {
  int allowed = 0;
  pthread_mutex_lock(&stream->lock);
  allowed = !stream->cancelled;
  stream->inside = allowed;
  pthread_mutex_unlock(&stream->lock);
  return allowed;
}

static void leave(Stream* stream) {
  pthread_mutex_lock(&stream->lock);
  stream->inside = 0;
  pthread_cond_broadcast(&stream->left);
  pthread_mutex_unlock(&stream->lock);
}

static int64_t readBytes(void* cookie, char* buffer, uint64_t size) {
  Stream* stream = cookie;
  unsigned int got = 0;
  if (!enter(stream)) return -1;
  const unsigned int wanted = size > kMostRead ? kMostRead : (unsigned int)size;
  const int result = x_fluvia_file_read(stream->handle, buffer, wanted, &got);
  leave(stream);
  if (result == FVFR_OK) return got;
  return result == FVFR_END_OF_FILE ? 0 : -1;
}

static int64_t seekTo(void* cookie, int64_t offset) {
  Stream* stream = cookie;
  long long now = 0;
  if (!enter(stream)) return MPV_ERROR_GENERIC;
  int result = x_fluvia_file_seek(stream->handle, offset, &now);
  /* The player begins with a seek to 0, to learn whether the stream seeks at all. */
  if (result == FVFR_OK && offset == 0 &&
      x_fluvia_file_seek(stream->handle, FVFR_SEEK_SPAN + 1, &now) == FVFR_SEEK_REFUSED) {
    result = FVFR_SEEK_REFUSED;
  } else if (result == FVFR_OK && offset == 0) {
    result = x_fluvia_file_seek(stream->handle, 0, &now);
  }
  leave(stream);
  if (result == FVFR_SEEK_REFUSED) return MPV_ERROR_UNSUPPORTED;
  return result == FVFR_OK ? now : MPV_ERROR_GENERIC;
}

static int64_t sizeOf(void* cookie) {
  Stream* stream = cookie;
  if (!enter(stream)) return MPV_ERROR_GENERIC;
  const long long size = x_fluvia_file_size(stream->handle);
  leave(stream);
  return size < 0 || size == FVFR_UNKNOWN_SIZE ? MPV_ERROR_UNSUPPORTED : size;
}

/* Repeated, because the other thread may not yet have begun to wait when it is broken off. */
static void cancel(void* cookie) {
  Stream* stream = cookie;
  pthread_mutex_lock(&stream->lock);
  stream->cancelled = 1;
  while (stream->inside) {
    pthread_mutex_unlock(&stream->lock);
    x_fluvia_file_read_abort(stream->handle, 0);
    pthread_mutex_lock(&stream->lock);
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += kAbortRepeatNs;
    until.tv_sec += until.tv_nsec / 1000000000;
    until.tv_nsec %= 1000000000;
    if (stream->inside) pthread_cond_timedwait(&stream->left, &stream->lock, &until);
  }
  pthread_mutex_unlock(&stream->lock);
}

static void closeStream(void* cookie) {
  Stream* stream = cookie;
  x_fluvia_file_close(stream->handle);
  pthread_cond_destroy(&stream->left);
  pthread_mutex_destroy(&stream->lock);
  free(stream);
}

static int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/* The library's name for a URI: the URL without our prefix, or the path of a file. */
static char* nameOf(const char* uri) {
  static const char file[] = "file://";
  const char* plain = strchr(uri, '+') + 1;
  char* name = malloc(strlen(plain) + 1);
  if (name == NULL) return NULL;
  if (strncmp(plain, file, sizeof file - 1) != 0) return strcpy(name, plain);
  char* end = name;
  for (const char* at = plain + sizeof file - 1; *at != '\0'; ++at) {
    if (*at == '%' && hexDigit(at[1]) >= 0 && hexDigit(at[2]) >= 0) {
      *end++ = (char)(hexDigit(at[1]) * 16 + hexDigit(at[2]));
      at += 2;
    } else {
      *end++ = *at;
    }
  }
  *end = '\0';
  return name;
}

static int openStream(void* data, char* uri, mpv_stream_cb_info* info) {
  const FluviaMpvStreams* streams = data;
  Stream* stream = calloc(1, sizeof *stream);
  char* name = nameOf(uri);
  if (stream == NULL || name == NULL || x_fluvia_file_open(name, &stream->handle) != FVFR_OK) {
    free(name);
    free(stream);
    return MPV_ERROR_LOADING_FAILED;
  }
  free(name);
  if (streams->settings != NULL) streams->settings(stream->handle, streams->data);
  pthread_mutex_init(&stream->lock, NULL);
  pthread_cond_init(&stream->left, NULL);
  info->cookie = stream;
  info->read_fn = readBytes;
  info->seek_fn = seekTo;
  info->size_fn = sizeOf;
  info->close_fn = closeStream;
  info->cancel_fn = cancel;
  return 0;
}

int fluvia_mpv_add(mpv_handle* player, FluviaMpvStreams* streams) {
  static const char* const schemes[] = {"fluvia+file", "fluvia+http", "fluvia+https"};
  int result = 0;
  for (size_t i = 0; i < sizeof schemes / sizeof schemes[0] && result >= 0; ++i) {
    result = mpv_stream_cb_add_ro(player, schemes[i], streams, openStream);
  }
  return result;
}

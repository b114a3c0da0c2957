#include "fluvia_mpv.h"

#include <fluviafs.h>
#include <mpv/stream_cb.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { kMostRead = 1 << 20, kStartWaitMs = 1000 };

/*
 * While the player opens a stream it cannot be stopped: it asks whether the stream seeks, and only
 * then passes the function that cancels. So a thread waits for the first byte, and the player waits
 * for a second at most.
 */
typedef struct Source {
  struct Source* next; /* next open source, guarded by sourcesLock */
  uintptr_t number;
  FluviaStream* stream; /* owned by the connector until it is joined */
  pthread_t connector;
  int connecting; /* the connector must be joined */
  pthread_mutex_t lock;
  pthread_cond_t changed;
  int known; /* the connector has finished */
} Source;

/*
 * The player may cancel a stream while it closes it, and shortly after. So cookies are numbers that
 * are never reused, and cancel() checks whether a source of that number still exists.
 */
static pthread_mutex_t sourcesLock = PTHREAD_MUTEX_INITIALIZER;
static Source* sources;
static uintptr_t lastNumber;

static void* addSource(Source* source) {
  pthread_mutex_lock(&sourcesLock);
  source->number = ++lastNumber;
  source->next = sources;
  sources = source;
  pthread_mutex_unlock(&sourcesLock);
  return (void*)source->number;
}

/* The link that points to the source; null if it has been closed. Requires sourcesLock. */
static Source** placeOf(const void* cookie) {
  Source** place = &sources;
  while (*place != NULL && (*place)->number != (uintptr_t)cookie) place = &(*place)->next;
  return *place == NULL ? NULL : place;
}

/* For calls that come before the close. */
static Source* sourceOf(const void* cookie) {
  pthread_mutex_lock(&sourcesLock);
  Source* source = *placeOf(cookie);
  pthread_mutex_unlock(&sourcesLock);
  return source;
}

static void* connectStream(void* data) {
  Source* source = data;
  fluvia_stream_connect(source->stream);
  pthread_mutex_lock(&source->lock);
  source->known = 1;
  pthread_cond_broadcast(&source->changed);
  pthread_mutex_unlock(&source->lock);
  return NULL;
}

/* Waits up to a second until it is known whether the stream seeks. */
static int isKnownSoon(Source* source) {
  struct timespec until;
  int result = 0;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += kStartWaitMs / 1000;
  pthread_mutex_lock(&source->lock);
  while (!source->known && result == 0) {
    result = pthread_cond_timedwait(&source->changed, &source->lock, &until);
  }
  const int known = source->known;
  pthread_mutex_unlock(&source->lock);
  return known;
}

/* Returns the stream, connected or failed. Waits for that; an abort ends the wait. */
static FluviaStream* streamOf(Source* source) {
  if (source->connecting) pthread_join(source->connector, NULL);
  source->connecting = 0;
  return source->stream;
}

static int64_t readBytes(void* cookie, char* buffer, uint64_t size) {
  unsigned int got = 0;
  const unsigned int wanted = size > kMostRead ? kMostRead : (unsigned int)size;
  const int result = fluvia_stream_read_some(streamOf(sourceOf(cookie)), buffer, wanted, &got);
  if (result == FVFR_OK) return got;
  return result == FVFR_END_OF_FILE ? 0 : -1;
}

/*
 * The player begins with a seek to 0, to find out whether the stream seeks at all. A stream that
 * takes longer to connect is taken for a seekable one: otherwise mpv would not play the film at
 * all.
 */
static int64_t seekTo(void* cookie, int64_t offset) {
  Source* source = sourceOf(cookie);
  if (offset == 0 && !isKnownSoon(source)) return 0;
  FluviaStream* stream = streamOf(source);
  if (fluvia_stream_connect(stream) != FVFR_OK) return MPV_ERROR_GENERIC;
  if (!fluvia_stream_is_seekable(stream)) return MPV_ERROR_UNSUPPORTED;
  if (fluvia_stream_seek(stream, offset) != FVFR_OK) return MPV_ERROR_GENERIC;
  return fluvia_stream_position(stream);
}

static int64_t sizeOf(void* cookie) {
  FluviaStream* stream = streamOf(sourceOf(cookie));
  if (fluvia_stream_connect(stream) != FVFR_OK) return MPV_ERROR_GENERIC;
  const long long size = fluvia_stream_size(stream);
  return size < 0 ? MPV_ERROR_UNSUPPORTED : size;
}

static void cancel(void* cookie) {
  pthread_mutex_lock(&sourcesLock);
  Source** place = placeOf(cookie);
  if (place != NULL) fluvia_stream_abort((*place)->stream);
  pthread_mutex_unlock(&sourcesLock);
}

static void closeStream(void* cookie) {
  pthread_mutex_lock(&sourcesLock);
  Source** place = placeOf(cookie);
  Source* source = *place;
  *place = source->next;
  pthread_mutex_unlock(&sourcesLock);
  fluvia_stream_abort(source->stream);
  streamOf(source);
  fluvia_stream_close(&source->stream);
  pthread_cond_destroy(&source->changed);
  pthread_mutex_destroy(&source->lock);
  free(source);
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
  Source* source = calloc(1, sizeof *source);
  char* name = nameOf(uri);
  if (source != NULL && name != NULL) fluvia_stream_open(&source->stream, name, data);
  free(name);
  if (source == NULL || source->stream == NULL) {
    free(source);
    return MPV_ERROR_LOADING_FAILED;
  }
  pthread_mutex_init(&source->lock, NULL);
  pthread_cond_init(&source->changed, NULL);
  source->connecting = pthread_create(&source->connector, NULL, connectStream, source) == 0;
  if (!source->connecting) source->known = 1;
  info->cookie = addSource(source);
  info->read_fn = readBytes;
  info->seek_fn = seekTo;
  info->size_fn = sizeOf;
  info->close_fn = closeStream;
  info->cancel_fn = cancel;
  return 0;
}

int fluvia_mpv_add(mpv_handle* player, FluviaStreamSettings* settings) {
  static const char* const schemes[] = {"fluvia+file", "fluvia+http", "fluvia+https"};
  int result = 0;
  for (size_t i = 0; i < sizeof schemes / sizeof schemes[0] && result >= 0; ++i) {
    result = mpv_stream_cb_add_ro(player, schemes[i], settings, openStream);
  }
  return result;
}

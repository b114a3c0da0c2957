#include "fluvia_stream.h"

#include <fluviafs.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { kBreakAgainMs = 5, kAskEveryMs = 20, kProblemRoom = 160, kSkipPiece = 65536 };
enum { kLeastPiece = 4096 };

struct FluviaStream {
  /* Only for the reading thread. */
  char* name;
  FluviaStreamSettings settings;
  FluviaOutage outage;
  int connected; /* the first byte has come, or the end */
  int started;   /* the first byte was requested in advance */
  char early;    /* its buffer then, until the handle is closed */
  int seekable;
  long long size;
  long long position;
  long long since; /* position after the open or the last seek */
  int final;       /* the result of every call from now on; 0: none */
  int status;
  char problem[kProblemRoom];

  pthread_mutex_t lock; /* guards the fields below */
  pthread_cond_t changed;
  int handle;   /* 0: none */
  int inside;   /* a call of the library that may wait is running */
  int breaking; /* the breaker calls the library with handle, which stays open meanwhile */
  int aborted;  /* permanently */
  int hasBreaker;
  pthread_t breaker;
};

static long long nowMs(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (long long)now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

static struct timespec timeAt(long long ms) {
  struct timespec at;
  at.tv_sec = (time_t)(ms / 1000);
  at.tv_nsec = (long)(ms % 1000) * 1000000;
  return at;
}

static int initLock(FluviaStream* stream) {
  pthread_condattr_t clock;
  if (pthread_mutex_init(&stream->lock, NULL) != 0) return 0;
  int made = pthread_condattr_init(&clock) == 0;
  if (made) {
    pthread_condattr_setclock(&clock, CLOCK_MONOTONIC);
    made = pthread_cond_init(&stream->changed, &clock) == 0;
    pthread_condattr_destroy(&clock);
  }
  if (!made) pthread_mutex_destroy(&stream->lock);
  return made;
}

static char* copyOf(const char* text) {
  const size_t room = strlen(text) + 1;
  char* copy = malloc(room);
  return copy == NULL ? NULL : memcpy(copy, text, room);
}

int fluvia_stream_open(FluviaStream** stream, const char* name,
                       const FluviaStreamSettings* settings) {
  *stream = NULL;
  FluviaStream* made = calloc(1, sizeof *made);
  if (made == NULL) return FVFR_FAILED;
  made->name = copyOf(name);
  if (made->name == NULL || !initLock(made)) {
    free(made->name);
    free(made);
    return FVFR_FAILED;
  }
  made->settings = *settings;
  if (made->settings.bufferSize == 0) made->settings.bufferSize = FVFR_DEFAULT_BUFFER;
  made->size = -1;
  fluvia_outage_init(&made->outage, made->name, settings->seconds);
  made->outage.firstSeconds = settings->firstSeconds;
  const int size = made->settings.bufferSize;
  const int result = settings->isolated && name[0] != '/'
                         ? fluvia_outage_open(&made->outage, size, &made->handle)
                         : x_fluvia_file_open_x(name, &made->handle, size);
  if (result != FVFR_OK) made->handle = 0;
  *stream = made;
  if (result != FVFR_OK) {
    fluvia_stream_close(stream);
  } else if (settings->apply != NULL) {
    settings->apply(made->handle, settings->data);
  }
  return result;
}

/* ---- Aborting ------------------------------------------------------------------------------ */

/* Around every call that may wait. enter() fails once the stream was aborted. */
static int enter(FluviaStream* stream) {
  pthread_mutex_lock(&stream->lock);
  const int allowed = !stream->aborted;
  stream->inside = allowed;
  pthread_mutex_unlock(&stream->lock);
  return allowed;
}

static int leave(FluviaStream* stream) {
  pthread_mutex_lock(&stream->lock);
  const int aborted = stream->aborted;
  stream->inside = 0;
  pthread_cond_broadcast(&stream->changed);
  pthread_mutex_unlock(&stream->lock);
  return !aborted;
}

/* Aborts the read repeatedly: it may not have begun to wait yet. */
static void* breakOff(void* data) {
  FluviaStream* stream = data;
  pthread_mutex_lock(&stream->lock);
  while (stream->inside) {
    stream->breaking = 1;
    pthread_mutex_unlock(&stream->lock);
    x_fluvia_file_read_abort(stream->handle, 0);
    pthread_mutex_lock(&stream->lock);
    stream->breaking = 0;
    pthread_cond_broadcast(&stream->changed);
    const struct timespec again = timeAt(nowMs() + kBreakAgainMs);
    if (stream->inside) pthread_cond_timedwait(&stream->changed, &stream->lock, &again);
  }
  pthread_mutex_unlock(&stream->lock);
  return NULL;
}

/*
 * Runs on a thread of its own, because an abort in the library can wait, for instance for an open
 * of the same name elsewhere.
 */
void fluvia_stream_abort(FluviaStream* stream) {
  pthread_mutex_lock(&stream->lock);
  const int first = !stream->aborted;
  stream->aborted = 1;
  pthread_cond_broadcast(&stream->changed);
  int failed = 0;
  if (first && stream->inside) {
    failed = pthread_create(&stream->breaker, NULL, breakOff, stream);
    stream->hasBreaker = !failed;
  }
  pthread_mutex_unlock(&stream->lock);
  if (failed) breakOff(stream);
}

/* Closes the handle, if there is one. */
static void dropHandle(FluviaStream* stream) {
  pthread_mutex_lock(&stream->lock);
  while (stream->breaking) pthread_cond_wait(&stream->changed, &stream->lock);
  const int handle = stream->handle;
  stream->handle = 0;
  pthread_mutex_unlock(&stream->lock);
  if (handle > 0) x_fluvia_file_close(handle);
}

static int isWanted(const FluviaStream* stream) {
  return stream->settings.unwanted == NULL || !stream->settings.unwanted(stream->settings.data);
}

/* Waits until then. Returns 0 if the stream was aborted before. */
static int restUntil(FluviaStream* stream, long long then) {
  const struct timespec until = timeAt(then);
  int result = 0;
  pthread_mutex_lock(&stream->lock);
  while (!stream->aborted && result == 0) {
    result = pthread_cond_timedwait(&stream->changed, &stream->lock, &until);
  }
  const int aborted = stream->aborted;
  pthread_mutex_unlock(&stream->lock);
  return !aborted;
}

/* Waits that long. Returns 0 if the stream was aborted before, or is not wanted any more. */
static int rest(FluviaStream* stream, long ms) {
  const long long end = nowMs() + ms;
  long long until = 0;
  do {
    if (!isWanted(stream)) return 0;
    until = nowMs() + kAskEveryMs;
    if (stream->settings.unwanted == NULL || until > end) until = end;
    if (!restUntil(stream, until)) return 0;
  } while (until < end);
  return isWanted(stream);
}

/* ---- Reading ------------------------------------------------------------------------------- */

static void notify(const FluviaStream* stream, FluviaStreamNotice notice, const char* text) {
  if (stream->settings.notice != NULL) stream->settings.notice(notice, text, stream->settings.data);
}

/* One read of the library, at the handle's position. */
static int readHandle(FluviaStream* stream, char* buffer, unsigned int size, unsigned int* got) {
  *got = 0;
  if (!enter(stream)) return FLUVIA_STREAM_ABORTED;
  const int result = x_fluvia_file_read(stream->handle, buffer, size, got);
  return leave(stream) || *got > 0 ? result : FLUVIA_STREAM_ABORTED;
}

/* Reads up to the position and drops the bytes, if the library cannot seek there. */
static int skip(FluviaStream* stream) {
  char* dropped = malloc(kSkipPiece);
  int result = dropped == NULL ? FVFR_FAILED : FVFR_OK;
  const long long until = nowMs() + 1000LL * stream->settings.seconds;
  while (result == FVFR_OK) {
    const long long left = stream->position - x_fluvia_file_offset(stream->handle);
    unsigned int got = 0;
    if (left <= 0) break;
    result = readHandle(stream, dropped, left < kSkipPiece ? (unsigned int)left : kSkipPiece, &got);
    if (result == FVFR_END_OF_FILE) result = FLUVIA_STREAM_CHANGED;
    if (result == FVFR_OK && !isWanted(stream)) result = FLUVIA_STREAM_ABORTED;
    if (result == FVFR_OK && nowMs() > until) result = FVFR_SEEK_REFUSED;
  }
  free(dropped);
  return result;
}

/* Moves the handle to the position. */
static int moveHandle(FluviaStream* stream) {
  long long now = 0;
  if (x_fluvia_file_offset(stream->handle) == stream->position) return FVFR_OK;
  if (!enter(stream)) return FLUVIA_STREAM_ABORTED;
  const int result = x_fluvia_file_seek(stream->handle, stream->position, &now);
  if (!leave(stream)) return FLUVIA_STREAM_ABORTED;
  return result == FVFR_SEEK_REFUSED ? skip(stream) : result;
}

/* Bytes came at the position, or the end. */
static void goOn(FluviaStream* stream) {
  char text[64];
  const int wasAway = stream->outage.since >= 0;
  fluvia_outage_end(&stream->outage, stream->handle);
  if (!wasAway) return;
  stream->status = FVFR_DOWNLOAD_OK;
  stream->problem[0] = '\0';
  snprintf(text, sizeof text, "going on at byte %lld", stream->position);
  notify(stream, FLUVIA_STREAM_GOES_ON, text);
}

/*
 * Reads the first byte of a new handle: a failed read has a code, a failed size query has none.
 * Then compares the resource with the previous one, and moves to the position.
 */
static int learn(FluviaStream* stream) {
  char first = 0;
  unsigned int got = 0;
  const int result = readHandle(stream, &first, 1, &got);
  if (got == 0 && result != FVFR_END_OF_FILE) return result;
  if (!fluvia_outage_is_same(&stream->outage, stream->handle)) return FLUVIA_STREAM_CHANGED;
  if (!stream->outage.known) goOn(stream);
  stream->size = stream->outage.size;
  stream->seekable = fluvia_outage_can_seek(stream->handle);
  stream->connected = 1;
  return moveHandle(stream);
}

static int reopen(FluviaStream* stream) {
  int handle = 0;
  const int size = stream->settings.bufferSize;
  if (fluvia_outage_open(&stream->outage, size, &handle) != FVFR_OK) return FVFR_FAILED;
  pthread_mutex_lock(&stream->lock);
  stream->handle = handle;
  pthread_mutex_unlock(&stream->lock);
  if (stream->settings.apply != NULL) stream->settings.apply(handle, stream->settings.data);
  return learn(stream);
}

static void noteProblem(FluviaStream* stream, int result) {
  if (result == FLUVIA_STREAM_CHANGED || result == FVFR_SEEK_REFUSED) {
    const char* what = result == FVFR_SEEK_REFUSED ? "the stream cannot be moved to where it was"
                                                   : "the resource has changed";
    stream->status = FVFR_DOWNLOAD_OK;
    snprintf(stream->problem, sizeof stream->problem, "%s", what);
    return;
  }
  stream->status = x_fluvia_file_http_get_download_status(stream->handle);
  fluvia_outage_explain(stream->handle, stream->problem, sizeof stream->problem);
}

/* True if a retry may help. */
static int isFailure(int result) {
  return result != FVFR_OK && result != FVFR_SEEK_REFUSED && result != FLUVIA_STREAM_ABORTED &&
         result != FLUVIA_STREAM_CHANGED;
}

/*
 * The handle has failed with that result: opens the resource again until a handle is at the
 * position, or the failure is final.
 */
static int recover(FluviaStream* stream, int result) {
  char text[kProblemRoom + 64];
  while (isFailure(result)) {
    if (fluvia_outage_has_changed(&stream->outage, stream->handle)) {
      result = FLUVIA_STREAM_CHANGED;
      break;
    }
    noteProblem(stream, result);
    const long pause = fluvia_outage_pause(&stream->outage, stream->handle, nowMs());
    if (pause < 0) break;
    snprintf(text, sizeof text, "%s; trying again in %ld.%ld s", stream->problem, pause / 1000,
             pause % 1000 / 100);
    notify(stream, FLUVIA_STREAM_WAITS, text);
    dropHandle(stream);
    result = rest(stream, pause) ? reopen(stream) : FLUVIA_STREAM_ABORTED;
  }
  if (result == FVFR_OK || result == FLUVIA_STREAM_ABORTED) return result;
  if (!isFailure(result)) noteProblem(stream, result);
  stream->final = result;
  notify(stream, FLUVIA_STREAM_FAILS, stream->problem);
  return result;
}

/* Connecting reads the byte again, from the buffer. */
static void dropEarly(int request, void* data, int status, int got) {
  (void)request;
  (void)data;
  (void)status;
  (void)got;
}

void fluvia_stream_start(FluviaStream* stream) {
  int request = 0;
  if (stream->connected || stream->started || stream->handle == 0) return;
  stream->started = 1;
  x_fluvia_file_read_async(stream->handle, &stream->early, 1, dropEarly, NULL, &request);
}

int fluvia_stream_connect(FluviaStream* stream) {
  if (!leave(stream)) return FLUVIA_STREAM_ABORTED;
  if (stream->final != FVFR_OK) return stream->final;
  /* A call that unwanted() ended has left no handle. */
  if (stream->handle == 0) return recover(stream, reopen(stream));
  return stream->connected ? FVFR_OK : recover(stream, learn(stream));
}

/* What has arrived at the handle's position of size bytes, but a few in any case. */
static unsigned int sizeNow(const FluviaStream* stream, unsigned int size) {
  const long long held = x_fluvia_file_bufferedSize(stream->handle);
  long long least = (stream->position - stream->since) / 16;
  if (least < kLeastPiece) least = kLeastPiece;
  if (least < held) least = held;
  return least < size ? (unsigned int)least : size;
}

static int readAt(FluviaStream* stream, char* buffer, unsigned int size, int some,
                  unsigned int* got) {
  *got = 0;
  int result = fluvia_stream_connect(stream);
  while (result == FVFR_OK) {
    result = moveHandle(stream);
    const unsigned int now = some ? sizeNow(stream, size) : size;
    if (result == FVFR_OK) result = readHandle(stream, buffer, now, got);
    if (*got > 0 || result == FVFR_END_OF_FILE || result == FVFR_OK) {
      goOn(stream);
      stream->position += *got;
      return *got > 0 || size == 0 ? FVFR_OK : FVFR_END_OF_FILE;
    }
    result = recover(stream, result);
  }
  return result;
}

int fluvia_stream_read(FluviaStream* stream, char* buffer, unsigned int size, unsigned int* got) {
  return readAt(stream, buffer, size, 0, got);
}

int fluvia_stream_read_some(FluviaStream* stream, char* buffer, unsigned int size,
                            unsigned int* got) {
  return readAt(stream, buffer, size, 1, got);
}

int fluvia_stream_seek(FluviaStream* stream, long long offset) {
  if (offset < 0) return FVFR_FAILED;
  const int result = fluvia_stream_connect(stream);
  if (result != FVFR_OK) return result;
  if (stream->size >= 0 && offset > stream->size) offset = stream->size;
  if (!stream->seekable && offset != stream->position && offset != 0) return FVFR_SEEK_REFUSED;
  const int again = !stream->seekable && offset != stream->position;
  if (offset != stream->position) stream->since = offset;
  stream->position = offset;
  if (!again) return FVFR_OK;
  /* The library would return success, and the bytes of another place. */
  dropHandle(stream);
  return recover(stream, reopen(stream));
}

long long fluvia_stream_position(const FluviaStream* stream) { return stream->position; }

long long fluvia_stream_size(FluviaStream* stream) {
  fluvia_stream_connect(stream);
  return stream->size;
}

int fluvia_stream_is_seekable(FluviaStream* stream) {
  return fluvia_stream_connect(stream) == FVFR_OK && stream->seekable;
}

void fluvia_stream_set_position(FluviaStream* stream, long long offset) {
  stream->position = offset;
}

int fluvia_stream_handle(FluviaStream* stream) {
  pthread_mutex_lock(&stream->lock);
  const int handle = stream->handle;
  pthread_mutex_unlock(&stream->lock);
  return handle;
}

int fluvia_stream_status(const FluviaStream* stream) { return stream->status; }
const char* fluvia_stream_problem(const FluviaStream* stream) { return stream->problem; }

void fluvia_stream_close(FluviaStream** stream) {
  FluviaStream* closed = *stream;
  if (closed == NULL) return;
  *stream = NULL;
  if (closed->hasBreaker) pthread_join(closed->breaker, NULL);
  dropHandle(closed);
  pthread_cond_destroy(&closed->changed);
  pthread_mutex_destroy(&closed->lock);
  free(closed->name);
  free(closed);
}

#include "fluvia_parts.h"

#include <errno.h>
#include <fluviafs.h>
#include <libavutil/avstring.h>
#include <libavutil/common.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "fluvia_decrypt.h"

enum { kContextBuffer = 32768, kMissingPauseMs = 500, kMostKept = 8, kProblemRoom = 256 };

/* The most that connecting takes on a long line, and the bytes that are waited for meanwhile. */
enum { kConnectMs = 300, kMostSoon = 1 << 20 };

typedef struct Part {
  struct Part* next; /* next open part, guarded by the lock */
  FluviaParts* parts;
  char* name; /* the library's name */
  int local;
  int ranged;
  long long begin;      /* offset of position 0 in the resource */
  long long end;        /* -1: the resource's end */
  FluviaStream* stream; /* null until bytes are needed; other threads read it under the lock */
  int connected;
  int reading; /* its first read has begun */
  int ended;
  int error;          /* the result of every later read; 0: none */
  struct Part* after; /* the demuxer reads it when this one has ended; may be null */
  FluviaDecrypt* decrypt;
  AVIOContext* context;
} Part;

/* The stream of a resource whose last range was closed: the next range continues in its buffer. */
typedef struct Kept {
  char* name;
  FluviaStream* stream;
  unsigned int age;
} Kept;

struct FluviaParts {
  FluviaStreamSettings settings;
  char* first;
  Kept kept[kMostKept];
  unsigned int closings;
  Part* ahead; /* opened before another part was at its end, and not read yet */
  int missing;
  char problem[kProblemRoom];

  pthread_mutex_t lock; /* guards the fields below */
  pthread_cond_t changed;
  Part* open;
  int aborted;
};

static int initLock(FluviaParts* parts) {
  pthread_condattr_t clock;
  if (pthread_mutex_init(&parts->lock, NULL) != 0) return 0;
  int made = pthread_condattr_init(&clock) == 0;
  if (made) {
    pthread_condattr_setclock(&clock, CLOCK_MONOTONIC);
    made = pthread_cond_init(&parts->changed, &clock) == 0;
    pthread_condattr_destroy(&clock);
  }
  if (!made) pthread_mutex_destroy(&parts->lock);
  return made;
}

FluviaParts* fluvia_parts_new(const char* first, const FluviaStreamSettings* settings) {
  FluviaParts* parts = av_mallocz(sizeof *parts);
  if (parts == NULL) return NULL;
  parts->first = av_strdup(first);
  if (parts->first == NULL || !initLock(parts)) {
    av_free(parts->first);
    av_free(parts);
    return NULL;
  }
  parts->settings = *settings;
  /* A playlist that is loaded again must not come from the stream of the first time. */
  parts->settings.isolated = 1;
  return parts;
}

int fluvia_parts_is_aborted(FluviaParts* parts) {
  pthread_mutex_lock(&parts->lock);
  const int aborted = parts->aborted;
  pthread_mutex_unlock(&parts->lock);
  return aborted;
}

/* Waits that long; returns 0 if it was aborted before. */
static int rest(FluviaParts* parts, int ms) {
  struct timespec until;
  int result = 0;
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += (long)ms * 1000000;
  until.tv_sec += until.tv_nsec / 1000000000;
  until.tv_nsec %= 1000000000;
  pthread_mutex_lock(&parts->lock);
  while (!parts->aborted && result == 0) {
    result = pthread_cond_timedwait(&parts->changed, &parts->lock, &until);
  }
  const int aborted = parts->aborted;
  pthread_mutex_unlock(&parts->lock);
  return !aborted;
}

/* ---- The stream of a part ------------------------------------------------------------------ */

static void setStream(Part* part, FluviaStream* stream) {
  pthread_mutex_lock(&part->parts->lock);
  part->stream = stream;
  if (stream != NULL && part->parts->aborted) fluvia_stream_abort(stream);
  pthread_mutex_unlock(&part->parts->lock);
}

static void dropStream(Part* part) {
  FluviaStream* stream = part->stream;
  setStream(part, NULL);
  fluvia_stream_close(&stream);
}

static size_t lengthOfHost(const char* name) {
  const char* host = strstr(name, "://");
  return host == NULL ? 0 : (size_t)(host - name) + 3 + strcspn(host + 3, "/?#");
}

static int isOfFirstHost(const Part* part) {
  const size_t length = lengthOfHost(part->name);
  return length == lengthOfHost(part->parts->first) &&
         strncmp(part->name, part->parts->first, length) == 0;
}

/* A kept stream of that name, or null; preferably one whose position is the offset. */
static FluviaStream* takeKept(FluviaParts* parts, const char* name, long long offset) {
  Kept* found = NULL;
  for (int i = 0; i < kMostKept; ++i) {
    Kept* kept = &parts->kept[i];
    if (kept->stream == NULL || strcmp(kept->name, name) != 0) continue;
    if (found == NULL || fluvia_stream_position(kept->stream) == offset) found = kept;
  }
  if (found == NULL) return NULL;
  FluviaStream* stream = found->stream;
  found->stream = NULL;
  av_freep(&found->name);
  return stream;
}

static void dropKept(Kept* kept) {
  fluvia_stream_close(&kept->stream);
  av_freep(&kept->name);
}

/* Keeps the stream of a part that is being closed, and drops the one that was kept longest. */
static void keepStream(Part* part) {
  FluviaParts* parts = part->parts;
  Kept* place = &parts->kept[0];
  for (int i = 0; i < kMostKept && place->stream != NULL; ++i) {
    Kept* other = &parts->kept[i];
    if (other->stream == NULL || other->age < place->age) place = other;
  }
  dropKept(place);
  place->stream = part->stream;
  place->name = part->name;
  place->age = ++parts->closings;
  part->name = NULL;
  setStream(part, NULL);
}

static int takeStream(Part* part) {
  if (part->stream != NULL) return 0;
  FluviaStream* stream = part->ranged ? takeKept(part->parts, part->name, part->begin) : NULL;
  if (stream == NULL) {
    FluviaStreamSettings settings = part->parts->settings;
    /* The server has responded before: the name is not mistyped. */
    if (isOfFirstHost(part)) settings.firstSeconds = settings.seconds;
    if (fluvia_stream_open(&stream, part->name, &settings) != FVFR_OK) return AVERROR(ENOMEM);
  }
  setStream(part, stream);
  return 0;
}

/* Names it without its server and folder, and without what a query or a password may reveal. */
static int noteMissing(Part* part, int error, const char* why) {
  FluviaParts* parts = part->parts;
  const size_t length = strcspn(part->name, "?#");
  const char* least = part->name + lengthOfHost(part->name);
  const char* begin = part->name + length;
  while (begin > least && begin[-1] != '/') --begin;
  const int shown = (int)(part->name + length - begin);
  part->ended = 1;
  part->error = error;
  ++parts->missing;
  snprintf(parts->problem, sizeof parts->problem, "%.*s%s%s", shown, begin, shown > 0 ? ": " : "",
           why);
  return error;
}

/* Handles a result that is an error. */
static int failed(Part* part, int result) {
  const int error = fluvia_avio_error(part->stream, result);
  if (error == AVERROR_EXIT) return error;
  return noteMissing(part, error, fluvia_stream_problem(part->stream));
}

/*
 * Connects and moves to the part's first byte. Retries once if a server does not have the resource:
 * one of several servers with the same name may not yet have a segment that another has announced.
 */
static int connectPart(Part* part) {
  if (part->connected || part->error < 0) return part->error;
  if (fluvia_parts_is_aborted(part->parts)) return AVERROR_EXIT;
  int result = takeStream(part);
  if (result < 0) return result;
  result = fluvia_stream_connect(part->stream);
  const int missing = result != FVFR_OK && fluvia_stream_status(part->stream) == 404;
  if (missing && rest(part->parts, kMissingPauseMs)) {
    dropStream(part);
    result = takeStream(part);
    if (result < 0) return result;
    result = fluvia_stream_connect(part->stream);
  }
  if (result == FVFR_OK) result = fluvia_stream_seek(part->stream, part->begin);
  if (result != FVFR_OK) return failed(part, result);
  part->connected = 1;
  const int seeks = part->decrypt == NULL && fluvia_stream_is_seekable(part->stream);
  part->context->seekable = seeks ? AVIO_SEEKABLE_NORMAL : 0;
  return 0;
}

/* ---- Reading ahead ------------------------------------------------------------------------- */

/*
 * True if all bytes of the part have arrived, or will while the next part connects. If the next
 * part began earlier, the two would share the line, and this one is read first.
 */
static int isAlmostHeld(const Part* part) {
  const int handle = fluvia_stream_handle(part->stream);
  const int held = x_fluvia_file_bufferedSize(handle);
  const long long end = part->end >= 0 ? part->end : fluvia_stream_size(part->stream);
  if (end < 0 || held < 0) return 0;
  const long long missing = end - fluvia_stream_position(part->stream) - held;
  const long long speed = x_fluvia_file_http_get_speed(handle);
  const long long soon = speed * kConnectMs / 1000;
  return missing <= FFMIN(soon, kMostSoon);
}

/* Starts to connect the part that comes next. */
static void startNext(Part* part) {
  Part* after = part->after;
  part->after = NULL;
  if (after == NULL || after->stream != NULL) return;
  /* Ranges of one resource follow each other in its buffer. */
  if (after->ranged && part->ranged && strcmp(after->name, part->name) == 0) return;
  if (takeStream(after) == 0) fluvia_stream_start(after->stream);
}

/* The demuxer opens what it will read next just before it begins to read a part. */
static void noteFirstRead(Part* part) {
  FluviaParts* parts = part->parts;
  if (part->reading) return;
  part->reading = 1;
  if (parts->ahead != part) part->after = parts->ahead;
  parts->ahead = NULL;
}

static void forget(Part* part) {
  FluviaParts* parts = part->parts;
  if (parts->ahead == part) parts->ahead = NULL;
  pthread_mutex_lock(&parts->lock);
  Part** place = &parts->open;
  while (*place != part) {
    if ((*place)->after == part) (*place)->after = NULL;
    place = &(*place)->next;
  }
  *place = part->next;
  for (Part* each = part->next; each != NULL; each = each->next) {
    if (each->after == part) each->after = NULL;
  }
  pthread_mutex_unlock(&parts->lock);
}

/* True if the demuxer has another open part that it has not read to its end. */
static int isBusy(FluviaParts* parts) {
  pthread_mutex_lock(&parts->lock);
  const Part* each = parts->open;
  while (each != NULL && each->ended) each = each->next;
  pthread_mutex_unlock(&parts->lock);
  return each != NULL;
}

/* ---- The context --------------------------------------------------------------------------- */

static int readStream(void* data, uint8_t* buffer, int size) {
  Part* part = data;
  unsigned int got = 0;
  int result = connectPart(part);
  if (result < 0) return result;
  const long long left = part->end - fluvia_stream_position(part->stream);
  if (part->end >= 0 && left < size) size = left < 0 ? 0 : (int)left;
  result = size == 0 ? FVFR_END_OF_FILE
                     : fluvia_stream_read(part->stream, (char*)buffer, (unsigned int)size, &got);
  if (result == FVFR_END_OF_FILE) part->ended = 1;
  if (part->after != NULL && (part->ended || isAlmostHeld(part))) startNext(part);
  if (result == FVFR_OK) return (int)got;
  return result == FVFR_END_OF_FILE ? AVERROR_EOF : failed(part, result);
}

static int readPacket(void* opaque, uint8_t* buffer, int size) {
  Part* part = opaque;
  noteFirstRead(part);
  if (part->error < 0) return part->error;
  if (part->decrypt == NULL) return readStream(part, buffer, size);
  const int result = fluvia_decrypt_read(part->decrypt, readStream, part, buffer, size);
  if (result != AVERROR_INVALIDDATA) return result;
  return noteMissing(part, result, "it cannot be decrypted");
}

static int64_t sizeOf(Part* part) {
  if (part->decrypt != NULL) return AVERROR(ENOSYS);
  if (part->end >= 0) return part->end - part->begin;
  const int result = connectPart(part);
  if (result < 0) return result;
  const long long size = fluvia_stream_size(part->stream);
  return size < 0 ? AVERROR(ENOSYS) : size - part->begin;
}

static int64_t seek(void* opaque, int64_t offset, int whence) {
  Part* part = opaque;
  if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE) return sizeOf(part);
  if ((whence & ~AVSEEK_FORCE) != SEEK_SET || offset < 0) return AVERROR(EINVAL);
  if (part->decrypt != NULL) return AVERROR(ESPIPE);
  int result = connectPart(part);
  if (result < 0) return result;
  result = fluvia_stream_seek(part->stream, part->begin + offset);
  if (result != FVFR_OK) return fluvia_avio_error(part->stream, result);
  part->ended = 0;
  return fluvia_stream_position(part->stream) - part->begin;
}

static int makeContext(Part* part) {
  unsigned char* buffer = av_malloc(kContextBuffer);
  if (buffer == NULL) return AVERROR(ENOMEM);
  part->context = avio_alloc_context(buffer, kContextBuffer, 0, part, readPacket, NULL, seek);
  if (part->context == NULL) {
    av_free(buffer);
    return AVERROR(ENOMEM);
  }
  part->context->seekable = 0;
  return 0;
}

/* ---- Opening and closing ------------------------------------------------------------------- */

static void freePart(Part* part) {
  if (part->stream != NULL) dropStream(part);
  fluvia_decrypt_free(&part->decrypt);
  if (part->context != NULL) av_freep(&part->context->buffer);
  avio_context_free(&part->context);
  av_free(part->name);
  av_free(part);
}

/*
 * The library's name for an address. A local name is spelt differently from the first resource's:
 * handles with the same spelling share a stream, and a local playlist may have grown.
 */
static char* nameOf(const FluviaParts* parts, const char* address, int* local) {
  *local = 0;
  if (av_strstart(address, "http://", NULL) || av_strstart(address, "https://", NULL)) {
    return av_strdup(address);
  }
  av_strstart(address, "file:", &address);
  /* A remote resource must not refer to local files. */
  if (address[0] != '/' || parts->first[0] != '/') return NULL;
  *local = 1;
  return av_asprintf("/.%s", address);
}

static long long optionOf(const AVDictionary* options, const char* name, long long otherwise) {
  const AVDictionaryEntry* entry = av_dict_get(options, name, NULL, 0);
  return entry == NULL ? otherwise : atoll(entry->value);
}

static int makeDecrypt(Part* part, const AVDictionary* options) {
  const AVDictionaryEntry* key = av_dict_get(options, "key", NULL, 0);
  const AVDictionaryEntry* iv = av_dict_get(options, "iv", NULL, 0);
  if (key == NULL || iv == NULL) return AVERROR(EINVAL);
  part->decrypt = fluvia_decrypt_new(key->value, iv->value);
  return part->decrypt == NULL ? AVERROR(EINVAL) : 0;
}

/* Creates a part that is in no list yet. */
static int makePart(FluviaParts* parts, Part** part, const char* address,
                    const AVDictionary* options) {
  Part* made = av_mallocz(sizeof *made);
  *part = made;
  if (made == NULL) return AVERROR(ENOMEM);
  made->parts = parts;
  made->end = -1;
  const int secret =
      av_strstart(address, "crypto+", &address) || av_strstart(address, "crypto:", &address);
  made->name = nameOf(parts, address, &made->local);
  if (made->name == NULL) return AVERROR(EPERM);
  /* FFmpeg's own access to files ignores ranges: the demuxer seeks in them. */
  if (!made->local) {
    made->begin = optionOf(options, "offset", 0);
    made->end = optionOf(options, "end_offset", -1);
    made->ranged = made->begin > 0 || made->end >= 0;
  }
  const int result = secret ? makeDecrypt(made, options) : 0;
  return result < 0 ? result : makeContext(made);
}

int fluvia_parts_open(FluviaParts* parts, AVIOContext** context, const char* address,
                      const AVDictionary* options) {
  Part* part = NULL;
  if (fluvia_parts_is_aborted(parts)) return AVERROR_EXIT;
  int result = makePart(parts, &part, address, options);
  if (result < 0) {
    if (part != NULL) freePart(part);
    return result;
  }
  const int later = !part->local && isBusy(parts);
  pthread_mutex_lock(&parts->lock);
  part->next = parts->open;
  parts->open = part;
  pthread_mutex_unlock(&parts->lock);
  if (later) {
    parts->ahead = part;
  } else {
    result = connectPart(part);
  }
  *context = part->context;
  if (result < 0) {
    fluvia_parts_close(part->context);
    *context = NULL;
  }
  return result;
}

int fluvia_parts_close(AVIOContext* context) {
  if (context == NULL || context->read_packet != readPacket) return 0;
  Part* part = context->opaque;
  forget(part);
  if (part->ranged && part->connected && part->error == 0 && !fluvia_parts_is_aborted(part->parts))
    keepStream(part);
  freePart(part);
  return 1;
}

int fluvia_parts_missing(const FluviaParts* parts) { return parts->missing; }

const char* fluvia_parts_problem(const FluviaParts* parts) { return parts->problem; }

void fluvia_parts_abort(FluviaParts* parts) {
  pthread_mutex_lock(&parts->lock);
  parts->aborted = 1;
  pthread_cond_broadcast(&parts->changed);
  for (Part* part = parts->open; part != NULL; part = part->next) {
    if (part->stream != NULL) fluvia_stream_abort(part->stream);
  }
  pthread_mutex_unlock(&parts->lock);
}

void fluvia_parts_free(FluviaParts** parts) {
  FluviaParts* freed = *parts;
  if (freed == NULL) return;
  *parts = NULL;
  for (int i = 0; i < kMostKept; ++i) dropKept(&freed->kept[i]);
  pthread_cond_destroy(&freed->changed);
  pthread_mutex_destroy(&freed->lock);
  av_free(freed->first);
  av_free(freed);
}

#include "fluvia_outage.h"

#include <fluviafs.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const long kPauses[] = {0, 500, 1000, 2000, 4000, 5000}; /* milliseconds */
enum { kPauseCount = sizeof kPauses / sizeof kPauses[0], kHeaderRoom = 8192, kMark = 32 };
enum { kRangeRefused = 416 };

/* Makes fragments unique in the process. */
static pthread_mutex_t openingsLock = PTHREAD_MUTEX_INITIALIZER;
static unsigned int openings;

void fluvia_outage_init(FluviaOutage* outage, const char* name, int seconds) {
  memset(outage, 0, sizeof *outage);
  outage->name = name;
  outage->seconds = seconds;
  outage->firstSeconds = FLUVIA_OUTAGE_FIRST_SECONDS;
  outage->since = -1;
  outage->size = -1;
}

static long long sizeOf(int handle) {
  const long long size = x_fluvia_file_size(handle);
  return size < 0 || size == FVFR_UNKNOWN_SIZE ? -1 : size;
}

static const char* typeOf(int handle) {
  const char* type = x_fluvia_file_http_get_content_type(handle);
  return type == NULL ? "" : type;
}

int fluvia_outage_can_seek(int handle) {
  long long now = 0;
  const long long offset = x_fluvia_file_offset(handle);
  if (x_fluvia_file_seek(handle, offset + FVFR_SEEK_SPAN + 1, &now) == FVFR_SEEK_REFUSED) return 0;
  x_fluvia_file_seek(handle, offset, &now);
  return 1;
}

void fluvia_outage_end(FluviaOutage* outage, int handle) {
  outage->since = -1;
  outage->tries = 0;
  if (outage->known) return;
  outage->known = 1;
  outage->size = sizeOf(handle);
  outage->seekable = fluvia_outage_can_seek(handle);
  snprintf(outage->type, sizeof outage->type, "%s", typeOf(handle));
}

int fluvia_outage_is_same(const FluviaOutage* outage, int handle) {
  if (!outage->known) return 1;
  const long long size = sizeOf(handle);
  if (size != outage->size) {
    /* The size of a stream that cannot seek may have become known only at its end. */
    if (size >= 0 && outage->size >= 0) return 0;
    if (outage->seekable || fluvia_outage_can_seek(handle)) return 0;
  }
  return outage->type[0] == '\0' ||
         strncmp(typeOf(handle), outage->type, sizeof outage->type - 1) == 0;
}

int fluvia_outage_has_changed(const FluviaOutage* outage, int handle) {
  return outage->known && outage->size > 0 &&
         x_fluvia_file_http_get_download_status(handle) == kRangeRefused;
}

/*
 * The library also returns 404 for a response without a body. If its headers are incomplete, the
 * connection broke: the server has not reported a missing resource.
 */
static int isCutAnswer(int handle) {
  static const char end[] = "\r\n\r\n";
  char header[kHeaderRoom];
  int length = 0;
  int status = 0;
  x_fluvia_file_http_get_header(handle, header, sizeof header - 1, &length);
  if (length <= 0 || length >= kHeaderRoom) return 0;
  header[length] = '\0';
  if (sscanf(header, "HTTP/%*s %d", &status) != 1 || status >= 400) return 0;
  const size_t tail = sizeof end - 1;
  return (size_t)length < tail || memcmp(header + length - tail, end, tail) != 0;
}

static int mayComeBack(int handle) {
  const int status = x_fluvia_file_http_get_download_status(handle);
  if (status < 400) return 1;
  if (status == 404) return isCutAnswer(handle);
  return status == 408 || status == 429 || (status >= 500 && status <= 599);
}

long fluvia_outage_pause(FluviaOutage* outage, int handle, long long now) {
  if (outage->seconds <= 0 || outage->name[0] == '/') return -1;
  if (x_fluvia_file_bufferSize(handle) == FVFR_FAILED || !mayComeBack(handle)) return -1;
  if (outage->since < 0) outage->since = now;
  int seconds = outage->seconds;
  if (!outage->known && seconds > outage->firstSeconds) seconds = outage->firstSeconds;
  const long long left = outage->since + 1000LL * seconds - now;
  if (left <= 0) return -1;
  const int last = kPauseCount - 1;
  const long pause = kPauses[outage->tries < last ? outage->tries : last];
  ++outage->tries;
  return pause < left ? pause : (long)left;
}

static unsigned int nextOpening(void) {
  pthread_mutex_lock(&openingsLock);
  const unsigned int next = ++openings;
  pthread_mutex_unlock(&openingsLock);
  return next;
}

int fluvia_outage_open(const FluviaOutage* outage, int bufferSize, int* handle) {
  const size_t room = strlen(outage->name) + kMark;
  char* name = malloc(room);
  if (name == NULL) return FVFR_FAILED;
  snprintf(name, room, "%s#again-%u", outage->name, nextOpening());
  const int result = x_fluvia_file_open_x(name, handle, bufferSize);
  free(name);
  return result;
}

const char* fluvia_outage_explain(int handle, char* text, size_t room) {
  const int status = x_fluvia_file_http_get_download_status(handle);
  const char* why = "the stream failed";
  switch (status) {
    case FVFR_DOWNLOAD_TIMEOUT:
      why = "the server cannot be reached in time";
      break;
    case FVFR_DOWNLOAD_NO_DATA:
    case FVFR_DOWNLOAD_CONNECTION_DEAD:
      why = "the server has fallen silent";
      break;
    case FVFR_DOWNLOAD_UNKNOWN_HOST:
      why = "nobody knows the name of that server";
      break;
    case FVFR_DOWNLOAD_UNREACHABLE:
      why = "the server cannot be reached";
      break;
    case FVFR_DOWNLOAD_REFUSED:
      why = "the server refuses the connection";
      break;
    default:
      break;
  }
  if (status >= 400) {
    snprintf(text, room, "the server answered %d", status);
  } else {
    snprintf(text, room, "%s", why);
  }
  return text;
}

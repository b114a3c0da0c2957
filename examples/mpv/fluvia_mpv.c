#include "fluvia_mpv.h"

#include <fluviafs.h>
#include <mpv/stream_cb.h>
#include <stdlib.h>
#include <string.h>

enum { kMostRead = 1 << 20 };

static int64_t readBytes(void* cookie, char* buffer, uint64_t size) {
  unsigned int got = 0;
  const unsigned int wanted = size > kMostRead ? kMostRead : (unsigned int)size;
  const int result = fluvia_stream_read(cookie, buffer, wanted, &got);
  if (result == FVFR_OK) return got;
  return result == FVFR_END_OF_FILE ? 0 : -1;
}

/* The player begins with a seek to 0, to learn whether the stream seeks at all. */
static int64_t seekTo(void* cookie, int64_t offset) {
  FluviaStream* stream = cookie;
  if (fluvia_stream_connect(stream) != FVFR_OK) return MPV_ERROR_GENERIC;
  if (!fluvia_stream_is_seekable(stream)) return MPV_ERROR_UNSUPPORTED;
  if (fluvia_stream_seek(stream, offset) != FVFR_OK) return MPV_ERROR_GENERIC;
  return fluvia_stream_position(stream);
}

static int64_t sizeOf(void* cookie) {
  FluviaStream* stream = cookie;
  if (fluvia_stream_connect(stream) != FVFR_OK) return MPV_ERROR_GENERIC;
  const long long size = fluvia_stream_size(stream);
  return size < 0 ? MPV_ERROR_UNSUPPORTED : size;
}

static void cancel(void* cookie) { fluvia_stream_abort(cookie); }

static void closeStream(void* cookie) {
  FluviaStream* stream = cookie;
  fluvia_stream_close(&stream);
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
  FluviaStream* stream = NULL;
  char* name = nameOf(uri);
  if (name != NULL) fluvia_stream_open(&stream, name, data);
  free(name);
  if (stream == NULL) return MPV_ERROR_LOADING_FAILED;
  info->cookie = stream;
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

#include "fluvia_avio.h"

#include <errno.h>
#include <fluviafs.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
#include <stdio.h>

enum { kContextBuffer = 32768 };

struct FluviaAvio {
  FluviaStream* stream;
  AVIOContext* context;
};

/* By the status of the transfer: the library's codes call a silent server not found. */
static int errorOfStatus(int status) {
  switch (status) {
    case FVFR_DOWNLOAD_TIMEOUT:
    case FVFR_DOWNLOAD_NO_DATA:
    case FVFR_DOWNLOAD_CONNECTION_DEAD:
      return AVERROR(ETIMEDOUT);
    case FVFR_DOWNLOAD_UNKNOWN_HOST:
    case FVFR_DOWNLOAD_UNREACHABLE:
      return AVERROR(EHOSTUNREACH);
    case FVFR_DOWNLOAD_REFUSED:
      return AVERROR(ECONNREFUSED);
    case 401:
      return AVERROR_HTTP_UNAUTHORIZED;
    case 403:
      return AVERROR_HTTP_FORBIDDEN;
    case 404:
    case 410:
      return AVERROR(ENOENT);
    default:
      if (status >= 500) return AVERROR_HTTP_SERVER_ERROR;
      return status >= 400 ? AVERROR_HTTP_OTHER_4XX : AVERROR(EIO);
  }
}

static int errorOf(const FluviaAvio* source, int result) {
  switch (result) {
    case FVFR_END_OF_FILE:
      return AVERROR_EOF;
    case FVFR_SEEK_REFUSED:
      return AVERROR(ESPIPE);
    case FLUVIA_STREAM_ABORTED:
      return AVERROR_EXIT;
    case FLUVIA_STREAM_CHANGED:
      return AVERROR(ESTALE);
    default:
      return errorOfStatus(fluvia_stream_status(source->stream));
  }
}

static int readPacket(void* opaque, uint8_t* buffer, int size) {
  FluviaAvio* source = opaque;
  unsigned int got = 0;
  const int result = fluvia_stream_read(source->stream, (char*)buffer, (unsigned int)size, &got);
  return result == FVFR_OK ? (int)got : errorOf(source, result);
}

static int64_t sizeOf(FluviaAvio* source) {
  const int result = fluvia_stream_connect(source->stream);
  if (result != FVFR_OK) return errorOf(source, result);
  const long long size = fluvia_stream_size(source->stream);
  return size < 0 ? AVERROR(ENOSYS) : size;
}

static int64_t seek(void* opaque, int64_t offset, int whence) {
  FluviaAvio* source = opaque;
  int64_t base = 0;
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return sizeOf(source);
    case SEEK_SET:
      break;
    case SEEK_CUR:
      base = fluvia_stream_position(source->stream);
      break;
    case SEEK_END:
      base = sizeOf(source);
      if (base < 0) return base;
      break;
    default:
      return AVERROR(EINVAL);
  }
  if (base + offset < 0) return AVERROR(EINVAL);
  const int result = fluvia_stream_seek(source->stream, base + offset);
  return result == FVFR_OK ? fluvia_stream_position(source->stream) : errorOf(source, result);
}

static int makeContext(FluviaAvio* source) {
  unsigned char* buffer = av_malloc(kContextBuffer);
  if (buffer == NULL) return AVERROR(ENOMEM);
  source->context = avio_alloc_context(buffer, kContextBuffer, 0, source, readPacket, NULL, seek);
  if (source->context != NULL) return 0;
  av_free(buffer);
  return AVERROR(ENOMEM);
}

static void logNotice(FluviaStreamNotice notice, const char* text, void* data) {
  (void)data;
  av_log(NULL, notice == FLUVIA_STREAM_FAILS ? AV_LOG_ERROR : AV_LOG_WARNING, "fluvia: %s\n", text);
}

int fluvia_avio_open(FluviaAvio** source, const char* name, const FluviaStreamSettings* settings) {
  FluviaStreamSettings own = FLUVIA_STREAM_SETTINGS;
  if (settings != NULL) own = *settings;
  if (own.notice == NULL) own.notice = logNotice;
  *source = NULL;
  FluviaAvio* made = av_mallocz(sizeof *made);
  if (made == NULL) return AVERROR(ENOMEM);
  int result = AVERROR(EINVAL);
  if (fluvia_stream_open(&made->stream, name, &own) == FVFR_OK) result = makeContext(made);
  *source = made;
  if (result != 0) fluvia_avio_close(source);
  return result;
}

int fluvia_avio_handle(const FluviaAvio* source) { return fluvia_stream_handle(source->stream); }

int fluvia_avio_connect(FluviaAvio* source) {
  const int result = fluvia_stream_connect(source->stream);
  if (result != FVFR_OK) return errorOf(source, result);
  source->context->seekable = fluvia_stream_is_seekable(source->stream) ? AVIO_SEEKABLE_NORMAL : 0;
  return 0;
}

AVIOContext* fluvia_avio_context(FluviaAvio* source) { return source->context; }

const char* fluvia_avio_problem(const FluviaAvio* source) {
  return fluvia_stream_problem(source->stream);
}

void fluvia_avio_abort(FluviaAvio* source) { fluvia_stream_abort(source->stream); }

void fluvia_avio_close(FluviaAvio** source) {
  FluviaAvio* closed = *source;
  if (closed == NULL) return;
  *source = NULL;
  fluvia_stream_close(&closed->stream);
  if (closed->context != NULL) av_freep(&closed->context->buffer);
  avio_context_free(&closed->context);
  av_free(closed);
}

#include "fluvia_avio.h"

#include <errno.h>
#include <fluviafs.h>
#include <libavutil/avstring.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
#include <stdio.h>
#include <string.h>

#include "fluvia_parts.h"

enum { kContextBuffer = 32768 };

typedef int (*OpenContext)(AVFormatContext* format, AVIOContext** context, const char* address,
                           int flags, AVDictionary** options);
typedef int (*CloseContext)(AVFormatContext* format, AVIOContext* context);

struct FluviaAvio {
  char* name;
  FluviaStream* stream;
  AVIOContext* context;
  FluviaParts* parts;
  const char* problem; /* of the source itself; null: ask the stream */
  /* The functions that the player or FFmpeg had set. */
  OpenContext openOther;
  CloseContext closeOther;
  AVIOInterruptCB interruptOther;
};

/*
 * Decides by the status of the transfer: the library's codes report a silent server as not found.
 */
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

int fluvia_avio_error(const FluviaStream* stream, int result) {
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
      return errorOfStatus(fluvia_stream_status(stream));
  }
}

static int errorOf(const FluviaAvio* source, int result) {
  return fluvia_avio_error(source->stream, result);
}

static int readPacket(void* opaque, uint8_t* buffer, int size) {
  FluviaAvio* source = opaque;
  unsigned int got = 0;
  const int result =
      fluvia_stream_read_some(source->stream, (char*)buffer, (unsigned int)size, &got);
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
  made->name = av_strdup(name);
  made->parts = fluvia_parts_new(name, &own);
  if (result == 0 && (made->name == NULL || made->parts == NULL)) result = AVERROR(ENOMEM);
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

/* ---- What a demuxer opens ------------------------------------------------------------------ */

/* The demuxer's outer context reads from ours. */
static FluviaAvio* sourceOf(const AVFormatContext* format) { return format->pb->opaque; }

static int openNested(AVFormatContext* format, AVIOContext** context, const char* address,
                      int flags, AVDictionary** options) {
  FluviaAvio* source = sourceOf(format);
  if (av_strstart(address, "data:", NULL)) {
    return source->openOther(format, context, address, flags, options);
  }
  if ((flags & AVIO_FLAG_WRITE) != 0) return AVERROR(EROFS);
  return fluvia_parts_open(source->parts, context, address, options == NULL ? NULL : *options);
}

static int closeNested(AVFormatContext* format, AVIOContext* context) {
  return fluvia_parts_close(context) ? 0 : sourceOf(format)->closeOther(format, context);
}

/*
 * FFmpeg calls this between its waits: otherwise the demuxer would continue with the next segment.
 */
static int isUnwanted(void* opaque) {
  FluviaAvio* source = opaque;
  if (fluvia_parts_is_aborted(source->parts)) return 1;
  const AVIOInterruptCB* other = &source->interruptOther;
  return other->callback != NULL && other->callback(other->opaque);
}

static int prepare(FluviaAvio* source, AVFormatContext* format) {
  source->openOther = format->io_open;
  source->closeOther = format->io_close2;
  source->interruptOther = format->interrupt_callback;
  format->pb = source->context;
  format->io_open = openNested;
  format->io_close2 = closeNested;
  format->interrupt_callback.callback = isUnwanted;
  format->interrupt_callback.opaque = source;
  if (format->protocol_whitelist == NULL) format->protocol_whitelist = av_strdup("data");
  return format->protocol_whitelist == NULL ? AVERROR(ENOMEM) : 0;
}

/* Selects the demuxer if the player has not. */
static int findInput(FluviaAvio* source, AVFormatContext* format) {
  int result = 0;
  if (format->iformat == NULL) {
    result = av_probe_input_buffer2(source->context, &format->iformat, source->name, format, 0,
                                    (unsigned int)format->format_probesize);
  }
  if (result < 0) return result;
  if (strcmp(format->iformat->name, "dash") != 0) return 0;
  source->problem = "FFmpeg's DASH demuxer opens the pieces without the library";
  return AVERROR_PATCHWELCOME;
}

/*
 * Makes the HLS demuxer not reuse FFmpeg's own connections, which it would take ours for, and open
 * each segment before it reads the previous one.
 */
static int setOptions(AVDictionary** options) {
  const int result = av_dict_set(options, "http_persistent", "0", 0);
  return result < 0 ? result : av_dict_set(options, "http_multiple", "1", AV_DICT_DONT_OVERWRITE);
}

int fluvia_avio_open_input(FluviaAvio* source, AVFormatContext** format, AVDictionary** options) {
  AVDictionary* own = NULL;
  if (*format == NULL) *format = avformat_alloc_context();
  if (*format == NULL) return AVERROR(ENOMEM);
  int result = fluvia_avio_connect(source);
  if (result == 0) result = prepare(source, *format);
  if (result == 0) result = findInput(source, *format);
  if (result == 0 && options != NULL) result = av_dict_copy(&own, *options, 0);
  const int isHls = result == 0 && strcmp((*format)->iformat->name, "hls") == 0;
  if (isHls) result = setOptions(&own);
  if (result < 0) {
    avformat_free_context(*format);
    *format = NULL;
  } else {
    result = avformat_open_input(format, source->name, NULL, &own);
  }
  if (options != NULL) {
    av_dict_free(options);
    *options = own;
  } else {
    av_dict_free(&own);
  }
  return result;
}

int fluvia_avio_missing(const FluviaAvio* source) { return fluvia_parts_missing(source->parts); }

const char* fluvia_avio_problem(const FluviaAvio* source) {
  if (source->problem != NULL) return source->problem;
  const char* problem = fluvia_stream_problem(source->stream);
  return problem[0] != '\0' ? problem : fluvia_parts_problem(source->parts);
}

void fluvia_avio_abort(FluviaAvio* source) {
  fluvia_stream_abort(source->stream);
  fluvia_parts_abort(source->parts);
}

void fluvia_avio_close(FluviaAvio** source) {
  FluviaAvio* closed = *source;
  if (closed == NULL) return;
  *source = NULL;
  fluvia_stream_close(&closed->stream);
  fluvia_parts_free(&closed->parts);
  av_free(closed->name);
  if (closed->context != NULL) av_freep(&closed->context->buffer);
  avio_context_free(&closed->context);
  av_free(closed);
}

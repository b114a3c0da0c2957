#include "fluvia_avio.h"

#include <errno.h>
#include <fluviafs.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
#include <pthread.h>
#include <stdio.h>
#include <time.h>

enum { kContextBuffer = 32768, kAbortRepeatNs = 5 * 1000 * 1000 };

struct FluviaAvio {
  int handle;
  AVIOContext* context;
  pthread_mutex_t lock;
  pthread_cond_t left;
  int inside;  /* a call of the library that may wait is under way */
  int aborted; /* for good */
};

static int errorOf(int result) {
  switch (result) {
    case FVFR_END_OF_FILE:
      return AVERROR_EOF;
    case FVFR_TIMEOUT:
      return AVERROR(ETIMEDOUT);
    case FVFR_NOT_AVAILABLE:
      return AVERROR(EACCES);
    case FVFR_NOT_FOUND:
      return AVERROR(ENOENT);
    case FVFR_SEEK_REFUSED:
      return AVERROR(ESPIPE);
    default:
      return AVERROR(EIO);
  }
}

/* Before and after every call that may wait. enter() fails once the source was aborted. */
static int enter(FluviaAvio* source) {
  int refused = 0;
  pthread_mutex_lock(&source->lock);
  refused = source->aborted;
  source->inside = !refused;
  pthread_mutex_unlock(&source->lock);
  return refused ? AVERROR_EXIT : 0;
}

static int leave(FluviaAvio* source) {
  int aborted = 0;
  pthread_mutex_lock(&source->lock);
  source->inside = 0;
  aborted = source->aborted;
  pthread_cond_broadcast(&source->left);
  pthread_mutex_unlock(&source->lock);
  return aborted ? AVERROR_EXIT : 0;
}

static int readBytes(FluviaAvio* source, uint8_t* buffer, int size) {
  unsigned int got = 0;
  int result = enter(source);
  if (result != 0) return result;
  result = x_fluvia_file_read(source->handle, (char*)buffer, (unsigned int)size, &got);
  const int aborted = leave(source);
  if (result == FVFR_OK && got > 0) return (int)got;
  if (aborted != 0) return aborted;
  return result == FVFR_OK ? AVERROR_EOF : errorOf(result);
}

static int readPacket(void* opaque, uint8_t* buffer, int size) {
  return readBytes(opaque, buffer, size);
}

static int64_t sizeOf(FluviaAvio* source) {
  const int refused = enter(source);
  if (refused != 0) return refused;
  const long long size = x_fluvia_file_size(source->handle);
  const int aborted = leave(source);
  if (aborted != 0) return aborted;
  return size < 0 || size == FVFR_UNKNOWN_SIZE ? AVERROR(ENOSYS) : size;
}

static int64_t moveTo(FluviaAvio* source, int64_t offset) {
  long long now = 0;
  if (offset < 0) return AVERROR(EINVAL);
  int result = enter(source);
  if (result != 0) return result;
  result = x_fluvia_file_seek(source->handle, offset, &now);
  const int aborted = leave(source);
  if (aborted != 0) return aborted;
  return result == FVFR_OK ? now : errorOf(result);
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
      base = x_fluvia_file_offset(source->handle);
      break;
    case SEEK_END:
      base = sizeOf(source);
      if (base < 0) return base;
      break;
    default:
      return AVERROR(EINVAL);
  }
  return moveTo(source, base + offset);
}

static int makeContext(FluviaAvio* source) {
  unsigned char* buffer = av_malloc(kContextBuffer);
  if (buffer == NULL) return AVERROR(ENOMEM);
  source->context = avio_alloc_context(buffer, kContextBuffer, 0, source, readPacket, NULL, seek);
  if (source->context != NULL) return 0;
  av_free(buffer);
  return AVERROR(ENOMEM);
}

int fluvia_avio_open(FluviaAvio** source, const char* name, int bufferSize) {
  *source = NULL;
  FluviaAvio* made = av_mallocz(sizeof *made);
  if (made == NULL) return AVERROR(ENOMEM);
  pthread_mutex_init(&made->lock, NULL);
  pthread_cond_init(&made->left, NULL);
  const int size = bufferSize > 0 ? bufferSize : FVFR_DEFAULT_BUFFER;
  int result = x_fluvia_file_open_x(name, &made->handle, size);
  if (result != FVFR_OK) {
    made->handle = 0;
    result = AVERROR(EINVAL);
  } else {
    result = makeContext(made);
  }
  *source = made;
  if (result != 0) fluvia_avio_close(source);
  return result;
}

int fluvia_avio_handle(const FluviaAvio* source) { return source->handle; }

/* The first byte is read because its failure has a code, which that of asking the size has not. */
int fluvia_avio_connect(FluviaAvio* source) {
  uint8_t first = 0;
  long long now = 0;
  const int got = readBytes(source, &first, 1);
  if (got == AVERROR_EOF) return 0;
  if (got < 0) return got;
  const int moved = x_fluvia_file_seek(source->handle, FVFR_SEEK_SPAN + 2, &now);
  source->context->seekable = moved == FVFR_SEEK_REFUSED ? 0 : AVIO_SEEKABLE_NORMAL;
  return moveTo(source, 0) == 0 ? 0 : AVERROR(EIO);
}

AVIOContext* fluvia_avio_context(FluviaAvio* source) { return source->context; }

/* Repeated, because the other thread may not yet have begun to wait when it is broken off. */
void fluvia_avio_abort(FluviaAvio* source) {
  pthread_mutex_lock(&source->lock);
  source->aborted = 1;
  while (source->inside) {
    pthread_mutex_unlock(&source->lock);
    x_fluvia_file_read_abort(source->handle, 0);
    pthread_mutex_lock(&source->lock);
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += kAbortRepeatNs;
    until.tv_sec += until.tv_nsec / 1000000000;
    until.tv_nsec %= 1000000000;
    if (source->inside) pthread_cond_timedwait(&source->left, &source->lock, &until);
  }
  pthread_mutex_unlock(&source->lock);
}

void fluvia_avio_close(FluviaAvio** source) {
  FluviaAvio* closed = *source;
  if (closed == NULL) return;
  *source = NULL;
  if (closed->handle > 0) x_fluvia_file_close(closed->handle);
  if (closed->context != NULL) av_freep(&closed->context->buffer);
  avio_context_free(&closed->context);
  pthread_cond_destroy(&closed->left);
  pthread_mutex_destroy(&closed->lock);
  av_free(closed);
}

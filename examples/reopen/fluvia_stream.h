/*
 * A resource of libfluviafs that survives outages of its server, and that any thread can abort. For
 * use in a player, copy this header, fluvia_stream.c and fluvia_outage.*.
 *
 *   FluviaStream* stream = NULL;
 *   FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
 *   unsigned int got = 0;
 *   if (fluvia_stream_open(&stream, "http://server/film.mp4", &settings) == FVFR_OK) {
 *     while (fluvia_stream_read(stream, buffer, sizeof buffer, &got) == FVFR_OK) {
 *       consume(buffer, got);
 *     }
 *     fluvia_stream_close(&stream);
 *   }
 *
 * Results are those of fluviafs.h and the two below. Only the reading thread may call these
 * functions, except those that say otherwise.
 */
#ifndef FLUVIA_STREAM_H_
#define FLUVIA_STREAM_H_

#include <stddef.h>

#include "fluvia_outage.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  FLUVIA_STREAM_ABORTED = -1000, /* fluvia_stream_abort() */
  FLUVIA_STREAM_CHANGED = -1001  /* after an outage the server has a different resource */
};

typedef struct FluviaStream FluviaStream;

typedef enum FluviaStreamNotice {
  FLUVIA_STREAM_WAITS,   /* for the next retry; the text says why, and how long */
  FLUVIA_STREAM_GOES_ON, /* from which byte */
  FLUVIA_STREAM_FAILS    /* permanently; the text says why */
} FluviaStreamNotice;

typedef struct FluviaStreamSettings {
  int bufferSize;   /* bytes, 0: the library's default */
  int seconds;      /* how long to retry in an outage, see fluvia_outage.h; 0: never */
  int firstSeconds; /* limit before the first byte */
  int isolated;     /* not 0: shares its download with no other handle, from the beginning */
  /* Called with every handle before its first byte is requested, to apply settings; may be null. */
  void (*apply)(int handle, void* data);
  /* Called on the thread that reads or connects; may be null. */
  void (*notice)(FluviaStreamNotice notice, const char* text, void* data);
  /*
   * Called before each retry in an outage and every 20 ms while that is waited for, and while
   * bytes before the position are read again. If it returns non-zero, the waiting call returns
   * FLUVIA_STREAM_ABORTED, and a later call continues to retry. May be null.
   */
  int (*unwanted)(void* data);
  void* data; /* passed to all of them */
} FluviaStreamSettings;

/* The defaults. */
#define FLUVIA_STREAM_SETTINGS \
  { 0, FLUVIA_OUTAGE_SECONDS, FLUVIA_OUTAGE_FIRST_SECONDS, 0, NULL, NULL, NULL, NULL }

/*
 * Opens an absolute path or a URL. Makes no connection. The caller closes *stream; it is null after
 * a failure.
 */
int fluvia_stream_open(FluviaStream** stream, const char* name,
                       const FluviaStreamSettings* settings);

/*
 * Waits for the first byte, and determines size and seekability. The functions below do so
 * themselves.
 */
int fluvia_stream_connect(FluviaStream* stream);

/*
 * Starts to connect without waiting, so that a later connect waits less. That connect reports a
 * failure.
 */
void fluvia_stream_start(FluviaStream* stream);

/*
 * Reads at most size bytes, as many as there are before the end or a failure. With FVFR_OK *got is
 * not 0. In an outage it waits and opens the resource again.
 */
int fluvia_stream_read(FluviaStream* stream, char* buffer, unsigned int size, unsigned int* got);

/*
 * Same, but waits for less than size bytes after an open or a seek: a demuxer finds its next frame
 * in the first ones. Returns what has arrived, at least 4 KiB and a sixteenth of what was read
 * since.
 */
int fluvia_stream_read_some(FluviaStream* stream, char* buffer, unsigned int size,
                            unsigned int* got);

/*
 * Moves the position; an offset past the end moves to the end. If the stream cannot seek, returns
 * FVFR_SEEK_REFUSED except for the current position and for the beginning; for the latter it opens
 * the resource again. Waits for that, and for nothing else once the stream is connected.
 */
int fluvia_stream_seek(FluviaStream* stream, long long offset);

/* Where the next read begins. */
long long fluvia_stream_position(const FluviaStream* stream);
/* Bytes, -1 if unknown. Waits as a connect does. */
long long fluvia_stream_size(FluviaStream* stream);
/* True if every offset can be reached. Waits as a connect does. */
int fluvia_stream_is_seekable(FluviaStream* stream);

/*
 * The caller has read from the handle itself, or has moved it: the stream continues at that offset.
 */
void fluvia_stream_set_position(FluviaStream* stream, long long offset);

/* From any thread: the library's current handle; a different one after an outage, 0 during one. */
int fluvia_stream_handle(FluviaStream* stream);
/* After a failure: its download status, and its reason as text. */
int fluvia_stream_status(const FluviaStream* stream);
const char* fluvia_stream_problem(const FluviaStream* stream);

/*
 * From any thread: waiting calls on the stream return FLUVIA_STREAM_ABORTED, and so do all later
 * ones. Never waits.
 */
void fluvia_stream_abort(FluviaStream* stream);

/* Closes the stream and sets *stream to null. Does nothing for null. */
void fluvia_stream_close(FluviaStream** stream);

#ifdef __cplusplus
}
#endif

#endif /* FLUVIA_STREAM_H_ */

/*
 * A resource of libfluviafs that outlives the outages of its server, and that any thread can break
 * off. To be taken over into a player: this header, fluvia_stream.c and fluvia_outage.*.
 *
 *   FluviaStream* stream = NULL;
 *   FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
 *   unsigned int got = 0;
 *   if (fluvia_stream_open(&stream, "http://server/film.mp4", &settings) == FVFR_OK) {
 *     while (fluvia_stream_read(stream, buffer, sizeof buffer, &got) == FVFR_OK) consume(buffer,
 * got); fluvia_stream_close(&stream);
 *   }
 *
 * Results are those of fluviafs.h and the two below. Every function belongs to the thread that
 * reads but those that say so.
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
  FLUVIA_STREAM_CHANGED = -1001  /* the server was away, and has another resource now */
};

typedef struct FluviaStream FluviaStream;

typedef enum FluviaStreamNotice {
  FLUVIA_STREAM_WAITS,   /* for the next try; the text says why, and how long */
  FLUVIA_STREAM_GOES_ON, /* from which byte */
  FLUVIA_STREAM_FAILS    /* for good; the text says why */
} FluviaStreamNotice;

typedef struct FluviaStreamSettings {
  int bufferSize;   /* bytes, 0: the library's default */
  int seconds;      /* how long an outage is borne, see fluvia_outage.h; 0: never */
  int firstSeconds; /* at most, before the first byte */
  int isolated;     /* not 0: shares its download with no other handle, from the beginning */
  /* Called with every handle before its first byte is asked for, to make settings; may be null. */
  void (*apply)(int handle, void* data);
  /* Called on the thread that reads or connects; may be null. */
  void (*notice)(FluviaStreamNotice notice, const char* text, void* data);
  /*
   * Asked before each try during an outage; not 0 ends the call that waits, with
   * FLUVIA_STREAM_ABORTED, and a later one goes on trying. May be null.
   */
  int (*unwanted)(void* data);
  void* data; /* for all of them */
} FluviaStreamSettings;

/* The defaults. */
#define FLUVIA_STREAM_SETTINGS \
  { 0, FLUVIA_OUTAGE_SECONDS, FLUVIA_OUTAGE_FIRST_SECONDS, 0, NULL, NULL, NULL, NULL }

/*
 * Opens an absolute path or a URL. Makes no connection. *stream is the caller's to close, and null
 * after a failure.
 */
int fluvia_stream_open(FluviaStream** stream, const char* name,
                       const FluviaStreamSettings* settings);

/*
 * Waits for the first byte, and learns size and seekability. The functions below do so themselves.
 */
int fluvia_stream_connect(FluviaStream* stream);

/*
 * Has the library connect, and waits for nothing: a later connect has less to wait for. A failure
 * shows there.
 */
void fluvia_stream_start(FluviaStream* stream);

/*
 * Reads at most size bytes, as many as there are before the end or a failure. With FVFR_OK *got is
 * not 0. During an outage it waits and opens the resource anew.
 */
int fluvia_stream_read(FluviaStream* stream, char* buffer, unsigned int size, unsigned int* got);

/*
 * Moves the position; behind the end it is the end. Where the stream cannot seek, FVFR_SEEK_REFUSED
 * but for where it is and for the beginning, to which it is opened again. Waits for that, and for
 * nothing else once the stream is connected.
 */
int fluvia_stream_seek(FluviaStream* stream, long long offset);

/* Where the next read begins. */
long long fluvia_stream_position(const FluviaStream* stream);
/* Bytes, -1 when they cannot be learnt. Waits as a connect does. */
long long fluvia_stream_size(FluviaStream* stream);
/* Whether every offset can be reached. Waits as a connect does. */
int fluvia_stream_is_seekable(FluviaStream* stream);

/*
 * The caller has read from the handle itself, or has moved it: the stream goes on at that offset.
 */
void fluvia_stream_set_position(FluviaStream* stream, long long offset);

/* From any thread: the library's handle now; another one after an outage, 0 during one. */
int fluvia_stream_handle(FluviaStream* stream);
/* After a failure: the download status that goes with it, and what is wrong, in words. */
int fluvia_stream_status(const FluviaStream* stream);
const char* fluvia_stream_problem(const FluviaStream* stream);

/*
 * From any thread: what waits in the stream returns FLUVIA_STREAM_ABORTED, and so does everything
 * later. Waits for nothing.
 */
void fluvia_stream_abort(FluviaStream* stream);

/* Closes the stream and makes *stream null. Null is no stream. */
void fluvia_stream_close(FluviaStream** stream);

#ifdef __cplusplus
}
#endif

#endif /* FLUVIA_STREAM_H_ */

/*
 * What to do when a handle of libfluviafs has failed: whether to open its name again, when, and
 * whether the resource is still the same. For use in a player, copy this header and
 * fluvia_outage.c. It starts no thread and never waits; fluvia_stream.h is built on it.
 *
 * A stream fails permanently after two failures in a row, and a failed handle stays failed. The
 * reader then asks for a pause, closes the handle, waits, opens the name again, reads its first
 * byte, and continues at the old position if the resource is the same:
 *
 *   fluvia_outage_init(&outage, name, FLUVIA_OUTAGE_SECONDS);
 *   ... a read has returned bytes:  fluvia_outage_end(&outage, handle);
 *   ... a read has failed:          pause = fluvia_outage_pause(&outage, handle, now);
 *                                   if (pause < 0) the failure is final;
 *                                   close the handle, wait pause milliseconds,
 *                                   fluvia_outage_open(&outage, bufferSize, &handle),
 *                                   apply the settings, read one byte (a failure: ask again),
 *                                   if (!fluvia_outage_is_same(&outage, handle)) it has changed;
 *                                   seek to the old position.
 *
 * Threads: one at a time.
 */
#ifndef FLUVIA_OUTAGE_H_
#define FLUVIA_OUTAGE_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  FLUVIA_OUTAGE_SECONDS = 60,      /* default time of retries in an outage */
  FLUVIA_OUTAGE_FIRST_SECONDS = 10 /* before any byte has come: the name may be wrong */
};

typedef struct FluviaOutage {
  const char* name;
  int seconds;      /* how long to retry in an outage; 0: never */
  int firstSeconds; /* limit before any byte has come: FLUVIA_OUTAGE_FIRST_SECONDS */
  long long since;  /* when the outage began, in the caller's milliseconds; -1: no outage */
  int tries;        /* retries requested since then */
  int known;        /* bytes have come: size and type are those of the resource */
  long long size;   /* bytes, -1 if it was unknown at the first byte */
  int seekable;     /* any offset can be reached */
  char type[128];   /* the beginning of the Content-Type, "" without one */
} FluviaOutage;

/* Initialises without an outage. The caller owns name, which must live as long as the outage. */
void fluvia_outage_init(FluviaOutage* outage, const char* name, int seconds);

/*
 * A read of the handle has returned bytes or the end: the outage is over. The first call stores
 * size, type and seekability of the resource.
 */
void fluvia_outage_end(FluviaOutage* outage, int handle);

/*
 * A read or a seek of the handle, which is still open, has failed at the time now (milliseconds of
 * any clock that is never set). Returns the milliseconds to wait before the name is opened again:
 * 0, then 500, 1000, 2000, 4000, then always 5000. Returns -1 if the failure is final: a local
 * file; a name that the library refuses; a status of 400 to 499 except 408 and 429, or of 600 and
 * above; or the outage has lasted for its seconds. The last retry begins when they have passed.
 */
long fluvia_outage_pause(FluviaOutage* outage, int handle, long long now);

/*
 * Opens the name again, with a buffer of bufferSize bytes. Never waits: each call appends a
 * different fragment ("#...") to the name, which no server sees, so the new handle shares its
 * stream with no other one. The stream of the name itself may have failed while another handle
 * keeps it open. Returns FVFR_OK or FVFR_FAILED.
 */
int fluvia_outage_open(const FluviaOutage* outage, int bufferSize, int* handle);

/* True if any offset can be reached through a handle that has delivered its first byte. */
int fluvia_outage_can_seek(int handle);

/*
 * True if the resource of a handle that has delivered its first byte has the same size as before
 * and, if there was one, the same type. True if nothing is known yet.
 */
int fluvia_outage_is_same(const FluviaOutage* outage, int handle);

/*
 * True if a handle has failed because the server now refuses the offset (416) of a resource whose
 * size is known: another one is there, and ends before it. A retry does not help.
 */
int fluvia_outage_has_changed(const FluviaOutage* outage, int handle);

/* Explains why a handle has failed, in at most room bytes with the terminator. Returns text. */
const char* fluvia_outage_explain(int handle, char* text, size_t room);

#ifdef __cplusplus
}
#endif

#endif /* FLUVIA_OUTAGE_H_ */

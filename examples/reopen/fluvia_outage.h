/*
 * What to do when a handle of libfluviafs has failed: whether its name is opened again, when, and
 * whether what is there then is still the same. To be taken over into a player: this header and
 * fluvia_outage.c. It starts no thread and never waits; fluvia_stream.h is built on it.
 *
 * The library gives a stream up after two failures in a row, and a failed handle stays failed.
 * Whoever reads then asks for a pause, closes the handle, waits, opens the name again, reads its
 * first byte, and goes on at the old position if the resource is the same:
 *
 *   fluvia_outage_init(&outage, name, FLUVIA_OUTAGE_SECONDS);
 *   ... a read has given bytes:  fluvia_outage_end(&outage, handle);
 *   ... a read has failed:       pause = fluvia_outage_pause(&outage, handle, now);
 *                                if (pause < 0) the failure is final;
 *                                close the handle, wait pause milliseconds,
 *                                fluvia_outage_open(&outage, bufferSize, &handle),
 *                                apply the settings, read one byte (a failure: ask again),
 *                                if (!fluvia_outage_is_same(&outage, handle)) it has changed;
 *                                seek to the old position.
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
  FLUVIA_OUTAGE_SECONDS = 60,      /* how long an outage is borne, by default */
  FLUVIA_OUTAGE_FIRST_SECONDS = 10 /* while no byte has ever come: the name may be wrong */
};

typedef struct FluviaOutage {
  const char* name;
  int seconds;      /* how long an outage is borne; 0: never */
  int firstSeconds; /* at most, while no byte has ever come: FLUVIA_OUTAGE_FIRST_SECONDS */
  long long since;  /* when the outage began, in the caller's milliseconds; -1: there is none */
  int tries;        /* times that the name was to be opened again since then */
  int known;        /* bytes have come: size and type are those of the resource */
  long long size;   /* bytes, -1 when it was not known at the first byte */
  int seekable;     /* any offset can be reached */
  char type[128];   /* the beginning of the Content-Type, "" without one */
} FluviaOutage;

/* Begins without an outage. The name is the caller's and has to live as long as the outage. */
void fluvia_outage_init(FluviaOutage* outage, const char* name, int seconds);

/*
 * A read of the handle has given bytes, or has met the end: the outage is over. The first call
 * notes what the resource is.
 */
void fluvia_outage_end(FluviaOutage* outage, int handle);

/*
 * A read or a seek of the handle has failed, which is still open, at the time now (milliseconds of
 * any clock that is never set). Returns the milliseconds to wait before the name is opened again:
 * 0, then 500, 1000, 2000, 4000, then always 5000. Returns -1 when the failure is final: a local
 * file; a name that the library refuses; a status of 400 to 499 but 408 and 429, or of 600 and
 * more; or the outage has lasted for its seconds. The last try begins when they are over.
 */
long fluvia_outage_pause(FluviaOutage* outage, int handle, long long now);

/*
 * Opens the name again, with a buffer of bufferSize bytes. Never waits: each time the name gets a
 * fragment ("#...") of its own, which no server sees, so that the new handle shares its stream with
 * no other one. The stream of the name itself may have failed and be kept open by somebody else.
 * Returns FVFR_OK or FVFR_FAILED.
 */
int fluvia_outage_open(const FluviaOutage* outage, int bufferSize, int* handle);

/* Whether any offset can be reached through a handle that has given its first byte. */
int fluvia_outage_can_seek(int handle);

/*
 * Whether the resource of a handle that has given its first byte has the size and, if there was
 * one, the type of before. True when nothing is known yet.
 */
int fluvia_outage_is_same(const FluviaOutage* outage, int handle);

/* Why a handle has failed, in words, at most room bytes with the terminator. Returns text. */
const char* fluvia_outage_explain(int handle, char* text, size_t room);

#ifdef __cplusplus
}
#endif

#endif /* FLUVIA_OUTAGE_H_ */

/*
 * Streams of libfluviafs for libmpv, to be taken over into a player: this header, fluvia_mpv.c and
 * ../reopen.
 *
 * After fluvia_mpv_add() the player opens fluvia+file:///path, fluvia+http://... and
 * fluvia+https://... through the library. Stopping breaks off what waits there, at once (within a
 * second while it is being opened). The player is told of a stream that cannot seek if its first
 * byte comes within that second; later, its seeks fail.
 */
#ifndef FLUVIA_MPV_H_
#define FLUVIA_MPV_H_

#include <mpv/client.h>

#include "../reopen/fluvia_stream.h"

/*
 * Adds the three schemes to a player, before or after mpv_initialize(). settings say what streams
 * are opened with and how long they bear an outage; begin with FLUVIA_STREAM_SETTINGS. They are the
 * caller's and have to live as long as the player; their functions are called on its threads.
 * Returns 0 or an error of mpv.
 */
int fluvia_mpv_add(mpv_handle* player, FluviaStreamSettings* settings);

#endif /* FLUVIA_MPV_H_ */

/*
 * Streams of libfluviafs for libmpv. For use in a player, copy this header, fluvia_mpv.c and
 * ../reopen.
 *
 * After fluvia_mpv_add() the player opens fluvia+file:///path, fluvia+http://... and
 * fluvia+https://... through the library. Stopping aborts waiting calls at once (within a second
 * while the stream is being opened). The player knows that a stream cannot seek if its first byte
 * comes within that second; if it comes later, seeks fail.
 */
#ifndef FLUVIA_MPV_H_
#define FLUVIA_MPV_H_

#include <mpv/client.h>

#include "../reopen/fluvia_stream.h"

/*
 * Adds the three schemes to a player, before or after mpv_initialize(). settings determine how
 * streams are opened and how long they retry in an outage; begin with FLUVIA_STREAM_SETTINGS. The
 * caller owns them, and they must live as long as the player; their functions are called on its
 * threads. Returns 0 or an error of mpv.
 */
int fluvia_mpv_add(mpv_handle* player, FluviaStreamSettings* settings);

#endif /* FLUVIA_MPV_H_ */

/*
 * Streams of libfluviafs for libmpv, to be taken over into a player: this header and fluvia_mpv.c.
 *
 * After fluvia_mpv_add() the player opens fluvia+file:///path, fluvia+http://... and
 * fluvia+https://... through the library. Stopping breaks off what waits there.
 */
#ifndef FLUVIA_MPV_H_
#define FLUVIA_MPV_H_

#include <mpv/client.h>

/* What streams are opened with. */
typedef struct FluviaMpvStreams {
  /*
   * Called for every stream with the library's handle, before its first byte is asked for, to make
   * settings of the requests; may be null.
   */
  void (*settings)(int handle, void* data);
  void* data;
} FluviaMpvStreams;

/*
 * Adds the three schemes to a player, before or after mpv_initialize(). streams is the caller's and
 * has to live as long as the player. Returns 0 or an error of mpv.
 */
int fluvia_mpv_add(mpv_handle* player, FluviaMpvStreams* streams);

#endif /* FLUVIA_MPV_H_ */

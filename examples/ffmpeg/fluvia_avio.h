/*
 * An AVIOContext over libfluviafs. For use in a player, copy this header with the files fluvia_*
 * beside it, and ../reopen.
 *
 *   FluviaAvio* source = NULL;
 *   AVFormatContext* format = NULL;
 *   if (fluvia_avio_open(&source, "http://server/film.m3u8", NULL) == 0 &&
 *       fluvia_avio_open_input(source, &format, NULL) == 0) {
 *     ...
 *     avformat_close_input(&format);
 *   }
 *   fluvia_avio_close(&source);
 *
 * Results are 0 or an AVERROR code. Call every function but fluvia_avio_abort() only on the thread
 * that uses the AVIOContext.
 */
#ifndef FLUVIA_AVIO_H_
#define FLUVIA_AVIO_H_

#include <libavformat/avformat.h>

#include "../reopen/fluvia_stream.h"

typedef struct FluviaAvio FluviaAvio;

/*
 * Opens an absolute path or an http:// or https:// URL. Makes no connection. settings say how long
 * to retry in an outage and apply the settings of the requests; null for the defaults. Without a
 * notice function in them outages are logged by FFmpeg. The caller closes *source; it is null after
 * a failure.
 */
int fluvia_avio_open(FluviaAvio** source, const char* name, const FluviaStreamSettings* settings);

/* The library's handle, for its other functions; a different one after an outage. */
int fluvia_avio_handle(const FluviaAvio* source);

/*
 * Waits for the first byte, and determines size and seekability. Call it before using the context.
 */
int fluvia_avio_connect(FluviaAvio* source);

/* The context, for AVFormatContext.pb. The source owns it. */
AVIOContext* fluvia_avio_context(FluviaAvio* source);

/*
 * Opens a demuxer on the source, as avformat_open_input() does with its name. Connects, sets the
 * fields below in *format (allocated if null; freed and set to null after a failure) and passes
 * options on. Close it with avformat_close_input() before the source.
 *
 * From then on everything that the demuxer opens comes through the library, with the source's
 * settings: the playlists of HLS, keys, initialisation pieces, segments and ranges of them. A local
 * source may refer to local and remote names, a remote source only to remote ones. FFmpeg's own
 * access to anything else is disabled (protocol_whitelist, unless it is set). DASH is refused with
 * AVERROR_PATCHWELCOME: FFmpeg's DASH demuxer opens its pieces without calling io_open.
 *
 * Relative names in a redirected playlist are resolved from the address that was asked for: the
 * library does not report where a redirect led.
 *
 * Sets io_open, io_close2, pb and interrupt_callback; calls the one that was set before as well.
 * fluvia_avio_abort() ends all of it.
 */
int fluvia_avio_open_input(FluviaAvio* source, AVFormatContext** format, AVDictionary** options);

/*
 * Number of resources besides the first one that the demuxer opened and that could not be opened or
 * read to their end. The demuxer skips them silently; fluvia_avio_problem() explains the last one.
 */
int fluvia_avio_missing(const FluviaAvio* source);

/*
 * Explains a failure: AVERROR(ESTALE) is "the resource has changed". Some demuxers take a failed
 * read for the end; check the context's error.
 */
const char* fluvia_avio_problem(const FluviaAvio* source);

/*
 * From any thread: waiting calls on this source return AVERROR_EXIT at once, and so does every
 * later read. Never waits.
 */
void fluvia_avio_abort(FluviaAvio* source);

/*
 * Closes the source, its context and its handle, and sets *source to null. Does nothing for null.
 */
void fluvia_avio_close(FluviaAvio** source);

#endif /* FLUVIA_AVIO_H_ */

/*
 * An AVIOContext over libfluviafs, to be taken over into a player: this header with the files
 * fluvia_* beside it, and ../reopen.
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
 * Results are 0 or an AVERROR code. Every function but fluvia_avio_abort() belongs to the thread
 * that uses the AVIOContext.
 */
#ifndef FLUVIA_AVIO_H_
#define FLUVIA_AVIO_H_

#include <libavformat/avformat.h>

#include "../reopen/fluvia_stream.h"

typedef struct FluviaAvio FluviaAvio;

/*
 * Opens an absolute path or an http:// or https:// URL. Makes no connection. settings say how long
 * an outage is borne and apply settings of the requests; null for the defaults. Without a notice of
 * theirs outages go to FFmpeg's log. *source is the caller's to close, and null after a failure.
 */
int fluvia_avio_open(FluviaAvio** source, const char* name, const FluviaStreamSettings* settings);

/* The library's handle, for its other functions; another one after an outage. */
int fluvia_avio_handle(const FluviaAvio* source);

/* Waits for the first byte and learns size and seekability. Call it before the context is used. */
int fluvia_avio_connect(FluviaAvio* source);

/* The context, for AVFormatContext.pb. It belongs to the source. */
AVIOContext* fluvia_avio_context(FluviaAvio* source);

/*
 * Opens a demuxer on the source, as avformat_open_input() does with its name: connects, sets what
 * follows in *format (made when it is null, and freed and null after a failure) and passes options
 * on. Close it by avformat_close_input() before the source.
 *
 * From then on all that the demuxer opens comes through the library, with the source's settings:
 * the playlists of HLS, keys, initialisation pieces, segments and ranges of them. A local source
 * may name what is local and what is not, another one only the latter. FFmpeg's own access to
 * anything else is shut off (protocol_whitelist, unless it is set). DASH is refused with
 * AVERROR_PATCHWELCOME: FFmpeg's demuxer for it opens its pieces without asking anybody.
 *
 * Sets io_open, io_close2, pb and interrupt_callback; one that is set already is asked as well.
 * fluvia_avio_abort() ends it all.
 */
int fluvia_avio_open_input(FluviaAvio* source, AVFormatContext** format, AVDictionary** options);

/*
 * How many resources that the demuxer opened beside the first one could not be had or read to their
 * end. The demuxer leaves them out and says nothing; fluvia_avio_problem() tells of the last one.
 */
int fluvia_avio_missing(const FluviaAvio* source);

/*
 * What is wrong, in words, after a failure: AVERROR(ESTALE) is "the resource has changed". Some
 * demuxers take a failed read for the end; the context's error tells.
 */
const char* fluvia_avio_problem(const FluviaAvio* source);

/*
 * From any thread: what waits in this source returns AVERROR_EXIT at once, and so does every later
 * read. Waits for nothing.
 */
void fluvia_avio_abort(FluviaAvio* source);

/* Closes the source, its context and its handle, and makes *source null. Null is no source. */
void fluvia_avio_close(FluviaAvio** source);

#endif /* FLUVIA_AVIO_H_ */

/*
 * An AVIOContext over libfluviafs, to be taken over into a player: this header, fluvia_avio.c and
 * ../reopen.
 *
 *   FluviaAvio* source = NULL;
 *   AVFormatContext* format = avformat_alloc_context();
 *   if (fluvia_avio_open(&source, "http://server/film.mp4", NULL) == 0 &&
 *       fluvia_avio_connect(source) == 0) {
 *     format->pb = fluvia_avio_context(source);
 *     avformat_open_input(&format, NULL, NULL, NULL);
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

#include <libavformat/avio.h>

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

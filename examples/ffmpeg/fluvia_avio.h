/*
 * An AVIOContext over libfluviafs, to be taken over into a player: this header and fluvia_avio.c.
 *
 *   FluviaAvio* source = NULL;
 *   AVFormatContext* format = avformat_alloc_context();
 *   if (fluvia_avio_open(&source, "http://server/film.mp4", 0) == 0 &&
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

typedef struct FluviaAvio FluviaAvio;

/*
 * Opens an absolute path or an http:// or https:// URL with a buffer of bufferSize bytes (0: the
 * library's default). Makes no connection; settings of the requests can be made on the handle next.
 * *source is the caller's to close, and null after a failure.
 */
int fluvia_avio_open(FluviaAvio** source, const char* name, int bufferSize);

/* The library's handle, for its other functions; closed with the source. */
int fluvia_avio_handle(const FluviaAvio* source);

/* Waits for the first byte and learns size and seekability. Call it before the context is used. */
int fluvia_avio_connect(FluviaAvio* source);

/* The context, for AVFormatContext.pb. It belongs to the source. */
AVIOContext* fluvia_avio_context(FluviaAvio* source);

/*
 * From any thread: what waits in this source returns AVERROR_EXIT at once, and so does every later
 * read. A read that waits for its turn, because another handle of the same resource reads, ends
 * with that read.
 */
void fluvia_avio_abort(FluviaAvio* source);

/* Closes the source, its context and its handle, and makes *source null. Null is no source. */
void fluvia_avio_close(FluviaAvio** source);

#endif /* FLUVIA_AVIO_H_ */

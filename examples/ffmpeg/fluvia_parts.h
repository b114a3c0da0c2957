/*
 * What a demuxer opens beside the first resource: playlists, keys, initialisation pieces, segments.
 * Part of fluvia_avio.h.
 *
 * Threads: fluvia_parts_abort() and _is_aborted() from any thread, the rest on the one that
 * demuxes.
 */
#ifndef FLUVIA_PARTS_H_
#define FLUVIA_PARTS_H_

#include <libavformat/avio.h>
#include <libavutil/dict.h>

#include "../reopen/fluvia_stream.h"

typedef struct FluviaParts FluviaParts;

/*
 * Of the resource of that name, with the settings that it was opened with. Null when memory runs
 * out.
 */
FluviaParts* fluvia_parts_new(const char* first, const FluviaStreamSettings* settings);

/*
 * Opens an address as FFmpeg's io_open asks for it: http, https, and for a local first resource a
 * local path; with "crypto:" or "crypto+" before it and the options "key" and "iv" what is there is
 * decrypted. Of http the options "offset" and "end_offset" take a range, whose first byte is
 * position 0. Returns 0 or an AVERROR code: AVERROR(EPERM) for an address that is none of these.
 */
int fluvia_parts_open(FluviaParts* parts, AVIOContext** context, const char* address,
                      const AVDictionary* options);

/* Closes a context that fluvia_parts_open() made; returns 0, and does nothing, for another one. */
int fluvia_parts_close(AVIOContext* context);

/* How many could not be opened or read to their end, and why the last one of them. */
int fluvia_parts_missing(const FluviaParts* parts);
const char* fluvia_parts_problem(const FluviaParts* parts);

/* What waits returns AVERROR_EXIT, and so does everything later. Waits for nothing. */
void fluvia_parts_abort(FluviaParts* parts);
int fluvia_parts_is_aborted(FluviaParts* parts);

/* Makes *parts null, once the demuxer has closed all it had open. Null is none. */
void fluvia_parts_free(FluviaParts** parts);

/* The AVERROR code for a result of a stream. */
int fluvia_avio_error(const FluviaStream* stream, int result);

#endif /* FLUVIA_PARTS_H_ */

/*
 * What a demuxer opens besides the first resource: playlists, keys, initialisation pieces,
 * segments. Part of fluvia_avio.h.
 *
 * Threads: fluvia_parts_abort() and _is_aborted() from any thread, the rest on the demuxing thread.
 */
#ifndef FLUVIA_PARTS_H_
#define FLUVIA_PARTS_H_

#include <libavformat/avio.h>
#include <libavutil/dict.h>

#include "../reopen/fluvia_stream.h"

typedef struct FluviaParts FluviaParts;

/*
 * The parts of the resource of that name, with the settings that it was opened with. Null if memory
 * runs out.
 */
FluviaParts* fluvia_parts_new(const char* first, const FluviaStreamSettings* settings);

/*
 * Opens an address as FFmpeg's io_open requests it: http, https, and a local path if the first
 * resource is local. With "crypto:" or "crypto+" before it and the options "key" and "iv" the
 * content is decrypted. For http the options "offset" and "end_offset" select a range, whose first
 * byte is position 0. Returns 0 or an AVERROR code: AVERROR(EPERM) for any other address.
 */
int fluvia_parts_open(FluviaParts* parts, AVIOContext** context, const char* address,
                      const AVDictionary* options);

/* Closes a context of fluvia_parts_open() and returns 1; does nothing and returns 0 for others. */
int fluvia_parts_close(AVIOContext* context);

/*
 * The number of parts that could not be opened or read to their end, and why the last one could
 * not.
 */
int fluvia_parts_missing(const FluviaParts* parts);
const char* fluvia_parts_problem(const FluviaParts* parts);

/* Waiting calls return AVERROR_EXIT, and so do all later ones. Never waits. */
void fluvia_parts_abort(FluviaParts* parts);
int fluvia_parts_is_aborted(FluviaParts* parts);

/* Call it after the demuxer has closed everything. Sets *parts to null. Does nothing for null. */
void fluvia_parts_free(FluviaParts** parts);

/* The AVERROR code for a result of a stream. */
int fluvia_avio_error(const FluviaStream* stream, int result);

#endif /* FLUVIA_PARTS_H_ */

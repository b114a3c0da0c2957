#ifndef FLUVIAFS_TESTS_SUPPORT_BEHAVIOURS_H_
#define FLUVIAFS_TESTS_SUPPORT_BEHAVIOURS_H_

#include <atomic>
#include <string>
#include <vector>

#include "tests/support/FaultServer.h"

// Ready-made behaviours of a FaultServer. Sizes and offsets are bytes of the test resource; extra
// holds complete header lines, each with its "\r\n".
namespace support {

// A well-behaved server: 206 for a range, 416 past the end, 200 otherwise.
Behaviour serveRanges(long long size, const std::string& extra = "");
// 200 with a length and the whole resource, for any requested range.
Behaviour ignoreRanges(long long size);
// 200 in chunks; 200 without a length, ended by the close; the same in the words of a Shoutcast
// server.
Behaviour serveChunked(long long size, const std::string& extra = "");
Behaviour serveUntilClose(long long size);
Behaviour serveIcy(long long size);
// 200 without a length that falls silent for ever after count bytes, as a live stream may.
Behaviour serveLive(long long count);
// 206 with a Content-Range line of that spelling, and no length.
Behaviour serveContentRangeOnly(long long size, const std::string& name = "Content-Range");
// 200 with the length line of that spelling.
Behaviour serveLengthSpelt(long long size, const std::string& name);
// A status with a small body; 204 and 304 have none.
Behaviour answerStatus(int status, const std::string& body = "sorry\n",
                       const std::string& extra = "");
Behaviour redirect(int status, const std::string& location);
// These bytes and the end of the connection.
Behaviour answerRaw(const std::string& bytes);
// As serveRanges, but the connection ends, is reset, or falls silent for ever after count bytes of
// the body. Silent with count -1: before the first byte of the response.
Behaviour dropAfter(long long size, long long count);
Behaviour resetAfter(long long size, long long count);
Behaviour stallAfter(long long size, long long count);
// The whole response, piece bytes every interval milliseconds.
Behaviour drip(long long size, long long piece, int interval);
// Ignores the end of a range: sends the body up to the end of the resource.
Behaviour overDeliver(long long size);
// States one length and sends another; a chunked body cut inside a chunk.
Behaviour lieAboutLength(long long stated, long long sent);
Behaviour cutChunk(long long size, long long count);
// The requested rest with status 200; with a Content-Range line or only the length.
Behaviour serveRestAs200(long long size, bool withContentRange);
// A response that starts delta bytes away from the requested offset and says so: 206, or another
// status.
Behaviour startBeside(long long size, long long delta, int status = 206);
// About that many bytes of headers before the relevant ones.
Behaviour serveLongHeaders(long long size, size_t headerBytes);
// One behaviour a request, in order; the last one for all later requests.
Behaviour inTurn(std::vector<Behaviour> behaviours);
// As stallAfter. Sets settled once the connection has been silent for longer than the client's own
// short timers: from then on the client checks only once a second.
Behaviour stallAndTell(long long size, long long count, std::atomic<bool>* settled);
// Serves a file's bytes instead of the pattern's, well-behaved. Unless count is -1, the connection
// ends after count bytes of the body.
Behaviour serveFile(const std::string& path, long long count = -1);
// Draws each response from seed and number. Of eight responses, sound are as serveRanges, one as
// overDeliver, one as ignoreRanges, with resets one as resetAfter, and the rest as dropAfter; the
// last two end within 150,000 bytes. cut, if not null, counts the responses that end too early.
Behaviour breakOften(long long size, unsigned int seed, unsigned int sound, bool resets,
                     std::atomic<int>* cut = nullptr);
// Accepts, reads the request and sends nothing.
Behaviour staySilent();

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_BEHAVIOURS_H_

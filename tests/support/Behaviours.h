#ifndef FLUVIAFS_TESTS_SUPPORT_BEHAVIOURS_H_
#define FLUVIAFS_TESTS_SUPPORT_BEHAVIOURS_H_

#include <atomic>
#include <string>
#include <vector>

#include "tests/support/FaultServer.h"

// Ready-made behaviours of a FaultServer. Sizes and offsets are bytes of the test resource; extra
// holds whole header lines, each with its "\r\n".
namespace support {

// A well-behaved server: 206 for a range, 416 past the end, 200 otherwise.
Behaviour serveRanges(long long size, const std::string& extra = "");
// 200 with a length and the whole resource, whatever range was asked.
Behaviour ignoreRanges(long long size);
// 200 in chunks; 200 without a length, ended by the close; the same as a Shoutcast server says it.
Behaviour serveChunked(long long size, const std::string& extra = "");
Behaviour serveUntilClose(long long size);
Behaviour serveIcy(long long size);
// 200 without a length that falls silent for ever after count bytes, as a live stream may.
Behaviour serveLive(long long count);
// 206 with a Content-Range line, spelt as given, and no length.
Behaviour serveContentRangeOnly(long long size, const std::string& name = "Content-Range");
// 200 with the length line spelt as given.
Behaviour serveLengthSpelt(long long size, const std::string& name);
// A status with a small body; 204 and 304 have none.
Behaviour answerStatus(int status, const std::string& body = "sorry\n",
                       const std::string& extra = "");
Behaviour redirect(int status, const std::string& location);
// These bytes and the end of the connection.
Behaviour answerRaw(const std::string& bytes);
// As serveRanges, but the connection ends, is reset, or falls silent for ever after count bytes of
// the body. Silent with count -1: before the first byte of the answer.
Behaviour dropAfter(long long size, long long count);
Behaviour resetAfter(long long size, long long count);
Behaviour stallAfter(long long size, long long count);
// The whole answer, piece bytes every interval milliseconds.
Behaviour drip(long long size, long long piece, int interval);
// A range's end is not kept: the body goes on to the end of the resource.
Behaviour overDeliver(long long size);
// Says one length and sends another; a chunked body cut inside a chunk.
Behaviour lieAboutLength(long long stated, long long sent);
Behaviour cutChunk(long long size, long long count);
// The rest that was asked, called 200; with a Content-Range line or only the length.
Behaviour serveRestAs200(long long size, bool withContentRange);
// An answer that starts delta bytes beside the asked offset and says so: 206, or another status.
Behaviour startBeside(long long size, long long delta, int status = 206);
// Headers of about that many bytes before those that count.
Behaviour serveLongHeaders(long long size, size_t headerBytes);
// One behaviour a request, in order; the last one for all that follow.
Behaviour inTurn(std::vector<Behaviour> behaviours);
// As stallAfter; settled becomes true when the connection has been silent for long enough that the
// client's own short timers have passed and it looks around once a second only.
Behaviour stallAndTell(long long size, long long count, std::atomic<bool>* settled);
// A file's bytes instead of the pattern's, well-behaved; the connection ends after count bytes of
// the body when count is not -1.
Behaviour serveFile(const std::string& path, long long count = -1);
// Each answer drawn anew from seed and number: of eight, so many as sound are as serveRanges, one
// as overDeliver, one as ignoreRanges, with resets one as resetAfter, and the rest as dropAfter,
// both of these within 150,000 bytes. cut, if it is not null, counts the answers that end too early
// so.
Behaviour breakOften(long long size, unsigned int seed, unsigned int sound, bool resets,
                     std::atomic<int>* cut = nullptr);
// Accepts, reads the request and says nothing.
Behaviour staySilent();

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_BEHAVIOURS_H_

#include "tests/ordeal/matrix/Faults.h"

#include "tests/support/Behaviours.h"

namespace matrix {

using namespace support;

namespace {

constexpr long long kSize = 3000000;

Fault row(const std::string& words, Behaviour behaviour) {
  Fault fault;
  fault.words = words;
  fault.size = kSize;
  fault.behaviour = [behaviour] { return behaviour; };
  return fault;
}

// Fails in this way in every trace; a seek that comes first meets the failure before the read does.
Fault gives(Fault fault, const std::string& how, const std::string& reason) {
  fault.expected[kSequential] = fault.expected[kPlayer] = how;
  fault.expected[kMiddle] = "seek -4";
  fault.reason = reason;
  return fault;
}

// Fails in this way where the trace reads to the end.
Fault atEndGives(Fault fault, const std::string& how, const std::string& reason) {
  fault.expected[kSequential] = how;
  // The transfer runs ahead of the reader and may reach the end first.
  fault.expected[kMiddle] = fault.expected[kPlayer] = "~" + how;
  fault.reason = reason;
  return fault;
}

// Fails in this way in every trace, after some bytes.
Fault laterGives(Fault fault, const std::string& how, const std::string& reason) {
  for (std::string& expected : fault.expected) expected = how;
  fault.reason = reason;
  return fault;
}

// Fails in this way where the trace seeks.
Fault seekGives(Fault fault, const std::string& how, const std::string& reason) {
  fault.expected[kMiddle] = fault.expected[kPlayer] = how;
  fault.reason = reason;
  return fault;
}

const char* const kStatusIsFinal = "an error status is final, a single one too";
const char* const kCannotSeek = "a stream without a length is moved by 1 MiB at most";
const char* const kStall = "without the feature flag a stall is final";
const char* const kTwice = "the second failure in a row is final";

void addConnections(std::vector<Fault>* all) {
  all->push_back(row("none", serveRanges(kSize)));
  all->push_back(row("ends after 20,000 bytes, every time", dropAfter(kSize, 20000)));
  all->push_back(row("ends after 50,000 bytes, every time", dropAfter(kSize, 50000)));
  all->push_back(row("is reset after 500,000 bytes, every time", resetAfter(kSize, 500000)));
  all->push_back(row("the first ends without a byte", inTurn({answerRaw(""), serveRanges(kSize)})));
  all->push_back(gives(row("the first ends inside its headers",
                           inTurn({answerRaw("HTTP/1.1 200 OK\r\nCont"), serveRanges(kSize)})),
                       "read -21", "a 200 without a body is taken for a missing resource"));
  all->push_back(gives(row("every one ends without a byte", answerRaw("")), "read -4", kTwice));
  all->push_back(gives(row("two end without a byte, then all is well",
                           inTurn({answerRaw(""), answerRaw(""), serveRanges(kSize)})),
                       "read -4", kTwice));
  Fault refused = gives(row("connection refused", answerRaw("")), "read -4", kTwice);
  refused.kind = Fault::kRefused;
  all->push_back(refused);
  Fault full = gives(row("connection never accepted", answerRaw("")), "read -6", kTwice);
  full.kind = Fault::kFull;
  all->push_back(full);
  // Fits into the socket's buffer, so that the server does not keep a connection after its reader
  // has left.
  Fault one = row("one connection at a time", serveRanges(kSize / 2));
  one.size = kSize / 2;
  one.kind = Fault::kOneAtATime;
  all->push_back(one);
  Fault tls = row("none, over TLS, certificate of nobody", serveRanges(kSize));
  tls.kind = Fault::kTls;
  all->push_back(tls);
  Fault broken = row("ends after 200,000 bytes, over TLS", dropAfter(kSize, 200000));
  broken.kind = Fault::kTls;
  all->push_back(broken);
}

void addStalls(std::vector<Fault>* all) {
  all->push_back(row("65,536 bytes every 30 ms", drip(kSize, 65536, 30)));
  const Behaviour once = inTurn({stallAfter(kSize, 200000), serveRanges(kSize)});
  Fault silent200 =
      laterGives(row("the first falls silent after 200,000 bytes", once), "read -21", kStall);
  // The seek may come before the silence.
  silent200.expected[kMiddle] = silent200.expected[kPlayer] = "~read -21";
  all->push_back(silent200);
  Fault flagged = row("the first falls silent after 200,000 bytes, feature flag 1", once);
  flagged.flagged = true;
  all->push_back(flagged);
  const Behaviour silent = inTurn({staySilent(), serveRanges(kSize)});
  all->push_back(gives(row("the first says nothing", silent), "read -21", kStall));
  Fault patient = row("the first says nothing, feature flag 1", silent);
  patient.flagged = true;
  all->push_back(patient);
  all->push_back(gives(row("all say nothing", staySilent()), "read -21", kStall));
}

void addRanges(std::vector<Fault>* all) {
  all->push_back(row("ranges ignored", ignoreRanges(kSize)));
  all->push_back(row("a range's end not kept", overDeliver(kSize)));
  all->push_back(row("the rest, called 200, with its range", serveRestAs200(kSize, true)));
  all->push_back(row("the rest, called 200, without a word", serveRestAs200(kSize, false)));
  all->push_back(row("begins 1,000 bytes early and says so", startBeside(kSize, -1000)));
  // The first transfer may reach the target of the seek before it is stopped.
  all->push_back(seekGives(row("begins 1,000 bytes late and says so", startBeside(kSize, 1000)),
                           "~read -4", "the bytes before are nowhere; " + std::string(kTwice)));
  all->push_back(row("206 with a range line only", serveContentRangeOnly(kSize)));
  all->push_back(row("headers of 10,000 bytes", serveLongHeaders(kSize, 10000)));
  for (const int status : {301, 302, 303, 307, 308}) {
    all->push_back(row("redirected with " + std::to_string(status), redirect(status, "/behind")));
  }
  all->push_back(gives(row("redirected to itself", redirect(302, "/fault")), "read -4", kTwice));
}

void addLengths(std::vector<Fault>* all) {
  all->push_back(seekGives(row("chunked", serveChunked(kSize)), "seek -12", kCannotSeek));
  all->push_back(seekGives(row("no length, ended by the close", serveUntilClose(kSize)), "seek -12",
                           kCannotSeek));
  all->push_back(seekGives(row("Shoutcast answer", serveIcy(kSize)), "seek -12", kCannotSeek));
  all->push_back(seekGives(row("the first is cut inside a chunk",
                               inTurn({cutChunk(kSize, 1000000), serveChunked(kSize)})),
                           "seek -12", kCannotSeek));
  all->push_back(atEndGives(
      row("states 100,000 bytes more than it has", lieAboutLength(kSize + 100000, kSize)),
      "read -4", "the missing bytes never come; " + std::string(kTwice)));
  Fault fewer = row("states 2,000,000 bytes and sends more", lieAboutLength(2000000, kSize));
  fewer.size = 2000000;
  all->push_back(fewer);
}

void addStatuses(std::vector<Fault>* all) {
  for (const int status : {403, 404, 500, 503}) {
    all->push_back(gives(row("status " + std::to_string(status), answerStatus(status)),
                         status < 500 ? "read -21" : "read -17", kStatusIsFinal));
  }
  for (const int status : {408, 429, 503}) {
    all->push_back(gives(row("one " + std::to_string(status) + ", then all is well",
                             inTurn({answerStatus(status), serveRanges(kSize)})),
                         status < 500 ? "read -21" : "read -17", kStatusIsFinal));
  }
  // A waiting reader learns the cause; a later one learns that the stream has failed.
  all->push_back(
      laterGives(row("ends after 500,000 bytes, then one 503, then all is well",
                     inTurn({dropAfter(kSize, 500000), answerStatus(503), serveRanges(kSize)})),
                 "read -17|read -4, status 503", kStatusIsFinal));
  all->push_back(laterGives(row("ends after 500,000 bytes, then 404",
                                inTurn({dropAfter(kSize, 500000), answerStatus(404)})),
                            "read -21|read -4, status 404", kStatusIsFinal));
  all->push_back(gives(row("status 204", answerStatus(204)), "read -4", kTwice));
  all->push_back(
      gives(row("an answer that is not HTTP", answerRaw("SSH-2.0-no\r\n\r\n")), "read -4", kTwice));
}

}  // namespace

const char* nameOf(Trace trace) {
  static const char* const names[] = {"sequential", "middle", "player"};
  return names[trace];
}

std::vector<Fault> allFaults() {
  std::vector<Fault> all;
  addConnections(&all);
  addStalls(&all);
  addRanges(&all);
  addLengths(&all);
  addStatuses(&all);
  return all;
}

}  // namespace matrix

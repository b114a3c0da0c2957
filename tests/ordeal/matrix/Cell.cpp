#include "tests/ordeal/matrix/Cell.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/CommandLine.h"
#include "tests/support/Pattern.h"

namespace matrix {

namespace {

constexpr long long kPiece = 32768;

class Run {
 public:
  Run(Client* column, long long bytes) : client(column), size(bytes) {}

  // Reads [from, to). Returns false if the trace is over.
  bool read(long long from, long long to) {
    to = std::min(to, size);
    std::vector<char> bytes(kPiece);
    while (from < to) {
      const size_t count = static_cast<size_t>(std::min(kPiece, to - from));
      const long got = client->readAt(from, bytes.data(), count, &why);
      if (got <= 0) {
        if (got == 0) why = "ended";
        why += " at " + std::to_string(from);
        return false;
      }
      const long long wrong = support::firstDifference(static_cast<unsigned long long>(from),
                                                       bytes.data(), static_cast<size_t>(got));
      if (wrong >= 0) {
        wrongByte = true;
        why = "byte " + std::to_string(from + wrong);
        return false;
      }
      from += got;
    }
    return true;
  }

  bool end() {
    char byte = 0;
    const long got = client->readAt(size, &byte, 1, &why);
    if (got > 0) {
      wrongByte = true;
      why = "more than " + std::to_string(size) + " bytes";
    }
    if (got < 0) why += " at the end";
    return got == 0;
  }

  bool sequential() { return read(0, size) && end(); }
  bool middle() { return read(size / 2, size) && read(0, 100000); }

  // As a player with a film whose index is at its end: head, tail, then two streams in turns.
  bool player() {
    if (!read(0, 65536) || !read(size - 65536, size)) return false;
    for (int i = 0; i < 12; ++i) {
      if (!read(size / 8 + i * 60000, size / 8 + i * 60000 + 50000)) return false;
      if (!read(size / 2 + i * 90000, size / 2 + i * 90000 + 20000)) return false;
    }
    return true;
  }

  Client* const client;
  const long long size;
  std::string why;
  bool wrongByte = false;
};

}  // namespace

int runCell(Client* client, int count, char** words) {
  std::string url;
  std::string trace;
  long long size = 0;
  support::CommandLine line("Reads a resource as one cell of the matrix and compares every byte.");
  line.option("URL", &url, "Of the resource").required();
  line.option("SIZE", &size, "Its bytes").required();
  line.option("TRACE", &trace, "How to read it")
      .required()
      .oneOf({"sequential", "middle", "player"});
  line.parseOrExit(count, words, 3);
  const auto begin = std::chrono::steady_clock::now();
  Run run(client, size);
  bool right = client->open(url, &run.why);
  if (right && trace == "sequential") {
    right = run.sequential();
  } else if (right && trace == "middle") {
    right = run.middle();
  } else if (right) {
    right = run.player();
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const char* result = right ? "right" : run.wrongByte ? "wrong" : "failed";
  printf("%s %.1f %s\n", result, seconds, right ? "" : run.why.c_str());
  fflush(stdout);
  return right ? 0 : run.wrongByte ? 2 : 1;
}

}  // namespace matrix

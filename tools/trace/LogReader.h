#ifndef FLUVIAFS_TOOLS_TRACE_LOGREADER_H_
#define FLUVIAFS_TOOLS_TRACE_LOGREADER_H_

#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "LogWords.h"

namespace tools {

// A fact of the log, with its time and thread.
struct LogEntry {
  double seconds = 0;  // of the monotonic clock, whole milliseconds
  double origin = 0;   // same for the log's first line
  long thread = 0;
  LogFact fact;
};

// Finds the library's lines among other output: libcurl's lines, those of other programs, partial
// lines. The library writes a line in pieces, so lines of two threads may be interleaved; they are
// reassembled by the functions' names.
//
// Threads: one at a time. Memory: for one line, at most 64 KiB, and a few more of the same kind.
class LogReader {
 public:
  using Sink = std::function<void(const LogEntry&)>;

  // Statistics of the input, for the reader of the page.
  struct Counts {
    long long bytes = 0;
    long long lines = 0;    // of the library
    long long foreign = 0;  // of other programs, or truncated
    long long mixed = 0;    // interleaved with another line
    long long tries = 0;    // comparisons of a text with what a head may log
  };

  // sink is called with every recognised entry, in the order of the log.
  explicit LogReader(Sink sink) : sink_(std::move(sink)) {}

  void feed(const char* data, size_t size);
  // The log has ended; the last line may lack its line end.
  void finish();
  const Counts& counts() const { return counts_; }

 private:
  // The head of a line of the library.
  struct Head {
    double seconds = 0;
    long thread = 0;
    std::string function;
    long long line = 0;  // number of the log's line that it came with
    // Rules of its function, set once the head is kept.
    Rules rules;
    Beginnings beginnings;
  };

  static bool parseHead(std::string_view text, Head* head, size_t* length);
  void takeLine(std::string_view line);
  void takeText(const Head& own, std::string_view text);
  bool tell(const Head& head, const Rules& rules, std::string_view text);
  bool tellOpenHead(std::string_view text);
  bool tellJoined(std::string_view text);
  void closeHeads(long thread);
  void keepOpen(const Head& head);

  Sink sink_;
  Counts counts_;
  std::string partial_;    // a line whose end has not arrived
  bool overlong_ = false;  // the line is longer than the limit: the rest is skipped
  std::deque<Head> open_;  // heads whose text has not arrived
  long long lineNumber_ = 0;
  long long torn_ = -1;  // the last line with a head that its text did not follow
  double origin_ = -1;   // seconds of the first line
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_LOGREADER_H_

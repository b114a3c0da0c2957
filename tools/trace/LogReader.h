#ifndef FLUVIAFS_TOOLS_TRACE_LOGREADER_H_
#define FLUVIAFS_TOOLS_TRACE_LOGREADER_H_

#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "LogWords.h"

namespace tools {

// A fact of the log with when and where it was written.
struct LogEntry {
  double seconds = 0;  // of the monotonic clock, whole milliseconds
  double origin = 0;   // the same of the log's first line
  long thread = 0;
  LogFact fact;
};

// Finds the library's lines in whatever else there is: libcurl's lines, those of other programs,
// halves of lines. A line of the library is written in pieces, so that those of two threads may
// stand in each other; they are put together again by the functions' names.
//
// Threads: one at a time. Memory: what one line takes, at most 64 KiB, and a few of its like.
class LogReader {
 public:
  using Sink = std::function<void(const LogEntry&)>;

  // What was met, for the reader of the page.
  struct Counts {
    long long bytes = 0;
    long long lines = 0;    // of the library
    long long foreign = 0;  // of anybody else, or cut
    long long mixed = 0;    // that stood in each other
    long long tries = 0;    // texts that were compared with what a head without its own may say
  };

  // sink is called with every recognised entry, in the order of the log.
  explicit LogReader(Sink sink) : sink_(std::move(sink)) {}

  void feed(const char* data, size_t size);
  // The log is over; a last line need not have an end.
  void finish();
  const Counts& counts() const { return counts_; }

 private:
  // The head of a line of the library.
  struct Head {
    double seconds = 0;
    long thread = 0;
    std::string function;
    long long line = 0;  // of the log, counted, when it came
    // Of its function, once it is kept.
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
  std::string partial_;    // a line whose end has not come
  bool overlong_ = false;  // the line is longer than that: its rest is skipped
  std::deque<Head> open_;  // heads whose text has not come
  long long lineNumber_ = 0;
  long long torn_ = -1;  // the last line with a head whose text did not follow
  double origin_ = -1;   // seconds of the first line
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_LOGREADER_H_

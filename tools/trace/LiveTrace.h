#ifndef FLUVIAFS_TOOLS_TRACE_LIVETRACE_H_
#define FLUVIAFS_TOOLS_TRACE_LIVETRACE_H_

#include <string>
#include <thread>

#include "../Output.h"
#include "LogReader.h"
#include "TraceStory.h"

namespace tools {

// The trace of this process: reads what the library writes to descriptor 2 while it runs, and
// forwards it to the descriptor's old target.
//
// Threads: begin() and finish() on one thread; a thread of its own reads in between.
class LiveTrace {
 public:
  LiveTrace();
  ~LiveTrace();
  LiveTrace(const LiveTrace&) = delete;
  LiveTrace& operator=(const LiveTrace&) = delete;

  // Opens the page's file and redirects descriptor 2. Returns false with *error set on failure.
  bool begin(const std::string& output, std::string* error);
  // Restores descriptor 2 and writes the page. Call it once, after all streams are closed. Returns
  // false with *error set on failure.
  bool finish(const std::string& title, std::string* error);

 private:
  void readAll();
  void take(const char* data, size_t size);
  void giveBack();

  Output page_;
  TraceStory story_;
  LogReader reader_;
  int before_ = -1;       // the old target of descriptor 2
  int pipe_ = -1;         // the read end
  bool starved_ = false;  // the log found no memory; valid when the thread has ended
  std::thread thread_;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_LIVETRACE_H_

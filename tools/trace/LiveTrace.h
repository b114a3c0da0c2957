#ifndef FLUVIAFS_TOOLS_TRACE_LIVETRACE_H_
#define FLUVIAFS_TOOLS_TRACE_LIVETRACE_H_

#include <string>
#include <thread>

#include "../Output.h"
#include "LogReader.h"
#include "TraceStory.h"

namespace tools {

// The trace of this very process: reads what the library writes to descriptor 2 while it runs, and
// passes it on to where that descriptor led before.
//
// Threads: begin() and finish() by one; a thread of its own reads in between.
class LiveTrace {
 public:
  LiveTrace();
  ~LiveTrace();
  LiveTrace(const LiveTrace&) = delete;
  LiveTrace& operator=(const LiveTrace&) = delete;

  // Opens the page's file and takes descriptor 2 over. False with *error set on failure.
  bool begin(const std::string& output, std::string* error);
  // Gives descriptor 2 back and writes the page. Call when nothing is streamed any more, once.
  // False with *error set on failure.
  bool finish(const std::string& title, std::string* error);

 private:
  void readAll();
  void giveBack();

  Output page_;
  TraceStory story_;
  LogReader reader_;
  int before_ = -1;  // where descriptor 2 led
  int pipe_ = -1;    // the end that is read
  std::thread thread_;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_LIVETRACE_H_

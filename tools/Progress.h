#ifndef FLUVIAFS_TOOLS_PROGRESS_H_
#define FLUVIAFS_TOOLS_PROGRESS_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "Screen.h"
#include "Source.h"

namespace tools {

// A progress bar on the user's terminal: bytes, percent, rate, buffered bytes, time left, or that
// the source waits. A thread of its own redraws it five times a second, so that a stall is visible.
// Without a terminal there is no bar.
//
// Threads: add() and tell() from any thread. The source and the screen must outlive the object.
class Progress {
 public:
  // total: bytes expected, or -1 if unknown.
  Progress(const Screen& screen, const Source& source, long long total);
  // Draws the last state and ends the line.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Counts bytes that were written to the output.
  void add(unsigned int bytes) { done_.fetch_add(bytes, std::memory_order_relaxed); }
  // Prints text in a line above the bar; from now on the bar shows whether the source waits.
  void tell(const std::string& text, bool waits);

 private:
  void run();
  void draw() const;
  std::string line(double seconds) const;

  const Screen& screen_;
  const Source& source_;
  const long long total_;
  const std::chrono::steady_clock::time_point begin_;
  std::atomic<long long> done_{0};
  std::mutex lock_;
  std::condition_variable wake_;
  bool ended_ = false;  // guarded by lock_
  std::atomic<bool> waits_{false};
  std::thread drawer_;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_PROGRESS_H_

#ifndef FLUVIAFS_PLUGINS_GSTREAMER_SOURCETHREADS_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_SOURCETHREADS_H_

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

// The threads of the readers of the process. A thread that has finished its work waits a while for
// the next reader's: an adaptive stream opens hundreds of short sources in sequence.
//
// Threads:   any.
// Invariant: accepted work begins at once: no work waits for the end of other work.
class SourceThreads {
 public:
  // The most threads that wait: the pictures, the sound and the playlist of one stream.
  static constexpr unsigned int kKept = 3;

  // The instance of the process. Never destroyed: work may outlive main().
  static SourceThreads& instance();

  // Runs the work on a thread of its own. Never waits. Returns false if no thread is available; the
  // work is then not run.
  bool run(std::function<void()> work);

 private:
  void serve();

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> given_;
  unsigned int idle_ = 0;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_SOURCETHREADS_H_

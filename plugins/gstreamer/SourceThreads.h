#ifndef FLUVIAFS_PLUGINS_GSTREAMER_SOURCETHREADS_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_SOURCETHREADS_H_

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

// The threads behind the readers of the process. One that has done its work waits a while for the
// next reader's: an adaptive stream opens hundreds of short sources, one after the other.
//
// Threads:   any.
// Invariant: work that was taken is begun at once: no work waits for another's end.
class SourceThreads {
 public:
  // How many wait at most: the pictures, the sound and the playlist of one stream.
  static constexpr unsigned int kKept = 3;

  // The ones of the process. Never destroyed: work may outlive main().
  static SourceThreads& instance();

  // Does the work on a thread of its own, soon. Never waits. False when there is no thread to be
  // had; the work is not done then.
  bool run(std::function<void()> work);

 private:
  void serve();

  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> given_;
  unsigned int idle_ = 0;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_SOURCETHREADS_H_

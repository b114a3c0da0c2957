#ifndef FLUVIAFS_PLUGINS_GSTREAMER_LEAVING_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_LEAVING_H_

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>

// The names of the process whose handles are being closed. Opening such a name waits inside the
// library and holds up all its other calls, so a worker waits here first.
//
// Threads:   any.
// Invariant: a name stands here once for each worker that has entered it and was told to quit,
// until
//            that worker has closed its handle. A worker that never entered is never waited for.
class Leaving {
 public:
  // What a worker is to the name it reads.
  struct Stay {
    bool entered = false;  // it may have a handle
    bool over = false;     // it was told to quit
  };

  // The one of the process. Never destroyed: workers may outlive main().
  static Leaving& instance();

  // Waits until no other worker is closing a handle of that name. Ended by quit() of the same stay;
  // returns false then, and the name must not be opened.
  bool enter(const std::string& name, Stay* stay);
  // Tells that the worker of this stay was told to quit. Never waits.
  void quit(const std::string& name, Stay* stay);
  // Tells that the worker has no handle any more, and will open none. After quit().
  void leave(const std::string& name, Stay* stay);

 private:
  std::mutex lock_;  // guards the names and every stay
  std::condition_variable changed_;
  std::multiset<std::string> names_;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_LEAVING_H_

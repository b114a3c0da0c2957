#ifndef FLUVIAFS_PLUGINS_GSTREAMER_LEAVING_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_LEAVING_H_

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>

// The names of the process whose handles are being closed. Opening such a name waits inside the
// library and blocks all other calls, so a worker waits here first.
//
// Threads:   any.
// Invariant: a name is listed once for each worker that has entered it and was asked to quit, or
//            has begun to close its handle, until that handle is closed. No worker waits for one
//            that never entered.
class Leaving {
 public:
  // State of a worker for the name that it reads.
  struct Stay {
    bool entered = false;  // it may have a handle
    bool over = false;     // it was asked to quit
    bool counted = false;  // the name is listed for it
  };

  // The instance of the process. Never destroyed: workers may outlive main().
  static Leaving& instance();

  // Waits until no other worker is closing a handle of that name. quit() of the same stay ends the
  // wait: it then returns false, and the name must not be opened.
  bool enter(const std::string& name, Stay* stay);
  // Reports that the worker of this stay was asked to quit. Never waits.
  void quit(const std::string& name, Stay* stay);
  // Reports that the worker is about to close its handle without being asked to quit. Never waits.
  void close(const std::string& name, Stay* stay);
  // Reports that the worker has no handle on that name any more, and opens none. Never waits.
  void leave(const std::string& name, Stay* stay);

 private:
  void count(const std::string& name, Stay* stay);

  std::mutex lock_;  // guards the names and every stay
  std::condition_variable changed_;
  std::multiset<std::string> names_;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_LEAVING_H_

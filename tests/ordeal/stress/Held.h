#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_HELD_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_HELD_H_

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

#include "tests/ordeal/stress/World.h"

namespace stress {

class Request;

// An open handle. Its owner reads and seeks; others break, ask, set, and close it.
//
// Threads: any; every call on the number is made inside a Use, so that none meets a number that has
//          passed to another file.
class Held {
 public:
  // Null when the interface refused, or the target may not be opened now.
  static std::shared_ptr<Held> open(World* world, Target* target);

  const int handle;
  Target* const target;
  Disturbances disturbances;
  // This handle has had a byte or the size: until then a break of any handle of the resource may
  // meet its reads.
  std::atomic<bool> learnt{false};

  // Closes the handle; when somebody has begun to, waits until that close has returned. inCallback:
  // inside a callback, where nothing is waited for.
  void close(World* world, Tally* tally, bool inCallback);
  // As x_fluvia_file_read_abort(handle, 0); nothing when the handle is being closed.
  void breakRead(World* world, Tally* tally);
  bool isClosing() const;
  // Close has returned, on a thread of the caller's: no callback may come any more.
  bool isClosed() const { return closed; }

  // A call on the handle's number. False when the handle is being closed.
  class Use {
   public:
    explicit Use(Held* held);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    explicit operator bool() const { return held_ != nullptr; }

   private:
    Held* held_;
  };

  // Requests of this handle, to be aborted by anybody.
  void post(const std::shared_ptr<Request>& request);
  std::shared_ptr<Request> someRequest(std::mt19937* random);

 private:
  Held(int number, Target* resource) : handle(number), target(resource) {}

  mutable std::mutex lock;
  std::condition_variable left;
  bool closing = false;
  bool returned = false;  // from the close
  int users = 0;
  std::atomic<bool> closed{false};
  std::vector<std::weak_ptr<Request>> posted;
};

// The handles of a round that others may touch. Any thread.
class Roster {
 public:
  void add(const std::shared_ptr<Held>& held);
  // Null when there is none.
  std::shared_ptr<Held> some(std::mt19937* random);
  void forget(const std::shared_ptr<Held>& held);
  size_t size() const;

 private:
  mutable std::mutex lock;
  std::vector<std::shared_ptr<Held>> all;
};

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_HELD_H_

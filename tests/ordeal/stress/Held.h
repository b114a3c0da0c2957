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

// An open handle. Its owner reads and seeks; others break, query, set, and close it.
//
// Threads: any. Every call on the number is made inside a Use, so that no call uses a number that
//          has passed to another file.
class Held {
 public:
  // Returns null if the interface refused, or if the target may not be opened now.
  static std::shared_ptr<Held> open(World* world, Target* target);

  const int handle;
  Target* const target;
  Disturbances disturbances;
  // This handle has had a byte or the size. Until then a break of any handle of the resource may
  // hit its reads.
  std::atomic<bool> learnt{false};

  // Closes the handle. If another thread has begun to, waits until that close has returned.
  // inCallback: inside a callback, where it does not wait.
  void close(World* world, Tally* tally, bool inCallback);
  // As x_fluvia_file_read_abort(handle, 0); does nothing if the handle is being closed.
  void breakRead(World* world, Tally* tally);
  bool isClosing() const;
  // Close has returned, on a thread of the caller: no more callbacks may come.
  bool isClosed() const { return closed; }

  // A call on the handle's number. False if the handle is being closed.
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

  // Requests of this handle, which any thread may abort.
  void post(const std::shared_ptr<Request>& request);
  std::shared_ptr<Request> someRequest(std::mt19937* random);

 private:
  Held(int number, Target* resource) : handle(number), target(resource) {}

  mutable std::mutex lock;
  std::condition_variable left;
  bool closing = false;
  bool returned = false;  // by the close
  int users = 0;
  std::atomic<bool> closed{false};
  std::vector<std::weak_ptr<Request>> posted;
};

// The handles of a round that others may touch. Any thread.
class Roster {
 public:
  void add(const std::shared_ptr<Held>& held);
  // Returns null if there is none.
  std::shared_ptr<Held> some(std::mt19937* random);
  void forget(const std::shared_ptr<Held>& held);
  size_t size() const;

 private:
  mutable std::mutex lock;
  std::vector<std::shared_ptr<Held>> all;
};

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_HELD_H_

#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_ACTOR_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_ACTOR_H_

#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "tests/ordeal/stress/Held.h"
#include "tests/ordeal/stress/Request.h"
#include "tests/ordeal/stress/World.h"

namespace stress {

// One thread of a round: makes random calls on handles of its own, checks each, and acts on the
// handles of others.
//
// Threads: run() on one; doing(), since() and unblock() from any.
class Actor {
 public:
  // patient: waits for the transfer's own limits instead of aborting stalled calls.
  Actor(World* world, Roster* roster, Tally* tally, unsigned int seed, bool patient);
  ~Actor();

  // Makes that many steps, or fewer after an error, and closes the handles it has opened.
  void run(int steps);

  // The current step, and how long it has run.
  std::string doing() const;
  double seconds() const;
  // Aborts a step that waits too long for a stalled resource.
  void unblock();

 private:
  struct Mine {
    std::shared_ptr<Held> held;
    long long position = 0;
  };
  // Names the current step during its life, and the handle it may wait for (null: none).
  class Step {
   public:
    Step(Actor* actor, const std::string& what, const std::shared_ptr<Held>& held);
    ~Step();
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;

   private:
    Actor* actor_;
  };
  // A break that hit a read, or may have.
  struct Mark {
    explicit Mark(const Held& file);
    bool disturbed() const;
    const Held& held;
    int own;
    int target;
    bool learnt;
  };

  void step();
  void open();
  void stepOn(size_t which);
  void close(size_t which);
  void read(Mine* mine, unsigned int size);
  void checkRead(Mine* mine, unsigned int asked, int result, unsigned int got, long long at,
                 bool disturbed);
  void seek(Mine* mine);
  void checkRefusal(const Mine& mine, long long to, int result);
  void ask(Mine* mine);
  void set(const std::shared_ptr<Held>& held);
  int setOne(const Held& held, int* wanted);
  void readText(Mine* mine);
  void batch(size_t which);
  void settle(size_t which, const std::vector<std::shared_ptr<Request>>& asked);
  void await(const std::shared_ptr<Request>& request);
  void chain(Mine* mine);
  void crew();
  void checkCrew(const Held& held, unsigned int piece, const std::vector<std::string>& pieces);
  void meddle();
  unsigned int someSize();
  void fail(const Mine& mine, const std::string& what);

  World* const world;
  Roster* const roster;
  Tally* const tally;
  std::mt19937 random;
  const bool patient;
  std::vector<char> bytes;
  std::vector<Mine> mine;
  std::vector<std::shared_ptr<Request>> kept;

  mutable std::mutex lock;
  std::string now;
  std::shared_ptr<Held> stalled;  // a handle that the step may wait for without end
  std::chrono::steady_clock::time_point begun;
  std::chrono::milliseconds patience{0};
  bool closeInstead = false;
};

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_ACTOR_H_

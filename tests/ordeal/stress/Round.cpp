#include "tests/ordeal/stress/Round.h"

#include <unistd.h>

#include <cstdio>
#include <optional>
#include <thread>

#include "api/fluviafs.h"
#include "tests/ordeal/stress/Actor.h"
#include "tests/support/Delays.h"
#include "tests/support/Stacks.h"
#include "tests/support/Watchdog.h"

namespace stress {

namespace {

// A step waits at most for a transfer's own limits: two of ten seconds, for itself and for the
// handles before it. Far more is a hang.
constexpr double kHangSeconds = 150;

// Aborts stalled calls and watches for hangs; on a thread each, as an abort may hang too.
class Guard {
 public:
  explicit Guard(std::vector<std::unique_ptr<Actor>>* watched)
      : actors(watched), breaker([this] { unblock(); }), watcher([this] { watch(); }) {}
  ~Guard() {
    {
      std::lock_guard<std::mutex> guard(lock);
      ended = true;
      changed.notify_all();
    }
    breaker.join();
    watcher.join();
  }

 private:
  bool endedWithin(int milliseconds) {
    std::unique_lock<std::mutex> guard(lock);
    return changed.wait_for(guard, std::chrono::milliseconds(milliseconds), [&] { return ended; });
  }

  void unblock() {
    while (!endedWithin(10)) {
      for (const auto& actor : *actors) actor->unblock();
    }
  }

  void watch() {
    while (!endedWithin(500)) {
      for (const auto& actor : *actors) {
        if (actor->seconds() > kHangSeconds) tellAndEnd();
      }
    }
  }

  [[noreturn]] void tellAndEnd() {
    printf("hang:\n");
    for (const auto& actor : *actors) {
      printf("  %.0f s at: %s\n", actor->seconds(), actor->doing().c_str());
    }
    fflush(stdout);
    support::printAllStacks(STDOUT_FILENO);
    _exit(3);
  }

  std::vector<std::unique_ptr<Actor>>* const actors;
  std::mutex lock;
  std::condition_variable changed;
  bool ended = false;
  std::thread breaker;
  std::thread watcher;
};

void runActors(World* world, std::mt19937* random, Tally* tally) {
  Roster roster;
  const bool patient = (*random)() % 25 == 0;
  const int threads = 1 + static_cast<int>((*random)() % 8);
  const int steps = 30 + static_cast<int>((*random)() % 120);
  std::vector<std::unique_ptr<Actor>> actors;
  for (int i = 0; i < threads; ++i) {
    actors.push_back(std::make_unique<Actor>(world, &roster, tally,
                                             static_cast<unsigned int>((*random)()), patient));
  }
  const Guard guard(&actors);
  std::vector<std::thread> running;
  for (const auto& actor : actors) {
    running.emplace_back([&actor, steps] { actor->run(steps); });
  }
  for (std::thread& each : running) each.join();
  if (roster.size() != 0) world->fail("handles are left");
}

// Every handle was closed: the next number is the first one.
void checkNumbers(World* world) {
  int handle = 0;
  const int result = x_fluvia_file_open("/nowhere", &handle);
  if (result != FVFR_OK || handle != 1) {
    world->fail("after all was closed an open gave handle " + std::to_string(handle));
  }
  x_fluvia_file_close(handle);
}

}  // namespace

std::string runRound(unsigned int seed, Tally* tally) {
  const int descriptors = support::descriptorCount();
  std::string failure;
  {
    std::mt19937 random(seed);
    static const int levels[] = {-4, -4, -4, -4, -4, -4, 0, 1, 3, -1};
    x_fluvia_file_set_log_level(levels[random() % 10]);
    std::optional<support::Delays> delays;
    if (random() % 2 == 0) delays.emplace();
    World world(static_cast<unsigned int>(random()), tally);
    runActors(&world, &random, tally);
    if (!world.failed()) {
      checkNumbers(&world);
      if (!world.waitUntilIdle(40)) world.fail("connections are left at the server");
    }
    failure = world.failure();
  }
  ++tally->rounds;
  const auto same = [&] { return support::descriptorCount() == descriptors; };
  if (failure.empty() && !support::eventually(same, 30)) {
    failure = std::to_string(support::descriptorCount()) + " descriptors, before it were " +
              std::to_string(descriptors);
  }
  return failure;
}

}  // namespace stress

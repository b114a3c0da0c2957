#ifndef FLUVIAFS_TESTS_ORDEAL_SOAK_PLAYER_H_
#define FLUVIAFS_TESTS_ORDEAL_SOAK_PLAYER_H_

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace soak {

struct Film {
  std::string url;
  long long size;
  bool mayFail;  // its server sometimes fails
  bool seekable;
};

struct Counts {
  std::atomic<long long> bytes{0};
  std::atomic<long long> seeks{0};
  std::atomic<long long> opens{0};
  std::atomic<long long> failures{0};  // of films that may fail
};

// Makes players wait with everything closed.
class Interval {
 public:
  explicit Interval(int count) : players(count) {}
  // Makes all players close, and waits until they have.
  void begin();
  void end();
  bool asked() const { return wanted; }
  // Called by a player that has closed; returns when the interval is over.
  void wait();
  // Called by a player that ends.
  void leave();

 private:
  std::mutex lock;
  std::condition_variable changed;
  std::atomic<bool> wanted{false};
  int waiting = 0;
  int players;
};

// Imitates a viewer: watches, skips, scrubs, pauses, switches, until stop is set. Returns an empty
// string, or the error. Runs on a thread of its own.
class Player {
 public:
  // rate: the bits a second at which films are watched; 0: almost at full speed.
  Player(const std::vector<Film>* films, Interval* interval, Counts* counts, unsigned int seed,
         long long rate);
  std::string play(const std::atomic<bool>* stop);

 private:
  void open();
  void close();
  void act();
  bool read(unsigned int size);
  void seek(long long offset);
  void pause(int milliseconds);

  const std::vector<Film>* const films;
  Interval* const interval;
  Counts* const counts;
  const long long bitsPerSecond;
  std::mt19937 random;
  std::vector<char> bytes;
  const Film* film = nullptr;
  int handle = 0;
  long long position = 0;
  std::string wrong;
};

}  // namespace soak

#endif  // FLUVIAFS_TESTS_ORDEAL_SOAK_PLAYER_H_

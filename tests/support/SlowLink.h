#ifndef FLUVIAFS_TESTS_SUPPORT_SLOWLINK_H_
#define FLUVIAFS_TESTS_SUPPORT_SLOWLINK_H_

#include <chrono>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace support {

// A TCP proxy on 127.0.0.1 that simulates a long, slow link.
//
// Bytes take half the round trip each way, a connection one round trip before its first byte, and
// all connections share one rate for the bytes to the clients. Buffers on the way are small, so
// that a sender soon notices a receiver that does not read. Losses and the slow start of TCP are
// not simulated.
//
// Threads:   one accepts, two a connection; every method from any thread.
// Ownership: the destructor ends every connection and joins every thread.
class SlowLink {
 public:
  // Connects to that port of 127.0.0.1. roundTrip in milliseconds; rate in bytes per second, 0 for
  // no limit.
  SlowLink(int targetPort, int roundTrip, long long rate);
  ~SlowLink();
  SlowLink(const SlowLink&) = delete;
  SlowLink& operator=(const SlowLink&) = delete;

  int port() const { return listeningPort; }
  // Applies from now on.
  void setRate(long long rate);
  // Bytes delivered to clients, with headers, and connections made, so far.
  long long bytesDown() const;
  int connectionCount() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Connection {
    int client = -1;
    int server = -1;
    Clock::time_point opened;
    std::thread up;
    std::thread down;
    int running = 2;
  };
  struct Parcel {
    std::string bytes;
    Clock::time_point due;
  };

  void acceptAll();
  void carry(Connection* connection, int from, int to, bool down);
  bool takeIn(Connection* connection, int from, bool down, std::deque<Parcel>* way);
  bool handOut(int to, bool down, std::deque<Parcel>* way);
  std::chrono::milliseconds timeUntilRoom() const;
  static int waitFor(const std::deque<Parcel>& way, std::chrono::milliseconds full);
  Clock::time_point dueTime(const Connection& connection, size_t bytes, bool down);
  static void closeBoth(Connection* connection);
  void joinFinished();

  const int target;
  const std::chrono::microseconds oneWay;
  int listener = -1;
  int wakePipe[2] = {-1, -1};
  int listeningPort = 0;
  mutable std::mutex lock;
  bool stopping = false;
  long long bytesPerSecond;
  Clock::time_point linkFree = Clock::now();
  long long carriedDown = 0;
  int accepted = 0;
  std::list<std::unique_ptr<Connection>> connections;
  std::thread acceptor;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_SLOWLINK_H_

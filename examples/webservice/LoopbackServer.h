#ifndef FLUVIAFS_EXAMPLES_WEBSERVICE_LOOPBACKSERVER_H_
#define FLUVIAFS_EXAMPLES_WEBSERVICE_LOOPBACKSERVER_H_

#include <string>
#include <thread>

// Stands in for the services, so that the example runs anywhere: answers GETs on 127.0.0.1.
//
//   /browse?ObjectID=64...   the catalogue, as a media server answers
//   /browse?...              a fault: 500 with the code 701
//   /playlist?name=evening   the playlist
//   /playlist?...            a refusal
//
// Threads: one thread serves until the destructor, one connection after the other.
class LoopbackServer {
 public:
  LoopbackServer();
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  // True if it listens.
  bool isUp() const { return port_ != 0; }
  // "http://127.0.0.1:port".
  std::string address() const;

 private:
  void serve();
  void answer(int connection) const;

  int listener_;
  int port_ = 0;
  std::thread thread_;
};

#endif  // FLUVIAFS_EXAMPLES_WEBSERVICE_LOOPBACKSERVER_H_

#ifndef FLUVIAFS_TESTS_SUPPORT_FAULTSERVER_H_
#define FLUVIAFS_TESTS_SUPPORT_FAULTSERVER_H_

#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct ssl_ctx_st;
struct ssl_st;

namespace support {

class FaultServer;

// One received request.
struct Request {
  std::string method;
  std::string path;
  std::string raw;
  // True if its connection resumed the TLS session of an earlier one.
  bool resumed = false;
  // Value of a header line, by its name in any spelling; empty if there is none.
  std::string header(const std::string& name) const;
  bool has(const std::string& name) const;
  // Limits of the Range header, last -1 if it is open; false without one.
  bool range(long long* first, long long* last) const;
};

// One connection with its one request, as a behaviour serves it. When the behaviour returns, the
// connection is closed. Every call ends early, with false, if the peer or the server is gone.
class Exchange {
 public:
  Exchange(FaultServer* server, int socket, ssl_st* tls, Request request, int number,
           unsigned long long patternBase = 0);

  const Request& request() const { return received; }
  // The number of earlier requests of this path.
  int number() const { return index; }

  bool send(const std::string& bytes);
  // Sends body bytes of the test resource, beginning at byte from; counts them.
  bool sendPattern(long long from, long long count);
  // Sends body bytes of an open file; counts them. Returns false also if the file ends before.
  bool sendFile(int file, long long from, long long count);
  // Waits until the peer closes or the server stops.
  void hold();
  // Waits that long, or until the server stops. This is the server's pace, not a synchronisation.
  bool pause(int milliseconds);
  // Ends the connection with a reset instead of an orderly end.
  void reset();
  // Waits until the peer ends the connection with a reset. An orderly end does not count. Returns
  // false after seconds.
  bool waitForReset(int seconds = 20);

 private:
  bool sendCounted(const char* bytes, size_t size);

  FaultServer* owner;
  int connection;
  ssl_st* session;
  Request received;
  int index;
  unsigned long long base;
};

using Behaviour = std::function<void(Exchange&)>;

// An HTTP server on 127.0.0.1 that misbehaves on request, with one behaviour for each path.
//
// Threads:   one accepts, one a connection; every method from any thread.
// Ownership: the destructor ends every connection and joins every thread.
class FaultServer {
 public:
  FaultServer();
  // Listens on a port that another server has left.
  explicit FaultServer(int port);
  // Speaks TLS with the certificate and key of these PEM files.
  FaultServer(const std::string& certificate, const std::string& key);
  ~FaultServer();
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  // Requests of path ("/name") get this behaviour from now on; a path without a behaviour gets 404.
  void on(const std::string& path, Behaviour behaviour);
  // Byte 0 of path's resource is the pattern's at base, so that resources differ.
  void setBase(const std::string& path, unsigned long long base);
  // Allows at most that many connections of path at a time. Another one gets 503 if none of them
  // ends within two seconds.
  void limitConnections(const std::string& path, int count);
  // Ends every open connection, as a restarting server does.
  void endConnections();
  std::string url(const std::string& path) const;
  int port() const { return listeningPort; }

  std::vector<Request> requests(const std::string& path) const;
  // The Range headers of path's requests, in order; "" for a request without one.
  std::vector<std::string> ranges(const std::string& path) const;
  int requestCount(const std::string& path) const;
  int connectionCount() const;
  long long bodyBytes(const std::string& path) const;
  // Waits until at least count requests of path came. Returns false after kWaitSeconds.
  bool waitForRequests(const std::string& path, int count) const;
  // Waits until no connection is open. Returns false after seconds.
  bool waitUntilIdle(int seconds = 20) const;

 private:
  friend class Exchange;
  struct Connection {
    int socket = -1;
    std::thread thread;
    bool over = false;
  };

  void open(int port = 0);
  void acceptAll();
  void serve(Connection* connection);
  void answer(int socket, ssl_st* tls);
  bool readHead(int socket, ssl_st* tls, std::string* head);
  void joinFinished();
  void countBody(const std::string& path, long long bytes);

  ssl_ctx_st* tlsContext = nullptr;
  int listener = -1;
  int wakePipe[2] = {-1, -1};
  int listeningPort = 0;
  mutable std::mutex lock;
  mutable std::condition_variable changed;
  bool stopping = false;
  int accepted = 0;
  std::map<std::string, Behaviour> behaviours;
  std::map<std::string, unsigned long long> bases;
  std::map<std::string, int> limits;
  std::map<std::string, int> current;
  std::map<std::string, std::vector<Request>> seen;
  std::map<std::string, long long> sentBytes;
  std::list<std::unique_ptr<Connection>> connections;
  std::thread acceptor;
};

// A port that accepts no more connections: its queue is full, so a connect waits.
class FullListener {
 public:
  FullListener();
  ~FullListener();
  int port() const { return listeningPort; }

 private:
  int listener;
  int listeningPort;
  std::vector<int> fillers;
};

// A port of 127.0.0.1 on which nothing listens.
int closedPort();

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_FAULTSERVER_H_

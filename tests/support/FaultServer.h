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

// One request as it came.
struct Request {
  std::string method;
  std::string path;
  std::string raw;
  // Whether its connection took up the TLS session of an earlier one.
  bool resumed = false;
  // Value of a header line, by its name in any spelling; empty without one.
  std::string header(const std::string& name) const;
  bool has(const std::string& name) const;
  // Bounds of the Range header, last -1 when it is open; false without one.
  bool range(long long* first, long long* last) const;
};

// One connection with its one request, as a behaviour answers it. A behaviour returns to have the
// connection closed; every call ends early, with false, when the peer or the server is gone.
class Exchange {
 public:
  Exchange(FaultServer* server, int socket, ssl_st* tls, Request request, int number,
           unsigned long long patternBase = 0);

  const Request& request() const { return received; }
  // How many requests of this path came before: 0 for the first.
  int number() const { return index; }

  bool send(const std::string& bytes);
  // Body bytes of the test resource, from its byte from on; counted.
  bool sendPattern(long long from, long long count);
  // Body bytes of an open file; counted. False also when the file ends before.
  bool sendFile(int file, long long from, long long count);
  // Waits until the peer closes or the server stops.
  void hold();
  // Waits that long, or until the server stops. The server's pace, not a synchronisation.
  bool pause(int milliseconds);
  // Ends the connection with a reset instead of an orderly end.
  void reset();
  // Waits until the peer ends the connection with a reset. An orderly end is not one: false after
  // seconds.
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

// An HTTP server on 127.0.0.1 that misbehaves as told, one behaviour a path.
//
// Threads:   one accepts, one a connection; every method from any thread.
// Ownership: the destructor ends every connection and joins every thread.
class FaultServer {
 public:
  FaultServer();
  // On a port that another one has left.
  explicit FaultServer(int port);
  // Speaks TLS with the certificate and key of these PEM files.
  FaultServer(const std::string& certificate, const std::string& key);
  ~FaultServer();
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  // Requests of path ("/name") are answered so from now on; 404 for paths without a behaviour.
  void on(const std::string& path, Behaviour behaviour);
  // Byte 0 of path's resource is the pattern's at base, so that resources can be told apart.
  void setBase(const std::string& path, unsigned long long base);
  // At most that many connections of path at a time; another is answered 503 when none of them ends
  // within two seconds.
  void limitConnections(const std::string& path, int count);
  // Ends every connection that is open now, as a server does that is started anew.
  void endConnections();
  std::string url(const std::string& path) const;
  int port() const { return listeningPort; }

  std::vector<Request> requests(const std::string& path) const;
  // The Range headers of path's requests, in order; "" for a request without one.
  std::vector<std::string> ranges(const std::string& path) const;
  int requestCount(const std::string& path) const;
  int connectionCount() const;
  long long bodyBytes(const std::string& path) const;
  // Waits until at least count requests of path came. False after kWaitSeconds.
  bool waitForRequests(const std::string& path, int count) const;
  // Waits until no connection is open. False after seconds.
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

// A port that accepts no connection any more: its queue is full, so a connect waits.
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

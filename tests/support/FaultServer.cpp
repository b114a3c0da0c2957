#include "tests/support/FaultServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "tests/support/Pattern.h"
#include "tests/support/Watchdog.h"

namespace support {

namespace {

constexpr size_t kPiece = 65536;

[[noreturn]] void fail(const char* what) {
  perror(what);
  abort();
}

// Listens on the given port, or on a free one for 0.
int listenOnLoopback(int backlog, int* port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) fail("socket");
  struct sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(*port));
  // Lets another server use the port while old connections of it still exist.
  const int reuse = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  if (bind(listener, reinterpret_cast<struct sockaddr*>(&address), sizeof address) != 0) {
    fail("bind");
  }
  if (listen(listener, backlog) != 0) fail("listen");
  socklen_t length = sizeof address;
  getsockname(listener, reinterpret_cast<struct sockaddr*>(&address), &length);
  *port = ntohs(address.sin_port);
  return listener;
}

bool sendAll(int socket, ssl_st* tls, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = tls != nullptr
                          ? SSL_write(tls, data, static_cast<int>(std::min(size, kPiece)))
                          : ::send(socket, data, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool Request::has(const std::string& name) const {
  std::istringstream lines(raw);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.size() > name.size() && line[name.size()] == ':' &&
        strncasecmp(line.c_str(), name.c_str(), name.size()) == 0) {
      return true;
    }
  }
  return false;
}

std::string Request::header(const std::string& name) const {
  std::istringstream lines(raw);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.size() <= name.size() || line[name.size()] != ':' ||
        strncasecmp(line.c_str(), name.c_str(), name.size()) != 0) {
      continue;
    }
    const size_t begin = line.find_first_not_of(' ', name.size() + 1);
    if (begin == std::string::npos) return "";
    const size_t end = line.find_last_not_of("\r ");
    return end == std::string::npos || end < begin ? "" : line.substr(begin, end - begin + 1);
  }
  return "";
}

bool Request::range(long long* first, long long* last) const {
  *first = 0;
  *last = -1;
  return sscanf(header("Range").c_str(), "bytes=%lld-%lld", first, last) >= 1;
}

Exchange::Exchange(FaultServer* server, int socket, ssl_st* tls, Request request, int number,
                   unsigned long long patternBase)
    : owner(server),
      connection(socket),
      session(tls),
      received(std::move(request)),
      index(number),
      base(patternBase) {}

bool Exchange::send(const std::string& bytes) {
  return sendAll(connection, session, bytes.data(), bytes.size());
}

// Counts before it sends: a peer that has received the bytes finds them counted.
bool Exchange::sendCounted(const char* bytes, size_t size) {
  const auto count = static_cast<long long>(size);
  owner->countBody(received.path, count);
  if (sendAll(connection, session, bytes, size)) return true;
  owner->countBody(received.path, -count);
  return false;
}

bool Exchange::sendPattern(long long from, long long count) {
  char piece[kPiece];
  while (count > 0) {
    const long long n = std::min<long long>(count, sizeof piece);
    fillPattern(base + static_cast<unsigned long long>(from), piece, static_cast<size_t>(n));
    if (!sendCounted(piece, static_cast<size_t>(n))) return false;
    from += n;
    count -= n;
  }
  return true;
}

bool Exchange::sendFile(int file, long long from, long long count) {
  char piece[kPiece];
  while (count > 0) {
    const size_t wanted = static_cast<size_t>(std::min<long long>(count, sizeof piece));
    const ssize_t n = pread(file, piece, wanted, from);
    if (n <= 0 || !sendCounted(piece, static_cast<size_t>(n))) return false;
    from += n;
    count -= n;
  }
  return true;
}

void Exchange::hold() {
  struct pollfd watched[2] = {{connection, POLLRDHUP, 0}, {owner->wakePipe[0], POLLIN, 0}};
  poll(watched, 2, -1);
}

bool Exchange::pause(int milliseconds) {
  struct pollfd watched[2] = {{connection, POLLRDHUP, 0}, {owner->wakePipe[0], POLLIN, 0}};
  return poll(watched, 2, milliseconds) == 0;
}

void Exchange::reset() {
  const struct linger now = {1, 0};
  setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

bool Exchange::waitForReset(int seconds) {
  // Without events poll() reports only the end of both directions.
  struct pollfd watched[2] = {{connection, 0, 0}, {owner->wakePipe[0], POLLIN, 0}};
  return poll(watched, 2, seconds * 1000) > 0 && watched[0].revents != 0;
}

FaultServer::FaultServer() { open(); }

FaultServer::FaultServer(int port) { open(port); }

// Proxy variables of the environment would redirect requests.
__attribute__((constructor)) static void forgetProxies() {
  for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                           "no_proxy", "NO_PROXY"}) {
    unsetenv(name);
  }
}

FaultServer::FaultServer(const std::string& certificate, const std::string& key) {
  tlsContext = SSL_CTX_new(TLS_server_method());
  if (tlsContext == nullptr ||
      SSL_CTX_use_certificate_chain_file(tlsContext, certificate.c_str()) != 1 ||
      SSL_CTX_use_PrivateKey_file(tlsContext, key.c_str(), SSL_FILETYPE_PEM) != 1) {
    fail("TLS context");
  }
  // TLS sessions are resumed only by servers with a name.
  constexpr unsigned char kName[] = "fault server";
  SSL_CTX_set_session_id_context(tlsContext, kName, sizeof kName - 1);
  open();
}

void FaultServer::open(int port) {
  listeningPort = port;
  listener = listenOnLoopback(256, &listeningPort);
  if (pipe2(wakePipe, O_CLOEXEC) != 0) fail("pipe2");
  acceptor = std::thread([this] { acceptAll(); });
}

FaultServer::~FaultServer() {
  {
    std::lock_guard<std::mutex> guard(lock);
    stopping = true;
  }
  endConnections();
  if (write(wakePipe[1], "x", 1) != 1) fail("write");
  acceptor.join();
  for (const auto& connection : connections) connection->thread.join();
  close(listener);
  close(wakePipe[0]);
  close(wakePipe[1]);
  SSL_CTX_free(tlsContext);
}

void FaultServer::on(const std::string& path, Behaviour behaviour) {
  std::lock_guard<std::mutex> guard(lock);
  behaviours[path] = std::move(behaviour);
}

void FaultServer::setBase(const std::string& path, unsigned long long base) {
  std::lock_guard<std::mutex> guard(lock);
  bases[path] = base;
}

void FaultServer::limitConnections(const std::string& path, int count) {
  std::lock_guard<std::mutex> guard(lock);
  limits[path] = count;
}

void FaultServer::endConnections() {
  std::lock_guard<std::mutex> guard(lock);
  for (const auto& connection : connections) {
    if (connection->socket >= 0) shutdown(connection->socket, SHUT_RDWR);
  }
}

std::string FaultServer::url(const std::string& path) const {
  return std::string(tlsContext != nullptr ? "https" : "http") +
         "://127.0.0.1:" + std::to_string(listeningPort) + path;
}

void FaultServer::acceptAll() {
  for (;;) {
    struct pollfd watched[2] = {{listener, POLLIN, 0}, {wakePipe[0], POLLIN, 0}};
    poll(watched, 2, -1);
    std::lock_guard<std::mutex> guard(lock);
    if (stopping) return;
    const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    joinFinished();
    ++accepted;
    connections.push_back(std::make_unique<Connection>());
    Connection* connection = connections.back().get();
    connection->socket = socket;
    connection->thread = std::thread([this, connection] { serve(connection); });
  }
}

void FaultServer::joinFinished() {
  for (auto it = connections.begin(); it != connections.end();) {
    if ((*it)->over) {
      (*it)->thread.join();
      it = connections.erase(it);
    } else {
      ++it;
    }
  }
}

void FaultServer::serve(Connection* connection) {
  // SSL_write() has no flag against the signal. Blocks it in this thread only: the library must
  // work without.
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
  const int socket = connection->socket;
  ssl_st* tls = nullptr;
  bool ready = true;
  if (tlsContext != nullptr) {
    tls = SSL_new(tlsContext);
    SSL_set_fd(tls, socket);
    ready = SSL_accept(tls) == 1;
  }
  if (ready) answer(socket, tls);
  if (tls != nullptr) {
    if (ready) SSL_shutdown(tls);
    SSL_free(tls);
  }
  std::lock_guard<std::mutex> guard(lock);
  connection->socket = -1;
  connection->over = true;
  close(socket);
  changed.notify_all();
}

void FaultServer::answer(int socket, ssl_st* tls) {
  Request request;
  request.resumed = tls != nullptr && SSL_session_reused(tls) == 1;
  if (!readHead(socket, tls, &request.raw)) return;
  std::istringstream first(request.raw);
  first >> request.method >> request.path;
  const std::string path = request.path;
  Behaviour behaviour = [](Exchange& exchange) {
    exchange.send("HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\n\r\nnot here\n");
  };
  int number = 0;
  unsigned long long base = 0;
  {
    std::unique_lock<std::mutex> guard(lock);
    const auto found = behaviours.find(path);
    if (found != behaviours.end()) behaviour = found->second;
    const auto shifted = bases.find(path);
    if (shifted != bases.end()) base = shifted->second;
    number = static_cast<int>(seen[path].size());
    seen[path].push_back(request);
    const auto limit = limits.find(path);
    const bool free = changed.wait_for(guard, patienceOf(2), [&] {
      return stopping || limit == limits.end() || current[path] < limit->second;
    });
    if (!free) {
      behaviour = [](Exchange& exchange) {
        exchange.send("HTTP/1.1 503 Busy\r\nContent-Length: 5\r\n\r\nbusy\n");
      };
    }
    ++current[path];
    changed.notify_all();
  }
  Exchange exchange(this, socket, tls, request, number, base);
  behaviour(exchange);
  std::lock_guard<std::mutex> guard(lock);
  --current[path];
  changed.notify_all();
}

bool FaultServer::readHead(int socket, ssl_st* tls, std::string* head) {
  char c = 0;
  while (head->size() < 4 || head->compare(head->size() - 4, 4, "\r\n\r\n") != 0) {
    const ssize_t n = tls != nullptr ? SSL_read(tls, &c, 1) : recv(socket, &c, 1, 0);
    if (n != 1) return false;
    head->push_back(c);
  }
  return true;
}

std::vector<Request> FaultServer::requests(const std::string& path) const {
  std::lock_guard<std::mutex> guard(lock);
  const auto found = seen.find(path);
  return found == seen.end() ? std::vector<Request>() : found->second;
}

std::vector<std::string> FaultServer::ranges(const std::string& path) const {
  std::vector<std::string> all;
  for (const Request& request : requests(path)) all.push_back(request.header("Range"));
  return all;
}

int FaultServer::requestCount(const std::string& path) const {
  return static_cast<int>(requests(path).size());
}

int FaultServer::connectionCount() const {
  std::lock_guard<std::mutex> guard(lock);
  return accepted;
}

long long FaultServer::bodyBytes(const std::string& path) const {
  std::lock_guard<std::mutex> guard(lock);
  const auto found = sentBytes.find(path);
  return found == sentBytes.end() ? 0 : found->second;
}

void FaultServer::countBody(const std::string& path, long long bytes) {
  std::lock_guard<std::mutex> guard(lock);
  sentBytes[path] += bytes;
}

bool FaultServer::waitForRequests(const std::string& path, int count) const {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(kWaitSeconds), [&] {
    const auto found = seen.find(path);
    return found != seen.end() && static_cast<int>(found->second.size()) >= count;
  });
}

bool FaultServer::waitUntilIdle(int seconds) const {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(seconds), [&] {
    return std::all_of(connections.begin(), connections.end(),
                       [](const std::unique_ptr<Connection>& each) { return each->over; });
  });
}

FullListener::FullListener() : listener(-1), listeningPort(0) {
  listener = listenOnLoopback(0, &listeningPort);
  struct sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(listeningPort));
  // A connect that is not done after this time has met a full queue.
  for (bool full = false; !full;) {
    const int filler = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (filler < 0) fail("socket");
    fillers.push_back(filler);
    connect(filler, reinterpret_cast<struct sockaddr*>(&address), sizeof address);
    struct pollfd watched = {filler, POLLOUT, 0};
    full = poll(&watched, 1, 300) == 0;
  }
}

FullListener::~FullListener() {
  for (const int filler : fillers) close(filler);
  close(listener);
}

int closedPort() {
  int port = 0;
  close(listenOnLoopback(1, &port));
  return port;
}

}  // namespace support

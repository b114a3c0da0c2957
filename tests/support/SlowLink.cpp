#include "tests/support/SlowLink.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace support {

namespace {

constexpr size_t kParcel = 4096;
// The kernel's buffer at either end; the kernel doubles it.
constexpr int kSocketBuffer = 16384;
// The link is booked ahead at most this far: the queue of a router in front of it.
constexpr std::chrono::milliseconds kQueue(50);
constexpr std::chrono::milliseconds kLate(5);

[[noreturn]] void fail(const char* what) {
  perror(what);
  abort();
}

struct sockaddr_in loopback(int port) {
  struct sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

void setInt(int socket, int level, int name, int value) {
  setsockopt(socket, level, name, &value, sizeof value);
}

int connectTo(int port) {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (made < 0) fail("socket");
  setInt(made, SOL_SOCKET, SO_RCVBUF, kSocketBuffer);
  setInt(made, IPPROTO_TCP, TCP_NODELAY, 1);
  const struct sockaddr_in address = loopback(port);
  if (connect(made, reinterpret_cast<const struct sockaddr*>(&address), sizeof address) != 0) {
    close(made);
    return -1;
  }
  return made;
}

bool sendAll(int socket, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

SlowLink::SlowLink(int targetPort, int roundTrip, long long rate)
    : target(targetPort), oneWay(roundTrip * 500), bytesPerSecond(rate) {
  listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) fail("socket");
  // Accepted sockets inherit it.
  setInt(listener, SOL_SOCKET, SO_SNDBUF, kSocketBuffer);
  struct sockaddr_in address = loopback(0);
  if (bind(listener, reinterpret_cast<struct sockaddr*>(&address), sizeof address) != 0) {
    fail("bind");
  }
  if (listen(listener, 256) != 0) fail("listen");
  socklen_t length = sizeof address;
  getsockname(listener, reinterpret_cast<struct sockaddr*>(&address), &length);
  listeningPort = ntohs(address.sin_port);
  if (pipe2(wakePipe, O_CLOEXEC) != 0) fail("pipe2");
  acceptor = std::thread([this] { acceptAll(); });
}

SlowLink::~SlowLink() {
  {
    const std::lock_guard<std::mutex> guard(lock);
    stopping = true;
    for (const auto& connection : connections) {
      if (connection->running == 0) continue;
      shutdown(connection->client, SHUT_RDWR);
      if (connection->server >= 0) shutdown(connection->server, SHUT_RDWR);
    }
  }
  if (write(wakePipe[1], "x", 1) != 1) fail("write");
  acceptor.join();
  for (const auto& connection : connections) {
    connection->up.join();
    connection->down.join();
  }
  close(listener);
  close(wakePipe[0]);
  close(wakePipe[1]);
}

void SlowLink::acceptAll() {
  for (;;) {
    struct pollfd watched[2] = {{listener, POLLIN, 0}, {wakePipe[0], POLLIN, 0}};
    poll(watched, 2, -1);
    const std::lock_guard<std::mutex> guard(lock);
    if (stopping) return;
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    setInt(client, IPPROTO_TCP, TCP_NODELAY, 1);
    joinFinished();
    ++accepted;
    connections.push_back(std::make_unique<Connection>());
    Connection* made = connections.back().get();
    made->client = client;
    made->server = connectTo(target);
    made->opened = Clock::now();
    made->up = std::thread([this, made] { carry(made, made->client, made->server, false); });
    made->down = std::thread([this, made] { carry(made, made->server, made->client, true); });
  }
}

void SlowLink::joinFinished() {
  for (auto it = connections.begin(); it != connections.end();) {
    if ((*it)->running > 0) {
      ++it;
      continue;
    }
    (*it)->up.join();
    (*it)->down.join();
    it = connections.erase(it);
  }
}

// The time at which the last byte of a parcel that arrives now will have been delivered.
SlowLink::Clock::time_point SlowLink::dueTime(const Connection& connection, size_t bytes,
                                              bool down) {
  const std::lock_guard<std::mutex> guard(lock);
  const Clock::time_point now = Clock::now();
  if (!down) return std::max(now, connection.opened + 2 * oneWay) + oneWay;
  if (bytesPerSecond <= 0) return now + oneWay;
  // A thread that is a little late has not left the link idle.
  linkFree = std::max(now - kLate, linkFree) +
             std::chrono::microseconds(static_cast<long long>(bytes) * 1000000 / bytesPerSecond);
  return linkFree + oneWay;
}

// Returns false if the sender has ended.
bool SlowLink::takeIn(Connection* connection, int from, bool down, std::deque<Parcel>* way) {
  std::string bytes(kParcel, '\0');
  const ssize_t n = recv(from, &bytes[0], bytes.size(), 0);
  if (n <= 0) return false;
  bytes.resize(static_cast<size_t>(n));
  const Clock::time_point due = dueTime(*connection, bytes.size(), down);
  way->push_back({std::move(bytes), due});
  return true;
}

// Delivers the parcels that are due. Returns false if the receiver has gone.
bool SlowLink::handOut(int to, bool down, std::deque<Parcel>* way) {
  while (!way->empty() && way->front().due <= Clock::now()) {
    if (down) {
      const std::lock_guard<std::mutex> guard(lock);
      carriedDown += static_cast<long long>(way->front().bytes.size());
    }
    if (!sendAll(to, way->front().bytes)) return false;
    way->pop_front();
  }
  return true;
}

// The time until the link takes another parcel; 0 if it takes one now.
std::chrono::milliseconds SlowLink::timeUntilRoom() const {
  const std::lock_guard<std::mutex> guard(lock);
  const auto ahead = std::chrono::duration_cast<std::chrono::milliseconds>(linkFree - Clock::now());
  return std::max(std::chrono::milliseconds(0), ahead - kQueue);
}

// For poll(): until the first parcel is due or there is room again; -1 for neither.
int SlowLink::waitFor(const std::deque<Parcel>& way, std::chrono::milliseconds full) {
  int wait = full.count() > 0 ? static_cast<int>(full.count()) : -1;
  if (way.empty()) return wait;
  const auto left = way.front().due - Clock::now();
  const auto due = std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1;
  const int until = static_cast<int>(std::max<long long>(0, due));
  return wait < 0 ? until : std::min(wait, until);
}

void SlowLink::carry(Connection* connection, int from, int to, bool down) {
  std::deque<Parcel> way;
  bool open = from >= 0 && to >= 0;
  bool reached = open;
  while (reached && (open || !way.empty())) {
    const std::chrono::milliseconds full = down ? timeUntilRoom() : std::chrono::milliseconds(0);
    const bool room = open && full.count() == 0;
    const int wait = waitFor(way, open ? full : std::chrono::milliseconds(0));
    // The receiver's end is watched too: a client that leaves ends the transfer at once.
    struct pollfd watched[2] = {{room ? from : -1, POLLIN, 0}, {to, POLLRDHUP, 0}};
    poll(watched, 2, wait);
    if (down && (watched[1].revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) break;
    if (watched[0].revents != 0) open = takeIn(connection, from, down, &way);
    reached = handOut(to, down, &way);
  }
  const std::lock_guard<std::mutex> guard(lock);
  if (to >= 0) shutdown(to, down ? SHUT_RDWR : SHUT_WR);
  if (from >= 0 && (down || !reached)) shutdown(from, SHUT_RDWR);
  // Closes at once: a sender that waits for room would not notice the end of reading.
  if (--connection->running == 0) closeBoth(connection);
}

void SlowLink::closeBoth(Connection* connection) {
  for (int* socket : {&connection->client, &connection->server}) {
    if (*socket >= 0) close(*socket);
    *socket = -1;
  }
}

void SlowLink::setRate(long long rate) {
  const std::lock_guard<std::mutex> guard(lock);
  bytesPerSecond = rate;
}

long long SlowLink::bytesDown() const {
  const std::lock_guard<std::mutex> guard(lock);
  return carriedDown;
}

int SlowLink::connectionCount() const {
  const std::lock_guard<std::mutex> guard(lock);
  return accepted;
}

}  // namespace support

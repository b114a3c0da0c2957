#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "util/Log.h"
#include "util/NeverDestroyed.h"
#include "util/PausePoint.h"
#include "webs/MethodRequest.h"
#include "webs/MethodRequestCallbacks.h"

namespace webs {

namespace {

// The address of the socket that any session opened last.
//
// Threads:   any; the lock is a leaf.
// Ownership: none. Never destroyed.
// Invariant: the text has a terminator; it is empty before the first socket.
class LastAddress {
 public:
  // The address is read as IPv4, whatever its family is.
  void remember(const struct sockaddr* address) EXCLUDES(lock_) {
    char made[sizeof text_] = {};
    struct in_addr ip;
    memcpy(&ip, reinterpret_cast<const char*>(address) + offsetof(struct sockaddr_in, sin_addr),
           sizeof ip);
    inet_ntop(AF_INET, &ip, made, sizeof made);
    const util::Lock lock(lock_);
    memcpy(text_, made, sizeof text_);
  }
  // 15 characters at most.
  std::string text() const EXCLUDES(lock_) {
    const util::Lock lock(lock_);
    return text_;
  }

 private:
  util::Semaphore lock_;
  char text_[INET_ADDRSTRLEN] GUARDED_BY(lock_) = {};
};

util::NeverDestroyed<LastAddress> lastAddress;

}  // namespace

curl_socket_t MethodRequestCallbacks::FluviaSocket(void* session, curlsocktype /*purpose*/,
                                                   struct curl_sockaddr* address) {
  auto* self = static_cast<MethodRequest*>(session);
  return contained(self, __func__, "no socket", curl_socket_t{CURL_SOCKET_BAD}, [&] {
    lastAddress->remember(&address->addr);
    FLUVIA_LOG_AS("FluviaSocket", 2, "URL IP: %s\n", lastAddress->text().c_str());
    return self->openSocket(address->family, address->socktype, address->protocol);
  });
}

int MethodRequest::openSocket(int family, int type, int protocol) {
  util::Lock lock(*this);
  FLUVIA_PAUSE_POINT("MethodRequest::openSocket");
  // Only initialize() makes libcurl report when it closes one. Allocates first: after that nothing
  // may fail.
  if (initialized) sockets.reserve(sockets.size() + 1);
  const int opened = socket(family, type | SOCK_CLOEXEC, protocol);
  if (opened < 0) return CURL_SOCKET_BAD;
  ++socketsOpened;
  // A stop that came before has already searched for sockets.
  if (active) {
    if (initialized) sockets.push_back(opened);
    return opened;
  }
  close(opened);
  return CURL_SOCKET_BAD;
}

int MethodRequestCallbacks::closeSocket(void* session, curl_socket_t socketHandle) {
  auto* self = static_cast<MethodRequest*>(session);
  return contained(self, __func__, "not closed", -1,
                   [&] { return self->closeSocket(socketHandle); });
}

int MethodRequest::closeSocket(int socketHandle) {
  {
    util::Lock lock(*this);
    FLUVIA_PAUSE_POINT("MethodRequest::closeSocket");
    sockets.erase(std::remove(sockets.begin(), sockets.end(), socketHandle), sockets.end());
  }
  return close(socketHandle);
}

// Makes the close that follows reset the connection. After a shutdown no window is opened, so a
// server that still waits to send would not learn of an orderly end for a minute.
void MethodRequest::shutDownSockets() {
  constexpr struct linger kReset = {1, 0};
  for (const int open : sockets) {
    setsockopt(open, SOL_SOCKET, SO_LINGER, &kReset, sizeof kReset);
    shutdown(open, SHUT_RDWR);
  }
}

int MethodRequest::getUrlIP(char* ipBuf) const {
  if (curl == nullptr) {
    FLUVIA_LOG(-4, "curl not init");
    return -1;
  }
  if (ipBuf == nullptr) {
    FLUVIA_LOG(-4, "Error, input ip_buf shouldn't be NULL");
    return -1;
  }
  const std::string text = lastAddress->text();
  memcpy(ipBuf, text.c_str(), text.size() + 1);
  FLUVIA_LOG(0, "IP : %s", text.c_str());
  return 0;
}

}  // namespace webs

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "util/Log.h"
#include "util/NeverDestroyed.h"
#include "util/PausePoint.h"
#include "webs/MethodRequest.h"
#include "webs/MethodRequestCallbacks.h"
#include "webs/TransferResult.h"
#include "webs/TransferShare.h"
#include "webs/WallClock.h"

namespace webs {

namespace {

constexpr int kSecond = 1000000;
constexpr int kConnectLimit = 10 * kSecond;
constexpr int kBreakLimit = 2 * kSecond;
constexpr int kShortNoDataSeconds = 4;
constexpr int kNoDataSeconds = 10;
constexpr int kFeatureShortTimeouts = 1;
// How long a resolved address is valid: libcurl's own time.
constexpr long kNameSeconds = 60;

// Only this session includes libcurl; all other code uses these numbers.
static_assert(static_cast<int>(TRANSFER_OK) == CURLE_OK, "libcurl's");
static_assert(static_cast<int>(TRANSFER_UNKNOWN_HOST) == CURLE_COULDNT_RESOLVE_HOST, "libcurl's");
static_assert(static_cast<int>(TRANSFER_NOT_CONNECTED) == CURLE_COULDNT_CONNECT, "libcurl's");
static_assert(static_cast<int>(TRANSFER_PARTIAL) == CURLE_PARTIAL_FILE, "libcurl's");
static_assert(static_cast<int>(TRANSFER_WRITE_REFUSED) == CURLE_WRITE_ERROR, "libcurl's");
static_assert(static_cast<int>(TRANSFER_OUT_OF_MEMORY) == CURLE_OUT_OF_MEMORY, "libcurl's");
static_assert(static_cast<int>(TRANSFER_TIMED_OUT) == CURLE_OPERATION_TIMEDOUT, "libcurl's");
static_assert(static_cast<int>(TRANSFER_ABORTED) == CURLE_ABORTED_BY_CALLBACK, "libcurl's");
static_assert(CURL_LAST <= static_cast<int>(FIRST_ERROR_STATUS), "a status is no libcurl code");

// Microseconds since *stamp. A clock that was set back restarts the count: otherwise the stall
// check would be off for the length of that step.
int elapsedSince(unsigned int* stamp) {
  const unsigned int now = wallClockMicroseconds(wallClock());
  const int elapsed = microsecondsBetween(*stamp, now);
  if (elapsed >= 0) return elapsed;
  *stamp = now;
  return 0;
}

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

void MethodRequest::beginTransfer() {
  util::Lock lock(*this);
  // Armed: a stop since then has cleared active, and the transfer must end before it begins.
  if (!armed) active = true;
  armed = false;
  running = true;
  limiter.watch(&active);
}

void MethodRequest::endTransfer() {
  util::Lock lock(*this);
  active = false;
  running = false;
  limiter.watch(nullptr);
  for (const Option& option : keptOptions) applyOption(option);
  keptOptions.clear();
  notifyAll(0);
}

int MethodRequest::executeGet(const std::string& resource, long long start, long long end,
                              int versionTag) {
  beginTransfer();
  int result = TRANSFER_OUT_OF_MEMORY;
  try {
    version = versionTag;
    result = performGet(resource, start, end);
  } catch (const std::exception& failure) {
    FLUVIA_LOG(-4, "handle:%p, request failed: %s", curl, failure.what());
  }
  endTransfer();
  return result;
}

int MethodRequest::performGet(const std::string& resource, long long start, long long end) {
  noDataLimit = featureFlag == kFeatureShortTimeouts ? kShortNoDataSeconds : kNoDataSeconds;
  const std::string requestUrl = buildUrl(resource);
  curl_easy_setopt(curl, CURLOPT_URL, requestUrl.c_str());

  const bool ranged = supportSeek;
  if (ranged) {
    FLUVIA_LOG_AS("executeGet", 0, "set fgrangeget to true");
    rangeGet = true;
    char range[64];
    int used = snprintf(range, sizeof range, "%lld-", start);
    if (end != 0) snprintf(range + used, sizeof range - static_cast<size_t>(used), "%lld", end);
    curl_easy_setopt(curl, CURLOPT_RANGE, range);
  } else {
    FLUVIA_LOG_AS("executeGet", 0, "set fgrangeget to false");
    curl_easy_setopt(curl, CURLOPT_RANGE, nullptr);
  }

  FLUVIA_LOG_AS("executeGet", -4,
                "handle:%p, PFFFF begin to perform(url: %s, start: %lld, end: %lld)", curl,
                requestUrl.c_str(), start, end);
  const bool looksUpAnew = TransferShare::instance().takeDistrust();
  curl_easy_setopt(curl, CURLOPT_DNS_CACHE_TIMEOUT, looksUpAnew ? 0L : kNameSeconds);

  lifeCount = -1;
  timeoutNum = 0;
  lastStamp = 0;
  lastSampleTime = {0, 0};
  windowBytes = 0;
  socketsOpened = 0;
  callbackFailed = false;
  responseCode = 0;
  curlSpeed = 0;
  limiter.InitSpeed();
  Outcome outcome{curl_easy_perform(curl), ranged && end != 0, 0};
  limiter.CalAvgSpeed();
  return evaluate(start, &outcome);
}

int MethodRequest::evaluate(long long start, Outcome* outcome) {
  // A stop shuts the sockets down under libcurl, which takes this for a broken or even a complete
  // body. A piece that the receiver refused keeps its code: it was cancelled already.
  const bool stopped = !active;
  if (stopped && outcome->code != CURLE_WRITE_ERROR) outcome->code = CURLE_ABORTED_BY_CALLBACK;
  // Not reported as cancelled: nothing follows a cancelled transfer, and readers would wait.
  if (!stopped && callbackFailed) outcome->code = CURLE_OUT_OF_MEMORY;

  if (!stopped && nobodyAnswered(outcome->code)) TransferShare::instance().distrustNames();

  snapshotSpeed();
  curl_easy_getinfo(curl, CURLINFO_SIZE_DOWNLOAD, &outcome->bytes);
  responseCode = responseCodeOf(curl);
  long systemError = 0;
  curl_easy_getinfo(curl, CURLINFO_OS_ERRNO, &systemError);
  // libcurl keeps the error number of an earlier transfer.
  socketErrno = socketsOpened == 0 ? 0 : systemError;
  const long long endSize = start + static_cast<long long>(outcome->bytes);
  FLUVIA_LOG_AS("executeGet", -4,
                "handle:%p, curl_easy_perform ret:%d, respond code:%d, socket_errno:%ld, "
                "cal_speed:%lld Byte/s, maxspeed:%lld Byte/s, download End size %lld Byte",
                curl, outcome->code, responseCode.get(), socketErrno.get(), limiter.GetAvgSpeed(),
                limiter.getMaxSpeed(), endSize);

  if (outcome->code == CURLE_OK && !outcome->bounded) {
    fileSize = endSize;
    FLUVIA_LOG_AS("executeGet", 2, "get file size : %lld", fileSize.get());
  }
  if (stopped && outcome->code == CURLE_ABORTED_BY_CALLBACK) return outcome->code;
  return resultOf(*outcome);
}

bool MethodRequest::nobodyAnswered(int code) const {
  // libcurl's only time limit here is the one for connecting. The stall check may be faster.
  return code == CURLE_COULDNT_CONNECT || code == CURLE_OPERATION_TIMEDOUT ||
         (code == CURLE_ABORTED_BY_CALLBACK && timeoutNum >= kConnectLimit);
}

int MethodRequest::resultOf(const Outcome& outcome) const {
  if (responseCode >= FIRST_ERROR_STATUS) return responseCode;
  const bool success = responseCode == 200 || responseCode == 206;
  if (success && outcome.bytes <= 0 && outcome.code == CURLE_OK) {
    FLUVIA_LOG_AS("executeGet", 0, "error, file size is 0");
    return TRANSFER_EMPTY;
  }
  if (outcome.code != CURLE_ABORTED_BY_CALLBACK) return outcome.code;
  // No stop ended it, so the stall check did.
  FLUVIA_LOG_AS("executeGet", 2, "timeoutNum=%ld, lifeCount=%ld", static_cast<long>(timeoutNum),
                static_cast<long>(lifeCount));
  return timeoutNum < kConnectLimit && lifeCount < noDataLimit * kSecond ? TRANSFER_BROKEN
                                                                         : TRANSFER_STALLED;
}

size_t MethodRequestCallbacks::response(char* ptr, size_t size, size_t nmemb, void* session) {
  FLUVIA_LOG(2, "response in");
  auto* self = static_cast<MethodRequest*>(session);
  return contained(self, __func__, "body refused", size_t{0}, [&] {
    return static_cast<size_t>(self->sendData(ptr, static_cast<int>(size * nmemb)));
  });
}

int MethodRequest::sendData(void* data, int size) {
  const char* type = nullptr;
  curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
  if (type == nullptr) type = "";
  {
    util::Lock lock(infoLock);
    if (contentType != type) contentType = type;
  }
  lifeCount = 0;
  timeoutNum = -1;
  lastStamp = 0;
  FLUVIA_LOG(2, "(handle:%p) Data In  size = %d, version = %d", curl, size, version);
  const int taken = requestor->receive(data, size, curl, version);
  limiter.Limitspeed(static_cast<unsigned int>(size));
  showSpeed(size);
  return taken;
}

int MethodRequestCallbacks::curl_progress_fct(void* session, double /*dltotal*/, double /*dlnow*/,
                                              double /*ultotal*/, double /*ulnow*/) {
  auto* self = static_cast<MethodRequest*>(session);
  return contained(self, __func__, "progress refused", 1,
                   [self] { return self->mayGoOn() ? 0 : 1; });
}

// Evaluates every stall check, even if the first has fired.
bool MethodRequest::mayGoOn() {
  util::Lock lock(*this);
  FLUVIA_PAUSE_POINT("MethodRequest::mayGoOn");
  bool goOn = true;
  snapshotSpeed();
  if (!active) {
    FLUVIA_LOG_AS("curl_progress_fct", 0, "begin to break out from curl progress");
    goOn = false;
  }
  if (!progressCount()) goOn = false;
  if (!timeoutCount()) goOn = false;
  return goOn;
}

bool MethodRequest::progressCount() {
  if (lifeCount < 0) return true;
  if (lifeCount == 0 && lastStamp == 0) {
    lastStamp = wallClockMicroseconds(wallClock());
    return true;
  }
  lifeCount = elapsedSince(&lastStamp);
  if (lifeCount >= noDataLimit * kSecond) {
    FLUVIA_LOG(-4,
               "handle:%p, Too long time no data comes, the connection is die, "
               "disconnect actively:%d",
               curl, lifeCount);
    return false;
  }
  if (lifeCount >= kBreakLimit && breakFlag) {
    FLUVIA_LOG(-4, "handle:%p, %d s no data comes, customer cancel read", curl, lifeCount);
    breakFlag = false;
    return false;
  }
  if (lifeCount >= kSecond) {
    FLUVIA_LOG(-4,
               "handle:%p, The http connection speed is low and %d seconds has no data responded",
               curl, lifeCount);
  }
  return true;
}

bool MethodRequest::timeoutCount() {
  if (timeoutNum == -1) return true;
  if (timeoutNum == 0 && lastStamp == 0) {
    lastStamp = wallClockMicroseconds(wallClock());
    return true;
  }
  timeoutNum = elapsedSince(&lastStamp);
  if (timeoutNum >= kConnectLimit) {
    FLUVIA_LOG(0, "At least %d s No data in, don't wait anymaore...", timeoutNum);
    return false;
  }
  if (timeoutNum >= kBreakLimit && (breakFlag || !active)) {
    FLUVIA_LOG(-4, "handle:%p, %d s no data comes, customer cancel read", curl, lifeCount);
    breakFlag = false;
    return false;
  }
  if (timeoutNum >= kSecond) FLUVIA_LOG(0, "At least %d s No data in", timeoutNum);
  return true;
}

// Sockets.

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

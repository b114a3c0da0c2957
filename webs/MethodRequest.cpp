#include "webs/MethodRequest.h"

#include <openssl/crypto.h>

#include <cstring>

#include "util/Log.h"
#include "util/NeverDestroyed.h"
#include "webs/MethodRequestCallbacks.h"
#include "webs/SslMultithread.h"
#include "webs/TransferShare.h"
#include "webs/WallClock.h"

namespace webs {

namespace {

constexpr unsigned int kSpeedSamples = 10;
constexpr long kBufferSize = 524288;
constexpr long kMaximumRedirects = 50;
// Interval at which a stop checks for new sockets: a socket that is shut down between its creation
// and its connect would still connect.
constexpr int kStopPollMilliseconds = 20;

util::NeverDestroyed<util::Semaphore> globalLock;
bool globalInitialized = false;

void initializeGlobally() {
  util::Lock lock(globalLock.get());
  if (globalInitialized) return;
  // Transfers may run while the process exits: the crypto library must not free its tables.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  curl_global_init(CURL_GLOBAL_SSL);
  if (cd_ssl_multithread_setup() == 0) globalInitialized = true;
}

// One list for all sessions and for the life of the process: a transfer may be reading it.
struct curl_slist* sharedHeaders() {
  static struct curl_slist* const list = curl_slist_append(nullptr, "Pragma: no-cache");
  return list;
}

constexpr int kWindowMicroseconds = 1000000;

}  // namespace

MethodRequest::MethodRequest()
    : speedAverage(kSpeedSamples),
      lastSampleTime{0, 0},
      windowBytes(0),
      featureFlag(-1),
      initialized(false),
      param2Url(false),
      requestor(nullptr),
      version(0),
      headerBuf{},
      headerLen(0),
      noDataLimit(0),
      curl(nullptr),
      lifeCount(0),
      timeoutNum(0),
      lastStamp(0),
      http200Aliases(nullptr),
      armed(false),
      running(false),
      socketsOpened(0),
      callbackFailed(false) {}

MethodRequest::~MethodRequest() {
  FLUVIA_LOG(0, "~MethodRequest");
  if (curl != nullptr) curl_easy_cleanup(curl);
  curl_slist_free_all(http200Aliases);
  dropParams();
}

void MethodRequest::initialize(Requestor* receiver, const std::string& resource) {
  if (initialized) return;
  stopWait = false;
  requestor = receiver;
  url = resource;
  InitCurl(nullptr);
  curl_easy_setopt(curl, CURLOPT_CLOSESOCKETFUNCTION, &MethodRequestCallbacks::closeSocket);
  curl_easy_setopt(curl, CURLOPT_CLOSESOCKETDATA, this);
  if (curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https") != CURLE_OK) {
    // A redirect could lead to a local file of the device.
    FLUVIA_LOG(-4, "redirects are not followed");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
  }
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, kMaximumRedirects);
  // A stop does not wait for the system's name resolver: its thread ends and cleans up by itself.
  curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(curl, CURLOPT_SHARE, TransferShare::instance().all());
  initialized = true;
}

void MethodRequest::InitCurl(const char* resource) {
  initializeGlobally();
  if (curl == nullptr) curl = curl_easy_init();
  if (resource != nullptr) {
    curl_easy_setopt(curl, CURLOPT_URL, resource);
  } else {
    FLUVIA_LOG(0, "url is NULL");
  }
  curl_easy_setopt(curl, CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4));
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &MethodRequestCallbacks::response);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(curl, CURLOPT_PROGRESSFUNCTION, &MethodRequestCallbacks::curl_progress_fct);
  curl_easy_setopt(curl, CURLOPT_PROGRESSDATA, this);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_OPENSOCKETFUNCTION, &MethodRequestCallbacks::FluviaSocket);
  curl_easy_setopt(curl, CURLOPT_OPENSOCKETDATA, this);
  curl_easy_setopt(curl, CURLOPT_NOPROXY, "127.0.0.1");
  supportSeek = false;
  // At every log level: players' logs are read with libcurl's own lines in them.
  curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);
  curl_easy_setopt(curl, CURLOPT_USERAGENT, "curl/7.19.5");
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, featureFlag == 1 ? 6L : 10L);
  curl_easy_setopt(curl, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &MethodRequestCallbacks::header);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);
  curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, kBufferSize);
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, sharedHeaders());
  http200Aliases = curl_slist_append(http200Aliases, "ICY 200 OK");
  curl_easy_setopt(curl, CURLOPT_HTTP200ALIASES, http200Aliases);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
}

void MethodRequest::arm() {
  util::Lock lock(*this);
  active = true;
  armed = true;
}

void MethodRequest::stop() {
  util::Lock lock(*this);
  FLUVIA_LOG(0, "MethodRequest begin to stop active = %d", active.get());
  stopWait = false;
  if (active) {
    active = false;
    FLUVIA_LOG(1, "notify curl to stop and wait stop end");
  }
  while (armed || running) {
    shutDownSockets();
    waitFor(kStopPollMilliseconds);
  }
  lock.release();
  FLUVIA_LOG(1, "MethodRequest begin to stop End");
}

void MethodRequest::setBreak() {
  FLUVIA_LOG(0, "MethodRequest:: call Break");
  breakFlag = true;
}

void MethodRequest::setStopWait() {
  stopWait = true;
  FLUVIA_LOG(1, "stopwait : %d\n", stopWait.get());
}

int MethodRequest::responseCodeOf(void* handle) {
  long code = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &code);
  return static_cast<int>(code);
}

double MethodRequest::statedLengthOf(void* handle) {
  double length = -1;
  curl_easy_getinfo(handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD, &length);
  return length;
}

// The speed.

void MethodRequest::setSpeed(long long bytesPerSecond) {
  maxSpeed = bytesPerSecond;
  limiter.setMaxSpeed(bytesPerSecond);
}

void MethodRequest::snapshotSpeed() {
  double speed = 0;
  curl_easy_getinfo(curl, CURLINFO_SPEED_DOWNLOAD, &speed);
  curlSpeed = static_cast<long long>(speed);
}

void MethodRequest::showSpeed(int size) {
  const struct timeval now = wallClock();
  if (lastSampleTime.tv_sec == 0 && lastSampleTime.tv_usec == 0) {
    // The first chunk only opens the window.
    lastSampleTime = now;
    return;
  }
  const int elapsed =
      microsecondsBetween(wallClockMicroseconds(lastSampleTime), wallClockMicroseconds(now));
  if (elapsed < kWindowMicroseconds) {
    windowBytes += size;
    return;
  }
  const long long rate = windowBytes * 1000000 / elapsed;
  snapshotSpeed();
  FLUVIA_LOG(0, "handle:%p, download aver_speed is %lld Bytes/s, im_speed is %lld Bytes/s", curl,
             curlSpeed.get(), rate);
  showSpeedValue = speedAverage.push(rate);
  lastSampleTime = now;
  windowBytes = size;
}

long long MethodRequest::getSpeed() {
  long long average = limiter.GetAvgSpeed();
  if (average == 0) {
    limiter.CalAvgSpeed();
    average = limiter.GetAvgSpeed();
  }
  const long long shown = showSpeedValue;
  if (average != 0 && shown == 0) {
    FLUVIA_LOG(0, "handle:%p, show cal_avg_speed :%lld", curl, average);
    return average;
  }
  if (shown != 0) {
    FLUVIA_LOG(0, "handle:%p, show dash_speed :%lld  cal_avg_speed :%lld", curl, shown, average);
    return shown;
  }
  const long long libcurls = curlSpeed;
  FLUVIA_LOG(0, "handle:%p, show avg_speed :%lld", curl, libcurls);
  return libcurls;
}

}  // namespace webs

#include "webs/HttpFileRequest.h"

#include <cerrno>
#include <thread>

#include "util/Log.h"
#include "util/PausePoint.h"
#include "webs/TransferResult.h"

namespace webs {

namespace {

constexpr int kFeatureOtherReports = 1;

constexpr int kOk = 200;
constexpr int kPartialContent = 206;
constexpr int kNoStatus = 0;
// A smaller stated length counts only if there is a length line.
constexpr long long kTrustedSize = 0x100000;

// libcurl's number as a 64-bit integer; no body is as long as the largest one.
long long toInteger(double length) {
  constexpr double kLimit = 9223372036854775807.0;
  return length >= kLimit ? 0x7FFFFFFFFFFFFFFFLL : static_cast<long long>(length);
}

}  // namespace

HttpFileRequest::HttpFileRequest(const std::string& resource)
    : FileRequest(resource),
      received(0),
      requestCount(0),
      requestOffset(0),
      firstReceived(false),
      version(0),
      finished(true),
      downloadStatus(DOWNLOAD_OK),
      featureFlag(-1),
      runReceived(false),
      startedPlain(false),
      skipping(false) {
  FLUVIA_LOG(0, "in construction");
}

bool HttpFileRequest::initialize() {
  method.initialize(this, "");
  return true;
}

void HttpFileRequest::release() { stopStreaming(); }

int HttpFileRequest::startStreaming(int versionTag, long long offset, long long count) {
  if (out == nullptr) return -1;
  {
    util::Lock lock(*this);
    alive = true;
    version = versionTag;
    requestOffset = offset;
    requestCount = count;
    FLUVIA_LOG(0, "begin to start requestCount=%lld", requestCount);
    received = 0;
  }
  FLUVIA_PAUSE_POINT("HttpFileRequest::startStreaming before sendRequest");
  return sendRequest();
}

int HttpFileRequest::stopStreaming() {
  FLUVIA_LOG(0, "begin to stop streaming");
  {
    util::Lock lock(*this);
    alive = false;
    method.stop();
    while (!finished) wait(0);
  }
  FLUVIA_LOG(0, "End to stop streaming");
  return 0;
}

int HttpFileRequest::sendRequest() {
  {
    util::Lock lock(*this);
    if (!alive) {
      lock.release();
      FLUVIA_LOG(0, "alive == fasle, stopStream here  !");
      return 0;
    }
    FLUVIA_LOG(0, "http begin to get from:%s, %lld~%lld", url.c_str(), requestOffset, requestCount);
    finished = false;
    downloadStatus = DOWNLOAD_OK;
    // From here on a stop ends the transfer, also before it has begun.
    method.arm();
  }
  FLUVIA_PAUSE_POINT("HttpFileRequest::sendRequest before executeGet");
  const long long end = requestCount == 0 ? 0 : requestOffset + requestCount - 1;
  runReceived = false;
  skipping = false;
  startedPlain = !seekable && requestOffset >= 1;
  long long start = requestOffset;
  if (startedPlain) {
    FLUVIA_LOG(-4, "server not support seek, but requestOffset is %lld, so download data from 0",
               requestOffset);
    start = 0;
  }
  const int result = method.executeGet(url, start, end, version);

  util::Lock lock(*this);
  FLUVIA_LOG(0, "errorCode:%d", result);
  if (result == TRANSFER_OK && (contentSize == 0 || contentSize == util::UNKNOWN_CONTENT_SIZE)) {
    contentSize = method.getFileSize();
    FLUVIA_LOG(0, "setFileSize: %lld", contentSize.get());
  }
  // The lock is held while the event is sent: the event may park this thread until a reader needs
  // more.
  sendEvent(reportResult(result));
  finished = true;
  notifyAll(0);
  return 0;
}

// Distinguishes an unreachable host from a refused connection by the system's error.
int HttpFileRequest::reportNotConnected() {
  if (method.getErrno() == EHOSTUNREACH) {
    downloadStatus = DOWNLOAD_CONNECT_FAIL;
    FLUVIA_LOG_AS("sendRequest", 2, "set status DOWNLOAD_CONNECT_FAIL");
  } else if (method.getErrno() == ECONNREFUSED) {
    downloadStatus = DOWNLOAD_CONNECT_REJECT;
    FLUVIA_LOG_AS("sendRequest", 2, "set status DOWNLOAD_CONNECT_REJECT");
  }
  FLUVIA_LOG_AS("sendRequest", -4, "notify EVENT_STREAM_ERROR");
  return util::STREAM_ERROR;
}

// A silent server and an unknown host are final, unless the feature flag says otherwise.

int HttpFileRequest::reportStall() {
  downloadStatus = DOWNLOAD_NOT_REVEIVE_DATA;
  if (featureFlag != kFeatureOtherReports) return util::STREAM_FILE_NOT_FOUND;
  FLUVIA_LOG_AS("sendRequest", -4, "FBZ Case DOWNLOAD_NOT_REVEIVE_DATA");
  return util::STREAM_TIMEOUT;
}

int HttpFileRequest::reportUnknownHost() {
  downloadStatus = DOWNLOAD_DNS_UNABLE_RESOLVED;
  if (featureFlag != kFeatureOtherReports) {
    FLUVIA_LOG_AS("sendRequest", -4, "NO FBZ CASE, couldn't resolve host");
    return util::STREAM_FILE_NOT_FOUND;
  }
  FLUVIA_LOG_AS("sendRequest", -4, "FBZ Case DOWNLOAD_DNS_UNABLE_RESOLVED");
  return util::STREAM_ERROR;
}

int HttpFileRequest::reportResult(int result) {
  if (result == TRANSFER_OK && !runReceived && !firstReceived) {
    // A response that never has a body would be requested again without end.
    FLUVIA_LOG_AS("sendRequest", 0, "http error %d", method.getResponseCode());
    return util::STREAM_ERROR;
  }
  if (result >= FIRST_ERROR_STATUS) {
    downloadStatus = result;
    return result >= 500 && result <= 599 ? util::STREAM_NOT_AVAILABLE
                                          : util::STREAM_FILE_NOT_FOUND;
  }
  switch (result) {
    case TRANSFER_OK:
    case TRANSFER_PARTIAL:
      FLUVIA_LOG_AS("sendRequest", 0, "[QV]return EVENT_STREAM_PARTIAL_END");
      return util::EVENT_STREAM_PARTIAL_END;
    case TRANSFER_STALLED:
      return reportStall();
    case TRANSFER_BROKEN:
      downloadStatus = DOWNLOAD_CONNECTION_DEAD;
      FLUVIA_LOG_AS("sendRequest", -4, "connection is dead");
      return util::STREAM_DEAD;
    case TRANSFER_UNKNOWN_HOST:
      return reportUnknownHost();
    case TRANSFER_NOT_CONNECTED:
      return reportNotConnected();
    case TRANSFER_WRITE_REFUSED:
      return util::STREAM_CANCELED;
    case TRANSFER_TIMED_OUT:
      downloadStatus = DOWNLOAD_TIMEOUT;
      return util::STREAM_TIMEOUT;
    case TRANSFER_ABORTED:
      FLUVIA_LOG_AS("sendRequest", 0, "aborted by callback :%d", result);
      return util::STREAM_CANCELED;
    default:
      FLUVIA_LOG_AS("sendRequest", 0, "HttpFileRequest error:%d ", result);
      return util::STREAM_ERROR;
  }
}

void HttpFileRequest::sendEvent(int event) {
  if (out != nullptr) out->notifyStreamException(event);
}

// The body.

int HttpFileRequest::receive(void* data, int size, void* handle, int versionTag) {
  if (!runReceived) {
    runReceived = true;
    if (!acceptAnswer(handle)) return 0;
  }
  if (out != nullptr && !deliver(static_cast<char*>(data), size, versionTag)) {
    FLUVIA_LOG(0, "to terminate http perform");
    return 0;
  }
  if (alive) return size;
  while (stopPending()) {
    FLUVIA_LOG(0, "wait stop flag");
    std::this_thread::yield();
  }
  return 0;
}

// Handles the first piece of a run. Returns false if the response has no usable body.
bool HttpFileRequest::acceptAnswer(void* handle) {
  const int code = MethodRequest::responseCodeOf(handle);
  if (!firstReceived) {
    FLUVIA_LOG_AS("receive", 0, "first time receive , get content length !!");
    FLUVIA_LOG_AS("receive", 0, "response code: %d !!", code);
  }
  if (code >= 400) {
    FLUVIA_LOG_AS("receive", -4, "error, the server send %d respond code", code);
    return false;
  }
  long long first = 0;
  const bool known = code == kOk || code == kPartialContent || code == kNoStatus;
  // Also for a 200: the line states where the body begins.
  const bool late = method.getStartFromResponseRange(&first) && first > requestOffset;
  if (!known || late) {
    notifyAll(0);
    sendEvent(util::STREAM_ERROR);
    FLUVIA_LOG_AS("receive", 0, "http error %d", code);
    return false;
  }
  if (!firstReceived) {
    learnResource(code, handle);
    method.setSupportSeek(seekable);
    firstReceived = true;
    notifyAll(0);
    sendEvent(util::STREAM_NORMAL);
  }
  received = startOfBody(code, handle);
  skipping = received < requestOffset;
  return true;
}

// Handles the first piece of the resource: takes its size from the response.
void HttpFileRequest::learnResource(int code, void* handle) {
  long long size = 0;
  if (code != kNoStatus) {
    size = toInteger(MethodRequest::statedLengthOf(handle));
    FLUVIA_LOG_AS("receive", 0, "contentSize:%lld", size);
    // Without a length the number is negative, which the receiver would take for a size.
    if (size < 0) size = 0;
    if (size < kTrustedSize && !method.checkFromContentLength()) size = 0;
  }
  decideSizeAndSeeking(code, size);
}

// Sets the size of the resource, 0 for none, and whether it can be started anywhere. Other threads
// read the fields: each is written once.
void HttpFileRequest::decideSizeAndSeeking(int code, long long size) {
  bool ranges = false;
  if (size == 0) {
    FLUVIA_LOG_AS("receive", 0, "got contentSize is too small:%lld", size);
    size = util::UNKNOWN_CONTENT_SIZE;
    if (code == kPartialContent) {
      const long long total = method.getSizeFromResponseRange();
      if (total > 0) {
        ranges = true;
        size = total;
        FLUVIA_LOG_AS("receive", 0, "new revise content size is:%lld", size);
      } else {
        FLUVIA_LOG_AS("receive", 0, "Can't get size from content-range, don't support seek");
      }
    } else {
      FLUVIA_LOG_AS("receive", 0, "Can't get size from the network file");
    }
  } else if (code == kOk) {
    FLUVIA_LOG_AS("receive", 0, "got http:200 double check if server still support seek");
    if (method.isRangeGet()) {
      FLUVIA_LOG_AS("receive", 0, "contain range request, but server return 200, try check seek");
    } else {
      FLUVIA_LOG_AS("receive", 0, "check seekable");
    }
    ranges = method.seekAbleCheckFromResponse();
    FLUVIA_LOG_AS("receive", 0, "double check seek:%d", ranges);
  } else {
    ranges = true;
  }
  FLUVIA_PAUSE_POINT("HttpFileRequest::decideSizeAndSeeking decided");
  contentSize = size;
  seekable = ranges;
}

// Where the body of this run begins in the resource, in bytes; never after the requested offset.
long long HttpFileRequest::startOfBody(int code, void* handle) const {
  long long first = 0;
  if (method.getStartFromResponseRange(&first)) return first;
  if (startedPlain) return 0;
  if (code == kPartialContent || carriesOnlyTheRest(handle)) return requestOffset;
  return 0;
}

// Some servers honour a range but respond with 200.
bool HttpFileRequest::carriesOnlyTheRest(void* handle) const {
  const long long length = toInteger(MethodRequest::statedLengthOf(handle));
  if (length < 0 || length == contentSize) return false;
  return length == contentSize - requestOffset || (requestCount > 0 && length == requestCount);
}

// Delivers one piece from the requested offset on. False: the receiver refused it.
bool HttpFileRequest::deliver(char* data, int size, int versionTag) {
  if (!skipping) {
    const bool ok = out->streamIn(data, static_cast<unsigned int>(size), versionTag) != 0;
    while (stopPending()) {
      FLUVIA_LOG_AS("receive", 0, "wait stop flag");
      std::this_thread::yield();
    }
    return ok;
  }
  const long long before = received;
  received += size;
  if (received <= requestOffset) return true;
  const int skipped = before >= requestOffset ? 0 : static_cast<int>(requestOffset - before);
  const bool ok =
      out->streamIn(data + skipped, static_cast<unsigned int>(size - skipped), versionTag) != 0;
  while (stopPending()) std::this_thread::yield();
  return ok;
}

// Settings and figures.

void HttpFileRequest::setBreak() {
  FLUVIA_LOG(0, "HttpFileRequest::call setBreak");
  method.setBreak();
}

int HttpFileRequest::getDownloadStatus() {
  const int status = downloadStatus;
  FLUVIA_LOG(0, "download status:%d", status);
  return status;
}

void HttpFileRequest::setFeatureFlag(int flag) {
  FLUVIA_LOG(-4, "set feature flag:%d", flag);
  featureFlag = flag;
  method.setMethodFeatureFlag(flag);
}

void HttpFileRequest::setSpeed(long long bytesPerSecond) {
  FLUVIA_LOG(0, "set speed:%lld", bytesPerSecond);
  method.setSpeed(bytesPerSecond);
}

void HttpFileRequest::setUserAgent(const std::string& value) {
  {
    util::Lock lock(settingsLock);
    userAgent = value;
  }
  FLUVIA_LOG(0, "set UAString = %s", value.c_str());
  method.setUserAgent(value);
}

void HttpFileRequest::setProxy(const std::string& value) {
  {
    util::Lock lock(settingsLock);
    proxy = value;
  }
  FLUVIA_LOG(0, "set http proxy :%s", value.c_str());
  method.setProxy(value);
}

void HttpFileRequest::setCookie(const std::string& value) {
  {
    util::Lock lock(settingsLock);
    cookie = value;
  }
  FLUVIA_LOG(0, "set http cookie :%s", value.c_str());
  method.setCookie(value);
}

void HttpFileRequest::setCAPath(const std::string& value) {
  FLUVIA_LOG(0, "set CA path:%s", value.c_str());
  method.setCAPath(value);
}

void HttpFileRequest::setCA(const std::string& value) {
  FLUVIA_LOG(0, "set CA Info:%s", value.c_str());
  method.setCA(value);
}

void HttpFileRequest::setClientAuthertication(const std::string& value) {
  FLUVIA_LOG(0, "set Client Authertication:%s", value.c_str());
  method.setClientAuthertication(value);
}

void HttpFileRequest::setPrivateKey(const std::string& value) {
  FLUVIA_LOG(0, "set Private Key:%s", value.c_str());
  method.setPrivateKey(value);
}

void HttpFileRequest::setKeyType(const std::string& value) {
  FLUVIA_LOG(0, "set Key Type:%s", value.c_str());
  method.setKeyType(value);
}

void HttpFileRequest::setIpResolve(const std::string& value) {
  FLUVIA_LOG(0, "set ip resolve:%s", value.c_str());
  method.setIpResolve(value);
}

}  // namespace webs

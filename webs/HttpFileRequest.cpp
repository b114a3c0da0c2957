#include "webs/HttpFileRequest.h"

#include <cerrno>

#include "util/Log.h"
#include "util/PausePoint.h"
#include "webs/TransferResult.h"

namespace webs {

namespace {

constexpr int kFeatureOtherReports = 1;

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
void HttpFileRequest::noteConnectFailure() {
  if (method.getErrno() == EHOSTUNREACH) {
    downloadStatus = DOWNLOAD_CONNECT_FAIL;
    FLUVIA_LOG_AS("sendRequest", 2, "set status DOWNLOAD_CONNECT_FAIL");
  } else if (method.getErrno() == ECONNREFUSED) {
    downloadStatus = DOWNLOAD_CONNECT_REJECT;
    FLUVIA_LOG_AS("sendRequest", 2, "set status DOWNLOAD_CONNECT_REJECT");
  }
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
  const bool otherReports = featureFlag == kFeatureOtherReports;
  switch (result) {
    case TRANSFER_OK:
    case TRANSFER_PARTIAL:
      FLUVIA_LOG_AS("sendRequest", 0, "[QV]return EVENT_STREAM_PARTIAL_END");
      return util::EVENT_STREAM_PARTIAL_END;
    case TRANSFER_STALLED:
      downloadStatus = DOWNLOAD_NOT_REVEIVE_DATA;
      if (!otherReports) return util::STREAM_FILE_NOT_FOUND;
      FLUVIA_LOG_AS("sendRequest", -4, "FBZ Case DOWNLOAD_NOT_REVEIVE_DATA");
      return util::STREAM_TIMEOUT;
    case TRANSFER_BROKEN:
      downloadStatus = DOWNLOAD_CONNECTION_DEAD;
      FLUVIA_LOG_AS("sendRequest", -4, "connection is dead");
      return util::STREAM_DEAD;
    case TRANSFER_UNKNOWN_HOST:
      downloadStatus = DOWNLOAD_DNS_UNABLE_RESOLVED;
      if (!otherReports) {
        FLUVIA_LOG_AS("sendRequest", -4, "NO FBZ CASE, couldn't resolve host");
        return util::STREAM_FILE_NOT_FOUND;
      }
      FLUVIA_LOG_AS("sendRequest", -4, "FBZ Case DOWNLOAD_DNS_UNABLE_RESOLVED");
      return util::STREAM_ERROR;
    case TRANSFER_NOT_CONNECTED:
      noteConnectFailure();
      FLUVIA_LOG_AS("sendRequest", -4, "notify EVENT_STREAM_ERROR");
      return util::STREAM_ERROR;
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

}  // namespace webs

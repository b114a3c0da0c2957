#include <thread>

#include "util/Log.h"
#include "util/PausePoint.h"
#include "webs/HttpFileRequest.h"

namespace webs {

namespace {

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

}  // namespace webs

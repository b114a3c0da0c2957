#ifndef FLUVIAFS_WEBS_HTTPFILEREQUEST_H_
#define FLUVIAFS_WEBS_HTTPFILEREQUEST_H_

#include <string>

#include "util/Relaxed.h"
#include "util/Semaphore.h"
#include "webs/FileRequest.h"
#include "webs/MethodRequest.h"
#include "webs/Requestor.h"

namespace webs {

// Outcome of the last run; also an HTTP status of 400 and above.
enum DownloadStatus {
  DOWNLOAD_OK = 0,
  DOWNLOAD_TIMEOUT = -2,
  DOWNLOAD_NOT_REVEIVE_DATA = -3,
  DOWNLOAD_CONNECTION_DEAD = -5,
  DOWNLOAD_DNS_UNABLE_RESOLVED = -6,
  DOWNLOAD_CONNECT_FAIL = -7,
  DOWNLOAD_CONNECT_REJECT = -8
};

// Producer of an http:// or https:// resource. Each run is one GET: its body goes to the receiver
// from the requested offset on, and its outcome becomes one stream event.
//
// Threads:   startStreaming and receive on the buffer queue's worker; everything else from any
//            thread. Only startStreaming, stopStreaming and release take the object's lock. The run
//            holds it while it sends its last event, which may take hours. Every setting, figure
//            and flag is an atomic or has a small lock of its own and never waits.
// Ownership: owns its session; the receiver is not owned.
// Invariant: finished is false exactly while a transfer runs or its event is being sent.
class HttpFileRequest : public FileRequest, public Requestor, public util::Semaphore {
 public:
  explicit HttpFileRequest(const std::string& resource);

  // Calls stopStreaming().
  void release() override;
  // Runs one GET from offset, count bytes or to the end if count is 0. Waits for the whole
  // transfer. Returns 0, or -1 without a receiver.
  int startStreaming(int versionTag, long long offset, long long count) override;
  // Ends the run and waits until its event was sent. Returns 0.
  int stopStreaming() override;
  bool isRandomAccess() override { return seekable; }
  long long getContentSize() override { return contentSize; }
  void setBreak() override;
  bool getStopWait() override { return method.getStopWait(); }
  void setStopWait() override { method.setStopWait(); }
  int getType() override { return SOURCE_HTTP; }
  // Prepares the session. Always returns true.
  bool initialize() override;

  int receive(void* data, int size, void* handle, int versionTag) override;
  void readyReceive() override {}
  void finishReceive() override {}

  // A DownloadStatus or an HTTP status of 400 and above.
  int getDownloadStatus();
  // Same as the session's functions with these names.
  int getUrlIP(char* ipBuf) { return method.getUrlIP(ipBuf); }
  long long getSpeed() { return method.getSpeed(); }
  std::string getContentType() { return method.getContentType(); }
  std::string getServerName() { return method.getServerName(); }
  int getResponseHeader(char* buf, int size, int* len) {
    return method.getResponseHeader(buf, size, len);
  }

  // 1 selects the short time-outs and the other error reporting.
  void setFeatureFlag(int flag);
  void setSpeed(long long bytesPerSecond);
  void setUserAgent(const std::string& value);
  void setProxy(const std::string& value);
  void setCookie(const std::string& value);
  void setCAPath(const std::string& value);
  void setCA(const std::string& value);
  void setClientAuthertication(const std::string& value);
  void setPrivateKey(const std::string& value);
  void setKeyType(const std::string& value);
  void setIpResolve(const std::string& value);

 private:
  int sendRequest() EXCLUDES(this);
  int reportNotConnected();
  int reportStall();
  int reportUnknownHost();
  int reportResult(int result);
  void sendEvent(int event);
  bool acceptAnswer(void* handle);
  bool deliver(char* data, int size, int versionTag);
  void learnResource(int code, void* handle);
  void decideSizeAndSeeking(int code, long long size);
  long long startOfBody(int code, void* handle) const;
  bool carriesOnlyTheRest(void* handle) const;
  // True if a stop is announced and has not happened yet.
  bool stopPending() const { return method.getStopWait() && method.isActive(); }

  std::string userAgent GUARDED_BY(settingsLock);
  std::string proxy GUARDED_BY(settingsLock);
  std::string cookie GUARDED_BY(settingsLock);
  MethodRequest method;
  long long received;
  util::Relaxed<long long> contentSize;
  util::Relaxed<bool> seekable;
  long long requestCount;
  long long requestOffset;
  bool firstReceived;
  int version;
  util::Relaxed<bool> alive;
  bool finished GUARDED_BY(this);
  util::Relaxed<int> downloadStatus;
  util::Relaxed<int> featureFlag;

  util::Semaphore settingsLock;
  // State of the current run, on its thread only: a piece of the body came; no range was requested
  // although the offset is not 0; the body begins before the offset.
  bool runReceived;
  bool startedPlain;
  bool skipping;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_HTTPFILEREQUEST_H_

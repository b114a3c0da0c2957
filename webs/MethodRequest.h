#ifndef FLUVIAFS_WEBS_METHODREQUEST_H_
#define FLUVIAFS_WEBS_METHODREQUEST_H_

#include <sys/time.h>

#include <cstddef>
#include <initializer_list>
#include <queue>
#include <string>
#include <vector>

#include "util/Relaxed.h"
#include "util/Semaphore.h"
#include "webs/LimitSpeed.h"
#include "webs/MovingAverage.h"
#include "webs/Requestor.h"

struct curl_slist;

namespace webs {

// Type of a web-service parameter; stored, but not used.
enum ValueType { VALUE_STRING = 0, VALUE_NUMBER = 1, VALUE_BOOL = 2 };

// One query parameter of a web-service request.
struct RequestParameter {
  std::string key;
  std::string value;
  ValueType type;
};

// Returns the value of the header line "Name: value" at line, without the white space around it: a
// zero-terminated text that the caller frees, null if memory runs out.
char* _copy_header_value(const char* line);  // NOLINT(bugprone-reserved-identifier)

// One HTTP session: performs one blocking GET at a time on the caller's thread, optionally of a
// byte range, and passes the body to a receiver. Aborts stalled transfers, keeps the response
// headers, measures and limits the speed.
//
// Threads:   one thread at a time inside executeGet; stop, setBreak, setStopWait, the settings and
//            the getters from any thread. Only stop() waits for the transfer.
// Ownership: owns the libcurl handle; the receiver is not owned and must outlive every transfer.
// Invariant: a socket is in sockets exactly while it is open, so stop() never uses a descriptor
//            that was closed and reused.
class MethodRequest : public util::Semaphore {
 public:
  MethodRequest();
  // No transfer may run.
  ~MethodRequest() override;
  // Appends a query parameter to the next request; used if buildParam2URL(true) was called.
  virtual void pushParam(const std::string& key, const std::string& value, ValueType type);
  // Does nothing here; for derived requests.
  virtual void clear();

  // Sets the receiver and creates the libcurl handle; does nothing when called again. executeGet
  // gets the URL in each call.
  void initialize(Requestor* receiver, const std::string& resource);
  void setRequestor(Requestor* receiver) { requestor = receiver; }
  // Creates the libcurl handle and sets all its initial options. Public because initialize needs
  // it.
  void InitCurl(const char* resource);

  // Gets resource from byte start to byte end, both inclusive; end 0 is the end of the resource.
  // Requests a range only if setSupportSeek(true) was called. Waits for the whole transfer. Returns
  // a TransferResult: a libcurl code, an HTTP status of 400 and above, or one of the library's own
  // codes.
  int executeGet(const std::string& resource, long long start, long long end, int versionTag);
  // Announces the next executeGet. From here on stop() ends it, also before it has begun, and waits
  // for it. executeGet must follow.
  void arm() EXCLUDES(this);
  // Ends the running or announced transfer and waits until executeGet has left it. Shuts down the
  // session's sockets, so that a silent server does not delay it. While a host name is being
  // resolved this takes up to a second.
  void stop() EXCLUDES(this);
  // Lets the stall check abort the transfer after 2 s without data, once.
  void setBreak();
  // Announces a stop; stop() clears it.
  void setStopWait();
  bool getStopWait() const { return stopWait; }

  bool isActive() const { return active; }
  bool isRangeGet() const { return rangeGet; }
  long getErrno() const { return socketErrno; }
  // Size in bytes as of the last successful transfer to the end of the resource.
  long long getFileSize() const { return fileSize; }
  // HTTP status of the last transfer; 0 if there was none.
  int getResponseCode() const { return responseCode; }

  // Settings. They apply from the next transfer on: while one runs they are queued, and applied in
  // the order of the calls when it ends. None of them waits for a transfer.
  void setUserAgent(const std::string& value);
  void setProxy(const std::string& value);
  void setCookie(const std::string& value);
  // Set the certificate authorities and enable certificate checks.
  void setCAPath(const std::string& value);
  void setCA(const std::string& value);
  void setClientAuthertication(const std::string& value);
  void setPrivateKey(const std::string& value);
  void setKeyType(const std::string& value);
  // "IPv4", "IPv6" or "whatever"; anything else changes nothing.
  void setIpResolve(const std::string& type);
  // Switches the address family for a retry. With family 0 (any) false also switches, to IPv6, and
  // ipType is unchanged. This is intentional.
  void changeIptype(bool alternate);
  // 1 selects the short time-outs: 6 s to connect, from the next InitCurl on, and 4 s without data,
  // from the next executeGet on.
  void setMethodFeatureFlag(int flag);

  // Response headers.
  // True if there is a length line, in one of the four spellings that are recognised.
  bool checkFromContentLength() const;
  // False if there is no header line, or the first one denies ranges; true otherwise.
  bool seekAbleCheckFromResponse() const;
  // Total size from the range line of a partial response (at most 2147483647), 0 without one.
  long long getSizeFromResponseRange() const;
  // Stores the first byte from the range line of a partial response, in any spelling. False without
  // one.
  bool getStartFromResponseRange(long long* first) const;
  // Sets whether the next transfers request a range.
  void setSupportSeek(bool support);
  // Text of the "Server:" header. Once found it stays for the life of the session.
  std::string getServerName();
  std::string getContentType() const;
  // Copies at most size bytes of the raw headers, without a terminator; sets *len to their whole
  // length. Always returns 0.
  int getResponseHeader(char* buf, int size, int* len) const;
  // Stores the text of the IPv4 address of the socket that any session of the process opened last,
  // at most 16 bytes. Returns 0, or -1 without a handle or buffer.
  int getUrlIP(char* ipBuf) const;

  // Speed, in bytes per second.
  void setSpeed(long long bytesPerSecond);
  void showSpeed(int size);
  long long getSpeed();

  // Web-service requests.
  // Calls clear(), then the receiver's readyReceive().
  void reset();
  void buildParam2URL(bool append) { param2Url = append; }
  // Returns base followed by the pending parameters, unescaped, and clears them.
  std::string buildUrl(const std::string& base);
  // Does nothing.
  void executePost(const std::string& resource, char* data, int size);

  // Callbacks of the transfer, on its thread, with data as libcurl passes it.
  // Returns the bytes that the receiver consumed; anything but size ends the transfer.
  int sendData(void* data, int size);
  // Returns the number of bytes taken, which is all of them.
  size_t headerContentIn(const void* data, size_t size, size_t nmemb);
  // Checks for a stall while data is expected and while connecting. False: the transfer must end.
  bool progressCount();
  bool timeoutCount();

  // For the transfer of that handle: the HTTP status (0: none) and the stated length of the body in
  // bytes (negative: none). For receivers, which get the handle with every piece.
  static int responseCodeOf(void* handle);
  static double statedLengthOf(void* handle);

 private:
  friend struct MethodRequestCallbacks;
  struct Option;
  struct Outcome;

  void setOptions(std::initializer_list<Option> options) EXCLUDES(this);
  void applyOption(const Option& option);
  static Option ownTlsSessions();
  void beginTransfer() EXCLUDES(this);
  void endTransfer() EXCLUDES(this);
  int performGet(const std::string& resource, long long start, long long end);
  int evaluate(long long start, Outcome* outcome);
  bool nobodyAnswered(int code) const;
  int resultOf(const Outcome& outcome) const;
  int openSocket(int family, int type, int protocol) EXCLUDES(this);
  int closeSocket(int socketHandle) EXCLUDES(this);
  void shutDownSockets() REQUIRES(this);
  bool mayGoOn() EXCLUDES(this);
  void snapshotSpeed();
  std::string headerText() const;
  void dropParams();

  util::Relaxed<long long> maxSpeed;
  util::Relaxed<bool> breakFlag;
  util::Relaxed<bool> stopWait;
  util::Relaxed<int> ipType;
  util::Relaxed<long long> fileSize;
  util::Relaxed<bool> rangeGet;
  util::Relaxed<bool> supportSeek;
  util::Relaxed<long> socketErrno;
  MovingAverage speedAverage;
  struct timeval lastSampleTime;
  util::Relaxed<long long> showSpeedValue;
  long long windowBytes;
  util::Relaxed<int> featureFlag;
  std::vector<unsigned char> byteBuffer;
  util::Relaxed<bool> active;
  bool initialized;
  std::queue<RequestParameter*> params;
  bool param2Url;
  LimitSpeed limiter;
  Requestor* requestor;
  std::string url;
  std::string contentType GUARDED_BY(infoLock);
  std::string serverName GUARDED_BY(infoLock);
  int version;
  // One byte more than the headers may use: a terminator always follows them.
  char headerBuf[8192 + 1] GUARDED_BY(infoLock);
  unsigned int headerLen GUARDED_BY(infoLock);
  int noDataLimit;
  void* curl;
  int lifeCount;
  int timeoutNum;
  unsigned int lastStamp;
  struct curl_slist* http200Aliases;

  // Guards what the getters copy while the transfer writes it. A leaf lock.
  util::Semaphore infoLock;
  // The transfer is announced; it is inside libcurl. Unlike active, they are not cleared by a stop.
  bool armed GUARDED_BY(this);
  bool running GUARDED_BY(this);
  std::vector<Option> keptOptions GUARDED_BY(this);
  std::vector<int> sockets GUARDED_BY(this);
  // Sockets opened by the current transfer; its thread only.
  int socketsOpened;
  // An exception ended one of its callbacks; its thread only.
  bool callbackFailed;
  util::Relaxed<int> responseCode;
  // libcurl's own average speed, copied on the transfer thread: other threads must not query
  // libcurl.
  util::Relaxed<long long> curlSpeed;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_METHODREQUEST_H_

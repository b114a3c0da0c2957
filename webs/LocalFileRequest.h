#ifndef FLUVIAFS_WEBS_LOCALFILEREQUEST_H_
#define FLUVIAFS_WEBS_LOCALFILEREQUEST_H_

#include <fstream>
#include <string>

#include "util/Relaxed.h"
#include "util/Semaphore.h"
#include "util/ThreadObject.h"
#include "webs/FileRequest.h"

// Producer of one file of the local file system: a thread of its own reads it in chunks.
//
// A run delivers bytes from its offset on until exactly the requested count was delivered, the file
// ends, the receiver refuses, or the run is stopped. The first two end with
// EVENT_STREAM_PARTIAL_END.
//
// Threads:   startStreaming and stopStreaming on the buffer queue's threads, the run on the
//            worker's. The lock is held across one read and its delivery, so a stop waits for the
//            current chunk. The end event is sent without the lock, because it may park for hours.
// Ownership: owns file and thread.
// Invariant: at most one run is the current one; results of a run with an older number are ignored.
class LocalFileRequest : public FileRequest, public util::Semaphore {
 public:
  explicit LocalFileRequest(const std::string& path);
  ~LocalFileRequest() override;

  // Opens and measures the file. Returns false unless it is a readable regular file or block
  // device.
  bool initialize() override;
  void release() override;
  // Starts a run and returns at once. Returns 0, also if the file cannot be opened again: no data
  // and no event follow then, which is intentional. Returns -1 without a receiver, while a run is
  // active, or without a thread.
  int startStreaming(int version, long long offset, long long count) override;
  int stopStreaming() override;
  bool isRandomAccess() override { return true; }
  // Size in bytes modulo 2^32; the modulo is intentional.
  long long getContentSize() override { return contentSize; }
  void setBreak() override {}
  bool getStopWait() override { return false; }
  void setStopWait() override {}
  int getType() override { return SOURCE_LOCAL; }

  int getVersion() const { return version; }
  unsigned int getRequestCount() const { return requestCount; }

  // Thread function of the worker; self is the LocalFileRequest. Returns null.
  static void* perform(void* self);

 private:
  friend class LocalFileRequestProbe;

  static constexpr unsigned int kChunk = 16384;

  bool openFile() REQUIRES(this);
  bool reopen() REQUIRES(this);
  void deliver();
  // Reads and delivers one chunk of the given run. Returns the bytes, or -1 if the run is over.
  int read(char* buffer, unsigned int size, int version, unsigned int run) EXCLUDES(this);
  bool runIsOver(unsigned int run) REQUIRES(this);
  void notifyPerformEnd(unsigned int run) EXCLUDES(this);

  std::ifstream file GUARDED_BY(this);
  util::ThreadObject worker;
  util::Relaxed<unsigned int> requestCount;
  util::Relaxed<unsigned int> contentSize;
  util::Relaxed<int> version;
  bool stopped GUARDED_BY(this);
  // A run was started and has neither ended nor been stopped.
  bool running GUARDED_BY(this);
  // Number of the current run: distinguishes it from an older one that is still ending.
  unsigned int currentRun GUARDED_BY(this);
};

#endif  // FLUVIAFS_WEBS_LOCALFILEREQUEST_H_

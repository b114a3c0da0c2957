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
// A run delivers bytes from its offset on until the requested count is met exactly, the file ends,
// the receiver refuses, or it is stopped; the first two end with EVENT_STREAM_PARTIAL_END.
//
// Threads:   startStreaming and stopStreaming on the buffer queue's threads, the run on the
//            worker's. The lock is held across one read and its hand-over, so a stop waits for the
//            chunk in progress; the end event is sent without it, because it may park for hours.
// Ownership: owns file and thread.
// Invariant: at most one run is the current one; what a run of an older number finds out is
// ignored.
class LocalFileRequest : public FileRequest, public util::Semaphore {
 public:
  explicit LocalFileRequest(const std::string& path);
  ~LocalFileRequest() override;

  // Opens and measures the file. False for anything but a readable regular file or block device.
  bool initialize() override;
  void release() override;
  // Starts a run and returns at once: 0, also when the file cannot be opened again (no data and no
  // event will come, wanted); -1 without a receiver, while a run is active, or without a thread.
  int startStreaming(int version, long long offset, long long count) override;
  int stopStreaming() override;
  bool isRandomAccess() override { return true; }
  // Size in bytes modulo 2^32, wanted.
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
  // Reads and hands over one chunk of the given run. Returns the bytes, or -1 when the run is over.
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
  // Number of the current run: tells it from one that is still on its way out.
  unsigned int currentRun GUARDED_BY(this);
};

#endif  // FLUVIAFS_WEBS_LOCALFILEREQUEST_H_

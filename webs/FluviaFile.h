#ifndef FLUVIAFS_WEBS_FLUVIAFILE_H_
#define FLUVIAFS_WEBS_FLUVIAFILE_H_

#include <atomic>
#include <string>

#include "util/Relaxed.h"
#include "util/Semaphore.h"
#include "webs/AsyncReadRequest.h"

class FileRequest;

namespace webs {

class DullFile;

// A stream that cannot seek may be moved forward by at most this many bytes, and back only into
// this many bytes at its beginning.
constexpr long long kSeekSpan = 0x100000;

// One handle: a read position of its own on a shared file.
//
// Threads:   any. The object's lock guards seek and the position update of asynchronous reads; the
//            position itself is an atomic.
// Ownership: counted by uses: one of its owner, one for each call inside it and one for each of its
//            requests. The last use deletes it. The shared file belongs to the registry.
class FluviaFile : public util::Semaphore {
 public:
  // bufferSize is in bytes and used if the shared file must be created.
  explicit FluviaFile(int bufferSize);
  ~FluviaFile() override;

  void use() { uses.fetch_add(1, std::memory_order_relaxed); }
  void unuse();

  // Acquires the shared file of url. Returns false if there is none; the calls below then return
  // -4.
  bool open(const std::string& url);
  // Ends this handle's reads and releases the shared file.
  void close();
  int read(char* buffer, unsigned int size, unsigned int* readBytes);
  // The callback may free *requestId before this returns; *issued (may be null) receives the same
  // id.
  int readAsync(char* buffer, unsigned int size, ReadCallback callback, void* userData,
                int* requestId, int* issued = nullptr);
  int cancelRead(int requestId);
  int seek(long long offset, long long* currentOffset);
  long long getSize();
  int getBufferSize();
  int getBufferedSize();
  long long getPosition() const { return position; }
  void volatileContent();
  void cleanupCache();
  // The shared file's producer, or null. Valid while the shared file is in use.
  FileRequest* getRequest();
  // Keep a text for the caller of the C API: valid until the same call on this handle or its close.
  const char* keepContentType(const std::string& value);
  const char* keepServerName(const std::string& value);
  // Moves the position unless a seek has moved it meanwhile.
  void newPosMovedByDullFile(long long oldPosition, long long newPosition);

  // Holds the shared file of a handle during a call: null once the handle is closed.
  class SharedUse {
   public:
    explicit SharedUse(FluviaFile* file);
    ~SharedUse();
    SharedUse(const SharedUse&) = delete;
    SharedUse& operator=(const SharedUse&) = delete;
    DullFile* operator->() const { return file_; }
    DullFile* get() const { return file_; }
    explicit operator bool() const { return file_ != nullptr; }

   private:
    FluviaFile* handle_;
    DullFile* file_;
  };

  // Set by close(): no further read of this handle begins.
  bool isClosing() const { return closing; }

 private:
  void followLiveStream(DullFile* file);
  int seekLocked(DullFile* file, long long offset, long long* currentOffset) REQUIRES(this);
  void leaveShared();

  // The shared file, null before open() and after close().
  std::atomic<DullFile*> dullFile;
  // The same, with a use of it, until the last of insiders has left: the open handle and each
  // SharedUse. One that enters counts first and reads dullFile then; close() sets that to null
  // first and leaves then. So none has the file without being counted.
  std::atomic<DullFile*> keptFile;
  std::atomic<int> insiders;
  int bufferSize;
  util::Relaxed<long long> position;
  std::string text;
  long long miniSeqAtRead;
  util::Relaxed<bool> liveFlag;

  util::Semaphore useLock;  // leaf
  std::string contentType GUARDED_BY(useLock);
  std::string serverName GUARDED_BY(useLock);
  util::Relaxed<bool> closing;
  std::atomic<int> uses;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_FLUVIAFILE_H_

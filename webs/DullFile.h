#ifndef FLUVIAFS_WEBS_DULLFILE_H_
#define FLUVIAFS_WEBS_DULLFILE_H_

#include <atomic>
#include <list>
#include <string>

#include "util/BufferQueue.h"
#include "util/Semaphore.h"
#include "util/TaskQueue.h"
#include "webs/AsyncReadRequest.h"
#include "webs/ReadTurns.h"

class FileRequest;

namespace webs {

// One opened resource: its buffer queue, its producer, and the handles that share them.
//
// Threads:   any. The file lock (this object) is held for a whole read, so the reads of all handles
//            of a resource take turns. readLock guards the references and the current reader, and
//            is held only briefly. Asynchronous reads run on the thread engine in the order they
//            were issued, at most one of a file and five of the process at a time.
// Ownership: owned by the registry. Uses (calls and requests inside) keep it alive after its last
//            handle has been closed; the last use closes and destroys it.
class DullFile : public util::Semaphore {
 public:
  explicit DullFile(int bufferSize);
  ~DullFile() override;

  // Creates the producer of url and binds the buffer to it. Returns false if either cannot be used;
  // releases nothing in that case.
  bool open(const std::string& url);
  // Withdraws this file's tasks, stops the buffer and releases the producer.
  void close();

  // Add and remove a handle. dereference aborts the read that this handle began last.
  void reference(FluviaFile* file) EXCLUDES(readLock);
  void dereference(FluviaFile* file) EXCLUDES(readLock);
  int referenceNumber() const { return referenceCount; }

  // Waits for a read's turn among the handles of this file. Construct it before taking the file
  // lock.
  class Turn : public ReadTurns::Turn {
   public:
    Turn(DullFile* file, const FluviaFile* reader, long long position, unsigned int size,
         const AsyncReadRequest* record = nullptr)
        : ReadTurns::Turn(&file->turns, reader, position, size, record,
                          record == nullptr ? nullptr : &DullFile::isGivenUp) {}
  };

  // Keep the object alive across a call. unuse() returns true for the last use: that caller
  // destroys it.
  void use() { uses.fetch_add(1, std::memory_order_relaxed); }
  bool unuse() { return uses.fetch_sub(1, std::memory_order_acq_rel) == 1; }

  // Reads at offset for a handle; the caller holds the file lock. Returns what the buffer queue
  // returns. Returns -4 for a handle that does not refer to this file, and if an abort has met the
  // read since its turn began (turn is null for a read without one).
  int read(char* buffer, unsigned int size, long long offset, unsigned int* readBytes,
           FluviaFile* reader, const Turn* turn = nullptr) EXCLUDES(readLock);
  // Queues a read for the thread engine. Writes its id to *requestId before the callback can run.
  // Returns -4 if all ids are in use or the handle is being closed.
  int readAsync(char* buffer, unsigned int size, long long offset, ReadCallback callback,
                void* userData, int* requestId, FluviaFile* reader, int* issued = nullptr);
  // Cancels a request. Id 0 aborts the read of this handle (any read while the size is unknown). A
  // request that was still queued is called back twice. Returns 0, or -1 for an invalid id.
  int cancelRead(int requestId, FluviaFile* reader);
  // Ends all reads of a handle that is being closed: answers its queued requests, aborts its reads
  // until none is inside the buffer, and waits for its callbacks unless called from a callback.
  void withdrawReads(FluviaFile* reader);

  // These first determine size and seekability by reading one byte, and may wait for it. reader is
  // the handle that asks, if any; closing it ends the wait.
  bool randomAccessable(FluviaFile* reader = nullptr);
  long long getSize(FluviaFile* reader = nullptr);

  long long getMiniBufferSeq() { return rbuffer.getMiniBlockOffset(); }
  int getBufferSize() const { return rbuffer.getBufferSize(); }
  // Bytes buffered from position on, at least 0.
  int getBufferedSize(long long position);
  void volatileContent() { rbuffer.setVolContent(); }
  bool isVolatile() const { return rbuffer.isVolatile(); }
  // The comparison is exact and case-sensitive.
  bool equalTo(const std::string& url) const { return url == uri; }
  void resetError() { rbuffer.resetErrorStatus(); }
  FileRequest* getRequest() const { return request; }
  std::string getUri() const { return uri; }
  void dumpDebugInfo() { rbuffer.dumpBuffer(true); }

 private:
  friend class AsyncReads;

  int readFor(AsyncReadRequest* record, char* buffer, unsigned int size, long long offset,
              unsigned int* readBytes, FluviaFile* reader, const Turn* turn) EXCLUDES(readLock);
  bool beginReading(AsyncReadRequest* record, FluviaFile* reader, const Turn* turn,
                    unsigned long long* number, int* refusal) EXCLUDES(readLock);
  void endReading() EXCLUDES(readLock);
  class EndOfReading {
   public:
    explicit EndOfReading(DullFile* file) : file_(file) {}
    ~EndOfReading() { file_->endReading(); }
    EndOfReading(const EndOfReading&) = delete;
    EndOfReading& operator=(const EndOfReading&) = delete;

   private:
    DullFile* file_;
  };
  bool isEmptyLocal() const;

  // The handle that asks for the first byte, and the number of that probe.
  struct Prober {
    FluviaFile* reader;  // null: the registry
    unsigned long long number = 0;
    bool meant = false;  // an abort was meant for it: it is not repeated
  };
  // One attempt of a probe. Also ends if the caller's thread is cancelled while it waits.
  class RunningProbe {
   public:
    RunningProbe(DullFile* file, FluviaFile* reader) : file_(file), entry_(1, Prober{reader}) {}
    ~RunningProbe();
    RunningProbe(const RunningProbe&) = delete;
    RunningProbe& operator=(const RunningProbe&) = delete;
    // Returns false if its handle is being closed.
    bool begin();
    unsigned long long number() const { return number_; }
    // True if an abort that was meant for other reads ended it.
    bool wasBrokenInPassing();

   private:
    DullFile* file_;
    std::list<Prober> entry_;
    unsigned long long number_ = 0;
  };
  void probe(FluviaFile* reader) EXCLUDES(readLock);
  bool isProbing(const FluviaFile* reader) const REQUIRES(readLock);
  bool isBrokenOneInside() const REQUIRES(readLock);
  void waitForBrokenOnes() REQUIRES(readLock);
  // Marks all numbers used so far as aborted. Returns the highest one, which the caller passes to
  // the buffer.
  unsigned long long breakAll() REQUIRES(readLock);
  void breakProbes(const FluviaFile* reader) EXCLUDES(readLock);
  void breakUntilEnded(unsigned long long number) EXCLUDES(readLock);
  void breakReader(FluviaFile* reader) EXCLUDES(readLock);
  void breakRequest(AsyncReadRequest* record, FluviaFile* reader) EXCLUDES(readLock);

  // The engine task of a request, and its steps (DullFileAsync.cpp).
  static void perform(void* record, util::TEngineEvent_E event);
  static void runRead(AsyncReadRequest* record);
  static bool isGivenUp(const void* record);

  long long unused;
  std::string uri;
  util::Relaxed<int> referenceCount;
  std::list<FluviaFile*> references GUARDED_BY(readLock);
  util::Semaphore readLock;
  FileRequest* request;
  util::BufferQueue rbuffer;
  FluviaFile* currentReader GUARDED_BY(readLock);

  // The handle that is inside the buffer queue now, its request, and the number of that read.
  // Unlike currentReader they are reset when the read has ended.
  FluviaFile* nowReader GUARDED_BY(readLock);
  AsyncReadRequest* nowRequest GUARDED_BY(readLock);
  unsigned long long nowNumber GUARDED_BY(readLock);
  // Numbers of reads and probes: the last one used, and the highest one aborted.
  unsigned long long lastNumber GUARDED_BY(readLock);
  unsigned long long brokenUpTo GUARDED_BY(readLock);
  std::list<Prober> probers GUARDED_BY(readLock);
  std::atomic<int> uses;
  ReadTurns turns;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_DULLFILE_H_

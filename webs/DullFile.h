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
//            of a resource take turns; readLock guards references and what reads now and is held
//            only briefly. Async reads run on the thread engine, at most one of a file and five of
//            the process at a time, in the order they were asked.
// Ownership: owned by the registry. Uses (calls and requests inside) keep it alive after its last
//            handle has gone; the last one to leave closes and destroys it.
class DullFile : public util::Semaphore {
 public:
  explicit DullFile(int bufferSize);
  ~DullFile() override;

  // Makes the producer of url and binds the buffer to it. False when either cannot be used; nothing
  // is released then.
  bool open(const std::string& url);
  // Withdraws this file's tasks, stops the buffer and releases the producer.
  void close();

  // Register and remove a handle. dereference breaks the read that this handle began last.
  void reference(FluviaFile* file) EXCLUDES(readLock);
  void dereference(FluviaFile* file) EXCLUDES(readLock);
  int referenceNumber() const { return referenceCount; }

  // Waits for a read's turn among the handles of this file; to be taken before the file lock.
  class Turn : public ReadTurns::Turn {
   public:
    Turn(DullFile* file, const FluviaFile* reader, long long position, unsigned int size,
         const AsyncReadRequest* record = nullptr)
        : ReadTurns::Turn(&file->turns, reader, position, size, record,
                          record == nullptr ? nullptr : &DullFile::isGivenUp) {}
  };

  // Keep the object alive across a call. unuse() returns true to the last one, who destroys it.
  void use() { uses.fetch_add(1, std::memory_order_relaxed); }
  bool unuse() { return uses.fetch_sub(1, std::memory_order_acq_rel) == 1; }

  // Reads at offset for a handle; the caller holds the file lock. Returns what the buffer queue
  // returns; -4 for a handle that does not refer to this file, or when an abort has met the read
  // since its turn (null: it has none) began.
  int read(char* buffer, unsigned int size, long long offset, unsigned int* readBytes,
           FluviaFile* reader, const Turn* turn = nullptr) EXCLUDES(readLock);
  // Queues a read for the thread engine. Writes its id to *requestId before the callback can run.
  // -4 when all ids are in use or the handle is being closed.
  int readAsync(char* buffer, unsigned int size, long long offset, ReadCallback callback,
                void* userData, int* requestId, FluviaFile* reader, int* issued = nullptr);
  // Cancels a request, or with id 0 breaks the read of this handle (any read while the size is
  // unknown). A request that was still queued is called back twice. Returns 0, or -1 for an id that
  // cannot be one.
  int cancelRead(int requestId, FluviaFile* reader);
  // Ends everything of a handle that is being closed: answers its queued requests, breaks its reads
  // until none is inside the buffer, and, unless called from a callback, waits for its callbacks.
  void withdrawReads(FluviaFile* reader);

  // These learn size and seekability first, by reading one byte, which may wait for it. reader is
  // the handle that asks, if one does: its close ends the wait.
  bool randomAccessable(FluviaFile* reader = nullptr);
  long long getSize(FluviaFile* reader = nullptr);

  long long getMiniBufferSeq() { return rbuffer.getMiniBlockOffset(); }
  int getBufferSize() const { return rbuffer.getBufferSize(); }
  // Bytes held from position on, at least 0.
  int getBufferedSize(long long position);
  void volatileContent() { rbuffer.setVolContent(); }
  bool isVolatile() const { return rbuffer.isVolatile(); }
  // Exact and case-sensitive.
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

  // Who asks for the first byte, and the number of that probe.
  struct Prober {
    FluviaFile* reader;  // null: the registry
    unsigned long long number = 0;
    bool meant = false;  // by a break: it does not begin again
  };
  // One try of a probe. Also leaves when the caller's thread is cancelled while it waits.
  class RunningProbe {
   public:
    RunningProbe(DullFile* file, FluviaFile* reader) : file_(file), entry_(1, Prober{reader}) {}
    ~RunningProbe();
    RunningProbe(const RunningProbe&) = delete;
    RunningProbe& operator=(const RunningProbe&) = delete;
    // False when its handle is being closed.
    bool begin();
    unsigned long long number() const { return number_; }
    // A break that was meant for others met it.
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
  // Notes that all numbers given so far are broken; the caller tells the buffer.
  unsigned long long breakAll() REQUIRES(readLock);
  void breakProbes(const FluviaFile* reader) EXCLUDES(readLock);
  void breakUntilEnded(unsigned long long number) EXCLUDES(readLock);
  void breakReader(FluviaFile* reader) EXCLUDES(readLock);
  void breakRequest(AsyncReadRequest* record, FluviaFile* reader) EXCLUDES(readLock);

  // The task of a request, and its way when it runs (DullFileAsync.cpp).
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

  // Who is inside the buffer queue now, for which request, and the number of that read. Unlike
  // currentReader they are taken back when the read is over.
  FluviaFile* nowReader GUARDED_BY(readLock);
  AsyncReadRequest* nowRequest GUARDED_BY(readLock);
  unsigned long long nowNumber GUARDED_BY(readLock);
  // Numbers of reads and probes: the last one given, and up to which a break has named them.
  unsigned long long lastNumber GUARDED_BY(readLock);
  unsigned long long brokenUpTo GUARDED_BY(readLock);
  std::list<Prober> probers GUARDED_BY(readLock);
  std::atomic<int> uses;
  ReadTurns turns;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_DULLFILE_H_

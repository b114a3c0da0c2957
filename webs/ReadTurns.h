#ifndef FLUVIAFS_WEBS_READTURNS_H_
#define FLUVIAFS_WEBS_READTURNS_H_

#include <list>

#include "util/BufferQueue.h"
#include "util/Semaphore.h"

namespace webs {

class FluviaFile;

// The order in which the handles of one resource read.
//
// Handles that read on their own would take the one stream from each other with every read, and
// each time it starts anew. So a read whose bytes are held goes before one whose are not; a read
// that needs new data gives readers that lag behind, but not yet outside the buffer, a moment to
// follow; and after a restart the stream stays where it is for a while, for one buffer of new
// bytes. Nobody waits for longer than each of the others needs for such a run, or for more than a
// moment when they do nothing.
//
// Only the order is decided here: the file lock still keeps reads apart, and a handle that is alone
// does not come here.
//
// Threads:   any. Its lock is taken before the buffer queue's feedLock and after no other.
// Ownership: readers are compared, never dereferenced.
class ReadTurns {
 public:
  explicit ReadTurns(util::BufferQueue* queue);

  // The time of one read. Made before the file lock is taken; waits for its turn.
  class Turn {
   public:
    // alone: no other handle reads the resource; nothing is waited for or noted.
    Turn(ReadTurns* turns, const FluviaFile* reader, long long position, bool alone);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    // What the read came to: bytes behind the position it was made for.
    void hasRead(unsigned int bytes) { bytes_ = bytes; }

   private:
    ReadTurns* turns_;
    const FluviaFile* reader_;
    long long position_;
    unsigned int bytes_ = 0;
    int version_ = 0;
    bool held_ = false;
  };

  // The handle is closed.
  void forget(const FluviaFile* reader) EXCLUDES(lock);

 private:
  friend class ReadTurnsProbe;

  struct Reader {
    const FluviaFile* file;
    long long position;  // where its last read ended
    long long lastRead;  // when, in milliseconds
  };
  struct Waiter {
    Waiter(const FluviaFile* reader, long long offset) : file(reader), position(offset) {}
    const FluviaFile* file;
    long long position;
    long long passedBytes = 0;  // what others have read meanwhile
    long long passedNew = 0;    // and of it what the stream had to bring
    bool held = false;          // its bytes were there when it got its turn
    bool granted = false;       // under wake
    util::Semaphore wake;
  };
  // How well a waiting read may go now; the best goes.
  enum Claim { kNotNow, kNewConnection, kComesNext, kHeld, kOverdue };

  // True when the bytes at position are held.
  bool waitForTurn(const FluviaFile* reader, long long position) EXCLUDES(lock);
  // newBytes of the bytes were not held when the read began.
  void end(const FluviaFile* reader, long long position, unsigned int bytes, unsigned int newBytes,
           bool restarted) EXCLUDES(lock);
  void look() EXCLUDES(lock);
  void grant(long long now) REQUIRES(lock);
  Claim claimOf(const Waiter& waiter, long long now) REQUIRES(lock);
  bool isMuch(long long bytes, long long newBytes) REQUIRES(lock);
  bool leavesSomebodyBehind(const Waiter& waiter, long long now) REQUIRES(lock);
  bool breaksARun(const Waiter& waiter, long long now) REQUIRES(lock);
  class Waiting;

  util::BufferQueue* queue_;
  util::Semaphore lock;
  bool busy GUARDED_BY(lock);
  std::list<Waiter*> waiters GUARDED_BY(lock);  // oldest first
  std::list<Reader> readers GUARDED_BY(lock);
  // Who had the stream restarted last, and what all have read since, from the buffer or the stream
  // and from the stream alone.
  const FluviaFile* runOf GUARDED_BY(lock);
  long long runBytes GUARDED_BY(lock);
  long long runNew GUARDED_BY(lock);
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_READTURNS_H_

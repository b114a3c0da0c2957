#ifndef FLUVIAFS_WEBS_READTURNS_H_
#define FLUVIAFS_WEBS_READTURNS_H_

#include <atomic>
#include <list>

#include "util/BufferQueue.h"
#include "util/Relaxed.h"
#include "util/Semaphore.h"

namespace webs {

class FluviaFile;

// The order in which the handles of one resource read.
//
// Handles that read on their own would take the one stream from each other with every read, and
// each time it starts anew. ReadTurns lets one read at a time go to the file lock.
//
// Who goes when. When a turn ends, the waiting read with the best claim goes, of equal claims the
// oldest:
//   1. overdue: it may go and has waited for kTurnMs;
//   2. all its bytes are buffered;
//   3. the running connection brings the first byte that is missing;
//   4. it needs a new connection. Of several within one buffer of each other the one furthest back
//      goes: the others follow it without one.
// Two claims are put off:
//   - A read that needs new data would push out what a reader behind it reads next: that reader
//     gets kLagMs to follow, counted from where the read began to wait.
//   - A read that needs a new connection would take the stream from a reader that it was just
//     restarted for: that reader keeps it for a run. A run ends once its reader pauses for
//     kPauseMs or wants bytes elsewhere, and kTurnMs after the restart in any case. Only a reader
//     that reads on steadily keeps it longer, and through pauses: until the transfer has stored a
//     share of the buffer for it since the restart, at most kFillMs.
//
// What ends each wait:
//   - an event: the end of another read's turn, a handle that is closed, an abort or a close of
//     its own. Whoever causes it schedules under the lock and wakes the one read it concerns.
//   - a time: one of those above. The first waiter sleeps until the earliest of them. What the
//     transfer stores is not announced: the first waiter looks when the age of the run has doubled.
// So while others take buffered bytes, or one has a run whose bytes are stored, a read waits for
// kTurnMs and the read under way. Each further reader that needs a connection adds its run.
//
// Only the order is decided here: the file lock still keeps reads apart. A handle that is alone
// never waits and is not noted.
//
// Threads:   any. Its lock is taken before the buffer queue's feedLock, and after no other than
//            the readLock of its file.
// Ownership: readers are compared, never dereferenced. A reader is known from join() to forget().
// Invariant: nothing but join() allocates. While a read waits and nobody has the turn, the first
//            waiter sleeps no longer than until some claim can change.
class ReadTurns {
 public:
  explicit ReadTurns(util::BufferQueue* queue);

  // Tells whether a request was given up before it came here. Called under the turns' lock.
  using GivenUp = bool (*)(const void* request);

  // The time of one read. Made before the file lock is taken; waits for its turn.
  class Turn {
   public:
    // size bytes at position are to be read. request: null for a blocking read, else what
    // breakWait() knows the read by.
    Turn(ReadTurns* turns, const FluviaFile* reader, long long position, unsigned int size,
         const void* request = nullptr, GivenUp isGivenUp = nullptr);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    // The wait was broken, or the handle is being closed: the read must not take place.
    bool isBroken() const { return part_ == Part::kBroken; }
    // A break has met the read since it was given its turn: it must not take place either, if it
    // has not begun. For DullFile::beginReading().
    bool wasMet() const { return part_ == Part::kTurn && turns_->isTakerMet(); }
    // What the read came to: bytes behind the position it was made for.
    void hasRead(unsigned int bytes) { bytes_ = bytes; }

   private:
    enum class Part { kAlone, kTurn, kBroken };

    ReadTurns* turns_;
    const FluviaFile* reader_;
    long long position_;
    unsigned int bytes_ = 0;
    int version_ = 0;
    Part part_ = Part::kAlone;
  };

  // Makes a handle known. Throws std::bad_alloc, and nothing has changed then.
  void join(const FluviaFile* reader) EXCLUDES(lock);
  // The handle is closed.
  void forget(const FluviaFile* reader) EXCLUDES(lock);

  // Ends the waits of that handle for that request (null: blocking reads) at once, and notes of one
  // that has its turn that it was met. A read that comes later, or never waited, is not met.
  void breakWait(const FluviaFile* reader, const void* request) EXCLUDES(lock);
  // The handle is being closed: ends all its waits at once, also those to come.
  void breakForClose(const FluviaFile* reader) EXCLUDES(lock);

  // The longest time, in milliseconds, that a read of this process was kept from its turn while
  // nobody fetched new data: others took buffered bytes, or the policy held it back.
  static int longestHoldback() { return longest; }
  static void forgetLongestHoldback() { longest = 0; }

  // Milliseconds.
  static constexpr int kTurnMs = 80;
  static constexpr int kFillMs = 250;
  // Longer than a busy machine takes to let a thread go on, shorter than a viewer notices.
  static constexpr int kLagMs = 20;
  static constexpr int kPauseMs = 5;

 private:
  friend class ReadTurnsProbe;

  // The part of the buffer that a run stores.
  static constexpr int kStoredShare = 4;

  struct Reader {
    const FluviaFile* file;
    long long position;  // where its last read ended
    long long lastRead;  // when, in milliseconds
    bool steady;         // that read began where the one before it had ended
    bool closing;
  };
  // What a waiter is told.
  enum class Word { kNone, kLook, kGo, kBroken };
  struct Waiter {
    const FluviaFile* file;
    const void* request;
    GivenUp isGivenUp = nullptr;
    long long position;
    unsigned int size;
    long long since;
    long long fetchedBefore;  // fetchTime() when it came
    Waiter* next = nullptr;   // under the lock of the turns, as all above
    util::Semaphore wake;     // leaf
    Word word GUARDED_BY(wake) = Word::kNone;
  };
  // The stream was restarted for that reader at that time; null: no run.
  struct Run {
    const FluviaFile* of;
    long long began;
    long long from;  // where the read began that restarted it
  };
  // How well a waiting read may go now; the best goes.
  enum Claim { kNotNow, kNewConnection, kComesNext, kBuffered, kOverdue };
  // The read that has the turn.
  struct Taker {
    const FluviaFile* file;
    const void* request;
    bool met;  // by a break, since
  };
  class Waiting;

  bool beginAlone();
  void endAlone() EXCLUDES(lock);
  void end(const FluviaFile* reader, long long from, unsigned int bytes, bool restarted)
      EXCLUDES(lock);

  void keepAhead(const Reader& last) REQUIRES(lock);
  void schedule(long long now) REQUIRES(lock);
  Waiter* best(long long now, long long* lookAt) REQUIRES(lock);
  Claim claimOf(const Waiter& waiter, long long now, long long* mayAt) REQUIRES(lock);
  long long missingFrom(const Waiter& waiter) REQUIRES(lock);
  long long lagEnds(const Waiter& waiter, long long now) REQUIRES(lock);
  long long runEnds(const Waiter& waiter, long long now) REQUIRES(lock);
  bool hasJumped(const Reader& reader) REQUIRES(lock);
  void give(Waiter* waiter, long long now) REQUIRES(lock);
  bool isTaken() REQUIRES(lock);
  bool isTakerMet() EXCLUDES(lock);
  int sleepOf(Waiter* waiter) EXCLUDES(lock);

  bool isWaiting(const FluviaFile* reader) REQUIRES(lock);
  void append(Waiter* waiter) REQUIRES(lock);
  bool unlink(Waiter* waiter) REQUIRES(lock);
  static void tell(Waiter* waiter, Word word);
  Reader* find(const FluviaFile* reader) REQUIRES(lock);
  long long fetchTime(long long now) REQUIRES(lock);

  util::BufferQueue* queue_;
  // Handles that are known; a read counts in aloneReads when it is the only one's. Both are
  // sequentially consistent: a read that finds itself alone is seen by one of a handle that joins.
  std::atomic<int> members;
  std::atomic<int> aloneReads;
  util::Semaphore lock;
  bool busy GUARDED_BY(lock);      // a read has the turn
  Taker taker GUARDED_BY(lock);    // which one, while busy
  Waiter* first GUARDED_BY(lock);  // oldest first
  std::list<Reader> readers GUARDED_BY(lock);
  Run run GUARDED_BY(lock);
  // When a claim can change while nobody has the turn, and which waiter sleeps until then: the
  // first one, once it has looked at nextLook.
  long long nextLook GUARDED_BY(lock);
  Waiter* keeper GUARDED_BY(lock);
  // How long reads that had to fetch data had the turn, and since when the present one has (0: the
  // bytes it wants are buffered).
  long long fetched GUARDED_BY(lock);
  long long fetchingSince GUARDED_BY(lock);

  static util::Relaxed<int> longest;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_READTURNS_H_

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
// Handles that read independently would take the one stream from each other with every read, and
// each time it would restart. ReadTurns lets one read at a time go to the file lock.
//
// Who is next. When a turn ends, the waiting read with the best claim gets the next one; among
// equal claims the oldest:
//   1. overdue: the read may go and has waited for kTurnMs;
//   2. all its bytes are buffered;
//   3. the running connection delivers the first missing byte next;
//   4. it needs a new connection. Among several within one buffer of each other the one furthest
//      back goes: the others can then follow it without a connection of their own.
// Two kinds of claims are delayed:
//   - A read that needs new data would evict what a reader behind it reads next. That reader gets
//     kLagMs to follow, counted from where the read began to wait.
//   - A read that needs a new connection would take the stream from a reader that it was just
//     restarted for. That reader keeps it for a run. A run ends when its reader pauses for kPauseMs
//     or needs bytes elsewhere, and kTurnMs after the restart in any case. Only a reader that
//     continues to read steadily keeps it longer, and through pauses: until the transfer has stored
//     a share of the buffer for it since the restart, at most kFillMs, and only while the transfer
//     does bring those bytes.
// A run begins with every read that waited for data while the stream was restarted. It does not
// matter what was buffered when that read got its turn: until the read reaches the queue, the
// transfer may have reused its blocks. So the run is never that of an earlier reader, for which
// nobody stores anything.
//
// What ends each wait:
//   - an event: another read's turn ends, a handle is closed, or the read itself is aborted or its
//     handle closed. The thread that causes the event schedules under the lock and wakes the one
//     affected read.
//   - a time limit: one of those above. The first waiter sleeps until the earliest of them. What
//     the transfer stores is not announced: the first waiter checks when the age of the run has
//     doubled. If the transfer leaves the run's bytes, or they end with the resource, that check
//     finds it, and the limits of a run whose bytes are stored apply.
// So while others read buffered bytes, or one has a run whose bytes are stored, a read waits for
// kTurnMs and the read in progress. Each further reader that needs a connection adds its run.
//
// This class decides only the order: the file lock still separates the reads. A handle that is
// alone never waits and is not recorded.
//
// Threads:   any. Its lock is taken under the registry's lock, under the readLock of its file, or
//            alone. Under it are taken only the queue's feedLock, the lock of the table of
//            asynchronous reads, and a waiter's wake.
// Ownership: readers are compared, never dereferenced. A reader is known from join() to forget().
// Invariant: nothing but join() allocates. While a read waits and no read has the turn, the first
//            waiter sleeps no longer than until some claim can change.
class ReadTurns {
 public:
  explicit ReadTurns(util::BufferQueue* queue);

  // True if a request was cancelled before it came here. Called under the turns' lock.
  using GivenUp = bool (*)(const void* request);

  // The turn of one read. Construct it before taking the file lock; the constructor waits.
  class Turn {
   public:
    // The read is for size bytes at position. request identifies it for breakWait(); null for a
    // blocking read.
    Turn(ReadTurns* turns, const FluviaFile* reader, long long position, unsigned int size,
         const void* request = nullptr, GivenUp isGivenUp = nullptr);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    // The wait was aborted, or the handle is being closed: the read must not take place.
    bool isBroken() const { return part_ == Part::kBroken; }
    // True if an abort has met the read since it got its turn. The read must then not take place
    // either, if it has not begun. For DullFile::beginReading().
    bool wasMet() const { return part_ == Part::kTurn && turns_->isTakerMet(); }
    // Reports the result of the read: bytes read from the position that it was created for.
    void hasRead(unsigned int bytes) { bytes_ = bytes; }

   private:
    enum class Part { kAlone, kTurn, kBroken };

    ReadTurns* turns_;
    const FluviaFile* reader_;
    long long position_;
    unsigned int bytes_ = 0;
    int version_ = 0;
    unsigned int waits_ = 0;
    Part part_ = Part::kAlone;
  };

  // Registers a handle. Throws std::bad_alloc and changes nothing in that case.
  void join(const FluviaFile* reader) EXCLUDES(lock);
  // Unregisters a handle that is closed.
  void forget(const FluviaFile* reader) EXCLUDES(lock);

  // Ends the waits of that handle for that request (null: blocking reads) at once. If its read has
  // the turn, marks it as met by an abort. A read that comes later, or never waited, is not
  // affected.
  void breakWait(const FluviaFile* reader, const void* request) EXCLUDES(lock);
  // For a handle that is being closed: ends all its waits at once, also future ones.
  void breakForClose(const FluviaFile* reader) EXCLUDES(lock);

  // The longest time, in milliseconds, that a read of this process waited for its turn while
  // nothing was fetched, neither by a read nor for a run: others read buffered bytes, or the policy
  // delayed it.
  static int longestHoldback() { return longest; }
  static void forgetLongestHoldback() { longest = 0; }

  // Milliseconds.
  static constexpr int kTurnMs = 80;
  static constexpr int kFillMs = 250;
  // Longer than a busy machine takes to schedule a thread, shorter than a viewer notices.
  static constexpr int kLagMs = 20;
  static constexpr int kPauseMs = 5;

 private:
  friend class ReadTurnsProbe;

  // A run stores one kStoredShare-th of the buffer.
  static constexpr int kStoredShare = 4;

  struct Reader {
    const FluviaFile* file;
    long long position;  // where its last read ended
    long long lastRead;  // when, in milliseconds
    bool steady;         // that read began where the previous one had ended
    bool closing;
  };
  // The message to a waiter.
  enum class Word { kNone, kLook, kGo, kBroken };
  struct Waiter {
    const FluviaFile* file;
    const void* request;
    GivenUp isGivenUp = nullptr;
    long long position;
    unsigned int size;
    long long since;
    long long fetchedBefore;  // fetchTime() when it came
    Waiter* next = nullptr;   // guarded by the lock of the turns, as all above
    util::Semaphore wake;     // leaf
    Word word GUARDED_BY(wake) = Word::kNone;
  };
  // The stream was restarted for that reader at that time; null: no run.
  struct Run {
    const FluviaFile* of;
    long long began;
    long long from;  // where the read that restarted it began
  };
  // The claim of a waiting read; the best one goes next.
  enum Claim { kNotNow, kNewConnection, kComesNext, kBuffered, kOverdue };
  // The read that has the turn.
  struct Taker {
    const FluviaFile* file;
    const void* request;
    long long since;  // when it got the turn
    bool met;         // an abort has met it since
  };
  // A read whose turn ends.
  struct Done {
    const FluviaFile* reader;
    long long from;
    unsigned int bytes;
    bool waited;     // for data
    bool restarted;  // the stream was restarted meanwhile
  };
  class Waiting;

  bool beginAlone();
  void endAlone() EXCLUDES(lock);
  void end(const Done& done) EXCLUDES(lock);

  void keepAhead(const Reader& last) REQUIRES(lock);
  void schedule(long long now) REQUIRES(lock);
  Waiter* best(long long now, long long* lookAt) REQUIRES(lock);
  Claim claimOf(const Waiter& waiter, long long now, long long* mayAt) REQUIRES(lock);
  long long missingFrom(const Waiter& waiter) REQUIRES(lock);
  long long lagEnds(const Waiter& waiter, long long now) REQUIRES(lock);
  long long runEnds(const Waiter& waiter, long long now) REQUIRES(lock);
  bool keepsThroughPauses(const Reader& reader) REQUIRES(lock);
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
  // Registered handles; aloneReads counts the reads of a handle that is the only one. Both are
  // sequentially consistent: a read that finds itself alone is seen by a read of a handle that
  // joins.
  std::atomic<int> members;
  std::atomic<int> aloneReads;
  util::Semaphore lock;
  bool busy GUARDED_BY(lock);      // a read has the turn
  Taker taker GUARDED_BY(lock);    // which one, while busy
  Waiter* first GUARDED_BY(lock);  // oldest first
  std::list<Reader> readers GUARDED_BY(lock);
  Run run GUARDED_BY(lock);
  // The time at which a claim can change while no read has the turn, and the waiter that sleeps
  // until then: the first one, once it has checked nextLook.
  long long nextLook GUARDED_BY(lock);
  Waiter* keeper GUARDED_BY(lock);
  // How long data has been fetched while a read waited: by a read that has the turn, or by the
  // transfer for a run that keeps others waiting; and since when (0: nothing is fetched).
  long long fetched GUARDED_BY(lock);
  long long fetchingSince GUARDED_BY(lock);

  static util::Relaxed<int> longest;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_READTURNS_H_

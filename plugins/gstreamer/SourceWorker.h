#ifndef FLUVIAFS_PLUGINS_GSTREAMER_SOURCEWORKER_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_SOURCEWORKER_H_

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "Diagnosis.h"
#include "Leaving.h"
#include "SourceReader.h"

// The thread behind a SourceReader and what the two share.
//
// Threads:   run() and the private methods on the worker's thread, the others on any. lock guards
//            all fields below it and is never held over a call of the library or of the observer.
// Ownership: shared by the reader and the thread; the handle is the thread's.
class SourceReader::Worker {
 public:
  Worker(const std::string& name, const SourceSettings& settings, OutageObserver outages);

  // A read needs at least least bytes from offset on, and takes at most most.
  struct Span {
    long long offset = 0;
    unsigned int least = 0;
    unsigned int most = 0;
  };

  // Opens, serves requests until quit(), closes.
  void run();
  void quit();
  // No thread is available: the source has failed.
  void giveUp();

  SourceFacts waitForFacts(int milliseconds);
  SourceFacts facts() const;
  Outcome read(const Span& span, Piece* piece);
  void release();
  bool isReleased() const;
  void setInterrupted(bool interrupted);
  SourceLevels levels();
  void observe(Observer observer);
  SourceFailure failure() const;
  std::string explanation() const;
  int httpStatus() const;

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Clock = std::chrono::steady_clock;
  using Seconds = std::chrono::duration<double>;

  // The ticket of the first read; only quit() ends that one.
  static constexpr unsigned long long kLearning = 0;

  bool openHandle();
  void applySettings();
  void learn();
  // Reads the bytes of the head that are worth waiting for.
  Outcome learnHead(Medium* medium);
  void serve();
  void closeHandle();
  // Closes the handle if that was requested and no read runs. Returns false if there is nothing to
  // do.
  bool closeReleased(Lock& held);
  // Reads and survives outages of the server.
  Outcome fetch(const Span& span, unsigned long long ticket, Piece* piece);
  // Same on the current handle; retries if an abort of another handle broke the read.
  Outcome fetchHere(const Span& span, unsigned long long ticket, Piece* piece);
  Outcome fetchOnce(unsigned int size, unsigned long long ticket, Piece* piece);
  unsigned int sizeNow(const Span& span) const;
  // Offset up to which bytes have arrived behind position_.
  long long arrived() const;
  bool isFar(long long offset);
  bool isSoonThere(long long offset);
  double speedUpTo(long long arrived);
  void noteBeginning();
  Outcome runOn(long long offset, unsigned long long ticket);
  Outcome restartAt(long long offset, unsigned long long ticket);
  long long earlierBy(long long offset);
  void noteFar(long long offset);
  Outcome runUp(long long begin, long long offset, unsigned long long ticket);
  bool moveTo(long long offset);
  void waitForCompletion(Lock& held, int request, unsigned long long ticket);
  bool abandoned(unsigned long long ticket) const {
    return quitting_ || (ticket != kLearning && ticket != ticket_);
  }
  void fail(const std::string& action);
  void fail(const std::string& action, const Diagnosis& why);

  // Outages (SourceWorkerOutage.cpp).
  // The handle has failed: closes it to open its name again later. False if the failure is final.
  bool lose(long long offset);
  // Waits until the next retry, opens the name again and moves to offset. kDone: a read may
  // continue.
  Outcome comeBack(long long offset, unsigned long long ticket);
  Outcome waitForTheNextTry(unsigned long long ticket);
  Outcome reopen();
  // Reads the first byte of the new handle, and compares the resource with the previous one.
  Outcome prove(unsigned long long ticket);
  // Moves the new handle to offset; if it cannot seek, reads everything up to there.
  Outcome returnTo(long long offset, unsigned long long ticket);
  void endOutage(long long offset);
  // Ends the source permanently.
  Outcome end(const Diagnosis& why);
  Outcome endAsChanged();
  // Waits on the condition, but updates the levels when a caller asks for them.
  void waitOrLook(Lock& held);
  void look(Lock& held);
  // Where the source ends, -1 if unknown. Call after its first byte has come.
  long long endOf(const SourceFacts& facts) const;
  void tellEnd();
  static void completed(int request, void* worker, int status, int readBytes);

  const std::string name_;
  const bool local_;
  const SourceSettings settings_;
  const Clock::time_point opened_ = Clock::now();

  Leaving::Stay stay_;  // guarded by Leaving

  // The worker's thread only.
  int handle_ = 0;
  // State of the handle. kLost: closed, to be opened again. kUnproven: opened again, no byte yet.
  // kFinal: will never deliver one.
  enum class Hold { kUsual, kLost, kUnproven, kFinal };
  Hold hold_ = Hold::kUsual;
  FluviaOutage outage_;
  Clock::time_point nextTry_;
  const OutageObserver outages_;
  long long position_ = 0;
  long long lastFar_ = 0;  // offset of the last read that needed a request of its own
  bool stepsBack_ = false;
  Clock::duration restart_{0};  // time from the first request to its first bytes
  int restartsSaved_ = 1;
  bool readsEndBackwards_ = false;
  // When the current transfer began, its first byte, and the best speed of all transfers so far.
  Clock::time_point since_;
  long long from_ = 0;
  double bestSpeed_ = 0;

  std::mutex turn_;  // held by the caller whose read is served
  mutable std::mutex lock_;
  std::condition_variable changed_;
  bool quitting_ = false;
  bool interrupted_ = false;
  bool released_ = false;
  bool without_ = false;  // no thread is available
  SourceFacts facts_;
  SourceFailure failure_ = SourceFailure::kNone;
  std::string explanation_;
  int httpStatus_ = 0;

  // The request: the reader makes it under a ticket, and the worker answers it under the same one.
  // A ticket that is not the newest any more is abandoned.
  unsigned long long ticket_ = 0;
  unsigned long long answered_ = 0;
  bool requested_ = false;
  Span wanted_;
  Outcome outcome_ = Outcome::kInterrupted;
  Piece piece_;

  // The outstanding request to the library.
  bool pending_ = false;
  int status_ = 0;
  int readBytes_ = 0;

  // The levels, and the requests for them.
  SourceLevels levels_;
  bool lookWanted_ = false;
  unsigned int looks_ = 0;
  Observer observer_;
  Clock::time_point nextLook_ = Clock::now();
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_SOURCEWORKER_H_

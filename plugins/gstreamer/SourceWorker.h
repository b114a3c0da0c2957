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

  // What a read wants: from offset on at least least bytes, at most most.
  struct Span {
    long long offset = 0;
    unsigned int least = 0;
    unsigned int most = 0;
  };

  // Opens, serves requests until quit(), closes.
  void run();
  void quit();
  // There is no thread to run on: the source has failed.
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

  // The ticket of the first read, which only quit() ends.
  static constexpr unsigned long long kLearning = 0;

  bool openHandle();
  void applySettings();
  void learn();
  // The bytes of the head, as far as they are worth waiting for.
  Outcome learnHead(Medium* medium);
  void serve();
  void closeHandle();
  // Closes the handle if that is wanted and nobody reads. False when there is nothing to do.
  bool closeReleased(Lock& held);
  // A read that outlives outages of the server.
  Outcome fetch(const Span& span, unsigned long long ticket, Piece* piece);
  // The same on the present handle, tried again when somebody else's abort met it.
  Outcome fetchHere(const Span& span, unsigned long long ticket, Piece* piece);
  Outcome fetchOnce(unsigned int size, unsigned long long ticket, Piece* piece);
  unsigned int sizeNow(const Span& span) const;
  bool isFar(long long offset);
  bool isSoonThere(long long offset);
  double speedUpTo(long long arrived);
  void noteBeginning();
  Outcome runOn(long long offset, unsigned long long ticket);
  Outcome restartAt(long long offset, unsigned long long ticket);
  void noteFar(long long offset);
  Outcome runUp(long long offset, unsigned long long ticket);
  bool moveTo(long long offset);
  void waitForCompletion(Lock& held, int request, unsigned long long ticket);
  bool abandoned(unsigned long long ticket) const {
    return quitting_ || (ticket != kLearning && ticket != ticket_);
  }
  void fail(const std::string& action);
  void fail(const std::string& action, const Diagnosis& why);

  // Outages (SourceWorkerOutage.cpp).
  // The handle has failed: closes it to open its name again later. False when the failure is final.
  bool lose(long long offset);
  // Waits until it is time, opens the name again and moves to offset. kDone: a read may go on.
  Outcome comeBack(long long offset, unsigned long long ticket);
  Outcome waitForTheNextTry(unsigned long long ticket);
  Outcome reopen();
  // Reads the first byte of the new handle, and compares the resource with the one before.
  Outcome prove(unsigned long long ticket);
  // Moves the new handle there; one that cannot seek reads all up to there.
  Outcome returnTo(long long offset, unsigned long long ticket);
  void endOutage(long long offset);
  // Ends the source for good.
  Outcome end(const Diagnosis& why);
  Outcome endAsChanged();
  // Waits on the condition, but looks at the levels when somebody wants to know them.
  void waitOrLook(Lock& held);
  void look(Lock& held);
  // Where the source ends, -1 when that is not known. Called when its first byte is there.
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
  // What the handle is good for: kLost is closed to be opened again, kUnproven was opened again and
  // has given no byte, kFinal will never give one.
  enum class Hold { kUsual, kLost, kUnproven, kFinal };
  Hold hold_ = Hold::kUsual;
  FluviaOutage outage_;
  Clock::time_point nextTry_;
  const OutageObserver outages_;
  long long position_ = 0;
  long long lastFar_ = 0;  // where the last request of its own was asked for
  bool stepsBack_ = false;
  Clock::duration restart_{0};  // how long the first request took to its first bytes
  int restartsSaved_ = 1;
  // Since when the present transfer runs, from which byte, and the best speed of all so far.
  Clock::time_point since_;
  long long from_ = 0;
  double bestSpeed_ = 0;

  std::mutex turn_;  // held by the one whose read is served
  mutable std::mutex lock_;
  std::condition_variable changed_;
  bool quitting_ = false;
  bool interrupted_ = false;
  bool released_ = false;
  bool without_ = false;  // there is no thread
  SourceFacts facts_;
  SourceFailure failure_ = SourceFailure::kNone;
  std::string explanation_;
  int httpStatus_ = 0;

  // The request: wanted by the reader under a ticket, answered under the same. A ticket that is no
  // longer the newest is abandoned.
  unsigned long long ticket_ = 0;
  unsigned long long answered_ = 0;
  bool requested_ = false;
  Span wanted_;
  Outcome outcome_ = Outcome::kInterrupted;
  Piece piece_;

  // The library's request under way.
  bool pending_ = false;
  int status_ = 0;
  int readBytes_ = 0;

  // Levels and who wants them.
  SourceLevels levels_;
  bool lookWanted_ = false;
  unsigned int looks_ = 0;
  Observer observer_;
  Clock::time_point nextLook_ = Clock::now();
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_SOURCEWORKER_H_

#ifndef FLUVIAFS_TOOLS_TRACE_TRACESTORY_H_
#define FLUVIAFS_TOOLS_TRACE_TRACESTORY_H_

#include <list>
#include <map>
#include <string>
#include <vector>

#include "Lane.h"
#include "LogReader.h"

namespace tools {

// Assigns the entries of a log to lanes, one per resource. The lines name a thread and rarely more,
// so this follows each thread: through the calls on a handle, through the runs of a resource's
// worker, through an asynchronous read in the engine.
//
// It assumes: one process writes the log; an asynchronous read that an engine thread begins is the
// oldest one of its size that was issued; bytes of a local file belong to the only local resource
// in use (with several they are not shown).
class TraceStory {
 public:
  void take(const LogEntry& entry);
  // The log has ended.
  void finish();

  const std::list<Lane>& lanes() const { return lanes_; }
  // Seconds from the first line to the last.
  double duration() const { return now_; }
  // Entries that belong to no known resource.
  long long homeless() const { return homeless_; }
  // Resources beyond the page's limit.
  long long moreLanes() const { return moreLanes_; }
  // True if there were lines of the levels 2 and 3.
  bool hasTracing() const { return hasTracing_; }
  bool hasDumps() const { return hasDumps_; }

 private:
  struct Thread {
    Lane* lane = nullptr;  // of the call, or of the resource whose worker it is
    Lane* home = nullptr;  // of the resource whose worker it is
    int handle = 0;        // of the call
    long long target = 0;  // of a seek
    bool lookedFor = false;
    bool issuing = false;  // it issues an asynchronous read
    Connection next;       // what the log has shown before the connection began
    bool dumping = false;
    int dumpLines = 0;
    std::map<int, Span> dump;
  };
  // An asynchronous read that was issued and has not ended.
  struct Request {
    int handle = 0;
    long long bytes = 0;
    long long id = 0;  // 0: not known yet
    bool started = false;
    long thread = 0;  // the thread that issued it
  };

  double timeOf(const LogEntry& entry);
  void newRun();
  Thread& threadOf(long number);
  Lane* laneNamed(const std::string& name);
  Lane* laneOfHandle(int handle);
  Lane* onlyLocalLane();
  void beginCall(Thread& thread, long long handle);
  static void endCall(Thread& thread);

  bool takeCall(const LogFact& fact, long number, Thread& thread);
  bool takeAsync(const LogFact& fact, long number, Thread& thread);
  void endAsync(const LogFact& fact, Thread& thread);
  bool takeReader(const LogFact& fact, Thread& thread);
  bool takeWriter(const LogFact& fact, Thread& thread);
  bool takeDump(const LogFact& fact, Thread& thread);
  bool takeConnection(const LogFact& fact, Thread& thread);
  bool takeRun(const LogFact& fact, Lane& lane);
  bool takeOthers(const LogFact& fact, long number, Thread& thread);
  void openedBy(Thread& thread, long long handle);
  void closedBy(int handle);
  void noteRead(const Thread& thread, long long result);

  std::list<Lane> lanes_;  // in order of appearance; pointers stay valid
  std::map<std::string, Lane*> byName_;
  std::map<int, Lane*> byHandle_;
  std::map<long, Thread> threads_;
  std::list<Request> requests_;
  bool begun_ = false;
  double first_ = 0;  // the clock at the beginning of the axis
  double now_ = 0;    // seconds on the axis
  long long homeless_ = 0;
  long long moreLanes_ = 0;
  bool hasTracing_ = false;
  bool hasDumps_ = false;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_TRACESTORY_H_

#include "TraceStory.h"

#include <fluviafs.h>

#include <algorithm>

namespace tools {
namespace {

constexpr size_t kMostLanes = 24;
constexpr size_t kMostThreads = 4096;
constexpr size_t kMostRequests = 1024;
// A clock that goes back by more than this (seconds) is a different one: lines of threads that
// write at the same time are out of order by much less.
constexpr double kOtherClock = 1;

bool isLocal(const std::string& name) { return name.find("://") == std::string::npos; }

}  // namespace

double TraceStory::timeOf(const LogEntry& entry) {
  if (!begun_) {
    begun_ = true;
    first_ = entry.origin;
  }
  if (entry.seconds - first_ < now_ - kOtherClock) {
    newRun();
    first_ = entry.seconds - now_ - 1;  // a second apart
  }
  now_ = std::max(now_, entry.seconds - first_);
  return now_;
}

// Lines of another process follow: the known state of threads and handles is no longer valid.
void TraceStory::newRun() {
  for (Lane& lane : lanes_) {
    while (lane.inUse()) {
      for (const Lane::Reader& reader : lane.readers()) {
        if (reader.open) lane.closed(now_, reader.handle);
      }
    }
    lane.happened(now_, Happening::Kind::kNote, "another run of a program begins in the log");
  }
  byHandle_.clear();
  threads_.clear();
  requests_.clear();
}

TraceStory::Thread& TraceStory::threadOf(long number) {
  if (threads_.size() >= kMostThreads && threads_.count(number) == 0) threads_.clear();
  return threads_[number];
}

Lane* TraceStory::laneNamed(const std::string& name) {
  const auto known = byName_.find(name);
  if (known != byName_.end()) return known->second;
  if (lanes_.size() == kMostLanes) {
    ++moreLanes_;
    return nullptr;
  }
  lanes_.emplace_back(name);
  byName_[name] = &lanes_.back();
  return &lanes_.back();
}

Lane* TraceStory::laneOfHandle(int handle) {
  const auto known = byHandle_.find(handle);
  return known == byHandle_.end() ? nullptr : known->second;
}

Lane* TraceStory::onlyLocalLane() {
  Lane* only = nullptr;
  for (Lane& lane : lanes_) {
    if (!isLocal(lane.name()) || !lane.inUse()) continue;
    if (only != nullptr) return nullptr;
    only = &lane;
  }
  return only;
}

void TraceStory::beginCall(Thread& thread, long long handle) {
  thread.handle = static_cast<int>(handle);
  thread.lane = laneOfHandle(thread.handle);
  thread.lookedFor = false;
}

void TraceStory::endCall(Thread& thread) {
  thread.handle = 0;
  thread.lane = thread.home;
  thread.lookedFor = false;
}

void TraceStory::take(const LogEntry& entry) {
  timeOf(entry);
  Thread& thread = threadOf(entry.thread);
  const LogFact& fact = entry.fact;
  // A thread that logs anything else no longer waits.
  if (fact.word != LogWord::kWaitGoesOn && thread.lane != nullptr && thread.handle != 0) {
    thread.lane->endWait(now_, thread.handle);
  }
  if (takeCall(fact, entry.thread, thread) || takeOthers(fact, entry.thread, thread)) return;
  if (thread.lane == nullptr && thread.handle == 0) thread.lane = onlyLocalLane();
  if (thread.lane == nullptr) {
    ++homeless_;
    return;
  }
  if (!takeReader(fact, thread) && !takeWriter(fact, thread) && !takeDump(fact, thread)) {
    takeConnection(fact, thread);
  }
  if (thread.home == nullptr && thread.handle == 0) thread.lane = nullptr;
}

// The entry points, which assign a thread's lines to a handle.
bool TraceStory::takeCall(const LogFact& fact, long number, Thread& thread) {
  const auto& value = fact.values;
  switch (fact.word) {
    case LogWord::kOpenBegin:
      thread.lane = laneNamed(std::string(fact.text));
      return true;
    case LogWord::kOpenEnd:
      openedBy(thread, value[0]);
      return true;
    case LogWord::kCloseBegin:
      closedBy(static_cast<int>(value[0]));
      return true;
    case LogWord::kReadBegin:
      beginCall(thread, value[0]);
      return true;
    case LogWord::kReadEnd:
      noteRead(thread, value[0]);
      endCall(thread);
      return true;
    case LogWord::kSeekBegin:
      beginCall(thread, value[0]);
      thread.target = value[1];
      return true;
    case LogWord::kSeekEnd:
      if (thread.lane != nullptr) thread.lane->sought(now_, thread.handle, value[0]);
      endCall(thread);
      return true;
    case LogWord::kSeekFailed:
      if (thread.lane != nullptr) {
        thread.lane->happened(now_, Happening::Kind::kProblem,
                              "seek to " + std::to_string(thread.target) + " refused");
      }
      endCall(thread);
      return true;
    default:
      return takeAsync(fact, number, thread);
  }
}

void TraceStory::openedBy(Thread& thread, long long handle) {
  Lane* lane = thread.lane;
  endCall(thread);
  if (lane == nullptr || handle <= 0) return;
  byHandle_[static_cast<int>(handle)] = lane;
  lane->opened(now_, static_cast<int>(handle));
}

// At once when the close begins: when it logs itself, the caller has no handle any more.
void TraceStory::closedBy(int handle) {
  if (Lane* lane = laneOfHandle(handle)) lane->closed(now_, handle);
  byHandle_.erase(handle);
}

void TraceStory::noteRead(const Thread& thread, long long result) {
  if (thread.lane == nullptr) return;
  if (result == FVFR_END_OF_FILE) {
    thread.lane->happened(now_, Happening::Kind::kEnd,
                          "handle " + std::to_string(thread.handle) + " read to the end");
  } else if (result < 0) {
    thread.lane->happened(now_, Happening::Kind::kProblem, "a read gave " + std::to_string(result));
  }
}

bool TraceStory::takeAsync(const LogFact& fact, long number, Thread& thread) {
  const auto& value = fact.values;
  switch (fact.word) {
    case LogWord::kAsyncBegin:
      if (requests_.size() == kMostRequests) requests_.pop_front();
      requests_.push_back({static_cast<int>(value[0]), value[1], 0, false, number});
      return true;
    case LogWord::kAsyncIssued:
      for (auto request = requests_.rbegin(); request != requests_.rend(); ++request) {
        if (request->thread == number && request->id == 0) {
          request->id = value[0];
          break;
        }
      }
      return true;
    case LogWord::kAsyncRun:
      for (Request& request : requests_) {
        if (!request.started && request.bytes == value[0]) {
          request.started = true;
          beginCall(thread, request.handle);
          break;
        }
      }
      return true;
    case LogWord::kAsyncDone:
      endAsync(fact, thread);
      return true;
    case LogWord::kAbort:
      if (Lane* lane = laneOfHandle(static_cast<int>(value[0]))) {
        lane->happened(now_, Happening::Kind::kAbort,
                       "handle " + std::to_string(value[0]) + " breaks a read off");
      }
      return true;
    default:
      return false;
  }
}

void TraceStory::endAsync(const LogFact& fact, Thread& thread) {
  const int handle = thread.handle;
  // By its number; a read that ends before its number is logged, by its handle.
  auto over = std::find_if(requests_.begin(), requests_.end(),
                           [&](const Request& request) { return request.id == fact.values[0]; });
  if (over == requests_.end()) {
    over = std::find_if(requests_.begin(), requests_.end(), [&](const Request& request) {
      return request.started && request.id == 0 && request.handle == handle;
    });
  }
  if (over != requests_.end()) requests_.erase(over);
  endCall(thread);
}

bool TraceStory::takeReader(const LogFact& fact, Thread& thread) {
  Lane& lane = *thread.lane;
  const auto& value = fact.values;
  switch (fact.word) {
    case LogWord::kPosition:
      hasTracing_ = true;
      lane.readerAt(now_, thread.handle, value[1]);
      return true;
    case LogWord::kLookedFor:
      lane.readerAt(now_, thread.handle, value[1]);
      thread.lookedFor = true;
      return true;
    case LogWord::kQueueRead:
      // Not the read that checks whether the stream can seek.
      if (thread.lookedFor) {
        lane.readerMovedBy(now_, thread.handle, value[0]);
        thread.lookedFor = false;
      }
      return true;
    case LogWord::kWaitAhead:
    case LogWord::kWaitBehind:
      lane.beginWait(now_, thread.handle, value[0]);
      return true;
    case LogWord::kWaitInBlock:
      lane.beginWait(now_, thread.handle, value[1]);
      return true;
    case LogWord::kWaitGoesOn:
    case LogWord::kWakeUp:
      return true;
    default:
      return false;
  }
}

bool TraceStory::takeWriter(const LogFact& fact, Thread& thread) {
  Lane& lane = *thread.lane;
  const auto& value = fact.values;
  switch (fact.word) {
    case LogWord::kStored:
      hasTracing_ = true;
      if (isLocal(lane.name())) lane.received(now_, value[0]);
      lane.stored(now_, static_cast<int>(value[3]), value[5], value[4]);
      return true;
    case LogWord::kStoredMore:
      lane.storedMore(now_, static_cast<int>(value[0]), value[1]);
      return true;
    case LogWord::kNewBlock:
    case LogWord::kPlacedBlock:
      lane.placed(now_, static_cast<int>(value[0]), value[1]);
      return true;
    case LogWord::kDroppedBlock:
      lane.droppedBlock(now_, static_cast<int>(value[0]));
      return true;
    case LogWord::kWriterWaits:
      lane.writerWaits(now_);
      return true;
    case LogWord::kWriterWakes:
      lane.writerGoesOn(now_);
      return true;
    case LogWord::kParked:
      lane.happened(now_, Happening::Kind::kNote, "all of the range is there; no connection");
      return true;
    case LogWord::kUnparked:
      lane.happened(now_, Happening::Kind::kRestart, "a reader wants bytes that are not held");
      return true;
    default:
      return false;
  }
}

// A dump lists the blocks between its two rules.
bool TraceStory::takeDump(const LogFact& fact, Thread& thread) {
  const auto& value = fact.values;
  switch (fact.word) {
    case LogWord::kDumpBegin:
      thread.dumping = true;
      thread.dumpLines = 0;
      thread.dump.clear();
      return true;
    case LogWord::kDumpBlock:
      if (thread.dumping) thread.dump[static_cast<int>(value[0])] = {value[1], value[2]};
      return true;
    case LogWord::kDumpLine:
      if (thread.dumping && ++thread.dumpLines == 2) {
        hasDumps_ = true;
        thread.dumping = false;
        if (!thread.dump.empty()) thread.lane->dumped(now_, thread.dump);
        thread.dump.clear();
      }
      return true;
    default:
      return false;
  }
}

bool TraceStory::takeConnection(const LogFact& fact, Thread& thread) {
  Lane& lane = *thread.lane;
  const auto& value = fact.values;
  switch (fact.word) {
    case LogWord::kStatus:
      lane.answered(now_, value[0]);
      return true;
    case LogWord::kAddress:
      lane.address(std::string(fact.text));
      return true;
    case LogWord::kDataIn:
      lane.received(now_, value[0]);
      return true;
    case LogWord::kGetEnd:
      lane.disconnected(now_, static_cast<int>(value[0]), value[1], value[5]);
      return true;
    case LogWord::kSize:
      lane.learntSize(value[0]);
      return true;
    case LogWord::kRestart:
      lane.happened(now_, Happening::Kind::kRestart, std::string(fact.text));
      return true;
    case LogWord::kProblem:
      lane.happened(now_, Happening::Kind::kProblem, std::string(fact.text));
      return true;
    case LogWord::kStreamEnd:
      lane.happened(now_, Happening::Kind::kEnd, "the end of the resource was read");
      return true;
    default:
      return takeRun(fact, lane);
  }
}

// The lines of a producer's run, and of its outcome.
bool TraceStory::takeRun(const LogFact& fact, Lane& lane) {
  switch (fact.word) {
    case LogWord::kRunResult:
      lane.runResult(static_cast<int>(fact.values[0]));
      return true;
    case LogWord::kEvent:
      lane.streamEvent(static_cast<int>(fact.values[0]));
      return true;
    case LogWord::kLocalRunBegin:
      lane.connect(now_, Connection());
      return true;
    case LogWord::kLocalRunEnd:
      lane.localRunEnded(now_);
      return true;
    default:
      return false;
  }
}

// The lines that make a thread the worker of a resource.
bool TraceStory::takeOthers(const LogFact& fact, long number, Thread& thread) {
  switch (fact.word) {
    case LogWord::kRunOfUrl:
      thread.home = laneNamed(std::string(fact.text));
      thread.lane = thread.home;
      return true;
    case LogWord::kRanged:
      thread.next.ranged = true;
      return true;
    case LogWord::kUnranged:
      thread.next.ranged = false;
      return true;
    case LogWord::kGetBegin:
      // The requested name may differ from the resource's, for example after a redirection.
      if (thread.lane == nullptr) thread.lane = thread.home = laneNamed(std::string(fact.text));
      if (thread.lane == nullptr) return true;
      thread.next.from = fact.values[0];
      thread.next.last = fact.values[1];
      thread.lane->connect(now_, thread.next);
      thread.next = Connection();
      return true;
    case LogWord::kThreadEnds:
      threads_.erase(number);
      return true;
    default:
      return false;
  }
}

void TraceStory::finish() {
  for (Lane& lane : lanes_) lane.finish(now_);
}

}  // namespace tools

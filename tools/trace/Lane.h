#ifndef FLUVIAFS_TOOLS_TRACE_LANE_H_
#define FLUVIAFS_TOOLS_TRACE_LANE_H_

#include <array>
#include <map>
#include <string>
#include <vector>

#include "HeldBlocks.h"
#include "ThinCurve.h"

namespace tools {

// A connection that is further behind than this (bytes) does not deliver what a reader waits for.
// Same as in the library: the tests check it.
constexpr long long kReadAheadMargin = 65536;

// One connection, or one run over a local file. Times are seconds since the log's first line, sizes
// bytes; -1: not in the log.
struct Connection {
  enum class Outcome { kRunning, kComplete, kEndedByUs, kFailed };

  double begin = 0;
  double firstByte = -1;
  double end = -1;
  long long from = 0;     // first byte requested
  long long last = 0;     // last byte requested, 0: to the end
  bool ranged = true;     // true if a Range was sent
  long long status = -1;  // HTTP's
  long long got = 0;
  bool gotKnown = false;  // got is the number of bytes received
  int code = -1;          // libcurl's
  int event = -1;         // STREAM_*; -1 if none was logged
  Outcome outcome = Outcome::kRunning;
  std::string address;
  std::string why;      // how it ended, for display
  double heldBack = 0;  // seconds for which there was no room in the buffer
};

// A stretch of time in which a reader waited.
struct Wait {
  // State of the connection during the wait.
  enum Share { kNoConnection, kNoAnswer, kSilent, kElsewhere, kFlowing, kShares };

  double begin = 0;
  double end = 0;
  double waited = 0;  // seconds; less than end - begin if several waits were merged
  int handle = 0;
  long long offset = -1;  // of the first byte waited for
  bool afterSeek = false;
  int endedConnection = -1;  // index of a connection that ended meanwhile
  std::array<double, kShares> shares{};
};

// An event at one moment.
struct Happening {
  enum class Kind { kOpen, kClose, kSeek, kRestart, kProblem, kEnd, kAbort, kNote };
  double time = 0;
  Kind kind = Kind::kNote;
  std::string text;
  int times = 1;
};

// The log of one resource: the contents of its buffer, the positions of its writer and its readers,
// its connections, waits and events. All times are seconds since the log's first line and do not
// decrease from call to call.
class Lane {
 public:
  struct Reader {
    int handle = 0;
    ThinCurve positions{2000};
    long long position = 0;
    bool open = true;
    bool sought = false;  // since its last read
    bool waiting = false;
    Wait wait;          // while waiting
    double marked = 0;  // wait.shares is counted up to here
  };
  struct Pause {
    double begin = 0;
    double end = -1;
  };

  explicit Lane(std::string name) : name_(std::move(name)) {}

  // Readers.
  void opened(double time, int handle);
  void closed(double time, int handle);
  void readerAt(double time, int handle, long long offset);
  void readerMovedBy(double time, int handle, long long bytes);
  void sought(double time, int handle, long long offset);
  void beginWait(double time, int handle, long long offset);
  void endWait(double time, int handle);

  // The writer and its blocks.
  void stored(double time, int block, long long beginning, long long bytes);
  void storedMore(double time, int block, long long bytes);
  void placed(double time, int block, long long beginning);
  void droppedBlock(double time, int block);
  void dumped(double time, const std::map<int, Span>& blocks);
  void writerWaits(double time);
  void writerGoesOn(double time);

  // Connections; calls about the running connection are ignored if there is none.
  void connect(double time, const Connection& connection);
  void answered(double time, long long status);
  void address(const std::string& text);
  void received(double time, long long bytes);
  void disconnected(double time, int code, long long status, long long behind);
  void runResult(int result);
  void streamEvent(int event);
  void localRunEnded(double time);

  void happened(double time, Happening::Kind kind, const std::string& text);
  void learntSize(long long size);
  // The log has ended.
  void finish(double time);

  const std::string& name() const { return name_; }
  long long size() const { return size_; }
  const std::vector<Reader>& readers() const { return readers_; }
  const ThinCurve& heads() const { return heads_; }
  const ThinHoldings& holdings() const { return holdings_; }
  const HeldBlocks& blocks() const { return blocks_; }
  const std::vector<Connection>& connections() const { return connections_; }
  const std::vector<Wait>& waits() const { return waits_; }
  const std::vector<Pause>& pauses() const { return pauses_; }
  const std::vector<Happening>& happenings() const { return happenings_; }
  // What the page omits: waits too short to draw, with their seconds, ...
  long long shortWaits() const { return shortWaits_; }
  double shortWaited() const { return shortWaited_; }
  // ... connections and events beyond the page's limit.
  long long moreConnections() const { return moreConnections_; }
  long long moreHappenings() const { return moreHappenings_; }
  // True if a handle has it open.
  bool inUse() const;

 private:
  enum class Phase { kNone, kAsked, kFlowing };

  Reader* readerOf(int handle);
  Connection* running() { return connected_ ? &connections_.back() : nullptr; }
  void enter(double time, Phase phase);
  void mark(double time);
  Wait::Share shareOf(const Wait& wait, double time) const;
  void keepWait(const Wait& wait);
  void dropShortWaits();
  void show(double time);

  std::string name_;
  long long size_ = -1;
  std::vector<Reader> readers_;
  HeldBlocks blocks_;
  ThinCurve heads_{3000};
  ThinHoldings holdings_;
  std::vector<Connection> connections_;
  bool connected_ = false;  // the last of connections_ is active
  Phase phase_ = Phase::kNone;
  double lastData_ = 0;
  long long head_ = 0;
  std::vector<Wait> waits_;
  double shortest_ = 0.0005;  // shortest wait that is kept, in seconds
  std::vector<Pause> pauses_;
  double pausedSince_ = -1;
  std::vector<Happening> happenings_;
  long long shortWaits_ = 0;
  double shortWaited_ = 0;
  long long moreConnections_ = 0;
  long long moreHappenings_ = 0;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_LANE_H_

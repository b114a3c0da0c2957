#ifndef FLUVIAFS_PLUGINS_GSTREAMER_SOURCEREADER_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_SOURCEREADER_H_

#include <fluvia_outage.h>
#include <fluviafs.h>

#include <functional>
#include <memory>
#include <string>

#include "Head.h"

// Settings to open a source with. Empty texts, 0 and -1 keep the library's default.
struct SourceSettings {
  int bufferSize = FVFR_DEFAULT_BUFFER;  // bytes
  std::string userAgent;
  std::string proxy;
  std::string cookie;
  std::string authorities;  // a file or a directory of PEM certificates
  std::string certificate;  // the client's certificate and its key, PEM files
  std::string key;
  long long speed = 0;  // bytes per second, 0 for no limit
  int featureFlag = -1;
  int reopen = FLUVIA_OUTAGE_SECONDS;  // seconds of retries in an outage, 0: none

  bool operator==(const SourceSettings& other) const;
};

// What is known about a source.
struct SourceFacts {
  bool known = false;              // the first byte has come, or never will
  bool failed = false;             // it never will
  bool seekable = false;           // any offset can be reached
  long long size = -1;             // bytes, -1 if it cannot be determined
  Medium medium = Medium::kOther;  // for a file only whether it is a playlist
};

// How much is buffered ahead of the last read.
struct SourceLevels {
  long long buffered = 0;  // bytes
  long long wanted = 0;    // bytes that count as full: the buffer, or less near the end
  long long speed = 0;     // bytes per second
};

// A reader waits for its server to come back, or continues.
struct SourceOutage {
  bool waits = false;
  std::string why;        // reason of the failure, as text; empty when it continues
  long milliseconds = 0;  // until the name is opened again
  long long offset = 0;   // of the next byte to read
};

enum class SourceFailure { kNone, kNotFound, kNotAuthorized, kNotAvailable, kTimeout, kOther };

// Reads one source of the library on a thread of its own, so that the caller can return at once
// whatever the library waits for.
//
// Threads:   every method from any thread. No method waits for the library, unless it says so.
// Ownership: the thread outlives the object until the library has closed the handle.
// Invariant: one request is outstanding at a time. It is asynchronous, because only a request with
//            a number of its own can be aborted while another handle of the same resource reads.
class SourceReader {
 public:
  // How far (bytes) a reader may be ahead of what has arrived before the library sends a new
  // request. Same as in the library: the tests check it.
  static constexpr long long kReadAheadMargin = 65536;
  enum class Outcome { kDone, kEnd, kInterrupted, kFailed };
  struct Piece {
    std::unique_ptr<char[]> data;
    unsigned int size = 0;
  };

  // Called on the reader's thread, with no lock held.
  using OutageObserver = std::function<void(const SourceOutage& outage)>;

  // Starts to open an absolute path or a URL and to fetch its first byte.
  SourceReader(const std::string& name, const SourceSettings& settings,
               OutageObserver outages = nullptr);
  // Starts to close it. Never waits.
  ~SourceReader();
  SourceReader(const SourceReader&) = delete;
  SourceReader& operator=(const SourceReader&) = delete;

  const std::string& name() const { return name_; }

  // Waits until the source is known, at most until that many milliseconds after it was opened, and
  // not beyond an interrupt().
  SourceFacts waitForFacts(int milliseconds);
  SourceFacts facts() const;

  // Reads size bytes at offset, fewer only at the end. Waits for them, also while the server is
  // away (settings.reopen); interrupt() ends the wait.
  Outcome read(long long offset, unsigned int size, Piece* piece) {
    return read(offset, size, size, piece);
  }
  // Same, for the bytes that have arrived: at least least bytes and at most most.
  Outcome read(long long offset, unsigned int least, unsigned int most, Piece* piece);
  // Closes the source after its reads. To other callers it is closed at once: the next open of the
  // name gets the server's current resource. A read reopens the source and returns the same bytes
  // or none.
  void release();
  bool isReleased() const;
  // Makes waiting and later reads return kInterrupted until resume().
  void interrupt();
  void resume();

  // The current levels, or recent ones if the library is busy. Waits at most 50 ms.
  SourceLevels levels();
  // Called with the levels ten times a second on the reader's thread, with no lock held. Called
  // once with ended when the source has failed or is being closed. Set it before the first read.
  using Observer = std::function<void(const SourceLevels& levels, bool ended)>;
  void observe(Observer observer);

  // Why the source failed, as a code and as text.
  SourceFailure failure() const;
  std::string explanation() const;
  // The HTTP status of 400 and above that the server returned when it failed; 0 for another
  // failure.
  int httpStatus() const;

 private:
  class Worker;
  const std::string name_;
  const std::shared_ptr<Worker> worker_;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_SOURCEREADER_H_

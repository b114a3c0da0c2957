#ifndef FLUVIAFS_PLUGINS_GSTREAMER_SOURCEREADER_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_SOURCEREADER_H_

#include <fluvia_outage.h>
#include <fluviafs.h>

#include <functional>
#include <memory>
#include <string>

#include "Head.h"

// What a source is opened with. Empty texts, 0 and -1 leave the library's own choice.
struct SourceSettings {
  int bufferSize = FVFR_DEFAULT_BUFFER;  // bytes
  std::string userAgent;
  std::string proxy;
  std::string cookie;
  std::string authorities;  // a file of PEM certificates, or a folder of them
  std::string certificate;  // the client's certificate and its key, PEM files
  std::string key;
  long long speed = 0;  // bytes per second, 0 for no cap
  int featureFlag = -1;
  int reopen = FLUVIA_OUTAGE_SECONDS;  // seconds for which an outage is borne, 0: none is

  bool operator==(const SourceSettings& other) const;
};

// What is known of a source.
struct SourceFacts {
  bool known = false;              // the first byte is there, or will never be
  bool failed = false;             // it will never be
  bool seekable = false;           // any offset can be reached
  long long size = -1;             // bytes, -1 when it cannot be learnt
  Medium medium = Medium::kOther;  // of a file only whether it is a playlist
};

// How much is held ahead of the last read.
struct SourceLevels {
  long long buffered = 0;  // bytes
  long long wanted = 0;    // bytes that count as full: the buffer, or less near the end
  long long speed = 0;     // bytes per second
};

// That a reader waits for its server to come back, or goes on.
struct SourceOutage {
  bool waits = false;
  std::string why;        // of the failure, in words; empty when it goes on
  long milliseconds = 0;  // until the name is opened again
  long long offset = 0;   // of the byte that is wanted
};

enum class SourceFailure { kNone, kNotFound, kNotAuthorized, kNotAvailable, kTimeout, kOther };

// Reads one source of the library on a thread of its own, so that whoever asks can leave at once,
// whatever the library waits for.
//
// Threads:   every method from any thread. No method waits for the library, except as it says.
// Ownership: the thread outlives the object until the library has given the handle back.
// Invariant: one request is outstanding at a time. It is asynchronous, because only a request with
//            a number of its own can be broken off while another handle of the same resource reads.
class SourceReader {
 public:
  // How far a reader may be ahead of what has arrived without the library asking the server anew
  // (bytes). As in the library: the tests check it.
  static constexpr long long kReadAheadMargin = 65536;
  enum class Outcome { kDone, kEnd, kInterrupted, kFailed };
  struct Piece {
    std::unique_ptr<char[]> data;
    unsigned int size = 0;
  };

  // Told on the reader's thread, with no lock held.
  using OutageObserver = std::function<void(const SourceOutage& outage)>;

  // Begins to open an absolute path or a URL and to fetch its first byte.
  SourceReader(const std::string& name, const SourceSettings& settings,
               OutageObserver outages = nullptr);
  // Begins to close it. Waits for nothing.
  ~SourceReader();
  SourceReader(const SourceReader&) = delete;
  SourceReader& operator=(const SourceReader&) = delete;

  const std::string& name() const { return name_; }

  // Waits until the source is known, at most until that many milliseconds after it was opened, and
  // no longer than until interrupt().
  SourceFacts waitForFacts(int milliseconds);
  SourceFacts facts() const;

  // Reads size bytes at offset, fewer only at the end. Waits for them, also while the server is
  // away (settings.reopen); ended by interrupt().
  Outcome read(long long offset, unsigned int size, Piece* piece) {
    return read(offset, size, size, piece);
  }
  // The same for what has arrived, at least least bytes and at most most.
  Outcome read(long long offset, unsigned int least, unsigned int most, Piece* piece);
  // Closes the source once its reads are done, as far as anybody else is concerned: who opens the
  // name next gets what the server has then. A read opens it again, for the same bytes or none.
  void release();
  bool isReleased() const;
  // Makes a read that waits, and those to come, return kInterrupted until resume().
  void interrupt();
  void resume();

  // The levels now, or when the library is busy those of a moment ago. Waits 50 ms at most.
  SourceLevels levels();
  // Called with the levels ten times a second on the reader's thread, with no lock held, and once
  // with ended when the source has failed or is being closed. Set before the first read.
  using Observer = std::function<void(const SourceLevels& levels, bool ended)>;
  void observe(Observer observer);

  // Why the source failed, and in words.
  SourceFailure failure() const;
  std::string explanation() const;
  // The status that the server answered when it failed, of 400 and above; 0 when it was another
  // failure.
  int httpStatus() const;

 private:
  class Worker;
  const std::string name_;
  const std::shared_ptr<Worker> worker_;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_SOURCEREADER_H_

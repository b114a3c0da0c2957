#ifndef FLUVIAFS_TOOLS_SOURCE_H_
#define FLUVIAFS_TOOLS_SOURCE_H_

#include <functional>
#include <string>
#include <utility>

#include "../examples/reopen/fluvia_stream.h"

namespace tools {

// One open source of the library; closed with the object. Survives outages of its server if
// bearOutages() was called.
//
// Threads: handle(), size(), abort() and explain() from any thread; the rest from the reading
//          thread.
class Source {
 public:
  // Reports why the source waits, or that it continues.
  using Notice = std::function<void(FluviaStreamNotice notice, const std::string& text)>;

  Source() = default;
  ~Source();
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  // Call before open(). Once bytes have come, the reads below retry for that many seconds in an
  // outage.
  void bearOutages(int seconds, Notice notice);
  // Call before open(). unwanted is called before each retry in an outage; true aborts that read.
  void setUnwanted(std::function<bool()> unwanted) { unwanted_ = std::move(unwanted); }
  // Call before open(). Shares the download with no other handle.
  void isolate() { settings_.isolated = 1; }

  // Opens an absolute path, a relative one (made absolute) or a URL, with a buffer of bufferSize
  // bytes (0: the library's default). On failure returns false, and *error says what is wrong with
  // the source and what to do. Unlike for the library, a missing file is a failure here.
  bool open(const std::string& name, int bufferSize, std::string* error);

  // The library's handle; a different one after an outage, 0 during one.
  int handle() const { return stream_ == nullptr ? 0 : fluvia_stream_handle(stream_); }
  // What was opened: the URL, or the absolute path.
  const std::string& name() const { return name_; }
  bool isLocal() const { return local_; }

  // The size in bytes, or -1 if it cannot be determined. May wait for the first byte.
  long long size() const;
  // True if any offset can be reached. Sets the position to 0.
  bool seekable() const;
  // True if a response has stated the length of an HTTP resource before its end. Call after the
  // first byte.
  bool hasLength() const;

  // True if the reads below can reach any offset.
  bool canSeek() { return fluvia_stream_is_seekable(stream_) != 0; }
  // Closes the handle before the object is destroyed. Only name() may be called afterwards.
  void close() { fluvia_stream_close(&stream_); }

  // The functions of fluvia_stream.h.
  int connect() { return fluvia_stream_connect(stream_); }
  int read(char* buffer, unsigned int size, unsigned int* got) {
    return fluvia_stream_read(stream_, buffer, size, got);
  }
  int moveTo(long long offset) { return fluvia_stream_seek(stream_, offset); }
  void setPosition(long long offset) { fluvia_stream_set_position(stream_, offset); }
  void abort() { fluvia_stream_abort(stream_); }

  // The status of the last transfer; after a failure that of the failure.
  int downloadStatus() const;
  // Explains a result code of the library, or of those functions, for this source; includes the
  // code.
  std::string explain(const std::string& action, int code) const;

 private:
  // Why the local path cannot be streamed, or an empty text.
  std::string localProblem() const;
  bool isReachable(const std::string& name, std::string* error);
  void applySettings(int handle);
  // Why a transfer ended, by its status; empty if the status does not say.
  std::string transferProblem(int status) const;

  FluviaStreamSettings settings_ = FLUVIA_STREAM_SETTINGS;
  Notice notice_;
  std::function<bool()> unwanted_;
  FluviaStream* stream_ = nullptr;
  bool local_ = false;
  std::string name_;
  std::string settingsError_;
  bool starved_ = false;  // the settings found no memory
};

// Applies the log level of the command line, now and again after every open, because the first open
// of a process may replace it. Without a call the library sets the level.
void forceLogLevel(int level);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_SOURCE_H_

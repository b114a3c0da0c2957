#ifndef FLUVIAFS_TOOLS_SOURCE_H_
#define FLUVIAFS_TOOLS_SOURCE_H_

#include <string>

namespace tools {

// One open handle of the library; closed with the object.
//
// Threads: as the library: any thread may call any method while the object lives.
class Source {
 public:
  Source() = default;
  ~Source();
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  // Opens an absolute path, a relative one (made absolute) or a URL, with a buffer of bufferSize
  // bytes (0: the library's default). On failure returns false and says in *error what is wrong
  // with the source and what to do; a missing file is a failure here, unlike for the library.
  bool open(const std::string& name, int bufferSize, std::string* error);

  int handle() const { return handle_; }
  // What was opened: the URL, or the absolute path.
  const std::string& name() const { return name_; }
  bool isLocal() const { return local_; }

  // The size in bytes, or -1 when it cannot be learnt. May wait for the first byte.
  long long size() const;
  // Whether any offset can be reached. Leaves the position at 0.
  bool seekable() const;

  // What a result code of the library means for this source, with the code.
  std::string explain(const std::string& action, int code) const;

 private:
  // Why the local path cannot be streamed, or an empty text.
  std::string localProblem() const;

  int handle_ = 0;
  bool local_ = false;
  std::string name_;
};

// Applies the log level that was asked for on the command line: now and again after every open,
// because the first open of a process may replace it. Without a call the library decides.
void forceLogLevel(int level);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_SOURCE_H_

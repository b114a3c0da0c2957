#ifndef FLUVIAFS_TOOLS_MOUNT_MOUNTEDFILES_H_
#define FLUVIAFS_TOOLS_MOUNT_MOUNTEDFILES_H_

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "../Source.h"

namespace tools {

// Sources shown as the read-only files of one folder.
//
// Threads: add() before any other thread; the rest from any. Reads of one file take turns. Each
//          open of a file that cannot seek has its own download.
class MountedFiles {
 public:
  // One stream that reads use.
  struct Reading {
    Source source;
    std::timed_mutex turn;  // held from moving the position until its bytes are read
  };
  struct File {
    std::string name;       // in the folder, without a slash
    std::string given;      // the source's name on the command line
    long long size = -1;    // bytes, -1 if it cannot be determined
    bool seekable = false;  // if not, it is read only from beginning to end
    Reading shared;         // used by all readers if it is seekable
  };

  // Call before add(). Reads retry for that many seconds in an outage; notice reports outages, on
  // any thread. A read for whose thread unwanted() returns true ends while it waits for the next
  // retry or behind another read.
  void bearOutages(int seconds, std::function<void(const std::string& text)> notice,
                   std::function<bool()> unwanted);
  // Opens a source and waits for its first byte. Returns false with *error set if there is none.
  bool add(const std::string& source, std::string* error);

  const std::vector<std::unique_ptr<File>>& files() const { return files_; }
  // The file of that name, or null.
  File* find(const std::string& name) const;

  // Returns what an open of the file reads from: the shared one, or a new one for a file that
  // cannot seek, which end() closes. Returns null with *problem set to an errno if it cannot be
  // opened.
  Reading* begin(File* file, int* problem);
  void end(File* file, Reading* reading);

  // Reads at most size bytes at offset and waits for them. Returns their number, fewer only at the
  // end, or a negative errno.
  int read(const File& file, Reading* reading, char* buffer, size_t size, long long offset) const;

  // Ends all waiting reads and all later ones. Never waits.
  void abort();

 private:
  bool open(File* file, Reading* reading, std::string* error) const;
  bool isUnwanted() const { return unwanted_ && unwanted_(); }
  int readOn(Source* source, char* buffer, size_t size, long long offset) const;
  int errnoOf(const Source& source, int result) const;

  int seconds_ = 0;
  std::function<void(const std::string& text)> notice_;
  std::function<bool()> unwanted_;
  std::vector<std::unique_ptr<File>> files_;
  std::mutex lock_;
  bool aborted_ = false;                            // guarded by lock_
  std::vector<std::unique_ptr<Reading>> readings_;  // not shared; guarded by lock_
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_MOUNT_MOUNTEDFILES_H_

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
// Threads: add() before any other thread; the rest from any. Reads of one file take turns; whoever
//          opens a file that cannot seek has a download of its own.
class MountedFiles {
 public:
  // What bytes are read from.
  struct Reading {
    Source source;
    std::mutex turn;  // held from moving the position until its bytes are read
  };
  struct File {
    std::string name;       // in the folder, without a slash
    std::string given;      // the source's name, as it was given
    long long size = -1;    // bytes, -1 when it cannot be learnt
    bool seekable = false;  // else it is read from beginning to end only
    Reading shared;         // of all who read, when it is seekable
  };

  // Before add(): outages are borne that many seconds; notice is told of them, on any thread. A
  // read of whose thread unwanted() says so is broken off before the next try.
  void bearOutages(int seconds, std::function<void(const std::string& text)> notice,
                   std::function<bool()> unwanted);
  // Opens a source and waits for its first byte. False with *error set when it has none to give.
  bool add(const std::string& source, std::string* error);

  const std::vector<std::unique_ptr<File>>& files() const { return files_; }
  // The file of that name, or null.
  File* find(const std::string& name) const;

  // What somebody who opens the file reads from: the shared one, or for a file that cannot seek a
  // new one, which end() closes. Null with *problem set to an errno when it cannot be opened.
  Reading* begin(File* file, int* problem);
  void end(File* file, Reading* reading);

  // Reads at most size bytes at offset. Returns their number, fewer only at the end, or a negative
  // errno. Waits for them.
  static int read(const File& file, Reading* reading, char* buffer, size_t size, long long offset);

  // Every read that waits ends, and so do all later ones. Waits for nothing.
  void abort();

 private:
  bool open(File* file, Reading* reading, std::string* error) const;

  int seconds_ = 0;
  std::function<void(const std::string& text)> notice_;
  std::function<bool()> unwanted_;
  std::vector<std::unique_ptr<File>> files_;
  std::mutex lock_;
  bool aborted_ = false;                            // guarded by lock_
  std::vector<std::unique_ptr<Reading>> readings_;  // those that are not shared; guarded by lock_
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_MOUNT_MOUNTEDFILES_H_

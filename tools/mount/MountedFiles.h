#ifndef FLUVIAFS_TOOLS_MOUNT_MOUNTEDFILES_H_
#define FLUVIAFS_TOOLS_MOUNT_MOUNTEDFILES_H_

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "../Source.h"

namespace tools {

// Sources shown as the read-only files of one folder.
//
// Threads: add() before any other thread; the rest from any. Reads of one file take turns.
class MountedFiles {
 public:
  struct File {
    std::string name;     // in the folder, without a slash
    long long size = -1;  // bytes, -1 when it cannot be learnt
    Source source;
    std::mutex turn;  // held from moving the position until its bytes are read
  };

  // Opens a source and waits for its first byte. False with *error set when it has none to give.
  bool add(const std::string& source, std::string* error);

  const std::vector<std::unique_ptr<File>>& files() const { return files_; }
  // The file of that name, or null.
  File* find(const std::string& name) const;

  // Reads at most size bytes at offset. Returns their number, fewer only at the end, or a negative
  // errno. Waits for them.
  static int read(File* file, char* buffer, size_t size, long long offset);

 private:
  std::vector<std::unique_ptr<File>> files_;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_MOUNT_MOUNTEDFILES_H_

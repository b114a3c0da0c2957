#ifndef FLUVIAFS_WEBS_DULLFILEMANAGER_H_
#define FLUVIAFS_WEBS_DULLFILEMANAGER_H_

#include <string>

namespace webs {

class DullFile;
class FluviaFile;

// Registry of the open shared files: one for each URL text.
//
// Threads:   any; one lock serialises opens, closes and clean-ups, also while they wait.
// Ownership: owns the listed files. Files still listed when the process ends are not closed.
class DullFileManager {
 public:
  // Returns the shared file of url, referenced by file. Creates it with bufferSize bytes of buffer
  // if there is none. Returns null if file is null or the resource cannot be opened. If the shared
  // file is already open, this may wait until it has delivered its first byte.
  static DullFile* openDullFile(FluviaFile* file, const std::string& url, int bufferSize);
  // Drops file's reference to dullFile; the last one closes and destroys it.
  static void closeDullFile(FluviaFile* file, DullFile* dullFile);
  // Destroys every file that no handle references.
  static void cleanup();
  // Logs the buffer of the first listed file, at level 3 only.
  static void dumpDebugInfo();
  // Drops a use of a shared file; the last one closes and destroys it. The caller may hold no lock
  // but the registry's.
  static void unuse(DullFile* dullFile);

 private:
  // The list with its lock (DullFileManager.cpp).
  class Registry;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_DULLFILEMANAGER_H_

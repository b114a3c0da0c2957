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
  // The shared file of url, made with bufferSize bytes of buffer when there is none, referenced by
  // file. Null without file, or when the resource cannot be opened. On a file that is already open
  // it may wait until that has delivered its first byte.
  static DullFile* openDullFile(FluviaFile* file, const std::string& url, int bufferSize);
  // Takes file's reference off dullFile; the last one closes and destroys it.
  static void closeDullFile(FluviaFile* file, DullFile* dullFile);
  // Destroys every file that no handle references.
  static void cleanup();
  // Logs the buffer of the first listed file, at level 3 only.
  static void dumpDebugInfo();
  // Gives a use of a shared file back; the last one closes and destroys it. No lock may be held but
  // the registry's.
  static void unuse(DullFile* dullFile);

 private:
  // The list with its lock (DullFileManager.cpp).
  class Registry;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_DULLFILEMANAGER_H_

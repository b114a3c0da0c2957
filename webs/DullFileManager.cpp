#include "webs/DullFileManager.h"

#include <algorithm>
#include <list>
#include <memory>
#include <new>

#include "util/Log.h"
#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"
#include "webs/DullFile.h"

namespace webs {

// The open shared files, in the order of their creation.
//
// Threads:   any. openfsLock is held while a file is opened, closed or waited for; firstLock only
//            briefly: the dump must not wait for an open or a close.
// Ownership: each entry holds a use of its file. Never destroyed.
// Invariant: first is the front of openfs, or null.
class DullFileManager::Registry {
 public:
  static Registry& instance();

  DullFile* open(FluviaFile* file, const std::string& url, int bufferSize) EXCLUDES(openfsLock);
  void close(FluviaFile* file, DullFile* dullFile) EXCLUDES(openfsLock);
  void cleanup() EXCLUDES(openfsLock);
  // Returns the first listed file with one use added; null if there is none.
  DullFile* useFirst() EXCLUDES(firstLock);

 private:
  using List = std::list<DullFile*>;

  DullFile* shareListed(FluviaFile* file, const std::string& url) REQUIRES(openfsLock);
  void sweep() REQUIRES(openfsLock);
  // Removes a file from the list and drops the list's use of it.
  List::iterator unlist(List::iterator it) REQUIRES(openfsLock);
  void noteFirst() REQUIRES(openfsLock) EXCLUDES(firstLock);

  util::Semaphore openfsLock;
  List openfs GUARDED_BY(openfsLock);
  util::Semaphore firstLock;
  DullFile* first GUARDED_BY(firstLock) = nullptr;
};

DullFileManager::Registry& DullFileManager::Registry::instance() {
  static util::NeverDestroyed<Registry> registry;
  return *registry;
}

DullFile* DullFileManager::Registry::open(FluviaFile* file, const std::string& url,
                                          int bufferSize) {
  util::Lock lock(openfsLock);
  if (DullFile* shared = shareListed(file, url)) return shared;
  FLUVIA_LOG_AS("openDullFile", 1, "begin to open Dull File with buffer:%d", bufferSize);
  std::unique_ptr<DullFile> made(new (std::nothrow) DullFile(bufferSize));
  if (made == nullptr) {
    FLUVIA_LOG_AS("openDullFile", 1, "create file failed");
    return nullptr;
  }
  sweep();
  // Allocates everything before the producer exists: only close() releases the producer.
  List entry(1, made.get());
  made->reference(file);
  FLUVIA_LOG_AS("openDullFile", 1, "open new file for:%s", url.c_str());
  if (!made->open(url)) {
    made.reset();
    FLUVIA_LOG_AS("openDullFile", 1, "open file failed");
    return nullptr;
  }
  openfs.splice(openfs.end(), entry);
  noteFirst();
  return made.release();
}

// A listed file is always shared, seekable or not, volatile or not. The queries only ensure that it
// has delivered its first byte. The text is the same for all; this is intentional.
DullFile* DullFileManager::Registry::shareListed(FluviaFile* file, const std::string& url) {
  const auto it = std::find_if(openfs.begin(), openfs.end(),
                               [&url](const DullFile* listed) { return listed->equalTo(url); });
  if (it == openfs.end()) return nullptr;
  DullFile* found = *it;
  if (found->randomAccessable()) found->isVolatile();
  found->reference(file);
  FLUVIA_LOG_AS("openDullFile", 1,
                "have got a existing dull file because this file is seekable and non-volatile");
  return found;
}

DullFileManager::Registry::List::iterator DullFileManager::Registry::unlist(List::iterator it) {
  DullFile* dullFile = *it;
  it = openfs.erase(it);
  noteFirst();
  unuse(dullFile);
  return it;
}

void DullFileManager::Registry::noteFirst() {
  util::Lock lock(firstLock);
  first = openfs.empty() ? nullptr : openfs.front();
}

void DullFileManager::Registry::sweep() {
  for (auto it = openfs.begin(); it != openfs.end();) {
    if ((*it)->referenceNumber() != 0) {
      ++it;
      continue;
    }
    FLUVIA_LOG_AS("openDullFile", 1, "begin to delete file");
    it = unlist(it);
  }
}

void DullFileManager::Registry::close(FluviaFile* file, DullFile* dullFile) {
  util::Lock lock(openfsLock);
  const auto it = std::find(openfs.begin(), openfs.end(), dullFile);
  if (it == openfs.end()) {
    FLUVIA_LOG_AS("closeDullFile", 1, "error, the file hasn't been opened or it has been closed");
    return;
  }
  dullFile->dereference(file);
  if (dullFile->referenceNumber() != 0) return;
  FLUVIA_LOG_AS("closeDullFile", 1, "begin to delete file");
  unlist(it);
}

void DullFileManager::Registry::cleanup() {
  util::Lock lock(openfsLock);
  for (auto it = openfs.begin(); it != openfs.end();) {
    if ((*it)->referenceNumber() == 0) {
      it = unlist(it);
    } else {
      FLUVIA_LOG(1, "Error there's the file:%s hasn't been closed before cleanup",
                 (*it)->getUri().c_str());
      ++it;
    }
  }
}

DullFile* DullFileManager::Registry::useFirst() {
  util::Lock lock(firstLock);
  if (first != nullptr) first->use();
  return first;
}

DullFile* DullFileManager::openDullFile(FluviaFile* file, const std::string& url, int bufferSize) {
  if (file == nullptr) return nullptr;
  return Registry::instance().open(file, url, bufferSize);
}

void DullFileManager::closeDullFile(FluviaFile* file, DullFile* dullFile) {
  FLUVIA_LOG(1, "begin closeDullFile");
  Registry::instance().close(file, dullFile);
  FLUVIA_LOG(1, "End closeDullFile");
}

void DullFileManager::cleanup() { Registry::instance().cleanup(); }

void DullFileManager::dumpDebugInfo() {
  if (util::LOG_LEV < 3) return;
  DullFile* first = Registry::instance().useFirst();
  if (first == nullptr) return;
  first->dumpDebugInfo();
  unuse(first);
}

void DullFileManager::unuse(DullFile* dullFile) {
  if (!dullFile->unuse()) return;
  {
    util::Lock lock(*dullFile);
    dullFile->close();
  }
  delete dullFile;
}

}  // namespace webs

#include "webs/DullFileManager.h"

#include <algorithm>
#include <memory>
#include <new>

#include "util/Log.h"
#include "webs/DullFile.h"

namespace webs {

namespace {

util::NeverDestroyed<std::list<DullFile*>> openFiles;
util::NeverDestroyed<util::Semaphore> openFilesLock;
// Guards only the links of the list, for the dump that must not wait for an open or a close.
util::NeverDestroyed<util::Semaphore> openFilesLinks;

void closeAndDestroy(DullFile* dullFile) {
  {
    util::Lock lock(*dullFile);
    dullFile->close();
  }
  delete dullFile;
}

}  // namespace

std::list<DullFile*>& DullFileManager::openfs() { return *openFiles; }

util::Semaphore& DullFileManager::openfsLock() { return *openFilesLock; }

util::Semaphore& DullFileManager::linksLock() { return *openFilesLinks; }

DullFile* DullFileManager::openDullFile(FluviaFile* file, const std::string& url, int bufferSize) {
  if (file == nullptr) return nullptr;
  util::Lock lock(openfsLock());
  if (DullFile* shared = shareListed(file, url)) return shared;
  FLUVIA_LOG(1, "begin to open Dull File with buffer:%d", bufferSize);
  std::unique_ptr<DullFile> made(new (std::nothrow) DullFile(bufferSize));
  if (made == nullptr) {
    FLUVIA_LOG(1, "create file failed");
    return nullptr;
  }
  sweep();
  FLUVIA_LOG(1, "open new file for:%s", url.c_str());
  if (!made->open(url)) {
    made.reset();
    FLUVIA_LOG(1, "open file failed");
    return nullptr;
  }
  made->reference(file);
  util::Lock links(linksLock());
  openfs().push_back(made.get());
  return made.release();
}

// A listed file is always shared, seekable or not, volatile or not; the questions only make sure
// that it has delivered its first byte. The text is the same for all, wanted.
DullFile* DullFileManager::shareListed(FluviaFile* file, const std::string& url) {
  const auto it = std::find_if(openfs().begin(), openfs().end(),
                               [&url](const DullFile* listed) { return listed->equalTo(url); });
  if (it == openfs().end()) return nullptr;
  DullFile* found = *it;
  if (found->randomAccessable()) found->isVolatile();
  found->reference(file);
  FLUVIA_LOG_AS("openDullFile", 1,
                "have got a existing dull file because this file is seekable and non-volatile");
  return found;
}

std::list<DullFile*>::iterator DullFileManager::unlist(std::list<DullFile*>::iterator it) {
  DullFile* dullFile = *it;
  {
    util::Lock links(linksLock());
    it = openfs().erase(it);
  }
  unuse(dullFile);
  return it;
}

void DullFileManager::unuse(DullFile* dullFile) {
  if (dullFile->unuse()) closeAndDestroy(dullFile);
}

void DullFileManager::sweep() {
  for (auto it = openfs().begin(); it != openfs().end();) {
    if ((*it)->referenceNumber() != 0) {
      ++it;
      continue;
    }
    FLUVIA_LOG_AS("openDullFile", 1, "begin to delete file");
    it = unlist(it);
  }
}

void DullFileManager::closeDullFile(FluviaFile* file, DullFile* dullFile) {
  FLUVIA_LOG(1, "begin closeDullFile");
  {
    util::Lock lock(openfsLock());
    const auto it = std::find(openfs().begin(), openfs().end(), dullFile);
    if (it != openfs().end()) {
      dullFile->dereference(file);
      if (dullFile->referenceNumber() == 0) {
        FLUVIA_LOG(1, "begin to delete file");
        unlist(it);
      }
    } else {
      FLUVIA_LOG(1, "error, the file hasn't been opened or it has been closed");
    }
  }
  FLUVIA_LOG(1, "End closeDullFile");
}

void DullFileManager::cleanup() {
  util::Lock lock(openfsLock());
  for (auto it = openfs().begin(); it != openfs().end();) {
    if ((*it)->referenceNumber() == 0) {
      it = unlist(it);
    } else {
      FLUVIA_LOG(1, "Error there's the file:%s hasn't been closed before cleanup",
                 (*it)->getUri().c_str());
      ++it;
    }
  }
}

void DullFileManager::dumpDebugInfo() {
  if (util::LOG_LEV < 3) return;
  DullFile* first = nullptr;
  {
    util::Lock links(linksLock());
    if (openfs().empty()) return;
    first = openfs().front();
    first->use();
  }
  first->dumpDebugInfo();
  unuse(first);
}

}  // namespace webs

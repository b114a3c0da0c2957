#include "api/HandleTable.h"

#include <algorithm>
#include <list>

#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"

namespace api {

namespace {

constexpr int kFailed = -4;
constexpr int kNoHandle = -1;

webs::FluviaFile* handleTable[kMaxHandle + 1];  // index 0 is never used
util::NeverDestroyed<std::list<webs::FluviaFile*>> openedFiles;
util::NeverDestroyed<util::Semaphore> handleLock;

// The lowest free slot, or -1.
int _fluvia_file_get_index() {  // NOLINT(readability-identifier-naming)
  for (int index = 1; index <= kMaxHandle; ++index) {
    if (handleTable[index] == nullptr) return index;
  }
  FLUVIA_LOG(0, "open too many file, exceed the limitation %d", kMaxHandle);
  return kNoHandle;
}

std::list<webs::FluviaFile*>::iterator findOpened(int handle) {
  return std::find(openedFiles->begin(), openedFiles->end(), handleTable[handle]);
}

// Gives a file object back when it found no handle. Its shared file keeps that reference, wanted.
class OwnedFile {
 public:
  explicit OwnedFile(int bufferSize) : file_(new webs::FluviaFile(bufferSize)) {}
  ~OwnedFile() {
    if (file_ != nullptr) file_->unuse();
  }
  OwnedFile(const OwnedFile&) = delete;
  OwnedFile& operator=(const OwnedFile&) = delete;

  webs::FluviaFile* operator->() const { return file_; }
  webs::FluviaFile* get() const { return file_; }
  webs::FluviaFile* give() {
    webs::FluviaFile* file = file_;
    file_ = nullptr;
    return file;
  }

 private:
  webs::FluviaFile* file_;
};

}  // namespace

int HandleTable::open(const char* function, const char* url, int bufferSize, int* handle) {
  *handle = kNoHandle;
  util::Lock lock(*handleLock);
  OwnedFile file(bufferSize);
  // The entry's memory before the file is opened: afterwards nothing may fail.
  std::list<webs::FluviaFile*> entry(1, file.get());
  // The result is not looked at: the handle then has no shared file, and its calls fail.
  file->open(url);
  const int index = _fluvia_file_get_index();
  if (index == kNoHandle) {
    FLUVIA_LOG_AS(function, 0, "alloc file handle fail");
    return kFailed;
  }
  openedFiles->splice(openedFiles->end(), entry);
  handleTable[index] = file.give();
  *handle = index;
  return 0;
}

webs::FluviaFile* HandleTable::remove(int handle) {
  util::Lock lock(*handleLock);
  const auto it = findOpened(handle);
  if (it == openedFiles->end()) return nullptr;
  webs::FluviaFile* file = *it;
  openedFiles->erase(it);
  handleTable[handle] = nullptr;
  return file;
}

webs::FluviaFile* HandleTable::find(int handle) {
  util::Lock lock(*handleLock);
  // A slot and its entry among the opened files come and go together, under this lock: with 255
  // handles open a walk over them took longer than the rest of a small read.
  webs::FluviaFile* file = handleTable[handle];
  if (file != nullptr) file->use();
  return file;
}

}  // namespace api

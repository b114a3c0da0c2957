#include "api/HandleTable.h"

#include <algorithm>

#include "util/Results.h"

namespace api {

namespace {

constexpr int kNoHandle = -1;

util::NeverDestroyed<HandleTable> handles;

// Releases a file object that got no handle. Its shared file keeps the reference. Intentional.
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

HandleTable& HandleTable::instance() { return *handles; }

HandleTable::HandleTable() : handleTable{} {}

int HandleTable::_fluvia_file_get_index() const {
  for (int index = 1; index <= kMaxHandle; ++index) {
    if (handleTable[index] == nullptr) return index;
  }
  FLUVIA_LOG(0, "open too many file, exceed the limitation %d", kMaxHandle);
  return kNoHandle;
}

int HandleTable::open(const char* function, const char* url, int bufferSize, int* handle) {
  *handle = kNoHandle;
  util::Lock lock(handleLock);
  OwnedFile file(bufferSize);
  // Allocates the entry before the file is opened: after that nothing may fail.
  std::list<webs::FluviaFile*> entry(1, file.get());
  // The result is ignored: on failure the handle has no shared file, and its calls fail.
  file->open(url);
  const int index = _fluvia_file_get_index();
  if (index == kNoHandle) {
    FLUVIA_LOG_AS(function, 0, "alloc file handle fail");
    return util::CALL_FAILED;
  }
  openedFiles.splice(openedFiles.end(), entry);
  handleTable[index] = file.give();
  *handle = index;
  return util::CALL_OK;
}

webs::FluviaFile* HandleTable::remove(int handle) {
  util::Lock lock(handleLock);
  const auto it = std::find(openedFiles.begin(), openedFiles.end(), handleTable[handle]);
  if (it == openedFiles.end()) return nullptr;
  webs::FluviaFile* file = *it;
  openedFiles.erase(it);
  handleTable[handle] = nullptr;
  return file;
}

webs::FluviaFile* HandleTable::find(int handle) {
  util::Lock lock(handleLock);
  // Checks only the slot: with 255 open handles, searching openedFiles took longer than the rest of
  // a small read.
  webs::FluviaFile* file = handleTable[handle];
  if (file != nullptr) file->use();
  return file;
}

}  // namespace api

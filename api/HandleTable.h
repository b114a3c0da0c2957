#ifndef FLUVIAFS_API_HANDLETABLE_H_
#define FLUVIAFS_API_HANDLETABLE_H_

#include <cxxabi.h>

#include <exception>
#include <list>

#include "util/Log.h"
#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"
#include "webs/FluviaFile.h"

namespace api {

constexpr int kMaxHandle = 255;

// The process-wide table of open handles, 1 to 255.
//
// Threads:   any; one lock, held for table work and while a file is being opened, never while a
//            file object runs.
// Ownership: an entry holds one use of its file object, a Handle another one for its call. Never
//            destroyed: handles that are open when the process ends stay open.
// Invariant: a slot's file object is in openedFiles, and nothing else is there: a slot and its
//            entry come and go together.
class HandleTable {
 public:
  static HandleTable& instance();

  // Opens url under the lowest free handle and stores it in *handle, -1 if none is free. The file
  // object may have no shared file. Returns 0, or -4 if no handle is free. Log lines carry
  // function, the entry point's name.
  int open(const char* function, const char* url, int bufferSize, int* handle) EXCLUDES(handleLock);
  // Removes a handle from the table and returns its file object. Null if the handle is not open.
  webs::FluviaFile* remove(int handle) EXCLUDES(handleLock);
  // Returns the file object of an open handle and adds one use to it. Null if the handle is not
  // open.
  webs::FluviaFile* find(int handle) EXCLUDES(handleLock);

 private:
  friend class util::NeverDestroyed<HandleTable>;

  HandleTable();

  // The lowest free slot, or -1.
  int _fluvia_file_get_index() const REQUIRES(handleLock);  // NOLINT(readability-identifier-naming)

  webs::FluviaFile* handleTable[kMaxHandle + 1] GUARDED_BY(handleLock);  // 0 is never used
  std::list<webs::FluviaFile*> openedFiles GUARDED_BY(handleLock);       // in the order of opening
  util::Semaphore handleLock;
};

// Holds the file object of a handle during one call. If the handle is closed meanwhile, its reads
// end, and the last call inside the object deletes it.
class Handle {
 public:
  explicit Handle(int handle) : file_(HandleTable::instance().find(handle)) {}
  ~Handle() {
    if (file_ != nullptr) file_->unuse();
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  explicit operator bool() const { return file_ != nullptr; }
  webs::FluviaFile* operator->() const { return file_; }
  webs::FluviaFile* get() const { return file_; }

 private:
  webs::FluviaFile* file_;
};

// Returns true for 1 to 255; otherwise logs the refusal under the entry point's name.
inline bool inRange(const char* function, int handle) {
  if (handle >= 1 && handle <= kMaxHandle) return true;
  FLUVIA_LOG_AS(function, 0, "INVALID_HANDLE\n");
  return false;
}

// Runs the body of an entry point; no exception leaves the C interface.
template <typename Result, typename Body>
Result guarded(const char* function, Result failure, Body body) {
  try {
    return body(function);
  } catch (const abi::__forced_unwind&) {
    throw;  // the caller's thread is being cancelled
  } catch (const std::exception& error) {
    FLUVIA_LOG_AS(function, -4, "failed: %s", error.what());
    return failure;
  } catch (...) {
    FLUVIA_LOG_AS(function, -4, "failed");
    return failure;
  }
}

}  // namespace api

#endif  // FLUVIAFS_API_HANDLETABLE_H_

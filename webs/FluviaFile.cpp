#include "webs/FluviaFile.h"

#include <climits>

#include "util/Log.h"
#include "util/PausePoint.h"
#include "util/Results.h"
#include "webs/DullFile.h"
#include "webs/DullFileManager.h"

namespace webs {

namespace {

// Returns to - from, limited to the range of long long.
long long distance(long long from, long long to) {
  long long range = 0;
  if (!__builtin_sub_overflow(to, from, &range)) return range;
  return to < from ? LLONG_MIN : LLONG_MAX;
}
}  // namespace

FluviaFile::FluviaFile(int buffer)
    : dullFile(nullptr),
      keptFile(nullptr),
      insiders(1),
      bufferSize(buffer),
      position(0),
      miniSeqAtRead(0),
      liveFlag(false),
      closing(false),
      uses(1) {}

// A handle that was never closed leaves its reference behind, but not its use.
FluviaFile::~FluviaFile() {
  if (dullFile.exchange(nullptr) != nullptr) leaveShared();
}

void FluviaFile::unuse() {
  if (uses.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

FluviaFile::SharedUse::SharedUse(FluviaFile* file) : handle_(file) {
  handle_->insiders.fetch_add(1);
  FLUVIA_PAUSE_POINT("FluviaFile::SharedUse counted");
  file_ = handle_->dullFile.load();
  FLUVIA_PAUSE_POINT("FluviaFile::SharedUse taken");
}

FluviaFile::SharedUse::~SharedUse() { handle_->leaveShared(); }

// A call on a closed handle enters and leaves too: only the first one that leaves last has the use.
void FluviaFile::leaveShared() {
  if (insiders.fetch_sub(1) != 1) return;
  DullFile* kept = keptFile.exchange(nullptr);
  if (kept != nullptr) DullFileManager::unuse(kept);
}

bool FluviaFile::open(const std::string& url) {
  DullFile* file = DullFileManager::openDullFile(this, url, bufferSize);
  if (file == nullptr) return false;
  file->use();
  keptFile = file;
  dullFile = file;
  return true;
}

void FluviaFile::close() {
  closing = true;
  DullFile* given = nullptr;
  {
    SharedUse file(this);
    if (file) file->withdrawReads(this);
    given = dullFile.exchange(nullptr);
  }
  // The registry still holds this handle's reference, which keeps the file alive.
  if (given != nullptr) leaveShared();
  DullFileManager::closeDullFile(this, given);
}

int FluviaFile::read(char* buffer, unsigned int size, unsigned int* readBytes) {
  SharedUse file(this);
  if (!file) return util::CALL_FAILED;
  if (util::LOG_LEV >= 2) {
    const bool seekable = file->randomAccessable(this);
    const long long oldest = file->getMiniBufferSeq();
    FLUVIA_LOG(2, "FluviaFile read: size=%d, position=%lld, seekable=%d, miniSeq=%lld",
               static_cast<int>(size), position.get(), seekable, oldest);
  }
  int result = util::CALL_FAILED;
  {
    DullFile::Turn turn(file.get(), this, position, size);
    *readBytes = 0;
    if (!turn.isBroken()) {
      util::Lock lock(*file.get());
      // Its query also logs a trace line. Below that level only a volatile resource needs it.
      if (liveFlag || util::LOG_LEV >= 2) followLiveStream(file.get());
      result = file->read(buffer, size, position, readBytes, this, &turn);
      turn.hasRead(*readBytes);
      if (result == util::READ_OK || result == util::READ_END) position += *readBytes;
    }
  }
  FLUVIA_LOG(2, "FluviaFile readed=%d", static_cast<int>(*readBytes));
  return result;
}

void FluviaFile::followLiveStream(DullFile* file) {
  const long long oldest = file->getMiniBufferSeq();
  if (position >= oldest || !liveFlag) return;
  FLUVIA_LOG_AS("read", 0, "fluviaFile : read: liveflag = true");
  miniSeqAtRead = oldest;
  position += oldest;  // added, not assigned; intentional
}

int FluviaFile::readAsync(char* buffer, unsigned int size, ReadCallback callback, void* userData,
                          int* requestId, int* issued) {
  SharedUse file(this);
  if (!file) return util::CALL_FAILED;
  return file->readAsync(buffer, size, position, callback, userData, requestId, this, issued);
}

int FluviaFile::cancelRead(int requestId) {
  FLUVIA_LOG(1, "cancelRead");
  SharedUse file(this);
  if (!file) return util::CALL_FAILED;
  return file->cancelRead(requestId, this);
}

int FluviaFile::seek(long long offset, long long* currentOffset) {
  FLUVIA_LOG(1, "seek begin");
  SharedUse file(this);
  if (!file) {
    FLUVIA_LOG(1, "seek fail");
    return util::CALL_FAILED;
  }
  int result = util::CALL_FAILED;
  {
    util::Lock lock(*this);
    result = seekLocked(file.get(), offset, currentOffset);
  }
  if (result == util::CALL_OK) FLUVIA_LOG(1, "seek End");
  return result;
}

int FluviaFile::seekLocked(DullFile* file, long long offset, long long* currentOffset) {
  const long long range = distance(position, offset);
  FLUVIA_LOG_AS("seek", 1, "FluviaFile-Seek : range:=%lld, offset=%lld, position=%lld", range,
                offset, position.get());
  FLUVIA_LOG_AS("getSize", 0, "fluviafile getSize");
  const long long size = file->getSize(this);
  FLUVIA_LOG_AS("seek", 1, "FluviaFile-getSize : %lld", size);
  if (size == 0) {
    FLUVIA_LOG_AS("seek", 0, "lseek in a 0 size of file");
    return util::CALL_FAILED;
  }
  const long long newPosition = size < offset ? size : offset;
  *currentOffset = newPosition;
  FLUVIA_LOG_AS("seek", 1, "current Offset:=%lld, getsize=%lld", newPosition, size);
  if (!file->randomAccessable(this)) {
    const long long oldest = file->getMiniBufferSeq();
    FLUVIA_LOG_AS("seek", 1, "randomAccessable false and offset=%lld, miniSeq=%lld", offset,
                  oldest);
    if (offset < oldest) liveFlag = true;
    if ((range < 0 && newPosition > kSeekSpan) || range > kSeekSpan) {
      FLUVIA_LOG_AS("seek", 0, "fluviafs seek busy: range:%lld, new position:%lld", range,
                    newPosition);
      return util::SEEK_REFUSED;
    }
  }
  position = newPosition;
  FLUVIA_LOG_AS("seek", 1, "current position: %lld\n", newPosition);
  return util::CALL_OK;
}

long long FluviaFile::getSize() {
  FLUVIA_LOG(0, "fluviafile getSize");
  SharedUse file(this);
  return file ? file->getSize(this) : util::CALL_FAILED;
}

int FluviaFile::getBufferSize() {
  SharedUse file(this);
  return file ? file->getBufferSize() : util::CALL_FAILED;
}

int FluviaFile::getBufferedSize() {
  SharedUse file(this);
  return file ? file->getBufferedSize(position) : util::CALL_FAILED;
}

void FluviaFile::volatileContent() {
  SharedUse file(this);
  if (!file) return;
  util::Lock lock(*file.get());
  file->volatileContent();
}

void FluviaFile::cleanupCache() { DullFileManager::cleanup(); }

FileRequest* FluviaFile::getRequest() {
  SharedUse file(this);
  return file ? file->getRequest() : nullptr;
}

const char* FluviaFile::keepContentType(const std::string& value) {
  util::Lock lock(useLock);
  contentType = value;
  return contentType.c_str();
}

const char* FluviaFile::keepServerName(const std::string& value) {
  util::Lock lock(useLock);
  serverName = value;
  return serverName.c_str();
}

void FluviaFile::newPosMovedByDullFile(long long oldPosition, long long newPosition) {
  util::Lock lock(*this);
  position.replace(oldPosition, newPosition);
}

}  // namespace webs

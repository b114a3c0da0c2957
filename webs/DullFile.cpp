// The shared file: opening, closing, blocking reads and queries of the buffer.
#include "webs/DullFile.h"

#include <algorithm>
#include <limits>

#include "util/Log.h"
#include "util/PausePoint.h"
#include "util/Results.h"
#include "util/ThreadEngine.h"
#include "webs/AsyncReads.h"
#include "webs/FileRequest.h"
#include "webs/FileRequestAdaptor.h"
#include "webs/FluviaFile.h"

namespace webs {

DullFile::DullFile(int bufferSize)
    : unused(0),
      referenceCount(0),
      request(nullptr),
      rbuffer(bufferSize),
      currentReader(nullptr),
      nowReader(nullptr),
      nowRequest(nullptr),
      nowNumber(0),
      lastNumber(0),
      brokenUpTo(0),
      uses(1),
      turns(&rbuffer) {
  static_cast<void>(unused);
}

DullFile::~DullFile() = default;

bool DullFile::open(const std::string& url) {
  uri = url;
  request = FileRequestAdaptor::createFileRequest(url);
  if (request == nullptr) {
    FLUVIA_LOG(1, "producer is null");
    return false;
  }
  request->setOutput(&rbuffer);
  if (!request->initialize()) {
    FLUVIA_LOG(1, "producer init failed");
    return false;
  }
  FLUVIA_LOG(1, "producer init  ok");
  if (!rbuffer.initialize(request)) {
    FLUVIA_LOG(1, "rbuffer.init failed");
    return false;
  }
  rbuffer.setUri(url);
  FLUVIA_LOG(1, "open file ok");
  return true;
}

void DullFile::close() {
  util::Lock lock(readLock);
  FLUVIA_LOG(1, "begin to cancelAll");
  util::ThreadEngine::getInstance()->cancelAll(this);
  FLUVIA_LOG(1, "begin to release rbuffer");
  rbuffer.release();
  FLUVIA_LOG(1, "begin to release producer");
  FileRequestAdaptor::releaseFileRequest(request);
  request = nullptr;
  lock.release();
  FLUVIA_LOG(1, "close End");
}

void DullFile::reference(FluviaFile* file) {
  std::list<FluviaFile*> made(1, file);
  turns.join(file);
  util::Lock lock(readLock);
  references.splice(references.end(), made);
  ++referenceCount;
}

void DullFile::dereference(FluviaFile* file) {
  FLUVIA_LOG(1, "begin dereference dullfile");
  {
    util::Lock lock(readLock);
    if (file == currentReader) {
      FLUVIA_LOG(1, "breakRead");
      rbuffer.breakRead();
      FLUVIA_LOG(1, "breakRead End");
    }
    --referenceCount;
    references.remove(file);
    FLUVIA_LOG(1, "dereference a file");
    currentReader = nullptr;
  }
  turns.forget(file);
  FLUVIA_LOG(1, "End dereference dullfile");
}

int DullFile::read(char* buffer, unsigned int size, long long offset, unsigned int* readBytes,
                   FluviaFile* reader, const Turn* turn) {
  return readFor(nullptr, buffer, size, offset, readBytes, reader, turn);
}

int DullFile::readFor(AsyncReadRequest* record, char* buffer, unsigned int size, long long offset,
                      unsigned int* readBytes, FluviaFile* reader, const Turn* turn) {
  *readBytes = 0;
  int result = util::READ_FAILED;
  unsigned long long number = 0;
  if (!beginReading(record, reader, turn, &number, &result)) return result;
  // Also if the caller's thread is cancelled while it waits.
  const EndOfReading end(this);
  FLUVIA_PAUSE_POINT("DullFile::read begun");
  if (isEmptyLocal()) {
    // The buffer takes a size of 0 for unknown: it would request the missing bytes for ever.
    result = util::READ_END;
  } else {
    long long currentOffset = 0;
    const bool ok = rbuffer.seek(offset, &currentOffset);
    FLUVIA_LOG_AS("read", 1, "seek:  %d , offset =%lld, curOffset = %lld", ok, offset,
                  currentOffset);
    FLUVIA_PAUSE_POINT("DullFile::read moved");
    if (ok) {
      result = rbuffer.read(buffer, size, readBytes, number);
    } else {
      FLUVIA_LOG_AS("read", 1, "move position failed before read");
      result = util::READ_FAILED;
    }
  }
  FLUVIA_LOG_AS("read", 1, "read end, error = %d", result);
  return result;
}

// Registers the reader. False: the read must not take place, *refusal says why.
//
// No abort of a blocking read that waited for its turn is lost. cancelRead() first calls
// turns.breakWait(), which ends the wait or marks the read as met. Then it checks nowReader under
// readLock. This function checks the mark and sets nowReader while it holds readLock once. If the
// mark was set before the check, the read is refused. If it was set after the check, cancelRead()
// sees nowReader, finds this read and aborts it. A request needs no mark in the turns:
// breakRequest() marks it under readLock.
bool DullFile::beginReading(AsyncReadRequest* record, FluviaFile* reader, const Turn* turn,
                            unsigned long long* number, int* refusal) {
  util::Lock lock(readLock);
  waitForBrokenOnes();
  const bool refers = !reader->isClosing() &&
                      std::find(references.begin(), references.end(), reader) != references.end();
  if (record != nullptr && !AsyncReads::instance().beginReading(record, refusal)) return false;
  if (!refers || (turn != nullptr && turn->wasMet())) {
    FLUVIA_LOG_AS("read", 1, "read failed in dull file");
    *refusal = util::READ_FAILED;
    return false;
  }
  currentReader = reader;
  nowReader = reader;
  nowRequest = record;
  nowNumber = ++lastNumber;
  *number = nowNumber;
  return true;
}

void DullFile::endReading() {
  util::Lock lock(readLock);
  nowReader = nullptr;
  nowRequest = nullptr;
  readLock.notifyAll(0);
}

bool DullFile::isEmptyLocal() const {
  return request != nullptr && request->getType() == SOURCE_LOCAL && request->getContentSize() == 0;
}

bool DullFile::randomAccessable(FluviaFile* reader) {
  rbuffer.forgetBrokenRead();
  if (!isEmptyLocal() && rbuffer.getContentSize() == 0 && !rbuffer.errorOccured()) {
    FLUVIA_LOG(1, "begin to read");
    probe(reader);
  }
  return rbuffer.isRandomAccess();
}

// Reads the first byte for a handle, or for the registry (null). Retries if an abort met it that
// was meant for other reads: only the close of its own handle and an abort without a number end it.
void DullFile::probe(FluviaFile* reader) {
  for (bool again = true; again;) {
    RunningProbe running(this, reader);
    if (!running.begin()) return;
    FLUVIA_PAUSE_POINT("DullFile::probe begun");
    rbuffer.probe(running.number());
    again = running.wasBrokenInPassing();
  }
}

bool DullFile::RunningProbe::begin() {
  const util::Lock lock(file_->readLock);
  file_->waitForBrokenOnes();
  Prober& prober = entry_.front();
  if (prober.reader != nullptr && prober.reader->isClosing()) return false;
  prober.number = ++file_->lastNumber;
  number_ = prober.number;
  file_->probers.splice(file_->probers.end(), entry_);
  return true;
}

bool DullFile::RunningProbe::wasBrokenInPassing() {
  const util::Lock lock(file_->readLock);
  if (number_ > file_->brokenUpTo) return false;
  return std::none_of(file_->probers.begin(), file_->probers.end(), [this](const Prober& prober) {
    return prober.number == number_ && prober.meant;
  });
}

DullFile::RunningProbe::~RunningProbe() {
  const util::Lock lock(file_->readLock);
  file_->probers.remove_if([this](const Prober& prober) { return prober.number == number_; });
  file_->readLock.notifyAll(0);
}

long long DullFile::getSize(FluviaFile* reader) {
  FLUVIA_LOG(1, "DullFile getSize");
  if (isEmptyLocal()) return 0;
  rbuffer.forgetBrokenRead();
  if (rbuffer.getContentSize() == 0) {
    if (!rbuffer.errorOccured()) {
      FLUVIA_LOG(2, "begin to read");
      probe(reader);
    } else {
      FLUVIA_LOG(2, " errorOccured:%d", rbuffer.errorOccured());
    }
  }
  return rbuffer.getContentSize();
}

int DullFile::getBufferedSize(long long position) {
  const long long held = rbuffer.getBufferedSize(position);
  return static_cast<int>(
      std::min<long long>(std::max(held, 0LL), std::numeric_limits<int>::max()));
}

}  // namespace webs

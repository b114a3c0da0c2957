// The shared file: opening, closing, blocking reads and what is asked of the buffer.
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

namespace {
// How often a break is repeated on a read that had not yet begun to wait when it was broken.
constexpr int kBreakRepeatMs = 5;
}  // namespace

DullFile::DullFile(int bufferSize)
    : unused(0),
      referenceCount(0),
      request(nullptr),
      rbuffer(bufferSize),
      currentReader(nullptr),
      nowReader(nullptr),
      nowRequest(nullptr),
      readGeneration(0),
      breakers(0),
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
  util::Lock lock(readLock);
  references.push_back(file);
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
                   FluviaFile* reader) {
  return readFor(nullptr, buffer, size, offset, readBytes, reader);
}

int DullFile::readFor(AsyncReadRequest* record, char* buffer, unsigned int size, long long offset,
                      unsigned int* readBytes, FluviaFile* reader) {
  *readBytes = 0;
  int result = util::READ_FAILED;
  if (!beginReading(record, reader, &result)) return result;
  // Also when the caller's thread is cancelled while it waits.
  const EndOfReading end(this);
  FLUVIA_PAUSE_POINT("DullFile::read begun");
  if (isEmptyLocal()) {
    // To the buffer a size of 0 means unknown: it would ask for the missing bytes for ever.
    result = util::READ_END;
  } else {
    long long currentOffset = 0;
    const bool ok = rbuffer.seek(offset, &currentOffset);
    FLUVIA_LOG_AS("read", 1, "seek:  %d , offset =%lld, curOffset = %lld", ok, offset,
                  currentOffset);
    FLUVIA_PAUSE_POINT("DullFile::read moved");
    if (ok) {
      result = rbuffer.read(buffer, size, readBytes);
    } else {
      FLUVIA_LOG_AS("read", 1, "move position failed before read");
      result = util::READ_FAILED;
    }
  }
  FLUVIA_LOG_AS("read", 1, "read end, error = %d", result);
  return result;
}

// Registers who reads. False: the read does not take place, *refusal says why.
bool DullFile::beginReading(AsyncReadRequest* record, FluviaFile* reader, int* refusal) {
  util::Lock lock(readLock);
  const bool refers = !reader->isClosing() &&
                      std::find(references.begin(), references.end(), reader) != references.end();
  if (record != nullptr && !AsyncReads::instance().beginReading(record, refusal)) return false;
  if (!refers) {
    FLUVIA_LOG_AS("read", 1, "read failed in dull file");
    *refusal = util::READ_FAILED;
    return false;
  }
  currentReader = reader;
  nowReader = reader;
  nowRequest = record;
  ++readGeneration;
  return true;
}

void DullFile::endReading() {
  util::Lock lock(readLock);
  nowReader = nullptr;
  nowRequest = nullptr;
  if (breakers > 0) readLock.notifyAll(0);
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

// Reads the first byte for a handle, or for the registry (null).
void DullFile::probe(FluviaFile* reader) {
  std::list<FluviaFile*> mine(1, reader);
  const auto entry = mine.begin();
  {
    util::Lock lock(readLock);
    if (reader != nullptr && reader->isClosing()) return;
    probers.splice(probers.end(), mine);
  }
  rbuffer.probe();
  util::Lock lock(readLock);
  mine.splice(mine.end(), probers, entry);
}

// Breaks the probes of a handle that is being closed until none is left. Like every break while the
// size is unknown it meets whoever reads.
void DullFile::breakProbes(FluviaFile* reader) {
  util::Lock lock(readLock);
  while (std::find(probers.begin(), probers.end(), reader) != probers.end()) {
    rbuffer.breakRead();
    readLock.waitFor(kBreakRepeatMs);
  }
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

// Breaks the read of that number until it has ended. Under readLock, so that no other read can
// begin in between and be met instead. Repeated, because the read may not yet have reached the
// point from which on the buffer knows of it.
void DullFile::breakUntilEnded(unsigned int generation) {
  util::Lock lock(readLock);
  ++breakers;
  while (nowReader != nullptr && readGeneration == generation) {
    rbuffer.breakRead();
    readLock.waitFor(kBreakRepeatMs);
  }
  --breakers;
}

}  // namespace webs

// Asynchronous reads, aborts and closes of a resource.
#include <algorithm>
#include <exception>

#include "util/Log.h"
#include "util/PausePoint.h"
#include "util/Results.h"
#include "webs/AsyncReads.h"
#include "webs/DullFile.h"
#include "webs/FluviaFile.h"

namespace webs {

int DullFile::readAsync(char* buffer, unsigned int size, long long offset, ReadCallback callback,
                        void* userData, int* requestId, FluviaFile* reader, int* issued) {
  AsyncReadRequest wanted;
  wanted.buffer = buffer;
  wanted.size = size;
  wanted.offset = offset;
  wanted.callback = callback;
  wanted.userData = userData;
  wanted.file = this;
  wanted.reader = reader;
  return AsyncReads::instance().ask(wanted, requestId, issued);
}

void DullFile::perform(void* arg, util::TEngineEvent_E event) {
  AsyncReadRequest* record = static_cast<AsyncReadRequest*>(arg);
  FLUVIA_LOG(1, "(((((((((((( request count :%d: & buffer is: %p))))))))))))",
             static_cast<int>(record->size), static_cast<void*>(record->buffer));
  if (event == util::TENGINE_EXECUTE) {
    runRead(record);
  } else {
    AsyncReads::instance().withdrawn(record);
  }
}

void DullFile::runRead(AsyncReadRequest* record) {
  DullFile* file = record->file;
  AsyncReads::instance().start(record);
  FLUVIA_PAUSE_POINT("DullFile::perform started");
  unsigned int readBytes = 0;
  int result = util::READ_FAILED;
  {
    Turn turn(file, record->reader, record->offset, record->size, record);
    if (!turn.isBroken()) {
      util::Lock lock(*file);
      try {
        result = file->readFor(record, record->buffer, record->size, record->offset, &readBytes,
                               record->reader, &turn);
        turn.hasRead(readBytes);
      } catch (const std::exception& error) {
        FLUVIA_LOG_AS("perform", -4, "failed: %s", error.what());
      }
    }
  }
  AsyncReads::instance().endReading(record, result, readBytes);
}

bool DullFile::isGivenUp(const void* record) {
  return AsyncReads::instance().isGivenUp(static_cast<const AsyncReadRequest*>(record));
}

int DullFile::cancelRead(int requestId, FluviaFile* reader) {
  FLUVIA_LOG(-4, "cancelRead, reqID:%d", requestId);
  if (requestId < 0 || requestId > kMaxRequests) {
    FLUVIA_LOG(-1, "reqID(%d) is invalid", requestId);
    return util::NOT_APPLIED;
  }
  if (requestId == 0) {
    turns.breakWait(reader, nullptr);
    breakReader(reader);
  } else {
    AsyncReads::instance().cancel(requestId, reader);
  }
  return util::CALL_OK;
}

// --- aborts --------------------------------------------------------------------------------------
//
// Every read and probe has a number, assigned under readLock before it enters the buffer. An abort
// names all numbers assigned so far: a probe that came later than the aborted read may be ahead of
// it in the buffer and would keep it there. So one abort is enough, whatever the state of the read.
// Until all reads and probes with such a number have left, no other one begins: it would be ahead
// of them. They leave at once; a probe that the abort was not meant for then begins again.
//
// A thread that waits on readLock's condition waits for a read or a probe to leave. endReading()
// and the end of a RunningProbe wake all of them.

bool DullFile::isBrokenOneInside() const {
  if (nowReader != nullptr && nowNumber <= brokenUpTo) return true;
  return std::any_of(probers.begin(), probers.end(),
                     [this](const Prober& prober)
                         REQUIRES(readLock) { return prober.number <= brokenUpTo; });
}

void DullFile::waitForBrokenOnes() {
  while (isBrokenOneInside()) readLock.wait(0);
}

unsigned long long DullFile::breakAll() {
  brokenUpTo = lastNumber;
  return brokenUpTo;
}

// Aborts the read of that number, unless it has ended, and waits until it has. Calls the buffer
// without readLock, because the buffer waits until a running read has noticed.
void DullFile::breakUntilEnded(unsigned long long number) {
  FLUVIA_PAUSE_POINT("DullFile::breakUntilEnded");
  unsigned long long highest = 0;
  {
    util::Lock lock(readLock);
    if (nowReader == nullptr || nowNumber != number) return;
    highest = breakAll();
  }
  rbuffer.breakReads(highest);
  util::Lock lock(readLock);
  while (nowReader != nullptr && nowNumber == number) readLock.wait(0);
}

// Aborts the probes of a handle that is being closed and waits until none is left. Like every abort
// while the size is unknown this affects any read.
void DullFile::breakProbes(const FluviaFile* reader) {
  unsigned long long highest = 0;
  {
    util::Lock lock(readLock);
    if (!isProbing(reader)) return;
    highest = breakAll();
  }
  rbuffer.breakReads(highest);
  util::Lock lock(readLock);
  while (isProbing(reader)) readLock.wait(0);
}

bool DullFile::isProbing(const FluviaFile* reader) const {
  return std::any_of(probers.begin(), probers.end(),
                     [reader](const Prober& prober) { return prober.reader == reader; });
}

// Aborts the current read of that handle. While the size is unknown aborts any read, also a probe
// that has not entered the buffer yet.
void DullFile::breakReader(FluviaFile* reader) {
  unsigned long long number = 0;
  unsigned long long highest = 0;
  {
    util::Lock lock(readLock);
    if (reader == nowReader) {
      number = nowNumber;
    } else if (reader == currentReader || rbuffer.getContentSize() == 0) {
      for (Prober& prober : probers) prober.meant = true;
      highest = breakAll();
    } else {
      return;
    }
  }
  if (number != 0) {
    breakUntilEnded(number);
  } else {
    rbuffer.breakReads(highest);
  }
}

void DullFile::breakRequest(AsyncReadRequest* record, FluviaFile* reader) {
  unsigned long long number = 0;
  bool reads = false;
  {
    util::Lock lock(readLock);
    reads = AsyncReads::instance().mark(record, reader) && nowRequest == record;
    number = nowNumber;
    currentReader = nullptr;
  }
  if (reads) {
    breakUntilEnded(number);
  } else {
    turns.breakWait(reader, record);
  }
}

void DullFile::withdrawReads(FluviaFile* reader) {
  AsyncReads::instance().answerAll(reader);
  // Its requests are answered: those that wait for a turn need no callback now.
  turns.breakForClose(reader);
  breakProbes(reader);
  bool inside = false;
  unsigned long long number = 0;
  {
    util::Lock lock(readLock);
    inside = nowReader == reader;
    number = nowNumber;
  }
  // No other read of this handle begins: it is being closed.
  if (inside) breakUntilEnded(number);
  AsyncReads::instance().waitForEnd(reader);
}

}  // namespace webs

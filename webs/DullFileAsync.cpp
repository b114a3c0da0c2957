// Asynchronous reads, aborts and closes of a resource.
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
    Turn turn(file, record->reader, record->offset);
    util::Lock lock(*file);
    try {
      result = file->readFor(record, record->buffer, record->size, record->offset, &readBytes,
                             record->reader);
      turn.hasRead(readBytes);
    } catch (const std::exception& error) {
      FLUVIA_LOG_AS("perform", -4, "failed: %s", error.what());
    }
  }
  AsyncReads::instance().endReading(record, result, readBytes);
}

int DullFile::cancelRead(int requestId, FluviaFile* reader) {
  FLUVIA_LOG(-4, "cancelRead, reqID:%d", requestId);
  if (requestId < 0 || requestId > kMaxRequests) {
    FLUVIA_LOG(-1, "reqID(%d) is invalid", requestId);
    return util::NOT_APPLIED;
  }
  if (requestId == 0) {
    breakReader(reader);
  } else {
    AsyncReads::instance().cancel(requestId, reader);
  }
  return util::CALL_OK;
}

// Breaks what reads for that handle now.
void DullFile::breakReader(FluviaFile* reader) {
  unsigned int generation = 0;
  {
    util::Lock lock(readLock);
    if (reader != nowReader) {
      if (reader == currentReader || rbuffer.getContentSize() == 0) rbuffer.breakRead();
      return;
    }
    generation = readGeneration;
  }
  breakUntilEnded(generation);
}

void DullFile::breakRequest(AsyncReadRequest* record, FluviaFile* reader) {
  unsigned int generation = 0;
  bool reads = false;
  {
    util::Lock lock(readLock);
    reads = AsyncReads::instance().mark(record, reader) && nowRequest == record;
    generation = readGeneration;
    currentReader = nullptr;
  }
  if (reads) breakUntilEnded(generation);
}

void DullFile::withdrawReads(FluviaFile* reader) {
  AsyncReads::instance().answerAll(reader);
  breakProbes(reader);
  bool inside = false;
  unsigned int generation = 0;
  {
    util::Lock lock(readLock);
    inside = nowReader == reader;
    generation = readGeneration;
  }
  // No other read of this handle begins: it is being closed.
  if (inside) breakUntilEnded(generation);
  AsyncReads::instance().waitForEnd(reader);
}

}  // namespace webs

#include "webs/LocalFileRequest.h"

#include <sys/stat.h>

#include "util/Log.h"
#include "util/PausePoint.h"

LocalFileRequest::LocalFileRequest(const std::string& path)
    : FileRequest(path),
      worker(&LocalFileRequest::perform),
      stopped(false),
      running(false),
      currentRun(0) {}

LocalFileRequest::~LocalFileRequest() { FLUVIA_LOG(1, "1"); }

// Opens the file. Only a regular file or a block device: a directory would open and never end, a
// FIFO would wait for its writer.
bool LocalFileRequest::openFile() {
  struct stat status;
  static_assert(sizeof status.st_size == 8, "files above 2 GiB are opened on every target");
  if (stat(url.c_str(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) return false;
  file.open(url);
  return file.is_open();
}

bool LocalFileRequest::initialize() {
  util::Lock lock(*this);
  if (!openFile()) return false;
  file.seekg(0, std::ios::end);
  contentSize = static_cast<unsigned int>(static_cast<long long>(file.tellg()));
  file.seekg(0, std::ios::beg);
  FLUVIA_LOG(1, "xxxxx file size:%d", static_cast<int>(contentSize.get()));
  return true;
}

// The caller is responsible for the lock: stopStreaming holds it, the owner calls this when no run
// is left.
void LocalFileRequest::release() NO_THREAD_SAFETY_ANALYSIS {
  FLUVIA_LOG(1, "file relsease begin");
  file.close();
  FLUVIA_LOG(1, "file relsease end");
}

bool LocalFileRequest::reopen() {
  file.close();
  file.clear();
  return openFile();
}

int LocalFileRequest::startStreaming(int runVersion, long long offset, long long count) {
  util::Lock lock(*this);
  FLUVIA_LOG(1, "%lld ~ %lld", offset, count);
  requestCount = static_cast<unsigned int>(count);  // before any check, and only 32 bits;
                                                    // intentional
  if (out == nullptr) {
    lock.release();
    FLUVIA_LOG(1, "start streaming at local cause of out is null");
    return -1;
  }
  if (running) {
    lock.release();
    FLUVIA_LOG(1, "1");
    return -1;
  }
  if (stopped && !reopen()) {
    FLUVIA_LOG(0, "Open file fail");
    return 0;
  }
  out->notifyStreamException(util::STREAM_NORMAL);
  file.clear();  // the last run may have met the end of the file
  file.seekg(offset, std::ios::beg);
  version = runVersion;
  FLUVIA_LOG(0, "file offset:%d", static_cast<int>(file.tellg()));
  stopped = false;
  running = true;
  ++currentRun;
  // A start that fails because a request is pending is not an error: that run finds the new one.
  if (!worker.start(this) && (!worker.isAlive() || worker.needForceClose())) {
    running = false;
    return -1;
  }
  FLUVIA_LOG(1, "local start streaming end");
  return 0;
}

int LocalFileRequest::stopStreaming() {
  FLUVIA_PAUSE_POINT("LocalFileRequest::stopStreaming");
  util::Lock lock(*this);
  FLUVIA_LOG(1, "begin to stop LocalFile streaming");
  worker.stop(false);
  stopped = true;
  running = false;
  FLUVIA_LOG(1, " stop LocalFile streaming OK");
  release();
  return 0;
}

void* LocalFileRequest::perform(void* self) {
  static_cast<LocalFileRequest*>(self)->deliver();
  return nullptr;
}

void LocalFileRequest::deliver() {
  unsigned int run = 0;
  unsigned int count = 0;
  int runVersion = 0;
  FLUVIA_PAUSE_POINT("LocalFileRequest::perform begin");
  {
    util::Lock lock(*this);
    if (!running) return;
    run = currentRun;
    count = requestCount;
    runVersion = version;
  }
  FLUVIA_LOG_AS("perform", 1, "local read begin version: %d, count:%d, ", runVersion,
                static_cast<int>(count));
  char chunk[kChunk];
  unsigned int total = 0;
  // Equality is intentional: a count that the chunks step over runs to the end of the file.
  while (count == 0 || total != count) {
    const int got = read(chunk, kChunk, runVersion, run);
    if (got == -1) {
      FLUVIA_LOG_AS("perform", 1, "LocalFileRequest break from streaming");
      break;
    }
    total += static_cast<unsigned int>(got);
  }
  FLUVIA_PAUSE_POINT("LocalFileRequest::perform before end");
  notifyPerformEnd(run);
  FLUVIA_LOG_AS("perform", 1, "LocalFileRequest::perform finished, count:%d",
                static_cast<int>(count));
}

bool LocalFileRequest::runIsOver(unsigned int run) {
  return stopped || run != currentRun || worker.needForceClose() || file.eof();
}

int LocalFileRequest::read(char* buffer, unsigned int size, int runVersion, unsigned int run) {
  FLUVIA_PAUSE_POINT("LocalFileRequest::read");
  util::Lock lock(*this);
  if (runIsOver(run)) return -1;
  file.read(buffer, static_cast<std::streamsize>(size));
  const int n = static_cast<int>(file.gcount());
  if (out->streamIn(buffer, static_cast<unsigned int>(n), runVersion) == 0) {
    FLUVIA_LOG(0, "write to buffer failed");
    stopped = true;
    running = false;
    return -1;
  }
  // Not only at the end of the file: a removed medium delivers nothing either.
  if (n == 0 && !file.good()) {
    lock.release();
    FLUVIA_LOG(0, "xxxxxx eof");
    return -1;
  }
  return n;
}

void LocalFileRequest::notifyPerformEnd(unsigned int run) {
  {
    util::Lock lock(*this);
    if (run != currentRun) return;
    running = false;
    if (stopped) return;
  }
  FLUVIA_PAUSE_POINT("LocalFileRequest::notifyPerformEnd before event");
  out->notifyStreamException(util::EVENT_STREAM_PARTIAL_END);
}

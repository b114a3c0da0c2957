// The entry points of the handle table. Every c_ function is the x_ function of the same suffix.
#include <strings.h>

#include <cstring>

#include "api/HandleTable.h"
#include "api/fluviafs.h"
#include "webs/DullFileManager.h"

using api::guarded;
using api::Handle;
using api::HandleTable;
using api::inRange;

namespace {

bool hasKnownPrefix(const char* url) {
  for (const char* prefix : {"http://", "https://", "/"}) {
    if (strncasecmp(url, prefix, strlen(prefix)) == 0) return true;
  }
  return false;
}

// The common part of both open functions, after their first log line.
int openFile(const char* function, const char* url, int* handle, int bufferSize) {
  if (url == nullptr || handle == nullptr) {
    FLUVIA_LOG_AS(function, 0, "NULL POINT\n");
    return FVFR_FAILED;
  }
  if (!hasKnownPrefix(url)) {
    FLUVIA_LOG_AS(function, -4, "url is invalid");
    return FVFR_FAILED;
  }
  return HandleTable::instance().open(function, url, bufferSize, handle);
}

// Text to log for a null text.
const char* printable(const char* text) { return text == nullptr ? "(null)" : text; }

}  // namespace

extern "C" {

int x_fluvia_file_open(const char* url, int* handle) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) {
    FLUVIA_LOG_AS(function, 0, "Begin x_fluvia_file_open(url: %s)", printable(url));
    const int result = openFile(function, url, handle, FVFR_DEFAULT_BUFFER);
    if (url != nullptr && handle != nullptr && hasKnownPrefix(url)) {
      FLUVIA_LOG_AS(function, 0, "End x_fluvia_file_open(handle: %d)", *handle);
    }
    return result;
  });
}

int x_fluvia_file_open_x(const char* url, int* handle, int bufferSize) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) {
    FLUVIA_LOG_AS(function, 0, "Begin x_fluvia_file_open_x(url: %s, buffersize: %d)",
                  printable(url), bufferSize);
    const int result = openFile(function, url, handle, bufferSize);
    if (url != nullptr && handle != nullptr && hasKnownPrefix(url)) {
      FLUVIA_LOG_AS(function, 0, "End x_fluvia_file_open_x(handle: %d)", *handle);
    }
    return result;
  });
}

int x_fluvia_file_close(int handle) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    FLUVIA_LOG_AS(function, 0, "Begin x_fluvia_file_close (handle: %d)", handle);
    if (!inRange(function, handle)) return FVFR_FAILED;
    webs::FluviaFile* file = HandleTable::instance().remove(handle);
    if (file == nullptr) {
      FLUVIA_LOG_AS(function, 0, "x_fluvia_file_close exit");
      return FVFR_FAILED;
    }
    file->cancelRead(0);
    file->close();
    file->unuse();
    FLUVIA_LOG_AS(function, 0, "End x_fluvia_file_close");
    return FVFR_OK;
  });
}

int x_fluvia_file_volatile(int handle) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    file->volatileContent();
    return FVFR_OK;
  });
}

int x_fluvia_file_read(int handle, char* buffer, unsigned int size, unsigned int* readBytes) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    FLUVIA_LOG_AS(function, 1, "befor x_fluvia_file_read(handle: %d, size: %d)", handle,
                  static_cast<int>(size));
    const int result = file->read(buffer, size, readBytes);
    FLUVIA_LOG_AS(function, 1, "end x_fluvia_file_read : %d", result);
    return result;
  });
}

int x_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                             fluvia_file_read_callback callback, void* userData, int* requestId) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    FLUVIA_LOG_AS(function, 1, "before x_fluvia_file_read_async(handle: %d, size: %d)", handle,
                  static_cast<int>(size));
    int issued = 0;
    const int result = file->readAsync(buffer, size, callback, userData, requestId, &issued);
    // Once the read is issued, its callback may have freed the caller's memory.
    FLUVIA_LOG_AS(function, 1, "end x_fluvia_file_read_async(reqID: %d)",
                  issued != 0 ? issued : *requestId);
    return result;
  });
}

int x_fluvia_file_read_abort(int handle, int requestId) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    FLUVIA_LOG_AS(function, 1, "before x_fluvia_file_read_abort(handle: %d, reqID: %d)", handle,
                  requestId);
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    const int result = file->cancelRead(requestId);
    FLUVIA_LOG_AS(function, 1, "end x_fluvia_file_read_abort");
    return result;
  });
}

int x_fluvia_file_seek(int handle, long long offset, long long* currentOffset) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    FLUVIA_LOG_AS(function, 0, "x_fluvia_file_seek begin(handle: %d, offset: %lld)", handle,
                  offset);
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) {
      FLUVIA_LOG_AS(function, 0, "x_fluvia_file_seek end(FVFR_FAILED)");
      return FVFR_FAILED;
    }
    const int result = file->seek(offset, currentOffset);
    FLUVIA_LOG_AS(function, 0, "x_fluvia_file_seek end(curOffset: %lld)", *currentOffset);
    return result;
  });
}

long long x_fluvia_file_offset(int handle) {
  return guarded(__func__, static_cast<long long>(FVFR_FAILED),
                 [&](const char* function) -> long long {
                   if (!inRange(function, handle)) return FVFR_FAILED;
                   Handle file(handle);
                   return file ? file->getPosition() : static_cast<long long>(FVFR_FAILED);
                 });
}

long long x_fluvia_file_size(int handle) {
  return guarded(__func__, static_cast<long long>(FVFR_FAILED),
                 [&](const char* function) -> long long {
                   if (!inRange(function, handle)) return FVFR_FAILED;
                   FLUVIA_LOG_AS(function, 0, "x_fluvia_file_size begin(handle: %d)", handle);
                   Handle file(handle);
                   if (!file) return FVFR_FAILED;
                   const long long size = file->getSize();
                   FLUVIA_LOG_AS(function, 0, "x_fluvia_file_size end(size: %lld)", size);
                   return size;
                 });
}

int x_fluvia_file_bufferSize(int handle) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    return file ? file->getBufferSize() : static_cast<int>(FVFR_FAILED);
  });
}

int x_fluvia_file_bufferedSize(int handle) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    return file ? file->getBufferedSize() : static_cast<int>(FVFR_FAILED);
  });
}

int x_fluvia_file_dump_buffer(void* /*unused1*/, void* /*unused2*/) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [](const char* /*function*/) -> int {
    webs::DullFileManager::dumpDebugInfo();
    return FVFR_OK;
  });
}

void x_fluvia_file_disable_log(void) { util::LOG_LEV = FVFR_LOG_DISABLED; }

void x_fluvia_file_set_log_level(int level) { util::LOG_LEV = level; }

int x_fluvia_file_get_log_level(void) { return util::LOG_LEV; }

int c_fluvia_file_open(const char* url, int* handle) { return x_fluvia_file_open(url, handle); }

int c_fluvia_file_open_x(const char* url, int* handle, int bufferSize) {
  return x_fluvia_file_open_x(url, handle, bufferSize);
}

int c_fluvia_file_close(int handle) { return x_fluvia_file_close(handle); }

int c_fluvia_file_volatile(int handle) { return x_fluvia_file_volatile(handle); }

int c_fluvia_file_read(int handle, char* buffer, unsigned int size, unsigned int* readBytes) {
  return x_fluvia_file_read(handle, buffer, size, readBytes);
}

int c_fluvia_file_read_async(int handle, char* buffer, unsigned int size,
                             fluvia_file_read_callback callback, void* userData, int* requestId) {
  return x_fluvia_file_read_async(handle, buffer, size, callback, userData, requestId);
}

int c_fluvia_file_read_abort(int handle, int requestId) {
  return x_fluvia_file_read_abort(handle, requestId);
}

int c_fluvia_file_seek(int handle, long long offset, long long* currentOffset) {
  return x_fluvia_file_seek(handle, offset, currentOffset);
}

long long c_fluvia_file_offset(int handle) { return x_fluvia_file_offset(handle); }

long long c_fluvia_file_size(int handle) { return x_fluvia_file_size(handle); }

int c_fluvia_file_bufferSize(int handle) { return x_fluvia_file_bufferSize(handle); }

int c_fluvia_file_bufferedSize(int handle) { return x_fluvia_file_bufferedSize(handle); }

int c_fluvia_file_dump_buffer(void* unused1, void* unused2) {
  return x_fluvia_file_dump_buffer(unused1, unused2);
}

void c_fluvia_file_disable_log(void) { x_fluvia_file_disable_log(); }

void c_fluvia_file_set_log_level(int level) { x_fluvia_file_set_log_level(level); }

int c_fluvia_file_get_log_level(void) { return x_fluvia_file_get_log_level(); }

}  // extern "C"

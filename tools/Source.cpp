#include "Source.h"

#include <fluviafs.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "HttpOptions.h"

namespace tools {
namespace {

std::optional<int> forcedLevel;  // set once by main before any other thread runs

bool isUrl(const std::string& name) {
  return strncasecmp(name.c_str(), "http://", 7) == 0 ||
         strncasecmp(name.c_str(), "https://", 8) == 0;
}

const char* meaning(int code) {
  switch (code) {
    case FVFR_NOT_APPLIED:
      return "the file is being closed";
    case FVFR_TIMEOUT:
      return "the server did not answer in time";
    case FVFR_SEEK_REFUSED:
      return "the stream cannot seek that far";
    case FVFR_END_OF_FILE:
      return "end of file";
    case FVFR_NOT_AVAILABLE:
      return "the server does not give the resource now";
    case FVFR_NOT_FOUND:
      return "the server has no such resource";
    default:
      return "the stream failed";
  }
}

// Why a transfer ended, by its status; empty when that tells nothing.
std::string transferProblem(int status) {
  switch (status) {
    case FVFR_DOWNLOAD_TIMEOUT:
      return "the server cannot be reached in time";
    case FVFR_DOWNLOAD_NO_DATA:
      return "the server has fallen silent";
    case FVFR_DOWNLOAD_UNKNOWN_HOST:
      return "nobody knows the name of that server";
    case FVFR_DOWNLOAD_UNREACHABLE:
      return "the server cannot be reached";
    case FVFR_DOWNLOAD_REFUSED:
      return "the server refuses the connection; is it running?";
    default:
      return status >= 400 ? "the server answered " + std::to_string(status) : "";
  }
}

}  // namespace

void forceLogLevel(int level) {
  forcedLevel = level;
  x_fluvia_file_set_log_level(level);
}

Source::~Source() {
  if (handle_ > 0) {
    x_fluvia_file_close(handle_);
  }
}

bool Source::open(const std::string& name, int bufferSize, std::string* error) {
  local_ = !isUrl(name);
  name_ = name;
  if (local_) {
    std::error_code failed;
    name_ = std::filesystem::absolute(name, failed).string();
    const std::string problem = failed ? failed.message() : localProblem();
    if (!problem.empty()) {
      *error = "cannot read " + name + ": " + problem;
      return false;
    }
  }
  const int asked = bufferSize == 0 ? FVFR_DEFAULT_BUFFER : bufferSize;
  if (x_fluvia_file_open_x(name_.c_str(), &handle_, asked) != FVFR_OK) {
    handle_ = 0;
    *error = explain("open", FVFR_FAILED);
    return false;
  }
  if (forcedLevel) {
    x_fluvia_file_set_log_level(*forcedLevel);
  }
  if (x_fluvia_file_bufferSize(handle_) == FVFR_FAILED) {
    *error = "cannot open " + name +
             (local_ ? ": no memory for its buffer; ask for less with --buffer"
                     : ": it names no server the library could ask");
    return false;
  }
  return local_ || applyHttpOptions(handle_, name_, error);
}

std::string Source::localProblem() const {
  struct stat status {};
  if (stat(name_.c_str(), &status) != 0) {
    return std::strerror(errno);
  }
  if (S_ISDIR(status.st_mode)) {
    return "it is a directory";
  }
  if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) {
    return "only regular files and block devices can be streamed";
  }
  return access(name_.c_str(), R_OK) == 0 ? "" : std::strerror(errno);
}

long long Source::size() const {
  const long long size = x_fluvia_file_size(handle_);
  return size < 0 || size == FVFR_UNKNOWN_SIZE ? -1 : size;
}

bool Source::seekable() const {
  long long now = 0;
  const long long beyond = x_fluvia_file_offset(handle_) + FVFR_SEEK_SPAN + 1;
  const int moved = x_fluvia_file_seek(handle_, beyond, &now);
  if (moved == FVFR_SEEK_REFUSED) {
    return false;
  }
  // An empty file refuses every seek; there is nowhere to go, so nothing is out of reach.
  return moved != FVFR_OK || x_fluvia_file_seek(handle_, 0, &now) == FVFR_OK;
}

std::string Source::explain(const std::string& action, int code) const {
  const std::string why =
      local_ ? "" : transferProblem(x_fluvia_file_http_get_download_status(handle_));
  return "cannot " + action + " " + name_ + ": " + (why.empty() ? meaning(code) : why) + " (" +
         std::to_string(code) + "). Try again with --log FILE -v to see what the library met.";
}

}  // namespace tools

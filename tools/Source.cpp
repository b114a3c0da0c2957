#include "Source.h"

#include <fluviafs.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "HttpOptions.h"
#include "Passwords.h"

namespace tools {
namespace {

std::optional<int> forcedLevel;  // set once by main before any other thread runs

bool isUrl(const std::string& name) {
  return strncasecmp(name.c_str(), "http://", 7) == 0 ||
         strncasecmp(name.c_str(), "https://", 8) == 0;
}

// "ftp" of ftp://server/file, empty for a text that does not begin like an address.
std::string schemeOf(const std::string& name) {
  const size_t end = name.find("://");
  if (end == std::string::npos || isalpha(static_cast<unsigned char>(name[0])) == 0) return "";
  std::string scheme = name.substr(0, end);
  for (const char c : scheme) {
    if (isalnum(static_cast<unsigned char>(c)) == 0 && strchr("+-.", c) == nullptr) return "";
  }
  return scheme;
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
    case FLUVIA_STREAM_CHANGED:
      return "the resource has changed while the server was away";
    case FLUVIA_STREAM_ABORTED:
      return "the read was broken off";
    default:
      return "the stream failed";
  }
}

}  // namespace

void forceLogLevel(int level) {
  forcedLevel = level;
  x_fluvia_file_set_log_level(level);
}

Source::~Source() { fluvia_stream_close(&stream_); }

void Source::bearOutages(int seconds, Notice notice) {
  settings_.seconds = seconds;
  notice_ = std::move(notice);
}

bool Source::open(const std::string& name, int bufferSize, std::string* error) {
  if (!isReachable(name, error)) return false;
  if (!notice_) settings_.seconds = 0;
  // The user has just typed the name: report at once if it does not exist.
  settings_.firstSeconds = 0;
  settings_.bufferSize = bufferSize;
  settings_.data = this;
  // No exception may leave these: their callers are in C.
  settings_.apply = [](int handle, void* self) {
    Source* const source = static_cast<Source*>(self);
    try {
      source->applySettings(handle);
    } catch (const std::bad_alloc&) {
      source->starved_ = true;
    }
  };
  settings_.unwanted = [](void* self) {
    const auto& unwanted = static_cast<Source*>(self)->unwanted_;
    return unwanted && unwanted() ? 1 : 0;
  };
  settings_.notice = [](FluviaStreamNotice notice, const char* text, void* self) {
    const Notice& told = static_cast<Source*>(self)->notice_;
    try {
      if (told) told(notice, text);
    } catch (const std::bad_alloc&) {
      // The user only misses why the source waits; its failure is a code.
    }
  };
  if (fluvia_stream_open(&stream_, name_.c_str(), &settings_) != FVFR_OK) {
    *error = explain("open", FVFR_FAILED);
    return false;
  }
  if (x_fluvia_file_bufferSize(handle()) == FVFR_FAILED) {
    *error = "cannot open " + maskPassword(name) +
             (local_ ? ": no memory for its buffer; ask for less with --buffer"
                     : ": it names no server the library could ask");
    return false;
  }
  *error = starved_ ? "no memory is left" : settingsError_;
  return error->empty();
}

// Checks that the name is a URL, or a path that can be streamed.
bool Source::isReachable(const std::string& name, std::string* error) {
  local_ = !isUrl(name);
  name_ = name;
  if (!local_) return true;
  std::error_code failed;
  name_ = std::filesystem::absolute(name, failed).string();
  const std::string problem = failed ? failed.message() : localProblem();
  if (problem.empty()) return true;
  const std::string scheme = schemeOf(name);
  *error = "cannot read " + maskPassword(name) + ": " + problem;
  if (!scheme.empty()) {
    *error = "cannot read " + maskPassword(name) + ": " + scheme +
             ":// is not among what can be read; a source is a path or an http:// or https:// URL";
  }
  return false;
}

void Source::applySettings(int handle) {
  if (forcedLevel) {
    x_fluvia_file_set_log_level(*forcedLevel);
  }
  if (!local_) {
    applyHttpOptions(handle, name_, &settingsError_);
  }
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
  const long long size = x_fluvia_file_size(handle());
  return size < 0 || size == FVFR_UNKNOWN_SIZE ? -1 : size;
}

bool Source::seekable() const {
  long long now = 0;
  const long long beyond = x_fluvia_file_offset(handle()) + FVFR_SEEK_SPAN + 1;
  const int moved = x_fluvia_file_seek(handle(), beyond, &now);
  if (moved == FVFR_SEEK_REFUSED) {
    return false;
  }
  // An empty file refuses every seek; it has only one offset, so all of them can be reached.
  return moved != FVFR_OK || x_fluvia_file_seek(handle(), 0, &now) == FVFR_OK;
}

bool Source::hasLength() const {
  std::vector<char> block(8192);
  int length = 0;
  x_fluvia_file_http_get_header(handle(), block.data(), static_cast<int>(block.size()), &length);
  std::string headers(block.data(), static_cast<size_t>(length));
  for (char& c : headers) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return local_ || headers.find("\ncontent-length:") != std::string::npos ||
         headers.find("\ncontent-range:") != std::string::npos;
}

int Source::downloadStatus() const {
  const int now = handle();
  const int last = stream_ == nullptr ? FVFR_DOWNLOAD_OK : fluvia_stream_status(stream_);
  const int status = now > 0 ? x_fluvia_file_http_get_download_status(now) : last;
  return status == FVFR_DOWNLOAD_OK ? last : status;
}

std::string Source::transferProblem(int status) const {
  if (name_.find("://[") != std::string::npos && usesOnlyIpv4()) {
    return "an address of IP version 6 needs --ipv 6 or --ipv any";
  }
  switch (status) {
    case FVFR_DOWNLOAD_TIMEOUT:
      return "the server cannot be reached in time";
    case FVFR_DOWNLOAD_NO_DATA:
      return "the server has fallen silent";
    case FVFR_DOWNLOAD_UNKNOWN_HOST:
      return usesOnlyIpv4() ? "nobody knows the name of that server, as one of IP version 4; --ipv "
                              "any asks for the others too"
                            : "nobody knows the name of that server";
    case FVFR_DOWNLOAD_UNREACHABLE:
      return "the server cannot be reached";
    case FVFR_DOWNLOAD_REFUSED:
      return "the server refuses the connection; is it running?";
    case 401:
      return "the server answered 401: it wants a name and a password, in the URL";
    case 403:
      return "the server answered 403: it forbids this";
    case 407:
      return "the proxy answered 407: it wants a name and a password, in --proxy";
    case 503:
      return "the server answered 503: it does not give the resource now";
    default:
      return status >= 400 ? "the server answered " + std::to_string(status) : "";
  }
}

std::string Source::explain(const std::string& action, int code) const {
  const bool byCode = local_ || code == FLUVIA_STREAM_CHANGED || code == FLUVIA_STREAM_ABORTED;
  const std::string why = byCode ? "" : transferProblem(downloadStatus());
  return "cannot " + action + " " + maskPassword(name_) + ": " +
         (why.empty() ? meaning(code) : why) + " (" + std::to_string(code) +
         "). Try again with --log FILE -v to see what the library met.";
}

}  // namespace tools

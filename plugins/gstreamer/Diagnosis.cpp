#include "Diagnosis.h"

#include <fluviafs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

Diagnosis diagnoseTransfer(int handle) {
  const int status = x_fluvia_file_http_get_download_status(handle);
  switch (status) {
    case FVFR_DOWNLOAD_TIMEOUT:
      return {SourceFailure::kTimeout, "the server cannot be reached in time"};
    case FVFR_DOWNLOAD_NO_DATA:
    case FVFR_DOWNLOAD_CONNECTION_DEAD:
      return {SourceFailure::kTimeout, "the server has fallen silent"};
    case FVFR_DOWNLOAD_UNKNOWN_HOST:
      return {SourceFailure::kNotFound, "nobody knows the name of that server"};
    case FVFR_DOWNLOAD_UNREACHABLE:
      return {SourceFailure::kNotAvailable, "the server cannot be reached"};
    case FVFR_DOWNLOAD_REFUSED:
      return {SourceFailure::kNotAvailable, "the server refuses the connection"};
    case 401:
    case 403:
    case 407:
      return {SourceFailure::kNotAuthorized, "the server answered " + std::to_string(status)};
    case 404:
    case 410:
      return {SourceFailure::kNotFound, "the server answered " + std::to_string(status)};
    default:
      if (status >= 400) {
        return {SourceFailure::kNotAvailable, "the server answered " + std::to_string(status)};
      }
      return {SourceFailure::kOther, "the stream failed"};
  }
}

Diagnosis diagnoseFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    const SourceFailure kind = errno == ENOENT || errno == ENOTDIR ? SourceFailure::kNotFound
                                                                   : SourceFailure::kNotAvailable;
    return {kind, std::strerror(errno)};
  }
  if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) {
    return {SourceFailure::kNotAvailable, "only regular files and block devices can be streamed"};
  }
  if (access(path.c_str(), R_OK) != 0) return {SourceFailure::kNotAvailable, std::strerror(errno)};
  return {SourceFailure::kOther, "the file cannot be read"};
}

bool isPort(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

// Whether the part between "//" and the path can be [user[:password]@]host[:port].
bool isAuthority(const std::string& text) {
  const std::string host = text.substr(text.rfind('@') + 1);
  const size_t begin = host.compare(0, 1, "[") == 0 ? host.find(']') : 0;
  const size_t colon = host.find(':', begin);
  return colon == std::string::npos || isPort(host.substr(colon + 1));
}

}  // namespace

Diagnosis diagnose(const std::string& name, int handle) {
  if (name.compare(0, 1, "/") == 0) return diagnoseFile(name);
  if (handle > 0) return diagnoseTransfer(handle);
  return {SourceFailure::kOther, "the library refuses the name"};
}

std::string withoutPassword(const std::string& name) {
  const size_t scheme = name.find(":/");
  if (scheme == std::string::npos) return name;
  const size_t begin = name.find_first_not_of('/', scheme + 1);
  if (begin == std::string::npos) return name;
  const size_t end = name.find_first_of("/?#", begin);
  const bool valid = isAuthority(name.substr(begin, end - begin));
  const size_t at = name.rfind('@', valid ? end : std::string::npos);
  const size_t colon = name.find(':', begin);
  if (at == std::string::npos || colon == std::string::npos || colon > at) return name;
  return name.substr(0, colon + 1) + "***" + name.substr(at);
}

#include "Diagnosis.h"

#include <fluviafs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "fluvia_outage.h"

namespace {

SourceFailure kindOf(int status) {
  switch (status) {
    case FVFR_DOWNLOAD_TIMEOUT:
    case FVFR_DOWNLOAD_NO_DATA:
    case FVFR_DOWNLOAD_CONNECTION_DEAD:
      return SourceFailure::kTimeout;
    case FVFR_DOWNLOAD_UNKNOWN_HOST:
    case 404:
    case 410:
      return SourceFailure::kNotFound;
    case 401:
    case 403:
    case 407:
      return SourceFailure::kNotAuthorized;
    case FVFR_DOWNLOAD_UNREACHABLE:
    case FVFR_DOWNLOAD_REFUSED:
      return SourceFailure::kNotAvailable;
    default:
      return status >= 400 ? SourceFailure::kNotAvailable : SourceFailure::kOther;
  }
}

Diagnosis diagnoseTransfer(int handle) {
  char text[64];
  const int status = x_fluvia_file_http_get_download_status(handle);
  return {kindOf(status), fluvia_outage_explain(handle, text, sizeof text),
          status >= 400 ? status : 0};
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

}  // namespace

Diagnosis diagnose(const std::string& name, int handle) {
  if (name.compare(0, 1, "/") == 0) return diagnoseFile(name);
  if (handle > 0) return diagnoseTransfer(handle);
  return {SourceFailure::kOther, "the library refuses the name"};
}

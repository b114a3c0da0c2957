#ifndef FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_

#include <string>

#include "SourceReader.h"

// Why a source failed: the kind of failure, a text for the user, and the HTTP status of 400 and
// above that the server returned.
struct Diagnosis {
  SourceFailure failure;
  std::string text;
  int httpStatus = 0;
};

// Explains the failure of an open handle on a path or a URL; handle 0 is a name that the library
// refused. Never waits for the library.
Diagnosis diagnose(const std::string& name, int handle);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_

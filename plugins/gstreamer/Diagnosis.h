#ifndef FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_

#include <string>

#include "SourceReader.h"

// Why a source failed: its kind, in words for a person, and the status of 400 and above that a
// server answered.
struct Diagnosis {
  SourceFailure failure;
  std::string text;
  int httpStatus = 0;
};

// What an open handle on a path or a URL says of its failure; handle 0 is a name that the library
// refused. Never waits for the library.
Diagnosis diagnose(const std::string& name, int handle);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_

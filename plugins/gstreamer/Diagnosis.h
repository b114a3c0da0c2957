#ifndef FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_

#include <string>

#include "SourceReader.h"

// Why a source failed: its kind, and in words for a person.
struct Diagnosis {
  SourceFailure failure;
  std::string text;
};

// What an open handle on a path or a URL says of its failure; handle 0 is a name that the library
// refused. Never waits for the library.
Diagnosis diagnose(const std::string& name, int handle);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_DIAGNOSIS_H_

#ifndef FLUVIAFS_TOOLS_TRACECOMMAND_H_
#define FLUVIAFS_TOOLS_TRACECOMMAND_H_

#include <string>

#include "Output.h"

namespace tools {

// Writes the page to an open output and finishes it. Returns false with *error set on failure.
bool writePage(const std::string& page, Output* output, std::string* error);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACECOMMAND_H_

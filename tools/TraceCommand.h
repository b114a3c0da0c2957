#ifndef FLUVIAFS_TOOLS_TRACECOMMAND_H_
#define FLUVIAFS_TOOLS_TRACECOMMAND_H_

#include <string>

#include "Commands.h"
#include "Output.h"

namespace tools {

// Adds "trace": shows a log of the library as an HTML page.
void addTrace(CLI::App& app, Command* chosen);

// Writes the page to an open output and finishes it. Returns false with *error set on failure.
bool writePage(const std::string& page, Output* output, std::string* error);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACECOMMAND_H_

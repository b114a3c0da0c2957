#ifndef FLUVIAFS_TOOLS_TRACE_TRACEPAGE_H_
#define FLUVIAFS_TOOLS_TRACE_TRACEPAGE_H_

#include <string>

#include "LogReader.h"
#include "TraceStory.h"

namespace tools {

// The page that shows a story: one self-contained HTML file. title names the log. The page has a
// limited size, a few MiB at most, whatever the size of the log.
std::string tracePage(const std::string& title, const TraceStory& story,
                      const LogReader::Counts& counts);

// The page's style and script, generated from page.css and page.js.
extern const char kPageStyle[];
extern const char kPageProgram[];

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_TRACEPAGE_H_

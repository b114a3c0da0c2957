#ifndef FLUVIAFS_TOOLS_TRACE_TRACEPAGE_H_
#define FLUVIAFS_TOOLS_TRACE_TRACEPAGE_H_

#include <string>

#include "LogReader.h"
#include "TraceStory.h"

namespace tools {

// The page that shows a story: one HTML file that needs nothing beside itself. title is whose log
// it is. Its size is bounded whatever the log's was: a few MiB at most.
std::string tracePage(const std::string& title, const TraceStory& story,
                      const LogReader::Counts& counts);

// The page's style and program, made from page.css and page.js.
extern const char kPageStyle[];
extern const char kPageProgram[];

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_TRACEPAGE_H_

#ifndef FLUVIAFS_TOOLS_TEXT_H_
#define FLUVIAFS_TOOLS_TEXT_H_

#include <string>

namespace tools {

// A number of bytes for display: "512 B", "1.5 KiB", "2.0 GiB".
std::string humanBytes(double bytes);
// Whole seconds for display: "0:07", "12:34", "1:02:03"; "-:--" for a negative number.
std::string humanTime(long long seconds);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TEXT_H_

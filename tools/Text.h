#ifndef FLUVIAFS_TOOLS_TEXT_H_
#define FLUVIAFS_TOOLS_TEXT_H_

#include <string>

namespace tools {

// "512 B", "1.5 KiB", "2.0 GiB": a number of bytes for people.
std::string humanBytes(double bytes);
// "0:07", "12:34", "1:02:03": whole seconds for people; "-:--" for a negative number.
std::string humanTime(long long seconds);
// The text as a JSON string, quotes included. Bytes above 127 are passed on as they are.
std::string jsonString(const std::string& text);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TEXT_H_

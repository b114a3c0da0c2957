#ifndef FLUVIAFS_TOOLS_PRINTABLE_H_
#define FLUVIAFS_TOOLS_PRINTABLE_H_

#include <string>

namespace tools {

// A stranger's text, in UTF-8, as it may stand in a line on a terminal. Escaped with a backslash
// are line ends (\n), tabs (\t) and backslashes (\\); other control characters and bytes that are
// no UTF-8 (\x1b); and what a terminal could obey beyond ASCII: the controls from U+0080 on, line
// and paragraph separators, and the marks that turn the direction of text (\u202e).
std::string printable(const std::string& text);

// The same in double quotes, with those inside escaped too.
std::string quoted(const std::string& text);

// The character that begins at text[at], all its bytes; one byte where there is no UTF-8.
std::string characterAt(const std::string& text, size_t at);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_PRINTABLE_H_

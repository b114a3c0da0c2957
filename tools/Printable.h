#ifndef FLUVIAFS_TOOLS_PRINTABLE_H_
#define FLUVIAFS_TOOLS_PRINTABLE_H_

#include <string>

namespace tools {

// Makes untrusted UTF-8 text safe for one line on a terminal. Escapes with a backslash: line ends
// (\n), tabs (\t) and backslashes (\\); other control characters and bytes that are not UTF-8
// (\x1b); and what a terminal could interpret beyond ASCII: the controls from U+0080 on, line and
// paragraph separators, and the marks that change the text direction (\u202e).
std::string printable(const std::string& text);

// Same in double quotes; double quotes inside are escaped too.
std::string quoted(const std::string& text);

// Returns all bytes of the character that begins at text[at]; one byte if it is not UTF-8.
std::string characterAt(const std::string& text, size_t at);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_PRINTABLE_H_

#ifndef FLUVIAFS_TOOLS_HTTPCOMMANDLINE_H_
#define FLUVIAFS_TOOLS_HTTPCOMMANDLINE_H_

#include "HttpOptions.h"

// CLI11 takes longer to compile than all else here: only those who read a command line include it.
namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace tools {

// Adds the HTTP settings to app. options must live until app has read its command line.
void addHttpOptions(CLI::App& app, HttpOptions* options);

// Exit code of the program if its arguments asked for help or were wrong. Prints the help or the
// error, without the passwords of the URLs among the program's words. Returns 0 after help.
int exitAfterParsing(const CLI::App& app, const CLI::ParseError& answer, int count,
                     const char* const* words);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_HTTPCOMMANDLINE_H_

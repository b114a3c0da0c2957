#ifndef FLUVIAFS_TOOLS_SCREEN_H_
#define FLUVIAFS_TOOLS_SCREEN_H_

#include <string>

namespace tools {

// What the person in front of the terminal sees, kept apart from what the library writes.
//
// The library logs to file descriptor 2. redirect() keeps that descriptor's terminal for the person
// under a number of its own and gives descriptor 2 to a log file, or to nobody.
//
// Threads: print() and fail() may be called from any thread; redirect() before any other starts.
class Screen {
 public:
  // program: the name that its failures begin with.
  explicit Screen(std::string program = "fluvia");
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Sends the library's lines to logFile (created or emptied), or nowhere when it is empty. False
  // with *error set when the file cannot be written; descriptor 2 is then as it was.
  bool redirect(const std::string& logFile, std::string* error);

  // Whether the person sees a terminal.
  bool isTerminal() const;
  // Columns of the terminal, 80 when they cannot be learnt.
  int columns() const;

  // Writes text as it is.
  void print(const std::string& text) const;
  // Writes the program's name, the text without the passwords of URLs, and a line end.
  void fail(const std::string& text) const;

 private:
  const std::string program_;
  int own_;  // descriptor of the person's standard error, ours to close
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_SCREEN_H_

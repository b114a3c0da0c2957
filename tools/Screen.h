#ifndef FLUVIAFS_TOOLS_SCREEN_H_
#define FLUVIAFS_TOOLS_SCREEN_H_

#include <string>

namespace tools {

// Messages to the user, kept separate from the library's log.
//
// The library logs to file descriptor 2. redirect() duplicates that descriptor for the user's
// messages, and points descriptor 2 to a log file or to /dev/null.
//
// Threads: print() and fail() may be called from any thread; redirect() before any other starts.
class Screen {
 public:
  // program: the name that error messages begin with.
  explicit Screen(std::string program = "fluvia");
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Sends the library's lines to logFile (created or truncated), or discards them if it is empty.
  // Returns false with *error set if the file cannot be written; descriptor 2 is then unchanged.
  bool redirect(const std::string& logFile, std::string* error);

  // True if the user's output is a terminal.
  bool isTerminal() const;
  // Columns of the terminal, 80 if unknown.
  int columns() const;

  // Writes text unchanged.
  void print(const std::string& text) const { print(text.data(), text.size()); }
  void endLine() const { print("\n", 1); }
  // Writes the program's name, the text without the passwords of URLs, and a line end. A URL whose
  // password has a blank must be masked in the text.
  void fail(const std::string& text) const;

 private:
  void print(const char* next, size_t left) const;

  const std::string program_;
  int own_;  // descriptor of the user's standard error; closed by this object
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_SCREEN_H_

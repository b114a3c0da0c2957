#ifndef FLUVIAFS_TESTS_SUPPORT_COMMANDLINE_H_
#define FLUVIAFS_TESTS_SUPPORT_COMMANDLINE_H_

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace support {

// The command line of a program of the tests or of the bench, by CLI11. No other file of theirs
// includes CLI11, because a file that does takes ten times as long to compile.
class CommandLine {
 public:
  // What else holds for an option.
  class Option {
   public:
    explicit Option(CLI::Option* option) : option_(option) {}

    Option& required();
    // --help shows the value that the variable has now.
    Option& withDefault();
    // Each occurrence takes one value.
    Option& repeatable();
    Option& oneOf(const std::vector<std::string>& values);
    // A number that is not below least.
    Option& notBelow(long long least);
    // problem returns what is wrong with a value, or nothing.
    Option& checkedBy(const std::function<std::string(const std::string&)>& problem);
    Option& needs(const Option& other);

   private:
    CLI::Option* option_;
  };

  explicit CommandLine(const std::string& about);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // Adds an option, or a positional argument where name has no dash. parseOrExit() writes to
  // *value, which must live until then.
  Option option(const std::string& name, int* value, const std::string& about = {});
  Option option(const std::string& name, unsigned int* value, const std::string& about = {});
  Option option(const std::string& name, long* value, const std::string& about = {});
  Option option(const std::string& name, long long* value, const std::string& about = {});
  Option option(const std::string& name, double* value, const std::string& about = {});
  Option option(const std::string& name, std::string* value, const std::string& about = {});
  Option option(const std::string& name, std::vector<std::string>* values,
                const std::string& about = {});
  Option option(const std::string& name, std::set<std::string>* values,
                const std::string& about = {});
  // Two words: a name and a size.
  Option option(const std::string& name, std::pair<std::string, long long>* value,
                const std::string& about = {});
  Option option(const std::string& name, std::vector<std::pair<std::string, long long>>* values,
                const std::string& about = {});
  // An option without a value.
  Option flag(const std::string& name, bool* value, const std::string& about);

  // Reads the command line of the program. Ends the process with 0 after --help, and with the exit
  // code wrong if it cannot be read.
  void parseOrExit(int count, char** words, int wrong = 2);

 private:
  const std::unique_ptr<CLI::App> app_;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_COMMANDLINE_H_

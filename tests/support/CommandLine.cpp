#include "tests/support/CommandLine.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <limits>
#include <string>

namespace support {

CommandLine::Option& CommandLine::Option::required() {
  option_->required();
  return *this;
}

CommandLine::Option& CommandLine::Option::withDefault() {
  option_->capture_default_str();
  return *this;
}

CommandLine::Option& CommandLine::Option::repeatable() {
  option_->allow_extra_args(false);
  return *this;
}

CommandLine::Option& CommandLine::Option::oneOf(const std::vector<std::string>& values) {
  option_->check(CLI::IsMember(values));
  return *this;
}

CommandLine::Option& CommandLine::Option::notBelow(long long least) {
  option_->check(CLI::Range(least, std::numeric_limits<long long>::max(),
                            "AT LEAST " + std::to_string(least)));
  return *this;
}

CommandLine::Option& CommandLine::Option::checkedBy(
    const std::function<std::string(const std::string&)>& problem) {
  option_->check(problem);
  return *this;
}

CommandLine::Option& CommandLine::Option::needs(const Option& other) {
  option_->needs(other.option_);
  return *this;
}

CommandLine::CommandLine(const std::string& about) : app_(std::make_unique<CLI::App>(about)) {}

CommandLine::~CommandLine() = default;

CommandLine::Option CommandLine::option(const std::string& name, int* value,
                                        const std::string& about) {
  return Option(app_->add_option(name, *value, about));
}

CommandLine::Option CommandLine::option(const std::string& name, unsigned int* value,
                                        const std::string& about) {
  return Option(app_->add_option(name, *value, about));
}

CommandLine::Option CommandLine::option(const std::string& name, long* value,
                                        const std::string& about) {
  return Option(app_->add_option(name, *value, about));
}

CommandLine::Option CommandLine::option(const std::string& name, long long* value,
                                        const std::string& about) {
  return Option(app_->add_option(name, *value, about));
}

CommandLine::Option CommandLine::option(const std::string& name, double* value,
                                        const std::string& about) {
  return Option(app_->add_option(name, *value, about));
}

CommandLine::Option CommandLine::option(const std::string& name, std::string* value,
                                        const std::string& about) {
  return Option(app_->add_option(name, *value, about));
}

CommandLine::Option CommandLine::option(const std::string& name, std::vector<std::string>* values,
                                        const std::string& about) {
  return Option(app_->add_option(name, *values, about));
}

CommandLine::Option CommandLine::option(const std::string& name, std::set<std::string>* values,
                                        const std::string& about) {
  return Option(app_->add_option(name, *values, about));
}

CommandLine::Option CommandLine::option(const std::string& name,
                                        std::pair<std::string, long long>* value,
                                        const std::string& about) {
  return Option(app_->add_option(name, *value, about));
}

CommandLine::Option CommandLine::option(const std::string& name,
                                        std::vector<std::pair<std::string, long long>>* values,
                                        const std::string& about) {
  return Option(app_->add_option(name, *values, about));
}

CommandLine::Option CommandLine::flag(const std::string& name, bool* value,
                                      const std::string& about) {
  return Option(app_->add_flag(name, *value, about));
}

void CommandLine::parseOrExit(int count, char** words, int wrong) {
  try {
    app_->parse(count, words);
  } catch (const CLI::ParseError& answer) {
    std::exit(app_->exit(answer) == 0 ? 0 : wrong);
  }
}

}  // namespace support

#include "HttpCommandLine.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <sstream>

#include "Passwords.h"

namespace tools {

namespace {

void addTlsOptions(CLI::App& app, HttpOptions* options, const std::string& group) {
  app.add_option("--ca", options->ca, "Trust the PEM certificates in FILE, and check the server")
      ->check(CLI::ExistingFile)
      ->type_name("FILE")
      ->group(group);
  app.add_option("--ca-path", options->caPath, "The same for a directory of hashed names")
      ->check(CLI::ExistingDirectory)
      ->type_name("DIRECTORY")
      ->group(group);
  app.add_option("--cert", options->certificate, "Show this certificate to the server")
      ->check(CLI::ExistingFile)
      ->type_name("FILE")
      ->group(group);
  app.add_option("--key", options->key, "The key of --cert")
      ->check(CLI::ExistingFile)
      ->type_name("FILE")
      ->group(group);
  app.add_option("--key-type", options->keyType, "Format of --key: PEM or DER; default PEM")
      ->check(CLI::IsMember({"PEM", "DER"}))
      ->type_name("TYPE")
      ->group(group);
}

}  // namespace

void addHttpOptions(CLI::App& app, HttpOptions* options) {
  const std::string group = "HTTP and HTTPS";
  app.add_option("--user-agent", options->userAgent, "Call ourselves TEXT")
      ->type_name("TEXT")
      ->group(group);
  app.add_option("--proxy", options->proxy, "Use the proxy at URL")->type_name("URL")->group(group);
  app.add_option("--cookie", options->cookie, "Send the cookies \"name=value; ...\"")
      ->type_name("TEXT")
      ->group(group);
  addTlsOptions(app, options, group);
  app.add_option("--ipv", options->addresses, "Use addresses of IP version 4, 6 or any; default 4")
      ->transform(CLI::Transformer({{"4", "IPv4"}, {"6", "IPv6"}, {"any", "whatever"}}))
      ->check(CLI::IsMember({"IPv4", "IPv6", "whatever"}))
      ->type_name("VERSION")
      ->group(group);
  app.add_option("--speed", options->speed, "At most N bytes a second; default no limit")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::NonNegativeNumber)
      ->type_name("N")
      ->group(group);
  app.add_flag("--fast-timeouts", options->fastTimeouts, "Give a silent connection up after 4 s")
      ->group(group);
  app.add_flag("--insecure", options->insecure, "Do not warn about an unchecked server")
      ->group(group);
}

int exitAfterParsing(const CLI::App& app, const CLI::ParseError& answer, int count,
                     const char* const* words) {
  std::ostringstream help;
  std::ostringstream wrong;
  const int code = app.exit(answer, help, wrong);
  std::cout << help.str() << std::flush;
  std::cerr << maskPasswords(wrong.str(), {words, words + count}) << std::flush;
  return code;
}

}  // namespace tools

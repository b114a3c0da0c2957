#include "HttpOptions.h"

#include <fluviafs.h>
#include <strings.h>

#include <iostream>
#include <sstream>

#include "Passwords.h"
#include "Source.h"

namespace tools {
namespace {

// Set once by main before any other thread runs.
const HttpOptions* forced = nullptr;
const Screen* warned = nullptr;

struct Setting {
  const char* option;
  std::string HttpOptions::*value;
  int (*set)(int handle, const char* value);
};

const Setting kSettings[] = {
    {"--user-agent", &HttpOptions::userAgent, x_fluvia_file_http_set_userAgent},
    {"--proxy", &HttpOptions::proxy, x_fluvia_file_http_set_proxy},
    {"--cookie", &HttpOptions::cookie, x_fluvia_file_http_set_cookie},
    {"--ca", &HttpOptions::ca, x_fluvia_file_http_set_CA},
    {"--ca-path", &HttpOptions::caPath, x_fluvia_file_http_set_CAPath},
    {"--cert", &HttpOptions::certificate, x_fluvia_file_http_set_client_authert},
    {"--key", &HttpOptions::key, x_fluvia_file_http_set_private_key},
    {"--key-type", &HttpOptions::keyType, x_fluvia_file_http_set_key_type},
    {"--ipv", &HttpOptions::addresses, x_fluvia_file_http_set_ip_resolve},
};

void warnOnce(const std::string& name) {
  const bool checked = !forced->ca.empty() || !forced->caPath.empty() || forced->insecure;
  if (warned == nullptr || checked || strncasecmp(name.c_str(), "https://", 8) != 0) {
    return;
  }
  warned->fail(
      "nobody checks whether this really comes from that server; name the authorities to trust "
      "with "
      "--ca FILE or --ca-path DIRECTORY, or say --insecure");
  warned = nullptr;
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

int exitAfterParsing(const CLI::App& app, const CLI::ParseError& answer) {
  std::ostringstream help;
  std::ostringstream wrong;
  const int code = app.exit(answer, help, wrong);
  std::cout << help.str() << std::flush;
  std::cerr << maskPasswords(wrong.str()) << std::flush;
  return code;
}

void forceHttpOptions(const HttpOptions* options, const Screen* screen) {
  forced = options;
  warned = screen;
}

bool usesOnlyIpv4() {
  return forced == nullptr || forced->addresses.empty() || forced->addresses == "IPv4";
}

bool applyHttpOptions(int handle, const std::string& name, std::string* error) {
  if (forced == nullptr) {
    return true;
  }
  for (const Setting& setting : kSettings) {
    const std::string& value = forced->*setting.value;
    if (!value.empty() && setting.set(handle, value.c_str()) != FVFR_OK) {
      *error = "cannot apply " + std::string(setting.option) + " to " + name;
      return false;
    }
  }
  if (forced->speed > 0) {
    x_fluvia_file_http_set_speed(handle, forced->speed);
  }
  if (forced->fastTimeouts) {
    x_fluvia_file_set_featureflag(handle, 1);
  }
  warnOnce(name);
  return true;
}

}  // namespace tools

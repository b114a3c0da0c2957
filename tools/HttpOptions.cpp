#include "HttpOptions.h"

#include <fluviafs.h>
#include <strings.h>

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
      *error = "cannot apply " + std::string(setting.option) + " to " + maskPassword(name);
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

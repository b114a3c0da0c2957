#ifndef FLUVIAFS_TOOLS_HTTPOPTIONS_H_
#define FLUVIAFS_TOOLS_HTTPOPTIONS_H_

#include <string>

#include "Screen.h"

namespace tools {

// The HTTP settings of the command line; an empty text leaves the library's setting unchanged.
struct HttpOptions {
  std::string userAgent;
  std::string proxy;
  std::string cookie;
  std::string ca;
  std::string caPath;
  std::string certificate;
  std::string key;
  std::string keyType;
  std::string addresses;
  long long speed = 0;  // bytes per second; 0: no limit
  bool fastTimeouts = false;
  bool insecure = false;
};

// Applies the options to every URL opened from now on. options and screen must outlive that. Warns
// on screen, once, when an https:// source is read without certificate checks.
void forceHttpOptions(const HttpOptions* options, const Screen* screen);

// Applies the options of forceHttpOptions() to the handle of the URL name. Returns false with
// *error set if the library refuses a setting.
bool applyHttpOptions(int handle, const std::string& name, std::string* error);

// True if only addresses of IP version 4 are used.
bool usesOnlyIpv4();

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_HTTPOPTIONS_H_

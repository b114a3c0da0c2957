#include "tests/unit/webs/TestResolver.h"

#include <dlfcn.h>
#include <netdb.h>

#include <string>

#include "tests/support/Watchdog.h"

namespace test_resolver {

std::atomic<bool> held{false};
std::atomic<int> begun{0};
std::atomic<int> over{0};

namespace {

bool isTestName(const std::string& name) {
  const std::string ending = ".test";
  return name.size() > ending.size() &&
         name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

}  // namespace

}  // namespace test_resolver

// Replaces the C library's function for libcurl.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node,
                                                                  const char* service,
                                                                  const struct addrinfo* hints,
                                                                  struct addrinfo** result) {
  using Function = int (*)(const char*, const char*, const struct addrinfo*, struct addrinfo**);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
  ++test_resolver::begun;
  int code = EAI_FAIL;
  if (test_resolver::held) {
    support::eventually([] { return !test_resolver::held.load(); }, 5);
  } else {
    const bool known = node != nullptr && test_resolver::isTestName(node);
    code = real(known ? "127.0.0.1" : node, service, hints, result);
  }
  ++test_resolver::over;
  return code;
}

#include "Passwords.h"

namespace tools {

namespace {

bool isPort(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

// True if the part between "//" and the path can be [user[:password]@]host[:port].
bool isAuthority(const std::string& text) {
  const std::string host = text.substr(text.rfind('@') + 1);
  const size_t begin = host.compare(0, 1, "[") == 0 ? host.find(']') : 0;
  const size_t colon = host.find(':', begin);
  return colon == std::string::npos || isPort(host.substr(colon + 1));
}

}  // namespace

std::string maskPassword(const std::string& url) {
  const size_t scheme = url.find(":/");
  if (scheme == std::string::npos) return url;
  const size_t begin = url.find_first_not_of('/', scheme + 1);
  if (begin == std::string::npos) return url;
  const size_t end = url.find_first_of("/?#", begin);
  const bool valid = isAuthority(url.substr(begin, end - begin));
  const size_t at = url.rfind('@', valid ? end : std::string::npos);
  const size_t colon = url.find(':', begin);
  if (at == std::string::npos || colon == std::string::npos || colon > at) return url;
  return url.substr(0, colon + 1) + "***" + url.substr(at);
}

std::string maskPasswords(const std::string& text) {
  std::string shown;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find_first_of(" \t\n", at);
    const size_t next = end == std::string::npos ? text.size() : end + 1;
    shown += maskPassword(text.substr(at, end - at));
    if (end != std::string::npos) shown += text[end];
    at = next;
  }
  return shown;
}

}  // namespace tools

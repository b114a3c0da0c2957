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

// Where the password of a URL begins, behind the colon, and its size, without the "@".
struct Place {
  size_t begin = std::string::npos;  // npos: there is none
  size_t size = 0;
};

Place placeOf(const std::string& url) {
  const size_t scheme = url.find(":/");
  if (scheme == std::string::npos) return {};
  const size_t begin = url.find_first_not_of('/', scheme + 1);
  if (begin == std::string::npos) return {};
  const size_t end = url.find_first_of("/?#", begin);
  const bool valid = isAuthority(url.substr(begin, end - begin));
  const size_t at = url.rfind('@', valid ? end : std::string::npos);
  const size_t colon = url.find(':', begin);
  if (at == std::string::npos || colon == std::string::npos || colon > at) return {};
  return {colon + 1, at - colon - 1};
}

std::string maskWords(const std::string& text) {
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

}  // namespace

std::string maskPassword(const std::string& url) {
  const Place place = placeOf(url);
  return place.begin == std::string::npos
             ? url
             : std::string(url).replace(place.begin, place.size, "***");
}

std::string maskPasswords(std::string text, const std::vector<std::string>& names) {
  const std::string shown = ":***@";
  for (const std::string& name : names) {
    const Place place = placeOf(name);
    if (place.begin == std::string::npos) continue;
    const std::string secret = ":" + name.substr(place.begin, place.size) + "@";
    for (size_t at = text.find(secret); at != std::string::npos;
         at = text.find(secret, at + shown.size())) {
      text.replace(at, secret.size(), shown);
    }
  }
  return maskWords(text);
}

}  // namespace tools

#include "Location.h"

#include <glib.h>
#include <strings.h>

namespace {

const std::string kPrefix = "fluvia+";

bool hasScheme(const std::string& uri, const char* scheme, size_t length) {
  return strncasecmp(uri.c_str(), scheme, length) == 0;
}

bool isWeb(const std::string& uri) {
  return hasScheme(uri, "http://", 7) || hasScheme(uri, "https://", 8);
}

std::string taken(char* text) {
  const std::string copy = text == nullptr ? "" : text;
  g_free(text);
  return copy;
}

// The library accepts the schemes of URLs only in lower case.
std::string withSmallScheme(std::string url) {
  for (size_t i = 0; i < url.find(':'); ++i) url[i] = g_ascii_tolower(url[i]);
  return url;
}

}  // namespace

std::string locationOfUri(const std::string& uri) {
  std::string plain = uri;
  if (hasScheme(uri, kPrefix.c_str(), kPrefix.size())) plain = uri.substr(kPrefix.size());
  if (isWeb(plain)) return withSmallScheme(plain);
  if (plain.size() == uri.size() || !hasScheme(plain, "file://", 7)) return "";
  return taken(g_filename_from_uri(plain.c_str(), nullptr, nullptr));
}

std::string uriOfLocation(const std::string& location) {
  if (location.empty()) return "";
  const std::string named = locationOfUri(location);
  if (isWeb(named)) return kPrefix + named;
  const std::string& file = named.empty() ? location : named;
  const std::string path = taken(g_canonicalize_filename(file.c_str(), nullptr));
  return kPrefix + taken(g_filename_to_uri(path.c_str(), nullptr, nullptr));
}

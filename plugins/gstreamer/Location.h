#ifndef FLUVIAFS_PLUGINS_GSTREAMER_LOCATION_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_LOCATION_H_

#include <string>

// Converts between the URIs of players and the names that the library opens.

// Returns the library's name for a URI: "fluvia+http://..." and "fluvia+https://..." without the
// prefix, http and https unchanged, "fluvia+file:///path" as the path, unescaped. Empty for others.
std::string locationOfUri(const std::string& uri);

// The reverse. A location that is such a URI itself stands for what it names; anything else is a
// path. Empty for an empty location.
std::string uriOfLocation(const std::string& location);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_LOCATION_H_

#ifndef FLUVIAFS_PLUGINS_GSTREAMER_PROPERTIES_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_PROPERTIES_H_

#include <gst/gst.h>

#include <string>

#include "SourceReader.h"

// How data gets to the next element: whatever suits the medium, or always one way.
enum class Access { kAuto = 0, kPull = 1, kPush = 2 };

// The properties of an element.
struct ElementSettings {
  std::string location;
  SourceSettings source;
  int startupWait = 1000;  // milliseconds
  bool bufferingMessages = false;
  Access access = Access::kAuto;
  unsigned int given = 0;  // one bit for each property that was set
};

// Adds all properties to a class.
void installProperties(GObjectClass* type);

// Write or read the property of that number. Return false if there is none.
bool setSetting(ElementSettings* settings, guint property, const GValue* value);
bool getSetting(const ElementSettings& settings, guint property, GValue* value);

// Settings to open a source with: the properties that were set, otherwise those of another element.
SourceSettings withInherited(const ElementSettings& settings, const SourceSettings& inherited);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_PROPERTIES_H_

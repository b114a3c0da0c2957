#ifndef FLUVIAFS_PLUGINS_GSTREAMER_PROPERTIES_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_PROPERTIES_H_

#include <gst/gst.h>

#include <string>

#include "SourceReader.h"

// How what is read gets to the next element: whatever suits the medium, or one way always.
enum class Access { kAuto = 0, kPull = 1, kPush = 2 };

// What the properties of an element say.
struct ElementSettings {
  std::string location;
  SourceSettings source;
  int startupWait = 1000;  // milliseconds
  bool bufferingMessages = false;
  Access access = Access::kAuto;
  unsigned int given = 0;  // a bit for each property that was set
};

// Adds all properties to a class.
void installProperties(GObjectClass* type);

// Writes or reads the property of that number. False when there is none.
bool setSetting(ElementSettings* settings, guint property, const GValue* value);
bool getSetting(const ElementSettings& settings, guint property, GValue* value);

// What a source is opened with: what was set, and else what another element's settings say.
SourceSettings withInherited(const ElementSettings& settings, const SourceSettings& inherited);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_PROPERTIES_H_

#ifndef FLUVIAFS_PLUGINS_GSTREAMER_INHERITANCE_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_INHERITANCE_H_

#include <gst/gst.h>

#include "SourceReader.h"

// Passes the settings of an element to the elements that a demuxer creates for the entries of a
// playlist. They travel in a context of the bin that contains the first element; every element
// inside that bin gets it. An element of the same bin is another source, not one of a playlist.

// Passes the settings of an element to the elements deeper in its bin.
void bequeath(GstElement* element, const SourceSettings& settings);

// Asks for such settings; they arrive in the element's set_context().
void askForInheritance(GstElement* element);

// True if a context of element has settings for it; then sets *settings.
bool inherits(GstElement* element, GstContext* context, SourceSettings* settings);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_INHERITANCE_H_

#ifndef FLUVIAFS_PLUGINS_GSTREAMER_INHERITANCE_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_INHERITANCE_H_

#include <gst/gst.h>

#include "SourceReader.h"

// How the settings of an element reach the elements that a demuxer makes for what a playlist names:
// by a context of the bin that the first one stands in, which everything inside that bin is given.
// An element of the same bin is another source, not one of a playlist.

// Gives the settings of an element to what stands deeper in its bin.
void bequeath(GstElement* element, const SourceSettings& settings);

// Asks whoever knows for such settings; they come by the element's set_context().
void askForInheritance(GstElement* element);

// Whether a context that element was given has settings for it; then they are in *settings.
bool inherits(GstElement* element, GstContext* context, SourceSettings* settings);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_INHERITANCE_H_

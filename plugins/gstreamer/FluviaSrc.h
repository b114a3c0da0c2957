#ifndef FLUVIAFS_PLUGINS_GSTREAMER_FLUVIASRC_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_FLUVIASRC_H_

#include <gst/base/gstbasesrc.h>
#include <gst/gst.h>

// fluviasrc: a GStreamer source that reads through the library.
//
// A resource that seeks offers random access, so that demuxers pull what they want; another is
// pushed. No state change, seek or query waits for the library: reads are broken off by unlock, and
// a source that is not known startup-wait milliseconds after its opening is pushed at first.
//
// Threads: as every element.
G_BEGIN_DECLS

GType fluvia_src_get_type(void);
#define FLUVIA_TYPE_SRC (fluvia_src_get_type())

G_END_DECLS

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_FLUVIASRC_H_

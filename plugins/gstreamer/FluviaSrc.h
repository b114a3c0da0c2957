#ifndef FLUVIAFS_PLUGINS_GSTREAMER_FLUVIASRC_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_FLUVIASRC_H_

#include <gst/base/gstbasesrc.h>
#include <gst/gst.h>

// fluviasrc: a GStreamer source that reads through the library.
//
// A seekable resource offers random access, so demuxers pull what they need; other resources are
// pushed. No state change, seek or query waits for the library: unlock aborts reads. A source that
// is not known startup-wait milliseconds after its opening is pushed at first.
//
// Threads: as every element.
G_BEGIN_DECLS

GType fluvia_src_get_type(void);
#define FLUVIA_TYPE_SRC (fluvia_src_get_type())

G_END_DECLS

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_FLUVIASRC_H_

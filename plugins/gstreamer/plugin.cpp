#include <gst/gst.h>

#include "FluviaSrc.h"

namespace {

// Only requests for fluvia+http, fluvia+https or fluvia+file get this element. With a rank above
// that of the usual source of http and https it would get those too.
gboolean registerElements(GstPlugin* plugin) {
  return gst_element_register(plugin, "fluviasrc", GST_RANK_NONE, FLUVIA_TYPE_SRC);
}

}  // namespace

#define PACKAGE "fluviafs"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, fluvia,
                  "Reads local files and HTTP resources through libfluviafs", registerElements,
                  FLUVIA_VERSION, GST_LICENSE_UNKNOWN, "libfluviafs", "libfluviafs")

#include "Taken.h"

#include "tests/support/Pattern.h"

namespace {

void onBuffer(GstElement*, GstBuffer* buffer, GstPad*, gpointer data) {
  Taken* taken = static_cast<Taken*>(data);
  GstMapInfo map;
  if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
  if (support::firstDifference(GST_BUFFER_OFFSET(buffer), map.data, map.size) >= 0) {
    ++taken->wrong;
  }
  taken->bytes += static_cast<long long>(map.size);
  gst_buffer_unmap(buffer, &map);
}

}  // namespace

void Taken::watch(const Pipeline& pipeline) {
  g_object_set(pipeline.inside("sink"), "signal-handoffs", TRUE, nullptr);
  g_signal_connect(pipeline.inside("sink"), "handoff", G_CALLBACK(onBuffer), this);
}

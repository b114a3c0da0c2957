#include "Pipeline.h"

#include <gtest/gtest.h>

#include <cstdlib>

// GStreamer and its elements keep memory until the process ends. The tests of the reader, which
// need none of them, look for our leaks.
extern "C" int __lsan_is_turned_off();
extern "C" __attribute__((visibility("default"), used)) int __lsan_is_turned_off() { return 1; }

namespace {

void loadOnce() {
  static const bool loaded = [] {
    // The user's own list of elements must not change.
    setenv("GST_REGISTRY", FLUVIA_REGISTRY, 0);
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    GstPlugin* plugin = gst_plugin_load_file(FLUVIA_PLUGIN, &error);
    if (plugin == nullptr) {
      ADD_FAILURE() << error->message;
      g_error_free(error);
      return false;
    }
    gst_object_unref(plugin);
    return true;
  }();
  EXPECT_TRUE(loaded);
}

}  // namespace

Pipeline::Pipeline(const std::string& description) {
  loadOnce();
  GError* error = nullptr;
  pipeline_ = gst_parse_launch(description.c_str(), &error);
  if (error != nullptr) {
    ADD_FAILURE() << error->message;
    g_error_free(error);
  }
}

Pipeline::~Pipeline() {
  if (pipeline_ == nullptr) return;
  set(GST_STATE_NULL);
  gst_object_unref(pipeline_);
}

GstElement* Pipeline::inside(const std::string& name) const {
  GstElement* found = gst_bin_get_by_name(GST_BIN(pipeline_), name.c_str());
  if (found != nullptr) gst_object_unref(found);
  return found;
}

bool Pipeline::seek(gint64 time, GstSeekFlags more) const {
  return gst_element_seek_simple(pipeline_, GST_FORMAT_TIME,
                                 static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | more), time);
}

bool Pipeline::seekByte(gint64 offset) const {
  return gst_element_seek_simple(pipeline_, GST_FORMAT_BYTES, GST_SEEK_FLAG_FLUSH, offset);
}

gint64 Pipeline::duration() const {
  gint64 length = -1;
  if (!gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &length)) return -1;
  return length;
}

bool Pipeline::waitFor(GstMessageType types, int seconds) {
  GstBus* bus = gst_element_get_bus(pipeline_);
  GstMessage* message =
      gst_bus_timed_pop_filtered(bus, static_cast<GstClockTime>(seconds) * GST_SECOND,
                                 static_cast<GstMessageType>(types | GST_MESSAGE_ERROR));
  gst_object_unref(bus);
  if (message == nullptr) {
    error_ = "no message in time";
    return false;
  }
  const bool failed = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
  if (failed) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    error_ = error->message;
    errorCode_ = error->domain == GST_RESOURCE_ERROR ? error->code : -1;
    g_error_free(error);
  }
  const bool wanted = (GST_MESSAGE_TYPE(message) & types) != 0;
  gst_message_unref(message);
  return wanted;
}

int Pipeline::nextBuffering(int seconds) {
  GstBus* bus = gst_element_get_bus(pipeline_);
  GstMessage* message = gst_bus_timed_pop_filtered(
      bus, static_cast<GstClockTime>(seconds) * GST_SECOND, GST_MESSAGE_BUFFERING);
  gst_object_unref(bus);
  if (message == nullptr) return -1;
  gint percent = -1;
  gst_message_parse_buffering(message, &percent);
  gst_message_unref(message);
  return percent;
}

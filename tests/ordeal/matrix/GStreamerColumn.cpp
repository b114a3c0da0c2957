// The matrix's column of GStreamer's souphttpsrc into an appsink, with a time-out of five seconds.
#include <gst/gst.h>

#include <algorithm>
#include <cstring>

#include "tests/ordeal/matrix/Cell.h"

namespace {

class GStreamerClient : public matrix::Client {
 public:
  ~GStreamerClient() override {
    dropPiece();
    if (pipeline != nullptr) {
      gst_element_set_state(pipeline, GST_STATE_NULL);
      gst_object_unref(pipeline);
    }
  }

  bool open(const std::string& url, std::string* why) override {
    gst_init(nullptr, nullptr);
    pipeline = gst_pipeline_new("cell");
    GstElement* source = gst_element_factory_make("souphttpsrc", nullptr);
    sink = gst_element_factory_make("appsink", nullptr);
    if (source == nullptr || sink == nullptr) {
      *why = "no element";
      return false;
    }
    g_object_set(source, "location", url.c_str(), "timeout", 5U, "ssl-strict", FALSE, "iradio-mode",
                 FALSE, nullptr);
    g_object_set(sink, "sync", FALSE, "max-buffers", 16U, nullptr);
    gst_bin_add_many(GST_BIN(pipeline), source, sink, nullptr);
    if (!gst_element_link(source, sink)) return false;
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    // Waits until the first piece has arrived or failed.
    if (gst_element_get_state(pipeline, nullptr, nullptr, GST_CLOCK_TIME_NONE) ==
        GST_STATE_CHANGE_FAILURE) {
      *why = "open: " + error();
      return false;
    }
    return true;
  }

  long readAt(long long offset, char* bytes, size_t count, std::string* why) override {
    if (offset != position && !seek(offset, why)) return -1;
    if (sample == nullptr && !pull(why)) return why->empty() ? 0 : -1;
    const size_t n = std::min(count, map.size - used);
    memcpy(bytes, map.data + used, n);
    used += n;
    position += static_cast<long long>(n);
    if (used == map.size) dropPiece();
    return static_cast<long>(n);
  }

 private:
  void dropPiece() {
    if (sample == nullptr) return;
    gst_buffer_unmap(gst_sample_get_buffer(sample), &map);
    gst_sample_unref(sample);
    sample = nullptr;
    used = 0;
  }

  bool seek(long long offset, std::string* why) {
    dropPiece();
    if (!gst_element_seek_simple(pipeline, GST_FORMAT_BYTES, GST_SEEK_FLAG_FLUSH, offset)) {
      *why = "seek refused";
      return false;
    }
    position = offset;
    return true;
  }

  // Gets the next piece. Returns false at the end, with an empty reason, and after a failure.
  bool pull(std::string* why) {
    why->clear();
    g_signal_emit_by_name(sink, "pull-sample", &sample);
    if (sample == nullptr) {
      *why = error();
      return false;
    }
    return gst_buffer_map(gst_sample_get_buffer(sample), &map, GST_MAP_READ) && map.size > 0;
  }

  // Returns the error on the pipeline's bus; empty if there was none.
  std::string error() {
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    gst_object_unref(bus);
    if (message == nullptr) return "";
    GError* what = nullptr;
    gst_message_parse_error(message, &what, nullptr);
    std::string text = what->message;
    g_error_free(what);
    gst_message_unref(message);
    return text.substr(0, text.find('\n'));
  }

  GstElement* pipeline = nullptr;
  GstElement* sink = nullptr;
  GstSample* sample = nullptr;
  GstMapInfo map = {};
  size_t used = 0;
  long long position = 0;
};

}  // namespace

int main(int count, char** words) {
  GStreamerClient client;
  return matrix::runCell(&client, count, words);
}

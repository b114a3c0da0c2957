// GStreamer's souphttpsrc (filesrc for local files) with queue2 behind it. Modes: in push the
// reader takes buffers as they come and can only read sequentially; in pull it requests ranges from
// queue2, which keeps a ring.
#include <gio/gio.h>
#include <gst/gst.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>

#include "bench/common/Source.h"

namespace {

GstElement* makeFetcher(const bench::Options& options, const std::string& url) {
  const bool local = url[0] == '/';
  GstElement* made = gst_element_factory_make(local ? "filesrc" : "souphttpsrc", nullptr);
  if (made == nullptr) return nullptr;
  g_object_set(made, "location", url.c_str(), nullptr);
  if (local) return made;
  g_object_set(made, "ssl-strict", options.ca.empty() ? FALSE : TRUE, nullptr);
  if (options.ca.empty()) return made;
  GTlsDatabase* trusted = g_tls_file_database_new(options.ca.c_str(), nullptr);
  if (trusted == nullptr) return nullptr;
  g_object_set(made, "tls-database", trusted, nullptr);
  g_object_unref(trusted);
  return made;
}

// The fetcher and its queue2 in a pipeline, and the pad that receives its bytes.
class GStreamerSource : public bench::Source {
 public:
  bool open(const bench::Options& options, const std::string& url) override {
    GstElement* fetcher = makeFetcher(options, url);
    GstElement* queue = gst_element_factory_make("queue2", nullptr);
    if (fetcher == nullptr || queue == nullptr) return false;
    const auto buffer = static_cast<guint>(options.buffer);
    g_object_set(queue, "max-size-bytes", buffer, "max-size-buffers", 0U, "max-size-time",
                 static_cast<guint64>(0), "use-buffering", FALSE, nullptr);
    setRing(queue, options);
    pipeline = gst_pipeline_new(nullptr);
    gst_bin_add_many(GST_BIN(pipeline), fetcher, queue, nullptr);
    if (!gst_element_link(fetcher, queue)) return false;
    GstPad* out = gst_element_get_static_pad(queue, "src");
    const bool started = start(out);
    gst_object_unref(out);
    return started;
  }

  void close() override {
    if (pipeline == nullptr) return;
    abort();
    gst_element_set_state(pipeline, GST_STATE_NULL);
    release();
    gst_object_unref(pipeline);
    pipeline = nullptr;
  }

 protected:
  virtual void setRing(GstElement*, const bench::Options&) {}
  // Connects to queue2's pad and starts the pipeline.
  virtual bool start(GstPad* out) = 0;
  virtual void release() = 0;

  GstElement* pipeline = nullptr;
};

class PushSource : public GStreamerSource {
 public:
  ~PushSource() override { close(); }

  long long read(char* buffer, size_t size) override {
    std::unique_lock<std::mutex> guard(lock);
    size_t done = 0;
    while (done < size) {
      changed.wait(guard, [this] { return current != nullptr || ended || aborted; });
      if (aborted) return -1;
      if (current == nullptr) break;
      const size_t count = gst_buffer_extract(current, used, buffer + done, size - done);
      used += count;
      done += count;
      if (used == gst_buffer_get_size(current)) {
        gst_buffer_unref(current);
        current = nullptr;
        changed.notify_all();
      }
    }
    return static_cast<long long>(done);
  }
  bool seek(long long) override { return false; }
  void abort() override {
    const std::lock_guard<std::mutex> guard(lock);
    aborted = true;
    changed.notify_all();
  }

 protected:
  bool start(GstPad* out) override {
    pad = gst_pad_new("reader", GST_PAD_SINK);
    gst_pad_set_element_private(pad, this);
    gst_pad_set_chain_function(pad, chain);
    gst_pad_set_event_function(pad, onEvent);
    gst_pad_set_active(pad, TRUE);
    if (gst_pad_link(out, pad) != GST_PAD_LINK_OK) return false;
    return gst_element_set_state(pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
  }
  void release() override {
    if (current != nullptr) gst_buffer_unref(current);
    current = nullptr;
    if (pad != nullptr) gst_object_unref(pad);
    pad = nullptr;
  }

 private:
  static GstFlowReturn chain(GstPad* pad, GstObject*, GstBuffer* buffer) {
    return static_cast<PushSource*>(gst_pad_get_element_private(pad))->take(buffer);
  }
  static gboolean onEvent(GstPad* pad, GstObject*, GstEvent* event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) {
      static_cast<PushSource*>(gst_pad_get_element_private(pad))->end();
    }
    gst_event_unref(event);
    return TRUE;
  }
  GstFlowReturn take(GstBuffer* buffer) {
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] { return current == nullptr || aborted; });
    if (aborted) {
      gst_buffer_unref(buffer);
      return GST_FLOW_FLUSHING;
    }
    current = buffer;
    used = 0;
    changed.notify_all();
    return GST_FLOW_OK;
  }
  void end() {
    const std::lock_guard<std::mutex> guard(lock);
    ended = true;
    changed.notify_all();
  }

  std::mutex lock;
  std::condition_variable changed;
  GstPad* pad = nullptr;
  GstBuffer* current = nullptr;
  size_t used = 0;
  bool ended = false;
  bool aborted = false;
};

class PullSource : public GStreamerSource {
 public:
  ~PullSource() override { close(); }

  long long read(char* buffer, size_t size) override {
    const long long left = std::max(0LL, resourceSize - position);
    const size_t wanted = static_cast<size_t>(std::min(left, static_cast<long long>(size)));
    size_t done = 0;
    // queue2 may have overwritten bytes that it returned once.
    if (position == 0 && wanted > 0 && begun) {
      buffer[done++] = first;
      ++position;
    }
    while (done < wanted) {
      GstBuffer* got = nullptr;
      const GstFlowReturn flow = gst_pad_get_range(pad, static_cast<guint64>(position),
                                                   static_cast<guint>(wanted - done), &got);
      if (flow == GST_FLOW_EOS) break;
      if (flow != GST_FLOW_OK) return -1;
      const size_t count = gst_buffer_extract(got, 0, buffer + done, wanted - done);
      gst_buffer_unref(got);
      if (count == 0) break;
      done += count;
      position += static_cast<long long>(count);
    }
    return static_cast<long long>(done);
  }
  bool seek(long long offset) override {
    position = offset;
    return true;
  }
  void abort() override {
    if (pad != nullptr) gst_pad_set_active(pad, FALSE);
  }

 protected:
  void setRing(GstElement* queue, const bench::Options& options) override {
    g_object_set(queue, "ring-buffer-max-size", static_cast<guint64>(options.buffer), nullptr);
    resourceSize = options.size;
  }
  bool start(GstPad* out) override {
    pad = GST_PAD(gst_object_ref(out));
    if (gst_element_set_state(pipeline, GST_STATE_READY) == GST_STATE_CHANGE_FAILURE) return false;
    if (!gst_pad_activate_mode(pad, GST_PAD_MODE_PULL, TRUE)) return false;
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
      return false;
    }
    // As every demuxer does: a source that has not begun cannot seek.
    begun = read(&first, 1) == 1;
    position = 0;
    return begun;
  }
  void release() override {
    if (pad != nullptr) gst_object_unref(pad);
    pad = nullptr;
  }

 private:
  GstPad* pad = nullptr;
  bool begun = false;
  char first = 0;  // the resource's
  long long position = 0;
  long long resourceSize = 0;
};

std::unique_ptr<bench::Source> make(const bench::Options& options) {
  if (options.mode == "pull") return std::make_unique<PullSource>();
  if (options.mode == "push") return std::make_unique<PushSource>();
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(nullptr, nullptr);
  return bench::runDriver(argc, argv, make);
}

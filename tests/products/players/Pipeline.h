#ifndef FLUVIAFS_TESTS_PLAYERS_PIPELINE_H_
#define FLUVIAFS_TESTS_PLAYERS_PIPELINE_H_

#include <gst/gst.h>

#include <string>

// A GStreamer pipeline for a test, made from a text in the syntax of gst-launch; stopped at its
// end.
class Pipeline {
 public:
  // The first one loads our element.
  explicit Pipeline(const std::string& description);
  ~Pipeline();
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  bool valid() const { return pipeline_ != nullptr; }
  GstElement* element() const { return pipeline_; }
  // The element of that name inside; the pipeline owns it.
  GstElement* inside(const std::string& name) const;

  GstStateChangeReturn set(GstState state) const { return gst_element_set_state(pipeline_, state); }
  // Flushing seek to a time in nanoseconds, or to a byte.
  bool seek(gint64 time, GstSeekFlags more = GST_SEEK_FLAG_NONE) const;
  bool seekByte(gint64 offset) const;
  // Nanoseconds; -1 if it is unknown.
  gint64 duration() const;

  // Waits for a message of these types; an error ends the wait too. Returns false after seconds.
  // error() has the text of an error, with its code of GstResourceError.
  bool waitFor(GstMessageType types, int seconds = 60);
  const std::string& error() const { return error_; }
  int errorCode() const { return errorCode_; }
  // Returns the percentage of the next buffering message; -1 after seconds without one.
  int nextBuffering(int seconds = 60);

 private:
  GstElement* pipeline_ = nullptr;
  std::string error_;
  int errorCode_ = 0;
};

#endif  // FLUVIAFS_TESTS_PLAYERS_PIPELINE_H_

#ifndef FLUVIAFS_PLUGINS_GSTREAMER_TELLER_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_TELLER_H_

#include <gst/gst.h>

#include "BufferingWatch.h"
#include "SourceReader.h"

// Posts messages of an element, which may go at any time, the reader's thread later.
//
// Threads: any.
class Teller {
 public:
  explicit Teller(GstElement* element) { g_weak_ref_init(&element_, element); }
  ~Teller() { g_weak_ref_clear(&element_); }
  Teller(const Teller&) = delete;
  Teller& operator=(const Teller&) = delete;

  // Posts what make gives for the element; asks it for nothing when the element is gone.
  template <typename Make>
  void post(Make make) {
    GstElement* element = static_cast<GstElement*>(g_weak_ref_get(&element_));
    if (element == nullptr) return;
    gst_element_post_message(element, make(GST_OBJECT(element)));
    gst_object_unref(element);
  }

 private:
  GWeakRef element_;
};

// Posts what a BufferingWatch finds worth telling.
//
// Threads: one at a time.
class BufferingTeller {
 public:
  explicit BufferingTeller(GstElement* element) : teller_(element) {}

  void update(const SourceLevels& levels, bool ended);

 private:
  Teller teller_;
  BufferingWatch watch_;
};

// Posts an outage as the element message "fluviasrc-outage".
//
// Threads: any.
class OutageTeller {
 public:
  explicit OutageTeller(GstElement* element) : teller_(element) {}

  void tell(const SourceOutage& outage);

 private:
  Teller teller_;
};

// Posts why a source has failed, with the status that a server answered, by which the demuxers of
// adaptive streams decide whether to try again, and which segment.
void postFailure(GstElement* element, const SourceReader& reader);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_TELLER_H_

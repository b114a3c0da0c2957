#ifndef FLUVIAFS_PLUGINS_GSTREAMER_TELLER_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_TELLER_H_

#include <gst/gst.h>

#include "BufferingWatch.h"
#include "SourceReader.h"

// Posts messages of an element later, from the reader's thread. The element may be destroyed at any
// time.
//
// Threads: any.
class Teller {
 public:
  explicit Teller(GstElement* element) { g_weak_ref_init(&element_, element); }
  ~Teller() { g_weak_ref_clear(&element_); }
  Teller(const Teller&) = delete;
  Teller& operator=(const Teller&) = delete;

  // Posts what make returns for the element; does not call make if the element is gone.
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

// Posts the percentages of a BufferingWatch.
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

// Posts why a source has failed, with the HTTP status of the server. Demuxers of adaptive streams
// use it to decide whether to retry, and which segment.
void postFailure(GstElement* element, const SourceReader& reader);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_TELLER_H_

#include "Teller.h"

void BufferingTeller::update(const SourceLevels& levels, bool ended) {
  const int percent = watch_.update(levels, ended);
  if (percent < 0) return;
  teller_.post([&](GstObject* element) {
    GstMessage* message = gst_message_new_buffering(element, percent);
    gst_message_set_buffering_stats(message, GST_BUFFERING_STREAM, static_cast<gint>(levels.speed),
                                    -1, -1);
    return message;
  });
}

void OutageTeller::tell(const SourceOutage& outage) {
  teller_.post([&](GstObject* element) {
    GstStructure* told = gst_structure_new("fluviasrc-outage", "waiting", G_TYPE_BOOLEAN,
                                           outage.waits ? TRUE : FALSE, "offset", G_TYPE_INT64,
                                           static_cast<gint64>(outage.offset), nullptr);
    if (outage.waits) {
      gst_structure_set(told, "reason", G_TYPE_STRING, outage.why.c_str(), "milliseconds",
                        G_TYPE_INT, static_cast<gint>(outage.milliseconds), nullptr);
    }
    return gst_message_new_element(element, told);
  });
}

#include "Teller.h"

namespace {

struct ResourceError {
  GstResourceError code;
  const char* text;
};

ResourceError resourceErrorOf(SourceFailure failure) {
  switch (failure) {
    case SourceFailure::kNotFound:
      return {GST_RESOURCE_ERROR_NOT_FOUND, "not found"};
    case SourceFailure::kNotAuthorized:
      return {GST_RESOURCE_ERROR_NOT_AUTHORIZED, "not authorized"};
    case SourceFailure::kNotAvailable:
      return {GST_RESOURCE_ERROR_OPEN_READ, "not available"};
    case SourceFailure::kTimeout:
      return {GST_RESOURCE_ERROR_READ, "time-out"};
    default:
      return {GST_RESOURCE_ERROR_READ, "failed"};
  }
}

}  // namespace

void postFailure(GstElement* element, const SourceReader& reader) {
  const ResourceError error = resourceErrorOf(reader.failure());
  const int status = reader.httpStatus();
  GstStructure* details = status == 0
                              ? nullptr
                              : gst_structure_new("details", "http-status-code", G_TYPE_UINT,
                                                  static_cast<guint>(status), nullptr);
  gst_element_message_full_with_details(element, GST_MESSAGE_ERROR, GST_RESOURCE_ERROR, error.code,
                                        g_strdup(reader.explanation().c_str()),
                                        g_strdup(error.text), __FILE__, __func__, __LINE__,
                                        details);
}

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

#include "Inheritance.h"

#include <string>

namespace {

constexpr const char* kContext = "fluviasrc-settings";

std::string textIn(const GstStructure* structure, const char* field) {
  const char* text = gst_structure_get_string(structure, field);
  return text == nullptr ? "" : text;
}

}  // namespace

void bequeath(GstElement* element, const SourceSettings& settings) {
  GstObject* bin = gst_object_get_parent(GST_OBJECT(element));
  if (bin == nullptr) return;
  GstContext* context = gst_context_new(kContext, FALSE);
  gst_structure_set(gst_context_writable_structure(context), "bin", G_TYPE_POINTER, bin,
                    "buffer-size", G_TYPE_INT, settings.bufferSize, "user-agent", G_TYPE_STRING,
                    settings.userAgent.c_str(), "proxy", G_TYPE_STRING, settings.proxy.c_str(),
                    "cookie", G_TYPE_STRING, settings.cookie.c_str(), "ca", G_TYPE_STRING,
                    settings.authorities.c_str(), "certificate", G_TYPE_STRING,
                    settings.certificate.c_str(), "private-key", G_TYPE_STRING,
                    settings.key.c_str(), "speed-cap", G_TYPE_INT64,
                    static_cast<gint64>(settings.speed), "feature-flag", G_TYPE_INT,
                    settings.featureFlag, "reopen", G_TYPE_INT, settings.reopen, nullptr);
  if (GST_IS_BIN(bin)) gst_element_set_context(GST_ELEMENT(bin), context);
  gst_context_unref(context);
  gst_object_unref(bin);
}

void askForInheritance(GstElement* element) {
  gst_element_post_message(element, gst_message_new_need_context(GST_OBJECT(element), kContext));
}

bool inherits(GstElement* element, GstContext* context, SourceSettings* settings) {
  if (!gst_context_has_context_type(context, kContext)) return false;
  const GstStructure* structure = gst_context_get_structure(context);
  gpointer bin = nullptr;
  gst_structure_get(structure, "bin", G_TYPE_POINTER, &bin, nullptr);
  GstObject* own = gst_object_get_parent(GST_OBJECT(element));
  const bool isBeside = own != nullptr && own == bin;
  if (own != nullptr) gst_object_unref(own);
  if (isBeside) return false;
  gint64 speed = 0;
  gst_structure_get(structure, "buffer-size", G_TYPE_INT, &settings->bufferSize, "feature-flag",
                    G_TYPE_INT, &settings->featureFlag, "reopen", G_TYPE_INT, &settings->reopen,
                    "speed-cap", G_TYPE_INT64, &speed, nullptr);
  settings->speed = speed;
  settings->userAgent = textIn(structure, "user-agent");
  settings->proxy = textIn(structure, "proxy");
  settings->cookie = textIn(structure, "cookie");
  settings->authorities = textIn(structure, "ca");
  settings->certificate = textIn(structure, "certificate");
  settings->key = textIn(structure, "private-key");
  return true;
}

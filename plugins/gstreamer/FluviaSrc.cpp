#include "FluviaSrc.h"

#include <memory>
#include <mutex>
#include <string>

#include "Diagnosis.h"
#include "Location.h"
#include "Passwords.h"
#include "SourceReader.h"
#include "Teller.h"

GST_DEBUG_CATEGORY_STATIC(fluvia_src_debug);
#define GST_CAT_DEFAULT fluvia_src_debug

namespace {

// What an element holds. lock guards all of it and is held for moments only: the reader does the
// waiting, on a share of its own.
struct Content {
  std::mutex lock;
  std::string location;
  SourceSettings settings;
  int startupWait = 1000;
  bool bufferingMessages = false;
  std::shared_ptr<SourceReader> reader;
  // What the reader was opened with.
  SourceSettings opened;
  bool openedWithMessages = false;
};

enum Property {
  kLocation = 1,
  kBufferSize,
  kUserAgent,
  kProxy,
  kCookie,
  kAuthorities,
  kCertificate,
  kPrivateKey,
  kSpeedCap,
  kFeatureFlag,
  kStartupWait,
  kBufferingMessages,
  kReopen
};

constexpr unsigned int kBlockSize = 65536;

GstStaticPadTemplate sourceTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

}  // namespace

struct FluviaSrc {
  GstBaseSrc base;
  Content* content;
};

struct FluviaSrcClass {
  GstBaseSrcClass base;
};

static void fluvia_src_uri_handler_init(gpointer interface, gpointer data);

G_DEFINE_TYPE_WITH_CODE(FluviaSrc, fluvia_src, GST_TYPE_BASE_SRC,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_URI_HANDLER, fluvia_src_uri_handler_init))

namespace {

FluviaSrc* self(gpointer object) { return static_cast<FluviaSrc*>(object); }

Content& contentOf(gpointer object) { return *self(object)->content; }

std::shared_ptr<SourceReader> readerOf(gpointer object) {
  Content& content = contentOf(object);
  const std::lock_guard<std::mutex> guard(content.lock);
  return content.reader;
}

// ---- Properties --------------------------------------------------------------------------------

std::string* textOf(Content& content, guint property) {
  switch (property) {
    case kLocation:
      return &content.location;
    case kUserAgent:
      return &content.settings.userAgent;
    case kProxy:
      return &content.settings.proxy;
    case kCookie:
      return &content.settings.cookie;
    case kAuthorities:
      return &content.settings.authorities;
    case kCertificate:
      return &content.settings.certificate;
    case kPrivateKey:
      return &content.settings.key;
    default:
      return nullptr;
  }
}

// The source is opened with its settings, so they hold from the next start on.
void setProperty(GObject* object, guint property, const GValue* value, GParamSpec* spec) {
  Content& content = contentOf(object);
  const std::lock_guard<std::mutex> guard(content.lock);
  if (std::string* text = textOf(content, property)) {
    const char* given = g_value_get_string(value);
    *text = given == nullptr ? "" : given;
  } else if (property == kBufferSize) {
    content.settings.bufferSize = g_value_get_int(value);
  } else if (property == kSpeedCap) {
    content.settings.speed = g_value_get_int64(value);
  } else if (property == kFeatureFlag) {
    content.settings.featureFlag = g_value_get_int(value);
  } else if (property == kReopen) {
    content.settings.reopen = g_value_get_int(value);
  } else if (property == kStartupWait) {
    content.startupWait = g_value_get_int(value);
  } else if (property == kBufferingMessages) {
    content.bufferingMessages = g_value_get_boolean(value) != FALSE;
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, spec);
  }
}

void getProperty(GObject* object, guint property, GValue* value, GParamSpec* spec) {
  Content& content = contentOf(object);
  const std::lock_guard<std::mutex> guard(content.lock);
  if (const std::string* text = textOf(content, property)) {
    g_value_set_string(value, text->empty() ? nullptr : text->c_str());
  } else if (property == kBufferSize) {
    g_value_set_int(value, content.settings.bufferSize);
  } else if (property == kSpeedCap) {
    g_value_set_int64(value, content.settings.speed);
  } else if (property == kFeatureFlag) {
    g_value_set_int(value, content.settings.featureFlag);
  } else if (property == kReopen) {
    g_value_set_int(value, content.settings.reopen);
  } else if (property == kStartupWait) {
    g_value_set_int(value, content.startupWait);
  } else if (property == kBufferingMessages) {
    g_value_set_boolean(value, content.bufferingMessages);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, spec);
  }
}

GParamFlags plain() {
  return static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                  GST_PARAM_MUTABLE_READY);
}

void installText(GObjectClass* type, guint property, const char* name, const char* nick,
                 const char* blurb) {
  g_object_class_install_property(type, property,
                                  g_param_spec_string(name, nick, blurb, nullptr, plain()));
}

void installProperties(GObjectClass* type) {
  installText(type, kLocation, "location", "Location", "Path or http:// or https:// URL to read");
  installText(type, kUserAgent, "user-agent", "User agent", "User-Agent header of requests");
  installText(type, kProxy, "proxy", "Proxy", "[scheme://][user:password@]host[:port]");
  installText(type, kCookie, "cookie", "Cookie", "Cookie header, as name=value; name=value");
  installText(type, kAuthorities, "ca", "Certificate authorities",
              "PEM file or folder of the authorities to trust; without it nobody's certificate is "
              "checked");
  installText(type, kCertificate, "certificate", "Certificate", "PEM file of the client");
  installText(type, kPrivateKey, "private-key", "Private key", "PEM file of the client's key");
  g_object_class_install_property(
      type, kBufferSize,
      g_param_spec_int("buffer-size", "Buffer size", "Bytes held in memory", FVFR_BUFFER_BLOCK,
                       G_MAXINT, FVFR_DEFAULT_BUFFER, plain()));
  g_object_class_install_property(
      type, kSpeedCap,
      g_param_spec_int64("speed-cap", "Speed cap", "Bytes per second to load at most (0 = no cap)",
                         0, G_MAXINT64, 0, plain()));
  g_object_class_install_property(
      type, kFeatureFlag,
      g_param_spec_int("feature-flag", "Feature flag",
                       "1 gives silent connections up sooner and tries again (-1 = leave alone)",
                       -1, G_MAXINT, -1, plain()));
  g_object_class_install_property(
      type, kStartupWait,
      g_param_spec_int("startup-wait", "Startup wait",
                       "Milliseconds from opening in which random access can still be offered", 0,
                       60000, 1000, plain()));
  g_object_class_install_property(
      type, kReopen,
      g_param_spec_int(
          "reopen", "Reopen",
          "Seconds for which a server that is away is tried again, at most ten of them "
          "before the first byte (0 = not at all)",
          0, 86400, FLUVIA_OUTAGE_SECONDS, plain()));
  g_object_class_install_property(
      type, kBufferingMessages,
      g_param_spec_boolean("buffering-messages", "Buffering messages",
                           "Tell the application how full the buffer is when it runs low", FALSE,
                           plain()));
}

// ---- Opening and closing -----------------------------------------------------------------------

// The absolute path or the URL with a scheme in small letters: what the library wants.
std::string openable(const std::string& location) {
  const std::string name = locationOfUri(uriOfLocation(location));
  return name.empty() ? location : name;
}

std::shared_ptr<SourceReader> openReader(GstBaseSrc* base, const std::string& name,
                                         Content& content) {
  content.opened = content.settings;
  content.openedWithMessages = content.bufferingMessages;
  const auto outages = std::make_shared<OutageTeller>(GST_ELEMENT(base));
  const auto reader = std::make_shared<SourceReader>(
      name, content.settings, [outages](const SourceOutage& outage) { outages->tell(outage); });
  if (content.bufferingMessages) {
    const auto teller = std::make_shared<BufferingTeller>(GST_ELEMENT(base));
    reader->observe(
        [teller](const SourceLevels& levels, bool ended) { teller->update(levels, ended); });
  }
  return reader;
}

// Whether the reader that was kept reads what a new one would.
bool canBeKept(const Content& content, const std::string& name) {
  return content.reader != nullptr && content.reader->name() == name &&
         content.opened == content.settings &&
         content.openedWithMessages == content.bufferingMessages && !content.reader->facts().failed;
}

// A reader is kept from the first start until NULL: scheduling queries start and stop an element to
// learn whether it has random access, and should not open the source twice.
gboolean start(GstBaseSrc* base) {
  Content& content = contentOf(base);
  {
    const std::lock_guard<std::mutex> guard(content.lock);
    if (!content.location.empty()) {
      const std::string name = openable(content.location);
      if (!canBeKept(content, name)) {
        // First the old one goes: the new one waits for its close then, and shares nothing with it.
        content.reader.reset();
        content.reader = openReader(base, name, content);
      }
      content.reader->resume();
      return TRUE;
    }
  }
  GST_ELEMENT_ERROR(base, RESOURCE, NOT_FOUND, ("No location was given."), (nullptr));
  return FALSE;
}

void closeReader(gpointer object) {
  Content& content = contentOf(object);
  std::shared_ptr<SourceReader> old;
  const std::lock_guard<std::mutex> guard(content.lock);
  if (content.reader != nullptr) content.reader->interrupt();
  old = std::move(content.reader);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(fluvia_src_parent_class)->change_state(element, transition);
  if (transition == GST_STATE_CHANGE_READY_TO_NULL) closeReader(element);
  return result;
}

gboolean unlock(GstBaseSrc* base) {
  if (const auto reader = readerOf(base)) reader->interrupt();
  return TRUE;
}

gboolean unlockStop(GstBaseSrc* base) {
  if (const auto reader = readerOf(base)) reader->resume();
  return TRUE;
}

// ---- Size, reading -----------------------------------------------------------------------------

gboolean isSeekable(GstBaseSrc* base) {
  int wait = 0;
  {
    const std::lock_guard<std::mutex> guard(contentOf(base).lock);
    wait = contentOf(base).startupWait;
  }
  const auto reader = readerOf(base);
  if (reader == nullptr) return FALSE;
  const SourceFacts facts = reader->waitForFacts(wait);
  return facts.known && !facts.failed && facts.seekable;
}

gboolean getSize(GstBaseSrc* base, guint64* size) {
  const auto reader = readerOf(base);
  if (reader == nullptr) return FALSE;
  const SourceFacts facts = reader->facts();
  if (!facts.known || facts.failed || facts.size < 0) return FALSE;
  *size = static_cast<guint64>(facts.size);
  return TRUE;
}

void postFailure(GstBaseSrc* base, const SourceReader& reader) {
  const std::string text = reader.explanation();
  switch (reader.failure()) {
    case SourceFailure::kNotFound:
      GST_ELEMENT_ERROR(base, RESOURCE, NOT_FOUND, ("%s", text.c_str()), ("not found"));
      break;
    case SourceFailure::kNotAuthorized:
      GST_ELEMENT_ERROR(base, RESOURCE, NOT_AUTHORIZED, ("%s", text.c_str()), ("not authorized"));
      break;
    case SourceFailure::kNotAvailable:
      GST_ELEMENT_ERROR(base, RESOURCE, OPEN_READ, ("%s", text.c_str()), ("not available"));
      break;
    case SourceFailure::kTimeout:
      GST_ELEMENT_ERROR(base, RESOURCE, READ, ("%s", text.c_str()), ("time-out"));
      break;
    default:
      GST_ELEMENT_ERROR(base, RESOURCE, READ, ("%s", text.c_str()), ("failed"));
      break;
  }
}

// A source that is known only after its start, tells its length then: demuxers that are pushed
// would take it for one that cannot seek.
void tellSize(GstBaseSrc* base) {
  guint64 size = 0;
  if (!getSize(base, &size)) return;
  bool changed = false;
  GST_OBJECT_LOCK(base);
  if (base->segment.format == GST_FORMAT_BYTES && base->segment.duration == GST_CLOCK_TIME_NONE) {
    base->segment.duration = size;
    changed = true;
  }
  GST_OBJECT_UNLOCK(base);
  if (changed) {
    gst_element_post_message(GST_ELEMENT(base), gst_message_new_duration_changed(GST_OBJECT(base)));
  }
}

void freePiece(gpointer data) { delete[] static_cast<char*>(data); }

GstFlowReturn create(GstBaseSrc* base, guint64 offset, guint length, GstBuffer** buffer) {
  const auto reader = readerOf(base);
  if (reader == nullptr) return GST_FLOW_FLUSHING;
  SourceReader::Piece piece;
  switch (reader->read(static_cast<long long>(offset), length, &piece)) {
    case SourceReader::Outcome::kDone:
      break;
    case SourceReader::Outcome::kEnd:
      return GST_FLOW_EOS;
    case SourceReader::Outcome::kInterrupted:
      return GST_FLOW_FLUSHING;
    case SourceReader::Outcome::kFailed:
      postFailure(base, *reader);
      return GST_FLOW_ERROR;
  }
  tellSize(base);
  char* data = piece.data.release();
  GstBuffer* made = gst_buffer_new_wrapped_full(static_cast<GstMemoryFlags>(0), data, piece.size, 0,
                                                piece.size, data, freePiece);
  GST_BUFFER_OFFSET(made) = offset;
  GST_BUFFER_OFFSET_END(made) = offset + piece.size;
  *buffer = made;
  return GST_FLOW_OK;
}

// ---- Queries -----------------------------------------------------------------------------------

// The amount that is held ahead, in bytes and per cent. A query that names a format of time or
// frames is for others to answer.
gboolean answerBuffering(GstBaseSrc* base, GstQuery* query) {
  GstFormat format = GST_FORMAT_UNDEFINED;
  gst_query_parse_buffering_range(query, &format, nullptr, nullptr, nullptr);
  const auto reader = readerOf(base);
  if (reader == nullptr || (format != GST_FORMAT_BYTES && format != GST_FORMAT_PERCENT)) {
    return FALSE;
  }
  const SourceLevels levels = reader->levels();
  const SourceFacts facts = reader->facts();
  const gint64 held = levels.wanted <= 0 ? 100 : MIN(100, levels.buffered * 100 / levels.wanted);
  gint64 from = 0;
  {
    GST_OBJECT_LOCK(base);
    from = static_cast<gint64>(base->segment.position);
    GST_OBJECT_UNLOCK(base);
  }
  gint64 to = from + levels.buffered;
  if (format == GST_FORMAT_PERCENT) {
    if (facts.size <= 0) return FALSE;
    const auto inPercent = [&facts](gint64 bytes) {
      return static_cast<gint64>(gst_util_uint64_scale(
          static_cast<guint64>(bytes), GST_FORMAT_PERCENT_MAX, static_cast<guint64>(facts.size)));
    };
    from = inPercent(from);
    to = inPercent(to);
  }
  gst_query_set_buffering_percent(query, held < 10, static_cast<gint>(held));
  gst_query_set_buffering_range(query, format, from, to, -1);
  gst_query_set_buffering_stats(query, GST_BUFFERING_STREAM, static_cast<gint>(levels.speed), -1,
                                -1);
  return TRUE;
}

// The answer to scheduling queries leaves GST_SCHEDULING_FLAG_BANDWIDTH_LIMITED out, wanted: with
// it demuxers are fed by pushing, through a buffer beside ours, and seek less exactly.
gboolean answerQuery(GstBaseSrc* base, GstQuery* query) {
  if (GST_QUERY_TYPE(query) == GST_QUERY_BUFFERING) return answerBuffering(base, query);
  return GST_BASE_SRC_CLASS(fluvia_src_parent_class)->query(base, query);
}

// ---- URIs --------------------------------------------------------------------------------------

GstURIType uriType(GType) { return GST_URI_SRC; }

const gchar* const* uriProtocols(GType) {
  static const gchar* const protocols[] = {"fluvia+http", "fluvia+https", "fluvia+file",
                                           "http",        "https",        nullptr};
  return protocols;
}

gchar* uriGet(GstURIHandler* handler) {
  Content& content = contentOf(handler);
  const std::lock_guard<std::mutex> guard(content.lock);
  const std::string uri = uriOfLocation(content.location);
  return uri.empty() ? nullptr : g_strdup(uri.c_str());
}

gboolean uriSet(GstURIHandler* handler, const gchar* uri, GError** error) {
  GstState state = GST_STATE_NULL;
  GST_OBJECT_LOCK(handler);
  state = GST_STATE(handler);
  GST_OBJECT_UNLOCK(handler);
  if (state > GST_STATE_READY) {
    g_set_error(error, GST_URI_ERROR, GST_URI_ERROR_BAD_STATE,
                "The location cannot be changed while the source runs.");
    return FALSE;
  }
  const std::string location = locationOfUri(uri);
  if (location.empty()) {
    g_set_error(error, GST_URI_ERROR, GST_URI_ERROR_BAD_URI, "%s names no file or server.",
                tools::maskPassword(uri).c_str());
    return FALSE;
  }
  Content& content = contentOf(handler);
  const std::lock_guard<std::mutex> guard(content.lock);
  content.location = location;
  return TRUE;
}

void finalize(GObject* object) {
  closeReader(object);
  delete self(object)->content;
  self(object)->content = nullptr;
  G_OBJECT_CLASS(fluvia_src_parent_class)->finalize(object);
}

}  // namespace

static void fluvia_src_uri_handler_init(gpointer interface, gpointer /*data*/) {
  GstURIHandlerInterface* handler = static_cast<GstURIHandlerInterface*>(interface);
  handler->get_type = uriType;
  handler->get_protocols = uriProtocols;
  handler->get_uri = uriGet;
  handler->set_uri = uriSet;
}

static void fluvia_src_class_init(FluviaSrcClass* type) {
  GST_DEBUG_CATEGORY_INIT(fluvia_src_debug, "fluviasrc", 0, "libfluviafs source");
  GObjectClass* object = G_OBJECT_CLASS(type);
  object->set_property = setProperty;
  object->get_property = getProperty;
  object->finalize = finalize;
  installProperties(object);
  GstElementClass* element = GST_ELEMENT_CLASS(type);
  element->change_state = changeState;
  gst_element_class_add_static_pad_template(element, &sourceTemplate);
  gst_element_class_set_static_metadata(
      element, "FluviaFS source", "Source/File/Network",
      "Reads local files and HTTP or HTTPS resources through libfluviafs", "libfluviafs");
  GstBaseSrcClass* base = GST_BASE_SRC_CLASS(type);
  base->start = start;
  base->unlock = unlock;
  base->unlock_stop = unlockStop;
  base->is_seekable = isSeekable;
  base->get_size = getSize;
  base->create = create;
  base->query = answerQuery;
}

static void fluvia_src_init(FluviaSrc* src) {
  src->content = new Content();
  gst_base_src_set_blocksize(GST_BASE_SRC(src), kBlockSize);
}

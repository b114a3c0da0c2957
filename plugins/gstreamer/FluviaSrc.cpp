#include "FluviaSrc.h"

#include <memory>
#include <mutex>
#include <string>

#include "Diagnosis.h"
#include "Inheritance.h"
#include "Location.h"
#include "Passwords.h"
#include "Properties.h"
#include "SourceReader.h"
#include "Teller.h"

GST_DEBUG_CATEGORY_STATIC(fluvia_src_debug);
#define GST_CAT_DEFAULT fluvia_src_debug

namespace {

// The state of an element. lock guards all of it and is held only briefly: the reader does the
// waiting, and its callers hold it by a shared pointer of their own.
struct Content {
  std::mutex lock;
  ElementSettings settings;
  // Settings of the first element of an adaptive stream; the defaults in that element itself.
  SourceSettings inherited;
  bool inherits = false;
  std::shared_ptr<SourceReader> reader;
  // The settings that the reader was opened with.
  SourceSettings opened;
  bool openedWithMessages = false;
  // Push mode: where pushing began, and where it continues.
  guint64 pushedFrom = 0;
  guint64 pushedTo = 0;
  // The last seek: the number of its event, and its bytes.
  guint32 seekNumber = 0;
  gint64 seekFrom = -1;
  gint64 seekTo = -1;
};

constexpr unsigned int kBlockSize = 65536;
constexpr unsigned int kSmallestPiece = 4096;

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

// A source is opened with its settings, so they apply from the next start on.
void setProperty(GObject* object, guint property, const GValue* value, GParamSpec* spec) {
  Content& content = contentOf(object);
  const std::lock_guard<std::mutex> guard(content.lock);
  if (!setSetting(&content.settings, property, value)) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, spec);
  }
}

void getProperty(GObject* object, guint property, GValue* value, GParamSpec* spec) {
  Content& content = contentOf(object);
  const std::lock_guard<std::mutex> guard(content.lock);
  if (!getSetting(content.settings, property, value)) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, property, spec);
  }
}

// ---- Opening and closing -----------------------------------------------------------------------

// The form that the library needs: the absolute path, or the URL with a lower-case scheme.
std::string openable(const std::string& location) {
  const std::string name = locationOfUri(uriOfLocation(location));
  return name.empty() ? location : name;
}

std::shared_ptr<SourceReader> openReader(GstBaseSrc* base, const std::string& name,
                                         Content& content) {
  content.opened = withInherited(content.settings, content.inherited);
  content.openedWithMessages = content.settings.bufferingMessages;
  const auto outages = std::make_shared<OutageTeller>(GST_ELEMENT(base));
  const auto reader = std::make_shared<SourceReader>(
      name, content.opened, [outages](const SourceOutage& outage) { outages->tell(outage); });
  if (content.settings.bufferingMessages) {
    const auto teller = std::make_shared<BufferingTeller>(GST_ELEMENT(base));
    reader->observe(
        [teller](const SourceLevels& levels, bool ended) { teller->update(levels, ended); });
  }
  return reader;
}

// True if the kept reader reads the same as a new one would.
bool canBeKept(const Content& content, const std::string& name) {
  return content.reader != nullptr && content.reader->name() == name &&
         content.opened == withInherited(content.settings, content.inherited) &&
         content.openedWithMessages == content.settings.bufferingMessages &&
         !content.reader->facts().failed && !content.reader->isReleased();
}

// A reader is kept from the first start until NULL: scheduling queries start and stop an element to
// find out whether it has random access, and must not open the source twice.
gboolean start(GstBaseSrc* base) {
  Content& content = contentOf(base);
  {
    const std::lock_guard<std::mutex> guard(content.lock);
    if (!content.settings.location.empty()) {
      const std::string name = openable(content.settings.location);
      if (!canBeKept(content, name)) {
        // Destroys the old one first: the new one then waits for its close, and shares nothing with
        // it.
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

void setContext(GstElement* element, GstContext* context) {
  SourceSettings settings;
  if (inherits(element, context, &settings)) {
    Content& content = contentOf(element);
    const std::lock_guard<std::mutex> guard(content.lock);
    content.inherited = settings;
    content.inherits = true;
  }
  GST_ELEMENT_CLASS(fluvia_src_parent_class)->set_context(element, context);
}

void passSettingsOn(GstElement* element) {
  Content& content = contentOf(element);
  SourceSettings settings;
  {
    const std::lock_guard<std::mutex> guard(content.lock);
    if (content.inherits) return;
    settings = content.settings.source;
  }
  bequeath(element, settings);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition) {
  if (transition == GST_STATE_CHANGE_NULL_TO_READY) askForInheritance(element);
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) passSettingsOn(element);
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
    wait = contentOf(base).settings.startupWait;
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

// A source that becomes known only after its start reports its length then: otherwise pushed
// demuxers would take it for one that cannot seek.
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

bool isPushed(GstBaseSrc* base) {
  return GST_PAD_MODE(GST_BASE_SRC_PAD(base)) == GST_PAD_MODE_PUSH;
}

// Minimum size of a piece. In pull mode the caller waits for all of it. In push mode it need not: a
// picture is shown as soon as its last byte has come. So pieces are small after a start or a seek,
// and no piece waits for more than a sixteenth of what came since.
guint leastPiece(GstBaseSrc* base, guint64 offset, guint length) {
  if (!isPushed(base)) return length;
  Content& content = contentOf(base);
  const std::lock_guard<std::mutex> guard(content.lock);
  if (offset != content.pushedTo) content.pushedFrom = offset;
  const guint64 least = (offset - content.pushedFrom) / 16;
  return MIN(length, static_cast<guint>(CLAMP(least, kSmallestPiece, kBlockSize)));
}

void notePushed(GstBaseSrc* base, guint64 end) {
  Content& content = contentOf(base);
  const std::lock_guard<std::mutex> guard(content.lock);
  content.pushedTo = end;
}

// Releases a playlist that was pushed to its end: the next reader of it needs its current content,
// and would otherwise share what is buffered.
void releasePlaylist(GstBaseSrc* base, SourceReader* reader, guint64 end) {
  const SourceFacts facts = reader->facts();
  if (!isPushed(base) || facts.medium != Medium::kPlaylist) return;
  if (facts.size < 0 || end >= static_cast<guint64>(facts.size)) reader->release();
}

void freePiece(gpointer data) { delete[] static_cast<char*>(data); }

GstFlowReturn create(GstBaseSrc* base, guint64 offset, guint length, GstBuffer** buffer) {
  const auto reader = readerOf(base);
  if (reader == nullptr) return GST_FLOW_FLUSHING;
  SourceReader::Piece piece;
  const guint least = leastPiece(base, offset, length);
  switch (reader->read(static_cast<long long>(offset), least, length, &piece)) {
    case SourceReader::Outcome::kDone:
      break;
    case SourceReader::Outcome::kEnd:
      releasePlaylist(base, reader.get(), offset);
      return GST_FLOW_EOS;
    case SourceReader::Outcome::kInterrupted:
      return GST_FLOW_FLUSHING;
    case SourceReader::Outcome::kFailed:
      postFailure(GST_ELEMENT(base), *reader);
      return GST_FLOW_ERROR;
  }
  tellSize(base);
  const guint64 end = offset + piece.size;
  notePushed(base, end);
  if (reader->facts().size >= 0) releasePlaylist(base, reader.get(), end);
  char* data = piece.data.release();
  GstBuffer* made = gst_buffer_new_wrapped_full(static_cast<GstMemoryFlags>(0), data, piece.size, 0,
                                                piece.size, data, freePiece);
  GST_BUFFER_OFFSET(made) = offset;
  GST_BUFFER_OFFSET_END(made) = end;
  *buffer = made;
  return GST_FLOW_OK;
}

// ---- Events ------------------------------------------------------------------------------------

// A pipeline with several sinks sends a seek from each of them. If a demuxer passes all of them on,
// it has forgotten the time of the seek when the same segment comes a second time, and shows the
// key frame before it.
bool isRepeated(GstBaseSrc* base, GstEvent* event) {
  gint64 from = 0;
  gint64 to = 0;
  gst_event_parse_seek(event, nullptr, nullptr, nullptr, nullptr, &from, nullptr, &to);
  const guint32 number = gst_event_get_seqnum(event);
  Content& content = contentOf(base);
  const std::lock_guard<std::mutex> guard(content.lock);
  const bool repeated =
      content.seekNumber == number && content.seekFrom == from && content.seekTo == to;
  content.seekNumber = number;
  content.seekFrom = from;
  content.seekTo = to;
  return repeated;
}

gboolean takeEvent(GstBaseSrc* base, GstEvent* event) {
  if (GST_EVENT_TYPE(event) == GST_EVENT_SEEK && isRepeated(base, event)) return TRUE;
  return GST_BASE_SRC_CLASS(fluvia_src_parent_class)->event(base, event);
}

// ---- Queries -----------------------------------------------------------------------------------

// Reports the amount that is buffered ahead, in bytes and per cent. Queries in a format of time or
// frames are for other elements.
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

// True if a source that could be pulled is pushed. A pulling demuxer reads indexes and ends of
// files before it plays, each with a request of its own, and waits for whole pieces. For media that
// it seeks as exactly in push mode, that only makes the viewer wait.
bool prefersPush(GstBaseSrc* base) {
  Access access = Access::kAuto;
  {
    const std::lock_guard<std::mutex> guard(contentOf(base).lock);
    access = contentOf(base).settings.access;
  }
  if (access != Access::kAuto) return access == Access::kPush;
  const auto reader = readerOf(base);
  if (reader == nullptr) return false;
  const Medium medium = reader->facts().medium;
  return medium == Medium::kIndexed || medium == Medium::kPlaylist;
}

// The answer to scheduling queries omits GST_SCHEDULING_FLAG_BANDWIDTH_LIMITED. This is
// intentional: with it demuxers are pushed, through a second buffer, and seek less exactly.
gboolean answerScheduling(GstBaseSrc* base, GstQuery* query) {
  GstQuery* possible = gst_query_new_scheduling();
  // Starts the source and waits until it is known, so that its medium is known too.
  const gboolean answered = GST_BASE_SRC_CLASS(fluvia_src_parent_class)->query(base, possible);
  if (answered) {
    GstSchedulingFlags flags = static_cast<GstSchedulingFlags>(0);
    gst_query_parse_scheduling(possible, &flags, nullptr, nullptr, nullptr);
    gst_query_set_scheduling(query, flags, 1, -1, 0);
    if (gst_query_has_scheduling_mode(possible, GST_PAD_MODE_PULL) && !prefersPush(base)) {
      gst_query_add_scheduling_mode(query, GST_PAD_MODE_PULL);
    }
    gst_query_add_scheduling_mode(query, GST_PAD_MODE_PUSH);
  }
  gst_query_unref(possible);
  return answered;
}

gboolean answerQuery(GstBaseSrc* base, GstQuery* query) {
  if (GST_QUERY_TYPE(query) == GST_QUERY_BUFFERING) return answerBuffering(base, query);
  if (GST_QUERY_TYPE(query) == GST_QUERY_SCHEDULING) return answerScheduling(base, query);
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
  const std::string uri = uriOfLocation(content.settings.location);
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
  content.settings.location = location;
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
  element->set_context = setContext;
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
  base->event = takeEvent;
  base->query = answerQuery;
}

static void fluvia_src_init(FluviaSrc* src) {
  src->content = new Content();
  gst_base_src_set_blocksize(GST_BASE_SRC(src), kBlockSize);
}

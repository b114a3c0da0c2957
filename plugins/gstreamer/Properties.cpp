#include "Properties.h"

namespace {

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
  kReopen,
  kAccess
};

// A pointer into settings; const if they are.
template <typename Settings>
auto textOf(Settings& settings, guint property) -> decltype(&settings.location) {
  switch (property) {
    case kLocation:
      return &settings.location;
    case kUserAgent:
      return &settings.source.userAgent;
    case kProxy:
      return &settings.source.proxy;
    case kCookie:
      return &settings.source.cookie;
    case kAuthorities:
      return &settings.source.authorities;
    case kCertificate:
      return &settings.source.certificate;
    case kPrivateKey:
      return &settings.source.key;
    default:
      return nullptr;
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

void installInt(GObjectClass* type, guint property, const char* name, const char* nick,
                const char* blurb, int least, int most, int usual) {
  g_object_class_install_property(type, property,
                                  g_param_spec_int(name, nick, blurb, least, most, usual, plain()));
}

GType accessType() {
  static const GEnumValue values[] = {
      {static_cast<gint>(Access::kAuto), "Whatever suits the medium", "auto"},
      {static_cast<gint>(Access::kPull), "Pulled where the resource seeks", "pull"},
      {static_cast<gint>(Access::kPush), "Pushed", "push"},
      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("FluviaSrcAccess", values);
  return type;
}

void installTexts(GObjectClass* type) {
  installText(type, kLocation, "location", "Location", "Path or http:// or https:// URL to read");
  installText(type, kUserAgent, "user-agent", "User agent", "User-Agent header of requests");
  installText(type, kProxy, "proxy", "Proxy", "[scheme://][user:password@]host[:port]");
  installText(type, kCookie, "cookie", "Cookie", "Cookie header, as name=value; name=value");
  installText(type, kAuthorities, "ca", "Certificate authorities",
              "PEM file or folder of the authorities to trust; without it nobody's certificate is "
              "checked");
  installText(type, kCertificate, "certificate", "Certificate", "PEM file of the client");
  installText(type, kPrivateKey, "private-key", "Private key", "PEM file of the client's key");
}

}  // namespace

bool setSetting(ElementSettings* settings, guint property, const GValue* value) {
  if (std::string* text = textOf(*settings, property)) {
    const char* given = g_value_get_string(value);
    *text = given == nullptr ? "" : given;
  } else if (property == kBufferSize) {
    settings->source.bufferSize = g_value_get_int(value);
  } else if (property == kSpeedCap) {
    settings->source.speed = g_value_get_int64(value);
  } else if (property == kFeatureFlag) {
    settings->source.featureFlag = g_value_get_int(value);
  } else if (property == kReopen) {
    settings->source.reopen = g_value_get_int(value);
  } else if (property == kStartupWait) {
    settings->startupWait = g_value_get_int(value);
  } else if (property == kBufferingMessages) {
    settings->bufferingMessages = g_value_get_boolean(value) != FALSE;
  } else if (property == kAccess) {
    settings->access = static_cast<Access>(g_value_get_enum(value));
  } else {
    return false;
  }
  settings->given |= 1U << property;
  return true;
}

SourceSettings withInherited(const ElementSettings& settings, const SourceSettings& inherited) {
  SourceSettings made = settings.source;
  const auto take = [&](guint property, auto field) {
    if ((settings.given & 1U << property) == 0) made.*field = inherited.*field;
  };
  take(kBufferSize, &SourceSettings::bufferSize);
  take(kUserAgent, &SourceSettings::userAgent);
  take(kProxy, &SourceSettings::proxy);
  take(kCookie, &SourceSettings::cookie);
  take(kAuthorities, &SourceSettings::authorities);
  take(kCertificate, &SourceSettings::certificate);
  take(kPrivateKey, &SourceSettings::key);
  take(kSpeedCap, &SourceSettings::speed);
  take(kFeatureFlag, &SourceSettings::featureFlag);
  take(kReopen, &SourceSettings::reopen);
  return made;
}

bool getSetting(const ElementSettings& settings, guint property, GValue* value) {
  if (const std::string* text = textOf(settings, property)) {
    g_value_set_string(value, text->empty() ? nullptr : text->c_str());
  } else if (property == kBufferSize) {
    g_value_set_int(value, settings.source.bufferSize);
  } else if (property == kSpeedCap) {
    g_value_set_int64(value, settings.source.speed);
  } else if (property == kFeatureFlag) {
    g_value_set_int(value, settings.source.featureFlag);
  } else if (property == kReopen) {
    g_value_set_int(value, settings.source.reopen);
  } else if (property == kStartupWait) {
    g_value_set_int(value, settings.startupWait);
  } else if (property == kBufferingMessages) {
    g_value_set_boolean(value, settings.bufferingMessages);
  } else if (property == kAccess) {
    g_value_set_enum(value, static_cast<gint>(settings.access));
  } else {
    return false;
  }
  return true;
}

void installProperties(GObjectClass* type) {
  installTexts(type);
  installInt(type, kBufferSize, "buffer-size", "Buffer size", "Bytes held in memory",
             FVFR_BUFFER_BLOCK, G_MAXINT, FVFR_DEFAULT_BUFFER);
  g_object_class_install_property(
      type, kSpeedCap,
      g_param_spec_int64("speed-cap", "Speed cap", "Bytes per second to load at most (0 = no cap)",
                         0, G_MAXINT64, 0, plain()));
  installInt(type, kFeatureFlag, "feature-flag", "Feature flag",
             "1 gives silent connections up sooner and tries again (-1 = leave alone)", -1,
             G_MAXINT, -1);
  installInt(type, kStartupWait, "startup-wait", "Startup wait",
             "Milliseconds from opening in which random access can still be offered", 0, 60000,
             1000);
  installInt(type, kReopen, "reopen", "Reopen",
             "Seconds for which a server that is away is tried again, at most ten of them "
             "before the first byte (0 = not at all)",
             0, 86400, FLUVIA_OUTAGE_SECONDS);
  g_object_class_install_property(
      type, kBufferingMessages,
      g_param_spec_boolean("buffering-messages", "Buffering messages",
                           "Tell the application how full the buffer is when it runs low", FALSE,
                           plain()));
  g_object_class_install_property(
      type, kAccess,
      g_param_spec_enum("access", "Access",
                        "Whether random access is offered; by itself not for Matroska and MP4 with "
                        "an index, which start and seek sooner when pushed",
                        accessType(), static_cast<gint>(Access::kAuto), plain()));
}

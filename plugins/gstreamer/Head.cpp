#include "Head.h"

#include <cstring>

namespace {

// A fragmented track has no table of samples, and has a few hundred bytes.
constexpr long long kTrackWithoutSamples = 16384;

long long numberAt(const std::string& bytes, size_t at, int count) {
  long long value = 0;
  const size_t end = at + static_cast<size_t>(count);
  for (size_t i = at; i < end; ++i) value = value << 8 | static_cast<unsigned char>(bytes[i]);
  return value;
}

bool startsWith(const std::string& bytes, const char* text, size_t at = 0) {
  return bytes.compare(at, strlen(text), text) == 0;
}

// ---- Playlists ---------------------------------------------------------------------------------

bool isPlaylist(const std::string& bytes) {
  const size_t begin = startsWith(bytes, "\xEF\xBB\xBF") ? 3 : 0;
  for (const char* const text : {"#EXTM3U", "<?xml", "<MPD", "<SmoothStreamingMedia"}) {
    if (startsWith(bytes, text, begin)) return true;
  }
  return false;
}

// ---- MPEG-TS -----------------------------------------------------------------------------------

constexpr char kSync = 0x47;
constexpr char kContent = 0x30;  // a packet has at least one of a header of its own and a payload
constexpr size_t kPackets = 5;

// Packets of 188 bytes, or of 192 with a time stamp of 4 bytes before each.
bool isTransport(const std::string& bytes) {
  const auto hasPackets = [&bytes](size_t begin, size_t size) {
    if (begin + kPackets * size > bytes.size()) return false;
    for (size_t at = begin; at < begin + kPackets * size; at += size) {
      if (bytes[at] != kSync || (bytes[at + 3] & kContent) == 0) return false;
    }
    return true;
  };
  return hasPackets(0, 188) || hasPackets(4, 192);
}

// ---- Matroska ----------------------------------------------------------------------------------

constexpr long long kEbml = 0x1A45DFA3;
constexpr long long kSegment = 0x18538067;
constexpr long long kSeekHead = 0x114D9B74;
constexpr long long kVoid = 0xEC;
constexpr long long kChecksum = 0xBF;
// The element that refers to another one, with the id of the cues as its content.
const std::string kSeeksCues = "\x53\xAB\x84\x1C\x53\xBB\x6B";

struct Element {
  long long id = 0;
  size_t body = 0;
  long long size = 0;
};

// Bytes of the number that begins with this byte; 9 if it is invalid.
int lengthOf(unsigned char first) {
  int length = 1;
  while (length <= 8 && (first & (0x100 >> length)) == 0) ++length;
  return length;
}

bool elementAt(const std::string& bytes, size_t at, Element* element) {
  if (at >= bytes.size()) return false;
  const int idLength = lengthOf(static_cast<unsigned char>(bytes[at]));
  const size_t sizeAt = at + static_cast<size_t>(idLength);
  if (idLength > 4 || sizeAt >= bytes.size()) return false;
  const int sizeLength = lengthOf(static_cast<unsigned char>(bytes[sizeAt]));
  if (sizeLength > 8 || sizeAt + static_cast<size_t>(sizeLength) > bytes.size()) return false;
  element->id = numberAt(bytes, at, idLength);
  element->body = sizeAt + static_cast<size_t>(sizeLength);
  element->size = numberAt(bytes, sizeAt, sizeLength) & ((1LL << (7 * sizeLength)) - 1);
  return true;
}

// Without cues a pushed demuxer cannot seek, but a pulling one can.
Head lookAtMatroska(const std::string& bytes) {
  Element element;
  if (!elementAt(bytes, 0, &element) || element.size > static_cast<long long>(bytes.size())) {
    return Head();
  }
  size_t at = element.body + static_cast<size_t>(element.size);
  if (!elementAt(bytes, at, &element) || element.id != kSegment) return Head();
  at = element.body;
  while (elementAt(bytes, at, &element) && (element.id == kVoid || element.id == kChecksum) &&
         element.size < static_cast<long long>(bytes.size())) {
    at = element.body + static_cast<size_t>(element.size);
  }
  Head head;
  if (element.id != kSeekHead || element.size > 65536) return head;
  const size_t end = element.body + static_cast<size_t>(element.size);
  const size_t found = bytes.find(kSeeksCues, element.body);
  if (found != std::string::npos && found < end) {
    head.medium = Medium::kIndexed;
  } else if (end > bytes.size()) {
    head.wanted = static_cast<long long>(end);
  }
  return head;
}

// ---- MP4 ---------------------------------------------------------------------------------------

constexpr long long kBoxHeader = 16;

struct Box {
  std::string type;
  long long body = 0;
  long long end = 0;
};

// Finds the box at an offset of the file. False if its header is not in bytes, or not valid.
bool boxAt(const std::string& bytes, long long at, Box* box) {
  if (at + kBoxHeader > static_cast<long long>(bytes.size())) return false;
  const size_t begin = static_cast<size_t>(at);
  const long long size = numberAt(bytes, begin, 4);
  const bool isLong = size == 1;
  box->type = bytes.substr(begin + 4, 4);
  box->body = at + (isLong ? 16 : 8);
  box->end = at + (isLong ? numberAt(bytes, begin + 8, 8) : size);
  return box->end >= box->body;
}

bool isOneOf(const std::string& type, std::initializer_list<const char*> types) {
  for (const char* const each : types) {
    if (type == each) return true;
  }
  return false;
}

Head unknownUpTo(const std::string& bytes, long long at) {
  Head head;
  // If a complete header is not valid, there is nothing to wait for.
  if (at + kBoxHeader > static_cast<long long>(bytes.size())) head.wanted = at + kBoxHeader;
  return head;
}

// A movie with fragments has a box for them among its tracks. Pushed demuxers refuse to seek in it.
Head lookAtMovie(const std::string& bytes, const Box& movie) {
  Head head;
  long long at = movie.body;
  while (at + 8 <= movie.end) {
    Box box;
    if (!boxAt(bytes, at, &box)) return unknownUpTo(bytes, at);
    if (box.type == "cmov") return head;
    if (box.type == "mvex") {
      head.medium = Medium::kFragments;
      return head;
    }
    if (box.type == "trak" && box.end - at > kTrackWithoutSamples) break;
    at = box.end;
  }
  head.medium = Medium::kIndexed;
  return head;
}

bool beginsAsMovie(const std::string& bytes) {
  Box box;
  return boxAt(bytes, 0, &box) && isOneOf(box.type, {"ftyp", "moov", "mdat", "wide", "pnot"});
}

Head lookAtBoxes(const std::string& bytes) {
  Head head;
  long long at = 0;
  for (;;) {
    Box box;
    if (!boxAt(bytes, at, &box)) return unknownUpTo(bytes, at);
    if (box.type == "moov") return lookAtMovie(bytes, box);
    if (box.type == "mdat") {
      head.medium = Medium::kIndexed;
      return head;
    }
    if (!isOneOf(box.type, {"ftyp", "wide", "pnot", "free", "skip", "uuid", "pdin"})) return head;
    at = box.end;
  }
}

}  // namespace

Head lookAtHead(const std::string& bytes) {
  Head head;
  if (isPlaylist(bytes)) {
    head.medium = Medium::kPlaylist;
  } else if (bytes.size() >= 4 && numberAt(bytes, 0, 4) == kEbml) {
    head = lookAtMatroska(bytes);
  } else if (beginsAsMovie(bytes)) {
    head = lookAtBoxes(bytes);
  } else if (isTransport(bytes)) {
    head.medium = Medium::kTransport;
  }
  return head;
}

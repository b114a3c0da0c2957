// The element's decision about the first bytes of a resource.
#include <gtest/gtest.h>

#include <string>

#include "Head.h"

namespace {

std::string number(unsigned long long value, int bytes) {
  std::string text;
  for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> (8 * i) & 0xFF);
  return text;
}

std::string box(const std::string& type, const std::string& body) {
  return number(8 + body.size(), 4) + type + body;
}

// The header of a box whose body has not arrived.
std::string beginning(const std::string& type, unsigned int size) { return number(size, 4) + type; }

const std::string kType = box("ftyp", "isom" + std::string(20, '\0'));

std::string track(size_t size) { return box("trak", std::string(size, 't')); }

std::string element(const std::string& id, const std::string& body) {
  return id + number(0x10000000ULL | body.size(), 4) + body;
}

std::string seek(const std::string& id) {
  return element("\x4D\xBB", "\x53\xAB\x84" + id + std::string("\x53\xAC\x81\x64"));
}

const std::string kCues = "\x1C\x53\xBB\x6B";
const std::string kTracks = "\x16\x54\xAE\x6B";
const std::string kEbml = element("\x1A\x45\xDF\xA3", "\x42\x82\x84webm");
// A segment of unknown size, as streams have it.
const std::string kSegment = std::string("\x18\x53\x80\x67\x01") + std::string(7, '\xFF');

void expect(const std::string& bytes, Medium medium, long long wanted = 0) {
  const Head head = lookAtHead(bytes);
  EXPECT_EQ(static_cast<int>(head.medium), static_cast<int>(medium));
  EXPECT_EQ(head.wanted, wanted);
}

TEST(Head, MatroskaThatTellsWhereItsCuesAreIsIndexed) {
  const std::string seeks = element("\x11\x4D\x9B\x74", seek(kTracks) + seek(kCues));
  expect(kEbml + kSegment + seeks, Medium::kIndexed);
  expect(kEbml + kSegment + element("\xBF", "1234") + element("\xEC", "void") + seeks,
         Medium::kIndexed);
}

TEST(Head, MatroskaWithoutCuesIsPulled) {
  expect(kEbml + kSegment + element("\x11\x4D\x9B\x74", seek(kTracks)), Medium::kOther);
  expect(kEbml + kSegment + element(kTracks, "tracks"), Medium::kOther);
  expect(kEbml + kSegment + element(kTracks, "tracks" + seek(kCues)), Medium::kOther);
}

TEST(Head, MatroskaIsReadOnToTheEndOfItsSeekHead) {
  const std::string seeks = element("\x11\x4D\x9B\x74", seek(kTracks) + seek(kCues));
  const std::string whole = kEbml + kSegment + seeks;
  const std::string cut = whole.substr(0, whole.size() - 12);
  expect(cut, Medium::kOther, static_cast<long long>(whole.size()));
}

TEST(Head, MovieWithItsIndexAtTheEndIsIndexed) {
  expect(kType + beginning("mdat", 5000000) + std::string(16, 'd'), Medium::kIndexed);
  expect(kType + box("free", "") + number(1, 4) + "mdat" + number(5000000000ULL, 8),
         Medium::kIndexed);
}

TEST(Head, MovieWithItsIndexInFrontIsIndexed) {
  expect(kType + box("moov", box("mvhd", std::string(100, 'h')) + track(400) + track(500)) +
             box("mdat", std::string(16, 'd')),
         Medium::kIndexed);
}

// The table of samples is large: it is not necessary to read it to its end.
TEST(Head, MovieWithALongTrackIsIndexed) {
  expect(kType + beginning("moov", 500000) + box("mvhd", std::string(100, 'h')) +
             beginning("trak", 400000) + std::string(100, 't'),
         Medium::kIndexed);
}

TEST(Head, MovieOfFragmentsIsPulled) {
  const std::string header = box("mvhd", std::string(100, 'h'));
  const std::string extends = box("mvex", std::string(40, 'x'));
  expect(kType + box("moov", header + track(400) + extends), Medium::kFragments);
  expect(kType + box("moov", header + extends + track(400)), Medium::kFragments);
  expect(kType + box("moof", header), Medium::kOther);
}

TEST(Head, MovieIsReadOnUntilItIsClear) {
  const std::string header = box("mvhd", std::string(100, 'h'));
  const std::string tracks = header + track(400) + track(12000);
  const std::string movie = box("moov", tracks + box("mvex", std::string(40, 'x')));
  const auto next = static_cast<long long>(kType.size() + 8 + tracks.size() + 16);
  expect((kType + movie).substr(0, 4096), Medium::kOther, next);
  expect((kType + movie).substr(0, static_cast<size_t>(next)), Medium::kFragments);
}

TEST(Head, PacketsOfATransportStreamAreKnown) {
  const std::string packet = std::string("\x47\x01\x00\x10", 4) + std::string(184, '\0');
  const std::string stamped = "time" + packet;
  std::string packets;
  std::string blueRay;
  for (int i = 0; i < 20; ++i) {
    packets += packet;
    blueRay += stamped;
  }
  expect(packets, Medium::kTransport);
  expect(blueRay, Medium::kTransport);
  expect(packets.substr(0, 5 * 188), Medium::kTransport);
  expect(packets.substr(0, 5 * 188 - 1), Medium::kOther);
  packets[4 * 188] = 'F';
  expect(packets, Medium::kOther);
}

TEST(Head, PlaylistsAreKnown) {
  expect("#EXTM3U\n#EXT-X-VERSION:3\n", Medium::kPlaylist);
  expect("\xEF\xBB\xBF#EXTM3U\n", Medium::kPlaylist);
  expect("<?xml version=\"1.0\"?>\n<MPD>", Medium::kPlaylist);
  expect("<MPD/>", Medium::kPlaylist);
}

TEST(Head, AnythingElseIsPulled) {
  expect("", Medium::kOther);
  expect("\x1A", Medium::kOther);
  expect("\x1A\x45\xDF\xA3", Medium::kOther);
  expect(std::string(4096, '\0'), Medium::kOther);
  expect(std::string(4096, '\xFF'), Medium::kOther);
  expect("G" + std::string(4095, 'G'), Medium::kOther);
  expect("ID3" + std::string(4093, '\0'), Medium::kOther);
}

// A box without a size, or one that ends before its header does, is no movie.
TEST(Head, BrokenBoxesLeaveNothingToWaitFor) {
  expect(kType + number(0, 4) + "moov" + std::string(100, '\0'), Medium::kOther);
  expect(kType + box("moov", number(4, 4) + "trak" + std::string(100, '\0')), Medium::kOther);
  expect(kType + number(1, 4) + "free" + number(~0ULL, 8) + std::string(100, '\0'), Medium::kOther);
}

}  // namespace

// The element as the demuxers of adaptive streams use it: which settings the sources of pieces
// inherit from the one that read the playlist, how often a playlist is read, ranges, many short
// sources.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "Pipeline.h"
#include "Taken.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace {

using support::FaultServer;

// As a demuxer does: the inner bin is started when the outer source runs.
void playInside(const Pipeline& pipeline) {
  GstElement* inner = pipeline.inside("inner");
  gst_element_set_locked_state(inner, TRUE);
  pipeline.set(GST_STATE_PLAYING);
  gst_element_set_locked_state(inner, FALSE);
  gst_element_set_state(inner, GST_STATE_PLAYING);
}

std::string nested(const std::string& first, const std::string& second) {
  return "pipeline.( name=outer fluviasrc name=first " + first +
         " ! fakesink bin.( name=inner fluviasrc name=second " + second + " ! fakesink ) )";
}

TEST(Inheritance, SourceInsideTheBinOfAnotherHasItsSettings) {
  FaultServer server;
  server.on("/list", support::serveRanges(1000));
  server.on("/piece", support::serveRanges(1000));
  const Pipeline pipeline(nested("location=" + server.url("/list") + " cookie=a=b user-agent=tv/1",
                                 "location=" + server.url("/piece")));
  playInside(pipeline);
  ASSERT_TRUE(server.waitForRequests("/piece", 1));
  EXPECT_EQ(server.requests("/piece").at(0).header("Cookie"), "a=b");
  EXPECT_EQ(server.requests("/piece").at(0).header("User-Agent"), "tv/1");
}

TEST(Inheritance, WhatASourceWasSetToItKeeps) {
  FaultServer server;
  server.on("/list", support::serveRanges(1000));
  server.on("/piece", support::serveRanges(1000));
  const Pipeline pipeline(nested("location=" + server.url("/list") + " cookie=a=b user-agent=tv/1",
                                 "location=" + server.url("/piece") + " cookie=c=d"));
  playInside(pipeline);
  ASSERT_TRUE(server.waitForRequests("/piece", 1));
  EXPECT_EQ(server.requests("/piece").at(0).header("Cookie"), "c=d");
  EXPECT_EQ(server.requests("/piece").at(0).header("User-Agent"), "tv/1");
}

// Otherwise the pieces of a stream with a checked playlist could come from anybody.
TEST(Inheritance, CertificatesOfPiecesAreCheckedAsThatOfThePlaylist) {
  const support::TestCertificate trusted;
  const support::TestCertificate other;
  FaultServer good(trusted.certificate(), trusted.key());
  FaultServer bad(other.certificate(), other.key());
  good.on("/list", support::serveRanges(1000));
  bad.on("/piece", support::serveRanges(1000));
  Pipeline pipeline(nested("location=" + good.url("/list") + " ca=" + trusted.certificate(),
                           "reopen=0 location=" + bad.url("/piece")));
  playInside(pipeline);
  EXPECT_FALSE(pipeline.waitFor(GST_MESSAGE_EOS, 20));
  EXPECT_NE(pipeline.error().find("/piece"), std::string::npos) << pipeline.error();
  EXPECT_EQ(bad.requestCount("/piece"), 0);
}

// Two films in one pipeline are independent.
TEST(Inheritance, SourceBesideAnotherHasNothingOfIt) {
  FaultServer server;
  server.on("/one", support::serveRanges(1000));
  server.on("/two", support::serveRanges(1000));
  const Pipeline pipeline(
      "pipeline.( name=outer fluviasrc cookie=a=b location=" + server.url("/one") +
      " ! fakesink fluviasrc name=inner location=" + server.url("/two") + " ! fakesink )");
  playInside(pipeline);
  ASSERT_TRUE(server.waitForRequests("/two", 1));
  EXPECT_EQ(server.requests("/two").at(0).header("Cookie"), "");
}

// A list of a live stream: each response is another list of the same length.
support::Behaviour countingList(std::atomic<int>* count) {
  return [count](support::Exchange& exchange) {
    support::answerStatus(200, "#EXTM3U " + std::to_string(100 + (*count)++))(exchange);
  };
}

std::string playedText(Pipeline* pipeline) {
  pipeline->set(GST_STATE_PLAYING);
  EXPECT_TRUE(pipeline->waitFor(GST_MESSAGE_EOS)) << pipeline->error();
  GstSample* sample = nullptr;
  g_object_get(pipeline->inside("sink"), "last-sample", &sample, nullptr);
  if (sample == nullptr) return "";
  GstMapInfo map;
  std::string text;
  if (gst_buffer_map(gst_sample_get_buffer(sample), &map, GST_MAP_READ)) {
    text.assign(reinterpret_cast<const char*>(map.data), map.size);
    gst_buffer_unmap(gst_sample_get_buffer(sample), &map);
  }
  gst_sample_unref(sample);
  return text;
}

// Demuxers keep the element, and the first source continues to play while the list changes.
TEST(Playlists, AreReadAnewEachTime) {
  std::atomic<int> count{0};
  FaultServer server;
  server.on("/live", countingList(&count));
  const std::string description =
      "fluviasrc location=" + server.url("/live") + " ! fakesink name=sink";
  Pipeline first(description);
  EXPECT_EQ(playedText(&first), "#EXTM3U 100");
  Pipeline second(description);
  EXPECT_EQ(playedText(&second), "#EXTM3U 101") << "while the first one is at its end";
  second.set(GST_STATE_READY);
  EXPECT_EQ(playedText(&second), "#EXTM3U 102") << "by the same element";
  first.set(GST_STATE_READY);
  EXPECT_EQ(playedText(&first), "#EXTM3U 103");
}

// Plays the next piece as demuxers do: sets the element to its name and its range.
void playPiece(Pipeline* pipeline, const std::string& uri, gint64 begin = 0, gint64 end = -1) {
  GstElement* element = pipeline->inside("source");
  pipeline->set(GST_STATE_READY);
  ASSERT_TRUE(gst_uri_handler_set_uri(GST_URI_HANDLER(element), uri.c_str(), nullptr));
  if (begin != 0 || end != -1) {
    ASSERT_TRUE(gst_element_send_event(
        element, gst_event_new_seek(1.0, GST_FORMAT_BYTES, GST_SEEK_FLAG_FLUSH, GST_SEEK_TYPE_SET,
                                    begin, GST_SEEK_TYPE_SET, end)));
  }
  pipeline->set(GST_STATE_PLAYING);
  ASSERT_TRUE(pipeline->waitFor(GST_MESSAGE_EOS)) << pipeline->error();
}

// A stream whose pieces are parts of one file is read like one file: the next bytes are already
// buffered.
TEST(FluviaSrcRanges, OfOneFileAreReadWithOneRequest) {
  FaultServer server;
  server.on("/film", support::serveRanges(900000));
  Taken taken;
  Pipeline pipeline("fluviasrc name=source ! fakesink name=sink");
  taken.watch(pipeline);
  for (gint64 begin = 0; begin < 900000; begin += 100000) {
    playPiece(&pipeline, "fluvia+" + server.url("/film"), begin, begin + 100000);
    EXPECT_EQ(taken.bytes, begin + 100000);
  }
  EXPECT_EQ(taken.wrong, 0);
  EXPECT_EQ(server.requestCount("/film"), 1);
}

TEST(FluviaSrcRanges, AreReadInAnyOrder) {
  FaultServer server;
  server.on("/film", support::serveRanges(9000000));
  Taken taken;
  Pipeline pipeline("fluviasrc name=source buffer-size=262144 ! fakesink name=sink");
  taken.watch(pipeline);
  long long expected = 0;
  for (const gint64 begin : {8000000, 1, 4000000, 8900000}) {
    playPiece(&pipeline, "fluvia+" + server.url("/film"), begin, begin + 50000);
    EXPECT_EQ(taken.bytes, expected += 50000);
  }
  playPiece(&pipeline, "fluvia+" + server.url("/film"), 8990000, -1);
  EXPECT_EQ(taken.bytes, expected + 10000);
  EXPECT_EQ(taken.wrong, 0);
}

TEST(FluviaSrcShortSources, AThousandLeaveNothingBehind) {
  FaultServer server;
  for (int i = 0; i < 10; ++i) server.on("/" + std::to_string(i), support::serveRanges(20000));
  Taken taken;
  Pipeline pipeline("fluviasrc name=source ! fakesink name=sink");
  taken.watch(pipeline);
  const auto playHundred = [&] {
    for (int i = 0; i < 100; ++i) {
      playPiece(&pipeline, "fluvia+" + server.url("/" + std::to_string(i % 10)));
    }
    server.waitUntilIdle();
  };
  playHundred();
  const int threadsBefore = support::threadCount();
  const int descriptorsBefore = support::descriptorCount();
  for (int i = 0; i < 9; ++i) playHundred();
  EXPECT_EQ(taken.bytes, 1000 * 20000);
  EXPECT_EQ(taken.wrong, 0);
  EXPECT_TRUE(support::eventually([&] {
    return support::threadCount() <= threadsBefore + kThreadsKept;
  })) << support::threadCount()
      << " threads after " << threadsBefore;
  EXPECT_TRUE(support::eventually([&] { return support::descriptorCount() <= descriptorsBefore; }))
      << support::descriptorCount() << " descriptors after " << descriptorsBefore;
}

}  // namespace

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LogReader.h"

namespace {

using tools::LogEntry;
using tools::LogFact;
using tools::LogReader;
using tools::LogWord;

// An entry with its own copy of the text.
struct Kept {
  double seconds;
  long thread;
  LogWord word;
  std::array<long long, 6> values;
  std::string text;
};

struct Reading {
  std::vector<Kept> entries;
  LogReader reader{[this](const LogEntry& entry) {
    entries.push_back({entry.seconds, entry.thread, entry.fact.word, entry.fact.values,
                       std::string(entry.fact.text)});
  }};

  // Reads the log in pieces of that size.
  explicit Reading(const std::string& log, size_t piece = 1 << 20) {
    for (size_t at = 0; at < log.size(); at += piece) {
      const std::string part = log.substr(at, piece);
      reader.feed(part.data(), part.size());
    }
    reader.finish();
  }

  // The fact of each entry, and the thread that wrote it.
  std::vector<std::pair<LogWord, long>> heads() const {
    std::vector<std::pair<LogWord, long>> all;
    for (const Kept& entry : entries) all.emplace_back(entry.word, entry.thread);
    return all;
  }
};

using Heads = std::vector<std::pair<LogWord, long>>;

// The fact points into the text, so the text must stay.
LogFact factOf(std::string_view function, std::string_view text) {
  LogFact fact;
  EXPECT_TRUE(tools::recognise(function, text, &fact)) << function << ": " << text;
  return fact;
}

bool known(const std::string& function, const std::string& text) {
  LogFact fact;
  return tools::recognise(function, text, &fact);
}

TEST(LogWords, NumbersComeInTheirOrder) {
  const LogFact fact = factOf(
      "streamIn", "size:16384, sz:12, rdblock:3, wtblock:4, usedSize:32768, begin from:5000000000");
  EXPECT_EQ(fact.word, LogWord::kStored);
  EXPECT_EQ(fact.values, (std::array<long long, 6>{16384, 12, 3, 4, 32768, 5000000000}));
}

TEST(LogWords, NameMayContainWhatFollowsIt) {
  const LogFact fact = factOf("x_fluvia_file_open_x",
                              "Begin x_fluvia_file_open_x(url: http://h/a?b=, buffersize: 1), "
                              "buffersize: 524288)");
  EXPECT_EQ(fact.text, "http://h/a?b=, buffersize: 1)");
  EXPECT_EQ(fact.values[0], 524288);
}

TEST(LogWords, EveryKindOfLineIsKnown) {
  EXPECT_EQ(factOf("executeGet",
                   "handle:0x7f2c80013bb0, curl_easy_perform ret:18, respond code:200, "
                   "socket_errno:0, cal_speed:3790033 Byte/s, maxspeed:0 Byte/s, download End size "
                   "3145728 Byte")
                .values,
            (std::array<long long, 6>{18, 200, 0, 3790033, 0, 3145728}));
  EXPECT_EQ(
      factOf("executeGet", "handle:0x1, PFFFF begin to perform(url: http://h/f, start: 7, end: 0)")
          .word,
      LogWord::kGetBegin);
  EXPECT_EQ(factOf("read", "seek:  1 , offset =65536, curOffset = 65536").values[1], 65536);
  EXPECT_EQ(factOf("sendData", "(handle:0x1) Data In  size = 9, version = 0").values[0], 9);
  EXPECT_EQ(factOf("dumpBuffer", "s 63:     32768 ~     65536").values[2], 65536);
  EXPECT_EQ(
      factOf("easyFill", "wait and feeding = false, begin index:0, readOffset:12, streamStatus:-1")
          .values[1],
      12);
  EXPECT_EQ(factOf("fill",
                   "wait in backword finding  readOffset=5, read:1, read id=0, wtHead id=0, "
                   "wtHead:0")
                .word,
            LogWord::kWaitBehind);
  EXPECT_EQ(factOf("perform", "async read 3 ok in perform ((((((()))))))").values[0], 3);
  EXPECT_EQ(factOf("perform", "(((((((((((( request count :512: & buffer is: 0x1))))))))))))").word,
            LogWord::kAsyncRun);
}

TEST(LogWords, TwinsOfTheEntryPointsCount) {
  EXPECT_EQ(factOf("c_fluvia_file_read", "end x_fluvia_file_read : -13").values[0], -13);
}

TEST(LogWords, CutAndStrangeTextsAreNotKnown) {
  EXPECT_FALSE(known("streamIn", "size:16384, sz:12, rdblock:3, wtblock:4, usedSi"));
  EXPECT_FALSE(known("sendData", "wait in streamIn")) << "another function's";
  EXPECT_FALSE(known("nobody", "wait in streamIn"));
  EXPECT_FALSE(known("", ""));
  EXPECT_FALSE(known("receive", "contentSize:99999999999999999999999999"))
      << "no offset is so long";
  EXPECT_FALSE(known("receive", "contentSize:"));
  EXPECT_FALSE(known("receive", "contentSize:-"));
}

TEST(LogReader, HeadTellsWhenAndWho) {
  const Reading log("[FluviaFS][00:23986:6][1452][streamIn][140]-------wait in streamIn\n");
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_DOUBLE_EQ(log.entries[0].seconds, 23986.006) << "milliseconds have no leading zeros";
  EXPECT_EQ(log.entries[0].thread, 1452);
  EXPECT_EQ(log.entries[0].word, LogWord::kWriterWaits);
}

// As written by two simultaneous opens.
TEST(LogReader, LinesThatStandInEachOtherAreTakenApart) {
  const Reading log(
      "[FluviaFS][00:23983:618][1443][x_fluvia_file_open_x][57]-------[FluviaFS][00:23983:618]"
      "[1441][openDullFile][39]-------begin to open Dull File with buffer:2097152\n"
      "Begin x_fluvia_file_open_x(url: http://127.0.0.1:39155/sound.m4a, buffersize: 524288)\n"
      "[FluviaFS][00:23984:453][1447][popTask][67]-------thread engine waiting for task"
      "[FluviaFS][00:23984:453][1448][x_fluvia_file_read][102]-------end x_fluvia_file_read : 0\n"
      "[FluviaFS][00:23983:622][1452][executeGet][85]-------[FluviaFS][00:23983:622][1450]"
      "[headerContentIn][84]-------response_code =404\n"
      "< \n"
      "handle:0x7f2c, PFFFF begin to perform(url: http://h/sound.m4a, start: 0, end: 0)\n"
      "[FluviaFS][00:23983:622][1450][streamIn][50]-------[FluviaFS][00:23983:622][1451]"
      "[sendData][60]-------wait in streamIn\n"
      "(handle:0x1) Data In  size = 9, version = 0\n");
  // The last two: the text of the first head is after the second head.
  ASSERT_EQ(log.heads(), (Heads{{LogWord::kOpenBegin, 1443},
                                {LogWord::kReadEnd, 1448},
                                {LogWord::kStatus, 1450},
                                {LogWord::kGetBegin, 1452},
                                {LogWord::kWriterWaits, 1450},
                                {LogWord::kDataIn, 1451}}));
  EXPECT_EQ(log.entries[0].text, "http://127.0.0.1:39155/sound.m4a");
  EXPECT_EQ(log.reader.counts().mixed, 4);
}

TEST(LogReader, TextThatComesAfterAThreadsNextHeadIsAnothersOwn) {
  // The reader's text in the second line is irrelevant; the writer's wakes no thread.
  const Reading reading(
      "[FluviaFS][00:1:1][7][easyFill][303]-------[FluviaFS][00:1:1][8][streamIn][2]-------\n"
      "output from block13 0 data, begin:9437184, payload:0, seq = 9437184\n"
      "[FluviaFS][00:1:2][7][easyFill][193]-------wait and feeding = false, begin index:5, "
      "readOffset:6, streamStatus:1\n"
      "wake up  in streamIn\n");
  EXPECT_EQ(reading.heads(), (Heads{{LogWord::kWaitInBlock, 7}, {LogWord::kWriterWakes, 8}}));
}

TEST(LogReader, TextsWithoutALineEndBetweenThemAreTakenApart) {
  const Reading log(
      "[FluviaFS][00:1:2][10][fill][1]-------[FluviaFS][00:1:2][11][executeGet][2]-------"
      "handle:0x7f, PFFFF begin to perform(url: http://h/f, start: 5, end: 0)wait in fill\n\n"
      "[FluviaFS][00:1:3][12][popTask][3]-------[FluviaFS][00:1:3][13][runner][4]-------"
      "thread engine waiting for taskdestroy thread\n\n"
      "[FluviaFS][00:1:4][13][sendRequest][4]-------\n< errorCode:28\n");
  ASSERT_EQ(log.heads(), (Heads{{LogWord::kWaitGoesOn, 10},
                                {LogWord::kGetBegin, 11},
                                {LogWord::kThreadEnds, 13},
                                {LogWord::kRunResult, 13}}));
  EXPECT_EQ(log.entries[1].values[0], 5);
  EXPECT_EQ(log.entries[3].values[0], 28);
}

TEST(LogReader, PiecesOfAnySizeGiveTheSame) {
  const std::string log =
      "* Connected to 127.0.0.1\n"
      "[FluviaFS][00:1:2][3][x_fluvia_file_read][99]-------befor x_fluvia_file_read(handle: 1, "
      "size: 65536)\r\n"
      "[FluviaFS][00:1:5][3][x_fluvia_file_read][102]-------end x_fluvia_file_read : 0";
  for (size_t piece = 1; piece < 80; ++piece) {
    const Reading reading(log, piece);
    ASSERT_EQ(reading.entries.size(), 2u) << piece;
    EXPECT_EQ(reading.entries[1].word, LogWord::kReadEnd);
    EXPECT_EQ(reading.reader.counts().foreign, 1);
    EXPECT_EQ(reading.reader.counts().bytes, static_cast<long long>(log.size()));
  }
}

TEST(LogReader, BrokenHeadsAndForeignLinesAreSkipped) {
  const std::string torn[] = {"[FluviaFS][00:",
                              "[FluviaFS][00:1:2][3][",
                              "[FluviaFS][00:1:2][3][f]",
                              "[FluviaFS][00:1:2000][3][streamIn][1]-------wait in streamIn",
                              "[FluviaFS][00:x:2][3][streamIn][1]-------wait in streamIn",
                              "[FluviaFS][00:1:2][3][streamIn]-------wait in streamIn",
                              "audio: underrun",
                              std::string("\0\xFF\x01", 3)};
  for (const std::string& line : torn) {
    const Reading reading(line + "\n[FluviaFS][00:1:2][3][streamIn][1]-------wait in streamIn\n");
    EXPECT_EQ(reading.entries.size(), 1u) << line;
    EXPECT_EQ(reading.reader.counts().foreign, 1) << line;
  }
}

TEST(LogReader, LineWithoutAnEndTakesLittleMemory) {
  const std::string part(1 << 20, 'x');
  Reading reading("");
  for (int i = 0; i < 64; ++i) reading.reader.feed(part.data(), part.size());
  const std::string next = "\n[FluviaFS][00:1:2][3][streamIn][1]-------wait in streamIn\n";
  reading.reader.feed(next.data(), next.size());
  EXPECT_EQ(reading.entries.size(), 1u);
  EXPECT_EQ(reading.reader.counts().foreign, 1);
}

// No input may crash or hang it; the result is not checked.
TEST(LogReader, AnyBytesAreTaken) {
  unsigned int state = 4711;
  const auto next = [&state] { return state = state * 1664525u + 1013904223u, state >> 16; };
  const std::string words[] = {"[FluviaFS][00:",
                               "1:2][3][",
                               "read][1]-------",
                               "\n",
                               "][",
                               "FluviaFile read: size=1, position=",
                               "99999999999999999999",
                               "-",
                               "s 1: 2 ~ 3",
                               "[streamIn][2]-------size:1, sz:",
                               std::string(1, '\0')};
  std::string log;
  for (int i = 0; i < 20000; ++i) log += words[next() % std::size(words)];
  const Reading reading(log, 777);
  EXPECT_EQ(reading.reader.counts().bytes, static_cast<long long>(log.size()));
}

// Heads without a text are searched for in later lines, but not without limit.
TEST(LogReader, WorkForTextsOfNobodyIsBounded) {
  std::string log;
  for (int i = 0; i < 100; ++i) {
    for (int thread = 0; thread < 16; ++thread) {
      log += "[FluviaFS][00:1000:0][" + std::to_string(20 + thread) + "][streamIn][1]-------\n";
    }
    for (int k = 0; k < 40; ++k) {
      for (int word = 0; word < 100; ++word) log += "new block seek ";
      log += "\n";
    }
  }
  const Reading reading(log);
  EXPECT_TRUE(reading.entries.empty());
  EXPECT_LE(reading.reader.counts().tries, 65536 + 16 * 1600 + 3000) << "1600 lines are ours";
}

}  // namespace

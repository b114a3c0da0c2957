// The resources that a demuxer opens through the adapter for FFmpeg beside the first one, opened as
// the HLS demuxer does.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/aes.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>

#include "examples/ffmpeg/fluvia_avio.h"
}

#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"

namespace {

using support::FaultServer;

constexpr int kSize = 300000;

// Half a second of silence, enough to open a demuxer.
std::string sound() {
  const auto number = [](unsigned int value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
    return text;
  };
  constexpr unsigned int kBytes = 8000;
  return "RIFF" + number(36 + kBytes, 4) + "WAVEfmt " + number(16, 4) + number(1, 2) +
         number(1, 2) + number(8000, 4) + number(16000, 4) + number(2, 2) + number(16, 2) + "data" +
         number(kBytes, 4) + std::string(kBytes, '\0');
}

support::Behaviour serveText(const std::string& body) {
  return [body](support::Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                  body);
  };
}

// A demuxer on the sound of a server, or on another first resource.
class Nested {
 public:
  explicit Nested(FaultServer& server, const FluviaStreamSettings* settings = nullptr) {
    server.on("/first.wav", serveText(sound()));
    open(server.url("/first.wav"), settings);
  }
  explicit Nested(const std::string& name) { open(name, nullptr); }
  ~Nested() {
    avformat_close_input(&format);
    fluvia_avio_close(&source);
  }
  Nested(const Nested&) = delete;
  Nested& operator=(const Nested&) = delete;

  using Options = std::map<std::string, std::string>;

  int ask(AVIOContext** context, const std::string& address, const Options& asked = {}) {
    AVDictionary* options = nullptr;
    for (const auto& [name, value] : asked) av_dict_set(&options, name.c_str(), value.c_str(), 0);
    const int result = format->io_open(format, context, address.c_str(), AVIO_FLAG_READ, &options);
    av_dict_free(&options);
    return result;
  }
  AVIOContext* get(const std::string& address, const Options& asked = {}) {
    AVIOContext* context = nullptr;
    EXPECT_EQ(ask(&context, address, asked), 0) << address;
    return context;
  }
  void close(AVIOContext* context) { EXPECT_EQ(format->io_close2(format, context), 0); }
  // Returns the whole resource.
  std::string fetch(const std::string& address, const Options& asked = {}) {
    AVIOContext* context = nullptr;
    if (ask(&context, address, asked) < 0) return "not opened";
    const std::string bytes = readAll(context);
    close(context);
    return bytes;
  }
  static std::string readAll(AVIOContext* context) {
    std::string all;
    unsigned char piece[10000];
    for (;;) {
      const int got = avio_read(context, piece, sizeof piece);
      if (got <= 0) return all;
      all.append(reinterpret_cast<const char*>(piece), static_cast<size_t>(got));
    }
  }

  FluviaAvio* source = nullptr;
  AVFormatContext* format = nullptr;

 private:
  void open(const std::string& name, const FluviaStreamSettings* settings) {
    ASSERT_EQ(fluvia_avio_open(&source, name.c_str(), settings), 0);
    ASSERT_EQ(fluvia_avio_open_input(source, &format, nullptr), 0) << fluvia_avio_problem(source);
  }
};

TEST(FluviaNested, PieceIsReadToItsEndAndIsTheLibrarys) {
  FaultServer server;
  server.on("/piece.ts", support::serveRanges(kSize));
  server.on("/moved.ts", support::redirect(302, "/piece.ts"));
  Nested nested(server);
  EXPECT_EQ(nested.fetch(server.url("/piece.ts")), support::pattern(0, kSize));
  EXPECT_EQ(nested.fetch(server.url("/moved.ts")), support::pattern(0, kSize));
  for (const char* path : {"/piece.ts", "/moved.ts"}) {
    EXPECT_EQ(server.requests(path)[0].header("User-Agent").find("Lavf"), std::string::npos);
  }
  EXPECT_EQ(fluvia_avio_missing(nested.source), 0);
}

TEST(FluviaNested, RangeIsCutOutAndItsFirstByteIsByteZero) {
  FaultServer server;
  server.on("/film.ts", support::serveRanges(kSize));
  Nested nested(server);
  AVIOContext* range =
      nested.get(server.url("/film.ts"), {{"offset", "100000"}, {"end_offset", "170000"}});
  EXPECT_EQ(avio_tell(range), 0);
  EXPECT_EQ(avio_size(range), 70000);
  EXPECT_EQ(Nested::readAll(range), support::pattern(100000, 70000));
  nested.close(range);
}

// Ranges follow each other in the buffer of one connection.
TEST(FluviaNested, RangesOfOneResourceShareARequest) {
  FaultServer server;
  server.on("/film.ts", support::serveRanges(kSize));
  Nested nested(server);
  for (int begin = 0; begin < kSize; begin += 50000) {
    const std::string from = std::to_string(begin);
    const std::string to = std::to_string(begin + 50000);
    EXPECT_EQ(nested.fetch(server.url("/film.ts"), {{"offset", from}, {"end_offset", to}}),
              support::pattern(static_cast<unsigned long long>(begin), 50000));
  }
  EXPECT_EQ(server.requestCount("/film.ts"), 1);
}

// AES-128 in CBC mode; the text is padded to whole blocks.
std::string encrypt(std::string text, const std::string& key, std::string iv) {
  const size_t padding = 16 - text.size() % 16;
  text.append(padding, static_cast<char>(padding));
  std::string secret(text.size(), '\0');
  struct AVAES* aes = av_aes_alloc();
  av_aes_init(aes, reinterpret_cast<const uint8_t*>(key.data()), 128, 0);
  av_aes_crypt(aes, reinterpret_cast<uint8_t*>(&secret[0]),
               reinterpret_cast<const uint8_t*>(text.data()), static_cast<int>(text.size() / 16),
               reinterpret_cast<uint8_t*>(&iv[0]), 0);
  av_free(aes);
  return secret;
}

const char* const kKey = "0123456789abcdef";
const char* const kIv = "fedcba9876543210";
const Nested::Options kSecret = {{"key", "30313233343536373839616263646566"},
                                 {"iv", "66656463626139383736353433323130"}};

TEST(FluviaNested, DecryptsWhatItIsAskedToDecrypt) {
  FaultServer server;
  Nested nested(server);
  // Around whole blocks, and around the size of one decryption.
  for (const int bytes : {0, 1, 15, 16, 17, 32752, 32767, 32768, 32769, 300000}) {
    const auto size = static_cast<size_t>(bytes);
    const std::string text = support::pattern(0, size);
    const std::string path = "/secret" + std::to_string(size);
    server.on(path, serveText(encrypt(text, kKey, kIv)));
    EXPECT_TRUE(nested.fetch("crypto+" + server.url(path), kSecret) == text) << size;
  }
  EXPECT_EQ(fluvia_avio_missing(nested.source), 0);
}

TEST(FluviaNested, DamagedSecretIsAnError) {
  FaultServer server;
  const std::string sound = encrypt(support::pattern(0, 1000), kKey, kIv);
  server.on("/cut", serveText(sound.substr(0, 500)));
  server.on("/sound", serveText(sound));
  Nested nested(server);
  Nested::Options wrong = kSecret;
  wrong["key"] = "00000000000000000000000000000000";
  AVIOContext* context = nested.get("crypto+" + server.url("/sound"), wrong);
  Nested::readAll(context);
  EXPECT_EQ(context->error, AVERROR_INVALIDDATA);
  nested.close(context);
  context = nested.get("crypto+" + server.url("/cut"), kSecret);
  Nested::readAll(context);
  EXPECT_EQ(context->error, AVERROR_INVALIDDATA);
  nested.close(context);
  EXPECT_EQ(fluvia_avio_missing(nested.source), 2);
  EXPECT_STREQ(fluvia_avio_problem(nested.source), "cut: it cannot be decrypted");
  wrong["key"] = "short";
  EXPECT_EQ(nested.ask(&context, "crypto+" + server.url("/sound"), wrong), AVERROR(EINVAL));
}

void setAll(int handle, void* data) {
  x_fluvia_file_http_set_userAgent(handle, "player/7");
  x_fluvia_file_http_set_cookie(handle, static_cast<const char*>(data));
}

TEST(FluviaNested, SettingsOfTheFirstHandleHoldForAll) {
  FaultServer server;
  server.on("/piece.ts", support::serveRanges(kSize));
  server.on("/film.ts", support::serveRanges(kSize));
  server.on("/secret", serveText(encrypt("key", kKey, kIv)));
  FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
  char cookie[] = "ticket=42";
  settings.apply = setAll;
  settings.data = cookie;
  Nested nested(server, &settings);
  nested.fetch(server.url("/piece.ts"));
  nested.fetch(server.url("/film.ts"), {{"offset", "1000"}, {"end_offset", "2000"}});
  nested.fetch("crypto+" + server.url("/secret"), kSecret);
  for (const char* path : {"/first.wav", "/piece.ts", "/film.ts", "/secret"}) {
    ASSERT_GE(server.requestCount(path), 1) << path;
    for (const support::Request& request : server.requests(path)) {
      EXPECT_EQ(request.header("User-Agent"), "player/7") << path;
      EXPECT_EQ(request.header("Cookie"), cookie) << path;
    }
  }
}

TEST(FluviaNested, ServerNamesNoFileOfThisMachine) {
  support::TemporaryFolder folder;
  const std::string file = folder.makePattern("piece.ts", 1000);
  FaultServer server;
  Nested nested(server);
  AVIOContext* context = nullptr;
  for (const std::string& address : {file, "file:" + file, "file://" + file, "crypto:" + file}) {
    EXPECT_EQ(nested.ask(&context, address, kSecret), AVERROR(EPERM)) << address;
  }
  EXPECT_EQ(nested.ask(&context, "ftp://127.0.0.1/piece.ts"), AVERROR(EPERM));
  EXPECT_EQ(nested.ask(&context, "tcp://127.0.0.1:1"), AVERROR(EPERM));
}

TEST(FluviaNested, LocalPlaylistNamesBothKinds) {
  support::TemporaryFolder folder;
  FaultServer server;
  server.on("/piece.ts", support::serveRanges(kSize));
  const std::string file = folder.makePattern("piece.ts", 100000);
  Nested nested(folder.makeText("first.wav", sound()));
  for (const std::string& address : {file, "file:" + file, "file://" + file}) {
    EXPECT_EQ(nested.fetch(address), support::pattern(0, 100000)) << address;
  }
  // The demuxer seeks in local files by itself.
  AVIOContext* range = nested.get(file, {{"offset", "500"}, {"end_offset", "600"}});
  unsigned char bytes[100];
  EXPECT_EQ(avio_seek(range, 500, SEEK_SET), 500);
  EXPECT_EQ(avio_read(range, bytes, 100), 100);
  EXPECT_EQ(support::firstDifference(500, bytes, 100), -1);
  nested.close(range);
  EXPECT_EQ(nested.fetch(server.url("/piece.ts")), support::pattern(0, kSize));
  AVIOContext* context = nullptr;
  EXPECT_EQ(nested.ask(&context, folder.file("missing.ts")), AVERROR(EIO));
}

TEST(FluviaNested, DataInTheAddressIsLeftToFFmpeg) {
  FaultServer server;
  Nested nested(server);
  EXPECT_EQ(nested.fetch("data:text/plain;base64,a2V5"), "key");
}

// Of servers that share a name, one may not have a piece yet that another has announced.
TEST(FluviaNested, MissingPieceIsAskedForOnceMore) {
  FaultServer server;
  server.on("/late.ts", support::inTurn({support::answerStatus(404), support::serveRanges(kSize)}));
  server.on("/gone.ts", support::answerStatus(404));
  Nested nested(server);
  EXPECT_EQ(nested.fetch(server.url("/late.ts")), support::pattern(0, kSize));
  EXPECT_EQ(fluvia_avio_missing(nested.source), 0);
  AVIOContext* context = nullptr;
  EXPECT_EQ(nested.ask(&context, server.url("/gone.ts?ticket=42")), AVERROR(ENOENT));
  EXPECT_EQ(context, nullptr);
  EXPECT_EQ(fluvia_avio_missing(nested.source), 1);
  EXPECT_STREQ(fluvia_avio_problem(nested.source), "gone.ts: the server answered 404");
}

TEST(FluviaNested, ProblemNamesNoServer) {
  FaultServer server;
  for (const char* path : {"/", "/?a=b"}) server.on(path, support::answerStatus(403));
  Nested nested(server);
  const std::string address = "http://me:secret@" + server.url("").substr(strlen("http://"));
  for (const char* path : {"/", "", "?a=b"}) {
    AVIOContext* context = nullptr;
    EXPECT_LT(nested.ask(&context, address + path), 0);
    EXPECT_STREQ(fluvia_avio_problem(nested.source), "the server answered 403") << path;
  }
}

// A live playlist is asked for under the same name again and again.
TEST(FluviaNested, SameAddressIsLoadedAnew) {
  FaultServer server;
  server.on("/live", support::inTurn({serveText("one"), serveText("two"), serveText("three")}));
  Nested nested(server);
  EXPECT_EQ(nested.fetch(server.url("/live")), "one");
  AVIOContext* open = nested.get(server.url("/live"));
  EXPECT_EQ(nested.fetch(server.url("/live")), "three");
  EXPECT_EQ(Nested::readAll(open), "two");
  nested.close(open);
}

// Sends half of a large resource, and the rest on request.
class HalfFirst {
 public:
  static constexpr int kLarge = 4000000;
  support::Behaviour behaviour() {
    return [this](support::Exchange& exchange) {
      exchange.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kLarge) + "\r\n\r\n");
      exchange.sendPattern(0, kLarge / 2);
      std::unique_lock<std::mutex> hold(lock);
      changed.wait_for(hold, std::chrono::seconds(20), [this] { return told; });
      exchange.sendPattern(kLarge / 2, kLarge - kLarge / 2);
    };
  }
  void goOn() {
    const std::lock_guard<std::mutex> hold(lock);
    told = true;
    changed.notify_all();
  }

 private:
  std::mutex lock;
  std::condition_variable changed;
  bool told = false;
};

TEST(FluviaNested, NextPieceConnectsWhenThePresentOneHasAlmostArrived) {
  FaultServer server;
  HalfFirst half;
  server.on("/one.ts", half.behaviour());
  server.on("/two.ts", support::serveRanges(kSize));
  Nested nested(server);
  AVIOContext* one = nested.get(server.url("/one.ts"));
  AVIOContext* two = nested.get(server.url("/two.ts"));
  constexpr int kRead = HalfFirst::kLarge / 4;
  std::vector<unsigned char> bytes(kRead);
  ASSERT_EQ(avio_read(one, bytes.data(), kRead), kRead);
  // The lowest free handle shows how many are open.
  int third = 0;
  ASSERT_EQ(x_fluvia_file_open("/third", &third), FVFR_OK);
  EXPECT_EQ(third, 3) << "the present piece has the line for itself";
  x_fluvia_file_close(third);
  half.goOn();
  ASSERT_EQ(Nested::readAll(one), support::pattern(kRead, HalfFirst::kLarge - kRead));
  EXPECT_TRUE(server.waitForRequests("/two.ts", 1)) << "nobody has read it yet";
  nested.close(one);
  EXPECT_EQ(Nested::readAll(two), support::pattern(0, kSize));
  nested.close(two);
  EXPECT_EQ(server.requestCount("/two.ts"), 1);
}

TEST(FluviaNested, PieceThatIsOpenedAheadAndClosedAsksForNothing) {
  FaultServer server;
  server.on("/one.ts", support::serveRanges(kSize));
  server.on("/two.ts", support::serveRanges(kSize));
  Nested nested(server);
  AVIOContext* one = nested.get(server.url("/one.ts"));
  AVIOContext* two = nested.get(server.url("/two.ts"));
  nested.close(two);
  EXPECT_EQ(Nested::readAll(one), support::pattern(0, kSize));
  nested.close(one);
  EXPECT_EQ(server.requestCount("/two.ts"), 0);
}

TEST(FluviaNested, AbortEndsReadsAndOpens) {
  FaultServer server;
  server.on("/stalls", support::stallAfter(kSize, 100000));
  server.on("/piece.ts", support::serveRanges(kSize));
  Nested nested(server);
  AVIOContext* context = nested.get(server.url("/stalls"));
  int error = 0;
  std::thread reading([&] {
    Nested::readAll(context);
    error = context->error;
  });
  ASSERT_TRUE(server.waitForRequests("/stalls", 1));
  fluvia_avio_abort(nested.source);
  reading.join();
  EXPECT_EQ(error, AVERROR_EXIT);
  AVIOContext* later = nullptr;
  EXPECT_EQ(nested.ask(&later, server.url("/piece.ts")), AVERROR_EXIT);
  EXPECT_EQ(nested.format->interrupt_callback.callback(nested.format->interrupt_callback.opaque),
            1);
  nested.close(context);
  EXPECT_EQ(fluvia_avio_missing(nested.source), 0) << "nothing is missing that was not wanted";
}

// Its demuxer would fetch the pieces with FFmpeg's own protocols.
TEST(FluviaNested, DashIsRefused) {
  FaultServer server;
  server.on("/film.mpd",
            serveText("<?xml version=\"1.0\"?><MPD "
                      "profiles=\"urn:mpeg:dash:profile:isoff-live:2011\" type=\"static\"/>"));
  FluviaAvio* source = nullptr;
  AVFormatContext* format = nullptr;
  ASSERT_EQ(fluvia_avio_open(&source, server.url("/film.mpd").c_str(), nullptr), 0);
  EXPECT_EQ(fluvia_avio_open_input(source, &format, nullptr), AVERROR_PATCHWELCOME);
  EXPECT_EQ(format, nullptr);
  EXPECT_STREQ(fluvia_avio_problem(source),
               "FFmpeg's DASH demuxer opens the pieces without the library");
  fluvia_avio_close(&source);
}

// A server restarts within one second: between two pieces, and in the middle of one.
TEST(FluviaNested, ServerThatRestartsCostsNoByte) {
  FaultServer server;
  server.on("/one.ts",
            support::inTurn({support::dropAfter(kSize, 100000), support::answerStatus(503),
                             support::answerStatus(503), support::serveRanges(kSize)}));
  server.on("/two.ts", support::inTurn({support::answerStatus(503), support::answerStatus(503),
                                        support::serveRanges(kSize)}));
  Nested nested(server);
  EXPECT_EQ(nested.fetch(server.url("/one.ts")), support::pattern(0, kSize));
  EXPECT_EQ(nested.fetch(server.url("/two.ts")), support::pattern(0, kSize));
  EXPECT_EQ(fluvia_avio_missing(nested.source), 0);
}

}  // namespace

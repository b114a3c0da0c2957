#ifndef FLUVIAFS_TESTS_PRODUCTS_TOOLS_TRACELOG_H_
#define FLUVIAFS_TESTS_PRODUCTS_TOOLS_TRACELOG_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <iterator>
#include <string>

#include "LogReader.h"
#include "TracePage.h"
#include "TraceStory.h"

// Logs to trace, written line by line or captured, and what the trace makes of them.
namespace support {

constexpr char kFilm[] = "http://h/film.ts";
constexpr char kSound[] = "http://h/sound.m4a";

// A log as the library writes it, line by line.
class Log {
 public:
  // A line at that millisecond of the log, of that thread. Seconds begin at 100 to fit the head's
  // format.
  Log& line(int ms, long thread, const std::string& function, const std::string& text) {
    text_ += "[FluviaFS][00:" + std::to_string(100 + ms / 1000) + ":" + std::to_string(ms % 1000) +
             "][" + std::to_string(thread) + "][" + function + "][1]-------" + text + "\n";
    return *this;
  }
  Log& open(int ms, long thread, const std::string& name, int handle) {
    const std::string function = "x_fluvia_file_open";
    line(ms, thread, function, "Begin " + function + "(url: " + name + ")");
    return line(ms, thread, function,
                "End " + function + "(handle: " + std::to_string(handle) + ")");
  }
  Log& close(int ms, long thread, int handle) {
    return line(ms, thread, "x_fluvia_file_close",
                "Begin x_fluvia_file_close (handle: " + std::to_string(handle) + ")");
  }
  Log& beginRead(int ms, long thread, int handle, long long position) {
    line(ms, thread, "x_fluvia_file_read",
         "befor x_fluvia_file_read(handle: " + std::to_string(handle) + ", size: 65536)");
    const std::string offset = std::to_string(position);
    return line(ms, thread, "read", "seek:  1 , offset =" + offset + ", curOffset = " + offset);
  }
  Log& endRead(int ms, long thread, int got, long long behind, int result = 0) {
    line(ms, thread, "read",
         "readcount:" + std::to_string(got) + ", readoffset:" + std::to_string(behind) +
             ", filesize:0");
    return line(ms, thread, "x_fluvia_file_read",
                "end x_fluvia_file_read : " + std::to_string(result));
  }
  Log& wait(int ms, long thread, long long offset) {
    line(ms, thread, "fill",
         "wait and feeding = true seq=" + std::to_string(offset) +
             ", read:0, read id=0, wtHead id=0, wtHead:0");
    return line(ms, thread, "fill", "wait in fill");
  }
  Log& wake(int ms, long thread) { return line(ms, thread, "fill", "wake up in fill"); }
  Log& connect(int ms, long thread, const std::string& name, long long from, bool ranged = true) {
    line(ms, thread, "sendRequest",
         "http begin to get from:" + name + ", " + std::to_string(from) + "~0");
    line(ms, thread, "executeGet", std::string("set fgrangeget to ") + (ranged ? "true" : "false"));
    return line(ms, thread, "executeGet",
                "handle:0x1, PFFFF begin to perform(url: " + name +
                    ", start: " + std::to_string(from) + ", end: 0)");
  }
  Log& data(int ms, long thread, int block, long long from, int bytes) {
    line(ms, thread, "sendData",
         "(handle:0x1) Data In  size = " + std::to_string(bytes) + ", version = 0");
    return stored(ms, thread, block, from, bytes);
  }
  Log& stored(int ms, long thread, int block, long long from, int bytes) {
    return line(ms, thread, "streamIn",
                "size:1, sz:1, rdblock:0, wtblock:" + std::to_string(block) +
                    ", usedSize:" + std::to_string(bytes) + ", begin from:" + std::to_string(from));
  }
  Log& disconnect(int ms, long thread, int code, int status) {
    return line(ms, thread, "executeGet",
                "handle:0x1, curl_easy_perform ret:" + std::to_string(code) +
                    ", respond code:" + std::to_string(status) +
                    ", socket_errno:0, cal_speed:0 Byte/s, maxspeed:0 Byte/s, download End size 0 "
                    "Byte");
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// The story of a log.
struct Traced {
  tools::TraceStory story;
  tools::LogReader reader{[this](const tools::LogEntry& entry) { story.take(entry); }};

  explicit Traced(const std::string& log) {
    reader.feed(log.data(), log.size());
    reader.finish();
    story.finish();
  }
  explicit Traced(const Log& log) : Traced(log.text()) {}

  const tools::Lane& lane(size_t index = 0) const {
    EXPECT_LT(index, story.lanes().size());
    return *std::next(story.lanes().begin(), static_cast<std::ptrdiff_t>(index));
  }
  std::string page() const { return tools::tracePage("test", story, reader.counts()); }
};

// The captured log of that name.
inline std::string captured(const std::string& name) {
  std::ifstream file(std::string(FLUVIA_TRACE_LOGS) + "/" + name, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << name;
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace support

#endif  // FLUVIAFS_TESTS_PRODUCTS_TOOLS_TRACELOG_H_

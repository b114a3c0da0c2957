#include <fluviafs.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "Source.h"
#include "Text.h"

namespace tools {
namespace {

struct Facts {
  std::string name;
  long long size = -1;  // -1: unknown
  bool seekable = false;
  int capacity = 0;
  int buffered = 0;
  bool http = false;
  int status = 0;
  std::string server;
  std::string type;
  std::string address;
  long long speed = 0;
  std::vector<std::string> headers;
};

std::string textOf(const char* text) { return text == nullptr ? "" : text; }

std::vector<std::string> headersOf(int handle) {
  std::vector<char> block(8192);
  int length = 0;
  x_fluvia_file_http_get_header(handle, block.data(), static_cast<int>(block.size()), &length);
  std::istringstream lines(std::string(block.data(), static_cast<size_t>(length)));
  std::vector<std::string> headers;
  for (std::string line; std::getline(lines, line);) {
    line.erase(line.find_last_not_of('\r') + 1);
    if (!line.empty()) {
      headers.push_back(line);
    }
  }
  return headers;
}

void askHttp(int handle, Facts* facts) {
  char address[16] = {};
  facts->http = true;
  facts->status = x_fluvia_file_http_get_download_status(handle);
  facts->server = textOf(x_fluvia_file_http_get_server_name(handle));
  facts->type = textOf(x_fluvia_file_http_get_content_type(handle));
  x_fluvia_file_http_get_url_ip(handle, address);
  facts->address = address;
  facts->speed = x_fluvia_file_http_get_speed(handle);
  facts->headers = headersOf(handle);
}

std::string httpText(const Facts& facts) {
  std::string text = "status    " + (facts.status == 0 ? "ok" : std::to_string(facts.status)) +
                     "\nserver    " + facts.server + "\ntype      " + facts.type + "\naddress   " +
                     facts.address + "\nspeed     " + humanBytes(static_cast<double>(facts.speed)) +
                     "/s\nheaders\n";
  for (const std::string& line : facts.headers) {
    text += "  " + line + "\n";
  }
  return text;
}

// Bytes of a response that are not UTF-8 become U+FFFD.
std::string asJson(const Facts& facts) {
  using Json = nlohmann::ordered_json;
  Json json = {{"source", facts.name},
               {"size", facts.size < 0 ? Json() : Json(facts.size)},
               {"seekable", facts.seekable},
               {"bufferSize", facts.capacity},
               {"bufferedSize", facts.buffered}};
  if (facts.http) {
    json["status"] = facts.status;
    json["server"] = facts.server;
    json["type"] = facts.type;
    json["address"] = facts.address;
    json["speed"] = facts.speed;
    json["headers"] = facts.headers;
  }
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string asText(const Facts& facts) {
  const std::string size = facts.size < 0 ? "unknown"
                                          : std::to_string(facts.size) + " bytes (" +
                                                humanBytes(static_cast<double>(facts.size)) + ")";
  return "source    " + facts.name + "\nsize      " + size + "\nseekable  " +
         (facts.seekable ? "yes" : "no") + "\nbuffer    " + humanBytes(facts.capacity) + ", " +
         humanBytes(facts.buffered) + " held\n" + (facts.http ? httpText(facts) : "");
}

// Reads one byte: the size alone cannot distinguish an empty resource from a broken one.
int probe(const Source& source) {
  char byte = 0;
  unsigned int got = 0;
  const int result = x_fluvia_file_read(source.handle(), &byte, 1, &got);
  return result == FVFR_END_OF_FILE ? FVFR_OK : result;
}

}  // namespace

int runInfo(const InfoOptions& options, const Screen& screen) {
  Source source;
  std::string error;
  if (!source.open(options.source, 0, &error)) {
    screen.fail(error);
    return kExitSource;
  }
  const int readable = probe(source);
  if (readable != FVFR_OK) {
    screen.fail(source.explain("read", readable));
    return kExitSource;
  }
  Facts facts;
  facts.name = source.name();
  facts.size = source.size();
  facts.seekable = source.seekable();
  facts.capacity = x_fluvia_file_bufferSize(source.handle());
  facts.buffered = x_fluvia_file_bufferedSize(source.handle());
  if (!source.isLocal()) {
    askHttp(source.handle(), &facts);
  }
  const std::string text = options.json ? asJson(facts) : asText(facts);
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
    screen.fail("cannot write to standard output");
    return kExitOutput;
  }
  return kExitOk;
}

}  // namespace tools

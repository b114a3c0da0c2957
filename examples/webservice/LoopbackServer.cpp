#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace {

const char kCatalogue[] =
    R"(<?xml version="1.0" encoding="utf-8"?>
<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/" s:encodingStyle="http://schemas.xmlsoap.org/soap/encoding/"><s:Body><u:BrowseResponse xmlns:u="urn:schemas-upnp-org:service:ContentDirectory:1"><Result>&lt;DIDL-Lite xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:upnp="urn:schemas-upnp-org:metadata-1-0/upnp/" xmlns="urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/"&gt;
&lt;container id="64$1" parentID="64" restricted="1" childCount="3"&gt;&lt;dc:title&gt;Holidays&lt;/dc:title&gt;&lt;upnp:class&gt;object.container.storageFolder&lt;/upnp:class&gt;&lt;/container&gt;
&lt;item id="64$2" parentID="64" restricted="1"&gt;&lt;dc:title&gt;Rivers &amp;amp; Lakes&lt;/dc:title&gt;&lt;upnp:class&gt;object.item.videoItem&lt;/upnp:class&gt;&lt;res size="73400320" duration="0:21:04.000" resolution="1280x720" protocolInfo="http-get:*:video/mp4:DLNA.ORG_OP=01;DLNA.ORG_CI=0"&gt;http://127.0.0.1/MediaItems/22.mp4&lt;/res&gt;&lt;/item&gt;
&lt;item id="64$3" parentID="64" restricted="1"&gt;&lt;dc:title&gt;Morgenröte&lt;/dc:title&gt;&lt;upnp:class&gt;object.item.videoItem&lt;/upnp:class&gt;&lt;res size="5368709120" duration="1:58:30.000" resolution="1920x1080" protocolInfo="http-get:*:video/x-matroska:DLNA.ORG_OP=01;DLNA.ORG_CI=0"&gt;http://127.0.0.1/MediaItems/23.mkv&lt;/res&gt;&lt;/item&gt;
&lt;/DIDL-Lite&gt;</Result>
<NumberReturned>2</NumberReturned>
<TotalMatches>2</TotalMatches>
<UpdateID>7</UpdateID></u:BrowseResponse></s:Body></s:Envelope>
)";

const char kFault[] =
    R"(<?xml version="1.0" encoding="utf-8"?>
<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body><s:Fault><faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring><detail><UPnPError xmlns="urn:schemas-upnp-org:control-1-0"><errorCode>701</errorCode><errorDescription>No such object</errorDescription></UPnPError></detail></s:Fault></s:Body></s:Envelope>
)";

const char kPlaylist[] =
    R"({"status":"ok",
 "entries":[
  {"title":"News, {live}","url":"http://127.0.0.1/live/1.ts","seconds":0 },
  {"title":"Weather","url":"http://127.0.0.1/vod/2.mp4","seconds":95 }
 ],
 "total":2 }
)";

const char kRefusal[] =
    R"({"status":"error","error":{"code":"unknown-list","message":"there is no such playlist"}}
)";

struct Answer {
  const char* status;
  const char* type;
  std::string body;
};

bool isFor(const std::string& request, const char* start) {
  return request.rfind(std::string("GET ") + start, 0) == 0;
}

Answer answerTo(const std::string& request) {
  if (isFor(request, "/browse?ObjectID=64&Filter=%2A ")) return {"200 OK", "text/xml", kCatalogue};
  if (isFor(request, "/browse?")) return {"500 Internal Server Error", "text/xml", kFault};
  if (isFor(request, "/playlist?name=evening%20%26%20night ")) {
    return {"200 OK", "application/json", kPlaylist};
  }
  if (isFor(request, "/playlist?")) return {"200 OK", "application/json", kRefusal};
  return {"404 Not Found", "text/plain", "nothing here\n"};
}

// In small pieces, as bodies arrive from a network.
void sendAll(int connection, const std::string& text) {
  const size_t piece = 300;
  size_t sent = 0;
  while (sent < text.size()) {
    const size_t size = std::min(piece, text.size() - sent);
    const ssize_t taken = send(connection, text.data() + sent, size, MSG_NOSIGNAL);
    if (taken <= 0) return;
    sent += static_cast<size_t>(taken);
  }
}

}  // namespace

LoopbackServer::LoopbackServer() : listener_(socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener_, generic, length) != 0 || listen(listener_, 8) != 0) return;
  if (getsockname(listener_, generic, &length) != 0) return;
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
  shutdown(listener_, SHUT_RDWR);
  if (thread_.joinable()) thread_.join();
  close(listener_);
}

std::string LoopbackServer::address() const { return "http://127.0.0.1:" + std::to_string(port_); }

void LoopbackServer::serve() {
  while (true) {
    const int connection = accept(listener_, nullptr, nullptr);
    if (connection < 0) return;
    answer(connection);
    close(connection);
  }
}

void LoopbackServer::answer(int connection) const {
  std::string request;
  char buffer[2048];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t got = recv(connection, buffer, sizeof(buffer), 0);
    if (got <= 0) return;
    request.append(buffer, static_cast<size_t>(got));
  }
  const Answer answer = answerTo(request);
  sendAll(connection, std::string("HTTP/1.1 ") + answer.status +
                          "\r\nContent-Type: " + answer.type +
                          "\r\nContent-Length: " + std::to_string(answer.body.size()) +
                          "\r\nConnection: close\r\n\r\n" + answer.body);
}

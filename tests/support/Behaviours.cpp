#include "tests/support/Behaviours.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>

namespace support {

namespace {

constexpr long long kToTheEnd = -1;

// The requested part of the resource, [first, first + count).
struct Part {
  long long first = 0;
  long long count = 0;
  bool ranged = false;
  bool possible = true;
};

Part partOf(const Request& request, long long size) {
  Part part;
  long long last = kToTheEnd;
  part.ranged = request.range(&part.first, &last);
  if (last < 0 || last >= size) last = size - 1;
  part.count = last - part.first + 1;
  part.possible = !part.ranged || part.first < size;
  return part;
}

std::string contentRange(long long first, long long count, long long size) {
  return "bytes " + std::to_string(first) + "-" + std::to_string(first + count - 1) + "/" +
         std::to_string(size);
}

std::string sizedHead(int status, long long length, const std::string& extra) {
  return "HTTP/1.1 " + std::to_string(status) + (status == 206 ? " Partial Content" : " OK") +
         "\r\nServer: fault\r\nContent-Type: video/mp4\r\nContent-Length: " +
         std::to_string(length) + "\r\n" + extra + "\r\n";
}

// Sends the head of a well-behaved server. Returns false if no body follows.
bool sendRangeHead(Exchange& exchange, const Part& part, long long size, const std::string& extra,
                   int rangeStatus = 206) {
  if (!part.possible) {
    exchange.send("HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */" +
                  std::to_string(size) + "\r\nContent-Length: 4\r\n\r\n416\n");
    return false;
  }
  std::string lines = "Accept-Ranges: bytes\r\n" + extra;
  if (part.ranged) {
    lines += "Content-Range: " + contentRange(part.first, part.count, size) + "\r\n";
  }
  return exchange.send(sizedHead(part.ranged ? rangeStatus : 200, part.count, lines));
}

bool sendChunk(Exchange& exchange, long long from, long long count) {
  char length[32];
  snprintf(length, sizeof length, "%llx\r\n", static_cast<unsigned long long>(count));
  return exchange.send(length) && exchange.sendPattern(from, count) && exchange.send("\r\n");
}

bool sendChunks(Exchange& exchange, long long from, long long to) {
  constexpr long long kChunk = 10007;
  for (; from < to; from += kChunk) {
    if (!sendChunk(exchange, from, std::min(kChunk, to - from))) return false;
  }
  return true;
}

}  // namespace

Behaviour serveRanges(long long size, const std::string& extra) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    if (sendRangeHead(exchange, part, size, extra)) exchange.sendPattern(part.first, part.count);
  };
}

Behaviour ignoreRanges(long long size) {
  return [=](Exchange& exchange) {
    if (exchange.send(sizedHead(200, size, ""))) exchange.sendPattern(0, size);
  };
}

Behaviour serveChunked(long long size, const std::string& extra) {
  return [=](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n" + extra + "\r\n");
    if (sendChunks(exchange, 0, size)) exchange.send("0\r\n\r\n");
  };
}

Behaviour serveUntilClose(long long size) {
  return [=](Exchange& exchange) {
    exchange.send("HTTP/1.0 200 OK\r\n\r\n");
    exchange.sendPattern(0, size);
  };
}

Behaviour serveIcy(long long size) {
  return [=](Exchange& exchange) {
    exchange.send("ICY 200 OK\r\nicy-name: test\r\nContent-Type: audio/mpeg\r\n\r\n");
    exchange.sendPattern(0, size);
  };
}

Behaviour serveLive(long long count) {
  return [=](Exchange& exchange) {
    exchange.send("HTTP/1.0 200 OK\r\n\r\n");
    exchange.sendPattern(0, count);
    exchange.hold();
  };
}

Behaviour serveContentRangeOnly(long long size, const std::string& name) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    exchange.send("HTTP/1.1 206 Partial Content\r\nConnection: close\r\n" + name + ": " +
                  contentRange(part.first, part.count, size) + "\r\n\r\n");
    exchange.sendPattern(part.first, part.count);
  };
}

Behaviour serveLengthSpelt(long long size, const std::string& name) {
  return [=](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\n" + name + ": " + std::to_string(size) + "\r\n\r\n");
    exchange.sendPattern(0, size);
  };
}

Behaviour answerStatus(int status, const std::string& body, const std::string& extra) {
  return [=](Exchange& exchange) {
    std::string head = "HTTP/1.1 " + std::to_string(status) + " Answer\r\n" + extra;
    const bool bodiless = status == 204 || status == 304;
    if (!bodiless) head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    exchange.send(head + "\r\n" + (bodiless ? "" : body));
  };
}

Behaviour redirect(int status, const std::string& location) {
  return answerStatus(status, "moved\n", "Location: " + location + "\r\nX-Old: yes\r\n");
}

Behaviour answerRaw(const std::string& bytes) {
  return [=](Exchange& exchange) { exchange.send(bytes); };
}

Behaviour dropAfter(long long size, long long count) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    if (sendRangeHead(exchange, part, size, "")) {
      exchange.sendPattern(part.first, std::min(count, part.count));
    }
  };
}

Behaviour resetAfter(long long size, long long count) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    if (!sendRangeHead(exchange, part, size, "")) return;
    exchange.sendPattern(part.first, std::min(count, part.count));
    // Waits until the peer has read the bytes: a reset discards unread ones.
    exchange.pause(200);
    exchange.reset();
  };
}

Behaviour stallAfter(long long size, long long count) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    if (count >= 0 && sendRangeHead(exchange, part, size, "")) {
      exchange.sendPattern(part.first, std::min(count, part.count));
    }
    exchange.hold();
  };
}

Behaviour stallAndTell(long long size, long long count, std::atomic<bool>* settled) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    if (count >= 0 && sendRangeHead(exchange, part, size, "")) {
      exchange.sendPattern(part.first, std::min(count, part.count));
    }
    exchange.pause(400);
    *settled = true;
    exchange.hold();
  };
}

Behaviour drip(long long size, long long piece, int interval) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    if (!sendRangeHead(exchange, part, size, "")) return;
    for (long long done = 0; done < part.count; done += piece) {
      if (!exchange.sendPattern(part.first + done, std::min(piece, part.count - done))) return;
      if (!exchange.pause(interval)) return;
    }
  };
}

Behaviour overDeliver(long long size) {
  return [=](Exchange& exchange) {
    Part part = partOf(exchange.request(), size);
    part.count = size - part.first;
    if (sendRangeHead(exchange, part, size, "")) exchange.sendPattern(part.first, part.count);
  };
}

Behaviour lieAboutLength(long long stated, long long sent) {
  return [=](Exchange& exchange) {
    if (exchange.send(sizedHead(200, stated, ""))) exchange.sendPattern(0, sent);
  };
}

Behaviour cutChunk(long long size, long long count) {
  return [=](Exchange& exchange) {
    exchange.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
    char length[32];
    snprintf(length, sizeof length, "%llx\r\n", static_cast<unsigned long long>(size));
    exchange.send(length);
    exchange.sendPattern(0, count);
  };
}

Behaviour serveRestAs200(long long size, bool withContentRange) {
  return [=](Exchange& exchange) {
    const Part part = partOf(exchange.request(), size);
    const std::string line =
        withContentRange && part.ranged
            ? "content-range: " + contentRange(part.first, part.count, size) + "\r\n"
            : "";
    if (exchange.send(sizedHead(200, part.count, line))) {
      exchange.sendPattern(part.first, part.count);
    }
  };
}

Behaviour startBeside(long long size, long long delta, int status) {
  return [=](Exchange& exchange) {
    Part part = partOf(exchange.request(), size);
    if (part.ranged && part.first > 0) {
      part.first += delta;
      part.count -= delta;
    }
    if (sendRangeHead(exchange, part, size, "", status)) {
      exchange.sendPattern(part.first, part.count);
    }
  };
}

Behaviour serveLongHeaders(long long size, size_t headerBytes) {
  return [=](Exchange& exchange) {
    std::string lines = "HTTP/1.1 200 OK\r\nServer: long\r\n";
    while (lines.size() < headerBytes) lines += "X-Filler: " + std::string(90, 'x') + "\r\n";
    exchange.send(lines + "Content-Length: " + std::to_string(size) + "\r\n\r\n");
    exchange.sendPattern(0, size);
  };
}

Behaviour inTurn(std::vector<Behaviour> behaviours) {
  return [=](Exchange& exchange) {
    const size_t last = behaviours.size() - 1;
    behaviours[std::min(static_cast<size_t>(exchange.number()), last)](exchange);
  };
}

Behaviour serveFile(const std::string& path, long long count) {
  return [=](Exchange& exchange) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (file < 0 || fstat(file, &status) != 0) {
      exchange.send("HTTP/1.1 500 No File\r\nContent-Length: 0\r\n\r\n");
    } else {
      const Part part = partOf(exchange.request(), status.st_size);
      const long long most = count < 0 ? part.count : std::min(count, part.count);
      if (sendRangeHead(exchange, part, status.st_size, "")) {
        exchange.sendFile(file, part.first, most);
      }
    }
    if (file >= 0) close(file);
  };
}

Behaviour breakOften(long long size, unsigned int seed, unsigned int sound, bool resets,
                     std::atomic<int>* cut) {
  return [=](Exchange& exchange) {
    std::mt19937 random(seed + static_cast<unsigned int>(exchange.number()));
    const long long some = 1 + static_cast<long long>(random() % 150000);
    const unsigned int drawn = static_cast<unsigned int>(random() % 8);
    if (drawn < sound) {
      serveRanges(size)(exchange);
    } else if (drawn == sound) {
      overDeliver(size)(exchange);
    } else if (drawn == sound + 1) {
      ignoreRanges(size)(exchange);
    } else {
      if (cut != nullptr && partOf(exchange.request(), size).count > some) ++*cut;
      const bool reset = drawn == sound + 2 && resets;
      (reset ? resetAfter(size, some) : dropAfter(size, some))(exchange);
    }
  };
}

Behaviour staySilent() { return stallAfter(0, -1); }

}  // namespace support

#include "tests/ordeal/stress/World.h"

#include <algorithm>

#include "api/fluviafs.h"
#include "tests/support/Behaviours.h"

namespace stress {

using support::Behaviour;
using support::Exchange;

namespace {

constexpr long long kMegabyte = 1 << 20;
std::atomic<bool> wrongByte{false};

// Made once: a key takes a while.
const support::TestCertificate& certificate() {
  static const support::TestCertificate made;
  return made;
}

// The result of a read when the server responds with that status.
int codeOf(int status) { return status < 500 ? FVFR_NOT_FOUND : FVFR_NOT_AVAILABLE; }

// Sends pieces at changing intervals.
Behaviour uneven(long long size, unsigned int seed) {
  return [=](Exchange& exchange) {
    std::mt19937 random(seed + static_cast<unsigned int>(exchange.number()));
    const long long piece = 4096 + static_cast<long long>(random() % 60000);
    support::drip(size, piece, 1 + static_cast<int>(random() % 4))(exchange);
  };
}

}  // namespace

void plantWrongByte(bool planted) { wrongByte = planted; }

World::World(unsigned int seed, Tally* counts) : bufferSize(0), tally(counts), random(seed) {
  static const int buffers[] = {0, 65536, 98304, 98304, 163840, 524288, FVFR_DEFAULT_BUFFER};
  bufferSize = buffers[random() % 7];
  folder = std::make_unique<support::TemporaryFolder>();
  if (random() % 6 == 0) {
    server =
        std::make_unique<support::FaultServer>(certificate().certificate(), certificate().key());
  } else {
    server = std::make_unique<support::FaultServer>();
  }
  // On a fast loopback a forgotten reader looks served.
  if (random() % 3 == 0) {
    const long long rate = 1000000 + static_cast<long long>(random() % 2000000);
    link = std::make_unique<support::SlowLink>(server->port(), 0, rate);
  }
  const int count = 2 + static_cast<int>(random() % 7);
  for (int i = 0; i < count; ++i) {
    switch (random() % 12) {
      case 0:
      case 1:
        addLocal();
        break;
      case 2:
      case 3:
      case 4:
        addSound();
        break;
      case 5:
      case 6:
        addBroken();
        break;
      case 7:
      case 8:
        addUnseekable();
        break;
      case 9:
      case 10:
        addMortal();
        break;
      default:
        addStalling();
    }
  }
  if (wrongByte) lie();
}

World::~World() {
  tally->connections += server->connectionCount();
  link.reset();
  server.reset();
}

void World::fail(const std::string& what) {
  std::lock_guard<std::mutex> guard(lock);
  if (first.empty()) first = what;
  wrong = true;
}

std::string World::failure() const {
  std::lock_guard<std::mutex> guard(lock);
  return first;
}

bool World::waitUntilIdle(int seconds) const { return server->waitUntilIdle(seconds); }

long long World::someSize(long long most) {
  static const long long sizes[] = {1,      100,    32767,   32768,         32769,         65536,
                                    100000, 300000, 1200000, 5 * kMegabyte, 40 * kMegabyte};
  long long size = most + 1;
  while (size > most) size = sizes[random() % 11];
  return size;
}

Target* World::add(const std::string& kind, long long size) {
  auto target = std::make_unique<Target>();
  target->kind = kind;
  target->size = size;
  target->base = static_cast<unsigned long long>(random()) << 20;
  targets.push_back(std::move(target));
  return targets.back().get();
}

void World::serve(Target* target, Behaviour behaviour, bool fault) {
  const std::string path = "/" + std::to_string(targets.size());
  Tally* const counts = tally;
  server->setBase(path, target->base);
  server->on(path, [behaviour, fault, counts](Exchange& exchange) {
    if (fault) ++counts->faults;
    behaviour(exchange);
  });
  target->url = server->url(path);
  if (link != nullptr && random() % 2 == 0) target->url = throughLink(target->url);
}

std::string World::throughLink(const std::string& url) const {
  const std::string direct = ":" + std::to_string(server->port()) + "/";
  std::string linked = url;
  linked.replace(url.find(direct), direct.size(), ":" + std::to_string(link->port()) + "/");
  return linked;
}

// Moves the expectation instead of the bytes: every compared byte is wrong.
void World::lie() {
  for (const auto& target : targets) ++target->base;
}

void World::addLocal() {
  switch (random() % 6) {
    case 0: {
      Target* target = add("missing file", 0);
      target->http = false;
      target->empty = true;
      target->url = folder->file("missing" + std::to_string(targets.size()));
      break;
    }
    case 1: {
      Target* target = add("empty file", 0);
      target->http = false;
      target->url = folder->makeText("empty" + std::to_string(targets.size()), "");
      break;
    }
    default: {
      const long long size = someSize(5 * kMegabyte);
      Target* target = add("file", size);
      target->http = false;
      target->url =
          folder->makePattern("file" + std::to_string(targets.size()), size, target->base);
    }
  }
}

void World::addSound() {
  const long long size = someSize(40 * kMegabyte);
  switch (random() % 6) {
    case 0: {
      Target* target = add("uneven", size);
      serve(target, uneven(size, static_cast<unsigned int>(random())), false);
      break;
    }
    case 1: {
      Target* target = add("redirected", size);
      const std::string path = "/behind" + std::to_string(targets.size());
      server->setBase(path, target->base);
      server->on(path, support::serveRanges(size));
      serve(target, support::redirect(302, server->url(path)), false);
      break;
    }
    case 2: {
      Target* target = add("content range only", size);
      serve(target, support::serveContentRangeOnly(size), false);
      break;
    }
    default: {
      Target* target = add("sound", size);
      serve(target, support::serveRanges(size), false);
    }
  }
}

void World::addBroken() {
  const long long size = someSize(5 * kMegabyte);
  const long long some = 3000 + static_cast<long long>(random() % 200000);
  switch (random() % 7) {
    case 0:
      serve(add("dropped after " + std::to_string(some), size), support::dropAfter(size, some),
            true);
      break;
    case 1:
      serve(add("over-delivered", size), support::overDeliver(size), true);
      break;
    case 2: {
      const long long small = std::min<long long>(size, 1200000);
      serve(add("ranges ignored", small), support::ignoreRanges(small), true);
      break;
    }
    case 3:
      serve(add("rest called 200", size), support::serveRestAs200(size, random() % 2 == 0), true);
      break;
    case 4: {
      const long long before = -static_cast<long long>(random() % 40000);
      Target* target = add("starts " + std::to_string(before) + " beside", size);
      serve(
          target,
          [size, before](Exchange& exchange) {
            long long from = 0;
            long long last = 0;
            exchange.request().range(&from, &last);
            support::startBeside(size, std::max(before, -from))(exchange);
          },
          true);
      break;
    }
    default: {
      const bool resets = random() % 3 == 0;
      Target* target = add(resets ? "broken and reset" : "broken", size);
      // Two resets in a row may both come before a byte was read.
      if (resets) target->failures = {FVFR_NOT_APPLIED, FVFR_FAILED};
      serve(target, support::breakOften(size, static_cast<unsigned int>(random()), 1, resets),
            true);
    }
  }
}

void World::addUnseekable() {
  const long long size = someSize(5 * kMegabyte);
  switch (random() % 3) {
    case 0: {
      Target* target = add("chunked", size);
      serve(target, support::serveChunked(size), false);
      break;
    }
    case 1: {
      Target* target = add("until close", size);
      serve(target, support::serveUntilClose(size), false);
      break;
    }
    default: {
      Target* target = add("icy", size);
      serve(target, support::serveIcy(size), false);
    }
  }
  targets.back()->sized = false;
  targets.back()->seekable = false;
}

void World::addMortal() {
  const long long size = someSize(5 * kMegabyte);
  const long long some = static_cast<long long>(random() % 100000);
  switch (random() % 8) {
    case 0:
      addStatus();
      break;
    case 1:
      addStatusLater(size, some + 1);
      break;
    case 2:
      serve(addFailing("no content", 0), support::answerStatus(204), true);
      break;
    case 3:
      // Each takes a while: with few bytes a connection a round would take too long.
      serve(addFailing("reset after " + std::to_string(150000 + some), size),
            support::resetAfter(size, 150000 + some), true);
      break;
    case 4:
      addFailing("refused", 0)->url =
          "http://127.0.0.1:" + std::to_string(support::closedPort()) + "/";
      break;
    case 5:
      serve(addFailing("garbage", 0), support::answerRaw("SSH-2.0-nothing\r\nof the kind\r\n\r\n"),
            true);
      break;
    case 6: {
      // An end without a byte is an empty resource or a failed connection.
      Target* target = addFailing("closed at once", 0, FVFR_NOT_FOUND);
      serve(target, random() % 2 == 0 ? support::answerRaw("") : support::dropAfter(size, 0), true);
      break;
    }
    default: {
      const long long stated = size + 1 + some;
      serve(addFailing("length lies", stated), support::lieAboutLength(stated, size), true);
    }
  }
}

// A target whose reads may fail, as all do, and also with code if that is not 0.
Target* World::addFailing(const std::string& kind, long long size, int code) {
  Target* target = add(kind, size);
  target->failures = {FVFR_NOT_APPLIED, FVFR_FAILED};
  if (code != 0) target->failures.insert(code);
  return target;
}

void World::addStatus() {
  static const int statuses[] = {400, 403, 404, 410, 416, 500, 503, 504};
  const int status = statuses[random() % 8];
  serve(addFailing("status " + std::to_string(status), 0, codeOf(status)),
        support::answerStatus(status), true);
}

void World::addStatusLater(long long size, long long some) {
  const int status = random() % 2 == 0 ? 404 : 503;
  Target* target = addFailing("status " + std::to_string(status) + " later", size, codeOf(status));
  std::vector<Behaviour> answers(1 + random() % 4, support::dropAfter(size, some));
  answers.push_back(support::answerStatus(status));
  serve(target, support::inTurn(answers), true);
}

void World::addStalling() {
  const long long size = someSize(5 * kMegabyte);
  const long long some = 1 + static_cast<long long>(random() % 100000);
  Target* target = nullptr;
  if (random() % 4 == 0) {
    target = add("silent", size);
    target->beforeAny = true;
    serve(target, support::staySilent(), true);
  } else {
    target = add("stalled after " + std::to_string(some), size);
    serve(target, support::stallAfter(size, some), true);
  }
  target->stalls = true;
  target->failures = {FVFR_NOT_APPLIED, FVFR_FAILED, FVFR_TIMEOUT, FVFR_NOT_FOUND};
}

}  // namespace stress

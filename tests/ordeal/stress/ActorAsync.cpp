// Asynchronous reads, several readers on one handle, and acting on the handles of others.
#include <algorithm>
#include <set>
#include <thread>

#include "api/fluviafs.h"
#include "tests/ordeal/stress/Actor.h"
#include "tests/support/Pattern.h"

namespace stress {

namespace {

// A completion that takes longer counts as a hang.
constexpr int kAnswerSeconds = 100;
constexpr int kCrew = 3;

// Reads one after the other, each issued in the callback of the previous one.
class Chain : public std::enable_shared_from_this<Chain> {
 public:
  Chain(World* where, Tally* counts, std::shared_ptr<Held> file, int count, unsigned int size,
        bool closes)
      : held(std::move(file)),
        world(where),
        tally(counts),
        left(count),
        piece(size),
        closeAtEnd(closes) {}

  // Issues the next read. Returns false if there is none.
  bool next(long long from) {
    if (left-- <= 0) return false;
    auto request = std::make_shared<Request>(world, tally, held, from, piece);
    const std::shared_ptr<Chain> self = shared_from_this();
    request->then = [self](Request* done) { self->goOn(done); };
    {
      std::lock_guard<std::mutex> guard(lock);
      made.push_back(request);
    }
    if (request->issue()) {
      held->post(request);
      return true;
    }
    request->then = nullptr;
    std::lock_guard<std::mutex> guard(lock);
    made.pop_back();
    return false;
  }

  void finish() {
    std::lock_guard<std::mutex> guard(lock);
    over = true;
    changed.notify_all();
  }

  bool waitUntilOver() {
    std::unique_lock<std::mutex> guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(kAnswerSeconds), [&] { return over; });
  }

  // Valid after the end.
  const std::vector<std::shared_ptr<Request>>& requests() const { return made; }

 private:
  void goOn(Request* done) {
    const bool more = done->status() == FVFR_ASYNC_DONE && done->bytes() > 0 &&
                      next(done->from + static_cast<long long>(done->bytes()));
    if (more) return;
    // During an abort this very thread uses the handle.
    if (closeAtEnd && !done->insideAbort()) {
      ++tally->strangeCloses;
      held->close(world, tally, true);
    }
    finish();
  }

  const std::shared_ptr<Held> held;
  World* const world;
  Tally* const tally;
  int left;  // only one callback at a time uses it
  const unsigned int piece;
  const bool closeAtEnd;
  std::mutex lock;
  std::condition_variable changed;
  bool over = false;
  std::vector<std::shared_ptr<Request>> made;
};

}  // namespace

void Actor::await(const std::shared_ptr<Request>& request) {
  if (!request->waitUntilAnswered(kAnswerSeconds)) {
    world->fail("no callback of an asynchronous read of " + request->held->target->kind);
  }
}

// Several requests at once. Some are aborted; rarely the handle is closed while they run.
void Actor::batch(size_t which) {
  Mine* file = &mine[which];
  const Step now_(this, "asynchronous reads", file->held);
  std::vector<std::shared_ptr<Request>> asked;
  const int count = random() % 3 == 0 ? 1 + static_cast<int>(random() % 6) : 1;
  for (int i = 0; i < count; ++i) {
    auto request = std::make_shared<Request>(world, tally, file->held, file->position, someSize());
    if (!request->issue()) continue;
    file->held->post(request);
    kept.push_back(request);
    asked.push_back(request);
  }
  for (const std::shared_ptr<Request>& request : asked) {
    if (random() % 5 == 0) request->abort();
  }
  settle(which, asked);
}

// Waits for the completions and checks them. Requests of a handle run in the order of their issue.
// Each begins at the handle's position when it was issued: the first position, or behind any of the
// requests before it.
void Actor::settle(size_t which, const std::vector<std::shared_ptr<Request>>& asked) {
  Mine* file = &mine[which];
  if (random() % 40 == 0) {
    file->held->close(world, tally, false);
    for (const std::shared_ptr<Request>& request : asked) {
      if (!request->answered()) fail(*file, "close left a request unanswered");
    }
  }
  std::set<long long> positions = {file->position};
  for (const std::shared_ptr<Request>& request : asked) {
    await(request);
    if (world->failed()) return;
    request->check(positions);
    const std::set<long long> before = positions;
    for (const long long position : before) positions.insert(position + request->bytes());
  }
  const Held::Use use(file->held.get());
  if (!use) return;
  const long long at = x_fluvia_file_offset(file->held->handle);
  if (file->held->isClosing()) return;
  if (positions.count(at) == 0) fail(*file, "moved to " + std::to_string(at));
  file->position = at;
}

void Actor::chain(Mine* file) {
  const Step now_(this, "reads from callbacks", file->held);
  auto run = std::make_shared<Chain>(world, tally, file->held, 1 + static_cast<int>(random() % 8),
                                     1 + someSize(), random() % 4 == 0);
  if (!run->next(file->position)) run->finish();
  if (!run->waitUntilOver()) {
    fail(*file, "no end");
    return;
  }
  // Also if the round fails meanwhile: each owns the chain until it is finished.
  kept.insert(kept.end(), run->requests().begin(), run->requests().end());
  for (const std::shared_ptr<Request>& request : run->requests()) {
    await(request);
    if (world->failed()) return;
    request->check({file->position});
    if (request->status() == FVFR_ASYNC_DONE) file->position += request->bytes();
  }
}

// Several threads read one handle to its end: each byte goes to exactly one of them.
void Actor::crew() {
  std::vector<Target*> fit;
  for (const auto& target : world->targets) {
    if (!target->mortal() && !target->empty && target->size > 0 && target->size <= 300000) {
      fit.push_back(target.get());
    }
  }
  if (fit.empty()) return;
  std::shared_ptr<Held> held = Held::open(world, fit[random() % fit.size()]);
  if (held == nullptr) return;
  const Step now_(this, "a crew's reads", held);
  const Mark mark(*held);
  const unsigned int piece = 1000 + static_cast<unsigned int>(random() % 40000);
  std::mutex gathering;
  std::vector<std::string> pieces;
  std::vector<std::thread> readers;
  for (int i = 0; i < kCrew; ++i) {
    readers.emplace_back([&] {
      for (;;) {
        std::string read(piece, '\0');
        unsigned int got = 0;
        const int result = x_fluvia_file_read(held->handle, &read[0], piece, &got);
        ++tally->operations;
        ++tally->reads;
        if (result != FVFR_OK || got == 0) return;
        read.resize(got);
        std::lock_guard<std::mutex> guard(gathering);
        pieces.push_back(read);
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  const bool disturbed = mark.disturbed();
  held->close(world, tally, false);
  if (!disturbed) checkCrew(*held, piece, pieces);
}

void Actor::checkCrew(const Held& held, unsigned int piece,
                      const std::vector<std::string>& pieces) {
  const Target& target = *held.target;
  std::set<long long> missing;
  for (long long at = 0; at < target.size; at += piece) missing.insert(at);
  for (const std::string& read : pieces) {
    const auto found = std::find_if(missing.begin(), missing.end(), [&](long long at) {
      return static_cast<long long>(read.size()) == std::min<long long>(piece, target.size - at) &&
             support::firstDifference(target.base + static_cast<unsigned long long>(at),
                                      read.data(), read.size()) < 0;
    });
    if (found == missing.end()) {
      world->fail("a crew's piece of " + std::to_string(read.size()) + " bytes of " + target.kind +
                  " is nobody's");
      return;
    }
    missing.erase(found);
    tally->bytes += static_cast<long long>(read.size());
  }
  if (!missing.empty()) {
    world->fail("a crew missed " + std::to_string(missing.size()) + " pieces of " + target.kind +
                " of " + std::to_string(target.size) + " bytes, " + std::to_string(piece) +
                " each");
  }
}

void Actor::meddle() {
  const std::shared_ptr<Held> held = roster->some(&random);
  if (held == nullptr) return;
  const Step now_(this, "meddling", held);
  switch (random() % 8) {
    case 0:
    case 1:
      held->breakRead(world, tally);
      break;
    case 2:
    case 3:
    case 4:
      if (const std::shared_ptr<Request> request = held->someRequest(&random)) request->abort();
      break;
    case 5:
      ++tally->strangeCloses;
      held->close(world, tally, false);
      break;
    case 6: {
      const Held::Use use(held.get());
      if (!use) return;
      const long long size = x_fluvia_file_size(held->handle);
      const int buffered = x_fluvia_file_bufferedSize(held->handle);
      tally->operations += 2;
      const Target& target = *held->target;
      if (size != 0 && size != target.size && size != FVFR_UNKNOWN_SIZE && size != FVFR_FAILED) {
        world->fail("size of " + target.kind + " " + std::to_string(size));
      }
      if (buffered > target.size) world->fail(std::to_string(buffered) + " bytes buffered");
      break;
    }
    default:
      set(held);
  }
}

// Makes one setting. The interface's own tests cover null for settings that are refused at once.
int Actor::setOne(const Held& held, int* wanted) {
  const int handle = held.handle;
  const bool http = held.target->http;
  *wanted = http ? FVFR_OK : FVFR_NOT_APPLIED;
  switch (random() % 9) {
    case 0:
      return x_fluvia_file_http_set_userAgent(handle, "stress/1");
    case 1:
      return x_fluvia_file_http_set_cookie(handle, "a=b; c=d");
    case 2:
      return x_fluvia_file_http_set_proxy(handle, "");
    case 3:
      return x_fluvia_file_http_set_ip_resolve(handle, random() % 2 == 0 ? "IPv4" : "whatever");
    case 4:
      return x_fluvia_file_http_set_key_type(handle, "PEM");
    case 5:
      *wanted = FVFR_OK;
      return x_fluvia_file_set_featureflag(handle, static_cast<int>(random() % 2));
    case 6:
      *wanted = FVFR_OK;
      // Fast enough that no step takes long.
      return x_fluvia_file_http_set_speed(
          handle, random() % 3 == 0 ? 0 : 4000000 + static_cast<long long>(random() % 40000000));
    case 7: {
      char address[16];
      return x_fluvia_file_http_get_url_ip(handle, address);
    }
    default:
      *wanted = FVFR_OK;
      // A volatile stream of unknown length may be requested again without end.
      return held.target->sized ? x_fluvia_file_volatile(handle) : FVFR_OK;
  }
}

void Actor::set(const std::shared_ptr<Held>& held) {
  const Step now_(this, "setting", held);
  const Held::Use use(held.get());
  if (!use) return;
  int wanted = 0;
  const int result = setOne(*held, &wanted);
  ++tally->operations;
  if (result != wanted && !held->isClosing()) {
    world->fail("a setting of " + held->target->kind + " gave " + std::to_string(result) +
                ", not " + std::to_string(wanted));
  }
}

// The server's response, and figures. The texts are valid until this thread's next query.
void Actor::readText(Mine* file) {
  const Step now_(this, "texts and figures", file->held);
  const Held::Use use(file->held.get());
  if (!use) return;
  const int handle = file->held->handle;
  char header[256];
  int length = 0;
  const char* type = x_fluvia_file_http_get_content_type(handle);
  const char* server = x_fluvia_file_http_get_server_name(handle);
  const int result = x_fluvia_file_http_get_header(handle, header, sizeof header, &length);
  const long long speed = x_fluvia_file_http_get_speed(handle);
  const int status = x_fluvia_file_http_get_download_status(handle);
  tally->operations += 5;
  if (file->held->isClosing()) return;
  if ((type != nullptr) != file->held->target->http) fail(*file, "content type");
  if ((server != nullptr) != file->held->target->http) fail(*file, "server name");
  if (type != nullptr && std::string(type).size() > 100) fail(*file, "content type's length");
  if (result != FVFR_OK || length < 0 || length > 8192) fail(*file, "header");
  if (speed < 0) fail(*file, "speed " + std::to_string(speed));
  if (status != 0 && !(status >= -8 && status < 0) && status < 400) {
    fail(*file, "download status " + std::to_string(status));
  }
}

}  // namespace stress

#include "bench/common/Reader.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "bench/common/Pattern.h"

namespace bench {

namespace {
// Where the comparison must cost little, one of this many reads is compared.
constexpr unsigned int kCompared = 32;
}  // namespace

Reader::Reader(const Options& asked, std::unique_ptr<Source> source)
    : options(asked), peer(std::move(source)) {}

bool Reader::open(const std::string& url) {
  if (peer->open(options, url)) return true;
  fprintf(stderr, "cannot open %s\n", url.c_str());
  return false;
}

bool Reader::check(long long got, size_t wanted, bool compares) {
  const long long left = std::max(0LL, options.size - position);
  const long long expected = std::min(left, static_cast<long long>(wanted));
  if (got != expected) {
    fprintf(stderr, "at %lld: read gave %lld, not %lld\n", position, got, expected);
    return false;
  }
  const size_t count = compares ? static_cast<size_t>(got) : 0;
  const long long wrong = firstDifference(position, buffer.data(), count);
  if (wrong >= 0) {
    fprintf(stderr, "wrong byte at %lld\n", position + wrong);
    return false;
  }
  position += got;
  checked += got;
  return true;
}

bool Reader::read(size_t size) {
  if (buffer.size() < size) buffer.resize(size);
  const Clock::time_point begin = Clock::now();
  const long long got = peer->read(buffer.data(), size);
  times.note(Clock::now() - begin + seeking);
  seeking = {};
  return check(got, size, true);
}

bool Reader::readAside(size_t size) {
  if (buffer.size() < size) buffer.resize(size);
  seeking = {};
  return check(peer->read(buffer.data(), size), size, true);
}

bool Reader::readLightly(size_t size) {
  if (buffer.size() < size) buffer.resize(size);
  const Clock::time_point begin = Clock::now();
  const long long got = peer->read(buffer.data(), size);
  times.note(Clock::now() - begin);
  return check(got, size, peer->givesBytes() && lightly++ % kCompared == 0);
}

bool Reader::seek(long long offset) {
  const Clock::time_point begin = Clock::now();
  const bool moved = peer->seek(offset);
  seeking = Clock::now() - begin;
  if (!moved) {
    fprintf(stderr, "cannot seek to %lld\n", offset);
    return false;
  }
  position = offset;
  return true;
}

}  // namespace bench

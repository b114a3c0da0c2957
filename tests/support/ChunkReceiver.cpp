#include "tests/support/ChunkReceiver.h"

#include "tests/support/Watchdog.h"

namespace support {

namespace {

// A thread that is never released continues after this time, so that the test fails and ends.
constexpr int kHoldSeconds = 40;

}  // namespace

int ChunkReceiver::streamIn(void* data, unsigned int size, int version) {
  std::function<void()> act;
  {
    std::lock_guard<std::mutex> guard(lock);
    made.push_back({kChunk, version, std::string(static_cast<char*>(data), size)});
    ++chunks;
    act = onChunk;
  }
  if (act) act();
  std::unique_lock<std::mutex> guard(lock);
  waitWhile(guard, holdChunks);
  return chunks == refuseAt ? 0 : 1;
}

void ChunkReceiver::notifyStreamException(int event) {
  std::unique_lock<std::mutex> guard(lock);
  made.push_back({event, 0, ""});
  if (event == util::EVENT_STREAM_PARTIAL_END) waitWhile(guard, holdEnds);
}

std::vector<ChunkReceiver::Call> ChunkReceiver::calls() const {
  std::lock_guard<std::mutex> guard(lock);
  return made;
}

int ChunkReceiver::count(int event) const {
  int found = 0;
  for (const Call& call : calls()) found += call.event == event ? 1 : 0;
  return found;
}

bool ChunkReceiver::waitFor(int event, int times) const {
  return eventually([&] { return count(event) >= times; });
}

std::vector<int> ChunkReceiver::sizes() const {
  std::vector<int> all;
  for (const Call& call : calls()) {
    if (call.event == kChunk) all.push_back(static_cast<int>(call.bytes.size()));
  }
  return all;
}

std::string ChunkReceiver::bytes(int version) const {
  std::string all;
  for (const Call& call : calls()) {
    if (call.event == kChunk && call.version == version) all += call.bytes;
  }
  return all;
}

void ChunkReceiver::set(bool* flag, bool value) {
  std::lock_guard<std::mutex> guard(lock);
  *flag = value;
  changed.notify_all();
}

void ChunkReceiver::waitWhile(std::unique_lock<std::mutex>& guard, const bool& held) {
  changed.wait_for(guard, patienceOf(kHoldSeconds), [&] { return !held; });
}

}  // namespace support

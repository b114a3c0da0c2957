#include "tests/ordeal/soak/FullPool.h"

#include "api/fluviafs.h"
#include "tests/support/Watchdog.h"

namespace soak {

namespace {

constexpr int kBlock = 32768;

bool isFull(int handle) {
  return x_fluvia_file_bufferedSize(handle) >= x_fluvia_file_bufferSize(handle) - kBlock;
}

}  // namespace

std::string FullPool::fill() {
  for (int i = 0; i < kBuffers; ++i) {
    const std::string url = server_ + "/fill" + std::to_string(i);
    int handle = 0;
    if (x_fluvia_file_open(url.c_str(), &handle) != FVFR_OK) return "cannot open " + url;
    handles_.push_back(handle);
    char byte = 0;
    unsigned int got = 0;
    if (x_fluvia_file_read(handle, &byte, 1, &got) != FVFR_OK) return "cannot read " + url;
  }
  for (const int handle : handles_) {
    if (!support::eventually([&] { return isFull(handle); })) return "a buffer is not filled";
  }
  while (handles_.size() > 1) {
    x_fluvia_file_close(handles_.back());
    handles_.pop_back();
  }
  return "";
}

void FullPool::release() {
  for (const int handle : handles_) x_fluvia_file_close(handle);
  handles_.clear();
}

}  // namespace soak

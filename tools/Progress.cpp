#include "Progress.h"

#include <fluviafs.h>

#include <algorithm>
#include <new>

#include "Text.h"

namespace tools {
namespace {

constexpr auto kPeriod = std::chrono::milliseconds(200);
constexpr int kBarColumns = 24;

}  // namespace

Progress::Progress(const Screen& screen, const Source& source, long long total)
    : screen_(screen), source_(source), total_(total), begin_(std::chrono::steady_clock::now()) {
  if (screen_.isTerminal()) {
    drawer_ = std::thread([this] { run(); });
  }
}

Progress::~Progress() {
  if (!drawer_.joinable()) {
    return;
  }
  {
    const std::lock_guard<std::mutex> guard(lock_);
    ended_ = true;
  }
  wake_.notify_one();
  drawer_.join();
  draw();
  screen_.endLine();
}

void Progress::run() {
  std::unique_lock<std::mutex> guard(lock_);
  while (!wake_.wait_for(guard, kPeriod, [this] { return ended_; })) {
    draw();
  }
}

void Progress::tell(const std::string& text, bool waits) {
  waits_.store(waits, std::memory_order_relaxed);
  const std::lock_guard<std::mutex> guard(lock_);
  if (drawer_.joinable()) {
    screen_.print("\r" + std::string(static_cast<size_t>(std::max(1, screen_.columns() - 1)), ' ') +
                  "\r");
  }
  screen_.fail(text);
}

void Progress::draw() const try {
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin_;
  std::string text = line(elapsed.count());
  const size_t room = static_cast<size_t>(std::max(1, screen_.columns() - 1));
  text.resize(room, ' ');
  screen_.print("\r" + text);
} catch (const std::bad_alloc&) {
  // The bar stays as it was; if more than the bar lacks memory, the reader reports it.
}

std::string Progress::line(double seconds) const {
  const long long done = done_.load(std::memory_order_relaxed);
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
  const int ahead = std::max(0, x_fluvia_file_bufferedSize(source_.handle()));
  std::string text;
  if (total_ > 0) {
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    const auto filled = static_cast<size_t>(part * kBarColumns);
    text = "[" + std::string(filled, '#') + std::string(kBarColumns - filled, '.') + "] " +
           std::to_string(static_cast<int>(part * 100)) + "% ";
  }
  text += humanBytes(static_cast<double>(done));
  if (waits_.load(std::memory_order_relaxed)) {
    return text + "  waiting for the server";
  }
  text += "  " + humanBytes(rate) + "/s  " + humanBytes(ahead) + " ahead";
  if (total_ >= 0) {
    const double left = static_cast<double>(total_ - done);
    text += "  " + humanTime(rate > 0 ? static_cast<long long>(left / rate) : -1) + " left";
  }
  return text;
}

}  // namespace tools

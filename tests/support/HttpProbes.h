#ifndef FLUVIAFS_TESTS_SUPPORT_HTTPPROBES_H_
#define FLUVIAFS_TESTS_SUPPORT_HTTPPROBES_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "util/BufferQueueDataReceiver.h"
#include "webs/HttpFileRequest.h"
#include "webs/MethodRequest.h"
#include "webs/Requestor.h"

namespace support {

// Seconds since it was made.
class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }

 private:
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

// Receiver of a session's body that keeps it.
class CollectingRequestor : public webs::Requestor {
 public:
  int receive(void* data, int size, void* handle, int version) override;
  void readyReceive() override { ++ready; }
  void finishReceive() override {}

  // Wait until that many bytes came. Returns false after kWaitSeconds.
  bool waitForBytes(size_t count) const;
  std::string body() const;

  // Called with every piece, before it is kept; its result is receive()'s.
  std::function<int(void* data, int size)> onPiece;
  int ready = 0;
  int lastVersion = 0;
  void* lastHandle = nullptr;

 private:
  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::string bytes;
};

// Receiver of a producer's bytes and events. Keeps both, and refuses or parks those that the test
// chooses.
class ScriptedReceiver : public util::BufferQueueDataReceiver {
 public:
  int streamIn(void* data, unsigned int size, int version) override;
  void notifyStreamException(int event) override;

  std::string body() const;
  std::vector<int> events() const;
  std::vector<int> versions() const;
  bool waitForBytes(size_t count) const;
  bool waitForEvent(int event) const;
  // Releases a parked event.
  void unpark();

  // Set before a run: bytes after which pieces are refused; the event that parks until unpark(); a
  // function called with every piece and event, without a lock.
  size_t refuseAfter = ~static_cast<size_t>(0);
  int parkOn = -1;
  std::function<void()> onPiece;
  std::function<void(int)> onEvent;

 private:
  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::string bytes;
  std::vector<int> seenEvents;
  std::vector<int> seenVersions;
  bool mayGoOn = false;
};

// A producer with its receiver, ready to run.
struct ProducerProbe {
  explicit ProducerProbe(const std::string& url, int featureFlag = -1);
  ~ProducerProbe();
  // One run on this thread. Returns its events.
  std::vector<int> run(int version, long long offset, long long count);
  // One run on a thread of its own, joined by join() or the destructor.
  void start(int version, long long offset, long long count);
  void join();

  ScriptedReceiver receiver;
  webs::HttpFileRequest producer;

 private:
  std::thread runner;
};

// A certificate with its key as PEM files in a temporary folder, removed with the object.
class TestCertificate {
 public:
  // Self-signed, for 127.0.0.1 or for another name; valid now, or until yesterday.
  explicit TestCertificate(const std::string& host = "127.0.0.1", bool expired = false);
  ~TestCertificate();
  TestCertificate(const TestCertificate&) = delete;
  TestCertificate& operator=(const TestCertificate&) = delete;
  std::string certificate() const { return folder + "/cert.pem"; }
  std::string key() const { return folder + "/key.pem"; }

 private:
  std::string folder;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_HTTPPROBES_H_

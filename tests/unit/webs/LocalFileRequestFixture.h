#ifndef FLUVIAFS_TESTS_WEBS_LOCALFILEREQUESTFIXTURE_H_
#define FLUVIAFS_TESTS_WEBS_LOCALFILEREQUESTFIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/ChunkReceiver.h"
#include "tests/support/IsPattern.h"
#include "tests/support/Pauses.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "webs/LocalFileRequest.h"

// The producer of a local file against a scripted receiver.
class LocalFileRequestTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;
  static constexpr int kChunk = 16384;  // bytes of one delivery of the producer

  ~LocalFileRequestTest() override {
    receiver.holdNextChunks(false);
    receiver.parkEnds(false);
    request.reset();
  }

  // A producer of a file of the pattern, ready to stream.
  void make(long long size) {
    request = std::make_unique<LocalFileRequest>(folder.makePattern("a", size));
    ASSERT_TRUE(request->initialize());
    request->setOutput(&receiver);
  }

  // Begins a run and waits for its end event.
  testing::AssertionResult run(int version, long long offset, long long count = 0) {
    const int before = ends();
    const int result = request->startStreaming(version, offset, count);
    if (result != 0) return testing::AssertionFailure() << "startStreaming gave " << result;
    if (ended(before + 1)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no end of the run";
  }
  int ends() const { return receiver.count(util::EVENT_STREAM_PARTIAL_END); }
  bool ended(int times = 1) const {
    return receiver.waitFor(util::EVENT_STREAM_PARTIAL_END, times);
  }
  // True once a run has left its function, with or without an end event: it delivers and logs
  // nothing more.
  bool finished() const {
    return support::eventually([this] {
      for (const std::string& line : log.messages("perform")) {
        if (line.find("LocalFileRequest::perform finished, count:") != std::string::npos) {
          return true;
        }
      }
      return false;
    });
  }
  // True once the thread of the runs sleeps, and logs nothing more.
  bool asleep() const {
    return support::eventually([this] {
      const Lines lines = log.messages("runner");
      return !lines.empty() && lines.back() == "runner: thread begin to sleep";
    });
  }
  // True if a version brought count bytes of the file from an offset on, and nothing else.
  testing::AssertionResult delivered(int version, long long from, size_t count) const {
    return support::isPattern(receiver.bytes(version), from, count);
  }

#if defined(FLUVIA_PAUSE_POINTS)
  // Begins a run of version 1 at the beginning, and waits until it is held at a pause point.
  testing::AssertionResult startHeldAt(support::Pauses* pauses, const std::string& point) {
    pauses->holdAt(point);
    const int result = request->startStreaming(1, 0, 0);
    if (result != 0) return testing::AssertionFailure() << "startStreaming gave " << result;
    if (pauses->reached(point)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the run does not come to " << point;
  }
#endif

  const support::CapturedStderr log{1};
  support::TemporaryFolder folder;
  support::ChunkReceiver receiver;
  std::unique_ptr<LocalFileRequest> request;
  support::Watchdog watchdog{60, [this] { return log.text(); }};
};

#endif  // FLUVIAFS_TESTS_WEBS_LOCALFILEREQUESTFIXTURE_H_

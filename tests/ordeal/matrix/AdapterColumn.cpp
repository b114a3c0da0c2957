// The matrix's column of this library as FFmpeg uses it through the adapter. The adapter reconnects
// after outages for as long as FFmpeg's own http does in its column.
#include <string>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>

#include "examples/ffmpeg/fluvia_avio.h"
}

#include "api/fluviafs.h"
#include "tests/ordeal/matrix/AvioCell.h"
#include "tests/ordeal/matrix/Cell.h"
#include "tests/support/SilentStderr.h"

namespace {

constexpr int kSeconds = 4;

class AdapterClient : public matrix::Client {
 public:
  ~AdapterClient() override { fluvia_avio_close(&source); }

  bool open(const std::string& url, std::string* why) override {
    av_log_set_level(AV_LOG_QUIET);
    FluviaStreamSettings settings = FLUVIA_STREAM_SETTINGS;
    settings.seconds = settings.firstSeconds = kSeconds;
    settings.apply = [](int handle, void*) {
      const char* flag = getenv("FLUVIA_FEATUREFLAG");
      if (flag != nullptr) x_fluvia_file_set_featureflag(handle, atoi(flag));
    };
    int result = fluvia_avio_open(&source, url.c_str(), &settings);
    if (result == 0) result = fluvia_avio_connect(source);
    if (result < 0) *why = "open: " + matrix::nameOfAvError(result);
    return result == 0;
  }

  long readAt(long long offset, char* bytes, size_t count, std::string* why) override {
    return matrix::readAvioAt(fluvia_avio_context(source), offset, bytes, count, why);
  }

 private:
  FluviaAvio* source = nullptr;
};

}  // namespace

int main(int count, char** words) {
  support::silenceStderr();
  AdapterClient client;
  return matrix::runCell(&client, count, words);
}

// The matrix's column of this library as FFmpeg sees it through the adapter, which bears outages
// for as long as FFmpeg's own http does in its column.
#include <string>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>

#include "examples/ffmpeg/fluvia_avio.h"
}

#include "api/fluviafs.h"
#include "tests/ordeal/matrix/Cell.h"
#include "tests/support/SilentStderr.h"

namespace {

constexpr int kSeconds = 4;

std::string nameOf(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(error, text, sizeof text);
  return text;
}

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
    if (result < 0) *why = "open: " + nameOf(result);
    return result == 0;
  }

  long readAt(long long offset, char* bytes, size_t count, std::string* why) override {
    AVIOContext* io = fluvia_avio_context(source);
    if (avio_tell(io) != offset) {
      const long long moved = avio_seek(io, offset, SEEK_SET);
      if (moved != offset) {
        *why = "seek: " + nameOf(static_cast<int>(moved));
        return -1;
      }
    }
    const int got =
        avio_read_partial(io, reinterpret_cast<unsigned char*>(bytes), static_cast<int>(count));
    if (got == AVERROR_EOF) return 0;
    if (got < 0) *why = "read: " + nameOf(got);
    return got < 0 ? -1 : got;
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

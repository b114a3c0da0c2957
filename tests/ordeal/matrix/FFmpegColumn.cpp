// The matrix's column of FFmpeg's http, with its reconnect options and a time-out of five seconds.
extern "C" {
#include <libavformat/avformat.h>
#include <libavformat/avio.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
}

#include "tests/ordeal/matrix/AvioCell.h"
#include "tests/ordeal/matrix/Cell.h"

namespace {

class FFmpegClient : public matrix::Client {
 public:
  ~FFmpegClient() override { avio_closep(&io); }

  bool open(const std::string& url, std::string* why) override {
    av_log_set_level(AV_LOG_QUIET);
    avformat_network_init();
    AVDictionary* options = nullptr;
    // Not reconnect_at_eof: it takes the end of a stream for an error.
    av_dict_set(&options, "reconnect", "1", 0);
    av_dict_set(&options, "reconnect_streamed", "1", 0);
    av_dict_set(&options, "reconnect_on_network_error", "1", 0);
    av_dict_set(&options, "reconnect_on_http_error", "408,429,5xx", 0);
    av_dict_set(&options, "reconnect_delay_max", "4", 0);
    av_dict_set(&options, "rw_timeout", "5000000", 0);
    av_dict_set(&options, "timeout", "5000000", 0);
    const int result = avio_open2(&io, url.c_str(), AVIO_FLAG_READ, nullptr, &options);
    av_dict_free(&options);
    if (result < 0) *why = "open: " + matrix::nameOfAvError(result);
    return result >= 0;
  }

  long readAt(long long offset, char* bytes, size_t count, std::string* why) override {
    return matrix::readAvioAt(io, offset, bytes, count, why);
  }

 private:
  AVIOContext* io = nullptr;
};

}  // namespace

int main(int count, char** words) {
  FFmpegClient client;
  return matrix::runCell(&client, count, words);
}

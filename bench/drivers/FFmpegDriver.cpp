// FFmpeg's protocols. Modes: plain (http:, https:, file:) and async (async: before them, which
// reads ahead in a thread).
extern "C" {
#include <libavformat/avformat.h>
#include <libavformat/avio.h>
}

#include <string>

#include "bench/common/Source.h"

namespace {

class FFmpegSource : public bench::Source {
 public:
  explicit FFmpegSource(bool readsAhead) : async(readsAhead) {}

  bool open(const bench::Options& options, const std::string& url) override {
    const std::string plain = url[0] == '/' ? "file:" + url : url;
    AVDictionary* settings = nullptr;
    if (!options.ca.empty()) {
      av_dict_set(&settings, "ca_file", options.ca.c_str(), 0);
      av_dict_set(&settings, "tls_verify", "1", 0);
    }
    const AVIOInterruptCB interrupt = {interrupted, this};
    const int result = avio_open2(&io, ((async ? "async:" : "") + plain).c_str(), AVIO_FLAG_READ,
                                  &interrupt, &settings);
    av_dict_free(&settings);
    return result >= 0;
  }
  long long read(char* buffer, size_t size) override {
    size_t done = 0;
    while (done < size) {
      const int got = avio_read(io, reinterpret_cast<unsigned char*>(buffer) + done,
                                static_cast<int>(size - done));
      if (got == AVERROR_EOF || got == 0) break;
      if (got < 0) return -1;
      done += static_cast<size_t>(got);
    }
    return static_cast<long long>(done);
  }
  bool seek(long long offset) override { return avio_seek(io, offset, SEEK_SET) == offset; }
  void abort() override { __atomic_store_n(&aborted, true, __ATOMIC_RELAXED); }
  void close() override { avio_closep(&io); }

 private:
  static int interrupted(void* source) {
    return __atomic_load_n(&static_cast<FFmpegSource*>(source)->aborted, __ATOMIC_RELAXED) ? 1 : 0;
  }

  const bool async;
  AVIOContext* io = nullptr;
  bool aborted = false;
};

}  // namespace

int main(int argc, char** argv) {
  av_log_set_level(AV_LOG_ERROR);
  return bench::runDriver(argc, argv, [](const bench::Options& options) {
    const bool async = options.mode == "async";
    const bool known = async || options.mode.empty() || options.mode == "plain";
    return std::unique_ptr<bench::Source>(known ? new FFmpegSource(async) : nullptr);
  });
}

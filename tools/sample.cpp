// Writes a file that resembles a broadcast recording: MPEG transport stream packets of 188 bytes
// with sync bytes, a few streams with their continuity counters, and payloads without a pattern.
// The bytes are the same every time.
#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

namespace {

constexpr unsigned kPacketBytes = 188;
constexpr unsigned kPackets = 90000;  // 16.9 MB: eight times the default buffer
constexpr std::array<unsigned, 4> kStreams = {0x000, 0x100, 0x101, 0x102};

using Packet = std::array<unsigned char, kPacketBytes>;

void fill(Packet* packet, unsigned stream, unsigned counter, std::mt19937* random) {
  const unsigned pid = kStreams[stream];
  (*packet)[0] = 0x47;
  (*packet)[1] = static_cast<unsigned char>(pid >> 8U);
  (*packet)[2] = static_cast<unsigned char>(pid & 0xFFU);
  (*packet)[3] = static_cast<unsigned char>(0x10U | (counter & 0x0FU));
  for (unsigned i = 4; i < kPacketBytes; ++i) {
    (*packet)[i] = static_cast<unsigned char>((*random)());
  }
}

bool write(std::FILE* file) {
  std::mt19937 random(20240229);  // NOLINT: the sample must be the same every time
  std::array<unsigned, kStreams.size()> counters{};
  Packet packet{};
  for (unsigned i = 0; i < kPackets; ++i) {
    const unsigned stream = i % 64 == 0 ? 0 : 1 + static_cast<unsigned>(random() % 3);
    fill(&packet, stream, counters[stream]++, &random);
    if (std::fwrite(packet.data(), 1, packet.size(), file) != packet.size()) {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string path;
  CLI::App app("Writes a sample to stream.", "fluvia-sample");
  app.add_option("FILE", path, "Where")->required();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& answer) {
    return app.exit(answer) == 0 ? 0 : 2;
  }
  std::FILE* file = std::fopen(path.c_str(), "wb");
  const bool written = file != nullptr && write(file);
  if (file == nullptr || std::fclose(file) != 0 || !written) {
    std::fprintf(stderr, "fluvia-sample: cannot write %s: %s\n", path.c_str(),
                 std::strerror(errno));
    return 1;
  }
  return 0;
}

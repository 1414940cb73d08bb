// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

// WAV files made by hand, byte by byte, for the tests that read them.
namespace wav {

using Bytes = std::vector<uint8_t>;

inline Bytes Number(uint32_t value, size_t count) {
  Bytes bytes;
  for (size_t i = 0; i < count; ++i) {
    bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
  return bytes;
}

inline Bytes Join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

inline Bytes Text(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

// A chunk; its size as claimed, or that of its content.
inline Bytes Chunk(const std::string& id, const Bytes& content, int64_t claim = -1) {
  const auto size = static_cast<uint32_t>(claim < 0 ? static_cast<int64_t>(content.size()) : claim);
  Bytes chunk = Join({Text(id), Number(size, 4), content});
  if (content.size() % 2 == 1) {
    chunk.push_back(0);
  }
  return chunk;
}

inline Bytes Record(uint32_t tag, uint32_t bits, uint32_t channels = 1, uint32_t rate = 8000,
                    uint32_t averageBytes = 8000) {
  return Join(
      {Number(tag, 2), Number(channels, 2), Number(rate, 4), Number(averageBytes, 4), Number(1, 2), Number(bits, 2)});
}

inline Bytes Riff(const std::vector<Bytes>& chunks) {
  return Chunk("RIFF", Join({Text("WAVE"), Join(chunks)}));
}

inline Bytes File(uint32_t tag, uint32_t bits, const Bytes& samples) {
  return Riff({Chunk("fmt ", Record(tag, bits)), Chunk("data", samples)});
}

// A file of its own that goes with the object.
class CTempFile {
 public:
  explicit CTempFile(const Bytes& content)
      : path((std::filesystem::temp_directory_path() / ("wav_" + std::to_string(std::random_device{}()) + ".tmp"))
                 .string()) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
  }
  ~CTempFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
  CTempFile(const CTempFile&) = delete;
  CTempFile& operator=(const CTempFile&) = delete;

  const char* Path() const { return path.c_str(); }
  Bytes Content() const {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return Text(text);
  }

 private:
  std::string path;
};

}  // namespace wav

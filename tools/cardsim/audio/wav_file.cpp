// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/wav_file.h"

#include <sndfile.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>

#include "common/g711.h"
#include "common/wire.h"

namespace cardsim {
namespace {

struct SClose {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, SClose>;

constexpr std::size_t kChunk = 8192;

Bytes ReadCodes(SNDFILE* file) {
  Bytes samples;
  std::array<std::uint8_t, kChunk> chunk{};
  for (;;) {
    const sf_count_t got = sf_read_raw(file, chunk.data(), static_cast<sf_count_t>(chunk.size()));
    if (got <= 0) {
      return samples;
    }
    samples.insert(samples.end(), chunk.begin(), chunk.begin() + got);
  }
}

Bytes ReadLinear(SNDFILE* file) {
  Bytes samples;
  std::array<short, kChunk> chunk{};
  for (;;) {
    const sf_count_t got = sf_read_short(file, chunk.data(), static_cast<sf_count_t>(chunk.size()));
    if (got <= 0) {
      return samples;
    }
    std::transform(chunk.begin(), chunk.begin() + got, std::back_inserter(samples), EncodeALaw);
  }
}

}  // namespace

Bytes ReadWav(const std::string& path) {
  SF_INFO info{};
  const File file(sf_open(path.c_str(), SFM_READ, &info));
  if (file == nullptr) {
    throw std::runtime_error(path + ": " + sf_strerror(nullptr));
  }
  if (info.channels != 1 || info.samplerate != kSampleRate) {
    throw std::runtime_error(path + ": is not mono at 8000 Hz (" + std::to_string(info.channels) + " channels, " +
                             std::to_string(info.samplerate) + " Hz)");
  }
  const bool codes = (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_ALAW;
  Bytes samples = codes ? ReadCodes(file.get()) : ReadLinear(file.get());
  if (sf_error(file.get()) != SF_ERR_NO_ERROR) {
    throw std::runtime_error(path + ": " + sf_strerror(file.get()));
  }
  return samples;
}

void WriteWav(const std::string& path, ByteView samples) {
  SF_INFO info{};
  info.samplerate = kSampleRate;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_ALAW;
  File file(sf_open(path.c_str(), SFM_WRITE, &info));
  if (file == nullptr) {
    throw std::runtime_error(path + ": " + sf_strerror(nullptr));
  }
  const auto count = static_cast<sf_count_t>(samples.size());
  const bool written = sf_write_raw(file.get(), samples.data(), count) == count;
  if (!written || sf_close(file.release()) != 0) {
    throw std::runtime_error(path + ": cannot be written");
  }
}

}  // namespace cardsim

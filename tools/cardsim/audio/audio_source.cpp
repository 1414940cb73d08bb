// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/audio_source.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "cardsim/audio/signals.h"
#include "common/g711.h"
#include "common/wire.h"

namespace cardsim {
namespace {

constexpr int kSamplesPerMs = kSampleRate / 1000;

std::size_t SamplesOf(int ms) {
  return static_cast<std::size_t>(std::max(ms, 0)) * kSamplesPerMs;
}

class CBytesSource : public IAudioSource {
 public:
  CBytesSource(std::shared_ptr<const Bytes> bytes, bool repeat)
      : owned(std::move(bytes)), samples(*owned), loop(repeat && !samples.empty()) {}

  std::size_t Read(std::span<std::uint8_t> out) override {
    std::size_t written = 0;
    while (written < out.size() && position < samples.size()) {
      const std::size_t count = std::min(out.size() - written, samples.size() - position);
      std::copy_n(&samples[position], count, &out[written]);
      written += count;
      position += count;
      if (loop && position == samples.size()) {
        position = 0;
      }
    }
    return written;
  }

 private:
  const std::shared_ptr<const Bytes> owned;
  const Bytes& samples;
  bool loop;
  std::size_t position = 0;
};

class CToneSource : public IAudioSource {
 public:
  CToneSource(std::vector<double> wanted, double level)
      : frequencies(std::move(wanted)), amplitude(AmplitudeOfDbm0(level)) {}

  std::size_t Read(std::span<std::uint8_t> out) override {
    for (std::uint8_t& sample : out) {
      sample = Next();
    }
    return out.size();
  }

 private:
  std::uint8_t Next() {
    double sum = 0;
    for (const double frequency : frequencies) {
      // Whole turns are taken out first, so that a tone of hours is as exact as its first second.
      const double turns = frequency * static_cast<double>(count) / kSampleRate;
      sum += amplitude * std::sin(2 * std::numbers::pi * (turns - std::floor(turns)));
    }
    ++count;
    return EncodeALaw(static_cast<std::int16_t>(std::clamp(std::lround(sum), -32768L, 32767L)));
  }

  std::vector<double> frequencies;
  double amplitude;
  std::uint64_t count = 0;
};

class CChain : public IAudioSource {
 public:
  explicit CChain(std::vector<AudioSource> parts) : sources(std::move(parts)) {}

  std::size_t Read(std::span<std::uint8_t> out) override {
    std::size_t written = 0;
    while (written < out.size() && current < sources.size()) {
      const std::span<std::uint8_t> rest = out.subspan(written);
      const std::size_t got = sources[current]->Read(rest);
      written += got;
      current += got < rest.size() ? 1 : 0;
    }
    return written;
  }

 private:
  const std::vector<AudioSource> sources;
  std::size_t current = 0;
};

}  // namespace

AudioSource MakeChain(std::vector<AudioSource> sources) {
  return std::make_shared<CChain>(std::move(sources));
}

AudioSource MakeBytesSource(Bytes samples, bool loop) {
  return MakeBytesSource(std::make_shared<const Bytes>(std::move(samples)), loop);
}

AudioSource MakeBytesSource(std::shared_ptr<const Bytes> samples, bool loop) {
  return std::make_shared<CBytesSource>(std::move(samples), loop);
}

AudioSource MakeToneSource(std::vector<double> frequencies, double level) {
  return std::make_shared<CToneSource>(std::move(frequencies), level);
}

Bytes RenderSilence(int ms) {
  return Bytes(SamplesOf(ms), kSilence);
}

Bytes RenderTone(const std::vector<double>& frequencies, double level, int ms) {
  Bytes samples(SamplesOf(ms));
  CToneSource(frequencies, level).Read(samples);
  return samples;
}

Bytes RenderDtmf(std::string_view digits, int onMs, int offMs, double level) {
  return RenderDtmf(digits, {.onMs = onMs, .offMs = offMs, .level = level});
}

Bytes RenderTestPattern(std::size_t bytes, std::uint32_t seed) {
  Bytes samples(bytes);
  std::uint32_t state = seed * 2654435761U + 1;
  for (std::uint8_t& sample : samples) {
    state = state * 1664525U + 1013904223U;
    sample = static_cast<std::uint8_t>(state >> 24);
  }
  return samples;
}

}  // namespace cardsim

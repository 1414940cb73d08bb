// SPDX-License-Identifier: GPL-2.0-only

// The digit detector as the pacer uses it: 240 channels' blocks of 20 ms a pass, then each channel's digit. A card's
// blocks at once in every form, one channel after the other, and spandsp's receiver, which gets linear samples that
// somebody else has expanded. An item is a sample.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

// Each of these headers needs what those before it define.
// clang-format off
#include <spandsp/telephony.h>
#include <spandsp/logging.h>
#include <spandsp/complex.h>
#include <spandsp/tone_detect.h>
#include <spandsp/tone_generate.h>
#include <spandsp/super_tone_rx.h>
#include <spandsp/dtmf.h>
// clang-format on

#include "cardsim/audio/signals.h"
#include "dsp/dtmf_batch.h"
#include "formats/g711.h"

namespace {

using zelk::EInstructionSet;

constexpr size_t kChannels = 240;
constexpr size_t kBlocks = 25;  // of each channel, over and over
constexpr size_t kBytes = 160;
constexpr size_t kSamples = kBlocks * kBytes;

using Sound = std::vector<uint8_t>;  // one channel's
using Sounds = std::vector<Sound>;

enum class EKind { kNoise, kVoice, kTones, kIdle };

// -16 dBm0 of white noise.
Sound Noise(unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0, 2500);
  Sound sound(kSamples);
  for (uint8_t& byte : sound)
    byte = zelk::LinearToALaw(static_cast<int16_t>(normal(random)));
  return sound;
}

Sound Of(EKind kind, unsigned channel) {
  constexpr int kMs = static_cast<int>(kSamples / 8);
  switch (kind) {
    case EKind::kNoise:
      return Noise(channel);
    case EKind::kVoice: {
      const Sound speech = cardsim::RenderSpeech(-20, 10 * kMs, channel);
      const size_t from = kSamples * (channel % 10);
      return {speech.begin() + static_cast<ptrdiff_t>(from), speech.begin() + static_cast<ptrdiff_t>(from + kSamples)};
    }
    case EKind::kTones: {
      Sound digits = cardsim::RenderDtmf("123A456B789C*0#D", {.onMs = 60, .offMs = 60, .level = -10});
      const auto from = digits.begin() + static_cast<ptrdiff_t>(size_t{31} * channel % (digits.size() - kSamples));
      return {from, from + kSamples};
    }
    case EKind::kIdle:
      break;
  }
  return Sound(kSamples, zelk::kIdleByte);
}

const Sounds& SoundsOf(EKind kind) {
  static std::array<Sounds, 4> kinds;
  Sounds& sounds = kinds[static_cast<size_t>(kind)];
  for (unsigned channel = 0; sounds.size() < kChannels; ++channel)
    sounds.push_back(Of(kind, channel));
  return sounds;
}

// pass(block) for one block after the other, for all channels each.
template <class Pass>
void ForEachPass(benchmark::State& state, Pass pass) {
  size_t digits = 0;
  size_t block = 0;
  for (auto _ : state) {
    digits += pass(block);
    block = (block + 1) % kBlocks;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kChannels * kBytes));
  state.counters["digits"] = static_cast<double>(digits) / static_cast<double>(state.iterations());
}

std::vector<std::unique_ptr<zelk::CDtmfDecode>> Decoders(const Sounds& sounds) {
  std::vector<std::unique_ptr<zelk::CDtmfDecode>> decoders;
  for (size_t channel = 0; channel < kChannels; ++channel) {
    decoders.push_back(std::make_unique<zelk::CDtmfDecode>());
    decoders.back()->SetThresholds(zelk::SDtmfSettings());
    decoders.back()->Reset();
    // No two neighbours' blocks of 102 begin at the same place.
    decoders.back()->ProcessBlock(sounds[channel].data(), static_cast<uint32_t>(37 * channel % 102));
  }
  return decoders;
}

size_t TakeDigits(std::vector<std::unique_ptr<zelk::CDtmfDecode>>& decoders) {
  size_t digits = 0;
  for (auto& decoder : decoders)
    digits += decoder->TakeDigit() != 0 ? 1U : 0U;
  return digits;
}

void AtOnce(benchmark::State& state, EKind kind, EInstructionSet instructionSet) {
  if (!zelk::IsSupported(instructionSet)) {
    state.SkipWithError("not on this machine");
    return;
  }
  const Sounds& sounds = SoundsOf(kind);
  auto decoders = Decoders(sounds);
  std::array<zelk::SDigitJob, kChannels> jobs;
  ForEachPass(state, [&](size_t block) {
    for (size_t channel = 0; channel < kChannels; ++channel)
      jobs[channel] = {decoders[channel].get(), &sounds[channel][block * kBytes]};
    zelk::FindDigits(jobs.data(), jobs.size(), instructionSet);
    return TakeDigits(decoders);
  });
}

void OneChannel(benchmark::State& state, EKind kind) {
  const Sounds& sounds = SoundsOf(kind);
  auto decoders = Decoders(sounds);
  ForEachPass(state, [&](size_t block) {
    for (size_t channel = 0; channel < kChannels; ++channel)
      decoders[channel]->ProcessBlock(&sounds[channel][block * kBytes], kBytes);
    return TakeDigits(decoders);
  });
}

void Spandsp(benchmark::State& state, EKind kind) {
  std::vector<dtmf_rx_state_t*> receivers;
  std::vector<std::vector<int16_t>> sounds;
  for (const Sound& sound : SoundsOf(kind)) {
    receivers.push_back(dtmf_rx_init(nullptr, nullptr, nullptr));
    std::vector<int16_t>& linear = sounds.emplace_back();
    for (const uint8_t byte : sound)
      linear.push_back(zelk::ALawToLinear(byte));
  }
  ForEachPass(state, [&](size_t block) {
    size_t digits = 0;
    for (size_t channel = 0; channel < kChannels; ++channel) {
      dtmf_rx(receivers[channel], &sounds[channel][block * kBytes], kBytes);
      char heard[8];
      digits += dtmf_rx_get(receivers[channel], heard, sizeof heard - 1);
    }
    return digits;
  });
  for (dtmf_rx_state_t* receiver : receivers)
    dtmf_rx_free(receiver);
}

#define DIGIT_BENCHMARKS(name, kind)                                                                       \
  BENCHMARK_CAPTURE(AtOnce, avx2, kind, EInstructionSet::kAvx2)->Name("digits/" name "/avx2");             \
  BENCHMARK_CAPTURE(AtOnce, baseline, kind, EInstructionSet::kBaseline)->Name("digits/" name "/baseline"); \
  BENCHMARK_CAPTURE(AtOnce, plain, kind, EInstructionSet::kPlain)->Name("digits/" name "/plain");          \
  BENCHMARK_CAPTURE(OneChannel, one_channel, kind)->Name("digits/" name "/one_channel");                   \
  BENCHMARK_CAPTURE(Spandsp, spandsp, kind)->Name("digits/" name "/spandsp")

DIGIT_BENCHMARKS("noise", EKind::kNoise);
DIGIT_BENCHMARKS("voice", EKind::kVoice);
DIGIT_BENCHMARKS("tones", EKind::kTones);
DIGIT_BENCHMARKS("idle", EKind::kIdle);

}  // namespace

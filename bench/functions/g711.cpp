// SPDX-License-Identifier: GPL-2.0-only

// A minute of voice between the codes of each law and 16-bit samples: sample format conversion as files take it, each
// form of the blocks under it, and spandsp's functions. An item is a sample.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "formats/block_codec.h"
#include "formats/sample_format.h"
#include "unit/dsp/echo_signals.h"

// spandsp's headers name nothing that they need.
// clang-format off
#include <spandsp/telephony.h>
#include <spandsp/bit_operations.h>
#include <spandsp/g711.h>
// clang-format on

namespace {

using zelk::EInstructionSet;
using zelk::ESampleFormat;

constexpr double kSeconds = 60;

// The same sound in 16-bit samples and in the codes of a law.
struct SSound {
  explicit SSound(ESampleFormat law) : samples(zelk::echo::Speech(kSeconds, -16, 1)), codes(samples.size()) {
    zelk::BlockCodecs(EInstructionSet::kPlain).Of(law)->compress(Bytes(), codes.size(), codes.data());
  }
  uint8_t* Bytes() { return reinterpret_cast<uint8_t*>(samples.data()); }

  std::vector<int16_t> samples;
  std::vector<uint8_t> codes;
};

template <class Work>
void Run(benchmark::State& state, ESampleFormat law, Work work) {
  SSound sound(law);
  for (auto _ : state) {
    work(sound);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(sound.codes.size()));
}

void ExpandIn(benchmark::State& state, ESampleFormat law, EInstructionSet instructionSet) {
  if (!zelk::IsSupported(instructionSet))
    return state.SkipWithError("this processor has no AVX2");
  const zelk::SBlockCodec* const codec = zelk::BlockCodecs(instructionSet).Of(law);
  Run(state, law, [codec](SSound& sound) { codec->expand(sound.codes.data(), sound.codes.size(), sound.Bytes()); });
}

void CompressIn(benchmark::State& state, ESampleFormat law, EInstructionSet instructionSet) {
  if (!zelk::IsSupported(instructionSet))
    return state.SkipWithError("this processor has no AVX2");
  const zelk::SBlockCodec* const codec = zelk::BlockCodecs(instructionSet).Of(law);
  Run(state, law, [codec](SSound& sound) { codec->compress(sound.Bytes(), sound.codes.size(), sound.codes.data()); });
}

void ExpandInSpandsp(benchmark::State& state, ESampleFormat law) {
  g711_state_t* const spandsp = g711_init(nullptr, law == ESampleFormat::kALaw ? G711_ALAW : G711_ULAW);
  Run(state, law, [spandsp](SSound& sound) {
    g711_decode(spandsp, sound.samples.data(), sound.codes.data(), static_cast<int>(sound.codes.size()));
  });
  g711_free(spandsp);
}

void CompressInSpandsp(benchmark::State& state, ESampleFormat law) {
  g711_state_t* const spandsp = g711_init(nullptr, law == ESampleFormat::kALaw ? G711_ALAW : G711_ULAW);
  Run(state, law, [spandsp](SSound& sound) {
    g711_encode(spandsp, sound.codes.data(), sound.samples.data(), static_cast<int>(sound.codes.size()));
  });
  g711_free(spandsp);
}

// The conversion takes its input, which is made anew while the clock stands.
void Convert(benchmark::State& state, ESampleFormat law, bool expand) {
  const char* const name = law == ESampleFormat::kALaw ? "ALAW" : "MULAW";
  Run(state, law, [&state, name, expand](SSound& sound) {
    state.PauseTiming();
    const uint8_t* const from = expand ? sound.codes.data() : sound.Bytes();
    const size_t bytes = sound.codes.size() * (expand ? 1 : 2);
    zelk::SampleBuffer input(new uint8_t[bytes]);
    std::copy_n(from, bytes, input.get());
    state.ResumeTiming();
    benchmark::DoNotOptimize(zelk::ConvertSamples(expand ? "PCM16" : name, expand ? name : "PCM16", std::move(input),
                                                  static_cast<uint32_t>(bytes)));
  });
}

constexpr auto kA = ESampleFormat::kALaw;
constexpr auto kMu = ESampleFormat::kMuLaw;

BENCHMARK_CAPTURE(Convert, , kA, true)->Name("g711/expand_alaw/convert");
BENCHMARK_CAPTURE(ExpandIn, , kA, EInstructionSet::kAvx2)->Name("g711/expand_alaw/avx2");
BENCHMARK_CAPTURE(ExpandIn, , kA, EInstructionSet::kBaseline)->Name("g711/expand_alaw/baseline");
BENCHMARK_CAPTURE(ExpandIn, , kA, EInstructionSet::kPlain)->Name("g711/expand_alaw/plain");
BENCHMARK_CAPTURE(ExpandInSpandsp, , kA)->Name("g711/expand_alaw/spandsp");
BENCHMARK_CAPTURE(Convert, , kA, false)->Name("g711/compress_alaw/convert");
BENCHMARK_CAPTURE(CompressIn, , kA, EInstructionSet::kAvx2)->Name("g711/compress_alaw/avx2");
BENCHMARK_CAPTURE(CompressIn, , kA, EInstructionSet::kBaseline)->Name("g711/compress_alaw/baseline");
BENCHMARK_CAPTURE(CompressIn, , kA, EInstructionSet::kPlain)->Name("g711/compress_alaw/plain");
BENCHMARK_CAPTURE(CompressInSpandsp, , kA)->Name("g711/compress_alaw/spandsp");
BENCHMARK_CAPTURE(Convert, , kMu, true)->Name("g711/expand_mulaw/convert");
BENCHMARK_CAPTURE(ExpandIn, , kMu, EInstructionSet::kAvx2)->Name("g711/expand_mulaw/avx2");
BENCHMARK_CAPTURE(ExpandIn, , kMu, EInstructionSet::kBaseline)->Name("g711/expand_mulaw/baseline");
BENCHMARK_CAPTURE(ExpandIn, , kMu, EInstructionSet::kPlain)->Name("g711/expand_mulaw/plain");
BENCHMARK_CAPTURE(ExpandInSpandsp, , kMu)->Name("g711/expand_mulaw/spandsp");
BENCHMARK_CAPTURE(Convert, , kMu, false)->Name("g711/compress_mulaw/convert");
BENCHMARK_CAPTURE(CompressIn, , kMu, EInstructionSet::kAvx2)->Name("g711/compress_mulaw/avx2");
BENCHMARK_CAPTURE(CompressIn, , kMu, EInstructionSet::kBaseline)->Name("g711/compress_mulaw/baseline");
BENCHMARK_CAPTURE(CompressIn, , kMu, EInstructionSet::kPlain)->Name("g711/compress_mulaw/plain");
BENCHMARK_CAPTURE(CompressInSpandsp, , kMu)->Name("g711/compress_mulaw/spandsp");

}  // namespace

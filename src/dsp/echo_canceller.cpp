// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/echo_canceller.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "formats/g711.h"
#include "platform/instruction_set.h"
#include "runtime/config.h"
#include "runtime/e1.h"

// Each of these headers needs what those before it define, and <cstring>.
// clang-format off
#include <spandsp/telephony.h>
#include <spandsp/echo.h>
#include <spandsp/private/echo.h>
// clang-format on

// The build compiles the canceller once for every instruction set and ends its public names with the set's.
extern "C" {
int16_t echo_can_update_base(echo_can_state_t* state, int16_t sent, int16_t received);
int16_t echo_can_update_avx2(echo_can_state_t* state, int16_t sent, int16_t received);
}

namespace zelk {
namespace {

using UpdateFunction = int16_t (*)(echo_can_state_t*, int16_t, int16_t);

const UpdateFunction kUpdate =
    BestInstructionSet() == EInstructionSet::kAvx2 ? echo_can_update_avx2 : echo_can_update_base;

constexpr int32_t kTapsPerMs = kSampleRate / 1000;
static_assert(kMinEchoTailMs * kTapsPerMs == 256 && kMaxEchoTailMs * kTapsPerMs == CDoubleTalkDetector::kMaxTaps);

constexpr int kDwell = 2;  // one of them is counted down before it is looked at
constexpr int32_t kLoudest = 1 << 30;

// Chosen by measurement, in the figures that double_talk_detector.cpp explains, as all values below.
// The step, by the tail's energy: a whole one is 2^30, this makes it a half to a whole one. A quarter to a half: words
// 30, changed 25 dB. One to two: soft 12.6, changed 17 dB, but soon 23 dB.
constexpr int kStepShift = 30;
constexpr int kDivisorBits = 8;  // what the canceller shifts out of the divisor's top bit

// Levels are mean magnitudes of 16-bit samples; a sine at full scale is 3.14 dBm0 (G.711).
constexpr float kLevelPace =
    1.0F / 64;  // levels follow within 8 ms; with 2 and 32 ms all is within 1 dB but changed: 30, 26
// 24 dB, an amplitude ratio. 12 dB: what is clipped is the near end, soft 9 dB. 30 dB: words 28 dB. 36 dB: voices 31
// dB.
constexpr float kSuppressedRatio = 16;
constexpr float kQuietSent = 64;  // about -48 dBm0: below it nothing worth an echo is sent. 12 dB either way: the same
// Speech has pauses, so the lowest levels are the noise: down within 32 ms (8 and 128 ms: the same), up by about 3 dB a
// second. A fourth of that, and noise of -50 dBm0 that a caller heard for 4 s comes through at -66 dBm0 when the far
// end begins, not at -53; four times, and an echo after double talk is cancelled by 36 dB, not by 40.
constexpr float kNoiseFallPace = 1.0F / 256;
constexpr float kNoiseRisePace = 1.0F / 20000;
constexpr float kLeastNoise = 8;   // A-law's smallest value
constexpr float kMostNoise = 160;  // about -40 dBm0: louder is not background. 12 dB either way: the same

constexpr int kEchoFraction = 8;  // bits after the point of the echo that has its low sounds back

int32_t TapsOf(int32_t tailMs) {
  return std::clamp(tailMs, kMinEchoTailMs, kMaxEchoTailMs) * kTapsPerMs;
}

// A canceller's memory, each part at the beginning of a cache line: the taps in 32 bits, four sets of them in 16 bits,
// the history twice, and the maxima of the double-talk detector.
constexpr size_t kLineBytes = 64;
constexpr size_t kTapSets = 4;

constexpr size_t Lines(size_t bytes) {
  return (bytes + kLineBytes - 1) / kLineBytes * kLineBytes;
}

// What comes next of a memory, as an array of this many; moves on behind it.
template <class Element>
Element* Take(uint8_t*& memory, size_t count) {
  auto* const array = reinterpret_cast<Element*>(memory);
  memory += Lines(count * sizeof(Element));
  return array;
}

uint8_t* AtLine(uint8_t* memory) {
  const auto address = reinterpret_cast<uintptr_t>(memory);
  return memory + (Lines(address) - address);
}

// As the canceller's own init leaves it, but on a memory; moves on behind what it took.
echo_can_state_t* MakeState(std::byte* place, int32_t taps, uint8_t*& memory) {
  memory = AtLine(memory);
  const auto count = static_cast<size_t>(taps);
  auto* const state = new (place) echo_can_state_t{};
  state->taps = taps;
  state->tap_mask = taps - 1;
  state->curr_pos = taps - 1;
  state->fir_taps32 = Take<int32_t>(memory, count);
  for (int16_t*& set : state->fir_taps16)
    set = Take<int16_t>(memory, count);
  state->fir_state = {taps, taps - 1, state->fir_taps16[0], Take<int16_t>(memory, 2 * count)};
  state->rx_power_threshold = 10000000;
  state->tap_rotate_counter = 1600;
  state->cng_level = 1000;
  state->adaption_mode = ECHO_CAN_USE_ADAPTION;
  return state;
}

int16_t Saturate(int32_t value) {
  return static_cast<int16_t>(
      std::clamp<int32_t>(value, std::numeric_limits<int16_t>::min(), std::numeric_limits<int16_t>::max()));
}

}  // namespace

int16_t CEchoCanceller::STilt::Apply(int16_t sample) {
  const int16_t tilted = Saturate(sample - before / 2);
  before = sample;
  return tilted;
}

void CEchoCanceller::SFree::operator()(uint8_t* memory) const {
  std::free(memory);
}

size_t CEchoCanceller::MemoryBytes(int32_t tailMs) {
  const int32_t taps = TapsOf(tailMs);
  const auto count = static_cast<size_t>(taps);
  return Lines(count * sizeof(int32_t)) + kTapSets * Lines(count * sizeof(int16_t)) +
         Lines(2 * count * sizeof(int16_t)) + Lines(CDoubleTalkDetector::StretchesOf(taps) * sizeof(int32_t));
}

CEchoCanceller::Memory CEchoCanceller::NewMemory(size_t count, int32_t tailMs) {
  return Memory(static_cast<uint8_t*>(std::calloc(count * MemoryBytes(tailMs) + kLineBytes, 1)));
}

std::unique_ptr<CEchoCanceller> CEchoCanceller::Create(int32_t tailMs) {
  Memory memory = NewMemory(1, tailMs);
  if (memory == nullptr)
    return nullptr;
  std::unique_ptr<CEchoCanceller> made(new (std::nothrow) CEchoCanceller(tailMs, memory.get()));
  if (made != nullptr)
    made->ownMemory = std::move(memory);
  return made;
}

CEchoCanceller::CEchoCanceller(int32_t tailMs, uint8_t* memory)
    : taps(TapsOf(tailMs)),
      canceller(MakeState(state.data(), taps, memory)),
      doubleTalk(taps, reinterpret_cast<int32_t*>(memory)),
      tailDecay(1.0F - 1.0F / static_cast<float>(taps)) {
  static_assert(sizeof(echo_can_state_t) <= kStateBytes && std::is_trivially_destructible_v<echo_can_state_t>);
}

int16_t CEchoCanceller::Update(int16_t sent, int16_t received) {
  const int32_t residual = CancelLinear(sent, received);
  TrackLevels(sent, residual);
  if (residualNow * kSuppressedRatio > sentInTail)
    return static_cast<int16_t>(residual);
  const auto limit = static_cast<int32_t>(noise);
  return static_cast<int16_t>(std::clamp(residual, -limit, limit));
}

// Most of a voice's power lies in its low sounds, and of the others the filter would learn little for long. So both
// sides go through the filter with the low ones weakened, and the echo that it finds gets them back.
int32_t CEchoCanceller::CancelLinear(int16_t sent, int16_t received) {
  const int16_t echo = EstimateEcho(sentTilt.Apply(sent), receivedTilt.Apply(received));
  constexpr int32_t kOne = 1 << kEchoFraction;
  echoNow = echo * kOne + echoNow / 2;
  return Saturate(received - ((echoNow + kOne / 2) >> kEchoFraction));
}

// What the filter says is the echo, as weakened as its input.
int16_t CEchoCanceller::EstimateEcho(int16_t sent, int16_t received) {
  // The double-talk detector decides in place of the canceller's own test. With what is sent just now at its loudest
  // that test finds no near end; the canceller does not learn while its dwell count runs, and goes back to older taps
  // only where an onset begins.
  canceller->tx_power[0] = kLoudest;
  canceller->tx_power[1] = kLoudest;
  canceller->nonupdate_dwell = doubleTalk.MayLearn(sent, received) ? 0 : kDwell;
  canceller->dtd_onset = 1;
  // Its test for tones finds them in vowels, and it learns nothing while the score stands: voices would take twice as
  // long. What it learns from a tone does no harm to the rest. After a long one it would also go back to older taps,
  // and index its sets with -1 if the first is in use.
  canceller->narrowband_score = 0;
  SetStep(sent);
  const int16_t wrapped = kUpdate(canceller, sent, received);
  // It returns the difference in 16 bits and lets it wrap into a click. The echo it took away fits 16 bits, so it can
  // be had back exactly.
  const auto echo = static_cast<int16_t>(static_cast<uint16_t>(received) - static_cast<uint16_t>(wrapped));
  doubleTalk.Note(echo, Saturate(int32_t{received} - echo));
  return echo;
}

// The canceller divides its step by the mean size of the last 32 samples, but the step acts on the whole tail. After a
// loud syllable it would be many times what is stable, and the filter louder than the echo. The divisor, whose top bit
// alone counts, is set to what the tail's energy allows.
void CEchoCanceller::SetStep(int16_t sent) {
  const int32_t leaving = canceller->fir_state.history[canceller->fir_state.curr_pos];
  tailEnergy += int64_t{sent} * sent - int64_t{leaving} * leaving;
  const int shift = std::max(static_cast<int>(std::bit_width(static_cast<uint64_t>(tailEnergy))) - kStepShift, 0);
  // Halfway up its octave, so that the canceller's own smoothing leaves the top bit as it is.
  canceller->tx_power[3] = 3 << (shift + kDivisorBits - 1);
}

void CEchoCanceller::TrackLevels(int16_t sent, int32_t residual) {
  sentNow += (static_cast<float>(std::abs(int32_t{sent})) - sentNow) * kLevelPace;
  residualNow += (static_cast<float>(std::abs(residual)) - residualNow) * kLevelPace;
  sentInTail = std::max(sentNow, sentInTail * tailDecay);
  // While something is sent the residual holds its echo, which must not pass for noise.
  if (sentInTail > kQuietSent)
    return;
  noise += residualNow < noise ? (residualNow - noise) * kNoiseFallPace : noise * kNoiseRisePace;
  noise = std::clamp(noise, kLeastNoise, kMostNoise);
}

void CEchoCanceller::Process(uint8_t* received, const uint8_t* sent, size_t count, size_t sentCount, size_t stride) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t reference = i < sentCount ? sent[i * stride] : kIdleByte;
    uint8_t& sample = received[i * stride];
    sample = LinearToALaw(Update(ALawToLinear(reference), ALawToLinear(sample)));
  }
}

}  // namespace zelk

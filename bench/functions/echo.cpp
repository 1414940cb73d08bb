// SPDX-License-Identifier: GPL-2.0-only

// The echo cancellers of a trunk, a packet of an eight-trunk card after the other: noise is sent on every timeslot and
// its echo comes back 8 ms later, so that each learns from every sample. Ours with all that goes with it, between A-law
// and A-law, and the adaptive filter of spandsp alone, on linear samples. An item is a sample of one timeslot; channels
// are the timeslots that one core carries.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/echo_canceller.h"
#include "formats/g711.h"
#include "runtime/e1.h"
#include "unit/dsp/echo_signals.h"

// The release as it is, with its own loops.
extern "C" {
void* echo_can_init_plain(int taps, int mode);
int echo_can_free_plain(void* state);
int16_t echo_can_update_plain(void* state, int16_t sent, int16_t received);
}

namespace {

using zelk::kTimeslotsPerTrunk;

constexpr size_t kFrames = 5;
constexpr size_t kStride = size_t{8} * kTimeslotsPerTrunk;
constexpr size_t kPackets = 1600;
constexpr int kAdaption = 1;

// A second of one direction of a trunk in linear samples and in the packets of its card.
struct SDirection {
  explicit SDirection(const zelk::echo::Signal& sound) : linear(sound), packets(sound.size() * kStride) {
    for (size_t frame = 0; frame < sound.size(); ++frame) {
      for (size_t timeslot = 0; timeslot < kTimeslotsPerTrunk; ++timeslot)
        packets[frame * kStride + timeslot] = zelk::LinearToALaw(linear[frame]);
    }
  }
  zelk::echo::Signal linear;
  std::vector<uint8_t> packets;
};

const SDirection& Sent() {
  static const SDirection sent(zelk::echo::Line(zelk::echo::Noise(double{kPackets * kFrames} / 8000, -14)));
  return sent;
}

const SDirection& Received() {
  static const SDirection received(zelk::echo::Line(zelk::echo::Echo(Sent().linear, 8)));
  return received;
}

// Runs one packet an iteration.
template <class Packet>
void ForEachPacket(benchmark::State& state, Packet packet) {
  size_t at = 0;
  for (auto _ : state) {
    packet(at * kFrames);
    at = (at + 1) % kPackets;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kFrames * kTimeslotsPerTrunk));
  state.counters["channels"] = benchmark::Counter(static_cast<double>(kFrames * kTimeslotsPerTrunk) / 8000,
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

void Library(benchmark::State& state, int taps) {
  std::array<std::unique_ptr<zelk::CEchoCanceller>, kTimeslotsPerTrunk> cancellers;
  for (auto& canceller : cancellers)
    canceller = zelk::CEchoCanceller::Create(taps / 8);
  const SDirection& sent = Sent();
  std::vector<uint8_t> received = Received().packets;
  std::array<uint8_t, kFrames * kStride> packet{};
  ForEachPacket(state, [&](size_t frame) {
    std::copy_n(&received[frame * kStride], packet.size(), packet.begin());
    for (size_t timeslot = 0; timeslot < kTimeslotsPerTrunk; ++timeslot) {
      cancellers[timeslot]->Process(&packet[timeslot], &sent.packets[frame * kStride + timeslot], kFrames, kFrames,
                                    kStride);
    }
    benchmark::DoNotOptimize(packet);
  });
}

void Spandsp(benchmark::State& state, int taps) {
  std::array<void*, kTimeslotsPerTrunk> cancellers;
  for (void*& canceller : cancellers)
    canceller = echo_can_init_plain(taps, kAdaption);
  const zelk::echo::Signal& sent = Sent().linear;
  const zelk::echo::Signal& received = Received().linear;
  ForEachPacket(state, [&](size_t frame) {
    for (void* const canceller : cancellers) {
      for (size_t i = frame; i < frame + kFrames; ++i)
        benchmark::DoNotOptimize(echo_can_update_plain(canceller, sent[i], received[i]));
    }
  });
  for (void* const canceller : cancellers)
    echo_can_free_plain(canceller);
}

BENCHMARK_CAPTURE(Library, , 256)->Name("echo/256/library");
BENCHMARK_CAPTURE(Spandsp, , 256)->Name("echo/256/spandsp");
BENCHMARK_CAPTURE(Library, , 512)->Name("echo/512/library");
BENCHMARK_CAPTURE(Spandsp, , 512)->Name("echo/512/spandsp");
BENCHMARK_CAPTURE(Library, , 1024)->Name("echo/1024/library");
BENCHMARK_CAPTURE(Spandsp, , 1024)->Name("echo/1024/spandsp");

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "echo_literal.h"
#include "echo_signals.h"
#include "platform/instruction_set.h"

// The other builds of the canceller, by the names that the build gives them.
extern "C" {
echo_can_state_t* echo_can_init_base(int taps, int mode);
int echo_can_free_base(echo_can_state_t* state);
void echo_can_flush_base(echo_can_state_t* state);
int16_t echo_can_update_base(echo_can_state_t* state, int16_t sent, int16_t received);
echo_can_state_t* echo_can_init_avx2(int taps, int mode);
int echo_can_free_avx2(echo_can_state_t* state);
void echo_can_flush_avx2(echo_can_state_t* state);
int16_t echo_can_update_avx2(echo_can_state_t* state, int16_t sent, int16_t received);
}

namespace zelk {
namespace {

using namespace echo;

struct SBuild {
  const char* name;
  EInstructionSet instructionSet;
  echo_can_state_t* (*init)(int, int);
  int (*free)(echo_can_state_t*);
  void (*flush)(echo_can_state_t*);
  int16_t (*update)(echo_can_state_t*, int16_t, int16_t);
};

constexpr std::array<SBuild, 3> kBuilds{{
    {"plain", EInstructionSet::kPlain, echo_can_init_plain, echo_can_free_plain, echo_can_flush_plain,
     echo_can_update_plain},
    {"base", EInstructionSet::kBaseline, echo_can_init_base, echo_can_free_base, echo_can_flush_base,
     echo_can_update_base},
    {"avx2", EInstructionSet::kAvx2, echo_can_init_avx2, echo_can_free_avx2, echo_can_flush_avx2, echo_can_update_avx2},
}};

// One canceller of each build that this machine runs, the plain one first.
class CSameCancellers {
 public:
  explicit CSameCancellers(int taps) {
    for (const SBuild& build : kBuilds) {
      if (IsSupported(build.instructionSet))
        members.push_back({&build, build.init(taps, ECHO_CAN_USE_ADAPTION)});
    }
  }
  ~CSameCancellers() {
    for (const SMember& member : members)
      member.build->free(member.state);
  }
  CSameCancellers(const CSameCancellers&) = delete;
  CSameCancellers& operator=(const CSameCancellers&) = delete;

  template <class Change>
  void ForEach(Change change) {
    for (const SMember& member : members)
      change(*member.state);
  }
  void Flush() {
    for (const SMember& member : members)
      member.build->flush(member.state);
  }
  // One sample through each; all return the same. They never go back to older taps, as CEchoCanceller has it: the
  // release finds those with an index of -1 if its first set is in use.
  void Update(int16_t sent, int16_t received) {
    ForEach([](echo_can_state_t& state) {
      state.dtd_onset = 1;
      state.narrowband_score = 0;
    });
    const int16_t expected = members[0].build->update(members[0].state, sent, received);
    for (size_t i = 1; i < members.size(); ++i)
      ASSERT_EQ(members[i].build->update(members[i].state, sent, received), expected) << members[i].build->name;
  }
  // What they have learnt is the same.
  void ExpectSameTaps() const {
    const echo_can_state_t& plain = *members[0].state;
    const auto bytes = [&plain](size_t size) { return static_cast<size_t>(plain.taps) * size; };
    for (const SMember& member : members) {
      const echo_can_state_t& other = *member.state;
      ASSERT_EQ(std::memcmp(other.fir_taps32, plain.fir_taps32, bytes(sizeof(int32_t))), 0) << member.build->name;
      for (size_t set = 0; set < 4; ++set) {
        ASSERT_EQ(std::memcmp(other.fir_taps16[set], plain.fir_taps16[set], bytes(sizeof(int16_t))), 0)
            << member.build->name << " set " << set;
      }
      ASSERT_EQ(std::memcmp(other.fir_state.history, plain.fir_state.history, bytes(sizeof(int16_t))), 0)
          << member.build->name;
    }
  }

 private:
  struct SMember {
    const SBuild* build;
    echo_can_state_t* state;
  };
  std::vector<SMember> members;
};

// 264 and 8000 are no multiples of a wide register, or of two.
constexpr std::array kTaps{256, 264, 272, 512, 1024, 8000, 8192};

void ExpectSame(const Signal& sent, const Signal& received) {
  for (const int taps : kTaps) {
    SCOPED_TRACE(taps);
    CSameCancellers cancellers(taps);
    for (size_t i = 0; i < sent.size(); ++i)
      ASSERT_NO_FATAL_FAILURE(cancellers.Update(sent[i], received[i])) << i;
    cancellers.ExpectSameTaps();
  }
}

TEST(EchoVariants, TheSameOnSpeechAndItsEcho) {
  const Signal sent = Line(Speech(2, -12, 3));
  ExpectSame(sent, Line(Add(Echo(sent, 16), Noise(2, -40))));
}

TEST(EchoVariants, TheSameInDoubleTalk) {
  const Signal sent = Line(Speech(2, -12, 3));
  ExpectSame(sent, Line(Add(Echo(sent, 30), Speech(2, -14, 4))));
}

TEST(EchoVariants, TheSameOnNoiseAtEveryLevel) {
  Signal sent;
  for (const double level : {-60.0, -30.0, -10.0, 0.0, 3.0}) {
    const Signal noise = Noise(0.3, level);
    sent.insert(sent.end(), noise.begin(), noise.end());
  }
  ExpectSame(sent, Echo(sent, 8));
}

TEST(EchoVariants, TheSameOnTonesThatComeAndGo) {
  Signal sent(static_cast<size_t>(2 * kRate));
  for (size_t i = 0; i < sent.size(); ++i) {
    const double phase = 2 * std::numbers::pi * static_cast<double>(i) / kRate;
    const double tones = i / 2000 % 4 == 3 ? 0 : std::sin(phase * 697) + std::sin(phase * 1209);
    sent[i] = static_cast<int16_t>(6000 * tones);
  }
  ExpectSame(sent, Add(Echo(sent, 12), Noise(2, -50)));
}

TEST(EchoVariants, TheSameOnAnySampleWhatever) {
  std::mt19937 random(9);
  Signal sent(16000);
  Signal received(sent.size());
  for (int16_t& sample : sent)
    sample = static_cast<int16_t>(random());
  for (int16_t& sample : received)
    sample = static_cast<int16_t>(random());
  ExpectSame(sent, received);
}

TEST(EchoVariants, TheSameOnTheOutermostSamples) {
  constexpr std::array<int16_t, 6> kExtremes{-32768, 32767, 0, -1, 1, 32635};
  std::mt19937 random(4);
  Signal sent(16000);
  Signal received(sent.size());
  for (int16_t& sample : sent)
    sample = kExtremes[random() % kExtremes.size()];
  for (int16_t& sample : received)
    sample = kExtremes[random() % kExtremes.size()];
  ExpectSame(sent, received);
}

void LearnFromTheNext(echo_can_state_t& state, int divisor) {
  state.tx_power[0] = state.tx_power[1] = 1 << 30;
  state.tx_power[3] = divisor;
  state.rx_power[0] = 0;
  state.nonupdate_dwell = 0;
}

// Any taps at all, learning at every sample with the smallest divisor: what overflows does so alike.
TEST(EchoVariants, TheSameWithTapsThatNothingTaught) {
  std::mt19937 random(5);
  for (const int taps : kTaps) {
    SCOPED_TRACE(taps);
    CSameCancellers cancellers(taps);
    for (int i = 0; i < 600; ++i) {
      const auto seed = static_cast<unsigned>(random());
      cancellers.ForEach([&](echo_can_state_t& state) {
        if (i % 100 == 0) {
          std::mt19937 tapValues(seed);
          std::generate_n(state.fir_taps32, taps, [&] { return static_cast<int32_t>(tapValues()); });
          std::generate_n(state.fir_taps16[state.tap_set], taps, [&] { return static_cast<int16_t>(tapValues()); });
        }
        LearnFromTheNext(state, 384);
      });
      ASSERT_NO_FATAL_FAILURE(cancellers.Update(static_cast<int16_t>(random()), static_cast<int16_t>(random()))) << i;
      ASSERT_NO_FATAL_FAILURE(cancellers.ExpectSameTaps()) << i;
    }
  }
}

// 32767 less an echo of -32768, and the other way round: the largest steps there are.
TEST(EchoVariants, TheSameWithTheLargestStepsBothWays) {
  struct SStep {
    std::array<int16_t, 2> taps;
    int16_t received;
    int32_t step;
  };
  for (const SStep& largest : {SStep{{16384, 16384}, 32767, 65535}, SStep{{-16384, -16383}, -32768, -65535}}) {
    CSameCancellers cancellers(256);
    cancellers.Update(-32768, 0);
    cancellers.Update(-32768, 0);
    cancellers.ForEach([&largest](echo_can_state_t& state) {
      LearnFromTheNext(state, 0);
      std::fill_n(state.fir_taps32, 256, 0);
      std::fill_n(state.fir_taps16[0], 256, int16_t{0});
      std::copy(largest.taps.begin(), largest.taps.end(), state.fir_taps16[0] + 1);
    });
    ASSERT_NO_FATAL_FAILURE(cancellers.Update(1, largest.received));
    cancellers.ExpectSameTaps();
    cancellers.ForEach(
        [&largest](const echo_can_state_t& state) { EXPECT_EQ(state.fir_taps32[1] / -32768, largest.step); });
  }
}

TEST(EchoVariants, AFlushForgetsEverySampleInEachBuild) {
  const Signal sent = Noise(0.2, -10);
  const Signal received = Echo(sent, 8);
  CSameCancellers flushed(264);
  for (size_t i = 0; i < sent.size(); ++i)
    ASSERT_NO_FATAL_FAILURE(flushed.Update(sent[i], received[i]));
  flushed.Flush();
  for (size_t i = 0; i < sent.size(); ++i)
    ASSERT_NO_FATAL_FAILURE(flushed.Update(sent[i], received[i])) << i;
  flushed.ExpectSameTaps();
}

}  // namespace
}  // namespace zelk

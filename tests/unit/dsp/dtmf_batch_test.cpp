// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_batch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "dtmf_signals.h"
#include "dtmf_sounds.h"
#include "formats/g711.h"
#include "support/allocation_probe.h"

// A card's blocks at once against the literal form of the detector, one sample after the other.
namespace zelk {
namespace {

using namespace dtmf;

constexpr size_t kDelivery = CLineSounds::kDelivery;
constexpr size_t kPositions = CLineSounds::kLines;

std::vector<EInstructionSet> Supported() {
  std::vector<EInstructionSet> sets;
  for (const auto set : {EInstructionSet::kPlain, EInstructionSet::kBaseline, EInstructionSet::kAvx2}) {
    if (IsSupported(set))
      sets.push_back(set);
  }
  return sets;
}

// Thresholds as users have them, some that nearly everything passes, and some that make no sense.
SDtmfSettings SettingsOf(size_t position) {
  constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
  constexpr float kInfinite = std::numeric_limits<float>::infinity();
  const std::array<SDtmfSettings, 12> settings = {SDtmfSettings(),
                                                  SDtmfSettings(),
                                                  kUnsetDtmf,
                                                  {100, 100, 1, 1, 0.5F},
                                                  {1e6F, 1e6F, 0, 0, 0},
                                                  {3, 3, 2, 2, 30},
                                                  {20, 20, 3, 3, 20},
                                                  {8, 8, 2, 2, -40},
                                                  {-2, 7, 6.3F, 6.3F, 40},
                                                  {kInfinite, kInfinite, 1, 1, 10},
                                                  {kNone, 7, 1, 1, 1},
                                                  {1000, 1000, -1000, -1000, 1}};
  return settings[position % settings.size()];
}

// One form's decoders of all positions.
struct SForm {
  explicit SForm(EInstructionSet set) : instructionSet(set) {
    for (size_t i = 0; i < kPositions; ++i) {
      decoders.push_back(std::make_unique<CDtmfDecode>());
      decoders.back()->SetThresholds(SettingsOf(i));
    }
  }
  EInstructionSet instructionSet;
  std::vector<std::unique_ptr<CDtmfDecode>> decoders;
};

class DtmfBatch : public testing::Test {
 protected:
  DtmfBatch() {
    for (const EInstructionSet set : Supported())
      forms.emplace_back(set);
    for (size_t i = 0; i < kPositions; ++i)
      literals.emplace_back(SettingsOf(i));
  }

  // A delivery for so many positions from this one on: each position's digits after it are those of the literal form.
  void Deliver(size_t first, size_t count) {
    std::array<std::string, kPositions> expected;
    for (size_t i = first; i < first + count; ++i) {
      sounds.Fill(i, blocks[i].data());
      if (random() % 8 == 0)
        MakeSteady(i);
      for (const uint8_t byte : blocks[i])
        literals[i].Process(ALawToLinear(byte));
      std::swap(expected[i], literals[i].digits);
      digits += expected[i].size();
    }
    for (SForm& form : forms) {
      std::vector<SDigitJob> jobs;
      for (size_t i = first; i < first + count; ++i)
        jobs.push_back({form.decoders[i].get(), blocks[i].data(), Known(i)});
      FindDigits(jobs.data(), jobs.size(), form.instructionSet);
      for (size_t i = first; i < first + count; ++i)
        ASSERT_EQ(TakeAll(*form.decoders[i]), expected[i]) << "form " << static_cast<int>(form.instructionSet);
    }
    samples += count * kDelivery;
  }

  // The bytes of a line at rest are all the same: quiet mostly, at times as loud as may be, a few deliveries in a row.
  void MakeSteady(size_t position) {
    constexpr std::array<uint8_t, 8> kBytes = {0xD5, 0xD5, 0xD5, 0x55, 0x54, 0x5D, 0x5E, 0x2A};
    const size_t last = random() % 4 == 0 ? random() % kBytes.size() : 0;
    blocks[position].fill(kBytes[last]);
  }
  // What the delivery's opener may know of its bytes.
  int16_t Known(size_t position) {
    const auto& block = blocks[position];
    const bool isSteady = std::equal(block.begin() + 1, block.end(), block.begin());
    steady += isSteady ? 1 : 0;
    return isSteady && random() % 8 != 0 ? int16_t{block[0]} : int16_t{-1};
  }

  // Fewer bytes than a delivery in between, which leave the blocks of 102 elsewhere among the deliveries.
  void Bytes(size_t position, size_t count) {
    sounds.Fill(position, blocks[position].data());
    for (size_t i = 0; i < count; ++i)
      literals[position].Process(ALawToLinear(blocks[position][i]));
    for (SForm& form : forms)
      form.decoders[position]->ProcessBlock(blocks[position].data(), static_cast<uint32_t>(count));
  }

  // The same with linear samples.
  void Linear(size_t position, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      const auto sample = static_cast<int16_t>(random());
      literals[position].Process(sample);
      for (SForm& form : forms)
        form.decoders[position]->Process(sample);
    }
  }

  void SetNotches(size_t position, bool on) {
    literals[position].filterDialTone = on;
    for (SForm& form : forms)
      form.decoders[position]->SetDialToneFilter(on);
  }

  void RunOver(size_t wanted) {
    while (samples < wanted) {
      const size_t count = 1 + random() % kPositions;
      ASSERT_NO_FATAL_FAILURE(Deliver(random() % (kPositions - count + 1), count));
      if (random() % 10 == 0)
        Linear(random() % kPositions, random() % 110);
      if (random() % 2 == 0)
        Bytes(random() % kPositions, random() % 110);
    }
  }

  std::mt19937 random{7};
  CLineSounds sounds{8};
  std::vector<SForm> forms;
  std::vector<CLiteralDetector> literals;
  std::array<std::array<uint8_t, kDelivery>, kPositions> blocks{};
  size_t samples = 0;
  size_t digits = 0;
  size_t steady = 0;
};

// ZELK_DTMF_SAMPLES=1000000000 makes it the long one.
TEST_F(DtmfBatch, HearsWhatTheLiteralFormHears) {
  const char* wanted = std::getenv("ZELK_DTMF_SAMPLES");
  RunOver(wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : 10000000);
  EXPECT_GT(digits, samples / 20000);
  EXPECT_GT(steady, samples / 20000);
  std::printf("%zu samples, %zu digits, %zu forms\n", samples, digits, forms.size());
}

TEST_F(DtmfBatch, HearsThroughTheDialToneFilterWhatTheLiteralFormHears) {
  for (int i = 0; i < 300; ++i) {
    ASSERT_NO_FATAL_FAILURE(RunOver(samples + 4000));
    SetNotches(random() % kPositions, random() % 2 == 0);
  }
  EXPECT_GT(digits, 50U);
}

TEST_F(DtmfBatch, BeginsAnewAfterAReset) {
  for (int i = 0; i < 100; ++i) {
    ASSERT_NO_FATAL_FAILURE(RunOver(samples + 40000));
    const size_t position = random() % kPositions;
    literals[position] = CLiteralDetector(SettingsOf(position + 1));
    for (SForm& form : forms) {
      form.decoders[position]->Reset();
      form.decoders[position]->SetThresholds(SettingsOf(position + 1));
    }
  }
  EXPECT_GT(digits, 50U);
}

// Nothing says that a position comes once only.
TEST_F(DtmfBatch, OnePositionsBlocksInARowAreTakenInTheirOrder) {
  for (int i = 0; i < 200; ++i) {
    std::vector<std::array<uint8_t, kDelivery>> row(1 + random() % 40);
    const size_t position = random() % kPositions;
    for (auto& block : row) {
      sounds.Fill(position, block.data());
      for (const uint8_t byte : block)
        literals[position].Process(ALawToLinear(byte));
    }
    for (SForm& form : forms) {
      std::vector<SDigitJob> jobs;
      for (const auto& block : row)
        jobs.push_back({form.decoders[position].get(), block.data()});
      FindDigits(jobs.data(), jobs.size(), form.instructionSet);
      ASSERT_EQ(TakeAll(*form.decoders[position]), literals[position].digits);
    }
    digits += literals[position].digits.size();
    literals[position].digits.clear();
  }
  EXPECT_GT(digits, 50U);
}

TEST_F(DtmfBatch, TheFormOfOnePositionHearsTheSame) {
  SForm alone(EInstructionSet::kPlain);
  for (int i = 0; i < 5000; ++i) {
    const size_t position = random() % kPositions;
    ASSERT_NO_FATAL_FAILURE(Deliver(position, 0));
    sounds.Fill(position, blocks[position].data());
    for (const uint8_t byte : blocks[position])
      literals[position].Process(ALawToLinear(byte));
    alone.decoders[position]->ProcessBlock(blocks[position].data(), kDelivery);
    ASSERT_EQ(TakeAll(*alone.decoders[position]), literals[position].digits);
    digits += literals[position].digits.size();
    literals[position].digits.clear();
  }
  EXPECT_GT(digits, 20U);
}

TEST_F(DtmfBatch, AllocatesNothing) {
  Deliver(0, kPositions);  // tables are made once
  std::vector<SDigitJob> jobs;
  for (size_t i = 0; i < kPositions; ++i)
    jobs.push_back({forms.back().decoders[i].get(), blocks[i].data()});
  const uint64_t before = support::AllocationCount();
  for (const SForm& form : forms)
    FindDigits(jobs.data(), jobs.size(), form.instructionSet);
  FindDigits(jobs.data(), jobs.size());
  EXPECT_EQ(support::AllocationCount(), before);
}

}  // namespace
}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_batch.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "dtmf_signals.h"
#include "formats/g711.h"

namespace zelk {
namespace {

using namespace dtmf;

TEST(DtmfBatch, FindsEachPositionsDigit) {
  std::array<CDtmfDecode, 16> decoders;
  std::string heard;
  std::vector<std::array<uint8_t, 160>> blocks(16);
  for (int delivery = 0; delivery < 2; ++delivery) {
    std::vector<SDigitJob> jobs;
    for (size_t position = 0; position < 16; ++position) {
      Signal signal;
      AddDigit(signal, kDigits[position], 320);
      for (size_t i = 0; i < 160; ++i)
        blocks[position][i] = LinearToALaw(signal[static_cast<size_t>(delivery) * 160 + i]);
      jobs.push_back({&decoders[position], blocks[position].data()});
    }
    FindDigits(jobs.data(), jobs.size());
  }
  for (CDtmfDecode& decoder : decoders)
    heard += TakeAll(decoder);
  EXPECT_EQ(heard, kDigits);
}

}  // namespace
}  // namespace zelk

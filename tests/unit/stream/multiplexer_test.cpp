// SPDX-License-Identifier: GPL-2.0-only
#include "stream/multiplexer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "audio_fakes.h"
#include "support/allocation_probe.h"

namespace zelk {
namespace {

constexpr size_t kLinePosition = 5;

class Multiplexer : public testing::Test {
 protected:
  Multiplexer() {
    EXPECT_TRUE(rings.Create(1, 3));
    EXPECT_TRUE(multiplexer.Create(rings));
    controls.hook = &hook;
  }

  void Push(uint8_t fill, bool mark = false, uint32_t flushCount = 0, int16_t uniform = kNotUniform) {
    const SPoolBlock block = Pool().NextFree(kLinePosition);
    ASSERT_TRUE(block);
    std::memset(block.data, fill, kBlockBytes);
    *block.note = {flushCount, mark, uniform};
    Pool().PushReady(kLinePosition);
  }

  // The next bytes of the position.
  std::vector<uint8_t> Copy(size_t frames) {
    std::vector<uint8_t> rows(frames * 32);
    multiplexer.CopyFrames(rows.data(), frames);
    std::vector<uint8_t> column;
    for (size_t frame = 0; frame < frames; ++frame)
      column.push_back(rows[frame * 32 + kLinePosition]);
    return column;
  }

  static std::vector<uint8_t> All(size_t frames, uint8_t byte) { return std::vector<uint8_t>(frames, byte); }
  CBlockPool& Pool() { return rings.Transmit(); }

  SAudioControls controls;
  CFakeHook hook;
  CCardRings rings;
  CStopFlag stop;
  CMultiplexer multiplexer{controls, stop};
};

TEST_F(Multiplexer, IdleBytesComeFirstAndWheneverNothingIsReady) {
  Push(7);
  EXPECT_EQ(Copy(160), All(160, 0x54));
  EXPECT_EQ(Copy(160), All(160, 7));
  EXPECT_EQ(Copy(160), All(160, 0x54));
}

TEST_F(Multiplexer, CreatedAgainItBeginsWithIdleBytes) {
  Push(7);
  Copy(170);
  ASSERT_TRUE(rings.Create(1, 3));
  ASSERT_TRUE(multiplexer.Create(rings));
  Push(8);
  EXPECT_EQ(Copy(160), All(160, 0x54));
  EXPECT_EQ(Copy(160), All(160, 8));
}

TEST_F(Multiplexer, WithoutMemoryItIsNotCreated) {
  CMultiplexer other(controls, stop);
  support::FailAllocation(1);
  EXPECT_FALSE(other.Create(rings));
  support::FailAllocation(0);
}

TEST_F(Multiplexer, ABlockGoesBackOnlyWhenTheNextByteIsNeeded) {
  Push(7);
  Copy(161);
  EXPECT_EQ(Pool().FreeCount(kLinePosition), 2U);
  Copy(159);
  EXPECT_EQ(Pool().FreeCount(kLinePosition), 2U);
  Copy(1);
  EXPECT_EQ(Pool().FreeCount(kLinePosition), 3U);
}

TEST_F(Multiplexer, TheMarkIsReportedWhenItsBlockIsTaken) {
  Push(7);
  Push(8, true);
  Copy(320);
  EXPECT_TRUE(hook.calls.empty());
  EXPECT_EQ(Copy(1), All(1, 8));
  EXPECT_EQ(hook.calls, std::vector<std::string>{"sent 0.5"});
  Copy(400);
  EXPECT_EQ(hook.calls.size(), 1U);
}

// Blocks of one byte in any order with others, flushes among them: rows that hold a byte already are not written, and
// every byte is right all the same.
TEST_F(Multiplexer, WhatStandsInTheRowsAlreadyIsNotTurnedAgain) {
  std::mt19937 random(3);
  std::vector<uint8_t> expected = All(160, 0x54);
  uint32_t flushes = 0;
  for (int turn = 0; turn < 500; ++turn) {
    ASSERT_EQ(Copy(60), std::vector<uint8_t>(expected.begin(), expected.begin() + 60)) << turn;
    if (random() % 8 == 0) {
      controls.Flush(kLinePosition);
      ++flushes;
      std::fill(expected.begin() + 60, expected.end(), uint8_t{0x54});
    }
    ASSERT_EQ(Copy(100), std::vector<uint8_t>(expected.begin() + 60, expected.end())) << turn;
    const uint8_t byte = std::array<uint8_t, 3>{0xD5, 0x54, 0}[random() % 3];
    expected = All(160, byte);
    if (random() % 4 == 0)
      expected = All(160, 0x54);  // nothing is ready
    else
      Push(byte, false, flushes, random() % 4 == 0 ? kNotUniform : int16_t{byte});
  }
}

TEST_F(Multiplexer, TellsARestingPacerWhenBlocksAreTakenAndNotBefore) {
  Copy(160);
  EXPECT_EQ(rings.Rest().Moves(), 0U);
  Copy(1);
  EXPECT_EQ(rings.Rest().Moves(), 1U);
}

TEST_F(Multiplexer, WithoutAHookAMarkIsForgotten) {
  controls.hook = nullptr;
  Push(8, true);
  EXPECT_EQ(Copy(161).back(), 8);
}

TEST_F(Multiplexer, AFlushSilencesTheRestOfTheBlockOnTheLineAndWhatWaits) {
  Push(7);
  Push(8, true);
  Copy(200);
  controls.Flush(kLinePosition);
  Push(9, false, 1);  // filled after the flush
  EXPECT_EQ(Copy(120), All(120, 0x54));
  EXPECT_EQ(Copy(160), All(160, 0x54));
  EXPECT_EQ(hook.calls, std::vector<std::string>{"sent 0.5"});  // a flushed block's mark is still honoured
  EXPECT_EQ(Copy(160), All(160, 9));
}

TEST_F(Multiplexer, AFlushOfOnePositionLeavesTheOthersAlone) {
  Push(7);
  Copy(200);
  controls.Flush(kLinePosition + 1);
  controls.Flush(kLinePosition - 1);
  EXPECT_EQ(Copy(120), All(120, 7));
}

TEST_F(Multiplexer, FlushesBeforeTheStartDoNotSilenceWhatWasFilledAfterThem) {
  controls.Flush(kLinePosition);
  ASSERT_TRUE(multiplexer.Create(rings));
  Push(7, false, 1);
  EXPECT_EQ(Copy(161).back(), 7);
  controls.Flush(0);
  EXPECT_EQ(Copy(159), All(159, 7));
}

}  // namespace
}  // namespace zelk

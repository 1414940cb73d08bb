#include "media/audio_pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

#include "audio_fakes.h"
#include "media/g711.h"
#include "platform/clock.h"

namespace zelk {
namespace {

class AudioPacer : public testing::Test {
 protected:
  AudioPacer() {
    EXPECT_TRUE(rings.Create(1, 2));
    rings.ResetDetectors(SDtmfSettings());
    controls.hook = &hook;
  }

  // Puts a received block where the pacer finds it.
  void Receive(size_t position, const uint8_t* alaw) {
    CBlockPool& pool = rings.At(position).receive;
    uint8_t* block = pool.PopFree();
    ASSERT_NE(block, nullptr);
    std::memcpy(block, alaw, kBlockBytes);
    pool.PushReady(block, false, 0);
  }

  SAudioControls controls;
  CFakeHook hook;
  CCardRings rings;
  CAudioPacer pacer{controls, rings};
  CStopFlag stop;
};

TEST_F(AudioPacer, APassFillsEveryFreeBlockThenDeliversPositionByPosition) {
  const std::vector<uint8_t> silence(160, 0xD5);
  Receive(0, silence.data());
  Receive(31, silence.data());
  pacer.Pass(stop);
  std::vector<std::string> expected;
  for (int slot = 0; slot < 32; ++slot) {
    const std::string place = "0." + std::to_string(slot);
    for (int block = 0; block < 2; ++block) {
      expected.push_back("play " + place + " 160");
      expected.push_back("query " + place);
    }
    if (slot == 0 || slot == 31)
      expected.push_back("record " + place + " 160 213");
  }
  EXPECT_EQ(hook.calls, expected);
  EXPECT_EQ(rings.At(0).receive.FreeCount(), 2U);
  hook.calls.clear();
  pacer.Pass(stop);
  EXPECT_TRUE(hook.calls.empty());
}

TEST_F(AudioPacer, FilledBlocksCarryTheirMarkAndTheFlushCountOfBeforeTheFill) {
  controls.Flush(3);
  controls.Flush(3);
  hook.mark = 1;
  pacer.Pass(stop);
  const SReadyBlock block = rings.At(3).transmit.PopReady();
  ASSERT_NE(block.data, nullptr);
  EXPECT_TRUE(block.mark);
  EXPECT_EQ(block.tag, 2U);
  EXPECT_EQ(rings.At(4).transmit.PopReady().tag, 0U);
}

TEST_F(AudioPacer, WithoutAHookNothingMoves) {
  const std::vector<uint8_t> silence(160, 0xD5);
  Receive(1, silence.data());
  controls.hook = nullptr;
  pacer.Pass(stop);
  EXPECT_EQ(rings.At(1).transmit.FreeCount(), 2U);
  EXPECT_EQ(rings.At(1).receive.ReadyCount(), 1U);
}

TEST_F(AudioPacer, AStoppedPassCallsNothing) {
  stop.Set();
  pacer.Pass(stop);
  EXPECT_TRUE(hook.calls.empty());
}

// The digit 5 (770 and 1336 Hz) for 100 ms, then silence: found on its timeslot only, before that block's audio.
TEST_F(AudioPacer, ADigitIsReportedBeforeTheAudioOfItsBlock) {
  hook.calls.clear();
  for (int block = 0; block < 10; ++block) {
    std::vector<uint8_t> alaw(160, 0xD5);
    for (int i = 0; block < 5 && i < 160; ++i) {
      const double t = (block * 160 + i) / 8000.0 * 2.0 * std::numbers::pi;
      alaw[static_cast<size_t>(i)] =
          LinearToALaw(static_cast<int16_t>(5000 * std::sin(770 * t) + 5000 * std::sin(1336 * t)));
    }
    Receive(7, alaw.data());
    pacer.Pass(stop);
  }
  std::vector<std::string> delivered;
  for (const std::string& call : hook.calls)
    if (call.rfind("record", 0) == 0 || call.rfind("digit", 0) == 0)
      delivered.push_back(call.substr(0, 9) + (call[0] == 'd' ? call.substr(9) : ""));
  const auto digit = std::find(delivered.begin(), delivered.end(), "digit 0.7 5");
  ASSERT_NE(digit, delivered.end());
  EXPECT_EQ(std::count_if(delivered.begin(), delivered.end(), [](const auto& call) { return call[0] == 'd'; }), 1);
  EXPECT_NE(digit + 1, delivered.end());  // its block's record call follows
  EXPECT_EQ(delivered.size(), 11U);
}

TEST_F(AudioPacer, DigitsAreNotLookedForWhereDetectionIsOff) {
  rings.At(7).detectDigits = false;
  for (int block = 0; block < 5; ++block) {
    std::vector<uint8_t> alaw(160);
    for (int i = 0; i < 160; ++i) {
      const double t = (block * 160 + i) / 8000.0 * 2.0 * std::numbers::pi;
      alaw[static_cast<size_t>(i)] =
          LinearToALaw(static_cast<int16_t>(5000 * std::sin(770 * t) + 5000 * std::sin(1336 * t)));
    }
    Receive(7, alaw.data());
    pacer.Pass(stop);
  }
  for (const std::string& call : hook.calls)
    EXPECT_NE(call[0], 'd');
}

TEST_F(AudioPacer, TheThreadEndsPromptly) {
  std::thread thread([this] { pacer.Run(stop); });
  const uint32_t before = TickMs();
  stop.Set();
  thread.join();
  EXPECT_LE(TickMs() - before, 20U);
}

}  // namespace
}  // namespace zelk

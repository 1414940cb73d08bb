// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "audio_pacer_fixture.h"
#include "platform/event.h"

namespace zelk {
namespace {

TEST_F(AudioPacer, APassFillsEveryFreeBlockThenDeliversPositionByPosition) {
  const std::vector<uint8_t> silence(160, 0xD5);
  Receive(0, silence.data());
  Receive(31, silence.data());
  pacer.Pass(stop);
  std::vector<std::string> expected;
  for (int timeslot = 0; timeslot < 32; ++timeslot) {
    const std::string place = "0." + std::to_string(timeslot);
    for (int block = 0; block < 2; ++block) {
      expected.push_back("play " + place);
      expected.push_back("query " + place);
    }
    if (timeslot == 0 || timeslot == 31)
      expected.push_back("record " + place + " 213");
  }
  EXPECT_EQ(hook.calls, expected);
  EXPECT_EQ(rings.At(0).receive.FreeCount(), 2U);
  hook.calls.clear();
  pacer.Pass(stop);
  EXPECT_TRUE(hook.calls.empty());
}

TEST_F(AudioPacer, FilledBlocksCarryTheirMarkAndTheFlushCount) {
  controls.Flush(3);
  controls.Flush(3);
  hook.mark = true;
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
    Receive(7, block < 5 ? TwoTones(block).data() : std::vector<uint8_t>(160, 0xD5).data());
    pacer.Pass(stop);
  }
  std::vector<std::string> delivered;
  for (const std::string& call : hook.calls)
    if (call.rfind("record", 0) == 0 || call.rfind("digit", 0) == 0)
      delivered.push_back(call.substr(0, 9) + (call[0] == 'd' ? call.substr(9) : ""));
  const auto digit = std::find(delivered.begin(), delivered.end(), "digit 0.7 5");
  ASSERT_NE(digit, delivered.end());
  EXPECT_EQ(std::count_if(delivered.begin(), delivered.end(), [](const auto& call) { return call[0] == 'd'; }), 1);
  EXPECT_EQ(digit - delivered.begin(), 1);  // found in the second block (its 204th sample), whose record call follows
  EXPECT_EQ(delivered.size(), 11U);
}

TEST_F(AudioPacer, DigitsAreNotLookedForWhereDetectionIsOff) {
  rings.At(7).detectDigits = false;
  for (int block = 0; block < 5; ++block) {
    Receive(7, TwoTones(block).data());
    pacer.Pass(stop);
  }
  for (const std::string& call : hook.calls)
    EXPECT_NE(call[0], 'd');
}

// It is in the hook when it is stopped, or asleep: either way it comes to its end without another call.
TEST_F(AudioPacer, TheThreadEndsWithoutAnotherCallOnceItIsStopped) {
  class CHolding : public CIdleHook {
   public:
    void OnCall(EMediaCall) override {
      ++calls;
      entered.Set();
      leave.Wait();
    }
    int calls = 0;
    CEvent entered;
    CEvent leave;
  } holding;
  controls.hook = &holding;
  std::thread thread([this] { pacer.Run(stop); });
  EXPECT_TRUE(holding.entered.WaitFor(5000));
  stop.Set();
  holding.leave.Set();
  thread.join();
  EXPECT_EQ(holding.calls, 1);
}

}  // namespace
}  // namespace zelk

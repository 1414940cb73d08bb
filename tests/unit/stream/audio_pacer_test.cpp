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
  EXPECT_EQ(rings.Receive().FreeCount(0), 2U);
  hook.calls.clear();
  pacer.Pass(stop);
  EXPECT_TRUE(hook.calls.empty());
}

TEST_F(AudioPacer, FilledBlocksCarryTheirMarkAndTheFlushCount) {
  controls.Flush(3);
  controls.Flush(3);
  hook.mark = true;
  pacer.Pass(stop);
  const SPoolBlock block = rings.Transmit().NextReady(3);
  ASSERT_TRUE(block);
  EXPECT_TRUE(block.note->mark);
  EXPECT_EQ(block.note->flushCount, 2U);
  EXPECT_EQ(rings.Transmit().NextReady(4).note->flushCount, 0U);
}

// What the hook says of a block comes back to it with the block, until it says otherwise.
TEST_F(AudioPacer, WhatABlockIsFullOfIsKnownFromOneFillToTheNext) {
  class CSilence : public CIdleHook {
   public:
    void FillBlock(uint32_t, uint32_t timeslot, SBlockFill& fill) override {
      if (timeslot != 5)
        return;
      seen.push_back(fill.wasUniform);
      fill.FillWith(silence);
    }
    uint8_t silence = 0xD5;
    std::vector<int16_t> seen;
  } silent;
  controls.hook = &silent;
  for (const uint8_t silence : {uint8_t{0xD5}, uint8_t{0x7F}, uint8_t{0xD5}}) {
    silent.silence = silence;
    pacer.Pass(stop);
    for (; const SPoolBlock block = rings.Transmit().NextReady(5); rings.Transmit().PushFree(5)) {
      EXPECT_EQ(block.note->uniform, silence);
      EXPECT_EQ(block.data[159], silence);
    }
  }
  EXPECT_EQ(silent.seen, (std::vector<int16_t>{-1, -1, 0xD5, 0xD5, 0x7F, 0x7F}));
}

// A block that nobody could write into is as it was when it goes back to be filled, and only then.
TEST_F(AudioPacer, WhatAReceivedBlockIsFullOfIsForgottenWhenTheHookGaveItOn) {
  class CReader : public CIdleHook {
   public:
    bool OnBlockReceived(uint32_t, uint32_t timeslot, AudioBlock) override { return timeslot == 6; }
  } reader;
  controls.hook = &reader;
  const std::vector<uint8_t> silence(160, 0xD5);
  for (const size_t position : {5U, 6U}) {
    rings.Receive().NextFree(position).note->uniform = 0xD5;
    rings.Receive().NextFree(position).data[0] = 0xD5;
    rings.Receive().PushReady(position);
  }
  pacer.Pass(stop);
  rings.Receive().PushReady(5);  // the other one of the two
  rings.Receive().PushReady(6);
  EXPECT_EQ(rings.Receive().NextFree(5).note->uniform, 0xD5);
  EXPECT_EQ(rings.Receive().NextFree(6).note->uniform, kNotUniform);
}

TEST_F(AudioPacer, WithoutAHookNothingMoves) {
  const std::vector<uint8_t> silence(160, 0xD5);
  Receive(1, silence.data());
  controls.hook = nullptr;
  pacer.Pass(stop);
  EXPECT_EQ(rings.Transmit().FreeCount(1), 2U);
  EXPECT_EQ(rings.Receive().ReadyCount(1), 1U);
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

// The same where the pacer comes late and finds two blocks of a timeslot at once.
TEST_F(AudioPacer, ADigitInABlockBehindAnotherIsReportedBeforeItsAudio) {
  hook.calls.clear();
  Receive(7, TwoTones(0).data());
  Receive(7, TwoTones(1).data());
  pacer.Pass(stop);
  std::vector<char> delivered;
  for (const std::string& call : hook.calls)
    if (call[0] == 'r' || call[0] == 'd')
      delivered.push_back(call[0]);
  EXPECT_EQ(delivered, std::vector<char>({'r', 'd', 'r'}));
}

// Two blocks of the detector, 204 samples, make a digit. A received block is heard once.
TEST_F(AudioPacer, ASoundTooShortForADigitIsNone) {
  Receive(7, TwoTones(0).data());
  pacer.Pass(stop);
  for (int block = 1; block < 4; ++block) {
    Receive(7, std::vector<uint8_t>(160, 0xD5).data());
    pacer.Pass(stop);
  }
  EXPECT_TRUE(std::none_of(hook.calls.begin(), hook.calls.end(), [](const auto& call) { return call[0] == 'd'; }));
}

TEST_F(AudioPacer, DigitsAreNotLookedForWhereDetectionIsOff) {
  rings.SetDetectsDigits(7, false);
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

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "audio_fakes.h"
#include "stream/audio_pacer.h"

// A pacer that comes late, on a driven clock.
namespace zelk {
namespace {

// The line goes on while the pacer stands still: a block each way on every position every 20 ms of a driven clock.
class AudioPacerStall : public testing::Test {
 protected:
  static constexpr uint32_t kBlocks = 8;
  static constexpr uint32_t kStart = 0xFFFFFF00;  // the counter wraps on the way

  AudioPacerStall() {
    EXPECT_TRUE(rings.Create(2, kBlocks));
    rings.ResetDetectors(SDtmfSettings());
    controls.hook = &hook;
  }

  // The next 20 ms of the line; the blocks carry their number.
  void LineGoesOn() {
    now += CPacerSchedule::kPeriodMs;
    for (size_t position = 0; position < rings.PositionCount(); ++position) {
      if (rings.Transmit().NextReady(position))
        rings.Transmit().PushFree(position);
      const SPoolBlock block = rings.Receive().NextFree(position);
      ASSERT_TRUE(block);
      std::memset(block.data, lineBlocks, kBlockBytes);
      rings.Receive().PushReady(position);
    }
    ++lineBlocks;
  }

  // What one turn at this moment does to a position, its calls by their first word and the block's number.
  std::vector<std::string> Turn(const std::string& place) {
    hook.calls.clear();
    waitMs = pacer.Turn(schedule, now, stop);
    std::vector<std::string> own;
    for (const std::string& call : hook.calls) {
      if (call == "play " + place)
        own.push_back("play");
      else if (call.rfind("record " + place + " ", 0) == 0)
        own.push_back("record" + call.substr(call.rfind(' ')));
    }
    return own;
  }

  SAudioControls controls;
  CFakeHook hook;
  CCardRings rings;
  CAudioPacer pacer{controls, rings};
  CPacerSchedule schedule{kStart};
  CStopFlag stop;
  uint32_t now = kStart;
  uint32_t waitMs = 0;
  uint8_t lineBlocks = 0;
};

TEST_F(AudioPacerStall, ThePassAfter100MsDeliversFiveBlocksOfEachChannel) {
  LineGoesOn();
  Turn("0.1");  // fills the transmit ring and delivers block 0: in step from here
  LineGoesOn();
  EXPECT_EQ(Turn("1.31"), (std::vector<std::string>{"play", "record 1"}));
  for (int i = 0; i < 5; ++i)
    LineGoesOn();  // 100 ms without a turn
  const std::vector<std::string> five{"play",     "play",     "play",     "play",     "play",
                                      "record 2", "record 3", "record 4", "record 5", "record 6"};
  EXPECT_EQ(Turn("0.1"), five);
  EXPECT_EQ(waitMs, 0U);
  for (const char* place : {"0.0", "0.16", "1.0", "1.17", "1.31"}) {
    const std::string record = std::string("record ") + place + " ";
    EXPECT_EQ(std::count_if(hook.calls.begin(), hook.calls.end(),
                            [&record](const std::string& call) { return call.rfind(record, 0) == 0; }),
              5)
        << place;
  }
}

TEST_F(AudioPacerStall, FourMorePassesFollowAtOnceThenItIsInStepAgain) {
  LineGoesOn();
  Turn("0.1");
  for (int i = 0; i < 5; ++i)
    LineGoesOn();
  now += 7;
  EXPECT_EQ(Turn("0.1").size(), 10U);
  for (int pass = 0; pass < 4; ++pass) {
    EXPECT_TRUE(Turn("0.1").empty()) << pass;
    EXPECT_EQ(waitMs, 0U) << pass;
  }
  EXPECT_TRUE(Turn("0.1").empty());
  EXPECT_EQ(waitMs, 13U);  // the grid is the old one
  now -= 7;
  LineGoesOn();
  EXPECT_EQ(Turn("0.1"), (std::vector<std::string>{"play", "record 6"}));
  EXPECT_EQ(waitMs, 0U);
}

}  // namespace
}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_media.h"

#include <array>
#include <cstring>

#include "call_fixture.h"

namespace zelk::test {
namespace {

using Posted = std::vector<SPosted>;
using Block = std::array<uint8_t, kBlockBytes>;

struct SSeen {
  char way;
  uint32_t channel;
  uint8_t first;
  uint32_t length;

  bool operator==(const SSeen&) const = default;
};

std::vector<SSeen> seen;

class ChannelMedia : public CCallFixture {
 protected:
  void SetUp() override {
    seen.clear();
    ApplicationEvents().SetPlayCallback([](uint32_t channel, uint8_t* data, uint32_t length) {
      seen.push_back({'p', channel, data[0], length});
      data[1] = 0x11;
    });
    ApplicationEvents().SetRecordCallback([](uint32_t channel, const uint8_t* data, uint32_t length) {
      seen.push_back({'r', channel, data[0], length});
    });
    block.fill(0x33);
  }
  void TearDown() override {
    ApplicationEvents().SetPlayCallback(nullptr);
    ApplicationEvents().SetRecordCallback(nullptr);
  }

  void Fill(uint32_t trunk, uint32_t timeslot) {
    SBlockFill fill;
    fill.Begin(block.data(), 0, kNotUniform);
    firstHandlers.FillBlock(trunk, timeslot, fill);
  }
  void Receive(uint32_t trunk, uint32_t timeslot) { firstHandlers.OnBlockReceived(trunk, timeslot, block); }
  void Play(int32_t channel, uint32_t bytes) {
    std::unique_ptr<CWaveBlock> wave = Channel(channel).Wave().NewBlock(bytes);
    ASSERT_NE(wave, nullptr);
    Channel(channel).Wave().Enqueue(std::move(wave));
  }

  Block block;
};

TEST_F(ChannelMedia, EveryTimeslotReachesItsChannel) {
  for (uint16_t trunk = 0; trunk < 4; ++trunk) {
    for (uint16_t timeslot = 1; timeslot < 32; ++timeslot) {
      if (timeslot != 16) {
        firstHandlers.OnDigit(trunk, timeslot, '5');
      }
    }
  }
  Posted expected;
  for (int32_t channel = 0; channel < 120; ++channel) {
    expected.push_back({channel, EVENT_DTMF, '5'});
  }
  EXPECT_EQ(application.Take(), expected);
}

TEST_F(ChannelMedia, TimeslotsWithoutChannelGetZeroBytesAndNothingElse) {
  for (const uint16_t timeslot : {uint16_t{0}, uint16_t{16}, uint16_t{32}, uint16_t{0xFFFF}}) {
    block.fill(0x33);
    Fill(0, timeslot);
    EXPECT_EQ(block, Block{}) << timeslot;
    block.fill(0x33);
    Receive(0, timeslot);
    EXPECT_EQ(block, Block{}) << timeslot;
    firstHandlers.OnDigit(0, timeslot, '5');
    EXPECT_FALSE(firstHandlers.EndsPlay(0, timeslot));
    firstHandlers.OnMarkSent(0, timeslot);
  }
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(ChannelMedia, SlotsBeyondTheTableGetZeroBytes) {
  Fill(40, 1);
  EXPECT_EQ(block, Block{});
}

TEST_F(ChannelMedia, TrunksOfNoOrAnotherCardAreLeftAlone) {
  const Block before = block;
  Fill(4, 1);     // the second card's channel
  Receive(6, 1);  // nobody's
  EXPECT_EQ(block, before);
  EXPECT_TRUE(seen.empty());
}

TEST_F(ChannelMedia, PlayFillsWithSilenceAndLetsTheApplicationChangeIt) {
  Fill(0, 1);
  EXPECT_EQ(seen, (std::vector<SSeen>{{'p', 0, 0xD5, 160}}));
  EXPECT_EQ(block[0], 0xD5);
  EXPECT_EQ(block[1], 0x11);
  EXPECT_EQ(block[159], 0xD5);
}

// A block that holds silence already is not written again; one that the application may have written is not known.
TEST_F(ChannelMedia, AUniformBlockStaysAsItIsUnlessTheApplicationSeesIt) {
  ApplicationEvents().SetPlayCallback(nullptr);
  SBlockFill fill;
  fill.Begin(block.data(), 0, 0xD5);
  firstHandlers.FillBlock(0, 1, fill);
  EXPECT_EQ(block[0], 0x33);  // it was said to be silent
  EXPECT_EQ(fill.uniform, 0xD5);
  fill.Begin(block.data(), 0, kNotUniform);
  firstHandlers.FillBlock(0, 1, fill);
  EXPECT_EQ(block[0], 0xD5);
  EXPECT_EQ(fill.uniform, 0xD5);
  ApplicationEvents().SetPlayCallback([](uint32_t, uint8_t*, uint32_t) {});
  fill.Begin(block.data(), 0, 0xD5);
  firstHandlers.FillBlock(0, 1, fill);
  EXPECT_EQ(fill.uniform, kNotUniform);
}

TEST_F(ChannelMedia, ABlockOfAPlayIsNotUniformAndSilenceIsItsFormats) {
  ApplicationEvents().SetPlayCallback(nullptr);
  Channel(0).Open();
  Play(0, 100);
  SBlockFill fill;
  fill.Begin(block.data(), 0, 0xD5);
  firstHandlers.FillBlock(0, 1, fill);
  EXPECT_EQ(fill.uniform, kNotUniform);
  Channel(1).Wave().SetFormat({7, 1, 8000, 8000, 1, 8, 0});
  fill.Begin(block.data(), 0, 0xD5);
  firstHandlers.FillBlock(0, 2, fill);
  EXPECT_EQ(fill.uniform, 0x7F);
  EXPECT_EQ(block[0], 0x7F);
  fill.Begin(block.data(), 0, 0x7F);
  firstHandlers.FillBlock(0, 16, fill);
  EXPECT_EQ(fill.uniform, 0);
  EXPECT_EQ(block, Block{});
}

TEST_F(ChannelMedia, RecordHandsTheBlockOverUnchangedOnClosedChannelsToo) {
  ASSERT_FALSE(Channel(30).IsOpen());
  Receive(1, 1);
  EXPECT_EQ(seen, (std::vector<SSeen>{{'r', 30, 0x33, 160}}));
  EXPECT_EQ(block[159], 0x33);
}

TEST_F(ChannelMedia, TellsWhetherSomebodyHadTheReceivedBlock) {
  EXPECT_TRUE(firstHandlers.OnBlockReceived(1, 1, block));
  EXPECT_TRUE(firstHandlers.OnBlockReceived(1, 0, block));  // overwritten
  ApplicationEvents().SetRecordCallback(nullptr);
  EXPECT_FALSE(firstHandlers.OnBlockReceived(1, 1, block));
  EXPECT_FALSE(firstHandlers.OnBlockReceived(6, 1, block));  // nobody's
  Channel(30).Open();
  Channel(30).Wave().StartRecord(1000);
  EXPECT_TRUE(firstHandlers.OnBlockReceived(1, 1, block));
}

TEST_F(ChannelMedia, EndOfPlayIsMarkedOnceAndReportedWhenItWentOut) {
  Channel(0).Open();
  Play(0, 100);
  Fill(0, 1);
  EXPECT_FALSE(firstHandlers.EndsPlay(0, 1));
  Fill(0, 1);
  EXPECT_TRUE(firstHandlers.EndsPlay(0, 1));
  EXPECT_FALSE(firstHandlers.EndsPlay(0, 1));
  EXPECT_EQ(application.Take(), Posted{});
  firstHandlers.OnMarkSent(0, 1);
  EXPECT_EQ(application.Take(), (Posted{{0, EVENT_PLAY_DONE, 0}}));
  firstHandlers.OnMarkSent(0, 1);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(ChannelMedia, StoppedPlayIsNotReported) {
  Channel(0).Open();
  Play(0, 0);
  Fill(0, 1);
  Fill(0, 1);
  EXPECT_TRUE(firstHandlers.EndsPlay(0, 1));
  Channel(0).Wave().Flush();
  firstHandlers.OnMarkSent(0, 1);
  EXPECT_EQ(application.Take(), Posted{});
}

TEST_F(ChannelMedia, CallbacksMayUseTheChannel) {
  Channel(0).Open();
  application.reaction = [this](const SPosted& posted) {
    Channel(posted.channel).Wave().Flush();
    Play(posted.channel, 160);
    Channel(posted.channel).Close();
  };
  firstHandlers.OnDigit(0, 1, '#');
  EXPECT_FALSE(Channel(0).IsOpen());
}

}  // namespace
}  // namespace zelk::test

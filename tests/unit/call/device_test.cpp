// SPDX-License-Identifier: GPL-2.0-only
#include "call/device.h"

#include "call_fixture.h"

namespace zelk::test {
namespace {

using Device = CCallFixture;

TEST_F(Device, NameShowsCardTrunkAndTimeslot) {
  firstCard.RestoreSerialNumber(100234);
  const CDevice first(firstCard, SDevicePlace{0, 0, 1, 0});
  EXPECT_EQ(first.Name(), "ZelkBoard (" + std::to_string(firstCard.TrunkCount()) + "P 100234) Trunk 1 Chn 1");
  const CDevice later(firstCard, SDevicePlace{0, 3, 17, 105});
  EXPECT_NE(later.Name().find(") Trunk 4 Chn 17"), std::string::npos);
}

TEST_F(Device, StartsClosedDownIdleAndAllowingCalls) {
  const CDevice& device = Channel(0);
  EXPECT_FALSE(device.IsOpen());
  EXPECT_EQ(View(0).linkState, -1);
  EXPECT_EQ(View(0).direction, 0);
  EXPECT_EQ(View(0).callHandle, nullptr);
  EXPECT_EQ(device.LastError(), 0U);
  EXPECT_FALSE(View(0).connected);
  EXPECT_TRUE(device.AllowsIncoming());
  EXPECT_FALSE(device.Wave().IsOpen());
}

TEST_F(Device, OpeningOpensThePlayQueueOnce) {
  CDevice& device = Channel(0);
  device.SetMessage("old");
  device.Open();
  EXPECT_TRUE(device.IsOpen());
  EXPECT_TRUE(device.Wave().IsOpen());
  EXPECT_EQ(device.Message(), "");
  device.SetMessage("kept");
  device.Wave().Enqueue(device.Wave().NewBlock(800));
  device.Open();
  EXPECT_EQ(device.Message(), "kept");
  EXPECT_EQ(device.Wave().TimeLeftMs(), 100U);
}

TEST_F(Device, ClosingReadsDownDropsAudioAndKeepsTheCall) {
  CDevice& device = Channel(0);
  device.Open();
  firstHandlers.OnDchannelUp(0, caller);
  Raise(1, kPriRing, OfCall(kNobodysCall));
  application.Take();
  device.Wave().Enqueue(device.Wave().NewBlock(800));
  device.SetMessage("of the last failure");
  device.Close();
  EXPECT_EQ(device.Message(), "");
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "DOWN");
  EXPECT_FALSE(device.IsOpen());
  EXPECT_FALSE(device.Wave().IsOpen());
  EXPECT_EQ(device.Wave().TimeLeftMs(), 0U);
  EXPECT_EQ(View(0).callHandle, kNobodysCall);
  EXPECT_TRUE(application.Take().empty());
}

TEST_F(Device, ReopeningResetsThePlayQueue) {
  CDevice& device = Channel(0);
  device.Open();
  device.Close();
  SWaveFormat format;
  format.formatTag = 7;
  device.Wave().SetFormat(format);
  device.Open();
  EXPECT_STREQ(device.Wave().FormatName(), "ALAW");
}

TEST_F(Device, ClosingAClosedChannelChangesNothing) {
  CDevice& device = Channel(0);
  firstHandlers.OnDchannelUp(0, caller);
  device.SetMessage("kept");
  device.Close();
  EXPECT_EQ(View(0).linkState, 1);
  EXPECT_EQ(device.Message(), "kept");
}

TEST_F(Device, MessageHolds512Characters) {
  Channel(0).SetMessage(std::string(2000, 'x').c_str());
  EXPECT_EQ(Channel(0).Message(), std::string(512, 'x'));
}

TEST_F(Device, QueuesHold40Values) {
  for (CDwordQueue* queue : {&Channel(0).EndQueue(), &Channel(0).StartQueue()}) {
    for (uint32_t value = 0; value < 40; ++value) {
      EXPECT_TRUE(queue->Push(value)) << value;
    }
  }
}

TEST_F(Device, ForgettingTheCallSwitchesTheWholeTrunksEchoOff) {
  firstCard.Audio().SetEchoSwitch(0, true);
  firstCard.Audio().SetEchoSwitch(1, true);
  Channel(0).Call().End();
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
  EXPECT_TRUE(firstCard.Audio().EchoSwitch(1));
}

}  // namespace
}  // namespace zelk::test

#include "call/device.h"

#include "call_fixture.h"

namespace zelk::test {
namespace {

class Device : public CCallFixture {
 protected:
  std::string Message(CDevice& device) {
    const CScopedLock<CMutex> held(device.infoLock);
    return device.message.data();
  }
  PriCall Call(uint64_t number) { return PriCall(number); }
};

TEST_F(Device, NameShowsCardTrunkAndTimeslot) {
  firstCard.RestoreSerialNumber(100234);
  const CDevice first(firstCard, SDevicePlace{0, 0, 1, 0});
  EXPECT_EQ(first.name, "ZelkBoard (" + std::to_string(firstCard.TrunkCount()) + "P 100234) Trunk 1 Chn 1");
  const CDevice later(firstCard, SDevicePlace{0, 3, 17, 105});
  EXPECT_NE(later.name.find(") Trunk 4 Chn 17"), std::string::npos);
}

TEST_F(Device, StartsClosedDownIdleAndAllowingCalls) {
  const CDevice& device = Channel(0);
  EXPECT_FALSE(device.isOpen);
  EXPECT_EQ(device.linkState, -1);
  EXPECT_EQ(device.direction, 0);
  EXPECT_EQ(device.callHandle, nullptr);
  EXPECT_EQ(device.lastError, 0U);
  EXPECT_FALSE(device.connected);
  EXPECT_TRUE(device.allowIncoming);
  EXPECT_FALSE(device.wave.IsOpen());
}

TEST_F(Device, OpeningOpensThePlayQueueOnce) {
  CDevice& device = Channel(0);
  device.SetMessage("old");
  device.Open();
  EXPECT_TRUE(device.isOpen);
  EXPECT_TRUE(device.wave.IsOpen());
  EXPECT_EQ(Message(device), "");
  device.SetMessage("kept");
  device.wave.Enqueue(device.wave.NewBlock(800));
  device.Open();
  EXPECT_EQ(Message(device), "kept");
  EXPECT_EQ(device.wave.TimeLeftMs(), 100U);
}

TEST_F(Device, ClosingReadsDownDropsAudioAndKeepsTheCall) {
  CDevice& device = Channel(0);
  device.Open();
  device.linkState = 1;
  device.callHandle = Call(0x10);
  device.wave.Enqueue(device.wave.NewBlock(800));
  device.SetMessage("of the last failure");
  device.Close();
  EXPECT_EQ(Message(device), "");
  EXPECT_EQ(Info(0, "CHANNELSTATE"), "DOWN");
  EXPECT_FALSE(device.isOpen);
  EXPECT_FALSE(device.wave.IsOpen());
  EXPECT_EQ(device.wave.TimeLeftMs(), 0U);
  EXPECT_EQ(device.callHandle, Call(0x10));
  EXPECT_TRUE(application.Take().empty());
}

TEST_F(Device, ReopeningResetsThePlayQueue) {
  CDevice& device = Channel(0);
  device.Open();
  device.Close();
  SWaveFormat format;
  format.formatTag = 7;
  device.wave.SetFormat(format);
  device.Open();
  EXPECT_STREQ(device.wave.FormatName(), "ALAW");
}

TEST_F(Device, ClosingAClosedChannelChangesNothing) {
  CDevice& device = Channel(0);
  device.linkState = 1;
  device.SetMessage("kept");
  device.Close();
  EXPECT_EQ(device.linkState, 1);
  EXPECT_EQ(Message(device), "kept");
}

TEST_F(Device, MessageHolds512Characters) {
  Channel(0).SetMessage(std::string(2000, 'x').c_str());
  EXPECT_EQ(Message(Channel(0)), std::string(512, 'x'));
}

TEST_F(Device, QueuesHold40Values) {
  for (CDwordQueue* queue : {&Channel(0).endQueue, &Channel(0).startQueue}) {
    for (uint32_t value = 0; value < 40; ++value) {
      EXPECT_TRUE(queue->Push(value)) << value;
    }
  }
}

TEST_F(Device, ForgettingTheCallSwitchesTheWholeTrunksEchoOff) {
  firstCard.Audio().SetEchoSwitch(0, true);
  firstCard.Audio().SetEchoSwitch(1, true);
  Channel(0).ForgetCall();
  EXPECT_FALSE(firstCard.Audio().EchoSwitch(0));
  EXPECT_TRUE(firstCard.Audio().EchoSwitch(1));
}

TEST_F(Device, LostCallsAreRememberedOneByOneAndTheOldestGoesFirst) {
  CDevice& device = Channel(0);
  device.RememberLostCall();  // without a call there is nothing to remember
  EXPECT_FALSE(device.IsLostCall(nullptr));
  for (uintptr_t address = 1; address <= 17; ++address) {
    device.callHandle = Call(address * 16);
    device.RememberLostCall();
    device.RememberLostCall();
  }
  EXPECT_FALSE(device.IsLostCall(Call(16)));
  EXPECT_TRUE(device.IsLostCall(Call(32)));
  device.ForgetLostCall(Call(32));
  EXPECT_FALSE(device.IsLostCall(Call(32)));
  device.ForgetLostCalls();
  EXPECT_FALSE(device.IsLostCall(Call(17 * 16)));
}

}  // namespace
}  // namespace zelk::test

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "call_fixture.h"

namespace zelk::test {

using Posted = std::vector<SPosted>;
using Lines = std::vector<std::string>;

class CTrunkStatusFixture : public CCallFixture {
 protected:
  static constexpr int32_t kDirection = 5;  // none that the library makes: the loss of a trunk leaves it

  CTrunkStatusFixture() : CCallFixture(kDirection) {}

  // The channel-state events of these channels, in order.
  static Posted States(int32_t first, int32_t count, int32_t param) {
    Posted states;
    for (int32_t channel = first; channel < first + count; ++channel) {
      states.push_back({channel, EVENT_CHANNEL_STATE, param});
    }
    return states;
  }
  // A channel of the first card with everything that a call leaves on it.
  void GiveCall(int32_t channel) {
    CDevice& device = Channel(channel);
    device.Trunk().echoEnabled = true;
    RingWithTexts(channel, PriCall(++lastCall), "1");  // a lost call would not be offered again
    RaiseOn(static_cast<uint32_t>(device.TrunkIndex()), static_cast<uint16_t>(device.Timeslot()), kPriConnectAck);
    device.EndQueue().Push(1);
    ASSERT_EQ(Texts(channel), "1|1|1|Voice");
    ASSERT_TRUE(View(channel).connected);
    ASSERT_TRUE(firstCard.Audio().EchoSwitch(static_cast<uint32_t>(device.TrunkIndex())));
    application.Take();
  }
  void ExpectReset(int32_t channel) {
    CDevice& device = Channel(channel);
    EXPECT_EQ(View(channel).callHandle, nullptr);
    EXPECT_FALSE(View(channel).connected);
    EXPECT_EQ(View(channel).direction, kDirection);
    EXPECT_FALSE(firstCard.Audio().EchoSwitch(static_cast<uint32_t>(device.TrunkIndex())));
    EXPECT_EQ(Texts(channel), "|||");
    EXPECT_EQ(Info(channel, "CHANNELSTATE"), "DOWN");
    uint32_t value = 0;
    EXPECT_FALSE(device.EndQueue().Pop(value));
    EXPECT_EQ(device.LastCause(), 16);
  }

 private:
  uint64_t lastCall = 0x10;
};

}  // namespace zelk::test

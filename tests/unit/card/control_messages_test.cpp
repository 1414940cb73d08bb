// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace zelk {
namespace {

using testing::ElementsAre;

TEST(ControlMessages, FixedOnes) {
  EXPECT_THAT(InformationRequest(), ElementsAre(0xFF, 0x01));
  EXPECT_THAT(StartRequest(), ElementsAre(0xFF, 0x04));
}

TEST(ControlMessages, RegisterReadCountsTrunksFromOne) {
  EXPECT_THAT(RegisterRead(2, 0x1006), ElementsAre(0xFF, 0x02, 3, 0x06, 0x10, 0xFF));
}

TEST(ControlMessages, AudioPortIsLittleEndian) {
  EXPECT_THAT(AudioPort(0xABCD), ElementsAre(0xFF, 0x05, 0xCD, 0xAB, 0xFF));
}

TEST(ControlMessages, TrunkConfigurationCarriesTheLowByteOfCrc4) {
  EXPECT_THAT(TrunkConfiguration(0, 1), ElementsAre(0xFF, 0x12, 1, 1, 1, 0, 0, 0, 0));
  EXPECT_THAT(TrunkConfiguration(7, 0x1FE), ElementsAre(0xFF, 0x12, 8, 1, 0xFE, 0, 0, 0, 0));
}

TEST(ControlMessages, TrunkBeforeTheFirstGivesTrunkByteZero) {
  EXPECT_EQ(TrunkConfiguration(UINT32_MAX, 0)[2], 0);
}

TEST(ControlMessages, FrameMessage) {
  std::array<uint8_t, kMaxFrameMessage> message{};
  const uint8_t frame[] = {0x02, 0x01, 0x7F};
  ASSERT_EQ(BuildFrameMessage(1, frame, sizeof frame, message), 9U);
  EXPECT_THAT(std::vector<uint8_t>(message.begin(), message.begin() + 9),
              ElementsAre(0xFF, 0x10, 2, 3, 0, 0x02, 0x01, 0x7F, 0xFF));
}

TEST(ControlMessages, FrameOf300BytesFitsAnd301Not) {
  std::array<uint8_t, kMaxFrameMessage> message{};
  const std::vector<uint8_t> frame(301, 0x55);
  ASSERT_EQ(BuildFrameMessage(0, frame.data(), 300, message), 306U);
  EXPECT_EQ(message[3], 0x2C);
  EXPECT_EQ(message[4], 0x01);
  EXPECT_EQ(message[305], 0xFF);
  EXPECT_EQ(BuildFrameMessage(0, frame.data(), 301, message), 0U);
}

}  // namespace
}  // namespace zelk

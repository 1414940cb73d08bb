// SPDX-License-Identifier: GPL-2.0-only
#include "common/q931_decode.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

// Made by hand from ITU-T Q.931: SETUP, reference 5, speech, channel 17 exclusive, calling 123, called 456, sending
// complete.
const Bytes kSetup{0x08, 0x02, 0x00, 0x05, 0x05, 0x04, 0x03, 0x80, 0x90, 0xA3, 0x18, 0x03, 0xA9, 0x83, 0x91,
                   0x6C, 0x05, 0x21, 0x81, '1',  '2',  '3',  0x70, 0x04, 0xA1, '4',  '5',  '6',  0xA1};

TEST(Q931Decode, SetupWithItsElements) {
  const SQ931Message message = DecodeQ931(kSetup);
  ASSERT_TRUE(message.valid);
  EXPECT_EQ(message.name, "SETUP");
  EXPECT_EQ(message.callReference, 5);
  EXPECT_FALSE(message.fromDestination);
  EXPECT_EQ(message.elements.size(), 5U);
  EXPECT_EQ(message.Timeslot(), 17);
  EXPECT_EQ(message.Number(0x6C), "123");
  EXPECT_EQ(message.Number(0x70), "456");
  EXPECT_EQ(message.Number(0x74), "");
  EXPECT_NE(message.Find(0xA1), nullptr);
  EXPECT_EQ(message.Cause(), -1);
}

TEST(Q931Decode, CauseAndFlagOfARelease) {
  const SQ931Message message = DecodeQ931(Bytes{0x08, 0x02, 0x81, 0x02, 0x4D, 0x08, 0x02, 0x81, 0x95});
  ASSERT_TRUE(message.valid);
  EXPECT_EQ(message.name, "RELEASE");
  EXPECT_TRUE(message.fromDestination);
  EXPECT_EQ(message.callReference, 0x102);
  EXPECT_EQ(message.Cause(), 21);
}

TEST(Q931Decode, AnyChannelNamesNoTimeslot) {
  EXPECT_EQ(DecodeQ931(Bytes{0x08, 0x02, 0, 1, 0x05, 0x18, 0x01, 0xA3}).Timeslot(), -1);
}

TEST(Q931Decode, BytesThatEndTooEarlyAreNotValid) {
  for (std::size_t length = 0; length < kSetup.size() - 1; ++length) {
    const SQ931Message message = DecodeQ931(ByteView(kSetup).first(length));
    const bool atAnElementEnd = length == 5 || length == 10 || length == 15 || length == 22 || length == 28;
    EXPECT_EQ(message.valid, atAnElementEnd) << length;
  }
  EXPECT_FALSE(DecodeQ931(Bytes{0x03, 0x02, 0, 1, 5}).valid);
}

TEST(Q931Decode, FramesOfQ921) {
  EXPECT_EQ(DecodeFrame(Bytes{0x02, 0x01, 0x7F}).kind, EFrameKind::kSabme);
  EXPECT_EQ(DecodeFrame(Bytes{0x02, 0x01, 0x73}).kind, EFrameKind::kUa);
  EXPECT_EQ(DecodeFrame(Bytes{0x02, 0x01, 0x53}).kind, EFrameKind::kDisc);
  const SQ921Frame ready = DecodeFrame(Bytes{0x00, 0x01, 0x01, 0x0A});
  EXPECT_EQ(ready.kind, EFrameKind::kReceiveReady);
  EXPECT_EQ(ready.receiveNumber, 5);
  Bytes information{0x02, 0x01, 0x04, 0x06};
  information.insert(information.end(), kSetup.begin(), kSetup.end());
  const SQ921Frame frame = DecodeFrame(information);
  EXPECT_EQ(frame.kind, EFrameKind::kInformation);
  EXPECT_EQ(frame.sendNumber, 2);
  EXPECT_EQ(frame.receiveNumber, 3);
  EXPECT_EQ(frame.message.name, "SETUP");
  EXPECT_EQ(DecodeFrame(Bytes{0x02, 0x01}).kind, EFrameKind::kInvalid);
}

}  // namespace
}  // namespace tool

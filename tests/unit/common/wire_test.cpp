// SPDX-License-Identifier: GPL-2.0-only
#include "common/wire.h"

#include <gtest/gtest.h>

#include "common/fcs.h"

namespace tool {
namespace {

TEST(Wire, FrameMessageCountsTheFcsAndPutsItLowByteFirst) {
  const Bytes frame{0x02, 0x01, 0x7F};
  const std::uint16_t fcs = FrameCheckSequence(frame);
  const Bytes expected{0xFF,
                       0x10,
                       0x03,
                       0x05,
                       0x00,
                       0x02,
                       0x01,
                       0x7F,
                       static_cast<std::uint8_t>(fcs & 0xFF),
                       static_cast<std::uint8_t>(fcs >> 8)};
  EXPECT_EQ(BuildFrameMessage(2, frame), expected);
}

TEST(Wire, SmallMessages) {
  EXPECT_EQ(BuildTrunkStatus(Bytes{0, 1, 2}), (Bytes{0xFF, 0x07, 0, 1, 2}));
  EXPECT_EQ(BuildHdlcError(3, 8), (Bytes{0xFF, 0x11, 3, 8}));
  EXPECT_EQ(BuildRegisterValue(1, 0x1006, 0x42), (Bytes{0xFF, 0x02, 1, 0x06, 0x10, 0x42}));
}

TEST(Wire, AnnouncementCarriesTheSerialNumberAtOffset18) {
  const Bytes announcement = BuildAnnouncement(0x04030201);
  ASSERT_EQ(announcement.size(), 22U);
  EXPECT_EQ(announcement[6], 1);
  EXPECT_EQ(Bytes(announcement.begin() + 18, announcement.end()), (Bytes{1, 2, 3, 4}));
}

TEST(Wire, AProbeIsItsSixCharacters) {
  EXPECT_TRUE(IsProbe(Bytes{'Z', 'E', 'L', 'K', ' ', 'D'}));
  EXPECT_TRUE(IsProbe(Bytes{'Z', 'E', 'L', 'K', ' ', 'D', 0, 0}));
  EXPECT_FALSE(IsProbe(Bytes{'Z', 'E', 'L', 'K', ' '}));
  EXPECT_FALSE(IsProbe(Bytes{'Z', 'E', 'L', 'K', ' ', 'B'}));
}

// Frames of 125 us, 32 bytes a trunk, 8 bytes of header, 584 to 1448 bytes in all.
TEST(Wire, LargestPacketOfEachTrunkCount) {
  const std::vector<std::pair<int, std::size_t>> expected{{45, 1448}, {22, 1416}, {15, 1448}, {11, 1416},
                                                          {9, 1448},  {7, 1352},  {6, 1352},  {5, 1288}};
  for (int trunks = 1; trunks <= 8; ++trunks) {
    const auto& [frames, bytes] = expected[static_cast<std::size_t>(trunks - 1)];
    EXPECT_EQ(LargestFrameCount(trunks), frames) << trunks;
    EXPECT_EQ(AudioPacketBytes(trunks, frames), bytes) << trunks;
    EXPECT_TRUE(IsAudioPacketSize(bytes));
    EXPECT_FALSE(IsAudioPacketSize(AudioPacketBytes(trunks, frames + 1))) << trunks;
  }
  EXPECT_EQ(LargestFrameCount(0), 0);
  EXPECT_EQ(LargestFrameCount(9), 0);
}

TEST(Wire, PacketSizeLimitsAreInclusive) {
  EXPECT_FALSE(IsAudioPacketSize(583));
  EXPECT_TRUE(IsAudioPacketSize(584));
  EXPECT_TRUE(IsAudioPacketSize(1448));
  EXPECT_FALSE(IsAudioPacketSize(1449));
}

TEST(Wire, AudioHeader) {
  Bytes packet(8, 0xEE);
  WriteAudioHeader(packet.data(), 0x01020304, 7);
  EXPECT_EQ(packet, (Bytes{0xFF, 0x55, 4, 3, 2, 1, 7, 0}));
}

}  // namespace
}  // namespace tool

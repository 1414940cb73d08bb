// SPDX-License-Identifier: GPL-2.0-only
#include "stream/audio_packet.h"

#include <gtest/gtest.h>

#include <vector>

namespace zelk {
namespace {

std::vector<uint8_t> PacketOf(size_t length) {
  std::vector<uint8_t> packet(length);
  const uint8_t header[] = {0xFF, 0x55, 0x78, 0x56, 0x34, 0x92, 0x07, 0xAA};
  for (size_t i = 0; i < packet.size() && i < 8; ++i)
    packet[i] = header[i];
  return packet;
}

TEST(AudioPacket, TheHeaderIsReadLittleEndian) {
  SAudioHeader header;
  ASSERT_TRUE(ReadAudioHeader(PacketOf(600).data(), 600, header));
  EXPECT_EQ(header.sequence, 0x92345678U);
  EXPECT_EQ(header.backlogHint, 7);
}

TEST(AudioPacket, AHeaderThatWasUsedBeforeHoldsTheNewSequence) {
  SAudioHeader header;
  header.sequence = 0xFFFFFFFF;
  ASSERT_TRUE(ReadAudioHeader(PacketOf(600).data(), 600, header));
  EXPECT_EQ(header.sequence, 0x92345678U);
}

TEST(AudioPacket, OnlyLengthsFrom584To1448AreAccepted) {
  for (size_t length = 0; length <= 1522; ++length) {
    SAudioHeader header;
    // Exactly as much memory as the length says: a read beyond it is seen by the address sanitizer.
    const std::vector<uint8_t> packet = PacketOf(length);
    EXPECT_EQ(ReadAudioHeader(packet.data(), length, header), length >= 584 && length <= 1448) << length;
  }
}

TEST(AudioPacket, BothMagicBytesMustBeRight) {
  SAudioHeader header;
  std::vector<uint8_t> packet = PacketOf(600);
  packet[0] = 0x55;
  packet[1] = 0xFF;
  EXPECT_FALSE(ReadAudioHeader(packet.data(), packet.size(), header));
  packet[0] = 0xFF;
  EXPECT_FALSE(ReadAudioHeader(packet.data(), packet.size(), header));
  packet[0] = 0x55;
  packet[1] = 0x55;
  EXPECT_FALSE(ReadAudioHeader(packet.data(), packet.size(), header));
}

TEST(AudioPacket, TheHeaderIsWrittenWithHintAndReservedZero) {
  std::vector<uint8_t> packet(9, 0xEE);
  WriteAudioHeader(packet.data(), 0x92345678);
  EXPECT_EQ(packet, (std::vector<uint8_t>{0xFF, 0x55, 0x78, 0x56, 0x34, 0x92, 0, 0, 0xEE}));
}

TEST(AudioPacket, FrameCountIsWhatFitsAndNeverDividesByZero) {
  EXPECT_EQ(FrameCount(584, 1), 18U);
  EXPECT_EQ(FrameCount(1448, 1), 45U);
  EXPECT_EQ(FrameCount(584, 8), 2U);
  EXPECT_EQ(FrameCount(1448, 8), 5U);
  EXPECT_EQ(FrameCount(8 + 255, 8), 0U);
  EXPECT_EQ(FrameCount(8 + 256 + 255, 8), 1U);
  EXPECT_EQ(FrameCount(1448, 0), 0U);
  EXPECT_EQ(FrameCount(7, 1), 0U);
}

}  // namespace
}  // namespace zelk

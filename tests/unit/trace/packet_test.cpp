// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/packet.h"

#include <gtest/gtest.h>

#include "conversation.h"
#include "trace/core/trace_error.h"

namespace trace {
namespace {

using test::Join;

const Bytes kEthernet = test::UdpPacket(true, 40000, 5854, test::Text("ZELK D"));
const Bytes kIp(kEthernet.begin() + 14, kEthernet.end());

std::optional<SPacket> Read(int linkType, const Bytes& bytes) {
  return CPacketReader(linkType).Read({1, 5, bytes});
}

void ExpectProbe(int linkType, const Bytes& bytes) {
  const std::optional<SPacket> packet = Read(linkType, bytes);
  ASSERT_TRUE(packet) << linkType;
  EXPECT_FALSE(packet->isTcp);
  EXPECT_EQ(packet->from, (SEndpoint{test::kLibrary, 40000}));
  EXPECT_EQ(packet->to, (SEndpoint{test::kCard, 5854}));
  EXPECT_EQ(Bytes(packet->payload.begin(), packet->payload.end()), test::Text("ZELK D"));
}

TEST(Packet, OfEachLinkType) {
  ExpectProbe(1, kEthernet);
  ExpectProbe(12, kIp);
  ExpectProbe(101, kIp);
  ExpectProbe(228, kIp);
  ExpectProbe(0, Join({{2, 0, 0, 0}, kIp}));
  ExpectProbe(0, Join({{0, 0, 0, 2}, kIp}));
  ExpectProbe(108, Join({{0, 0, 0, 2}, kIp}));
  ExpectProbe(113, Join({Bytes(14, 0), {0x08, 0x00}, kIp}));
  ExpectProbe(276, Join({{0x08, 0x00}, Bytes(18, 0), kIp}));
}

TEST(Packet, BehindVlanTags) {
  Bytes tagged = kEthernet;
  tagged[12] = 0x81;
  tagged[13] = 0x00;
  const Bytes inner{0x00, 0x07, 0x08, 0x00};
  tagged.insert(tagged.begin() + 14, inner.begin(), inner.end());
  ExpectProbe(1, tagged);
}

TEST(Packet, PaddingIsNoPayload) {
  ExpectProbe(1, Join({kEthernet, Bytes(20, 0)}));
}

TEST(Packet, FragmentsAreCounted) {
  for (const int place : {20, 21}) {  // more fragments; an offset
    Bytes fragment = kEthernet;
    fragment[static_cast<std::size_t>(place)] = 0x20;
    CPacketReader reader(1);
    EXPECT_FALSE(reader.Read({1, 0, fragment}));
    EXPECT_EQ(reader.Counts().fragments, 1U);
  }
}

TEST(Packet, NoShorterPacketIsReadBeyondItsEnd) {
  const Bytes tcp = test::TcpPacket(true, 7, 8, 0x18, test::Text("payload"));
  for (const Bytes& whole : {kEthernet, tcp}) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      const std::optional<SPacket> packet = Read(1, cut);
      EXPECT_EQ(packet.has_value(), size >= (whole == tcp ? 54U : 42U)) << size;
      EXPECT_TRUE(!packet || packet->leftOut == whole.size() - size) << size;
    }
  }
}

TEST(Packet, LengthsThatContradictEachOtherAreNone) {
  Bytes shortHeader = kEthernet;
  shortHeader[14] = 0x44;
  EXPECT_FALSE(Read(1, shortHeader));
  Bytes shortUdp = kEthernet;
  shortUdp[39] = 7;
  EXPECT_FALSE(Read(1, shortUdp));
  Bytes longOffset = test::TcpPacket(true, 7, 8, 0x18, {});
  longOffset[46] = 0xF0;
  EXPECT_FALSE(Read(1, longOffset));
  Bytes shortTotal = kEthernet;
  shortTotal[17] = 10;
  EXPECT_FALSE(Read(1, shortTotal));
}

TEST(Packet, AnotherLinkTypeIsRefusedByName) {
  CCaptureFile file(test::Stream(test::PcapFile({}, 105)), "wlan.pcap");
  try {
    CPacketReader reader(file);
    FAIL();
  } catch (const CTraceError& error) {
    EXPECT_EQ(error.Code(), EExit::kBadInput);
    EXPECT_STREQ(error.what(), "wlan.pcap: its packets are of the link type IEEE802_11, not of a network with IP");
  }
}

}  // namespace
}  // namespace trace

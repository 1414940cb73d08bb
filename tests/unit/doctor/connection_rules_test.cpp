// SPDX-License-Identifier: GPL-2.0-only
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "findings.h"

namespace doctor {
namespace {

using test::Begun;
using test::FactsOf;
using test::Measured;
using test::Said;
using testing::ElementsAre;
using testing::IsEmpty;
using tool::Bytes;
using trace::kMillisecond;
using trace::kSecond;
using trace::test::CConversation;
using trace::test::kBegin;
using trace::test::TcpPacket;
using trace::test::Text;
using trace::test::UdpPacket;
using trace::test::Wire;

constexpr std::uint8_t kSyn = 0x02;
constexpr std::uint8_t kResetAck = 0x14;
constexpr std::uint8_t kFinAck = 0x11;

// Something that shows how long the capture goes on.
void Until(Wire& wire, trace::Time time) {
  wire.push_back({kBegin + time, UdpPacket(true, 9, 9, Text("other"))});
}

Wire Probed(bool isAnswered) {
  Wire wire;
  for (int i = 0; i < 3; ++i) {
    wire.push_back({kBegin + i * kMillisecond, UdpPacket(true, 40001, tool::kCardPort, Text("ZELK D"))});
  }
  if (isAnswered) {
    wire.push_back(
        {kBegin + 4 * kMillisecond, UdpPacket(false, tool::kCardPort, tool::kCardPort, tool::BuildDiscoveryReply())});
  }
  return wire;
}

std::vector<std::string> SaidOfConnection(const Wire& wire) {
  return Said(ConnectionRules(FactsOf(wire)));
}

TEST(DoctorConnection, ASoundOneHasNothingToRemark) {
  Wire wire = Probed(true);
  CConversation talk;
  talk.Wait(10 * kMillisecond);
  talk.Open();
  talk.SetUp(1);
  for (int i = 0; i < 8; ++i) {
    talk.Wait(kSecond / 2);
    talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
  }
  talk.Close();
  wire.insert(wire.end(), talk.wire.begin(), talk.wire.end());
  Until(wire, 30 * kSecond);
  EXPECT_THAT(SaidOfConnection(wire), IsEmpty());
}

TEST(DoctorConnection, ProbesWithoutReplyAreTold) {
  Wire wire = Probed(false);
  Until(wire, kSecond / 2);
  EXPECT_THAT(SaidOfConnection(wire), IsEmpty());  // a reply may come yet
  Until(wire, 2 * kSecond);
  EXPECT_THAT(SaidOfConnection(wire),
              ElementsAre("fault discovery-no-reply: No card answers; the library asked 3 times."));
}

TEST(DoctorConnection, AReplyThatNobodyHearsIsTold) {
  Wire wire = Probed(true);
  Until(wire, kSecond);
  EXPECT_THAT(SaidOfConnection(wire), IsEmpty());
  Until(wire, 5 * kSecond);
  EXPECT_THAT(SaidOfConnection(wire),
              ElementsAre("fault discovery-not-heard: Card 127.0.1.1 answers the probes, and the library "
                          "does not connect to it."));
}

TEST(DoctorConnection, ASynWithoutAnswerIsTold) {
  Wire wire{{kBegin, TcpPacket(true, 1, 0, kSyn, {})}, {kBegin + kSecond, TcpPacket(true, 1, 0, kSyn, {})}};
  Until(wire, 2 * kSecond);
  const Findings findings = ConnectionRules(FactsOf(wire));
  EXPECT_THAT(Said(findings), ElementsAre("fault connection-no-answer: Card 127.0.1.1 does not answer when the library "
                                          "connects to its TCP port 5854."));
  EXPECT_THAT(findings[0].evidence,
              ElementsAre("packet 1 (2023-11-14T22:13:20.000Z): SYN of the library, nothing came back"));
}

TEST(DoctorConnection, ARefusedOneIsTold) {
  Wire wire{{kBegin, TcpPacket(true, 1, 0, kSyn, {})}, {kBegin + kMillisecond, TcpPacket(false, 0, 2, kResetAck, {})}};
  Until(wire, 2 * kSecond);
  EXPECT_THAT(SaidOfConnection(wire),
              ElementsAre("fault connection-refused: Card 127.0.1.1 refuses the control connection."));
}

TEST(DoctorConnection, ACardThatSaysNothingIsTold) {
  CConversation talk;
  talk.Open();
  for (int i = 0; i < 3; ++i) {
    talk.Send(true, {0xFF, 0x01});
    talk.Wait(kSecond);
  }
  EXPECT_THAT(SaidOfConnection(talk.wire),
              ElementsAre("fault card-says-nothing: Card 127.0.1.1 takes the control connection and "
                          "does not say what it is."));
}

TEST(DoctorConnection, BadInformationIsTold) {
  for (const tool::SCardIdentity identity : {tool::SCardIdentity{.trunks = 9}, {.serial = 0}}) {
    CConversation talk;
    talk.Open();
    talk.Send(true, {0xFF, 0x01});
    talk.Send(false, tool::BuildInformation(identity));
    EXPECT_THAT(
        SaidOfConnection(talk.wire),
        testing::Contains(testing::AllOf(testing::StartsWith("fault card-bad-information: Card "),
                                         testing::EndsWith(" says of itself what the library does not take."))));
  }
}

TEST(DoctorConnection, ASilentCardIsTold) {
  CConversation talk = Begun();
  talk.Wait(900 * kMillisecond);
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
  EXPECT_THAT(SaidOfConnection(talk.wire), IsEmpty());
  talk.Wait(3200 * kMillisecond);
  talk.Send(false, tool::BuildTrunkStatus(Bytes{0}));
  EXPECT_THAT(SaidOfConnection(talk.wire),
              ElementsAre("fault card-silent: Card 100001 said nothing on its control connection for 3.2 s, and a "
                          "library takes it as lost after 1 s."));
}

TEST(DoctorConnection, OneThatTheLibraryGaveUpIsTold) {
  CConversation talk = Begun();
  talk.Wait(1001 * kMillisecond);
  talk.Close();
  EXPECT_THAT(SaidOfConnection(talk.wire),
              ElementsAre(testing::HasSubstr("fault card-silent: Card 100001 said nothing")));
}

TEST(DoctorConnection, OneThatTheCardClosedIsTold) {
  CConversation talk = Begun();
  talk.wire.push_back({talk.wire.back().time + 1, TcpPacket(false, 0xFFFFFF00 + 60, 1100, kFinAck, {})});
  EXPECT_THAT(SaidOfConnection(talk.wire),
              ElementsAre("warning connection-ended-by-card: Card 100001 closed its control connection."));
}

TEST(DoctorConnection, ManyConnectionsAreTold) {
  Wire wire;
  for (std::uint16_t i = 0; i < 5; ++i) {
    CConversation talk(static_cast<std::uint16_t>(41000 + i));
    talk.Wait(i * kSecond);
    talk.Open();
    talk.SetUp(1);
    talk.Close();
    wire.insert(wire.end(), talk.wire.begin(), talk.wire.end());
  }
  EXPECT_THAT(SaidOfConnection(wire), ElementsAre("warning connections-many: Card 100001 was connected 5 times."));
}

TEST(DoctorCapture, WhatIsWrongWithItIsTold) {
  Wire wire;
  Until(wire, kSecond);
  EXPECT_THAT(Said(WireRules(FactsOf(wire))),
              ElementsAre("not seen capture-empty: test.pcap: none of its 1 packets is of a card."));
  CConversation talk = Begun();
  talk.wire.erase(talk.wire.begin() + 9);  // something of the card
  EXPECT_THAT(Measured(WireRules(FactsOf(talk.wire))),
              testing::Contains("capture-note: test.pcap: 1 gaps in the control connections."));
  Bytes cut = trace::test::PcapFile(Begun().wire);
  cut.resize(cut.size() - 5);
  trace::CCaptureFile file(trace::test::Stream(cut), "cut.pcap");
  EXPECT_THAT(Said(WireRules(CWireObserver().Run(file, 0))),
              ElementsAre(testing::StartsWith("not seen capture-cut: cut.pcap: ")));
}

}  // namespace
}  // namespace doctor

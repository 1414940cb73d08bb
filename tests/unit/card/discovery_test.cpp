// SPDX-License-Identifier: GPL-2.0-only
#include "card/discovery.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "card/card.h"
#include "runtime/log.h"
#include "support/addresses.h"
#include "support/discovery_responder.h"

namespace zelk {
namespace {

bool IsReply(const std::vector<uint8_t>& datagram) {
  return IsDiscoveryReply(datagram.data(), datagram.size());
}

TEST(DiscoveryReply, NeedsHeadVersionAndLength) {
  EXPECT_TRUE(IsReply(DiscoveryReply()));
  EXPECT_TRUE(IsReply(DiscoveryReply("ZELK R", 1, 1500)));
  EXPECT_FALSE(IsReply(DiscoveryReply("ZELK R", 1, 14)));
  EXPECT_FALSE(IsReply(DiscoveryReply("ZELK R", 2)));
  EXPECT_FALSE(IsReply(DiscoveryReply("ZELK R", 0)));
  EXPECT_FALSE(IsReply(DiscoveryReply("ZELK D")));
  EXPECT_FALSE(IsReply(DiscoveryReply("zelk r")));
  EXPECT_FALSE(IsReply({}));
}

TEST(Announcement, CarriesTheSerialNumberAt18) {
  std::array<uint8_t, kDatagramBytes> buffer{};
  const std::vector<uint8_t> datagram = DiscoveryReply("ZELK B", 1, 22);
  std::copy(datagram.begin(), datagram.end(), buffer.begin());
  buffer[18] = 0x78;
  buffer[19] = 0x56;
  buffer[20] = 0x34;
  buffer[21] = 0xF2;
  uint32_t serialNumber = 0;
  ASSERT_TRUE(ParseAnnouncement(buffer, 22, serialNumber));
  EXPECT_EQ(serialNumber, 0xF2345678U);
  ASSERT_TRUE(ParseAnnouncement(buffer, 15, serialNumber));
  EXPECT_EQ(serialNumber, 0xF2345678U) << "a short one is read from what the buffer held";
  EXPECT_FALSE(ParseAnnouncement(buffer, 14, serialNumber));
  EXPECT_FALSE(ParseAnnouncement(buffer, kDatagramBytes + 1, serialNumber));
  buffer[6] = 2;
  EXPECT_FALSE(ParseAnnouncement(buffer, 22, serialNumber));
  buffer[6] = 1;
  buffer[5] = 'R';
  EXPECT_FALSE(ParseAnnouncement(buffer, 22, serialNumber));
}

TEST(BroadcastAddress, SetsTheBitsOutsideTheMask) {
  EXPECT_EQ(BroadcastAddress(Address("10.1.2.3"), Address("255.255.255.0")), Address("10.1.2.255"));
  EXPECT_EQ(BroadcastAddress(Address("127.0.0.1"), Address("255.0.0.0")), Address("127.255.255.255"));
  EXPECT_EQ(BroadcastAddress(Address("10.1.2.3"), Address("255.255.255.255")), Address("10.1.2.3"));
}

TEST(AddDiscoveredCard, KeepsTheFirstAdapterAndTheBound) {
  const SIpv4Address first = Address("10.1.1.1");
  const SIpv4Address second = Address("10.1.2.1");
  const auto card = [](uint32_t number) { return Address("10.1.3." + std::to_string(number)); };
  std::vector<SDiscoveredCard> cards;
  EXPECT_TRUE(AddDiscoveredCard(cards, {card(1), first}));
  EXPECT_TRUE(AddDiscoveredCard(cards, {card(1), second}));
  ASSERT_EQ(cards.size(), 1U);
  EXPECT_EQ(cards[0].localAddress, first);
  for (uint32_t i = 2; i <= kMaxCards; ++i) {
    EXPECT_TRUE(AddDiscoveredCard(cards, {card(i), first}));
  }
  EXPECT_FALSE(AddDiscoveredCard(cards, {card(kMaxCards + 1), first}));
  EXPECT_TRUE(AddDiscoveredCard(cards, {card(5), first}));
  EXPECT_EQ(cards.size(), size_t{kMaxCards});
}

TEST(Discovery, CountsEachCardOnceInTheOrderOfTheFirstReplies) {
  CDiscoveryResponder neighbours(std::vector<SDiscoveryAnswer>{{"127.0.0.9", DiscoveryReply()},
                                                               {"127.0.0.5", DiscoveryReply("ZELK R", 1, 14)},
                                                               {"127.0.0.6", DiscoveryReply("ZELK R", 2)},
                                                               {"127.0.0.7", DiscoveryReply("OTHER!")},
                                                               {"127.0.0.8", DiscoveryReply("ZELK R", 1, 64)}});
  ASSERT_TRUE(neighbours.IsReady());
  std::vector<SDiscoveredCard> cards;
  EXPECT_EQ(DiscoverCards(cards), 2);
  ASSERT_EQ(cards.size(), 2U);
  EXPECT_EQ(cards[0].cardAddress, Address("127.0.0.9"));
  EXPECT_EQ(cards[1].cardAddress, Address("127.0.0.8"));
  EXPECT_EQ(cards[0].localAddress, Address("127.0.0.1"));
  EXPECT_EQ(neighbours.Probes(), 3);
}

TEST(Discovery, FindsNothingWhereNobodyAnswers) {
  std::vector<SDiscoveredCard> cards{{Address("10.1.1.2"), Address("10.1.1.1")}};
  EXPECT_EQ(DiscoverCards(cards), 0);
  EXPECT_TRUE(cards.empty());
}

TEST(Discovery, TakesTwentyCardsAndNotesThatThereAreMoreOnce) {
  const std::string path = (std::filesystem::temp_directory_path() / "zelk-discovery-test.log").string();
  std::filesystem::remove(path);
  std::vector<SDiscoveryAnswer> answers;
  for (int i = 1; i <= 23; ++i) {
    answers.push_back({"127.0.1." + std::to_string(i), DiscoveryReply()});
  }
  CDiscoveryResponder neighbours(answers);
  std::vector<SDiscoveredCard> cards;
  EXPECT_EQ(DiscoverCards(cards), 20);
  EXPECT_EQ(cards[19].cardAddress, Address("127.0.1.20"));
  ASSERT_TRUE(Log().Start(path));
  Log().Stop();
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::string line = "Discovery: more than 20 cards answered";
  ASSERT_NE(text.find(line), std::string::npos) << text;
  EXPECT_EQ(text.find(line, text.find(line) + 1), std::string::npos);
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/log_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace doctor {
namespace {

SLogFacts Read(const std::string& text) {
  std::istringstream in(text);
  return ReadLog(in, "libZelkApi.log");
}

std::uint64_t CountOf(const SLogFacts& facts, ELogEvent event, const std::string& subject = {}) {
  const auto found = facts.events.find({event, subject});
  return found == facts.events.end() ? 0 : found->second.count;
}

TEST(DoctorLogFacts, TakesTheLinesThatTellSomething) {
  const SLogFacts facts = Read(
      "07/03/2024 14:05:09   G :Card 1 is down\r\n"
      "07/03/2024 14:05:10   G :Card 4: Trunk 0 - New Call aborted due to BCHANNEL unavailable\r\n"
      "07/03/2024 14:05:11  12 :Dial() -> new call setup failed\r\n"
      "07/03/2024 14:05:12 1000 :Answer() -> Answer() failed in Q931 Connect().\r\n"
      "07/03/2024 14:05:13   G :Card 1 is down\r\n"
      "07/03/2024 14:05:14   G :Card 0: Audio packets have waited for 2100 ms without a break, receive thread cannot "
      "keep up.\r\n");
  EXPECT_EQ(facts.fault, "");
  EXPECT_EQ(facts.lines, 6U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kCardLost, "1"), 2U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kCallRefused, "4, trunk 0"), 1U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kDialFailed, "channel 12"), 1U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kAnswerFailed, "channel 1000"), 1U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kReceiveLate, "0"), 1U);
  const SLogTally& lost = facts.events.at({ELogEvent::kCardLost, "1"});
  EXPECT_EQ(lost.first.line, 1U);
  EXPECT_EQ(lost.last.line, 5U);
  EXPECT_EQ(lost.last.text, "07/03/2024 14:05:13   G :Card 1 is down");
}

TEST(DoctorLogFacts, OtherLinesAreNoEvents) {
  const SLogFacts facts = Read(
      "07/03/2024 14:05:09   G :Card 1 is up\r\n"
      "07/03/2024 14:05:09   G :Card 0: Trunk 1 - DCHANNEL DOWN\r\n"
      "07/03/2024 14:05:09   G :Debug Message: Card[0] Link[1]: Card 1 is down\r\n"
      "07/03/2024 14:05:09  12 :Call Status Alerting\r\n");
  EXPECT_TRUE(facts.events.empty());
  EXPECT_EQ(facts.foreign, 0U);
}

TEST(DoctorLogFacts, OnlyTheLastDayCountsButForStarts) {
  const SLogFacts facts = Read(
      "28/02/2024 10:00:00   G :Discovery: more than 20 cards answered, the others are ignored\r\n"
      "28/02/2024 10:00:00   G :Card 19: 4 of 8 Trunks have no channels, the channel table is full\r\n"
      "28/02/2024 12:00:00   G :Card 2 is down\r\n"
      "28/02/2024 12:00:01   G :Card 2 is down\r\n"
      "29/02/2024 12:00:00   G :Card 2 is up\r\n");
  EXPECT_EQ(CountOf(facts, ELogEvent::kCardLost, "2"), 1U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kCardsIgnored), 1U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kChannelsShort, "19"), 1U);
}

TEST(DoctorLogFacts, ABinaryFileIsNoLog) {
  std::string bytes;
  for (int i = 0; i < 10'000; ++i) {
    bytes += static_cast<char>(i * 37 % 256);
  }
  EXPECT_THAT(Read(bytes).fault, testing::EndsWith("lines are no library's"));
  EXPECT_EQ(Read("").fault, "");
  // Days and months that there are not.
  EXPECT_EQ(Read("32/03/2024 14:05:09   G :Card 1 is down\r\n").fault, "1 of its 1 lines are no library's");
  EXPECT_EQ(Read("07/13/2024 14:05:09   G :Card 1 is down\r\n").fault, "1 of its 1 lines are no library's");
}

TEST(DoctorLogFacts, SomeForeignLinesAreCountedAlone) {
  const SLogFacts facts = Read(
      "07/03/2024 14:05:09   G :Debug Message: Card[0] Link[1]: two\nlines\r\n"
      "07/03/2024 14:05:10   G :Card 1 is down\r\n07/03/20");
  EXPECT_EQ(facts.lines, 4U);
  EXPECT_EQ(facts.foreign, 2U);
  EXPECT_EQ(facts.fault, "");
  EXPECT_EQ(CountOf(facts, ELogEvent::kCardLost, "1"), 1U);
}

TEST(DoctorLogFacts, AHugeLineIsCut) {
  const SLogFacts facts = Read("07/03/2024 14:05:09   G :" + std::string(5'000'000, 'x') +
                               "\r\n07/03/2024 14:05:10   G :Card 1 is down" + std::string(5'000'000, ' '));
  EXPECT_EQ(facts.lines, 2U);
  EXPECT_EQ(CountOf(facts, ELogEvent::kCardLost, "1"), 1U);
  EXPECT_LT(facts.events.begin()->second.last.text.size(), 400U);
}

TEST(DoctorLogFacts, WhatIsKeptIsBounded) {
  std::string text;
  for (int i = 0; i < 5000; ++i) {
    text += "07/03/2024 14:05:09   G :Card " + std::to_string(i) + " is down\r\n";
  }
  EXPECT_EQ(Read(text).events.size(), 2000U);
}

}  // namespace
}  // namespace doctor

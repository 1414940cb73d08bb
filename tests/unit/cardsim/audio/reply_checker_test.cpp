// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/reply_checker.h"

#include <gtest/gtest.h>

#include "common/wire.h"

namespace cardsim {
namespace {

using namespace std::chrono_literals;

class ReplyChecker : public testing::Test {
 protected:
  static constexpr std::size_t kBytes = 1448;

  void Send(std::uint8_t hint = 0) {
    checker.OnSent({nextSequence++, hint, kBytes, frame}, now);
    frame += 45;
  }
  std::optional<std::uint64_t> Reply(std::uint32_t sequence, std::size_t bytes = kBytes) {
    Bytes reply(bytes, 0xD5);
    WriteAudioHeader(reply.data(), sequence, 0);
    return checker.OnReply(reply, now);
  }
  SAudioStatistics Statistics() const { return checker.Statistics(); }

  CReplyChecker checker{200ms};
  CReplyChecker::Time now{1000s};
  std::uint64_t frame = 0;
  std::uint32_t nextSequence = 1;
};

TEST_F(ReplyChecker, FirstPacketAsksForNoneAndEachLaterOneForOne) {
  Send();
  Send();
  EXPECT_EQ(Reply(0), 45U);
  Send();
  EXPECT_EQ(Reply(1), 90U);
  EXPECT_EQ(Statistics().replies, 2U);
  EXPECT_EQ(Statistics().outstanding, 0U);
  EXPECT_EQ(Statistics().missing + Statistics().late + Statistics().surplus + Statistics().sequenceGaps, 0U);
}

TEST_F(ReplyChecker, FirstPacketWithAHintAsksForFourLess) {
  for (const auto& [hint, replies] : std::vector<std::pair<std::uint8_t, std::uint64_t>>{{4, 0}, {5, 1}, {7, 3}}) {
    CReplyChecker fresh(200ms);
    fresh.OnSent({1, hint, kBytes, 0}, now);
    EXPECT_EQ(fresh.Statistics().outstanding, replies);
  }
}

TEST_F(ReplyChecker, LateIsAfterTheLimitNotAtIt) {
  Send();
  Send();
  now += 200ms;
  Reply(0);
  EXPECT_EQ(Statistics().late, 0U);
  Send();
  now += 201ms;
  Reply(1);
  EXPECT_EQ(Statistics().late, 1U);
  EXPECT_NEAR(Statistics().worstRoundTripMs, 201, 0.01);
  EXPECT_NEAR(Statistics().meanRoundTripMs, 200.5, 0.01);
}

TEST_F(ReplyChecker, AGapOfTheCounterIsAMissingReplyAndPairingGoesOn) {
  Send();
  Send();
  Send();
  Send();
  EXPECT_EQ(Reply(10), 45U);
  EXPECT_EQ(Reply(12), 135U);
  EXPECT_EQ(Statistics().sequenceGaps, 1U);
  EXPECT_EQ(Statistics().missing, 1U);
  EXPECT_EQ(Statistics().firstReplySequence, 10U);
}

TEST_F(ReplyChecker, CounterThatWrapsIsNoGap) {
  Send();
  Send();
  Send();
  Reply(0xFFFFFFFF);
  Reply(0);
  EXPECT_EQ(Statistics().sequenceGaps, 0U);
}

TEST_F(ReplyChecker, RepeatedNumberIsAGapButNothingIsMissing) {
  Send();
  Send();
  Send();
  Reply(5);
  Reply(5);
  EXPECT_EQ(Statistics().sequenceGaps, 1U);
  EXPECT_EQ(Statistics().missing, 0U);
}

TEST_F(ReplyChecker, ReplyOfAnotherSizeIsCounted) {
  Send();
  Send();
  EXPECT_EQ(Reply(0, 584), std::nullopt);
  EXPECT_EQ(Statistics().wrongSize, 1U);
  EXPECT_EQ(Statistics().outstanding, 0U);
}

TEST_F(ReplyChecker, BadMagicAndShortRepliesAnswerNothing) {
  Send();
  Send();
  Bytes reply(kBytes, 0);
  reply[0] = 0x55;
  reply[1] = 0xFF;
  EXPECT_EQ(checker.OnReply(reply, now), std::nullopt);
  EXPECT_EQ(checker.OnReply(Bytes{0xFF, 0x55}, now), std::nullopt);
  EXPECT_EQ(Statistics().badMagic, 2U);
  EXPECT_EQ(Statistics().outstanding, 1U);
}

TEST_F(ReplyChecker, ReplyToNothingIsSurplus) {
  Send();
  EXPECT_EQ(Reply(0), std::nullopt);
  EXPECT_EQ(Statistics().surplus, 1U);
}

TEST_F(ReplyChecker, WhatIsNeverAnsweredIsMissingAfterAWhileAndAtTheEnd) {
  Send();
  Send();
  now += CReplyChecker::kMissingAfter + 1ms;
  Send();
  EXPECT_EQ(Statistics().missing, 1U);
  EXPECT_EQ(Statistics().outstanding, 1U);
  now += 201ms;
  Send();
  checker.Finish(now);
  EXPECT_EQ(Statistics().missing, 2U);
  EXPECT_EQ(Statistics().cutOff, 1U);  // the last one had its time still before it
  EXPECT_EQ(Statistics().outstanding, 0U);
}

TEST_F(ReplyChecker, NewStreamStartsAnewAndKeepsTheTotals) {
  Send();
  Send();
  Reply(0);
  checker.Restart(now);
  nextSequence = 1;
  Send();
  Send();
  Reply(77);
  EXPECT_EQ(Statistics().sequenceGaps, 0U);
  EXPECT_EQ(Statistics().packetsSent, 4U);
  EXPECT_EQ(Statistics().replies, 2U);
}

TEST_F(ReplyChecker, APacketLostOnTheWayIsNotWaitedFor) {
  Send();  // frame 0
  Send();  // 45
  EXPECT_EQ(Reply(0), 45U);
  ++nextSequence;  // the next two are lost
  ++nextSequence;
  frame += 90;
  Send();  // 180: a gap of two starts anew, without a reply
  EXPECT_EQ(Statistics().outstanding, 0U);
  Send();
  EXPECT_EQ(Reply(1), 225U);
  EXPECT_EQ(Statistics().losses, 1U);
  EXPECT_EQ(Statistics().missing + Statistics().surplus, 0U);
}

}  // namespace
}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/reply_model.h"

#include <gtest/gtest.h>

namespace cardsim {
namespace {

// The packets answered, by their numbers, in order.
std::vector<std::uint32_t> Answers(CReplyModel& model, const std::vector<std::uint32_t>& arrivals,
                                   std::uint8_t hint = 0) {
  std::vector<SArrival> answered;
  for (const std::uint32_t sequence : arrivals) {
    model.OnArrival({sequence, hint, 1448, sequence}, answered);
  }
  std::vector<std::uint32_t> numbers;
  for (const SArrival& packet : answered) {
    numbers.push_back(packet.sequence);
  }
  return numbers;
}

using Numbers = std::vector<std::uint32_t>;

TEST(ReplyModel, InOrderEveryPacketButTheFirstIsAnswered) {
  CReplyModel model;
  EXPECT_EQ(Answers(model, {1, 2, 3, 4}), (Numbers{2, 3, 4}));
  EXPECT_EQ(model.Losses() + model.OldPackets() + model.OldResets(), 0U);
}

TEST(ReplyModel, TheFirstIsAnsweredFourTimesLessThanItsHint) {
  for (const auto& [hint, replies] : std::vector<std::pair<std::uint8_t, std::size_t>>{{4, 0}, {5, 1}, {7, 3}}) {
    CReplyModel model;
    EXPECT_EQ(Answers(model, {1}, hint).size(), replies);
  }
}

TEST(ReplyModel, ASwapIsAnsweredInTheRightOrder) {
  CReplyModel model;
  EXPECT_EQ(Answers(model, {1, 3, 2, 4}), (Numbers{2, 3, 4}));
  EXPECT_EQ(model.Losses(), 0U);
}

TEST(ReplyModel, AGapOfTwoStartsAnewAndDropsTheEarlyOne) {
  CReplyModel model;
  EXPECT_EQ(Answers(model, {1, 3, 4, 5}), (Numbers{5}));
  EXPECT_EQ(model.Losses(), 1U);
}

TEST(ReplyModel, TheTenthOldPacketInARowStartsAnew) {
  CReplyModel model;
  Answers(model, {20});
  EXPECT_EQ(Answers(model, {5, 5, 5, 5, 5, 5, 5, 5, 5}), Numbers{});
  EXPECT_EQ(Answers(model, {5}, 6), (Numbers{5, 5}));
  EXPECT_EQ(Answers(model, {6}), Numbers{6});
  EXPECT_EQ(model.OldPackets(), 10U);
  EXPECT_EQ(model.OldResets(), 1U);
}

TEST(ReplyModel, ARestartWaitsForAFirstPacketAgain) {
  CReplyModel model;
  Answers(model, {1, 2, 4});
  model.Restart();
  EXPECT_EQ(Answers(model, {1, 2}), Numbers{2});
}

}  // namespace
}  // namespace cardsim

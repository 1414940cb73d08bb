#include "card/card_facts.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"

namespace zelk {
namespace {

constexpr uint8_t kGood[kCardInformationBytes] = {'Z', 'E', 'L', 'K', ' ', 2, 3,  1, 0,  0,  0,
                                                  5,   0,   0,   0,   24,  1, 15, 9, 23, 12, 31};
constexpr uint8_t kBad[kCardInformationBytes] = {'X'};

TEST(CardFacts, KeepWhatAGoodMessageSays) {
  CCardFacts facts;
  facts.Take(kGood);
  EXPECT_EQ(facts.serialNumber, 5U);
  EXPECT_EQ(facts.trunkCount, 3U);
  EXPECT_EQ(facts.featureFlags, 1U);
  EXPECT_EQ(facts.firmwareVersion, 2);
  EXPECT_EQ(facts.FirmwareDate(), "24011509");
  EXPECT_EQ(facts.BurnDate(), "23123100");
}

TEST(CardFacts, ABadMessageChangesNothingAndEndsTheWait) {
  CCardFacts facts;
  facts.Take(kGood);
  facts.BeginOpen();
  facts.Take(kBad);
  EXPECT_TRUE(facts.WaitForAnswer(0, nullptr));
  EXPECT_EQ(facts.serialNumber, 0U);
  EXPECT_EQ(facts.trunkCount, 3U);
  EXPECT_EQ(facts.FirmwareDate(), "24011509");
}

TEST(CardFacts, ANewOpeningStartsWithoutAnAnswer) {
  CCardFacts facts;
  facts.Take(kGood);
  facts.BeginOpen();
  EXPECT_EQ(facts.serialNumber, 0U);
  EXPECT_FALSE(facts.WaitForAnswer(0, nullptr));
}

TEST(CardFacts, TheWaitEndsWithTheAnswer) {
  CCardFacts facts;
  std::thread card([&] { facts.Take(kGood); });
  EXPECT_TRUE(facts.WaitForAnswer(60000, nullptr));
  card.join();
}

TEST(CardFacts, TheWaitEndsWithoutOne) {
  CCardFacts facts;
  const uint32_t start = TickMs();
  EXPECT_FALSE(facts.WaitForAnswer(60, nullptr));
  EXPECT_GE(TickMs() - start, 60U);
}

TEST(CardFacts, TheWaitCanBeCancelled) {
  CCardFacts facts;
  CStopFlag cancel;
  cancel.Set();
  const uint32_t start = TickMs();
  EXPECT_FALSE(facts.WaitForAnswer(60000, &cancel));
  EXPECT_LT(TickMs() - start, 30000U);
}

}  // namespace
}  // namespace zelk

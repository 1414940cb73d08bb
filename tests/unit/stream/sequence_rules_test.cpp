// SPDX-License-Identifier: GPL-2.0-only
#include "stream/sequence_rules.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "literal_audio.h"

namespace zelk {
namespace {

using EAction = SSequenceDecision::EAction;
using Events = std::vector<std::string>;

// Carries decisions out as the receive thread does, and writes down what happens. Packets are named by sequence and
// hint.
class CUnderTest {
 public:
  void Arrive(uint32_t sequence, uint8_t hint) {
    Carry(rules.Judge(sequence, hint), sequence, hint);
    if (rules.HeldDue())
      Carry(rules.TakeHeld(heldHint), heldSequence, heldHint);
  }
  Events Take() { return std::exchange(events, {}); }

 private:
  void Carry(const SSequenceDecision& decision, uint32_t sequence, uint8_t hint) {
    char lines[2][kMaxNoticeChars];
    const size_t count = NoticeLines(decision, lines);
    for (size_t i = 0; i < count; ++i)
      events.push_back(std::string("log ") + lines[i]);
    for (uint32_t i = 0; i < decision.replies; ++i)
      events.push_back("send");
    if (decision.action == EAction::kProcess)
      events.push_back("process " + std::to_string(sequence) + "/" + std::to_string(hint));
    if (decision.action == EAction::kHold) {
      heldSequence = sequence;
      heldHint = hint;
    }
  }

  CSequenceRules rules;
  uint32_t heldSequence = 0;
  uint8_t heldHint = 0;
  Events events;
};

class COracle {
 public:
  COracle() {
    sequence.send = [this](const literal::Packet&) { events.push_back("send"); };
    sequence.process = [this](const literal::Packet& packet) {
      events.push_back("process " + std::to_string(literal::SequenceOf(packet)) + "/" + std::to_string(packet[6]));
    };
    sequence.log = [this](const std::string& text) { events.push_back("log " + text); };
  }
  void Arrive(uint32_t number, uint8_t hint) { sequence.Arrive(literal::MakePacket(number, hint, 584)); }
  Events Take() { return std::exchange(events, {}); }

 private:
  literal::CSequence sequence;
  Events events;
};

Events Feed(const std::vector<uint32_t>& sequences, uint8_t hint = 0) {
  CUnderTest rules;
  for (const uint32_t sequence : sequences)
    rules.Arrive(sequence, hint);
  return rules.Take();
}

std::string Loss(uint32_t expected, uint32_t got) {
  return "log Packet loss?, so sequence reset, expected " + std::to_string(expected) + " got " + std::to_string(got) +
         ", processed.";
}
std::string Old(uint32_t got) {
  return "log Old/Duplicate Packet -> " + std::to_string(got) + ", ignored.";
}

TEST(SequenceRules, InStepEveryPacketHasOneReply) {
  EXPECT_EQ(Feed({1, 2, 3}), (Events{"process 1/0", "send", "process 2/0", "send", "process 3/0"}));
}

TEST(SequenceRules, TwoSwappedPacketsAreBothTakenInOrderWithoutALine) {
  EXPECT_EQ(Feed({1, 3, 2, 4}),
            (Events{"process 1/0", "send", "process 2/0", "send", "process 3/0", "send", "process 4/0"}));
}

TEST(SequenceRules, AMissingPacketIsALossWhenTheNextButOneComes) {
  EXPECT_EQ(Feed({1, 3, 4}), (Events{"process 1/0", Loss(2, 4), "process 4/0"}));
}

TEST(SequenceRules, ASecondCopyOfTheHeldPacketIsHeldAgain) {
  EXPECT_EQ(Feed({1, 3, 3, 2}), (Events{"process 1/0", "send", "process 2/0", "send", "process 3/0"}));
}

TEST(SequenceRules, AnOldPacketForgetsTheHeldOne) {
  EXPECT_EQ(Feed({1, 3, 1, 2, 3}), (Events{"process 1/0", Old(1), "send", "process 2/0", "send", "process 3/0"}));
  EXPECT_EQ(Feed({1, 3, 1, 2, 4}), (Events{"process 1/0", Old(1), "send", "process 2/0"}));
}

TEST(SequenceRules, NineOldPacketsAreIgnoredAndTheTenthIsTheNewStart) {
  CUnderTest rules;
  rules.Arrive(1000, 0);
  rules.Take();
  for (uint32_t i = 0; i < 9; ++i) {
    rules.Arrive(500 + i, 9);
    EXPECT_EQ(rules.Take(), Events{Old(500 + i)});
  }
  rules.Arrive(600, 6);
  EXPECT_EQ(rules.Take(), (Events{Old(600), "log Too many Old/Duplicate Packets, so sequence reset to 600, processed.",
                                  "send", "send", "process 600/6"}));
  rules.Arrive(601, 6);
  EXPECT_EQ(rules.Take(), (Events{"send", "process 601/6"}));
}

TEST(SequenceRules, AProcessedPacketStartsTheCountOfOldOnesAgain) {
  CUnderTest rules;
  rules.Arrive(100, 0);
  for (int i = 0; i < 9; ++i)
    rules.Arrive(1, 0);
  rules.Arrive(101, 0);
  rules.Take();
  for (int i = 0; i < 9; ++i) {
    rules.Arrive(2, 0);
    EXPECT_EQ(rules.Take(), Events{Old(2)});
  }
}

TEST(SequenceRules, AHeldPacketDoesNotStartTheCountOfOldOnesAgain) {
  CUnderTest rules;
  rules.Arrive(100, 0);
  for (int i = 0; i < 9; ++i)
    rules.Arrive(1, 0);
  rules.Arrive(102, 0);
  rules.Take();
  rules.Arrive(1, 0);
  EXPECT_EQ(rules.Take(),
            (Events{Old(1), "log Too many Old/Duplicate Packets, so sequence reset to 1, processed.", "process 1/0"}));
}

TEST(SequenceRules, TheFirstPacketSendsFourLessThanTheBacklogHint) {
  for (unsigned hint = 0; hint < 256; ++hint) {
    CUnderTest rules;
    rules.Arrive(1, static_cast<uint8_t>(hint));
    Events expected(hint >= 5 ? hint - 4 : 0, "send");
    expected.push_back("process 1/" + std::to_string(hint));
    EXPECT_EQ(rules.Take(), expected);
  }
}

TEST(SequenceRules, ALossSendsFourLessThanTheBacklogHint) {
  CUnderTest rules;
  rules.Arrive(1, 0);
  rules.Take();
  rules.Arrive(9, 7);
  EXPECT_EQ(rules.Take(), (Events{Loss(2, 9), "send", "send", "send", "process 9/7"}));
}

TEST(SequenceRules, TheFirstPacketIsJudgedAgainstOne) {
  EXPECT_EQ(Feed({1}), Events{"process 1/0"});
  EXPECT_EQ(Feed({2}), Events{});
  EXPECT_EQ(Feed({0}), Events{Old(0)});
  EXPECT_EQ(Feed({3}), (Events{Loss(1, 3), "process 3/0"}));
  EXPECT_EQ(Feed({0xFFFFFFFF}), (Events{Loss(1, 0xFFFFFFFF), "process 4294967295/0"}));
}

TEST(SequenceRules, AMissingFirstPacketResynchronises) {
  EXPECT_EQ(Feed({2, 1, 3}, 6), (Events{"send", "send", "process 1/6", "send", "process 2/6", "send", "process 3/6"}));
}

TEST(SequenceRules, TheCounterWrapsWithoutALine) {
  EXPECT_EQ(Feed({0xFFFFFFFE, 0xFFFFFFFF, 0, 1}),
            (Events{Loss(1, 0xFFFFFFFE), "process 4294967294/0", "send", "process 4294967295/0", "send", "process 0/0",
                    "send", "process 1/0"}));
}

TEST(SequenceRules, SwappedPacketsAcrossTheWrapAreTakenInOrder) {
  EXPECT_EQ(Feed({0xFFFFFFFE, 0, 0xFFFFFFFF, 1}),
            (Events{Loss(1, 0xFFFFFFFE), "process 4294967294/0", "send", "process 4294967295/0", "send", "process 0/0",
                    "send", "process 1/0"}));
}

// With 0xFFFFFFFF expected, one ahead is 0 and every other number is greater than that: a loss, even an older number.
TEST(SequenceRules, JustBeforeTheWrapAnOldNumberCountsAsALoss) {
  EXPECT_EQ(Feed({0xFFFFFFFE, 0xFFFFFFF0}), (Events{Loss(1, 0xFFFFFFFE), "process 4294967294/0",
                                                    Loss(0xFFFFFFFF, 0xFFFFFFF0), "process 4294967280/0"}));
}

// After the wrap a number from before it is far ahead.
TEST(SequenceRules, JustAfterTheWrapANumberFromBeforeItCountsAsALoss) {
  EXPECT_EQ(Feed({0xFFFFFFFF, 0, 0xFFFFFFFF}), (Events{Loss(1, 0xFFFFFFFF), "process 4294967295/0", "send",
                                                       "process 0/0", Loss(1, 0xFFFFFFFF), "process 4294967295/0"}));
}

TEST(SequenceRules, EveryShortOrderOfNearNumbersMatchesTheLiteralForm) {
  for (const uint32_t base : {0U, 0xFFFFFFFCU}) {
    for (int order = 0; order < 8 * 8 * 8 * 8 * 8; ++order) {
      CUnderTest rules;
      COracle oracle;
      for (int i = 0, rest = order; i < 5; ++i, rest /= 8) {
        const uint32_t sequence = base + static_cast<uint32_t>(rest % 8);
        rules.Arrive(sequence, 5);
        oracle.Arrive(sequence, 5);
      }
      ASSERT_EQ(rules.Take(), oracle.Take()) << base << " " << std::oct << order;
    }
  }
}

TEST(SequenceRules, RandomOrdersMatchTheLiteralForm) {
  std::mt19937 random(20);
  const auto draw = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
  for (int run = 0; run < 200; ++run) {
    CUnderTest rules;
    COracle oracle;
    uint32_t next = run % 2 == 0 ? 1 : 0xFFFFFFF0U;
    for (int i = 0; i < 200; ++i) {
      const uint32_t kind = draw(12);
      uint32_t sequence = next;
      if (kind == 0)
        sequence = next + 1;
      else if (kind == 1)
        sequence = next - draw(20);
      else if (kind == 2)
        sequence = next + draw(5);
      else if (kind == 3)
        sequence = draw(10) == 0 ? static_cast<uint32_t>(random()) : next;
      const auto hint = static_cast<uint8_t>(draw(9));
      rules.Arrive(sequence, hint);
      oracle.Arrive(sequence, hint);
      ASSERT_EQ(rules.Take(), oracle.Take()) << run << " " << i << " " << sequence;
      if (kind != 1)
        next = sequence + 1;
    }
  }
}

}  // namespace
}  // namespace zelk

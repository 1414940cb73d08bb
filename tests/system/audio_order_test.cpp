// SPDX-License-Identifier: GPL-2.0-only
#include <cstring>
#include <random>
#include <utility>

#include "common/wire.h"
#include "system_fixture.h"

namespace {

using cardsim::Bytes;

size_t CountOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
    ++count;
  }
  return count;
}

// Packets go one by one, as the test says; the card and the library are otherwise as in real life.
class AudioOrder : public CSystemTest {
 protected:
  void StartStill(const std::vector<int>& trunksOfCards = {1}) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks(trunksOfCards));
    sim->Start();
    for (size_t i = 0; i < trunksOfCards.size(); ++i) {
      Card(i).Audio().SetPacing(false);
    }
    app = std::make_unique<support::CApplication>("[Debug]\nLevel=1\nFlushImmediate=1\n");
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    ASSERT_TRUE(Card().Seen().WaitReady(kSoon));
    Card().Audio().KeepReplies(true);
  }

  void Send(const std::vector<uint32_t>& sequences, uint8_t hint = 0) {
    Card().Audio().SetBacklogHint(hint);
    for (const uint32_t sequence : sequences) {
      Card().Audio().SendPacket(sequence);
    }
  }

  // The library answers in order, so the reply to a packet that certainly gets one shows how many came before it.
  // The numbers of all replies so far; `inStep` is the packet that follows the one processed last.
  std::vector<uint32_t> RepliesUpTo(uint32_t inStep, size_t expected) {
    Send({inStep});
    EXPECT_TRUE(Card().Audio().WaitReplies(expected + 1, kSoon)) << app->zelk.LogText();
    std::vector<uint32_t> numbers;
    for (const cardsim::SReply& reply : Card().Audio().Replies()) {
      numbers.push_back(cardsim::ReadLe32(&reply.bytes[2]));
      EXPECT_EQ(reply.bytes.size(), cardsim::AudioPacketBytes(1, 45));
      EXPECT_EQ(reply.bytes[6], 0);
      EXPECT_EQ(reply.bytes[7], 0);
    }
    return numbers;
  }

  static std::vector<uint32_t> UpTo(uint32_t count) {
    std::vector<uint32_t> numbers(count);
    for (uint32_t i = 0; i < count; ++i) {
      numbers[i] = i;
    }
    return numbers;
  }

  void ExpectNoLine() { EXPECT_EQ(app->zelk.LogText().find("acket"), std::string::npos) << app->zelk.LogText(); }
};

TEST_F(AudioOrder, a_first_packet_with_hint_7_is_answered_by_three) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Send({1}, 7);
  EXPECT_EQ(RepliesUpTo(2, 3), UpTo(4));
  ExpectNoLine();
}

TEST_F(AudioOrder, a_first_packet_with_hint_4_is_answered_by_none) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Send({1}, 4);
  EXPECT_EQ(RepliesUpTo(2, 0), UpTo(1));
  ExpectNoLine();
}

TEST_F(AudioOrder, packets_1_3_2_4_are_all_answered_without_a_line) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Send({1, 3, 2, 4});
  EXPECT_EQ(RepliesUpTo(5, 3), UpTo(4));
  ExpectNoLine();
}

TEST_F(AudioOrder, packets_1_3_4_are_a_loss_with_2_and_4_in_its_line) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Send({1, 3, 4});
  EXPECT_EQ(RepliesUpTo(5, 0), UpTo(1));
  EXPECT_TRUE(app->zelk.WaitLog("Card 0: Packet loss?, so sequence reset, expected 2 got 4, processed.\r\n"));
  EXPECT_EQ(CountOf(app->zelk.LogText(), "acket"), 1U);
}

TEST_F(AudioOrder, a_loss_with_hint_9_is_answered_by_five) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Send({1, 2});
  Send({100}, 9);
  EXPECT_EQ(RepliesUpTo(101, 6), UpTo(7));
  EXPECT_TRUE(app->zelk.WaitLog("Card 0: Packet loss?, so sequence reset, expected 3 got 100, processed.\r\n"));
}

TEST_F(AudioOrder, nine_old_packets_are_ignored_the_tenth_is_the_new_start) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Send({50, 51});
  Send({40, 41, 42, 43, 44, 45, 46, 47, 48});
  EXPECT_EQ(RepliesUpTo(52, 1), UpTo(2));
  Send({40, 41, 42, 43, 44, 45, 46, 47, 48, 49}, 6);
  EXPECT_EQ(RepliesUpTo(50, 4), UpTo(5));
  EXPECT_TRUE(app->zelk.WaitLog("Card 0: Too many Old/Duplicate Packets, so sequence reset to 49, processed.\r\n"));
  const std::string log = app->zelk.LogText();
  EXPECT_EQ(CountOf(log, "Card 0: Old/Duplicate Packet -> "), 19U);
  for (uint32_t old = 40; old <= 48; ++old) {
    EXPECT_EQ(CountOf(log, "Card 0: Old/Duplicate Packet -> " + std::to_string(old) + ", ignored.\r\n"), 2U);
  }
  EXPECT_EQ(CountOf(log, "Too many"), 1U);
}

TEST_F(AudioOrder, the_first_packet_is_judged_against_1) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Send({0});  // old
  Send({2});  // held
  Send({3}, 6);
  EXPECT_EQ(RepliesUpTo(4, 2), UpTo(3));
  EXPECT_TRUE(app->zelk.WaitLog("Card 0: Packet loss?, so sequence reset, expected 1 got 3, processed.\r\n"));
  EXPECT_EQ(CountOf(app->zelk.LogText(), "Card 0: Old/Duplicate Packet -> 0, ignored.\r\n"), 1U);
}

// Packets of 583 and 1449 bytes, of wrong magic or from elsewhere change nothing.
TEST_F(AudioOrder, packets_of_wrong_size_magic_or_sender_change_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartStill({1, 1}));
  Send({1, 2});
  const auto packet = [](size_t bytes) {
    Bytes made(bytes, 0x2A);
    cardsim::WriteAudioHeader(made.data(), 1000, 99);
    return made;
  };
  Card().Audio().SendRaw(packet(583));
  Card().Audio().SendRaw(packet(1449));
  Bytes swapped = packet(1448);
  std::swap(swapped[0], swapped[1]);
  Card().Audio().SendRaw(swapped);
  // The other card is a stranger on this one's socket.
  uint16_t port = 0;
  for (const cardsim::SControlMessage& message : Card().Seen().Messages()) {
    if (message.Is(cardsim::EControlType::kAudioPort)) {
      port = cardsim::ReadLe16(&message.bytes[2]);
    }
  }
  ASSERT_NE(port, 0);
  Card(1).Audio().KeepReplies(true);
  Card(1).SendDatagram(packet(1448), "127.0.0.1", port);
  EXPECT_EQ(RepliesUpTo(3, 1), UpTo(2));
  EXPECT_TRUE(Card(1).Audio().Replies().empty());
  ExpectNoLine();
}

// The order rules as a list of what happens, by this test's own reckoning.
class COrderRules {
 public:
  void Arrive(uint32_t number, uint8_t hint) {
    const uint32_t kept = std::exchange(early, 0);
    const uint8_t keptHint = earlyHint;
    const bool isMissing = number == last + 1;
    Judge(number, hint);
    if (kept != 0 && isMissing) {
      Judge(kept, keptHint);
    }
  }

  uint32_t last = 0;
  size_t replies = 0;
  std::string lines;  // without their dates

 private:
  void Judge(uint32_t number, uint8_t hint) {
    const std::string text = std::to_string(number);
    if (number == last + 1 && !first) {
      ++replies;
      Process(number);
    } else if (number == last + 1) {
      Begin(number, hint);
    } else if (number == last + 2) {
      early = number;
      earlyHint = hint;
    } else if (number > last + 2) {
      Line("Packet loss?, so sequence reset, expected " + std::to_string(last + 1) + " got " + text + ", processed.");
      Begin(number, hint);
    } else {
      Line("Old/Duplicate Packet -> " + text + ", ignored.");
      if (++old == 10) {
        Line("Too many Old/Duplicate Packets, so sequence reset to " + text + ", processed.");
        Begin(number, hint);
      }
    }
  }
  void Begin(uint32_t number, uint8_t hint) {
    replies += hint > 4 ? hint - 4U : 0;
    Process(number);
  }
  void Process(uint32_t number) {
    first = false;
    last = number;
    old = 0;
  }
  void Line(const std::string& text) { lines += "Card 0: " + text + "\r\n"; }

  bool first = true;
  int old = 0;
  uint32_t early = 0;  // 0: none is kept
  uint8_t earlyHint = 0;
};

class RandomOrders : public AudioOrder {
 protected:
  void SendByTheRules(uint32_t number, uint8_t hint) {
    rules.Arrive(number, hint);
    Send({number}, hint);
  }

  // Packets in order, but for some that are swapped, late or missing.
  void SendOrder() {
    constexpr int kPackets = 8;
    uint32_t next = rules.last + 1;
    for (int i = 0; i < kPackets; ++i) {
      const auto kind = static_cast<uint32_t>(random() % 8);
      const auto hint = static_cast<uint8_t>(random() % 9);
      if (kind == 0) {  // swapped with the one that follows
        SendByTheRules(next + 1, hint);
        SendByTheRules(next, hint);
        next += 2;
      } else if (kind == 1 && next > 20) {
        SendByTheRules(next - 1 - static_cast<uint32_t>(random() % 15), hint);
      } else {
        next += kind == 2 ? static_cast<uint32_t>(1 + random() % 4) : 0;
        SendByTheRules(next++, hint);
      }
    }
  }

  // Each line's own text, from the card's number on.
  std::string LinesOfPackets() {
    const std::string log = app->zelk.LogText();
    std::string lines;
    for (size_t at = 0; at < log.size();) {
      const size_t end = std::min(log.find('\n', at), log.size() - 1) + 1;
      const std::string line = log.substr(at, end - at);
      const size_t text = line.find("Card 0: ");
      if (text != std::string::npos && line.find("acket", text) != std::string::npos) {
        lines += line.substr(text);
      }
      at = end;
    }
    return lines;
  }

  std::mt19937 random{5};
  COrderRules rules;
};

TEST_F(RandomOrders, are_answered_and_logged_as_the_rules_say) {
  constexpr int kOrders = 300;
  ASSERT_NO_FATAL_FAILURE(StartStill());
  for (int order = 0; order < kOrders; ++order) {
    SendOrder();
    if (order % 10 == 9) {  // old ones only, until they are the new start
      for (int i = 0; i < 10; ++i) {
        SendByTheRules(rules.last - 5, 6);
      }
    }
    SendByTheRules(rules.last + 1, 0);
    ASSERT_TRUE(Card().Audio().WaitReplies(rules.replies, kSoon)) << order;
    ASSERT_EQ(Card().Audio().Replies().size(), rules.replies) << order;
  }
  SendByTheRules(4000000000U, 0);
  ASSERT_TRUE(app->zelk.WaitLog("got 4000000000, processed.\r\n"));
  const std::string lines = LinesOfPackets();
  EXPECT_EQ(lines, rules.lines);
  EXPECT_GT(CountOf(lines, "Packet loss?"), 100U);
  EXPECT_GT(CountOf(lines, "Old/Duplicate"), 200U);
  EXPECT_GE(CountOf(lines, "Too many"), 30U);
}

TEST_F(AudioOrder, on_a_bad_network_every_packet_gets_its_reply_and_line) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  Card().Audio().SetFaults({.loss = 3,
                            .duplicates = 3,
                            .reordered = 5,
                            .delay = std::chrono::milliseconds(15),
                            .jitter = std::chrono::milliseconds(9),
                            .seed = 11});
  Card().Audio().SetPacing(true);
  ASSERT_TRUE(Card().RecordTimeslot(0, 1)->WaitSize(20000, kSlow));
  Card().Audio().PauseFor(std::chrono::milliseconds(300));
  ASSERT_TRUE(Card().RecordTimeslot(0, 1)->WaitSize(8000, kSlow));
  Card().Audio().SetPacing(false);
  // A new start lets go what was kept aside; what is still under way arrives.
  Card().Audio().SetFaults({});
  Send({1000000}, 5);
  ASSERT_TRUE(Card().Audio().WaitArrived(kSoon));
  Send({2000000}, 5);  // its line comes after those of all before it
  const cardsim::SAudioStatistics owed = Card().Audio().Statistics();
  ASSERT_TRUE(Card().Audio().WaitReplies(owed.replies + owed.outstanding, kSoon));
  const cardsim::SAudioStatistics seen = Card().Audio().Statistics();
  EXPECT_GT(seen.losses, 5U);
  EXPECT_GT(seen.oldPackets, 5U);
  EXPECT_EQ(seen.missing, 0U);
  EXPECT_EQ(seen.surplus, 0U);
  EXPECT_EQ(seen.wrongSize, 0U);
  EXPECT_EQ(seen.sequenceGaps, 0U);
  EXPECT_EQ(seen.outstanding, 0U);
  EXPECT_TRUE(app->zelk.WaitLog("got 2000000, processed.\r\n"));
  const std::string log = app->zelk.LogText();
  EXPECT_EQ(CountOf(log, "Card 0: Packet loss?, so sequence reset, expected "), seen.losses);
  EXPECT_EQ(CountOf(log, "Card 0: Old/Duplicate Packet -> "), seen.oldPackets);
  EXPECT_EQ(CountOf(log, "Card 0: Too many Old/Duplicate Packets"), seen.oldResets);
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "card/card.h"
#include "platform/socket.h"
#include "recording_handlers.h"
#include "stream/sequence_rules.h"
#include "support/addresses.h"
#include "support/fake_card.h"

namespace zelk {
namespace {

constexpr int kOrders = 320;
constexpr int kOrdersOfAnOpening = 16;
constexpr size_t kHeader = 8;
constexpr size_t kFrameBytes = 64;  // two trunks
constexpr int32_t kPatienceMs = 5000;
constexpr char kPacketLine[] = "acket";  // in every line about packets, and in no other

using EAction = SSequenceDecision::EAction;

// Keeps what timeslot 1 of trunk 0 received.
class CHearingHandlers : public CRecordingHandlers {
 public:
  void FillBlock(uint32_t, uint32_t, SBlockFill& fill) override {
    std::fill_n(fill.data, kBlockBytes, uint8_t{0xD5});
    fill.KeepQueued();
  }
  bool OnBlockReceived(uint32_t trunk, uint32_t timeslot, AudioBlock block) override {
    if (trunk == 0 && timeslot == 1) {
      const std::lock_guard<std::mutex> held(hearing);
      heard.insert(heard.end(), block.begin(), block.end());
      grown.notify_all();
    }
    return false;
  }
  bool WaitHeard(size_t bytes) {
    std::unique_lock<std::mutex> held(hearing);
    return grown.wait_for(held, std::chrono::milliseconds(kPatienceMs), [&] { return heard.size() >= bytes; });
  }
  Message TakeHeard() {
    const std::lock_guard<std::mutex> held(hearing);
    return std::exchange(heard, {});
  }

 private:
  std::mutex hearing;
  std::condition_variable grown;
  Message heard;
};

// The same orders of packets go through the rules alone and through a card on sockets.
class AudioOrders : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(fake.IsReady());
    library.address = Address("127.0.0.1");
    ASSERT_TRUE(cardAudio.OpenUdp());
    ASSERT_TRUE(cardAudio.Bind({fake.Address(), 5854}));
    ASSERT_TRUE(cardAudio.SetNonBlocking(true));
  }

  void Open() {
    ASSERT_TRUE(card.Open(fake.Address(), 5854, Address("127.0.0.1")));
    card.SetHandlers(&handlers);
    library.port = card.Audio().LocalPort();
    rules = CSequenceRules();
    last = 0;
    expectedSound.clear();
    handlers.TakeHeard();
  }

  uint32_t Draw(uint32_t below) { return static_cast<uint32_t>(random()) % below; }

  // Mostly the numbers around the one processed last, at times far ones and the counter's ends.
  uint32_t DrawSequence() {
    switch (Draw(12)) {
      case 0:
        return last + 3 + Draw(100);
      case 1:
        return last - Draw(12);
      case 2:
        return Draw(40) == 0 ? 0xFFFFFFFDU : last + 2;
      case 3:
      case 4:
        return last + 2;
      case 5:
        return last;
      default:
        return last + 1;
    }
  }

  // The rules' word on a packet, kept as what the card must do.
  void Expect(const SSequenceDecision& decision, const Message& packet) {
    char lines[2][kMaxNoticeChars];
    const size_t count = NoticeLines(decision, lines);
    for (size_t i = 0; i < count; ++i) {
      expectedLines.emplace_back(lines[i]);
    }
    expectedReplies.insert(expectedReplies.end(), decision.replies, packet.size());
    if (decision.action == EAction::kHold) {
      held = packet;
    } else if (decision.action == EAction::kProcess) {
      last = decision.received;
      expectedSound.insert(expectedSound.end(), (packet.size() - kHeader) / kFrameBytes, packet[kHeader + 1]);
    }
  }

  void SendOne(uint32_t sequence) {
    const size_t frames = 9 + Draw(14);
    Message packet(kHeader + frames * kFrameBytes, ++fill);
    const uint8_t hint = static_cast<uint8_t>(Draw(9));
    const Message header{0xFF,
                         0x55,
                         static_cast<uint8_t>(sequence),
                         static_cast<uint8_t>(sequence >> 8),
                         static_cast<uint8_t>(sequence >> 16),
                         static_cast<uint8_t>(sequence >> 24),
                         hint,
                         0};
    std::copy(header.begin(), header.end(), packet.begin());
    Expect(rules.Judge(sequence, hint), packet);
    if (rules.HeldDue()) {
      Expect(rules.TakeHeld(held[6]), held);
    }
    ASSERT_EQ(cardAudio.SendTo(packet.data(), packet.size(), library), static_cast<int>(packet.size()));
  }

  void ExpectReplies() {
    for (const size_t length : expectedReplies) {
      uint8_t reply[2000];
      SIpv4Endpoint source;
      ASSERT_EQ(cardAudio.WaitReadable(kPatienceMs), EWait::kReady);
      ASSERT_EQ(cardAudio.ReceiveFrom(reply, sizeof reply, source), static_cast<int>(length));
      const uint32_t counter = reply[2] | reply[3] << 8 | reply[4] << 16 | static_cast<uint32_t>(reply[5]) << 24;
      ASSERT_EQ(counter, nextReply++);
    }
    expectedReplies.clear();
  }

  // The first 160 bytes of a generation have no block to go to, and a block leaves with the byte that follows it.
  void ExpectSound() {
    const size_t whole = expectedSound.size() <= 160 ? 0 : (expectedSound.size() - 161) / 160 * 160;
    ASSERT_TRUE(handlers.WaitHeard(whole));
  }

  void Close() {
    // A packet that is only reported may be on its way still.
    ASSERT_TRUE(handlers.WaitForNotices(kPacketLine, expectedLines.size()));
    card.Close();
    const Message heard = handlers.TakeHeard();
    ASSERT_LE(heard.size() + 160, expectedSound.size());
    EXPECT_TRUE(std::equal(heard.begin(), heard.end(), expectedSound.begin() + 160));
    EXPECT_EQ(cardAudio.WaitReadable(0), EWait::kTimeout);  // no reply more than expected
  }

  std::vector<std::string> LinesOfTheCard() const {
    std::vector<std::string> texts;
    for (const std::string& text : handlers.Notices()) {
      if (text.find(kPacketLine) != std::string::npos) {
        texts.push_back(text);
      }
    }
    return texts;
  }

  CFakeCard fake;
  CHearingHandlers handlers;
  CCard card{3};
  CSocket cardAudio;
  SIpv4Endpoint library{};
  CSequenceRules rules;
  std::mt19937 random{2024};
  uint32_t last = 0;
  uint8_t fill = 0;
  Message held;
  uint32_t nextReply = 0;
  std::vector<size_t> expectedReplies;
  std::vector<std::string> expectedLines;
  Message expectedSound;
};

TEST_F(AudioOrders, ACardDecidesRepliesAndReportsAsTheRulesDo) {
  for (int order = 0; order < kOrders; ++order) {
    if (order % kOrdersOfAnOpening == 0) {
      ASSERT_NO_FATAL_FAILURE(Open());
    }
    const uint32_t packets = 5 + Draw(20);
    for (uint32_t i = 0; i < packets; ++i) {
      ASSERT_NO_FATAL_FAILURE(SendOne(DrawSequence()));
    }
    ASSERT_NO_FATAL_FAILURE(ExpectReplies()) << order;
    ASSERT_NO_FATAL_FAILURE(ExpectSound()) << order;
    if (order % kOrdersOfAnOpening == kOrdersOfAnOpening - 1) {
      ASSERT_NO_FATAL_FAILURE(Close());
    }
  }
  const std::vector<std::string> lines = LinesOfTheCard();
  ASSERT_EQ(lines.size(), expectedLines.size());
  EXPECT_GT(lines.size(), static_cast<size_t>(kOrders));
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_NE(lines[i].find(expectedLines[i]), std::string::npos) << lines[i] << " for " << expectedLines[i];
  }
}

}  // namespace
}  // namespace zelk

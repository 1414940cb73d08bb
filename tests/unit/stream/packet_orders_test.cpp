// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "literal_audio.h"
#include "native_system.h"
#include "platform/socket.h"
#include "stream/audio_stream.h"
#include "stream/sequence_rules.h"
#include "support/addresses.h"

// Packet orders through the pure rule and through an open audio stream with its socket and its thread: both must answer
// the same packets as often, in the same order, and give the same lines.
namespace zelk {
namespace {

using Packet = literal::Packet;
using EAction = SSequenceDecision::EAction;

constexpr int32_t kPatienceMs = 5000;
constexpr size_t kOrders = 320;
constexpr size_t kPacketsPerOrder = 14;
static_assert(kPacketsPerOrder < 27);  // there are 27 lengths, one a packet

// What an order of packets leads to. A reply is named by its length, which is that of the packet it answers.
struct STrace {
  std::vector<size_t> replies;
  std::vector<std::string> lines;
};

// The pure rule, carried out by hand.
class CRuleAlone {
 public:
  void Arrive(const Packet& packet) {
    Carry(rules.Judge(literal::SequenceOf(packet), packet[6]), packet);
    if (rules.HeldDue())
      Carry(rules.TakeHeld(held[6]), Packet(held));
  }

  STrace trace;
  uint32_t last = 0;  // number of the packet processed last

 private:
  void Carry(const SSequenceDecision& decision, const Packet& packet) {
    char lines[2][kMaxNoticeChars];
    const size_t count = NoticeLines(decision, lines);
    trace.lines.insert(trace.lines.end(), lines, lines + count);
    trace.replies.insert(trace.replies.end(), decision.replies, packet.size());
    if (decision.action == EAction::kHold)
      held = packet;
    if (decision.action == EAction::kProcess)
      last = literal::SequenceOf(packet);
  }

  CSequenceRules rules;
  Packet held;
};

// A card's end of a stream of its own.
class CStreamOnSockets : private IAudioNotice {
 public:
  explicit CStreamOnSockets(CSocket& cardSocket) : card(cardSocket), stream(*this) {
    stream.ResetChannels(SDtmfSettings());
    EXPECT_TRUE(stream.OpenSocket(Address("127.0.0.1"), Address(kCardAddress), 1, 2));
    EXPECT_TRUE(stream.StartReceiver());
  }

  void Arrive(const Packet& packet) {
    EXPECT_EQ(card.SendTo(packet.data(), packet.size(), {Address("127.0.0.1"), stream.LocalPort()}),
              static_cast<int>(packet.size()));
  }

  // The trace once this number of replies is there; what comes beyond them is in it too.
  STrace Take(size_t expectedReplies) {
    STrace trace;
    while (trace.replies.size() < expectedReplies && Receive(kPatienceMs, trace)) {
    }
    stream.RequestStop();
    stream.CloseSocket();
    EXPECT_TRUE(stream.JoinReceiver(kPatienceMs));
    while (Receive(0, trace)) {
    }
    const std::lock_guard hold(mutex);
    trace.lines = lines;
    return trace;
  }

 private:
  bool Receive(int32_t timeoutMs, STrace& trace) {
    std::array<uint8_t, 2000> reply{};
    SIpv4Endpoint source;
    if (card.WaitReadable(timeoutMs) != EWait::kReady)
      return false;
    const int length = card.ReceiveFrom(reply.data(), reply.size(), source);
    if (length <= 0)
      return false;
    trace.replies.push_back(static_cast<size_t>(length));
    return true;
  }
  void OnAudioNotice(const char* text) override {
    const std::lock_guard hold(mutex);
    lines.emplace_back(text);
  }

  CSocket& card;
  std::mutex mutex;
  std::vector<std::string> lines;
  CAudioStream stream;
};

class COrder {
 public:
  explicit COrder(unsigned seed) : random(seed), next(seed % 3 == 0 ? 0xFFFFFFFAU : seed % 3) {}

  // Mostly the next number; else one or a few ahead, back, or anything.
  Packet Next() {
    const uint32_t kind = Draw(10);
    uint32_t number = next;
    if (kind < 2)
      number = next + 1;
    else if (kind < 5)
      number = next - 1 - Draw(4);
    else if (kind == 5)
      number = next + Draw(6);
    else if (kind == 6 && Draw(4) == 0)
      number = static_cast<uint32_t>(random());
    if (kind < 2 || kind > 4)
      next = number + (kind < 2 ? 0 : 1);
    return literal::MakePacket(number, static_cast<uint8_t>(Draw(9)), 584 + 32 * count++);
  }
  // One that the rule answers, whatever came before.
  Packet Sentinel(uint32_t last) { return literal::MakePacket(last + 1, 5, 584 + 32 * count++); }

 private:
  uint32_t Draw(uint32_t bound) { return static_cast<uint32_t>(random() % bound); }

  std::mt19937 random;
  uint32_t next;
  size_t count = 0;
};

TEST(PacketOrders, AreAnsweredAndReportedOnSocketsAsTheRuleAloneSays) {
  CSocket card;
  ASSERT_TRUE(card.OpenUdp() && card.Bind({Address(kCardAddress), kCardPort}));
  size_t replies = 0;
  size_t lines = 0;
  for (unsigned seed = 0; seed < kOrders; ++seed) {
    COrder order(seed);
    CRuleAlone rule;
    CStreamOnSockets sockets(card);
    for (size_t i = 0; i < kPacketsPerOrder; ++i) {
      const Packet packet = order.Next();
      rule.Arrive(packet);
      sockets.Arrive(packet);
    }
    const Packet sentinel = order.Sentinel(rule.last);
    rule.Arrive(sentinel);
    sockets.Arrive(sentinel);
    const STrace seen = sockets.Take(rule.trace.replies.size());
    ASSERT_EQ(seen.replies, rule.trace.replies) << seed;
    ASSERT_EQ(seen.lines, rule.trace.lines) << seed;
    replies += seen.replies.size();
    lines += seen.lines.size();
  }
  // There was something to agree about.
  EXPECT_GT(replies, 5 * kOrders);
  EXPECT_GT(lines, 2 * kOrders);
}

}  // namespace
}  // namespace zelk

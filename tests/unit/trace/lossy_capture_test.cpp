// SPDX-License-Identifier: GPL-2.0-only

// A real D-channel with thirty calls at once, of whose packets some are lost by chance.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>

#include "conversation.h"
#include "trace/core/analysis.h"

namespace trace {
namespace {

using test::SFrameOnWire;
using test::SOutcome;
using test::Wire;

// The frames of the recorded D-channel, on the control connection of a card.
Wire Recorded() {
  constexpr std::size_t kPseudoHeader = 16;
  constexpr std::uint8_t kSent = 4;
  test::CConversation talk;
  talk.Open();
  talk.SetUp(1);
  CCaptureFile file(ZELK_CAPTURES "/thirty-at-once.pcapng");
  Time before = 0;
  for (SCaptured packet; file.Next(packet);) {
    talk.Wait(before == 0 ? kSecond : packet.time - before);
    before = packet.time;
    const ByteView frame = packet.bytes.subspan(kPseudoHeader);
    const bool fromLibrary = packet.bytes[1] == kSent;
    const Bytes bytes(frame.begin(), frame.end());
    talk.Send(fromLibrary, fromLibrary ? test::FromLibrary(0, bytes) : test::ToLibrary(0, bytes));
  }
  return talk.wire;
}

// All that a list of calls has of one.
std::string TextOf(const SCall& call) {
  std::string text = call.calling + " " + call.called + " ";
  for (const int number : {call.trunk, call.timeslot, call.reference, call.cause, static_cast<int>(call.how),
                           call.clearedBy ? static_cast<int>(*call.clearedBy) : -1}) {
    text += std::to_string(number) + " ";
  }
  return text + (call.alerting != 0 ? "alerting " : "") + (call.connected != 0 ? "connected" : "");
}

std::vector<std::string> TextsOf(const SOutcome& outcome) {
  std::vector<std::string> texts;
  std::transform(outcome.heard.calls.begin(), outcome.heard.calls.end(), std::back_inserter(texts), TextOf);
  return texts;
}

Wire Lose(const Wire& wire, unsigned seed, unsigned oneOf) {
  std::mt19937 random(seed);
  Wire left;
  std::copy_if(wire.begin(), wire.end(), std::back_inserter(left),
               [&](const SFrameOnWire&) { return random() % oneOf != 0; });
  return left;
}

// A call that has no mark of its own is told as it was; where one is missing, the capture's gaps are told.
TEST(LossyCapture, HasNoCallThatIsWrongWithoutAMark) {
  const Wire wire = Recorded();
  const std::vector<std::string> whole = TextsOf(test::Analyse(test::PcapFile(wire)));
  ASSERT_GE(whole.size(), 30U);
  std::size_t same = 0;
  std::size_t marked = 0;
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    const Wire left = Lose(wire, seed, 20 + 20 * (seed % 5));
    const SOutcome outcome = test::Analyse(test::PcapFile(left));
    std::vector<std::string> unheard = whole;
    for (const SCall& call : outcome.heard.calls) {
      const auto found = std::find(unheard.begin(), unheard.end(), TextOf(call));
      const bool isMarked = call.isPassedGap || call.isBegunBefore || call.how == ECallEnd::kOpen;
      EXPECT_TRUE(found != unheard.end() || isMarked) << TextOf(call);
      marked += isMarked ? 1 : 0;
      if (found != unheard.end()) {
        unheard.erase(found);
        ++same;
      }
    }
    EXPECT_TRUE(unheard.empty() || outcome.traffic.tcp.gaps + outcome.traffic.begunBefore > 0);
    EXPECT_TRUE(unheard.empty() || !outcome.notes.empty());
  }
  EXPECT_GT(same, 600U);
  EXPECT_GT(marked, 60U);
}

}  // namespace
}  // namespace trace

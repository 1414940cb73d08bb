// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/audio/signals.h"
#include "system_fixture.h"

namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::ESimCallState;
using cardsim::SDtmfSignal;

constexpr char kAllDigits[] = "0123456789*#ABCD";

struct SCase {
  const char* name;
  SDtmfSignal signal;
  bool heard = true;
};

// ITU-T Q.24: 40 ms of tone and of pause must do. What is heard here is heard wherever the detector's blocks of 102
// samples happen to begin; what is not is heard nowhere. The settings put the limits at 8.0e7 of energy in a block
// (-42 dBm0) and at a twist of 7 (8.45 dB); each tone also leaks into the other's filter, so 40 ms of a twist between
// 6.5 and 9 dB are heard or not by where they begin, and so is digit D at 1.5 % below its frequencies.
const std::vector<SCase> kCases{
    {"0 dBm0", {.onMs = 40, .offMs = 40, .level = 0}},
    {"-3 dBm0", {.onMs = 40, .offMs = 40, .level = -3}},
    {"-10 dBm0", {.onMs = 40, .offMs = 40, .level = -10}},
    {"-20 dBm0", {.onMs = 40, .offMs = 40, .level = -20}},
    {"-30 dBm0", {.onMs = 40, .offMs = 40, .level = -30}},
    {"-38 dBm0", {.onMs = 40, .offMs = 40, .level = -38}},
    {"-41 dBm0", {.onMs = 40, .offMs = 40, .level = -41}},
    {"-44 dBm0 is below the threshold", {.onMs = 40, .offMs = 40, .level = -44}, false},
    {"column 6 dB stronger", {.onMs = 40, .offMs = 40, .level = -18, .twist = 6}},
    {"row 6 dB stronger", {.onMs = 40, .offMs = 40, .level = -10, .twist = -6}},
    {"column 10 dB stronger", {.onMs = 40, .offMs = 40, .level = -18, .twist = 10}, false},
    {"row 10 dB stronger", {.onMs = 40, .offMs = 40, .level = -10, .twist = -10}, false},
    {"frequencies 1.5 % high", {.onMs = 40, .offMs = 40, .level = -12, .offsetPercent = 1.5}},
    {"frequencies 1.4 % low", {.onMs = 40, .offMs = 40, .level = -12, .offsetPercent = -1.4}},
    {"frequencies 3.5 % off", {.onMs = 40, .offMs = 40, .level = -12, .offsetPercent = 3.5}, false},
    {"noise 15 dB below", {.onMs = 40, .offMs = 40, .level = -13, .noise = -25, .seed = 3}},
    {"noise 12 dB below", {.onMs = 40, .offMs = 40, .level = -13, .noise = -22, .seed = 4}},
    {"16 ms of tone is no digit", {.onMs = 16, .offMs = 80, .level = -10}, false},
    {"a long press", {.onMs = 300, .offMs = 60, .level = -10}},
};

class Digits : public CSystemTest {
 protected:
  std::string Heard(int32_t channel) {
    std::string digits;
    for (const support::SAppEvent& event : app->Events(channel)) {
      if (event.code == ZELK_EVENT_DTMF) {
        digits += static_cast<char>(event.param);
      }
    }
    return digits;
  }
};

TEST_F(Digits, are_events_once_each_at_every_level_twist_offset_and_noise) {
  ASSERT_LE(kCases.size(), 30U);
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  Card().Audio().SetWaitForReplies(true);  // a busy machine must not tear a digit apart
  OpenAll();
  std::vector<Call> calls;
  for (size_t i = 0; i < kCases.size(); ++i) {
    const auto channel = static_cast<int32_t>(i);
    const auto timeslot = static_cast<int>(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT));
    calls.push_back(Card().PlaceCall({.timeslot = timeslot}));
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon)) << i;
    app->zelk.Answer(channel);
  }
  std::vector<Bytes> prompts;
  for (size_t i = 0; i < kCases.size(); ++i) {
    const auto channel = static_cast<int32_t>(i);
    ASSERT_TRUE(calls[i]->WaitState(ESimCallState::kConnected, kSoon)) << i;
    prompts.push_back(cardsim::RenderSpeech(-15, 3000, static_cast<uint32_t>(i)));
    app->Record(channel);
    ASSERT_TRUE(app->zelk.PlayBuffer(channel, prompts[i].data(), static_cast<uint32_t>(prompts[i].size())));
    calls[i]->PlayBytes(cardsim::RenderDtmf(kAllDigits, kCases[i].signal));
  }
  for (size_t i = 0; i < kCases.size(); ++i) {
    const auto channel = static_cast<int32_t>(i);
    ASSERT_TRUE(calls[i]->WaitPlayed(kSlow)) << kCases[i].name;
    // Digits of a block are reported before its sound is recorded.
    ASSERT_TRUE(app->WaitRecorded(channel, app->Recorded(channel).size() + 8 * ZELK_BLOCK_BYTES, kSoon));
    EXPECT_EQ(Heard(channel), kCases[i].heard ? kAllDigits : "") << kCases[i].name;
    EXPECT_TRUE(calls[i]->Heard()->WaitContains(prompts[i], kSlow)) << kCases[i].name;
  }
}

}  // namespace

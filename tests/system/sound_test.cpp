// SPDX-License-Identifier: GPL-2.0-only
#include "system_fixture.h"

namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::ESimCallState;

constexpr size_t kBytesPerSecond = 8000;

class Sound : public CSystemTest {
 protected:
  // The card waits for its replies, so that a busy machine tears no sound apart.
  void StartInStep(int trunks) {
    ASSERT_NO_FATAL_FAILURE(Start({trunks}));
    Card().Audio().SetWaitForReplies(true);
  }

  void ExpectCleanAudio(size_t card) {
    const cardsim::SAudioStatistics seen = Card(card).Audio().Statistics();
    EXPECT_GT(seen.replies, 0U);
    // A machine that stands still makes replies late; a library that is slow makes many late.
    EXPECT_LE(seen.late * 10, seen.replies) << "worst round trip " << seen.worstRoundTripMs << " ms";
    EXPECT_EQ(seen.missing, 0U);
    EXPECT_EQ(seen.wrongSize, 0U);
    EXPECT_EQ(seen.sequenceGaps, 0U);
    EXPECT_EQ(seen.badMagic, 0U);
    EXPECT_EQ(seen.surplus, 0U);
  }
};

class ThirtyCalls : public Sound {
 protected:
  static constexpr size_t kSeconds = 10;
  static constexpr int kCalls = 30;

  void PlaceCalls() {
    for (int i = 0; i < kCalls; ++i) {
      fromFarEnd.push_back(cardsim::RenderTestPattern(kSeconds * kBytesPerSecond, static_cast<uint32_t>(i)));
      fromApplication.push_back(cardsim::RenderTestPattern(kSeconds * kBytesPerSecond, static_cast<uint32_t>(100 + i)));
      app->Record(i);
      cardsim::SCallRequest request;
      request.timeslot = i < 15 ? i + 1 : i + 2;
      calls.push_back(Card().PlaceCall(request));
    }
    for (int i = 0; i < kCalls; ++i) {
      ASSERT_TRUE(app->WaitEvent(i, ZELK_EVENT_INCOMING_CALL, kSoon)) << i;
      app->zelk.Answer(i);
    }
  }

  void PlayBothWays() {
    for (int i = 0; i < kCalls; ++i) {
      ASSERT_TRUE(app->WaitEvent(i, ZELK_EVENT_CONNECTED, kSoon)) << i;
      ASSERT_TRUE(calls[static_cast<size_t>(i)]->WaitState(ESimCallState::kConnected, kSoon)) << i;
      calls[static_cast<size_t>(i)]->PlayBytes(fromFarEnd[static_cast<size_t>(i)]);
      const Bytes& own = fromApplication[static_cast<size_t>(i)];
      ASSERT_TRUE(app->zelk.PlayBuffer(i, own.data(), static_cast<uint32_t>(own.size())));
    }
    for (int i = 0; i < kCalls; ++i) {
      ASSERT_TRUE(calls[static_cast<size_t>(i)]->WaitPlayed(kSlow)) << i;
      ASSERT_TRUE(app->WaitEvent(i, ZELK_EVENT_PLAY_DONE, kSlow)) << i;
    }
  }

  void ExpectOwnSound(int channel) {
    const auto i = static_cast<size_t>(channel);
    // What was sent last is delivered once its block is full and the pacer has passed.
    const size_t heardSoFar = app->Recorded(channel).size();
    ASSERT_TRUE(app->WaitRecorded(channel, heardSoFar + 4 * ZELK_BLOCK_BYTES, kSoon)) << channel;
    EXPECT_GE(support::FindSound(app->Recorded(channel), fromFarEnd[i]), 0) << "channel " << channel;
    EXPECT_TRUE(calls[i]->Heard()->WaitContains(fromApplication[i], kSoon)) << "channel " << channel;
  }

  std::vector<Call> calls;
  std::vector<Bytes> fromFarEnd;
  std::vector<Bytes> fromApplication;
};

TEST_F(ThirtyCalls, carry_their_own_sound_both_ways_bit_for_bit) {
  ASSERT_NO_FATAL_FAILURE(StartInStep(1));
  OpenAll();
  ASSERT_NO_FATAL_FAILURE(PlaceCalls());
  ASSERT_NO_FATAL_FAILURE(PlayBothWays());
  for (int i = 0; i < kCalls; ++i) {
    ASSERT_NO_FATAL_FAILURE(ExpectOwnSound(i));
  }
  for (int i = 0; i < kCalls; ++i) {
    app->zelk.Hangup(i);
    ASSERT_TRUE(app->WaitEvent(i, ZELK_EVENT_DISCONNECTED, kSoon)) << i;
  }
  ExpectCleanAudio(0);
}

TEST_F(Sound, of_every_trunk_of_the_largest_card_is_on_its_own_timeslot) {
  ASSERT_NO_FATAL_FAILURE(StartInStep(8));
  OpenAll();
  std::vector<int32_t> channels;
  for (int32_t trunk = 0; trunk < 8; ++trunk) {
    channels.push_back(trunk * 30 + trunk * 3);
  }
  std::vector<Call> calls;
  for (const int32_t channel : channels) {
    app->Record(channel);
    cardsim::SCallRequest request;
    request.trunk = channel / 30;
    request.timeslot = static_cast<int>(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT));
    calls.push_back(Card().PlaceCall(request));
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon)) << channel;
    app->zelk.Answer(channel);
    ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon)) << channel;
    ASSERT_TRUE(calls.back()->WaitState(ESimCallState::kConnected, kSoon));
  }
  for (size_t i = 0; i < channels.size(); ++i) {
    const auto seed = static_cast<uint32_t>(channels[i]);
    calls[i]->PlayBytes(cardsim::RenderTestPattern(2 * kBytesPerSecond, seed));
    const Bytes own = cardsim::RenderTestPattern(2 * kBytesPerSecond, seed + 1000);
    ASSERT_TRUE(app->zelk.PlayBuffer(channels[i], own.data(), static_cast<uint32_t>(own.size())));
  }
  for (size_t i = 0; i < channels.size(); ++i) {
    const auto seed = static_cast<uint32_t>(channels[i]);
    ASSERT_TRUE(calls[i]->WaitPlayed(kSlow));
    EXPECT_TRUE(calls[i]->Heard()->WaitContains(cardsim::RenderTestPattern(2 * kBytesPerSecond, seed + 1000), kSlow));
    const size_t heardSoFar = app->Recorded(channels[i]).size();
    ASSERT_TRUE(app->WaitRecorded(channels[i], heardSoFar + 4 * ZELK_BLOCK_BYTES, kSoon));
    EXPECT_GE(support::FindSound(app->Recorded(channels[i]), cardsim::RenderTestPattern(2 * kBytesPerSecond, seed)), 0)
        << "channel " << channels[i];
  }
  ExpectCleanAudio(0);
}

TEST_F(Sound, stop_play_silences_the_line_at_once_and_gives_no_play_done) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  OpenAll();
  const cardsim::Recorder line = Card().RecordTimeslot(0, 1);
  const Bytes tone(10 * kBytesPerSecond, 0x2A);
  ASSERT_TRUE(app->zelk.PlayBuffer(0, tone.data(), static_cast<uint32_t>(tone.size())));
  ASSERT_TRUE(line->WaitContains(Bytes(1600, 0x2A), kSlow));
  app->zelk.StopPlay(0);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
  // What waited in the transmit ring is sent as idle bytes, then the queue's silence follows.
  ASSERT_TRUE(line->WaitContains(Bytes(1600, 0x54), kSlow));
  ASSERT_TRUE(line->WaitContains(Bytes(1600, 0xD5), kSlow));
  const Bytes heard = line->Samples();
  const auto lastTone = std::find(heard.rbegin(), heard.rend(), uint8_t{0x2A});
  EXPECT_EQ(*(lastTone - 1), 0x54);
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 0U);
}

TEST_F(Sound, the_play_callback_sees_and_may_change_every_block) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>();
  app->SetOnPlay([](uint32_t channel, uint8_t* data, uint32_t length) {
    if (channel == 4) {
      std::fill_n(data, length, uint8_t{0x33});
    }
  });
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_TRUE(Card().RecordTimeslot(0, 5)->WaitContains(Bytes(8000, 0x33), kSoon));
  EXPECT_TRUE(Card().RecordTimeslot(0, 6)->WaitContains(Bytes(1600, 0xD5), kSoon));
}

TEST_F(Sound, digits_of_the_far_end_arrive_as_events_while_a_prompt_plays) {
  ASSERT_NO_FATAL_FAILURE(Start({1}));
  OpenAll();
  Call call = Card().PlaceCall({.timeslot = 1});
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_INCOMING_CALL, kSoon));
  app->zelk.Answer(0);
  ASSERT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
  const Bytes prompt = cardsim::RenderTestPattern(5 * kBytesPerSecond, 7);
  ASSERT_TRUE(app->zelk.PlayBuffer(0, prompt.data(), static_cast<uint32_t>(prompt.size())));
  call->SendDigits("0123456789*#ABCD");
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DTMF, kSlow, 16));
  std::string digits;
  for (const support::SAppEvent& event : app->Events(0)) {
    if (event.code == ZELK_EVENT_DTMF) {
      digits += static_cast<char>(event.param);
    }
  }
  EXPECT_EQ(digits, "0123456789*#ABCD");
}

}  // namespace

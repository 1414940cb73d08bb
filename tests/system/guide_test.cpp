// SPDX-License-Identifier: GPL-2.0-only
#include <atomic>

#include "call_fixture.h"
#include "cardsim/audio/signals.h"

namespace {

using cardsim::Call;

// What docs/api-guide.md warns of: sentences about corners that an application meets unasked.
class Guide : public CCallTest {
 protected:
  static constexpr uint8_t kRelease = 0x4D;

  std::vector<uint8_t> Sound(size_t bytes) const { return std::vector<uint8_t>(bytes, 0x2A); }

  void Play(int32_t channel, size_t bytes) {
    const std::vector<uint8_t> sound = Sound(bytes);
    EXPECT_TRUE(app->zelk.PlayBuffer(channel, sound.data(), static_cast<uint32_t>(bytes)));
  }

  // A channel's blocks on their way to the line, a number of 20 ms each, all taken: what is played now is heard that
  // much later.
  void StartWithFullRing(int blocks) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
    line = Card().RecordTimeslot(0, 1);
    sim->Start();
    app = std::make_unique<support::CApplication>("[General]\nAudioBuffers=" + std::to_string(blocks) + "\n");
    app->SetOnPlay([this](uint32_t channel, uint8_t*, uint32_t) { fills += channel == 0 ? 1 : 0; });
    app->onEvent = [this](const support::SAppEvent& event) {
      if (event.code == ZELK_EVENT_PLAY_DONE) {
        OnPlayDone();
      }
    };
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
    OpenAll();
    ASSERT_TRUE(support::Eventually([&] { return fills >= blocks; }));
    ForgetAll();
  }

  bool WaitFills(int more) {
    return support::Eventually([this, upTo = fills + more] { return fills >= upTo; });
  }

  void LoseCard() {
    Card().SetControlSilent(true);
    ASSERT_EQ(WaitParam(29, ZELK_EVENT_CHANNEL_STATE), 0);
    ASSERT_TRUE(Card().Seen().WaitConnected(false, kSoon));
  }

  void ReopenCard() {
    Card().SetControlSilent(false);
    Card().Announce();
    ASSERT_TRUE(app->zelk.WaitLog("Card reopen has Succeeded")) << app->zelk.LogText();
    ASSERT_TRUE(Card().WaitUp(kSlow)) << app->zelk.LogText();
    ASSERT_TRUE(support::Eventually([&] { return State(0) == 3U; }, kSlow));
  }

  // On the receive thread: no packet leaves meanwhile.
  void OnPlayDone() {
    isSureHeard = line->WaitContains(sure, kSoon);
    isRestHeard = support::FindSound(line->Samples(), rest) >= 0;
  }

  cardsim::Recorder line;     // of channel 0
  std::atomic<int> fills{0};  // blocks of channel 0 that have been made
  std::vector<uint8_t> sure;  // what has left at a play-done event
  std::vector<uint8_t> rest;  // what may not have
  std::atomic<bool> isSureHeard{false};
  std::atomic<bool> isRestHeard{true};
};

// A call dialled on a lost card brings nothing until a reject or the reopening.
TEST_F(Guide, a_call_on_a_lost_card_brings_nothing_until_a_reject) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  ASSERT_NO_FATAL_FAILURE(LoseCard());
  ForgetAll();
  EXPECT_TRUE(app->zelk.Dial(0, "1", "2"));
  EXPECT_TRUE(app->zelk.Dial(1, "1", "2"));
  EXPECT_EQ(State(0), 2U);
  EXPECT_FALSE(app->zelk.Dial(1, "3", "4"));
  EXPECT_FALSE(app->zelk.Reject(1));
  EXPECT_TRUE(app->zelk.Dial(1, "3", "4"));
  EXPECT_FALSE(app->zelk.Reject(1));
  ASSERT_NO_FATAL_FAILURE(ReopenCard());
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_CHANNEL_STATE, 2), 1);
  const std::vector<support::SAppEvent> events = app->Events(0);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].code, static_cast<uint32_t>(ZELK_EVENT_CHANNEL_STATE));
  EXPECT_EQ(events[0].param, 0);
  EXPECT_TRUE(app->CallEvents(0).empty());
  EXPECT_EQ(app->Events(1).size(), 1U);  // up again, and free: nothing was lost
  EXPECT_TRUE(FromLibrary("SETUP").empty());
}

// A reopening loses the PLAY_DONE that is under way and a further play brings one.
TEST_F(Guide, a_reopening_loses_the_play_done_that_is_under_way) {
  // A ring of six seconds: what is played is still in it when the card is opened again.
  ASSERT_NO_FATAL_FAILURE(StartWithFullRing(300));
  Play(0, 800);
  ASSERT_TRUE(support::Eventually([&] { return app->zelk.PlayTimeLeft(0) == 1; }));
  ASSERT_NO_FATAL_FAILURE(LoseCard());
  ASSERT_NO_FATAL_FAILURE(ReopenCard());
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 1U);
  Play(0, 800);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_PLAY_DONE), 0);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

TEST_F(Guide, stop_play_ends_the_play_time_that_a_reopening_has_left) {
  ASSERT_NO_FATAL_FAILURE(StartWithFullRing(300));
  Play(0, 800);
  ASSERT_TRUE(support::Eventually([&] { return app->zelk.PlayTimeLeft(0) == 1; }));
  ASSERT_NO_FATAL_FAILURE(LoseCard());
  app->zelk.StopPlay(0);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
}

// Sound queued on a closed channel is heard after its opening without an event and is not counted.
TEST_F(Guide, sound_of_a_closed_channel_is_heard_later_without_an_event) {
  ASSERT_NO_FATAL_FAILURE(Start({1}, "[General]\nAudioBuffers=4\n"));
  line = Card().RecordTimeslot(0, 1);
  Play(0, 8000);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 1000U);
  app->zelk.StopPlay(0);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 1000U);
  ASSERT_TRUE(app->zelk.OpenChannel(0));
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
  EXPECT_TRUE(line->WaitContains(Sound(1600), kSoon));
  // A play of an open channel after it has its event, and it alone.
  Play(0, 160);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_PLAY_DONE), 0);
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

TEST_F(Guide, a_release_that_names_no_cause_is_reported_as_minus_1) {
  ASSERT_NO_FATAL_FAILURE(StartOpen({1}));
  const Call call = ConnectIncoming(1);
  Card().HoldFromLibrary(0, true);  // the exchange's own answer must not come first
  EXPECT_TRUE(app->zelk.Hangup(0));
  ASSERT_TRUE(WaitFromLibrary("DISCONNECT"));
  call->SendMessage(kRelease, {});
  EXPECT_EQ(WaitCause(0), -1);
  EXPECT_STREQ(app->zelk.DisconnectReasonToString(-1), "REASON_UNKNOWN");
  Card().HoldFromLibrary(0, false);
  EXPECT_EQ(State(0), 3U);
}

// A play that is queued while the end of the one before is on its way to the line.
TEST_F(Guide, a_mark_on_its_way_ends_the_next_play_too) {
  sure = Sound(800);
  rest = std::vector<uint8_t>(800, 0x3C);
  ASSERT_NO_FATAL_FAILURE(StartWithFullRing(200));
  Play(0, 800);
  ASSERT_TRUE(support::Eventually([&] { return app->zelk.PlayTimeLeft(0) == 1; }));
  // One fill finds the queue empty and its block is marked; the ones after it show that this is done.
  ASSERT_TRUE(WaitFills(3));
  EXPECT_TRUE(app->zelk.PlayBuffer(0, rest.data(), 800));
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_PLAY_DONE), 0);
  EXPECT_TRUE(isSureHeard);
  EXPECT_FALSE(isRestHeard);
  // It was the event of both: a play after them has the second one.
  EXPECT_TRUE(line->WaitContains(rest, kSoon));
  Play(0, 160);
  EXPECT_EQ(WaitParam(0, ZELK_EVENT_PLAY_DONE, 2), 0);
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 2U);
}

// The event comes when the silent block after the sound is taken. What precedes it in the same packet, 44 samples at
// most of a play that ends near the end of a block, goes when the callback returns.
TEST_F(Guide, the_last_samples_of_a_play_may_leave_after_its_play_done) {
  constexpr size_t kPacketFrames = 45;
  constexpr size_t kSound = 159;
  rest = cardsim::RenderTestPattern(kSound, 9);
  sure.assign(rest.begin(), rest.end() - (kPacketFrames - 2));
  ASSERT_NO_FATAL_FAILURE(StartWithFullRing(4));
  // Whether the block begins in the middle of a packet changes from play to play: at one of nine it does not.
  constexpr size_t kRounds = 50;
  for (size_t round = 1; round <= kRounds && isRestHeard; ++round) {
    line->Clear();
    EXPECT_TRUE(app->zelk.PlayBuffer(0, rest.data(), kSound));
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon, round));
    ASSERT_TRUE(isSureHeard);
    ASSERT_TRUE(line->WaitContains(rest, kSoon));
  }
  EXPECT_FALSE(isRestHeard);
}

}  // namespace

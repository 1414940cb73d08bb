// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <cmath>

#include "cardsim/audio/signals.h"
#include "system_fixture.h"

namespace {

using cardsim::Bytes;
using cardsim::Call;
using cardsim::ESimCallState;

constexpr int kFramesPerMs = 8;
constexpr size_t kSecond = 8000;
// Trunk 1 (channels 0-29) with the canceller, trunk 2 (channels 30-59) without.
constexpr char kFirstTrunkOnly[] = "[100001-1]\nEchoCanceller=1\n";

class Echo : public CSystemTest {
 protected:
  // Sound must not depend on how busy the machine is: an echo that comes late is another echo.
  void StartInStep(const std::string& ini) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({2}));
    sim->Card(0).Audio().SetWaitForReplies(true);
    sim->Start();
    app = std::make_unique<support::CApplication>(ini);
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    OpenAll();
  }

  int TimeslotOf(int32_t channel) { return static_cast<int>(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT)); }
  void SetEcho(int32_t channel, int delayMs) {
    Card().Audio().SetEcho(channel / 30, TimeslotOf(channel),
                           cardsim::SEchoPath{.delayFrames = delayMs * kFramesPerMs, .lossDb = 6});
  }
  cardsim::AudioSource Speak(int32_t channel, const Bytes& sound) {
    cardsim::AudioSource source = cardsim::MakeBytesSource(sound);
    Card().Audio().Play(channel / 30, TimeslotOf(channel), source);
    return source;
  }
  bool PlayOn(int32_t channel, const Bytes& sound) {
    return app->zelk.PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()));
  }

  // A call that connects switches its trunk's canceller to the trunk's setting.
  Call Connect(int32_t channel, size_t events = 1) {
    Call call = Card().PlaceCall({.trunk = channel / 30, .timeslot = TimeslotOf(channel)});
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSoon, events));
    EXPECT_TRUE(app->zelk.Answer(channel));
    EXPECT_TRUE(app->WaitEvent(channel, ZELK_EVENT_CONNECTED, kSoon, events));
    EXPECT_TRUE(call->WaitState(ESimCallState::kConnected, kSoon));
    return call;
  }

  // The level of the next second of what the channel records.
  double RecordedLevel(int32_t channel, size_t samples = kSecond) {
    const size_t before = app->Recorded(channel).size();
    EXPECT_TRUE(app->WaitRecorded(channel, before + samples, kSlow));
    const Bytes all = app->Recorded(channel);
    return cardsim::LevelOf(cardsim::ByteView(all).subspan(before, samples));
  }
};

// The same far end on both trunks; on the first one, with the canceller, near ends too.
class EchoOfBothEnds : public Echo {
 protected:
  static constexpr int kMs = 10000;
  static constexpr size_t kWindow = 3 * kSecond;
  static constexpr int32_t kNearEnds = 6;    // channels 6 to 8: the near end alone at three levels
  static constexpr int32_t kDoubleTalk = 9;  // both ends at once

  // All sound is made before any begins: making it takes its time.
  void Render() {
    farNoise = cardsim::RenderNoise(-13, kMs, 77);
    farSpeech = cardsim::RenderSpeech(-16, kMs, 3);
    for (const double level : {-10, -20, -30}) {
      nearSpeech.push_back(cardsim::RenderSpeech(level, kMs, static_cast<uint32_t>(20 + nearSpeech.size())));
    }
    talkFar = cardsim::RenderSpeech(-16, kMs, 31);
    talkNear = cardsim::RenderSpeech(-16, kMs, 32);
  }

  // Echo of 8, 16 and 30 ms of noise and of speech.
  void StartFarEnds() {
    const std::vector<int> delaysMs{8, 16, 30};
    for (int32_t place = 0; place < 6; ++place) {
      for (const int32_t channel : {place, place + 30}) {
        SetEcho(channel, delaysMs[static_cast<size_t>(place % 3)]);
        app->Record(channel);
        ASSERT_TRUE(PlayOn(channel, place < 3 ? farNoise : farSpeech));
      }
    }
  }

  // With an echo path of which there is nothing to hear.
  void StartNearEnds() {
    for (int32_t i = 0; i < 3; ++i) {
      SetEcho(kNearEnds + i, 16);
      app->Record(kNearEnds + i);
      lastNearEnd = Speak(kNearEnds + i, nearSpeech[static_cast<size_t>(i)]);
    }
  }

  void StartDoubleTalk() {
    talkLine = Card().RecordTimeslot(0, TimeslotOf(kDoubleTalk));
    SetEcho(kDoubleTalk, 16);
    app->Record(kDoubleTalk);
    ASSERT_TRUE(PlayOn(kDoubleTalk, talkFar));
    Speak(kDoubleTalk, talkNear);
  }

  // 6.5 to 9.5 s after the start: the event came at the end of the play.
  Bytes LastSeconds(int32_t channel) {
    const Bytes all = app->Recorded(channel);
    EXPECT_GT(all.size(), kWindow + kSecond / 2);
    return Bytes(all.end() - static_cast<ptrdiff_t>(kWindow + kSecond / 2), all.end() - kSecond / 2);
  }

  void ExpectFarEndsCancelled() {
    for (int32_t place = 0; place < 6; ++place) {
      const double uncancelled = cardsim::LevelOf(LastSeconds(place + 30));
      const double cancelled = cardsim::LevelOf(LastSeconds(place));
      EXPECT_GT(uncancelled, -26) << place;
      EXPECT_LE(cancelled, uncancelled - 30) << place << ": uncancelled " << uncancelled;
    }
  }

  void ExpectNearEndsKept() {
    ASSERT_TRUE(Card().Audio().WaitPlayed(lastNearEnd, kSlow));
    ASSERT_TRUE(app->WaitRecorded(8, app->Recorded(8).size() + kSecond, kSlow));  // what is under way in the rings
    for (int32_t i = 0; i < 3; ++i) {
      const Bytes heard = app->Recorded(kNearEnds + i);
      const Bytes& sent = nearSpeech[static_cast<size_t>(i)];
      // Nothing but silence lies before and after it, so the power of the whole is that of the speech.
      const double share = 10 * std::log10(static_cast<double>(heard.size()) / static_cast<double>(sent.size()));
      EXPECT_NEAR(cardsim::LevelOf(heard) + share, cardsim::LevelOf(sent), 0.5) << i;
    }
  }

  Bytes farNoise, farSpeech, talkFar, talkNear;
  std::vector<Bytes> nearSpeech;
  cardsim::AudioSource lastNearEnd;
  cardsim::Recorder talkLine;
};

TEST_F(EchoOfBothEnds, far_end_is_30_db_down_near_end_and_both_at_once_stay) {
  ASSERT_NO_FATAL_FAILURE(StartInStep(kFirstTrunkOnly));
  const Call call = Connect(29);
  Render();
  ASSERT_NO_FATAL_FAILURE(StartFarEnds());
  StartNearEnds();
  ASSERT_NO_FATAL_FAILURE(StartDoubleTalk());
  ASSERT_TRUE(app->WaitEvent(30, ZELK_EVENT_PLAY_DONE, 3 * kSlow));  // in step with a busy machine
  ExpectFarEndsCancelled();
  ASSERT_NO_FATAL_FAILURE(ExpectNearEndsKept());
  EXPECT_GT(cardsim::LevelOf(app->Recorded(kDoubleTalk)), cardsim::LevelOf(talkNear) - 3);
  EXPECT_TRUE(talkLine->WaitContains(talkFar, kSoon));
  EXPECT_EQ(Card().Audio().EchoesTooLate(), 0U);
}

TEST_F(Echo, switch_goes_on_when_a_call_connects_and_off_when_one_ends) {
  ASSERT_NO_FATAL_FAILURE(StartInStep(kFirstTrunkOnly));
  const Bytes noise = cardsim::RenderNoise(-13, 60000, 3);
  for (const int32_t channel : {5, 35}) {
    SetEcho(channel, 10);
    app->Record(channel);
    ASSERT_TRUE(PlayOn(channel, noise));
  }
  // Bit for bit while no call is connected, also on a trunk that is set to cancel.
  const Bytes pattern = cardsim::RenderTestPattern(kSecond, 4);
  app->Record(7);
  Speak(7, pattern);
  ASSERT_TRUE(app->WaitRecorded(7, 2 * kSecond, kSlow));
  EXPECT_GE(support::FindSound(app->Recorded(7), pattern), 0);
  const double full = RecordedLevel(35);
  EXPECT_NEAR(full, -19, 1);
  EXPECT_NEAR(RecordedLevel(5), full, 0.5);

  const Call first = Connect(0);
  const Call other = Connect(1);
  const Call second = Connect(31);
  ASSERT_TRUE(app->WaitRecorded(5, app->Recorded(5).size() + 3 * kSecond, kSlow));
  EXPECT_LT(RecordedLevel(5), full - 20);
  EXPECT_NEAR(RecordedLevel(35), full, 0.5);  // its trunk is not set to cancel

  // One call's end switches the whole trunk off, though another goes on.
  app->zelk.Hangup(0);
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_DISCONNECTED, kSoon));
  RecordedLevel(5, kSecond / 4);  // what waits in the receive ring is from before
  EXPECT_NEAR(RecordedLevel(5), full, 0.5);
  Speak(1, pattern);
  app->Record(1);
  ASSERT_TRUE(app->WaitRecorded(1, 2 * kSecond, kSlow));
  EXPECT_GE(support::FindSound(app->Recorded(1), pattern), 0);

  // The next call that connects switches it on again.
  const Call third = Connect(2);
  ASSERT_TRUE(app->WaitRecorded(5, app->Recorded(5).size() + 3 * kSecond, kSlow));
  EXPECT_LT(RecordedLevel(5), full - 20);
}

TEST_F(Echo, tails_of_any_length_are_taken) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>();
  for (const int tailMs : {0, 1, 8, 31, 128, 1000}) {
    app->zelk.WriteIni("[General]\nEchoCanceller=1\nEchoTail=" + std::to_string(tailMs) + "\n");
    ASSERT_NO_FATAL_FAILURE(StartLibrary()) << tailMs;
    OpenAll();
    app->Forget();
    app->Record(0);
    const Call call = Connect(0);
    SetEcho(0, 10);
    ASSERT_TRUE(PlayOn(0, cardsim::RenderNoise(-10, 500, 1)));
    Speak(0, cardsim::RenderSpeech(-10, 500, 2));
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSlow)) << tailMs;
    EXPECT_GT(cardsim::LevelOf(app->Recorded(0)), -40) << tailMs;
    app->zelk.Shutdown();
  }
}

}  // namespace

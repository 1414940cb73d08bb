// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>

#include "common/wire.h"
#include "system_fixture.h"

// What becomes of the sound while an application's callback takes its time or stops a play itself.
namespace {

using cardsim::Bytes;
using cardsim::Recorder;

// Opened once; what waits for it comes through, then and later.
class CLatch {
 public:
  void Open() {
    const std::lock_guard<std::mutex> held(lock);
    isOpen = true;
    opened.notify_all();
  }
  bool Wait(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> held(lock);
    return opened.wait_for(held, timeout, [this] { return isOpen; });
  }

 private:
  std::mutex lock;
  std::condition_variable opened;
  bool isOpen = false;
};

class AudioCallback : public CSystemTest {
 protected:
  // The cards and the application, which is not yet started: its callbacks are set first.
  void Prepare(const std::vector<int>& trunksOfCards, const std::string& ini = {}) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks(trunksOfCards));
    sim->Start();
    app = std::make_unique<support::CApplication>(ini);
  }
  bool Play(int32_t channel, const Bytes& sound) {
    return app->zelk.PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()));
  }
  static Bytes Pattern(size_t bytes, uint32_t seed) {
    Bytes sound = cardsim::RenderTestPattern(bytes, seed);
    std::replace(sound.begin(), sound.end(), uint8_t{0xD5}, uint8_t{0xD4});
    return sound;
  }
};

// The play is heard in the block that the callback gets; stopped, that block is the callback's alone.
TEST_F(AudioCallback, a_stop_in_the_play_callback_leaves_its_own_sound_whole) {
  Prepare({1});
  const Bytes written = Pattern(ZELK_BLOCK_BYTES, 3);
  std::atomic<bool> isStopped{false};
  app->SetOnPlay([&](uint32_t channel, uint8_t* data, uint32_t length) {
    if (channel == 0 && data[0] == 0x2A && !isStopped.exchange(true)) {
      app->zelk.StopPlay(0);
      std::copy_n(written.begin(), length, data);
    }
  });
  const CShutdownAtEnd end(*this);
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  OpenAll();
  const Recorder line = Card().RecordTimeslot(0, 1);
  ASSERT_TRUE(Play(0, Bytes(80000, 0x2A)));
  EXPECT_TRUE(line->WaitContains(written, kSoon));
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
  ASSERT_TRUE(line->WaitSize(line->Size() + 8000, kSoon));
  const Bytes heard = line->Samples();
  EXPECT_EQ(std::count(heard.begin(), heard.end(), 0x2A), std::count(written.begin(), written.end(), 0x2A));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 0U);
}

// A play queued after a stop inside the play callback goes out whole with its event.
TEST_F(AudioCallback, a_play_after_a_stop_in_it_is_whole_with_its_event) {
  Prepare({1});
  const Bytes next = Pattern(1000, 4);
  std::atomic<bool> isStopped{false};
  app->SetOnPlay([&](uint32_t channel, uint8_t* data, uint32_t) {
    if (channel == 0 && data[0] == 0x2A && !isStopped.exchange(true)) {
      app->zelk.StopPlay(0);
      Play(0, next);
    }
  });
  const CShutdownAtEnd end(*this);
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  OpenAll();
  const Recorder line = Card().RecordTimeslot(0, 1);
  ASSERT_TRUE(Play(0, Bytes(80000, 0x2A)));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_TRUE(line->WaitContains(next, kSoon));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

// The callback comes back when the card has been closed without its thread, opened again, and a play waits: the thread
// it comes back to must not take the play into a ring that is gone.
TEST_F(AudioCallback, held_over_a_reopening_takes_nothing_from_the_next_play) {
  Prepare({1});
  CLatch held;
  CLatch leave;
  std::atomic<bool> hold{false};
  app->SetOnPlay([&](uint32_t channel, uint8_t*, uint32_t) {
    if (channel == 0 && hold.exchange(false)) {
      held.Open();
      leave.Wait(kSlow);
    }
  });
  const CShutdownAtEnd end(*this);
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  OpenAll();
  hold = true;
  ASSERT_TRUE(held.Wait(kSoon));
  // The ring runs empty meanwhile: there is room in it for all of the next play.
  ASSERT_TRUE(Card().RecordTimeslot(0, 1)->WaitContains(Bytes(1600, 0x54), kSoon));
  Card().Audio().SetPacing(false);
  Card().Announce();
  ASSERT_TRUE(app->zelk.WaitLog("  G :Card reopen has Succeeded\r\n"));
  ASSERT_TRUE(Card().WaitUp(kSlow));
  const Bytes sound = Pattern(3000, 5);
  const Recorder line = Card().RecordTimeslot(0, 1);
  ASSERT_TRUE(Play(0, sound));
  leave.Open();
  Card().Audio().SetPacing(true);
  EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_TRUE(line->WaitContains(sound, kSoon));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

// Each callback waits inside until the other card's is inside too.
TEST_F(AudioCallback, of_two_cards_run_at_the_same_time) {
  Prepare({1, 1});
  constexpr uint32_t kOther = 30;
  CLatch recordInside[2];
  CLatch playInside[2];
  std::atomic<int> met{0};
  CLatch allMet;
  const auto meet = [&](CLatch(&inside)[2], size_t card) {
    inside[card].Open();
    if (inside[1 - card].Wait(kSoon) && ++met == 4) {
      allMet.Open();
    }
  };
  std::atomic<bool> recordDue[2] = {true, true};
  std::atomic<bool> playDue[2] = {true, true};
  app->SetOnRecord([&](uint32_t channel, const uint8_t*, uint32_t) {
    if ((channel == 0 || channel == kOther) && recordDue[channel / kOther].exchange(false)) {
      meet(recordInside, channel / kOther);
    }
  });
  app->SetOnPlay([&](uint32_t channel, uint8_t*, uint32_t) {
    if ((channel == 0 || channel == kOther) && playDue[channel / kOther].exchange(false)) {
      meet(playInside, channel / kOther);
    }
  });
  const CShutdownAtEnd end(*this);
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  EXPECT_TRUE(allMet.Wait(kSlow)) << met;
}

// A record callback that stays away while the card plays a pattern.
class StalledRecording : public AudioCallback {
 protected:
  static constexpr size_t kRing = 4;

  // Holds the callback some blocks after the pattern began, until `leave` opens.
  void StallInTheMiddle() {
    app->SetOnRecord([this](uint32_t channel, const uint8_t* data, uint32_t length) {
      if (channel != 0 || isDone) {
        return;
      }
      before.insert(before.end(), data, data + length);
      if (support::FindSound(before, {sound.begin(), sound.begin() + 800}) >= 0) {
        isDone = true;
        held.Open();
        leave.Wait(kSlow);
      }
    });
  }

  // The ring is small: on a computer that stands still for 60 ms the beginning comes torn, and is played once more.
  cardsim::AudioSource PlayUntilHeld() {
    constexpr int kTries = 5;
    cardsim::AudioSource source;
    for (int i = 0; i < kTries && !isDone; ++i) {
      source = cardsim::MakeBytesSource(sound);
      Card().Audio().Play(0, 1, source);
      held.Wait(std::chrono::seconds(3));  // longer than it plays
    }
    EXPECT_TRUE(isDone);
    return source;
  }

  // In one piece up to the stall; then the blocks of the ring and no further one; then what came during the stall is
  // missing. All that is heard are whole blocks of the pattern in their order, wherever else this computer came late.
  void ExpectWholeBlocksLost(const Bytes& recorded) {
    constexpr size_t kLeastLost = size_t{20} * ZELK_BLOCK_BYTES;  // half of 800 ms
    const Bytes begin(sound.begin(), sound.begin() + 800);
    const long start = support::FindSound(recorded, begin);
    ASSERT_GE(start, 0);
    const Bytes heard(recorded.begin() + start, recorded.end());
    // The callback has seen blocks that came before the recording began.
    const size_t handedOver = before.size() - static_cast<size_t>(support::FindSound(before, begin));
    EXPECT_TRUE(std::equal(sound.begin(), sound.begin() + static_cast<ptrdiff_t>(handedOver), heard.begin()));
    const std::vector<size_t> positions = PositionsOfBlocks(heard, handedOver);
    ASSERT_GE(positions.size(), 10U);
    EXPECT_LT(positions[kRing - 2], handedOver + kLeastLost);
    EXPECT_GE(positions[kRing - 1], positions[kRing - 2] + kLeastLost);
  }

  // Where in the pattern the blocks that were heard from here on come from, each behind the one before.
  std::vector<size_t> PositionsOfBlocks(const Bytes& heard, size_t from) const {
    Bytes sent = sound;
    sent.resize(sound.size() + 2 * ZELK_BLOCK_BYTES, 0xD5);  // silence comes after it
    std::vector<size_t> positions;
    size_t position = from;
    for (size_t at = from; position < sound.size() && at + ZELK_BLOCK_BYTES <= heard.size(); at += ZELK_BLOCK_BYTES) {
      const auto block = heard.begin() + static_cast<ptrdiff_t>(at);
      const auto isHere = [&] {
        return std::equal(block, block + ZELK_BLOCK_BYTES, sent.begin() + static_cast<ptrdiff_t>(position));
      };
      while (position < sound.size() + ZELK_BLOCK_BYTES && !isHere()) {
        position += ZELK_BLOCK_BYTES;
      }
      EXPECT_LT(position, sound.size() + ZELK_BLOCK_BYTES) << "no block of the pattern at " << at;
      positions.push_back(position);
      position += ZELK_BLOCK_BYTES;
    }
    return positions;
  }

  CLatch held;
  CLatch leave;
  const Bytes sound = Pattern(16000, 12);
  Bytes before;  // what was handed over before the stall, with the block of the stall
  std::atomic<bool> isDone{false};
};

// Four blocks: the one in the callback's hands and three that fill meanwhile. What comes then is lost, in whole blocks,
// and the line runs out of sound; after the stall both go on.
TEST_F(StalledRecording, beyond_the_ring_loses_whole_blocks_and_idles_lines) {
  Prepare({1}, "[General]\nAudioBuffers=4\n");
  StallInTheMiddle();
  const CShutdownAtEnd end(*this);
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  OpenAll();
  app->Record(0);
  ASSERT_TRUE(app->WaitRecorded(0, ZELK_BLOCK_BYTES, kSoon));
  const cardsim::AudioSource source = PlayUntilHeld();
  const Recorder line = Card().RecordTimeslot(0, 1);
  ASSERT_TRUE(line->WaitSize(6400, kSoon));  // 800 ms of the card's time
  leave.Open();
  EXPECT_TRUE(line->WaitContains(Bytes(1600, 0x54), kSoon));
  ASSERT_TRUE(Card().Audio().WaitPlayed(source, kSoon));
  ASSERT_TRUE(app->WaitRecorded(0, before.size() + 8000, kSoon));
  const Recorder after = Card().RecordTimeslot(0, 1);
  EXPECT_TRUE(after->WaitContains(Bytes(1600, 0xD5), kSoon));
  app->zelk.Shutdown();
  ExpectWholeBlocksLost(app->Recorded(0));
}

// A PLAY_DONE callback that takes half a second loses no packet of the card.
TEST_F(AudioCallback, a_play_done_that_takes_half_a_second_loses_no_packet) {
  Prepare({1});
  cardsim::AudioSource during;
  std::atomic<bool> wasPlayed{false};
  app->onEvent = [&](const support::SAppEvent& event) {
    if (event.code == ZELK_EVENT_PLAY_DONE) {
      during = cardsim::MakeBytesSource(Bytes(4000, 0xD5));
      Card().Audio().Play(0, 2, during);
      wasPlayed = Card().Audio().WaitPlayed(during, kSoon);
    }
  };
  const CShutdownAtEnd end(*this);
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  OpenAll();
  app->Record(0);
  ASSERT_TRUE(app->WaitRecorded(0, ZELK_BLOCK_BYTES, kSoon));
  const Bytes sound = Pattern(16000, 13);
  const cardsim::AudioSource source = cardsim::MakeBytesSource(sound);
  Card().Audio().Play(0, 1, source);
  ASSERT_TRUE(Play(1, Bytes(100, 0x2A)));
  ASSERT_TRUE(app->WaitEvent(1, ZELK_EVENT_PLAY_DONE, kSoon));
  ASSERT_TRUE(Card().Audio().WaitPlayed(source, kSoon));
  ASSERT_TRUE(app->WaitRecorded(0, app->Recorded(0).size() + 8000, kSoon));
  EXPECT_TRUE(wasPlayed);
  EXPECT_GE(support::FindSound(app->Recorded(0), sound), 0);
  EXPECT_EQ(CountInLog("acket"), 0U) << app->zelk.LogText();
}

}  // namespace

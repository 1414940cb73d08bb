// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <atomic>

#include "common/wire.h"
#include "system_fixture.h"

namespace {

using cardsim::Bytes;
using cardsim::Recorder;

class AudioPath : public CSystemTest {
 protected:
  // The lines stand still until Flow(), so that recordings begin with the very first byte.
  void StartStill(const std::string& ini = {}) {
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
    sim->Start();
    Card().Audio().SetPacing(false);
    Card().Audio().SetWaitForReplies(true);
    app = std::make_unique<support::CApplication>(ini);
    app->onEvent = [this](const support::SAppEvent& event) { OnEvent(event); };
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    ASSERT_TRUE(Card().Seen().WaitReady(kSoon));
    OpenAll();
  }
  void Flow() { Card().Audio().SetPacing(true); }

  // On the receive thread, which sends nothing while it is here.
  void OnEvent(const support::SAppEvent& event) {
    if (event.code == ZELK_EVENT_PLAY_DONE && event.channel == 0) {
      leftAtDone = app->zelk.PlayTimeLeft(0);
      heardAtDone = line == nullptr || awaited.empty() || line->WaitContains(awaited, kSoon);
    }
  }

  bool Play(int32_t channel, const Bytes& sound) {
    return app->zelk.PlayBuffer(channel, sound.data(), static_cast<uint32_t>(sound.size()));
  }

  // From the first packet on (it has no reply) takes steps of one packet until the condition holds; the pacer has its
  // own time for its part.
  bool StepUntil(const std::function<bool()>& condition) {
    Card().Audio().KeepReplies(true);
    size_t packets = 0;
    bool isAnswered = true;
    const auto step = [&] {
      if (!isAnswered || condition()) {
        return true;
      }
      Card().Audio().SendPacket();
      isAnswered = Card().Audio().WaitReplies(packets++, kSoon);
      return false;
    };
    return support::Eventually(step, kSoon, std::chrono::milliseconds(0)) && isAnswered;
  }

  Recorder line;
  Bytes awaited;
  std::atomic<uint32_t> leftAtDone{99};
  std::atomic<bool> heardAtDone{false};
  std::atomic<bool> stall{false};  // the next block of channel 0 takes the application 300 ms
};

Bytes Part(const Bytes& whole, size_t from, size_t count) {
  return {whole.begin() + static_cast<ptrdiff_t>(from), whole.begin() + static_cast<ptrdiff_t>(from + count)};
}

// Lines begin with 160 idle bytes; then comes silence, and zeros in timeslots 0 and 16.
TEST_F(AudioPath, begins_with_160_idle_bytes_then_silence_or_zeros) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  std::vector<Recorder> lines;
  for (int timeslot = 0; timeslot < cardsim::kTimeslots; ++timeslot) {
    lines.push_back(Card().RecordTimeslot(0, timeslot));
  }
  Flow();
  for (int timeslot = 0; timeslot < cardsim::kTimeslots; ++timeslot) {
    const Recorder& heard = lines[static_cast<size_t>(timeslot)];
    ASSERT_TRUE(heard->WaitSize(4000, kSoon));
    const Bytes bytes = heard->Samples();
    const uint8_t then = timeslot == 0 || timeslot == 16 ? 0x00 : 0xD5;
    EXPECT_EQ(Part(bytes, 0, 160), Bytes(160, 0x54)) << timeslot;
    EXPECT_EQ(Part(bytes, 160, 3840), Bytes(3840, then)) << timeslot;
  }
}

// Without audio buffers every timeslot carries idle bytes and nothing is recorded.
TEST_F(AudioPath, without_audio_buffers_is_idle_and_records_nothing) {
  ASSERT_NO_FATAL_FAILURE(StartStill("[General]\nAudioBuffers=0\n"));
  app->Record(0);
  const Recorder voice = Card().RecordTimeslot(0, 1);
  const Recorder signalling = Card().RecordTimeslot(0, 16);
  Flow();
  ASSERT_TRUE(voice->WaitSize(4000, kSoon));
  EXPECT_EQ(Part(voice->Samples(), 0, 4000), Bytes(4000, 0x54));
  EXPECT_EQ(Part(signalling->Samples(), 0, 3900), Bytes(3900, 0x54));
  EXPECT_TRUE(app->Recorded(0).empty());
}

// The play time of 100 bytes is 12, then 1, and 0 with the event that follows the sound.
TEST_F(AudioPath, play_time_of_100_bytes_is_12_then_1_and_0_with_the_event) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  line = Card().RecordTimeslot(0, 1);
  const Bytes sound = cardsim::RenderTestPattern(100, 5);
  awaited = sound;
  // The transmit ring is full of silence and nothing flows: the buffer stays where it is.
  ASSERT_TRUE(Play(0, sound));
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 12U);
  ASSERT_TRUE(StepUntil([&] { return app->zelk.PlayTimeLeft(0) == 1; }));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 0U);
  Flow();
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_TRUE(heardAtDone);  // the sound had left before the event came
  EXPECT_EQ(leftAtDone, 0U);
  Bytes block = sound;
  block.resize(320, 0xD5);
  EXPECT_TRUE(line->WaitContains(block, kSoon));
  ASSERT_TRUE(line->WaitSize(line->Size() + 8000, kSoon));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

TEST_F(AudioPath, a_play_of_7_bytes_counts_as_1_ms) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  ASSERT_TRUE(Play(0, Bytes(7, 0x2A)));
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 1U);
}

// The PLAY_DONE event comes when the last sound has left, whatever its length.
TEST_F(AudioPath, play_done_comes_when_the_last_sound_of_any_length_has_left) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  line = Card().RecordTimeslot(0, 1);
  Flow();
  size_t plays = 0;
  for (const size_t bytes : {1U, 100U, 160U, 320U, 1700U, 8000U}) {
    awaited = cardsim::RenderTestPattern(bytes, static_cast<uint32_t>(bytes) + 1);
    std::replace(awaited.begin(), awaited.end(), uint8_t{0xD5}, uint8_t{0xD4});
    heardAtDone = false;
    line->Clear();
    ASSERT_TRUE(Play(0, awaited));
    ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon, ++plays));
    EXPECT_TRUE(heardAtDone) << bytes;
    EXPECT_EQ(leftAtDone, 0U) << bytes;
  }
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), plays);
}

TEST_F(AudioPath, a_buffer_of_no_bytes_is_silence_and_one_event) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  line = Card().RecordTimeslot(0, 1);
  EXPECT_TRUE(app->zelk.PlayBuffer(0, "", 0));
  EXPECT_EQ(app->zelk.GetLastError(0), 0U);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 1U);
  Flow();
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_EQ(leftAtDone, 0U);
  ASSERT_TRUE(line->WaitSize(line->Size() + 4000, kSoon));
  const Bytes heard = line->Samples();
  EXPECT_TRUE(std::all_of(heard.begin() + 160, heard.end(), [](uint8_t byte) { return byte == 0xD5; }));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

TEST_F(AudioPath, buffers_back_to_back_play_without_a_gap_and_with_one_event) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  line = Card().RecordTimeslot(0, 1);
  Bytes whole;
  for (uint32_t i = 0; i < 9; ++i) {
    const Bytes part = cardsim::RenderTestPattern(37 + 191 * i, i);
    whole.insert(whole.end(), part.begin(), part.end());
    ASSERT_TRUE(Play(0, part));
  }
  Flow();
  EXPECT_TRUE(line->WaitContains(whole, kSoon));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  ASSERT_TRUE(line->WaitSize(line->Size() + 8000, kSoon));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

// StopPlay in the middle silences the very next packet and gives no event.
TEST_F(AudioPath, stop_play_silences_the_very_next_packet_without_an_event) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  const Bytes sound = Bytes(80000, 0x2A);
  ASSERT_TRUE(Play(0, sound));
  line = Card().RecordTimeslot(0, 1);
  ASSERT_TRUE(StepUntil([&] { return line->Size() > 0 && line->Samples().back() == 0x2A; }));
  const size_t before = line->Size();
  app->zelk.StopPlay(0);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
  Card().Audio().SendPacket();
  ASSERT_TRUE(line->WaitSize(before + 45, kSoon));
  EXPECT_EQ(Part(line->Samples(), before, 45), Bytes(45, 0x54));
  const cardsim::Recorder then = Card().RecordTimeslot(0, 1);
  Flow();
  ASSERT_TRUE(then->WaitContains(Bytes(1600, 0xD5), kSoon));
  const Bytes after = Part(line->Samples(), before, line->Size() - before - 50);
  const auto silence = std::find_if(after.begin(), after.end(), [](uint8_t byte) { return byte != 0x54; });
  EXPECT_GE(silence - after.begin(), 160);
  EXPECT_TRUE(std::all_of(silence, after.end(), [](uint8_t byte) { return byte == 0xD5; }));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 0U);
}

// Closing a channel in the middle of a play silences the very next packet and gives no event.
TEST_F(AudioPath, closing_a_channel_silences_its_play_without_an_event) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  ASSERT_TRUE(Play(0, Bytes(80000, 0x2A)));
  ASSERT_TRUE(Play(1, Bytes(80000, 0x2B)));
  line = Card().RecordTimeslot(0, 1);
  const Recorder other = Card().RecordTimeslot(0, 2);
  ASSERT_TRUE(StepUntil([&] { return line->Size() > 0 && line->Samples().back() == 0x2A; }));
  const size_t before = line->Size();
  app->zelk.CloseChannel(0);
  EXPECT_EQ(app->zelk.PlayTimeLeft(0), 0U);
  Card().Audio().SendPacket();
  ASSERT_TRUE(line->WaitSize(before + 45, kSoon));
  EXPECT_EQ(Part(line->Samples(), before, 45), Bytes(45, 0x54));
  Flow();
  ASSERT_TRUE(line->WaitSize(before + 16000, kSoon));
  const Bytes after = Part(line->Samples(), before, 16000);
  EXPECT_TRUE(std::all_of(after.begin(), after.end(), [](uint8_t byte) { return byte == 0x54 || byte == 0xD5; }));
  // The other channels play on, and this one plays when it is open again.
  EXPECT_TRUE(other->WaitContains(Bytes(16000, 0x2B), kSoon));
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 0U);
  ASSERT_TRUE(app->zelk.OpenChannel(0));
  awaited = cardsim::RenderTestPattern(3000, 8);
  ASSERT_TRUE(Play(0, awaited));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_TRUE(heardAtDone);
}

TEST_F(AudioPath, a_channel_plays_again_after_a_stop_with_its_own_event) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  line = Card().RecordTimeslot(0, 1);
  Flow();
  ASSERT_TRUE(Play(0, Bytes(80000, 0x2A)));
  ASSERT_TRUE(line->WaitContains(Bytes(400, 0x2A), kSoon));
  app->zelk.StopPlay(0);
  awaited = cardsim::RenderTestPattern(3000, 8);
  ASSERT_TRUE(Play(0, awaited));
  ASSERT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_TRUE(heardAtDone);
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 1U);
}

// A play callback overwrites queued sound block by block and the queue goes on.
TEST_F(AudioPath, a_callback_overwrites_queued_sound_and_the_queue_goes_on) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>();
  // Turns every byte over: silence and queued sound alike.
  app->SetOnPlay([](uint32_t channel, uint8_t* data, uint32_t length) {
    if (channel == 0) {
      std::transform(data, data + length, data, [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
    }
  });
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  OpenAll();
  line = Card().RecordTimeslot(0, 1);
  const Bytes sound = cardsim::RenderTestPattern(1000, 3);
  ASSERT_TRUE(Play(0, sound));
  Bytes turned(1120, static_cast<uint8_t>(~0xD5));
  std::transform(sound.begin(), sound.end(), turned.begin(), [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
  EXPECT_TRUE(line->WaitContains(turned, kSoon));
  EXPECT_TRUE(app->WaitEvent(0, ZELK_EVENT_PLAY_DONE, kSoon));
}

TEST_F(AudioPath, a_stall_of_the_application_of_300_ms_loses_no_sound) {
  sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({1}));
  sim->Start();
  app = std::make_unique<support::CApplication>();
  app->SetOnRecord([this](uint32_t channel, const uint8_t*, uint32_t) {
    if (channel == 0 && stall.exchange(false)) {
      support::LetPass(std::chrono::milliseconds(300));  // the stall
    }
  });
  ASSERT_NO_FATAL_FAILURE(StartLibrary());
  app->Record(0);
  ASSERT_TRUE(app->WaitRecorded(0, 160, kSoon));
  const Bytes sound = cardsim::RenderTestPattern(12000, 12);
  const cardsim::AudioSource source = cardsim::MakeBytesSource(sound);
  Card().Audio().Play(0, 1, source);
  stall = true;
  ASSERT_TRUE(Card().Audio().WaitPlayed(source, kSoon));
  ASSERT_TRUE(app->WaitRecorded(0, app->Recorded(0).size() + 8000, kSoon));
  EXPECT_FALSE(stall);
  EXPECT_GE(support::FindSound(app->Recorded(0), sound), 0);
}

// Without callbacks for sound blocks go round, digits are heard and buffers play.
TEST_F(AudioPath, without_callbacks_digits_are_heard_and_buffers_play) {
  ASSERT_NO_FATAL_FAILURE(StartStill());
  app->zelk.SetRecordCallback(nullptr);
  app->zelk.SetPlayCallback(nullptr);
  line = Card().RecordTimeslot(0, 17);
  Flow();
  const Bytes sound = cardsim::RenderTestPattern(16000, 9);
  ASSERT_TRUE(Play(15, sound));  // timeslot 17: timeslots 0 and 16 have no channel
  Card().Audio().Play(0, 17, cardsim::MakeBytesSource(cardsim::RenderDtmf("7A", 80, 80, -10)));
  int32_t digit = 0;
  ASSERT_TRUE(app->WaitEvent(15, ZELK_EVENT_DTMF, kSoon, 2, &digit));
  EXPECT_EQ(digit, 'A');
  EXPECT_TRUE(app->WaitEvent(15, ZELK_EVENT_PLAY_DONE, kSoon));
  EXPECT_TRUE(line->WaitContains(sound, kSoon));
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "cardsim/audio/signals.h"
#include "common/wire.h"
#include "system_fixture.h"

namespace {

using cardsim::Bytes;

// A sanitizer makes a full card's load one that a busy machine cannot carry in time.
#if defined(__SANITIZE_THREAD__)
constexpr int kTrunks = 1;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kTrunks = 3;
#else
constexpr int kTrunks = 8;
#endif
constexpr int32_t kChannels = kTrunks * ZELK_CHANNELS_PER_TRUNK;
constexpr size_t kRound = 8000;  // a second: a digit, its pause, then noise
constexpr size_t kDigitBytes = 640;
constexpr size_t kPauseBytes = 640;
constexpr char kDigits[] = "159D*0#A2C7";
constexpr size_t kDigitCount = sizeof(kDigits) - 1;

// Each channel's own endless sound in each direction; any stretch of it can be had without what lies before.
class CSoundtrack {
 public:
  CSoundtrack(uint32_t channel, uint32_t direction)
      : key(channel),
        hasDigits(direction == 0),
        noise(cardsim::RenderTestPattern(kNoiseBytes, channel * 2 + direction)) {
    for (size_t i = 0; hasDigits && i < kDigitCount; ++i) {
      tones[i] = cardsim::RenderDtmf(std::string(1, kDigits[i]), {.onMs = 80, .offMs = 80, .level = -9});
    }
  }

  void Copy(uint64_t place, uint8_t* out, size_t length) const {
    for (size_t done = 0; done < length;) {
      const uint64_t at = place + done;
      const auto inRound = static_cast<size_t>(at % kRound);
      const bool inDigit = hasDigits && inRound < kDigitBytes + kPauseBytes;
      const Bytes& from = inDigit ? tones[DigitIndex(at / kRound)] : noise;
      const size_t start = inDigit ? inRound : static_cast<size_t>(at % kNoiseBytes);
      const size_t part = std::min({length - done, from.size() - start, kRound - inRound});
      std::memcpy(out + done, &from[start], part);
      done += part;
    }
    if (place == 0 && length > 0) {
      out[0] = 0x2A;  // no silence, so that the start can be heard
    }
  }
  size_t DigitIndex(uint64_t round) const { return static_cast<size_t>((round + key) % kDigitCount); }

 private:
  static constexpr size_t kNoiseBytes = 65521;  // no part of a round, so that no two rounds are alike

  uint32_t key;
  bool hasDigits;
  Bytes noise;
  std::array<Bytes, kDigitCount> tones;
};

// Follows a soundtrack from its first byte on. Behind a gap nothing fits any more: where it begins tells its time.
class CFollower {
 public:
  void Take(const CSoundtrack& track, const uint8_t* data, size_t length) {
    if (place == 0) {  // silence and idle bytes before the start
      const uint8_t* start = std::find_if(data, data + length, [](uint8_t b) { return b != 0xD5 && b != 0x54; });
      length -= static_cast<size_t>(start - data);
      data = start;
    }
    std::array<uint8_t, ZELK_BLOCK_BYTES> expected{};
    for (size_t done = 0; done < length;) {
      const size_t part = std::min(length - done, expected.size());
      track.Copy(place, expected.data(), part);
      if (std::memcmp(data + done, expected.data(), part) != 0 && wrong++ == 0) {
        firstWrong = place;
      }
      place += part;
      done += part;
    }
    followed = place;
  }

  std::atomic<uint64_t> followed{0};
  std::atomic<uint64_t> wrong{0};  // stretches of up to a block
  std::atomic<uint64_t> firstWrong{0};

 private:
  uint64_t place = 0;  // the one thread that feeds it
};

class CTrackSource : public cardsim::IAudioSource {
 public:
  explicit CTrackSource(const CSoundtrack& soundtrack) : track(soundtrack) {}
  size_t Read(std::span<uint8_t> out) override {
    track.Copy(place, out.data(), out.size());
    place += out.size();
    return out.size();
  }

 private:
  const CSoundtrack& track;
  uint64_t place = 0;
};

struct SChannel {
  explicit SChannel(uint32_t number) : fromFarEnd(number, 0), fromApplication(number, 1) {}

  CSoundtrack fromFarEnd;
  CSoundtrack fromApplication;
  CFollower recorded;
  CFollower heard;
  uint64_t queued = 0;                // bytes given to the library
  std::atomic<uint64_t> digits{0};    // events so far
  std::atomic<uint64_t> misheard{0};  // of another digit than the next one
};

int Seconds() {
  const char* wanted = std::getenv("ZELK_SOAK_SECONDS");
  return wanted == nullptr ? 20 : std::max(std::atoi(wanted), 1);
}

// The longest time for which a thread that only wants to wake every millisecond did not run: the machine's own stalls,
// to tell them from the library's when a reply was late.
class CStallWatch {
 public:
  CStallWatch() : watcher([this] { Watch(); }) {}
  ~CStallWatch() {
    stop = true;
    watcher.join();
  }
  double LongestMs() const { return longestMs; }

 private:
  void Watch() {
    auto last = std::chrono::steady_clock::now();
    while (!stop) {
      support::LetPass(std::chrono::milliseconds(1));
      const auto now = std::chrono::steady_clock::now();
      longestMs = std::max(longestMs.load(), std::chrono::duration<double, std::milli>(now - last).count());
      last = now;
    }
  }

  std::atomic<bool> stop{false};
  std::atomic<double> longestMs{0};
  std::thread watcher;
};

class FullCard : public CSystemTest {
 protected:
  void StartCalls() {
    for (uint32_t i = 0; i < kChannels; ++i) {
      channels.push_back(std::make_unique<SChannel>(i));
    }
    sim = std::make_unique<cardsim::CSimulator>(cardsim::SSimulatorConfig::WithTrunks({kTrunks}));
    sim->Start();
    app = std::make_unique<support::CApplication>();
    app->SetOnRecord([this](uint32_t channel, const uint8_t* data, uint32_t length) {
      SChannel& own = *channels[channel];
      own.recorded.Take(own.fromFarEnd, data, length);
    });
    app->onEvent = [this](const support::SAppEvent& event) {
      if (event.code == ZELK_EVENT_DTMF) {
        SChannel& own = *channels[static_cast<size_t>(event.channel)];
        own.misheard += event.param == kDigits[own.fromFarEnd.DigitIndex(own.digits++)] ? 0 : 1;
      }
    };
    ASSERT_NO_FATAL_FAILURE(StartLibrary());
    ASSERT_EQ(app->zelk.GetChannelCount(), kChannels);
    OpenAll();
    for (int32_t channel = 0; channel < kChannels; ++channel) {
      calls.push_back(Card().PlaceCall({.trunk = channel / 30, .timeslot = TimeslotOf(channel)}));
    }
    for (int32_t channel = 0; channel < kChannels; ++channel) {
      ASSERT_TRUE(app->WaitEvent(channel, ZELK_EVENT_INCOMING_CALL, kSlow)) << channel;
      app->zelk.Answer(channel);
    }
    for (int32_t channel = 0; channel < kChannels; ++channel) {
      ASSERT_TRUE(calls[static_cast<size_t>(channel)]->WaitState(cardsim::ESimCallState::kConnected, kSlow)) << channel;
    }
  }

  void StartSound() {
    for (int32_t channel = 0; channel < kChannels; ++channel) {
      SChannel& own = *channels[static_cast<size_t>(channel)];
      Card().Audio().AddRecorder(channel / 30, TimeslotOf(channel),
                                 std::make_shared<cardsim::CRecorder>([&own](cardsim::ByteView data, uint64_t) {
                                   own.heard.Take(own.fromApplication, data.data(), data.size());
                                 }));
      calls[static_cast<size_t>(channel)]->Play(std::make_shared<CTrackSource>(own.fromFarEnd));
    }
  }

  // Keeps two to three seconds queued on every channel.
  void Refill() {
    constexpr uint32_t kKeptMs = 2000;
    Bytes second(kRound);
    for (int32_t channel = 0; channel < kChannels; ++channel) {
      SChannel& own = *channels[static_cast<size_t>(channel)];
      while (app->zelk.PlayTimeLeft(channel) < kKeptMs) {
        own.fromApplication.Copy(own.queued, second.data(), second.size());
        own.queued += second.size();
        ASSERT_TRUE(app->zelk.PlayBuffer(channel, second.data(), static_cast<uint32_t>(second.size())));
      }
    }
  }

  // One second of the card's own time after another.
  void Carry(uint64_t seconds) {
    const cardsim::Recorder clock = std::make_shared<cardsim::CRecorder>();
    for (uint64_t second = 0; second <= seconds; ++second) {
      ASSERT_NO_FATAL_FAILURE(Refill());
      clock->Clear();
      Card().Audio().AddRecorder(0, 1, clock);
      ASSERT_TRUE(clock->WaitSize(kRound, kSlow));
      Card().Audio().RemoveRecorder(0, 1, clock);
    }
  }

  // What every channel has carried, and what went wrong.
  struct SCarried {
    uint64_t least = ~uint64_t{0};  // samples of the channel and direction with the fewest
    uint64_t digits = 0;
    std::vector<std::string> faults;
  };
  SCarried Check(uint64_t seconds) {
    SCarried carried;
    for (int32_t i = 0; i < kChannels; ++i) {
      SChannel& own = *channels[static_cast<size_t>(i)];
      const auto check = [&](const char* what, const CFollower& sound) {
        if (sound.wrong != 0) {
          carried.faults.push_back(std::to_string(i) + what + std::to_string(sound.firstWrong));
        }
        carried.least = std::min(carried.least, sound.followed.load());
      };
      check(" recorded wrong from ", own.recorded);
      check(" heard wrong from ", own.heard);
      const uint64_t heard = own.digits;
      // The digit of the round that has just begun may have been heard already.
      if (own.misheard != 0 || heard < seconds || heard > own.recorded.followed / kRound + 2) {
        carried.faults.push_back(std::to_string(i) + " digits " + std::to_string(heard));
      }
      carried.digits += heard;
    }
    return carried;
  }

  int TimeslotOf(int32_t channel) { return static_cast<int>(app->zelk.GetChannelInfo(channel, ZELK_INFO_TIMESLOT)); }

  std::vector<std::unique_ptr<SChannel>> channels;
  std::vector<cardsim::Call> calls;
};

// 240 channels. ZELK_SOAK_SECONDS sets the length.
TEST_F(FullCard, carries_every_sample_and_digit_and_answers_in_time) {
  ASSERT_NO_FATAL_FAILURE(StartCalls());
  ASSERT_NO_FATAL_FAILURE(StartSound());
  const auto seconds = static_cast<uint64_t>(Seconds());
  const CStallWatch stalls;
  ASSERT_NO_FATAL_FAILURE(Carry(seconds));
  const SCarried carried = Check(seconds);
  EXPECT_TRUE(carried.faults.empty()) << carried.faults.size() << " faults, the first: channel "
                                      << carried.faults.front();
  EXPECT_GE(carried.least, (seconds - 1) * kRound);
  const cardsim::SAudioStatistics seen = Card().Audio().Statistics();
  // A machine that stands still, or has more to do than it can, makes some late; a library that is slow makes most
  // late.
  EXPECT_LE(seen.late * 10, seen.replies) << "the machine's own longest stall: " << stalls.LongestMs() << " ms";
  EXPECT_EQ(seen.missing, 0U);
  EXPECT_EQ(seen.sequenceGaps + seen.wrongSize + seen.surplus + seen.badMagic, 0U);
  EXPECT_EQ(app->Count(ZELK_EVENT_PLAY_DONE), 0U);
  std::printf(
      "%llu s, %llu packets, %.2f ms mean and %.2f ms worst reply (the machine's own longest stall: %.0f ms), at least "
      "%llu samples each way, %llu digits\n",
      static_cast<unsigned long long>(seconds), static_cast<unsigned long long>(seen.packetsSent), seen.meanRoundTripMs,
      seen.worstRoundTripMs, stalls.LongestMs(), static_cast<unsigned long long>(carried.least),
      static_cast<unsigned long long>(carried.digits));
  // The library goes first: its callbacks use the channels.
  app.reset();
  sim.reset();
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include <array>
#include <map>
#include <optional>
#include <thread>

#include "binding_fixture.h"
#include "cardsim/audio/audio_source.h"
#include "support/temp_dir.h"
#include "zelk/Zelk.hpp"

namespace {

using cardsim::Bytes;
using zelkapi::Channel;
using zelkapi::Event;
using zelkapi::Library;
using namespace std::chrono_literals;

// A sanitizer makes a full card's load one that a busy machine cannot carry in time.
#if defined(__SANITIZE_THREAD__)
constexpr int kTrunks = 1;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kTrunks = 3;
#else
constexpr int kTrunks = 8;
#endif
constexpr int32_t kChannels = kTrunks * ZELK_CHANNELS_PER_TRUNK;

class WithCard : public CBindingTest {
 protected:
  void Start(int trunks) {
    StartCard(trunks, [this] {
      table::Take(zelk);
      library.emplace();
    });
    sequence = 0;
  }
  void TearDown() override {
    library.reset();
    sim.reset();
  }

  // The next event of this code on this channel; others before it are left out.
  Event Wait(int channel, uint32_t code) {
    for (;;) {
      const std::optional<Event> event = library->events().next(kSlow);
      if (!event) {
        ADD_FAILURE() << "channel " << channel << " event " << code << "\n" << zelk.LogText();
        return {};
      }
      if (event->channel == channel && event->code == code) {
        return *event;
      }
    }
  }

  cardsim::Call Connect(int channel) {
    cardsim::Call call = Offer(channel);
    Wait(channel, ZELK_EVENT_INCOMING_CALL);
    EXPECT_TRUE(library->channel(channel).open());
    EXPECT_TRUE(library->channel(channel).answer());
    Wait(channel, ZELK_EVENT_CONNECTED);
    return call;
  }

  std::optional<Library> library;
  uint64_t sequence = 0;
};

// What the threads of a whole application see of a card that is full of calls.
class FullOfCalls : public WithCard {
 protected:
  static constexpr int kThreads = 8;
  static constexpr int32_t kEach = 62500;  // half a million in all
  static constexpr uint32_t kOwn = 0x20000;
  static constexpr int32_t kUnread = 4096;

  static Bytes SoundOf(int32_t channel) { return cardsim::RenderTestPattern(8000, static_cast<uint32_t>(channel) + 1); }

  // Events of the application's own beside those of the calls, each thread's in order.
  void PutOwn(int thread) {
    for (int32_t i = 0; i < kEach; ++i) {
      while (i - ownRead[static_cast<size_t>(thread)].load() > kUnread) {
        std::this_thread::yield();
      }
      library->events().put(thread, kOwn, i);
    }
  }

  void Take(const Event& event) {
    ASSERT_EQ(event.sequence, sequence + 1) << "an event is missing";
    sequence = event.sequence;
    const Channel channel(event.channel);
    if (event.code == kOwn) {
      ASSERT_EQ(event.param, ownRead[static_cast<size_t>(event.channel)]++);
    } else if (event.code == ZELK_EVENT_INCOMING_CALL) {
      EXPECT_EQ(channel.callingNumber(), NumberOf(event.channel));
      channel.recordOn(500);
      channel.answer();
    } else if (event.code == ZELK_EVENT_CONNECTED) {
      calls[static_cast<size_t>(event.channel)]->PlayBytes(SoundOf(event.channel));
      ++connected;
    } else if (event.code == ZELK_EVENT_DISCONNECTED) {
      EXPECT_EQ(event.param, 16);
      ++ended;
    }
  }

  template <class Condition>
  void TakeUntil(Condition condition) {
    std::vector<Event> batch(1000);
    while (!condition()) {
      const size_t count = library->events().take(batch.data(), batch.size(), kSlow);
      ASSERT_GT(count, 0U) << connected << " connected, " << ended << " ended";
      for (size_t i = 0; i < count; ++i) {
        ASSERT_NO_FATAL_FAILURE(Take(batch[i]));
      }
    }
  }

  // Reads until each channel has its own sound, whole.
  void ReadSound() {
    std::vector<Bytes> heard(kChannels);
    for (size_t whole = 0; whole < heard.size();) {
      const std::vector<int32_t> ready = library->sound().wait(25, kSlow);
      ASSERT_FALSE(ready.empty()) << whole << " channels were heard";
      for (const int32_t channel : ready) {
        const zelkapi::Blocks blocks = library->sound().read(channel);
        ASSERT_EQ(blocks.lostBefore, 0U);
        Bytes& sound = heard[static_cast<size_t>(channel)];
        if (!sound.empty() && sound.front() == 1) {
          continue;  // was whole before
        }
        sound.insert(sound.end(), blocks.alaw.begin(), blocks.alaw.end());
        if (support::FindSound(sound, SoundOf(channel)) >= 0) {
          sound.assign(1, 1);
          ++whole;
        }
      }
    }
  }

  std::array<std::atomic<int32_t>, kThreads> ownRead{};
  std::vector<cardsim::Call> calls;
  std::atomic<int32_t> connected{0};
  std::atomic<int32_t> ended{0};
};

TEST_F(FullOfCalls, HalfAMillionEventsAndAllTheSound) {
  ASSERT_NO_FATAL_FAILURE(Start(kTrunks));
  ASSERT_EQ(library->channelCount(), kChannels);
  while (const std::optional<Event> event = library->events().next(0ms)) {
    sequence = event->sequence;
  }
  for (const Channel& channel : library->channels()) {
    channel.open();
  }
  for (int32_t channel = 0; channel < kChannels; ++channel) {
    calls.push_back(Offer(channel));
  }
  ASSERT_NO_FATAL_FAILURE(TakeUntil([this] { return connected == kChannels; }));
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([this, thread] { PutOwn(thread); });
  }
  threads.emplace_back([this] { ReadSound(); });
  TakeUntil([this] {
    return std::all_of(ownRead.begin(), ownRead.end(), [](const std::atomic<int32_t>& read) { return read == kEach; });
  });
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const cardsim::Call& call : calls) {
    call->Hangup(16);
  }
  ASSERT_NO_FATAL_FAILURE(TakeUntil([this] { return ended == kChannels; }));
  EXPECT_EQ(library->events().lost(), 0U);
  for (int32_t channel = 0; channel < kChannels; ++channel) {
    EXPECT_EQ(library->sound().lost(channel), 0U) << channel;
  }
}

TEST_F(WithCard, TheFarEndHearsAFileSampleForSample) {
  ASSERT_NO_FATAL_FAILURE(Start(1));
  const zelk::CTempDir folder;
  const Bytes sound = cardsim::RenderTestPattern(4000, 5);
  zelkapi::WavFile file(folder.Path("prompt.wav"));
  file.write(sound);
  file.close();
  const cardsim::Call call = Connect(2);
  EXPECT_TRUE(library->channel(2).playFile(folder.Path("prompt.wav")));
  EXPECT_TRUE(call->Heard()->WaitContains(sound, kSlow));
  Wait(2, ZELK_EVENT_PLAY_DONE);
}

TEST_F(WithCard, RenderedDigitsAreHeardAsThese) {
  ASSERT_NO_FATAL_FAILURE(Start(1));
  const cardsim::Call call = Connect(3);
  const std::string digits = "1590*#AD";
  call->PlayBytes(zelkapi::Digits::render(digits));
  std::string heard;
  while (heard.size() < digits.size() && !HasFailure()) {
    heard += static_cast<char>(Wait(3, ZELK_EVENT_DTMF).param);
  }
  EXPECT_EQ(heard, digits);
}

TEST_F(WithCard, DialsAndHangsUp) {
  ASSERT_NO_FATAL_FAILURE(Start(1));
  const Channel channel = library->channel(0);
  ASSERT_TRUE(channel.dial("0405556789", "8001000"));
  Wait(0, ZELK_EVENT_CONNECTED);
  const cardsim::Call call = Card().WaitCall(kSoon);
  ASSERT_NE(call, nullptr);
  EXPECT_EQ(call->Called(), "0405556789");
  EXPECT_EQ(channel.state(), ZELK_CHANNEL_INUSE);
  EXPECT_FALSE(channel.dial("1")) << "the channel is taken";
  EXPECT_TRUE(channel.hangup());
  EXPECT_EQ(Library::causeName(Wait(0, ZELK_EVENT_DISCONNECTED).param), Library::causeName(16));
}

TEST_F(WithCard, MayBeStartedAgain) {
  ASSERT_NO_FATAL_FAILURE(Start(1));
  library.reset();
  EXPECT_EQ(zelk.GetChannelCount(), 0);
  library.emplace();
  EXPECT_TRUE(support::Eventually([this] { return AllReady(); }, kSlow)) << zelk.LogText();
  EXPECT_TRUE(Card().WaitUp(kSlow));
  Connect(0)->Hangup(16);
  Wait(0, ZELK_EVENT_DISCONNECTED);
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include <dlfcn.h>

#include <array>
#include <stdexcept>

#include "binding_fixture.h"
#include "cardsim/audio/audio_source.h"
#include "native_module.h"
#include "zelk/ZelkQueue.h"

namespace {

// The built queue library, loaded by its path behind a copy of the telephony library in another folder.
class QueueLibrary : public CBindingTest {
 protected:
  QueueLibrary() : module(OpenModule(ZELK_QUEUE_LIBRARY_PATH)) {}

  void Start(int trunks) {
    StartCard(trunks, [this] { ASSERT_EQ(start(), 0); });
  }
  void TearDown() override {
    stop();
    sim.reset();
  }

  template <class Function>
  Function Find(const char* name) {
    const auto function = FindFunction<Function>(module, name);
    return function != nullptr ? function : throw std::runtime_error(name);
  }

  // The next event of this code.
  ZelkQueueEvent Wait(uint32_t code) {
    ZelkQueueEvent event{};
    while (event.event != code) {
      if (waitEvents(&event, 1, 60000) != 1) {
        ADD_FAILURE() << "event " << code << "\n" << zelk.LogText();
        return {};
      }
    }
    return event;
  }

  // What comes on a channel until this was in it.
  bool Hear(int32_t channel, const cardsim::Bytes& sound) {
    cardsim::Bytes heard;
    std::array<uint8_t, size_t{10} * ZELKQ_BLOCK_BYTES> some{};
    while (support::FindSound(heard, sound) < 0) {
      int32_t ready = -1;
      uint64_t lost = 1;
      if (waitBlocks(10, &ready, 1, 60000) != 1 || ready != channel ||
          readBlocks(channel, some.data(), 10, &lost) != 10 || lost != 0) {
        return false;
      }
      heard.insert(heard.end(), some.begin(), some.end());
    }
    return true;
  }

  Module module;
#define QUEUE_FUNCTION(member, name) decltype(&::name) member = Find<decltype(&::name)>(#name)
  QUEUE_FUNCTION(start, ZELKQ_Start);
  QUEUE_FUNCTION(stop, ZELKQ_Stop);
  QUEUE_FUNCTION(wake, ZELKQ_Wake);
  QUEUE_FUNCTION(waitEvents, ZELKQ_WaitEvents);
  QUEUE_FUNCTION(getText, ZELKQ_GetText);
  QUEUE_FUNCTION(getNumber, ZELKQ_GetNumber);
  QUEUE_FUNCTION(setRing, ZELKQ_SetRing);
  QUEUE_FUNCTION(readBlocks, ZELKQ_ReadBlocks);
  QUEUE_FUNCTION(waitBlocks, ZELKQ_WaitBlocks);
  QUEUE_FUNCTION(getLost, ZELKQ_GetLost);
  QUEUE_FUNCTION(getVersion, ZELKQ_GetVersion);
#undef QUEUE_FUNCTION
};

TEST_F(QueueLibrary, UsesTheLibraryThatWasLoadedByItsPath) {
  EXPECT_EQ(getVersion(), ZELKQ_VERSION);
  EXPECT_EQ(zelk.GetChannelCount(), 0);
  zelk.WriteIni("[Debug]\nLevel=1\n");
  ASSERT_NO_FATAL_FAILURE(Start(1));
  EXPECT_EQ(zelk.GetChannelCount(), ZELK_CHANNELS_PER_TRUNK);
  EXPECT_TRUE(support::Eventually([this] { return !zelk.LogText().empty(); })) << "its log stands beside it";
  EXPECT_EQ(stop(), 0);
  EXPECT_EQ(zelk.GetChannelCount(), 0);
}

TEST_F(QueueLibrary, BringsACallAndItsSound) {
  ASSERT_NO_FATAL_FAILURE(Start(1));
  zelk.OpenChannel(4);
  const cardsim::Call call = Offer(4);
  EXPECT_EQ(Wait(ZELK_EVENT_INCOMING_CALL).channel, 4);
  std::array<char, 32> text{};
  EXPECT_EQ(getText(4, ZELK_INFO_CLI, text.data(), 32), 8);
  EXPECT_EQ(text.data(), NumberOf(4));
  uint32_t timeslot = 0;
  EXPECT_EQ(getNumber(4, ZELK_INFO_TIMESLOT, &timeslot), 0);
  EXPECT_EQ(timeslot, static_cast<uint32_t>(TimeslotOf(4)));
  EXPECT_EQ(setRing(4, 500), 0);
  EXPECT_TRUE(zelk.Answer(4));
  EXPECT_EQ(Wait(ZELK_EVENT_CONNECTED).channel, 4);
  const cardsim::Bytes sound = cardsim::RenderTestPattern(8000, 3);
  call->PlayBytes(sound);
  EXPECT_TRUE(Hear(4, sound));
  EXPECT_EQ(getLost(4), 0);
  call->Hangup(16);
  EXPECT_EQ(Wait(ZELK_EVENT_DISCONNECTED).param, 16);
  EXPECT_EQ(getLost(ZELKQ_NO_CHANNEL), 0);
}

TEST_F(QueueLibrary, StaysLoaded) {
  CloseModule(module);
  EXPECT_NE(dlopen(ZELK_QUEUE_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

#include "bindings/support/stand_in.h"
#include "zelk/ZelkQueue.h"

namespace {

using Calls = std::vector<std::string>;

constexpr int32_t kChannels = CStandIn::kChannels;

// The functions as another language calls them, over a stand-in for the library.
class QueueTest : public testing::Test {
 protected:
  void Start() {
    ASSERT_EQ(ZELKQ_Start(), 0);
    standIn.Forget();
  }
  void TearDown() override { ZELKQ_Stop(); }

  // Every function in every state gives a defined result: here they must all be this one, with good arguments.
  static void ExpectAll(int32_t result) {
    ZelkQueueEvent event{};
    std::array<char, 16> text{};
    std::array<uint8_t, ZELKQ_BLOCK_BYTES> block{};
    uint32_t number = 0;
    int32_t channel = 0;
    EXPECT_EQ(ZELKQ_WaitEvents(&event, 1, ZELKQ_FOREVER), result);
    EXPECT_EQ(ZELKQ_Wake(), result);
    EXPECT_EQ(ZELKQ_GetText(0, ZELK_INFO_CLI, text.data(), 16), result);
    EXPECT_EQ(ZELKQ_GetNumber(0, ZELK_INFO_TRUNK, &number), result);
    EXPECT_EQ(ZELKQ_SetRing(0, 5), result);
    EXPECT_EQ(ZELKQ_ReadBlocks(0, block.data(), 1, nullptr), result);
    EXPECT_EQ(ZELKQ_WaitBlocks(1, &channel, 1, ZELKQ_FOREVER), result);
    EXPECT_EQ(ZELKQ_GetLost(ZELKQ_NO_CHANNEL), result);
    EXPECT_EQ(ZELKQ_GetLost(0), result);
  }

  CStandIn standIn;
};

TEST_F(QueueTest, StartsOnceAndStopsOnce) {
  EXPECT_EQ(ZELKQ_Stop(), ZELKQ_STOPPED);
  EXPECT_EQ(ZELKQ_Start(), 0);
  EXPECT_EQ(ZELKQ_Start(), ZELKQ_ALREADY_STARTED);
  EXPECT_TRUE(standIn.HasEventCallback() && standIn.HasRecordCallback());
  EXPECT_FALSE(standIn.HasPlayCallback());
  EXPECT_EQ(ZELKQ_Stop(), 0);
  EXPECT_FALSE(standIn.HasEventCallback() || standIn.HasRecordCallback());
  EXPECT_EQ(ZELKQ_Stop(), ZELKQ_STOPPED);
  EXPECT_EQ(standIn.Calls(), (Calls{"Init", "Shutdown"}));
  EXPECT_EQ(ZELKQ_GetVersion(), ZELKQ_VERSION);
}

TEST_F(QueueTest, AStartThatFailsLeavesNothing) {
  standIn.initResult = false;
  EXPECT_EQ(ZELKQ_Start(), ZELKQ_INIT_FAILED);
  EXPECT_FALSE(standIn.HasEventCallback() || standIn.HasRecordCallback());
  ExpectAll(ZELKQ_STOPPED);
  standIn.initResult = true;
  EXPECT_EQ(ZELKQ_Start(), 0);
}

TEST_F(QueueTest, SaysThatItIsStoppedBeforeAndAfter) {
  ExpectAll(ZELKQ_STOPPED);
  Start();
  standIn.BringEvent(1, ZELK_EVENT_DTMF, '1');
  EXPECT_EQ(ZELKQ_SetRing(0, 5), 0);
  EXPECT_EQ(ZELKQ_Stop(), 0);
  ExpectAll(ZELKQ_STOPPED);
  EXPECT_EQ(standIn.Calls(), Calls{"Shutdown"});
}

TEST_F(QueueTest, TakesEventsInBatches) {
  EXPECT_EQ(offsetof(ZelkQueueEvent, timeUs), 8U);
  EXPECT_EQ(offsetof(ZelkQueueEvent, channel), 16U);
  EXPECT_EQ(offsetof(ZelkQueueEvent, param), 24U);
  Start();
  for (int32_t i = 0; i < 1000; ++i) {
    standIn.BringEvent(i % 7, ZELK_EVENT_DTMF, i);
  }
  std::vector<ZelkQueueEvent> events(700);
  EXPECT_EQ(ZELKQ_WaitEvents(events.data(), 700, ZELKQ_FOREVER), 700);
  EXPECT_EQ(events[699].param, 699);
  EXPECT_EQ(events[699].sequence, 700U);
  EXPECT_EQ(events[699].channel, 699 % 7);
  EXPECT_EQ(events[699].event, static_cast<uint32_t>(ZELK_EVENT_DTMF));
  EXPECT_GT(events[0].timeUs, int64_t{1600000000} * 1000000);
  EXPECT_EQ(events[0].reserved, 0U);
  EXPECT_EQ(ZELKQ_WaitEvents(events.data(), 700, 0), 300);
  EXPECT_EQ(ZELKQ_WaitEvents(events.data(), 700, 0), 0);
}

TEST_F(QueueTest, SaysWhatFoundNoRoom) {
  Start();
  constexpr int32_t kMore = 5;
  for (int32_t i = 0; i < ZELKQ_EVENT_ROOM + kMore; ++i) {
    standIn.BringEvent(1, ZELK_EVENT_DTMF, i);
  }
  EXPECT_EQ(ZELKQ_GetLost(ZELKQ_NO_CHANNEL), kMore);
  std::vector<ZelkQueueEvent> events(ZELKQ_EVENT_ROOM + 10);
  ASSERT_EQ(ZELKQ_WaitEvents(events.data(), static_cast<int32_t>(events.size()), 0), ZELKQ_EVENT_ROOM + 1);
  const ZelkQueueEvent& last = events[ZELKQ_EVENT_ROOM];
  EXPECT_EQ(last.event, static_cast<uint32_t>(ZELKQ_EVENT_OVERFLOW));
  EXPECT_EQ(last.channel, ZELKQ_NO_CHANNEL);
  EXPECT_EQ(last.param, kMore);
  EXPECT_EQ(last.sequence, uint64_t{ZELKQ_EVENT_ROOM} + 1);
  ZELKQ_Stop();
  Start();
  EXPECT_EQ(ZELKQ_GetLost(ZELKQ_NO_CHANNEL), 0) << "each start counts anew";
}

TEST_F(QueueTest, CopiesTexts) {
  Start();
  std::array<char, 16> text{};
  EXPECT_EQ(ZELKQ_GetText(3, ZELK_INFO_CLI, text.data(), 16), 12);
  EXPECT_STREQ(text.data(), "CCCCCCCCCCCC");
  text.fill('x');
  EXPECT_EQ(ZELKQ_GetText(3, ZELK_INFO_DLI, text.data(), 5), 13);
  EXPECT_STREQ(text.data(), "DDDD");
  EXPECT_EQ(text[5], 'x');
  EXPECT_EQ(ZELKQ_GetText(3, ZELK_INFO_DLI, text.data(), 13), 13) << "the zero byte has no room";
  EXPECT_EQ(ZELKQ_GetText(3, ZELK_INFO_DLI, nullptr, 0), 13);
  EXPECT_EQ(ZELKQ_GetText(3, ZELK_INFO_TRUNK, text.data(), 16), ZELKQ_NO_TEXT);
  EXPECT_STREQ(text.data(), "");
  uint32_t number = 0;
  EXPECT_EQ(ZELKQ_GetNumber(3, ZELK_INFO_TRUNK, &number), 0);
  EXPECT_EQ(number, 3262U);
}

TEST_F(QueueTest, KeepsSoundInRings) {
  Start();
  std::vector<uint8_t> data(10 * ZELKQ_BLOCK_BYTES);
  uint64_t lost = 99;
  EXPECT_EQ(ZELKQ_ReadBlocks(3, data.data(), 10, &lost), ZELKQ_NO_RING);
  EXPECT_EQ(ZELKQ_GetLost(3), ZELKQ_NO_RING);
  EXPECT_EQ(ZELKQ_SetRing(3, 2), 0);
  for (const uint8_t fill : std::initializer_list<uint8_t>{1, 2, 3, 4}) {
    standIn.BringSound(3, fill);
  }
  EXPECT_EQ(ZELKQ_ReadBlocks(3, data.data(), 1, &lost), 1);
  EXPECT_EQ(data[159], 1);
  EXPECT_EQ(lost, 0U);
  standIn.BringSound(3, 5);
  EXPECT_EQ(ZELKQ_ReadBlocks(3, data.data(), 10, nullptr), 1) << "up to the gap";
  EXPECT_EQ(data[0], 2);
  EXPECT_EQ(ZELKQ_ReadBlocks(3, data.data(), 10, &lost), 1);
  EXPECT_EQ(data[0], 5);
  EXPECT_EQ(lost, 2U);
  EXPECT_EQ(ZELKQ_ReadBlocks(3, data.data(), 10, &lost), 0);
  EXPECT_EQ(ZELKQ_GetLost(3), 2);
  EXPECT_EQ(ZELKQ_SetRing(3, 0), 0);
  EXPECT_EQ(ZELKQ_ReadBlocks(3, data.data(), 10, &lost), ZELKQ_NO_RING);
}

TEST_F(QueueTest, WaitsForChannelsWithBlocks) {
  Start();
  std::array<int32_t, 8> channels{};
  EXPECT_EQ(ZELKQ_SetRing(3, 5), 0);
  EXPECT_EQ(ZELKQ_SetRing(200, 5), 0);
  standIn.BringSound(3, 1);
  standIn.BringSound(200, 1);
  standIn.BringSound(200, 2);
  EXPECT_EQ(ZELKQ_WaitBlocks(2, channels.data(), 8, ZELKQ_FOREVER), 1);
  EXPECT_EQ(channels[0], 200);
  EXPECT_EQ(ZELKQ_WaitBlocks(3, channels.data(), 8, 1), 0);
}

TEST_F(QueueTest, RefusesBadArguments) {
  Start();
  ZelkQueueEvent event{};
  int32_t channel = 0;
  uint32_t number = 0;
  std::array<char, 16> text{};
  std::array<uint8_t, ZELKQ_BLOCK_BYTES> block{};
  EXPECT_EQ(ZELKQ_WaitEvents(nullptr, 1, 0), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_WaitEvents(&event, 0, 0), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_WaitBlocks(1, nullptr, 1, 0), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_WaitBlocks(1, &channel, -1, 0), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_WaitBlocks(0, &channel, 1, 0), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_GetText(0, 2, nullptr, 1), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_GetText(0, 2, text.data(), -1), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_GetNumber(0, 2, nullptr), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_SetRing(0, -1), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_SetRing(0, ZELKQ_MOST_BLOCKS + 1), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_ReadBlocks(0, nullptr, 1, nullptr), ZELKQ_BAD_ARGUMENT);
  EXPECT_EQ(ZELKQ_ReadBlocks(0, block.data(), 0, nullptr), ZELKQ_BAD_ARGUMENT);
  for (const int32_t bad : {-1, kChannels, std::numeric_limits<int32_t>::max()}) {
    EXPECT_EQ(ZELKQ_GetText(bad, 2, text.data(), 16), ZELKQ_BAD_ARGUMENT);
    EXPECT_EQ(ZELKQ_GetNumber(bad, 2, &number), ZELKQ_BAD_ARGUMENT);
    EXPECT_EQ(ZELKQ_SetRing(bad, 1), ZELKQ_BAD_ARGUMENT);
    EXPECT_EQ(ZELKQ_ReadBlocks(bad, block.data(), 1, nullptr), ZELKQ_BAD_ARGUMENT);
  }
  EXPECT_EQ(ZELKQ_GetLost(kChannels), ZELKQ_BAD_ARGUMENT);
}

TEST_F(QueueTest, AWakeEndsBothWaits) {
  Start();
  std::atomic<int> ended{0};
  std::thread ofEvents([&] {
    ZelkQueueEvent event{};
    EXPECT_EQ(ZELKQ_WaitEvents(&event, 1, ZELKQ_FOREVER), 0);
    ++ended;
  });
  std::thread ofBlocks([&] {
    int32_t channel = 0;
    EXPECT_EQ(ZELKQ_WaitBlocks(1, &channel, 1, ZELKQ_FOREVER), 0);
    ++ended;
  });
  EXPECT_EQ(ZELKQ_Wake(), 0);
  ofEvents.join();
  ofBlocks.join();
  EXPECT_EQ(ended, 2);
}

TEST_F(QueueTest, AStopEndsEveryWait) {
  for (int round = 0; round < 50; ++round) {
    Start();
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
      waiters.emplace_back([] {
        ZelkQueueEvent event{};
        EXPECT_EQ(ZELKQ_WaitEvents(&event, 1, ZELKQ_FOREVER), ZELKQ_STOPPED);
      });
      waiters.emplace_back([] {
        int32_t channel = 0;
        EXPECT_EQ(ZELKQ_WaitBlocks(1, &channel, 1, ZELKQ_FOREVER), ZELKQ_STOPPED);
      });
    }
    EXPECT_EQ(ZELKQ_Stop(), 0);
    for (std::thread& waiter : waiters) {
      waiter.join();
    }
  }
}

TEST_F(QueueTest, AStopMeetsCardsAndReaders) {
  for (int round = 0; round < 20; ++round) {
    Start();
    EXPECT_EQ(ZELKQ_SetRing(0, 4), 0);
    std::atomic<bool> ended{false};
    std::atomic<int> read{0};
    std::thread card([&] {
      while (!ended) {
        standIn.BringSound(0, 1);
        standIn.BringEvent(0, ZELK_EVENT_DTMF, '1');
      }
    });
    std::thread reader([&] {
      std::array<uint8_t, 4 * ZELKQ_BLOCK_BYTES> data{};
      std::array<ZelkQueueEvent, 8> events{};
      while (ZELKQ_WaitEvents(events.data(), 8, ZELKQ_FOREVER) != ZELKQ_STOPPED &&
             ZELKQ_ReadBlocks(0, data.data(), 4, nullptr) != ZELKQ_STOPPED) {
        ++read;
      }
    });
    while (read < 20) {
      std::this_thread::yield();
    }
    EXPECT_EQ(ZELKQ_Stop(), 0);
    reader.join();
    ended = true;
    card.join();
  }
}

// A mutex of the parent may be locked for good in the child: nothing there may want it.
TEST_F(QueueTest, AChildMadeByForkIsTold) {
  Start();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ExpectAll(ZELKQ_STOPPED);
    EXPECT_EQ(ZELKQ_Start(), ZELKQ_FORKED);
    EXPECT_EQ(ZELKQ_Stop(), ZELKQ_STOPPED);
    _exit(HasFailure() ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ZELKQ_Wake(), 0) << "the parent's works on";
}

// Threads wait and cards bring sound when the program ends without a stop.
TEST_F(QueueTest, TheProgramMayEndInTheMiddle) {
  const auto endInTheMiddle = [this] {
    ZELKQ_Start();
    std::thread([] {
      ZelkQueueEvent event{};
      ZELKQ_WaitEvents(&event, 1, ZELKQ_FOREVER);
    }).detach();
    std::thread([this] {
      for (;;) {
        standIn.BringSound(0, 1);
      }
    }).detach();
    std::exit(7);
  };
  EXPECT_EXIT(endInTheMiddle(), testing::ExitedWithCode(7), "");
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "bindings/support/stand_in.h"
#include "zelk/Zelk.hpp"

namespace {

using zelkapi::Channel;
using zelkapi::Event;
using zelkapi::Library;
using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

class LibraryTest : public testing::Test {
 protected:
  CStandIn standIn;
};

TEST_F(LibraryTest, StartsAndShutsDown) {
  standIn.onInit = [this] {
    EXPECT_TRUE(standIn.HasEventCallback());
    EXPECT_TRUE(standIn.HasRecordCallback());
  };
  standIn.onShutdown = [this] {
    EXPECT_FALSE(standIn.HasEventCallback());
    EXPECT_FALSE(standIn.HasRecordCallback());
  };
  {
    Library library;
    EXPECT_EQ(library.channelCount(), CStandIn::kChannels);
    EXPECT_EQ(library.channels().size(), static_cast<size_t>(CStandIn::kChannels));
    EXPECT_FALSE(standIn.HasPlayCallback());
  }
  EXPECT_EQ(standIn.Calls(), (Calls{"Init", "Shutdown"}));
}

TEST_F(LibraryTest, IsOneAtATime) {
  const Library library;
  EXPECT_THROW(Library{}, zelkapi::AlreadyRunning);
  EXPECT_EQ(standIn.Calls(), Calls{"Init"}) << "the second one does not touch the first";
}

TEST_F(LibraryTest, MayFollowOnAnother) {
  for (int round = 0; round < 3; ++round) {
    Library library;
    standIn.BringEvent(round, ZELK_EVENT_DTMF, '1');
    EXPECT_EQ(library.events().next()->channel, round);
    EXPECT_FALSE(library.events().next(0ms)) << "nothing is left of the one before";
    standIn.BringEvent(9, ZELK_EVENT_DTMF, '1');
  }
}

TEST_F(LibraryTest, LeavesNothingBehindWhereItCannotStart) {
  standIn.initResult = false;
  EXPECT_THROW(Library{}, zelkapi::StartFailed);
  EXPECT_FALSE(standIn.HasEventCallback());
  EXPECT_FALSE(standIn.HasRecordCallback());
  standIn.initResult = true;
  EXPECT_NO_THROW(Library{});
}

TEST_F(LibraryTest, KeepsEventsThatComeBeforeTheStartIsOver) {
  standIn.onInit = [this] { standIn.BringEvent(2, ZELK_EVENT_CHANNEL_STATE, 1); };
  Library library;
  EXPECT_EQ(library.events().next(0ms)->channel, 2);
}

TEST_F(LibraryTest, IsNotCalledAfterTheShutdown) {
  Library library;
  const Channel channel = library.channel(3);
  channel.recordOn(10);
  library.shutdown();
  library.shutdown();
  EXPECT_THROW(channel.answer(), zelkapi::NotRunning);
  EXPECT_THROW((void)channel.dial("123"), zelkapi::NotRunning);
  EXPECT_THROW(channel.text(ZELK_INFO_CLI), zelkapi::NotRunning);
  EXPECT_THROW(channel.recordOn(10), zelkapi::NotRunning);
  EXPECT_THROW(channel.readSound(), zelkapi::NotRunning);
  EXPECT_THROW(library.channelCount(), zelkapi::NotRunning);
  EXPECT_THROW(library.sound().read(3), zelkapi::NotRecording);
  EXPECT_FALSE(library.events().next());
  EXPECT_EQ(standIn.Calls(), (Calls{"Init", "Shutdown"}));
}

TEST_F(LibraryTest, ShutdownWaitsForCallsThatAreInside) {
  std::atomic<bool> isInside{false};
  std::atomic<bool> mayLeave{false};
  standIn.onCall = [&] {
    isInside = true;
    while (!mayLeave) {
      std::this_thread::yield();
    }
    standIn.Note("leaves");
  };
  Library library;
  std::thread caller([&] { library.channel(0).hangup(); });
  while (!isInside) {
    std::this_thread::yield();
  }
  std::thread waiter([&] { EXPECT_FALSE(library.events().next()); });
  std::thread ender([&] { library.shutdown(); });
  // The shut-down has begun: its first step ends waits.
  waiter.join();
  mayLeave = true;
  caller.join();
  ender.join();
  EXPECT_EQ(standIn.Calls(), (Calls{"Init", "leaves", "Hangup 0", "Shutdown"}));
}

TEST_F(LibraryTest, ShutdownMeetsCallsOfManyThreads) {
  for (int round = 0; round < 20; ++round) {
    auto library = std::make_unique<Library>();
    std::atomic<bool> isDown{false};
    standIn.onShutdown = [&] { isDown = true; };
    standIn.onCall = [&] { EXPECT_FALSE(isDown); };
    std::atomic<int> calls{0};
    std::vector<std::thread> callers;
    for (int thread = 0; thread < 4; ++thread) {
      callers.emplace_back([&] {
        try {
          for (const Channel channel(1);; ++calls) {
            channel.answer();
          }
        } catch (const zelkapi::NotRunning&) {
        }
      });
    }
    while (calls < 50) {
      std::this_thread::yield();
    }
    library.reset();
    for (std::thread& caller : callers) {
      caller.join();
    }
    standIn.onShutdown = nullptr;
    standIn.onCall = nullptr;
  }
}

TEST_F(LibraryTest, RunsCodeOnItsThreadsWhereAskedByName) {
  std::vector<int> heard;
  Library library({[&](const Event& event) { heard.push_back(event.channel); },
                   [&](int channel, const uint8_t* alaw) { heard.push_back(channel * 1000 + alaw[0]); },
                   [&](int channel, uint8_t* alaw) { alaw[0] = static_cast<uint8_t>(channel); }});
  standIn.BringEvent(4, ZELK_EVENT_DTMF, '1');
  standIn.BringSound(5, 7);
  EXPECT_EQ(heard, (std::vector<int>{4, 5007}));
  EXPECT_EQ(standIn.TakeSound(6)[0], 6);
  EXPECT_EQ(library.events().next(0ms)->channel, 4) << "it is queued all the same";
  library.shutdown();
  EXPECT_FALSE(standIn.HasPlayCallback());
}

TEST_F(LibraryTest, ItsThreadsMayCallBackWhileItStarts) {
  standIn.onInit = [this] { standIn.BringEvent(4, ZELK_EVENT_INCOMING_CALL, 0); };
  Library library({[](const Event& event) { Channel(event.channel).answer(); }, {}, {}});
  EXPECT_EQ(standIn.Calls(), (Calls{"Init", "Answer 4"}));
}

TEST_F(LibraryTest, ReportsWhatTheApplicationThrows) {
  Library library({[](const Event& event) {
                     if (event.channel == 1) {
                       throw std::runtime_error("a fault of the application");
                     }
                   },
                   [](int, const uint8_t*) { throw 1; }, [](int, uint8_t*) { throw 2; }});
  library.channel(3).recordOn(5);
  standIn.BringEvent(1, ZELK_EVENT_DTMF, '1');
  standIn.BringSound(3, 1);
  standIn.BringSound(3, 2);
  standIn.TakeSound(4);
  standIn.BringEvent(2, ZELK_EVENT_DTMF, '2');
  std::vector<std::array<int, 3>> seen;
  while (const std::optional<Event> event = library.events().next(0ms)) {
    seen.push_back({event->channel, static_cast<int>(event->code), event->param});
  }
  EXPECT_EQ(seen, (std::vector<std::array<int, 3>>{{1, zelkapi::kHandlerFailed, zelkapi::kEventHandler},
                                                   {1, ZELK_EVENT_DTMF, '1'},
                                                   {3, zelkapi::kHandlerFailed, zelkapi::kRecordHandler},
                                                   {4, zelkapi::kHandlerFailed, zelkapi::kPlayHandler},
                                                   {2, ZELK_EVENT_DTMF, '2'}}));
  EXPECT_EQ(library.channel(3).readSound().alaw.size(), size_t{2} * ZELK_BLOCK_BYTES);
}

// A callback that the library has left behind comes back when nothing is there any more.
TEST_F(LibraryTest, ACallbackMayOutliveTheShutdown) {
  const auto owned = std::make_shared<int>(5);
  std::atomic<bool> isInside{false};
  std::atomic<bool> mayLeave{false};
  auto library = std::make_unique<Library>(zelkapi::Handlers{[&, owned](const Event&) {
                                                               isInside = true;
                                                               while (!mayLeave) {
                                                                 std::this_thread::yield();
                                                               }
                                                               EXPECT_EQ(*owned, 5);
                                                             },
                                                             {},
                                                             {}});
  std::thread card([&] { standIn.BringEvent(0, ZELK_EVENT_DTMF, '1'); });
  while (!isInside) {
    std::this_thread::yield();
  }
  library.reset();
  mayLeave = true;
  card.join();
  Library next;
  EXPECT_FALSE(next.events().next(0ms));
}

// In the child 0 is what is expected; its exit is without the parent's destructors.
TEST_F(LibraryTest, AChildMadeByForkLeavesItAlone) {
  auto library = std::make_unique<Library>();
  const Channel channel = library->channel(0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int faults = 0;
    try {
      channel.answer();
      ++faults;
    } catch (const zelkapi::NotRunning&) {
    }
    try {
      const Library second;
      ++faults;
    } catch (const zelkapi::StartFailed&) {
    }
    library.reset();
    _exit(faults + static_cast<int>(standIn.Calls().size()) - 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(channel.answer()) << "the parent's works on";
}

}  // namespace

// SPDX-License-Identifier: GPL-2.0-only
#include "zelk/cpp/Sound.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "support/eventually.h"

namespace {

using zelkapi::Blocks;
using zelkapi::Sound;
using namespace std::chrono_literals;

std::vector<uint8_t> Block(uint8_t fill) {
  return std::vector<uint8_t>(ZELK_BLOCK_BYTES, fill);
}

void Put(Sound& sound, int channel, std::initializer_list<uint8_t> fills) {
  for (const uint8_t fill : fills) {
    sound.put(static_cast<uint32_t>(channel), Block(fill).data());
  }
}

// The first byte of each block.
std::vector<int> Fills(const Blocks& blocks) {
  std::vector<int> fills;
  for (size_t at = 0; at < blocks.alaw.size(); at += ZELK_BLOCK_BYTES) {
    fills.push_back(blocks.alaw[at]);
  }
  return fills;
}

TEST(Sound, OfOtherChannelsIsNotKept) {
  Sound sound;
  Put(sound, 7, {1});
  EXPECT_THROW(sound.read(7), zelkapi::NotRecording);
  sound.keep(7, 10);
  Put(sound, 7, {2, 3});
  Put(sound, 8, {4});
  EXPECT_EQ(Fills(sound.read(7)), (std::vector<int>{2, 3}));
  EXPECT_THROW(sound.read(8), zelkapi::NotRecording);
  sound.drop(7);
  EXPECT_THROW(sound.read(7), zelkapi::NotRecording);
}

TEST(Sound, WhatFindsNoRoomIsCountedAndToldInItsPlace) {
  Sound sound;
  sound.keep(0, 3);
  Put(sound, 0, {1, 2, 3, 4, 5});
  EXPECT_EQ(sound.lost(0), 2U);
  EXPECT_EQ(Fills(sound.read(0, 2)), (std::vector<int>{1, 2}));
  Put(sound, 0, {6, 7, 8});
  const Blocks upToTheGap = sound.read(0);
  EXPECT_EQ(Fills(upToTheGap), std::vector<int>{3});
  EXPECT_EQ(upToTheGap.lostBefore, 0U);
  const Blocks behindIt = sound.read(0);
  EXPECT_EQ(Fills(behindIt), (std::vector<int>{6, 7}));
  EXPECT_EQ(behindIt.lostBefore, 2U);
  EXPECT_EQ(sound.lost(0), 3U);
  EXPECT_TRUE(sound.read(0).alaw.empty());
  Put(sound, 0, {9});
  EXPECT_EQ(sound.read(0).lostBefore, 1U);
}

TEST(Sound, IsKeptAnewAfterEveryKeep) {
  Sound sound;
  sound.keep(0, 1);
  Put(sound, 0, {1, 2});
  sound.keep(0, 2);
  EXPECT_EQ(sound.lost(0), 0U);
  Put(sound, 0, {3, 4});
  const Blocks blocks = sound.read(0);
  EXPECT_EQ(Fills(blocks), (std::vector<int>{3, 4}));
  EXPECT_EQ(blocks.lostBefore, 0U);
}

TEST(Sound, RefusesWhatCannotBe) {
  Sound sound;
  EXPECT_THROW(sound.keep(0, 0), zelkapi::BadArgument);
  EXPECT_THROW(sound.keep(0, Sound::kMostBlocks + 1), zelkapi::BadArgument);
  EXPECT_THROW(sound.keep(-1, 5), zelkapi::BadChannel);
  EXPECT_THROW(sound.keep(ZELK_MAX_CHANNELS, 5), zelkapi::BadChannel);
  Put(sound, 5000, {1});  // a channel that no table has
}

TEST(Sound, WaitFindsTheChannelsWithEnough) {
  Sound sound;
  sound.begin();
  for (const int channel : {3, 5, 9, 1023}) {
    sound.keep(channel, 10);
  }
  sound.keep(7, 1);
  Put(sound, 3, {1, 2});
  Put(sound, 5, {1});
  Put(sound, 7, {1});  // a full ring is enough
  Put(sound, 1023, {1, 2, 3});
  EXPECT_EQ(sound.wait(2, 0ms), (std::vector<int32_t>{3, 7, 1023}));
  EXPECT_EQ(sound.wait(2, 0ms).size(), 3U) << "nothing was taken";
  EXPECT_EQ(sound.wait(4, 0ms), std::vector<int32_t>{7});
}

TEST(Sound, WaitGoesOnBehindTheLast) {
  Sound sound;
  sound.begin();
  for (int channel = 0; channel < 5; ++channel) {
    sound.keep(channel, 1);
    Put(sound, channel, {1});
  }
  std::vector<int32_t> found;
  for (int round = 0; round < 3; ++round) {
    std::array<int32_t, 2> some{};
    ASSERT_EQ(sound.wait(1, some.data(), some.size(), 0ms), 2U);
    found.insert(found.end(), some.begin(), some.end());
  }
  EXPECT_EQ(found, (std::vector<int32_t>{0, 1, 2, 3, 4, 0}));
}

TEST(Sound, AWaitEndsWithSoundAWakeAndTheEnd) {
  Sound sound;
  sound.begin();
  sound.keep(4, 10);
  std::atomic<int> step{0};
  std::thread waiter([&] {
    EXPECT_EQ(sound.wait(2), std::vector<int32_t>{4});
    step = 1;
    EXPECT_TRUE(sound.wait(3).empty());
    step = 2;
    EXPECT_TRUE(sound.wait(3).empty());
  });
  Put(sound, 4, {1, 2});
  while (step != 1) {
    std::this_thread::yield();
  }
  support::LetThreadsWait();
  sound.wake();
  while (step != 2) {
    std::this_thread::yield();
  }
  support::LetThreadsWait();
  sound.end();
  waiter.join();
}

// Each block comes when the one before was read, so that each has to wake the reader anew.
TEST(Sound, EveryBlockWakesAReaderThatWaits) {
  constexpr size_t kRounds = 300;
  Sound sound;
  sound.begin();
  sound.keep(0, 10);
  std::atomic<size_t> read{0};
  std::thread reader([&] {
    while (read < kRounds) {
      ASSERT_EQ(sound.wait(1), std::vector<int32_t>{0});
      read += sound.read(0).alaw.size() / ZELK_BLOCK_BYTES;
    }
  });
  for (size_t round = 0; round < kRounds; ++round) {
    while (read != round) {
      std::this_thread::yield();
    }
    if (round % 50 == 0) {
      support::LetThreadsWait();
    }
    Put(sound, 0, {1});
  }
  reader.join();
}

TEST(Sound, AWaitHasItsTime) {
  Sound sound;
  sound.begin();
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(sound.wait(1, 30ms).empty());
  EXPECT_GE(std::chrono::steady_clock::now() - before, 30ms);
}

// A block that says its channel and its number.
std::vector<uint8_t> Numbered(size_t channel, size_t number) {
  std::vector<uint8_t> block = Block(static_cast<uint8_t>(channel));
  block[1] = static_cast<uint8_t>(number);
  block[2] = static_cast<uint8_t>(number >> 8);
  return block;
}

// Eight threads as those of eight cards; who reads sleeps until there is something, and misses no block.
TEST(Sound, OfEightCardsArrivesWhole) {
  constexpr size_t kCards = 8;
  constexpr size_t kBusyChannels = 240;
  constexpr size_t kEach = 200;
  Sound sound;
  sound.begin();
  std::vector<size_t> read(kBusyChannels);
  for (size_t channel = 0; channel < kBusyChannels; ++channel) {
    sound.keep(static_cast<int>(channel), kEach);
  }
  std::vector<std::thread> cards;
  for (size_t card = 0; card < kCards; ++card) {
    cards.emplace_back([&sound, card] {
      for (size_t number = 0; number < kEach; ++number) {
        for (size_t channel = card; channel < kBusyChannels; channel += kCards) {
          sound.put(static_cast<uint32_t>(channel), Numbered(channel, number).data());
        }
      }
    });
  }
  for (size_t total = 0; total < kBusyChannels * kEach;) {
    const std::vector<int32_t> ready = sound.wait(1, 60s);
    ASSERT_FALSE(ready.empty());
    for (const int32_t channel : ready) {
      const auto index = static_cast<size_t>(channel);
      const Blocks blocks = sound.read(channel);
      for (size_t at = 0; at < blocks.alaw.size(); at += ZELK_BLOCK_BYTES, ++total) {
        const auto begin = blocks.alaw.begin() + static_cast<long>(at);
        ASSERT_TRUE(std::equal(begin, begin + ZELK_BLOCK_BYTES, Numbered(index, read[index]++).begin()));
      }
    }
  }
  for (std::thread& card : cards) {
    card.join();
  }
  for (size_t channel = 0; channel < kBusyChannels; ++channel) {
    EXPECT_EQ(sound.lost(static_cast<int>(channel)), 0U);
  }
}

// Rings come and go under a thread that puts, one that reads and one that waits.
TEST(Sound, RingsComeAndGoWhileBlocksDo) {
  Sound sound;
  sound.begin();
  std::atomic<bool> ended{false};
  std::thread card([&] {
    for (uint8_t fill = 0; !ended; ++fill) {
      Put(sound, 0, {fill});
    }
  });
  std::thread reader([&] {
    while (!ended) {
      try {
        for (const int fill : Fills(sound.read(0, 3))) {
          ASSERT_LE(fill, 255);
        }
      } catch (const zelkapi::NotRecording&) {
      }
    }
  });
  std::thread waiter([&] {
    while (!ended) {
      sound.wait(1, 1ms);
    }
  });
  for (size_t round = 0; round < 2000; ++round) {
    sound.keep(0, 1 + round % 7);
    if (round % 3 == 0) {
      sound.drop(0);
    }
  }
  sound.keep(0, 2);
  while (sound.lost(0) == 0) {
    std::this_thread::yield();
  }
  ended = true;
  card.join();
  reader.join();
  waiter.join();
}

}  // namespace

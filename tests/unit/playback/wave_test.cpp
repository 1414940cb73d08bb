// SPDX-License-Identifier: GPL-2.0-only
#include "playback/wave.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <thread>
#include <utility>
#include <vector>

#include "support/allocation_probe.h"
#include "wave_fixture.h"

namespace zelk {
namespace {

using namespace wavetest;

class Wave : public CWaveTest {};

TEST_F(Wave, IsClosedWithAnUnarmedTapUntilOpened) {
  EXPECT_FALSE(wave.IsOpen());
  EXPECT_EQ(wave.RecordState(), -1);
  EXPECT_EQ(wave.OpenSettings(), (std::array<uint32_t, 2>{0, 0}));
  wave.Open();
  EXPECT_TRUE(wave.IsOpen());
  EXPECT_EQ(wave.RecordState(), 0);
  EXPECT_EQ(wave.OpenSettings(), (std::array<uint32_t, 2>{800, 3}));
}

TEST_F(Wave, OpeningAgainResetsNothing) {
  wave.Open();
  Queue(100);
  wave.SetFormat({7, 1, 8000, 8000, 1, 8, 0});
  wave.Open();
  EXPECT_EQ(wave.TimeLeftMs(), 12U);
  EXPECT_STREQ(wave.FormatName(), "MULAW");
}

TEST_F(Wave, OpeningAfterACloseResetsTheFormat) {
  wave.Open();
  wave.SetFormat({7, 1, 8000, 8000, 1, 8, 0});
  wave.Close();
  EXPECT_STREQ(wave.FormatName(), "MULAW");
  wave.Open();
  EXPECT_STREQ(wave.FormatName(), "ALAW");
}

TEST_F(Wave, CloseDropsTheQueueSilencesTheLineAndUnarmsTheTap) {
  wave.Open();
  Queue(1000);
  wave.Close();
  EXPECT_FALSE(wave.IsOpen());
  EXPECT_EQ(wave.RecordState(), -1);
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
  EXPECT_EQ(owner.silenced, 1);
  wave.Close();
  EXPECT_EQ(owner.silenced, 1);
  wave.Open();
  EXPECT_EQ(Fill(), Silence());
  EXPECT_FALSE(wave.QueryPlayMark());
}

TEST_F(Wave, DestroyedWhileOpenSilencesTheLine) {
  {
    CWave other(owner);
    other.Open();
  }
  EXPECT_EQ(owner.silenced, 1);
}

TEST_F(Wave, HasAQueueOf40Numbers) {
  for (uint32_t i = 0; i < 40; ++i) {
    EXPECT_TRUE(wave.Queue().Push(i));
  }
  EXPECT_FALSE(wave.Queue().Push(40));
}

TEST_F(Wave, NothingQueuedSendsSilenceAndNoMark) {
  wave.Open();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Fill(), Silence());
    EXPECT_FALSE(wave.QueryPlayMark());
  }
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
}

TEST_F(Wave, SilenceByteFollowsTheFormat) {
  wave.Open();
  const std::vector<std::pair<SWaveFormat, uint8_t>> formats = {
      {{1, 1, 8000, 8000, 1, 8, 0}, 0x80}, {{1, 1, 8000, 16000, 2, 16, 0}, 0x00}, {{6, 1, 8000, 8000, 1, 8, 0}, 0xD5},
      {{7, 1, 8000, 8000, 1, 8, 0}, 0x7F}, {{49, 1, 8000, 1625, 65, 0, 0}, 0x00},
  };
  for (const auto& [format, silence] : formats) {
    wave.SetFormat(format);
    EXPECT_EQ(Fill(), Silence(kBlock, silence)) << format.formatTag << "/" << format.bitsPerSample;
  }
}

TEST_F(Wave, FormatNamesAreThoseOfTheKnownFormatsOnly) {
  const std::vector<std::pair<SWaveFormat, const char*>> formats = {
      {{1, 1, 8000, 8000, 1, 8, 0}, "PCM8"},  {{1, 1, 8000, 16000, 2, 16, 0}, "PCM16"},
      {{1, 1, 8000, 24000, 3, 24, 0}, ""},    {{6, 1, 8000, 8000, 1, 8, 0}, "ALAW"},
      {{7, 1, 8000, 8000, 1, 8, 0}, "MULAW"}, {{49, 1, 8000, 1625, 65, 0, 0}, ""},
  };
  EXPECT_STREQ(wave.FormatName(), "ALAW");
  for (const auto& [format, name] : formats) {
    wave.SetFormat(format);
    EXPECT_STREQ(wave.FormatName(), name);
  }
}

TEST_F(Wave, HundredBytesArePaddedThenASilentBlockIsMarkedThenTheEventIsDue) {
  wave.Open();
  ASSERT_TRUE(Queue(100));
  EXPECT_EQ(wave.TimeLeftMs(), 12U);
  EXPECT_EQ(Fill(), Audio(100));
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
  EXPECT_EQ(Fill(), Silence());
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
  EXPECT_TRUE(wave.QueryPlayMark());
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
  EXPECT_EQ(Fill(), Silence());
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_TRUE(wave.PlayMarkSent());
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
  EXPECT_FALSE(wave.PlayMarkSent());
}

TEST_F(Wave, AudioThatEndsOnABlockIsFollowedByAnUnmarkedSilentBlockFirst) {
  wave.Open();
  Queue(160);
  EXPECT_EQ(Fill(), Audio(160));
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_EQ(Fill(), Silence());
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_EQ(Fill(), Silence());
  EXPECT_TRUE(wave.QueryPlayMark());
}

TEST_F(Wave, EmptyBlockLeadsToAnUnmarkedAndAMarkedSilentBlock) {
  wave.Open();
  support::ForgetLargestAllocation();
  ASSERT_TRUE(Queue(0));
  EXPECT_EQ(support::LargestAllocation(), CAudioStore::kPrefixBytes + sizeof(CWaveBlock) + 256U);
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
  EXPECT_EQ(Fill(), Silence());
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_EQ(Fill(), Silence());
  EXPECT_TRUE(wave.QueryPlayMark());
  EXPECT_TRUE(wave.PlayMarkSent());
}

TEST_F(Wave, SevenBytesCountAsOneMillisecond) {
  wave.Open();
  Queue(7);
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
}

TEST_F(Wave, TwoBuffersPlayWithoutAGap) {
  wave.Open();
  Queue(100, 0x21);
  Queue(200, 0x22);
  std::vector<uint8_t> expected(100, 0x21);
  expected.resize(160, 0x22);
  EXPECT_EQ(Fill(), expected);
  EXPECT_EQ(Fill(), Audio(140, 0x22));
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_EQ(Fill(), Silence());
  EXPECT_TRUE(wave.QueryPlayMark());
}

TEST_F(Wave, ManySmallBuffersFillOneBlock) {
  wave.Open();
  for (int i = 0; i < 5; ++i) {
    Queue(32, static_cast<uint8_t>(i));
  }
  std::vector<uint8_t> expected;
  for (int i = 0; i < 5; ++i) {
    expected.insert(expected.end(), 32, static_cast<uint8_t>(i));
  }
  EXPECT_EQ(Fill(), expected);
}

TEST_F(Wave, EnqueueAfterTheQueueDrainedTakesTheEndBack) {
  wave.Open();
  Queue(10);
  Fill();
  Fill();  // drained, not yet asked
  Queue(10, 0x33);
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_EQ(Fill(), Audio(10, 0x33));
}

// The mark that is in the ring already comes to the sender while the next play runs: it says nothing of that one.
TEST_F(Wave, EnqueueAfterTheMarkWasGivenMovesTheEventToItsOwnEnd) {
  wave.Open();
  Queue(10);
  Fill();
  Fill();
  ASSERT_TRUE(wave.QueryPlayMark());
  Queue(170, 0x33);
  EXPECT_FALSE(wave.PlayMarkSent());
  EXPECT_EQ(Fill(), Audio(160, 0x33));
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_FALSE(wave.PlayMarkSent());
  EXPECT_EQ(Fill(), Audio(10, 0x33));
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_FALSE(wave.PlayMarkSent());
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
  EXPECT_EQ(Fill(), Silence());
  EXPECT_TRUE(wave.QueryPlayMark());
  EXPECT_TRUE(wave.PlayMarkSent());
  EXPECT_FALSE(wave.PlayMarkSent());
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
}

TEST_F(Wave, FlushInAPlayDropsItSilencesTheLineAndGivesNoEvent) {
  wave.Open();
  Queue(1000);
  Fill();
  wave.Flush();
  EXPECT_EQ(owner.silenced, 1);
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
  EXPECT_EQ(Fill(), Silence());
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_FALSE(wave.PlayMarkSent());
}

// Each play is queued after a stop of its own, so its sound must come under exactly that stop's count, wherever a fill
// on another thread happens to be.
TEST_F(Wave, AFillGivesTheFlushCountUnderWhichItsSoundWasQueued) {
  wave.Open();
  std::atomic<bool> done{false};
  std::atomic<uint32_t> seen{0};
  std::atomic<uint32_t> wrong{0};
  std::thread pacer([&] {
    std::vector<uint8_t> block(kBlock);
    while (!done) {
      const uint32_t count = wave.FillBlock(block.data(), kBlock);
      if (block[0] != 0xD5) {
        ++seen;
        wrong += block[0] == count % 128 ? 0 : 1;
      }
    }
  });
  for (uint32_t round = 0; round < 10000 || seen < 100; ++round) {
    wave.Flush();
    Queue(kBlock, static_cast<uint8_t>(owner.silenced % 128));
  }
  done = true;
  pacer.join();
  EXPECT_EQ(wrong, 0U);
}

TEST_F(Wave, FlushAfterTheMarkWasGivenTakesTheEventBack) {
  wave.Open();
  Queue(10);
  Fill();
  Fill();
  ASSERT_TRUE(wave.QueryPlayMark());
  wave.Flush();
  EXPECT_FALSE(wave.PlayMarkSent());
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
}

TEST_F(Wave, QueuedBytesCountFromNothingAfterAnOpenAndAfterAFlush) {
  wave.Open();
  Queue(15);
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
  wave.Flush();
  Queue(15);
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
}

TEST_F(Wave, AFillOfAClosedQueueTellsTheFlushCountToo) {
  owner.silenced = 7;
  std::vector<uint8_t> block(kBlock);
  EXPECT_EQ(wave.FillBlock(block.data(), kBlock), 7U);
}

TEST_F(Wave, EachFillGoesOnWhereTheOneBeforeEnded) {
  wave.Open();
  auto block = wave.NewBlock(2 * kBlock);
  std::memset(block->Data(), 0x11, kBlock);
  std::memset(block->Data() + kBlock, 0x22, kBlock);
  wave.Enqueue(std::move(block));
  EXPECT_EQ(Fill(), Audio(kBlock, 0x11));
  EXPECT_EQ(Fill(), Audio(kBlock, 0x22));
}

TEST_F(Wave, FlushOfAClosedQueueDoesNothing) {
  Queue(1000);
  wave.Flush();
  EXPECT_EQ(owner.silenced, 0);
  EXPECT_EQ(wave.TimeLeftMs(), 125U);
}

TEST_F(Wave, QueueThatIsNotOpenKeepsItsAudioAndSendsSilence) {
  Queue(160);
  EXPECT_EQ(Fill(), Silence());
  EXPECT_EQ(wave.TimeLeftMs(), 20U);
}

TEST_F(Wave, AudioQueuedBeforeTheOpeningPlaysWithoutTimeLeftAndWithoutAnEvent) {
  Queue(100);
  wave.Open();
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
  EXPECT_EQ(Fill(), Audio(100));
  EXPECT_EQ(wave.TimeLeftMs(), 0U);  // the count stands at -100
  EXPECT_EQ(Fill(), Silence());
  EXPECT_FALSE(wave.QueryPlayMark());
  Queue(260);
  EXPECT_EQ(wave.TimeLeftMs(), 20U);
  wave.Flush();
  Queue(260);
  EXPECT_EQ(wave.TimeLeftMs(), 32U);
}

void* FlushThere(void* wave) {
  static_cast<CWave*>(wave)->Flush();
  return nullptr;
}

// On a thread with so small a stack that a call for each of the list's blocks would leave it.
TEST_F(Wave, LongListIsDroppedWithoutDeepRecursion) {
  wave.Open();
  for (int i = 0; i < 200000; ++i) {
    Queue(1);
  }
  EXPECT_EQ(wave.TimeLeftMs(), 25000U);
  pthread_attr_t smallStack;
  pthread_attr_init(&smallStack);
  ASSERT_EQ(pthread_attr_setstacksize(&smallStack, 256 * 1024), 0);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &smallStack, FlushThere, &wave), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&smallStack);
  EXPECT_EQ(wave.TimeLeftMs(), 0U);
}

}  // namespace
}  // namespace zelk

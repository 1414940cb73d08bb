// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "playback/wave.h"
#include "support/allocation_probe.h"
#include "wave_fixture.h"

// The record tap, the data callback and the play queue's threads at work together.
namespace zelk {
namespace {

using namespace wavetest;

class WaveTap : public CWaveTest {};
class WaveThreads : public CWaveTest {
 protected:
  void PlayStopAndReopen() {
    for (int i = 0; i < 2000; ++i) {
      Queue(static_cast<uint32_t>(i % 400));
      if (i % 16 == 0) {
        wave.Flush();
      }
      if (i % 512 == 0) {
        wave.Close();
        wave.Open();
        wave.StartRecord(10000);
      }
    }
  }
};

struct SSeen {
  std::vector<uint32_t> directions;
  std::vector<std::vector<uint8_t>> blocks;
};

void Remember(uint32_t direction, uint64_t cookie, uint8_t* data, uint32_t length) {
  auto* const seen = reinterpret_cast<SSeen*>(cookie);
  seen->directions.push_back(direction);
  seen->blocks.emplace_back(data, data + length);
}

TEST_F(WaveTap, DataCallbackSeesEveryBlockOfBothDirections) {
  SSeen seen;
  wave.SetDataCallback(Remember, reinterpret_cast<uint64_t>(&seen));
  std::vector<uint8_t> received(kBlock, 0x44);
  Fill();
  wave.RecordTap(received.data(), kBlock);
  wave.Open();
  Queue(100);
  Fill();
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(seen.directions, (std::vector<uint32_t>{1, 0, 1, 0}));
  EXPECT_EQ(seen.blocks, (std::vector<std::vector<uint8_t>>{Silence(), received, Audio(100), received}));
  wave.SetDataCallback(nullptr, 0);
  Fill();
  EXPECT_EQ(seen.blocks.size(), 4U);
}

TEST_F(WaveTap, TapRecordsOnlyWhileStarted) {
  std::vector<uint8_t> received(kBlock, 0x44);
  wave.StartRecord(CWave::kNoRecordLimit);
  EXPECT_EQ(wave.RecordState(), -1);  // not open: nothing is armed
  wave.RecordTap(received.data(), kBlock);
  wave.Open();
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(wave.RecordBuffer().Length(), 0U);
  wave.StartRecord(CWave::kNoRecordLimit);
  EXPECT_EQ(wave.RecordState(), 1);
  wave.RecordTap(received.data(), kBlock);
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(wave.RecordBuffer().Length(), 2 * kBlock);
  wave.Close();
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(wave.RecordBuffer().Length(), 2 * kBlock);
}

TEST_F(WaveTap, TapStopsAtTheLimitAndStillShowsTheWholeBlock) {
  SSeen seen;
  wave.SetDataCallback(Remember, reinterpret_cast<uint64_t>(&seen));
  std::vector<uint8_t> received(kBlock, 0x44);
  wave.Open();
  wave.StartRecord(200);
  for (int i = 0; i < 3; ++i) {
    wave.RecordTap(received.data(), kBlock);
  }
  EXPECT_EQ(wave.RecordBuffer().Length(), 200U);
  EXPECT_EQ(wave.RecordState(), 0);
  ASSERT_EQ(seen.blocks.size(), 3U);
  EXPECT_EQ(seen.blocks[1], received);
}

TEST_F(WaveTap, TapThatReachesItsLimitExactlyGoesOnUntilTheNextBlock) {
  std::vector<uint8_t> received(kBlock, 0x44);
  wave.Open();
  wave.StartRecord(320);
  wave.RecordTap(received.data(), kBlock);
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(wave.RecordState(), 1);
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(wave.RecordState(), 0);
  EXPECT_EQ(wave.RecordBuffer().Length(), 320U);
  wave.StartRecord(100);  // below what is recorded already
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(wave.RecordBuffer().Length(), 320U);
}

TEST_F(WaveTap, TapWithoutMemoryLosesOneBlockAndRecordsOn) {
  std::vector<uint8_t> received(kBlock, 0x44);
  wave.Open();
  wave.StartRecord(CWave::kNoRecordLimit);
  support::FailAllocation(1);
  wave.RecordTap(received.data(), kBlock);
  EXPECT_TRUE(support::AllocationFailed());
  EXPECT_EQ(wave.RecordState(), 1);
  wave.RecordTap(received.data(), kBlock);
  EXPECT_EQ(wave.RecordBuffer().Length(), kBlock);
}

// Keeps the first fill inside the queue's lock, where the data callback runs, until released.
struct SStall {
  std::atomic<bool> inside{false};
  std::atomic<bool> release{false};
};

void Stall(uint32_t direction, uint64_t cookie, uint8_t*, uint32_t) {
  auto* const stall = reinterpret_cast<SStall*>(cookie);
  if (direction == 1 && !stall->inside.exchange(true)) {
    stall->release.wait(false);
  }
}

TEST_F(WaveThreads, FillDuringAStopSkipsTheListInsteadOfWaiting) {
  SStall stall;
  wave.SetDataCallback(Stall, reinterpret_cast<uint64_t>(&stall));
  wave.Open();
  Queue(1000);
  std::thread holder([this] { Fill(); });  // holds the lock until released
  while (!stall.inside) {
    std::this_thread::yield();
  }
  std::thread stopper([this] { wave.Flush(); });  // waits for the lock with its stop flag up
  while (!wave.IsStopping()) {
    std::this_thread::yield();
  }
  EXPECT_EQ(Fill(), Silence());  // would hang here if it waited
  stall.release = true;
  stall.release.notify_all();
  holder.join();
  stopper.join();
  EXPECT_EQ(owner.silenced, 1);
  EXPECT_FALSE(wave.IsStopping());
}

TEST_F(WaveThreads, PlaysStopsAndQueriesFromAllItsThreadsAtOnce) {
  wave.Open();
  std::atomic<bool> done{false};
  std::atomic<uint64_t> marks{0};
  std::atomic<uint64_t> events{0};
  std::thread pacer([&] {
    std::array<uint8_t, kBlock> block;
    while (!done) {
      wave.FillBlock(block.data(), kBlock);
      marks += wave.QueryPlayMark() ? 1 : 0;
      wave.RecordTap(block.data(), kBlock);
    }
  });
  std::thread receiver([&] {
    while (!done) {
      events += wave.PlayMarkSent() ? 1 : 0;
    }
  });
  std::thread other([&] {
    for (int i = 0; i < 2000; ++i) {
      Queue(50);
      EXPECT_LE(wave.TimeLeftMs(), 4000U * 50 / 8);
    }
  });
  PlayStopAndReopen();
  other.join();
  while (wave.TimeLeftMs() > 0) {
    std::this_thread::yield();
  }
  done = true;
  pacer.join();
  receiver.join();
  EXPECT_LE(events, marks);
  EXPECT_FALSE(wave.QueryPlayMark());
  EXPECT_FALSE(wave.PlayMarkSent());
}

}  // namespace
}  // namespace zelk

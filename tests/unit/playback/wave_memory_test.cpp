// SPDX-License-Identifier: GPL-2.0-only
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>

#include "playback/wave.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "support/allocation_probe.h"
#include "wave_fixture.h"

// What the play queue asks of memory, and what it does without.
namespace zelk {
namespace {

using namespace wavetest;

class WaveMemory : public CWaveTest {};

TEST_F(WaveMemory, FillAllocatesNothing) {
  wave.Open();
  for (uint32_t length : {100U, 60U, 1U, 320U, 0U}) {
    Queue(length);
  }
  std::array<uint8_t, kBlock> block;
  const uint64_t before = support::AllocationCount();
  for (int i = 0; i < 6; ++i) {
    wave.FillBlock(block.data(), kBlock);
    wave.QueryPlayMark();
    wave.RecordTap(block.data(), kBlock);
  }
  EXPECT_EQ(support::AllocationCount(), before);
  EXPECT_EQ(wave.TimeLeftMs(), 1U);
}

TEST_F(WaveMemory, OneQueuedBufferTakesOneAllocation) {
  wave.Open();
  const uint64_t before = support::AllocationCount();
  Queue(100000);
  EXPECT_EQ(support::AllocationCount(), before + 1);
}

TEST_F(WaveMemory, TakesAsManyBytesAsItCanCount) {
  wave.Open();
  EXPECT_TRUE(wave.Enqueue(wave.NewBlock(0x7FFFFFFF)));  // its bytes are never touched
  EXPECT_EQ(wave.TimeLeftMs(), 0x7FFFFFFFU / 8);
}

TEST_F(WaveMemory, RefusesABlockThatWouldOverflowTheCountOfQueuedBytes) {
  wave.Open();
  Queue(100);
  auto block = wave.NewBlock(1);
  block->size = 0x7FFFFFFF - 99;  // never read: it is refused
  EXPECT_FALSE(wave.Enqueue(std::move(block)));
  EXPECT_FALSE(wave.Enqueue(nullptr));
  EXPECT_EQ(wave.TimeLeftMs(), 12U);
  EXPECT_EQ(Fill(), Audio(100));
}

// Runs the body with the process's log going to a file of its own and gives what it wrote.
template <class Body>
std::string Logged(int32_t level, Body body) {
  const std::string path = testing::TempDir() + "wave_test_" + std::to_string(std::random_device{}()) + ".log";
  // Lines wait for a log: those of the tests before this one go first.
  Log().Start(path);
  Log().Stop();
  std::filesystem::remove(path);
  Config().level = level;
  Log().Start(path);
  body();
  Log().Stop();
  Config().level = 2;
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  file.close();
  std::filesystem::remove(path);
  return text;
}

TEST_F(WaveMemory, NewBlockWithoutMemoryIsNullAndLoggedForTheChannel) {
  const std::string text = Logged(2, [&] {
    support::FailAllocation(1);
    EXPECT_FALSE(wave.NewBlock(300));
    EXPECT_TRUE(support::AllocationFailed());
  });
  EXPECT_TRUE(text.ends_with("  17 :NewBlock() -> malloc() returned error when allocating 300 bytes\r\n")) << text;
}

TEST_F(WaveMemory, NewBlockFailureIsNotLoggedAboveLevel2) {
  const std::string text = Logged(3, [&] {
    support::FailAllocation(1);
    EXPECT_FALSE(wave.NewBlock(300));
  });
  EXPECT_EQ(text, "");
}

TEST_F(WaveMemory, NewBlockNear4GigabytesIsRefusedWithoutAskingForIt) {
  for (uint32_t size : {0x80000000U, 0xFFFFFF00U, 0xFFFFFFFFU}) {
    support::ForgetLargestAllocation();
    EXPECT_FALSE(wave.NewBlock(size));
    EXPECT_LT(support::LargestAllocation(), 100000U);
  }
}

}  // namespace
}  // namespace zelk

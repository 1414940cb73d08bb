// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

#include "playback/wave.h"

// What the tests of the play queue share: a queue with an owner that counts, and blocks to compare with.
namespace zelk::wavetest {

constexpr uint32_t kBlock = 160;

inline const uint8_t* Octets(const char* text) {
  return reinterpret_cast<const uint8_t*>(text);
}

class COwner : public IWaveOwner {
 public:
  void SilenceTransmit() override { ++silenced; }
  int32_t LogChannel() const override { return 17; }
  std::atomic<uint32_t> silenced{0};
};

class CWaveTest : public testing::Test {
 protected:
  bool Queue(uint32_t length, uint8_t value = 0x11) {
    auto block = wave.NewBlock(length);
    std::memset(block->Data(), value, length);
    return wave.Enqueue(std::move(block));
  }

  std::vector<uint8_t> Fill() {
    std::vector<uint8_t> block(kBlock, 0xEE);
    wave.FillBlock(block.data(), kBlock);
    return block;
  }

  static std::vector<uint8_t> Silence(size_t count = kBlock, uint8_t value = 0xD5) {
    return std::vector<uint8_t>(count, value);
  }

  // `played` bytes of `value`, then silence to the end of the block.
  static std::vector<uint8_t> Audio(size_t played, uint8_t value = 0x11) {
    std::vector<uint8_t> block(played, value);
    block.resize(kBlock, 0xD5);
    return block;
  }

  COwner owner;
  CWave wave{owner, &owner.silenced};
};

}  // namespace zelk::wavetest

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zelk::sim {

// The order in which 64-bit numbers are mixed up (splitmix64): every bit of the input reaches every bit of the result.
constexpr uint64_t Mixed(uint64_t value) {
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
  return value ^ (value >> 31);
}

// The numbers that a world draws; the same ones for the same seed, everywhere.
// Thread: the one that runs in the world.
class CRandom {
 public:
  explicit CRandom(uint64_t seed) : state(Mixed(seed + kStep)) {}

  uint64_t Next() {
    state += kStep;
    return Mixed(state);
  }
  // 0..count - 1; count is not 0.
  uint64_t Below(uint64_t count) { return static_cast<uint64_t>((Wide{Next()} * count) >> 64); }
  // Both ends included.
  int64_t Between(int64_t least, int64_t most) {
    return least + static_cast<int64_t>(Below(static_cast<uint64_t>(most - least) + 1));
  }
  // True so many times in a million; draws nothing where there is nothing to decide.
  bool Chance(uint32_t perMillion) {
    return perMillion != 0 && (perMillion >= 1'000'000 || Below(1'000'000) < perMillion);
  }

 private:
  __extension__ using Wide = unsigned __int128;
  static constexpr uint64_t kStep = 0x9E3779B97F4A7C15U;

  uint64_t state;
};

// What happened in a world so far, as one number: two runs that differ anywhere differ in it.
class CTrace {
 public:
  void Add(uint64_t what) { hash = (std::rotl(hash, 23) ^ what) * 0x9E3779B97F4A7C15U; }
  void AddBytes(const void* data, size_t length) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    Add(length);
    // Eight words at a time in lanes of their own, turned and added: what the processor does with many at once.
    Words lanes[2]{};
    for (; length >= sizeof lanes; bytes += sizeof lanes, length -= sizeof lanes) {
      for (size_t i = 0; i < 2; ++i) {
        Words words;
        std::memcpy(&words, bytes + i * sizeof words, sizeof words);
        lanes[i] = ((lanes[i] << 13) | (lanes[i] >> 51)) + words;
      }
    }
    for (size_t i = 0; i < 2 * kWordsOfALane; ++i) {
      Add(lanes[i / kWordsOfALane][i % kWordsOfALane]);
    }
    while (length > 0) {
      const size_t taken = length < kWordBytes ? length : kWordBytes;
      Add(WordAt(bytes, taken));
      bytes += taken;
      length -= taken;
    }
  }
  uint64_t Hash() const { return Mixed(hash); }

 private:
  static constexpr size_t kWordBytes = sizeof(uint64_t);
  static constexpr size_t kWordsOfALane = 4;
  typedef uint64_t Words __attribute__((vector_size(kWordsOfALane * sizeof(uint64_t))));

  static uint64_t WordAt(const uint8_t* bytes, size_t length) {
    uint64_t word = 0;
    std::memcpy(&word, bytes, length);
    return word;
  }

  uint64_t hash = 0;
};

}  // namespace zelk::sim

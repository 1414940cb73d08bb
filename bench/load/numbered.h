// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// Sound that says where it belongs: every block of 160 bytes names its direction, its channel and its number, and all
// other bytes follow from these. What is lost, repeated, altered or crossed shows in the first block that is hit.
namespace load {

constexpr size_t kBlockBytes = 160;

enum class EDirection : uint8_t { kToLibrary = 1, kFromLibrary = 2 };

struct SBlockName {
  EDirection direction = EDirection::kToLibrary;
  uint16_t channel = 0;
  uint32_t number = 0;
};

inline void WriteBlock(const SBlockName& name, uint8_t* block) {
  constexpr uint8_t kMark = 0x2A;  // no byte of silence
  uint64_t word = uint64_t{kMark} | uint64_t{static_cast<uint8_t>(name.direction)} << 8U |
                  uint64_t{name.channel} << 16U | uint64_t{name.number} << 32U;
  std::memcpy(block, &word, sizeof word);
  for (size_t at = sizeof word; at < kBlockBytes; at += sizeof word) {
    word = (word ^ (word >> 29U)) * 0xBF58476D1CE4E5B9U + at;
    std::memcpy(block + at, &word, sizeof word);
  }
}

// Only of a block that WriteBlock made.
inline SBlockName NameOf(const uint8_t* block) {
  uint64_t word = 0;
  std::memcpy(&word, block, sizeof word);
  return {static_cast<EDirection>(word >> 8U & 0xFFU), static_cast<uint16_t>(word >> 16U),
          static_cast<uint32_t>(word >> 32U)};
}

// What became of the blocks of a channel, or of several.
struct SBlockCounts {
  uint64_t good = 0;
  uint64_t least = UINT64_MAX;  // good ones of the channel that has the fewest
  uint64_t silent = 0;          // before the first
  uint64_t lost = 0;
  uint64_t repeated = 0;
  uint64_t crossed = 0;  // another channel's
  uint64_t altered = 0;

  void Add(const SBlockCounts& other) {
    least = std::min(least, other.least);
    good += other.good;
    silent += other.silent;
    lost += other.lost;
    repeated += other.repeated;
    crossed += other.crossed;
    altered += other.altered;
  }
};

// One channel's blocks in one direction, from the first that must arrive. Thread: one.
class CBlockFollower {
 public:
  // The library does not take the first block of a connection.
  CBlockFollower(EDirection blockDirection, uint16_t channelNumber)
      : direction(blockDirection), channel(channelNumber), next(direction == EDirection::kToLibrary ? 1 : 0) {
    counts.least = 0;
  }

  void Take(const uint8_t* block) {
    const SBlockName name = NameOf(block);
    uint8_t whole[kBlockBytes];
    WriteBlock(name, whole);
    if (std::memcmp(block, whole, kBlockBytes) != 0) {
      TakeUnnamed(block);
    } else if (name.channel != channel || name.direction != direction) {
      ++counts.crossed;
    } else {
      TakeNumber(name.number);
    }
  }

  SBlockCounts counts;

 private:
  static bool IsSilent(const uint8_t* block) {
    return std::all_of(block, block + kBlockBytes, [](uint8_t byte) { return byte == 0xD5 || byte == 0x54; });
  }

  void TakeUnnamed(const uint8_t* block) {
    if (counts.good == 0 && IsSilent(block)) {
      ++counts.silent;
    } else {
      ++counts.altered;
    }
  }

  void TakeNumber(uint32_t number) {
    if (number < next) {
      ++counts.repeated;
      return;
    }
    counts.lost += number - next;
    counts.least = ++counts.good;
    next = number + 1;
  }

  const EDirection direction;
  const uint16_t channel;
  uint32_t next;
};

// The counts as JSON.
inline std::string Text(const SBlockCounts& counts) {
  return "{\"good\": " + std::to_string(counts.good) + ", \"least\": " + std::to_string(counts.least) +
         ", \"lost\": " + std::to_string(counts.lost) + ", \"repeated\": " + std::to_string(counts.repeated) +
         ", \"crossed\": " + std::to_string(counts.crossed) + ", \"altered\": " + std::to_string(counts.altered) + "}";
}

}  // namespace load

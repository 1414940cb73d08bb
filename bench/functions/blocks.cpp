// SPDX-License-Identifier: GPL-2.0-only

// The samples of a packet into the channels' blocks and back, for 8 trunks and 5 frames a packet: our way (a copy into
// rows, turned once in 20 ms), the literal one (a byte at a time), and a plain copy of as many bytes. An item is a
// packet.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "dsp/transpose.h"
#include "formats/g711.h"

namespace {

constexpr size_t kPositions = 256;
constexpr size_t kFrames = 5;
constexpr size_t kPacketBytes = kPositions * kFrames;
constexpr size_t kPacketsPerBlock = zelk::kBlockBytes / kFrames;
constexpr size_t kBlocksInTurn = 4;  // what circulates in a ring is not what was in use just now

// Every position's blocks, packets and the rows between.
struct SCardSound {
  SCardSound() : rows(kPositions * zelk::kBlockBytes), storage(kBlocksInTurn * rows.size()), packet(kPacketBytes) {
    for (size_t i = 0; i < storage.size(); ++i)
      storage[i] = static_cast<uint8_t>(i * 7);
    for (size_t i = 0; i < packet.size(); ++i)
      packet[i] = static_cast<uint8_t>(i * 13);
  }

  void Turn() {
    turn = (turn + 1) % kBlocksInTurn;
    for (size_t i = 0; i < kPositions; ++i)
      blocks[i] = &storage[(i * kBlocksInTurn + turn) * zelk::kBlockBytes];
  }

  std::vector<uint8_t> rows;
  std::vector<uint8_t> storage;
  std::vector<uint8_t> packet;
  std::array<uint8_t*, kPositions> blocks{};
  size_t turn = 0;
};

template <class Action>
void ForEachPacket(benchmark::State& state, Action action) {
  SCardSound sound;
  for ([[maybe_unused]] auto _ : state) {
    sound.Turn();
    for (size_t at = 0; at < zelk::kBlockBytes; at += kFrames) {
      action(sound, at);
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kPacketsPerBlock));
}

void IntoBlocks(benchmark::State& state) {
  ForEachPacket(state, [](SCardSound& sound, size_t at) {
    std::memcpy(&sound.rows[at * kPositions], sound.packet.data(), kPacketBytes);
    if (at + kFrames == zelk::kBlockBytes)
      zelk::RowsToBlocks(sound.rows.data(), kPositions, sound.blocks.data());
  });
}

void IntoBlocksLiteral(benchmark::State& state) {
  ForEachPacket(state, [](SCardSound& sound, size_t at) {
    for (size_t frame = 0; frame < kFrames; ++frame) {
      for (size_t position = 0; position < kPositions; ++position)
        sound.blocks[position][at + frame] = sound.packet[frame * kPositions + position];
    }
  });
}

void FromBlocks(benchmark::State& state) {
  ForEachPacket(state, [](SCardSound& sound, size_t at) {
    if (at == 0)
      zelk::BlocksToRows(sound.blocks.data(), kPositions, sound.rows.data());
    std::memcpy(sound.packet.data(), &sound.rows[at * kPositions], kPacketBytes);
  });
}

void FromBlocksLiteral(benchmark::State& state) {
  ForEachPacket(state, [](SCardSound& sound, size_t at) {
    for (size_t frame = 0; frame < kFrames; ++frame) {
      for (size_t position = 0; position < kPositions; ++position)
        sound.packet[frame * kPositions + position] = sound.blocks[position][at + frame];
    }
  });
}

void Copy(benchmark::State& state) {
  ForEachPacket(state, [](SCardSound& sound, size_t at) {
    std::memcpy(&sound.rows[at * kPositions], sound.packet.data(), kPacketBytes);
  });
}

BENCHMARK(IntoBlocks)->Name("blocks/packet_into_blocks/library");
BENCHMARK(IntoBlocksLiteral)->Name("blocks/packet_into_blocks/literal");
BENCHMARK(Copy)->Name("blocks/packet_into_blocks/memcpy");
BENCHMARK(FromBlocks)->Name("blocks/blocks_into_packet/library");
BENCHMARK(FromBlocksLiteral)->Name("blocks/blocks_into_packet/literal");
BENCHMARK(Copy)->Name("blocks/blocks_into_packet/memcpy");

}  // namespace

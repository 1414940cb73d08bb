// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "call/device.h"
#include "runtime/prefetch.h"

namespace zelk {

constexpr uint32_t kMaxChannels = 1024;

// The flat table of all voice channels; slot n holds channel n. Owns the channels.
// Thread: Add, CloseAll and Clear the initialising thread; everything else any. Slots and count are atomics, so a card
// thread that is late finds an empty slot and nothing worse; a channel itself is destroyed only once the cards are
// closed and nobody visits.
class CChannelTable {
 public:
  // A thread that uses channels: what it has found stays until it leaves. A shut-down gives up on callbacks that hang,
  // and one of them may be inside an export.
  class CVisit {
   public:
    explicit CVisit(CChannelTable& visited) : table(visited) { ++table.visitors; }
    ~CVisit() { --table.visitors; }
    CVisit(const CVisit&) = delete;
    CVisit& operator=(const CVisit&) = delete;

    CDevice* Find(int32_t channel) const { return table.Find(channel); }

   private:
    CChannelTable& table;
  };

  CChannelTable() = default;
  ~CChannelTable();
  CChannelTable(const CChannelTable&) = delete;
  CChannelTable& operator=(const CChannelTable&) = delete;

  // The next free number takes the channel, which must carry it. False (and the channel is gone) when the table is
  // full.
  bool Add(std::unique_ptr<CDevice> device);
  int32_t Count() const { return count.load(std::memory_order_acquire); }
  // The check that opens every export: null for a number that no channel has. For as long as a visit lasts.
  CDevice* Find(int32_t channel) const;
  // The slot itself, null when it is empty or outside the table.
  CDevice* At(size_t index) const { return index < kMaxChannels ? slots[index].load() : nullptr; }
  // The same for a slot that a card's channel stands in, else null. Looks at the table alone, not at the channel.
  CDevice* At(size_t index, uint32_t cardIndex) const {
    CDevice* device = At(index);
    return device != nullptr && cards[index].load(std::memory_order_relaxed) == cardIndex ? device : nullptr;
  }
  // The play queue of the channel in a slot that At gives one for. Nothing else of the channel is touched.
  CWave& Wave(size_t index) const { return *waves[index].load(std::memory_order_relaxed); }
  // Whether the play queue of the slot's channel has anything to do but A-law silence (CWave::ShowBusyIn).
  bool IsBusy(size_t index) const { return busy[index].load(std::memory_order_acquire); }
  void CloseAll();
  // Empties the table. The channels are retired, and destroyed here or, if somebody visits, by a later call.
  void Clear();

 private:
  void DestroyRetired();

  std::array<std::atomic<CDevice*>, kMaxChannels> slots = {};
  std::array<std::atomic<uint32_t>, kMaxChannels> cards = {};  // whose channel stands in each slot
  std::array<std::atomic<CWave*>, kMaxChannels> waves = {};    // of the channel last in the slot
  std::array<std::atomic<bool>, kMaxChannels> busy = {};
  std::atomic<int32_t> count{0};
  std::unique_ptr<CDevice> retired;  // a list
  // Counted before a slot is read, and read after the slots are emptied: either side sees the other.
  alignas(kCacheLineBytes) std::atomic<uint32_t> visitors{0};
};

}  // namespace zelk

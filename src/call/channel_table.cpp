// SPDX-License-Identifier: GPL-2.0-only
#include "call/channel_table.h"

#include <utility>

namespace zelk {

CChannelTable::~CChannelTable() {
  Clear();
  // Whoever is inside at the very end holds on to memory; the system takes it back.
  (void)retired.release();
}

bool CChannelTable::Add(std::unique_ptr<CDevice> device) {
  const int32_t channel = Count();
  if (static_cast<uint32_t>(channel) >= kMaxChannels) {
    return false;
  }
  cards[static_cast<size_t>(channel)].store(static_cast<uint32_t>(device->CardIndex()), std::memory_order_relaxed);
  device->Wave().ShowBusyIn(busy[static_cast<size_t>(channel)]);
  waves[static_cast<size_t>(channel)].store(&device->Wave(), std::memory_order_relaxed);
  slots[static_cast<size_t>(channel)].store(device.release(), std::memory_order_release);
  count.store(channel + 1, std::memory_order_release);
  return true;
}

CDevice* CChannelTable::Find(int32_t channel) const {
  // As unsigned, so that negative numbers fail with the large ones.
  const auto number = static_cast<uint32_t>(channel);
  if (number >= kMaxChannels || number >= static_cast<uint32_t>(Count())) {
    return nullptr;
  }
  return At(number);
}

void CChannelTable::CloseAll() {
  for (int32_t channel = 0; channel < Count(); ++channel) {
    if (CDevice* device = Find(channel)) {
      device->Close();
    }
  }
}

void CChannelTable::Clear() {
  count.store(0, std::memory_order_release);
  for (std::atomic<CDevice*>& slot : slots) {
    if (CDevice* const device = slot.exchange(nullptr)) {
      device->Retire(std::move(retired));
      retired.reset(device);
    }
  }
  if (visitors == 0) {
    DestroyRetired();
  }
}

// One by one: a list that destroys itself goes as deep as it is long.
void CChannelTable::DestroyRetired() {
  while (retired) {
    retired = retired->TakeNext();
  }
}

}  // namespace zelk

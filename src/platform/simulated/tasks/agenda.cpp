// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/agenda.h"

#include <algorithm>
#include <utility>

namespace zelk::sim {

uint64_t CAgenda::Add(int64_t dueUs, Act act) {
  if (freeSlots.empty()) {
    freeSlots.push_back(static_cast<uint32_t>(slots.size()));
    slots.emplace_back();
  }
  const uint32_t index = freeSlots.back();
  freeSlots.pop_back();
  SSlot& slot = slots[index];
  slot.act = std::move(act);
  slot.isTaken = true;
  const uint64_t number = uint64_t{++slot.use} << 32 | index;
  heap.push_back({dueUs, entered++, number});
  std::push_heap(heap.begin(), heap.end(), SIsLater{});
  ++live;
  return number;
}

CAgenda::SSlot* CAgenda::Find(uint64_t number) {
  const auto index = static_cast<uint32_t>(number);
  if (index >= slots.size() || !slots[index].isTaken || slots[index].use != static_cast<uint32_t>(number >> 32)) {
    return nullptr;
  }
  return &slots[index];
}

CAgenda::Act CAgenda::Take(SSlot& slot, uint64_t number) {
  slot.isTaken = false;
  freeSlots.push_back(static_cast<uint32_t>(number));
  --live;
  return std::exchange(slot.act, nullptr);
}

// Its entry stays in the heap until it comes up, or until most entries are such.
bool CAgenda::Cancel(uint64_t number) {
  SSlot* const slot = Find(number);
  if (slot == nullptr) {
    return false;
  }
  Take(*slot, number);
  constexpr size_t kFewEntries = 64;
  if (heap.size() > kFewEntries && live < heap.size() / 4) {
    std::erase_if(heap, [this](const SEntry& entry) { return Find(entry.number) == nullptr; });
    std::make_heap(heap.begin(), heap.end(), SIsLater{});
  }
  return true;
}

void CAgenda::PopHeap() {
  std::pop_heap(heap.begin(), heap.end(), SIsLater{});
  heap.pop_back();
}

void CAgenda::DropStale() {
  while (Find(heap.front().number) == nullptr) {
    PopHeap();
  }
}

int64_t CAgenda::NextDueUs() {
  DropStale();
  return heap.front().dueUs;
}

CAgenda::Act CAgenda::TakeNext() {
  DropStale();
  const uint64_t number = heap.front().number;
  PopHeap();
  return Take(*Find(number), number);
}

}  // namespace zelk::sim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace zelk::sim {

// What is to happen at which time of a world. What is due at the same time comes in the order in which it was entered.
// Thread: the one that runs in the world.
class CAgenda {
 public:
  using Act = std::function<void()>;

  // A number by which it can be taken off again; never 0.
  uint64_t Add(int64_t dueUs, Act act);
  // False when it has been taken already.
  bool Cancel(uint64_t number);

  bool IsEmpty() const { return live == 0; }
  // Of the next; there is one.
  int64_t NextDueUs();
  bool HasDue(int64_t nowUs) { return live != 0 && heap.front().dueUs <= nowUs && NextDueUs() <= nowUs; }
  Act TakeNext();

 private:
  struct SEntry {
    int64_t dueUs;
    uint64_t order;
    uint64_t number;
  };
  // Reused: the number of an entry is its slot and how often that was used.
  struct SSlot {
    Act act;
    uint32_t use = 0;
    bool isTaken = false;
  };

  struct SIsLater {
    bool operator()(const SEntry& one, const SEntry& other) const {
      return one.dueUs != other.dueUs ? one.dueUs > other.dueUs : one.order > other.order;
    }
  };
  SSlot* Find(uint64_t number);
  Act Take(SSlot& slot, uint64_t number);
  void DropStale();
  void PopHeap();

  std::vector<SEntry> heap;
  std::vector<SSlot> slots;
  std::vector<uint32_t> freeSlots;
  uint64_t entered = 0;
  size_t live = 0;
};

}  // namespace zelk::sim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace zelk::sim {

// Which locks each task holds, and in which orders they have been taken: two tasks that take two locks in opposite
// orders may wait for each other for ever, whether or not they do in this run. A lock that is only tried for makes
// nobody wait; what is taken while it is held does count.
// Thread: the one that runs in the world. Addresses tell locks apart, never order them.
class CLockWatch {
 public:
  // Before a task waits for a lock that it does not hold. False when locks were taken in an order before that does not
  // go together with this one.
  bool BeforeTaking(uint32_t task, const void* lock);
  void Taken(uint32_t task, const void* lock);
  void Released(uint32_t task, const void* lock);
  // Its address may be another lock's.
  void Gone(const void* lock);

  // A thing that some lock is to guard is used: false when no lock is held now that was held each time before.
  bool IsGuarded(uint32_t task, const void* thing);
  // The thing is new, or another one at its address.
  void Forget(const void* thing) { guards.erase(thing); }

 private:
  using Locks = std::vector<const void*>;
  struct SOrder {
    std::unordered_set<const void*> after;  // taken while this one was held
    std::unordered_set<const void*> before;
  };

  const Locks& HeldBy(uint32_t task) const;
  bool LeadsTo(const void* from, const void* to, std::unordered_set<const void*>& seen) const;

  std::vector<Locks> held;  // by the task's number
  std::unordered_map<const void*, SOrder> orders;
  std::unordered_map<const void*, Locks> guards;  // of a thing: what was held each time
};

}  // namespace zelk::sim

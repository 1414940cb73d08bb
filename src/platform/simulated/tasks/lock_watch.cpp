// SPDX-License-Identifier: GPL-2.0-only
#include "platform/simulated/tasks/lock_watch.h"

#include <algorithm>

namespace zelk::sim {

const CLockWatch::Locks& CLockWatch::HeldBy(uint32_t task) const {
  static const Locks kNone;
  return task < held.size() ? held[task] : kNone;
}

bool CLockWatch::BeforeTaking(uint32_t task, const void* lock) {
  bool fits = true;
  for (const void* const first : HeldBy(task)) {
    SOrder& order = orders[first];
    if (!order.after.insert(lock).second) {
      continue;
    }
    orders[lock].before.insert(first);
    std::unordered_set<const void*> seen;
    fits = !LeadsTo(lock, first, seen) && fits;
  }
  return fits;
}

bool CLockWatch::LeadsTo(const void* from, const void* to, std::unordered_set<const void*>& seen) const {
  if (from == to) {
    return true;
  }
  const auto order = orders.find(from);
  return seen.insert(from).second && order != orders.end() &&
         std::any_of(order->second.after.begin(), order->second.after.end(),
                     [&](const void* next) { return LeadsTo(next, to, seen); });
}

void CLockWatch::Taken(uint32_t task, const void* lock) {
  if (held.size() <= task) {
    held.resize(size_t{task} + 1);
  }
  held[task].push_back(lock);
}

void CLockWatch::Released(uint32_t task, const void* lock) {
  if (task < held.size()) {
    std::erase(held[task], lock);
  }
}

void CLockWatch::Gone(const void* lock) {
  const auto gone = orders.find(lock);
  if (gone == orders.end()) {
    return;
  }
  for (const void* const other : gone->second.before) {
    orders[other].after.erase(lock);
  }
  for (const void* const other : gone->second.after) {
    orders[other].before.erase(lock);
  }
  orders.erase(lock);
}

bool CLockWatch::IsGuarded(uint32_t task, const void* thing) {
  const Locks& now = HeldBy(task);
  const auto [known, isNew] = guards.try_emplace(thing, now);
  if (!isNew) {
    std::erase_if(known->second,
                  [&now](const void* lock) { return std::find(now.begin(), now.end(), lock) == now.end(); });
  }
  return !known->second.empty();
}

}  // namespace zelk::sim

// SPDX-License-Identifier: GPL-2.0-only
#include "stream/echo_bank.h"

#include <new>

namespace zelk {

CEchoBank::~CEchoBank() {
  for (STrunk& trunk : trunkSets) {
    FreeRetired(trunk);
    delete trunk.offered.load();
    delete trunk.active;
  }
}

void CEchoBank::Configure(uint32_t trunk, int32_t tailMs) {
  if (trunk >= trunkSets.size())
    return;
  std::unique_ptr<SSet> set(new (std::nothrow) SSet);
  if (set == nullptr)
    return;
  const size_t bytes = CEchoCanceller::MemoryBytes(tailMs);
  set->memory = CEchoCanceller::NewMemory(kTimeslotsPerTrunk, tailMs);
  for (size_t s = 0; set->memory != nullptr && s < kTimeslotsPerTrunk; ++s)
    set->cancellers[s].reset(new (std::nothrow) CEchoCanceller(tailMs, &set->memory[s * bytes]));
  STrunk& target = trunkSets[trunk];
  delete target.offered.exchange(set.release(), std::memory_order_acq_rel);  // one that was never used
  FreeRetired(target);
}

void CEchoBank::Process(uint8_t* samples, size_t frames, size_t trunks, const SSentPacket& sent,
                        const SAudioControls& controls) {
  const size_t frameBytes = trunks * kTimeslotsPerTrunk;
  for (size_t t = 0; t < trunks; ++t) {
    STrunk& trunk = trunkSets[t];
    if (trunk.offered.load(std::memory_order_relaxed) != nullptr)
      Adopt(trunk);
    if (!controls.echoSwitch[t].load(std::memory_order_relaxed) || trunk.active == nullptr)
      continue;
    for (size_t s = 0; s < kTimeslotsPerTrunk; ++s) {
      const size_t column = t * kTimeslotsPerTrunk + s;
      CEchoCanceller* canceller = trunk.active->cancellers[s].get();
      // Bytes of this column in the reference: one in each of its whole frames, and one more if it ends after it.
      const size_t sentCount = sent.bytes / frameBytes + (sent.bytes % frameBytes > column ? 1 : 0);
      if (canceller != nullptr)
        canceller->Process(samples + column, sent.samples + column, frames, sentCount, frameBytes);
    }
  }
}

void CEchoBank::Adopt(STrunk& trunk) {
  SSet* offered = trunk.offered.exchange(nullptr, std::memory_order_acq_rel);
  if (offered == nullptr)
    return;
  SSet* old = trunk.active;
  trunk.active = offered;
  if (old == nullptr)
    return;
  old->nextRetired = trunk.retired.load(std::memory_order_relaxed);
  while (!trunk.retired.compare_exchange_weak(old->nextRetired, old, std::memory_order_release)) {
  }
}

void CEchoBank::FreeRetired(STrunk& trunk) {
  SSet* set = trunk.retired.exchange(nullptr, std::memory_order_acquire);
  while (set != nullptr) {
    SSet* next = set->nextRetired;
    delete set;
    set = next;
  }
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#include "card/call_registry.h"

#include <atomic>

namespace zelk {

namespace {

constexpr size_t kUsualCalls = 64;  // more than a trunk has timeslots

}  // namespace

void CCallRegistry::Reserve() {
  if (entries.size() == entries.capacity()) {
    entries.reserve(std::max(kUsualCalls, entries.size() * 2));
  }
}

CCallHandle CCallRegistry::HandleOf(const q931_call* record) const {
  const auto entry =
      std::find_if(entries.begin(), entries.end(), [record](const SEntry& known) { return known.record == record; });
  return entry == entries.end() ? CCallHandle() : entry->call;
}

q931_call* CCallRegistry::RecordOf(CCallHandle call) const {
  const auto entry =
      std::find_if(entries.begin(), entries.end(), [call](const SEntry& known) { return known.call == call; });
  return entry == entries.end() ? nullptr : entry->record;
}

// Of all controllers: the handle of a call that went with its controller never fits a call of the next one.
CCallHandle CCallRegistry::NewHandle() {
  static std::atomic<uint64_t> lastNumber{0};
  return CCallHandle(lastNumber.fetch_add(1, std::memory_order_relaxed) + 1);
}

}  // namespace zelk

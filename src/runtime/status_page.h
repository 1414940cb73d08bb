// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/ipv4_address.h"
#include "platform/memory/shared_page.h"
#include "runtime/status_layout.h"

namespace zelk {

// What the library knows of itself, in a file that other programs read: "Status" in section "Debug". One instance a
// process (StatusPage()).
// Thread: Open, Close and Leave the initialising or unloading one; everything else any, without a lock, an allocation
// or a system call but the clock's. Without the page everything else does nothing and asks no clock. Nothing fails:
// where the file cannot be made, there is no page.
class CStatusPage {
 public:
  constexpr CStatusPage() = default;

  // A page of zeros with its header filled, the counters of an earlier start gone.
  void Open(const std::string& path);
  // It stays readable, as that of a library that does not run.
  void Close();
  // For the unloading of the library.
  void Leave();

  // Null while there is none.
  SStatusLayout* Get() const { return layout.load(std::memory_order_acquire); }
  // Null also for numbers that have no record.
  SStatusCard* Card(uint32_t card) const;
  SStatusTrunk* Trunk(uint32_t card, uint32_t trunk) const;
  SStatusChannel* Channel(uint32_t card, uint32_t trunk, uint32_t timeslot) const;
  SStatusChannel* Position(uint32_t card, size_t position) const;

  void CardOpens(uint32_t card, uint32_t serialNumber, SIpv4Address address, uint32_t trunkCount) const;
  // Nothing of a card that has not been open. Its trunks have no line and no D-channel any more.
  void CardCloses(uint32_t card, EStatusCardState state) const;
  void LineIs(uint32_t card, uint32_t trunk, uint32_t lineStatus) const;
  void DchannelIs(uint32_t card, uint32_t trunk, bool isUp) const;

  void Beat() const;
  // A turn of a card's thread that came so many milliseconds too late.
  void NoteTurn(uint32_t card, EStatusThread thread, uint32_t lateMs) const;
  void NoteCallback(EStatusCallback kind, uint32_t channel, uint64_t microseconds) const;

 private:
  CSharedPage page;
  std::atomic<SStatusLayout*> layout{nullptr};
  uint32_t starts = 0;
};

extern CStatusPage statusPage;

inline CStatusPage& StatusPage() {
  return statusPage;
}

// UTC in milliseconds since 1970.
uint64_t StatusNow();

// One more, or another value.
inline void StatusAdd(StatusWord& word) {
  word.fetch_add(1, std::memory_order_relaxed);
}
inline void StatusSet(StatusWord& word, uint32_t value) {
  word.store(value, std::memory_order_relaxed);
}
inline void StatusSet(StatusLong& word, uint64_t value) {
  word.store(value, std::memory_order_relaxed);
}

// Times a callback of the application from here to the end of the scope.
class CCallbackWatch {
 public:
  CCallbackWatch(EStatusCallback callbackKind, uint32_t callbackChannel);
  ~CCallbackWatch();
  CCallbackWatch(const CCallbackWatch&) = delete;
  CCallbackWatch& operator=(const CCallbackWatch&) = delete;

 private:
  const EStatusCallback kind;
  const uint32_t channel;
  const bool isOn;
  uint64_t begin = 0;
};

}  // namespace zelk

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "card/pri_adapter.h"
#include "platform/mutex.h"

namespace zelk {

// One E1 port of a card: its libpri controller under the trunk lock, and its settings.
// Thread: any; whoever uses the controller holds the lock. The lock is re-entrant: event handlers take it again.
struct CTrunk {
  CRecursiveMutex lock;
  // Null while the card is closed or libpri made none. Guarded by lock.
  std::unique_ptr<CPriController> controller;

  std::atomic<int32_t> nodeType{2};  // after the mapping of 1000 and 1001; 1 is the network side
  std::atomic<int32_t> switchType{5};
  std::atomic<int32_t> numberType{33};
  std::atomic<bool> hangupOnAlerting{false};
  std::atomic<bool> echoEnabled{false};  // the "EchoCanceller" setting; the switch itself is the audio stream's
  std::atomic<uint8_t> lineStatus{3};    // 0 in service, 3 unknown
};

}  // namespace zelk

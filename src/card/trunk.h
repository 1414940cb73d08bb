// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "card/capture_file.h"
#include "card/pri_adapter.h"
#include "platform/mutex.h"
#include "runtime/q931_types.h"

namespace zelk {

// The status byte of an E1 line, as the card sends it. What other values mean, only the card knows.
enum ELineStatus : uint8_t {
  kLineInService = 0,
  kLineUnknown = 3,  // nothing heard of it yet
};

// One E1 port of a card: its libpri controller under the trunk lock, and its settings.
// Thread: any; whoever uses the controller holds the lock. The lock is re-entrant: event handlers take it again.
struct CTrunk {
  CRecursiveMutex lock;
  // Null while the card is closed or libpri made none.
  std::unique_ptr<CPriController> controller ZELK_GUARDED_BY(lock);
  CCaptureFile capture ZELK_GUARDED_BY(lock);
  uint32_t generation ZELK_GUARDED_BY(lock) = 0;  // the card's, when it made the controller
  // The D-channel came up in this generation, and the handlers have been told so.
  bool isDchannelUp ZELK_GUARDED_BY(lock) = false;
  bool isUpReported ZELK_GUARDED_BY(lock) = false;

  std::atomic<int32_t> nodeType{kUserSide};  // after the mapping of "ClientType"
  std::atomic<int32_t> switchType{kEuroIsdnE1};
  std::atomic<int32_t> numberType{kNationalIsdnNumber};
  std::atomic<bool> hangupOnAlerting{false};
  std::atomic<bool> echoEnabled{false};  // the "EchoCanceller" setting; the switch itself is the audio stream's
  std::atomic<uint8_t> lineStatus{kLineUnknown};
  std::atomic<uint32_t> timerMoves{1};    // counts what may have started or stopped a timer; written under the lock
  std::atomic<bool> isBacklogged{false};  // frames of layer 2 pile up; written under the lock
};

}  // namespace zelk

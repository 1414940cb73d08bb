// SPDX-License-Identifier: GPL-2.0-only
#include "card/card_core.h"

#include <atomic>

#include "card/control_messages.h"
#include "runtime/status_page.h"

namespace zelk {

void CCardCore::SendTrunkConfiguration(uint32_t trunk) {
  const auto message = TrunkConfiguration(trunk, crc4);
  link.Send(message.data(), message.size());
}

void CCardCore::SendRegisterRead(uint32_t trunk, uint16_t registerNumber) {
  const auto message = RegisterRead(trunk, registerNumber);
  link.Send(message.data(), message.size());
}

bool CCardCore::SendDchannelFrame(uint32_t trunk, const uint8_t* frame, size_t length) {
  std::array<uint8_t, kMaxFrameMessage> message;
  const size_t size = BuildFrameMessage(trunk, frame, length, message);
  if (size != 0) {
    link.Send(message.data(), size);
  }
  return size != 0;
}

void CCardCore::ReportCardUp() {
  if (ICardHandlers* current = handlers) {
    current->OnCardUp();
  }
}

void CCardCore::ReportCardDown(const CStopFlag& caller) {
  StatusPage().CardCloses(number, kStatusCardLost);
  if (ICardHandlers* current = handlers) {
    current->OnCardDown(caller);
  }
}

void CCardCore::ReportEarlyDchannels(const CStopFlag& caller) {
  for (uint32_t trunk = 0; trunk < kMaxTrunks && !caller.IsSet(); ++trunk) {
    CTrunk& entry = trunks[trunk];
    const CScopedLock<CRecursiveMutex> held(entry.lock);
    ICardHandlers* current = handlers;
    if (entry.isDchannelUp && !entry.isUpReported && current != nullptr) {
      entry.isUpReported = true;
      current->OnDchannelUp(trunk, caller);
    }
  }
}

template <class Action>
bool CCardCore::ForEachTrunkWithin(const SLockPatience& patience, Action action) {
  bool isComplete = true;
  for (CTrunk& trunk : trunks) {
    const CTrunkLock held(trunk.lock, patience);
    if (held.IsHeld()) {
      action(trunk);
    } else {
      isComplete = false;
    }
  }
  return isComplete;
}

bool CCardCore::ReleaseControllers(const SLockPatience& patience) {
  return ForEachTrunkWithin(patience, [](CTrunk& trunk) ZELK_NO_THREAD_SAFETY_ANALYSIS {
    trunk.controller.reset();
    trunk.isDchannelUp = false;
    trunk.isUpReported = false;
  });
}

bool CCardCore::CloseCaptures(const SLockPatience& patience) {
  return ForEachTrunkWithin(patience, [](CTrunk& trunk) ZELK_NO_THREAD_SAFETY_ANALYSIS { trunk.capture.Close(); });
}

void CCardCore::ReleaseLeftover(CTrunk& trunk, uint32_t generation) {
  if (trunk.generation == generation) {
    trunk.controller.reset();
    trunk.capture.Close();
  }
}

void CCardCore::ReleaseLeftovers(uint32_t generation) {
  for (CTrunk& trunk : trunks) {
    const CScopedLock<CRecursiveMutex> held(trunk.lock);
    ReleaseLeftover(trunk, generation);
  }
}

void CCardCore::KeepForever(const std::shared_ptr<CCardCore>& core) {
  // A list that needs no memory, as there may be none left, and no lock, which would be gone at the process's end.
  static std::atomic<CCardCore*> first{nullptr};
  if (core->kept == nullptr) {
    core->kept = core;
    core->nextKept = first.exchange(core.get());
  }
}

int CCardCore::OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) {
  if (trunk >= kMaxTrunks || length < kFcsBytes) {
    return 0;
  }
  // The trunk's lock is held already; taking it again keeps the capture's lines apart by itself.
  const CScopedLock<CRecursiveMutex> held(trunks[trunk].lock);
  trunks[trunk].capture.Write('O', frame, length - kFcsBytes);
  SendDchannelFrame(trunk, frame, length - kFcsBytes);
  return static_cast<int>(length);
}

void CCardCore::OnTimersMoved(uint32_t trunk, bool isBacklogged) {
  if (trunk < kMaxTrunks) {
    trunks[trunk].isBacklogged.store(isBacklogged, std::memory_order_relaxed);
    std::atomic<uint32_t>& moves = trunks[trunk].timerMoves;
    moves.store(moves.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }
}

uint32_t CCardCore::MessageCard() const {
  const ICardHandlers* current = handlers;
  return current == nullptr ? 0 : current->FirstGlobalTrunk();
}

void CCardCore::OnAudioNotice(const char* text) {
  if (ICardHandlers* current = handlers) {
    current->OnNotice(text);
  }
}

}  // namespace zelk

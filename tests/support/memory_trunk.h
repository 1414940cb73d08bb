// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "card/card.h"
#include "card/card_handlers.h"
#include "runtime/q931_types.h"
#include "support/pri_pair.h"

namespace zelk {

// A trunk of a card that is not opened. What its controller writes stays here, and what comes for it is done as the
// control thread does it: frame, handlers and acknowledgement under one trunk lock.
class CUnopenedTrunk : public IPriWriter {
 public:
  CUnopenedTrunk(CCard& trunkCard, ICardHandlers& cardHandlers, uint32_t trunkIndex);
  ~CUnopenedTrunk() override;  // with its controller
  CUnopenedTrunk(const CUnopenedTrunk&) = delete;
  CUnopenedTrunk& operator=(const CUnopenedTrunk&) = delete;

  void MakeController(int32_t nodeType, int32_t switchType = kEuroIsdnE1);
  void ReleaseController();
  void Receive(const PriFrame& frame);
  bool RunTimers();  // true when libpri had an event
  bool IsTimerPending();
  void Deliver(SPriEvent event);
  // The passing of time for the calls; nowMs is the handlers' counter.
  void Pass(uint32_t nowMs) { handlers.OnTime(card, nowMs, caller); }

  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override;

  CStopFlag caller;
  uint32_t writtenTrunk = 0;  // whose frame it was, as libpri said last
  std::deque<PriFrame> written;
  std::function<void()> onFrame;        // at the next frame: inside libpri, the trunk's lock held
  std::optional<uint16_t> channelSeen;  // reported instead of the channel that libpri names

 private:
  CTrunk& Trunk() { return card.Trunk(index); }

  CCard& card;
  ICardHandlers& handlers;
  const uint32_t index;
};

// A trunk whose controller is joined in memory to a controller that plays the other side.
class CMemoryTrunk {
 public:
  CMemoryTrunk(CCard& card, ICardHandlers& handlers, uint32_t trunkIndex, int32_t ownNodeType = kUserSide);

  // Carries frames both ways until both sides are quiet.
  void Run();
  void ToPeer();
  void ToUs();
  // What is due on both sides, and what follows from it. nowMs: of the handlers' counter.
  void RunTimers(uint32_t nowMs);
  // The peer's latest event of this kind; its call is null when there was none.
  SPriEvent PeerEvent(int code) const;

  CUnopenedTrunk us;
  CPriSide them;
  CPriController* const peer;            // theirs
  std::function<void(PriFrame&)> alter;  // changes a frame on its way to us
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "card/pri_adapter.h"
#include "runtime/q931_types.h"

namespace zelk {

using PriFrame = std::vector<uint8_t>;

// One side of a D-channel in memory: a controller, the frames it has written and the events it has had.
class CPriSide : public IPriWriter {
 public:
  explicit CPriSide(int nodeType, int switchType = kEuroIsdnE1, uint32_t trunk = 0);
  int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) override;
  void OnTimersMoved(uint32_t, bool doFramesPileUp) override {
    ++timerMoves;
    isBacklogged = doFramesPileUp;
  }

  // A frame as the other side wrote it, and a timer that is due. True when libpri had an event, which is noted.
  bool Receive(const PriFrame& frame);
  bool RunTimers();

  void Note(const SPriEvent& event);
  bool Has(int code) const { return Find(code) != nullptr; }
  const SPriEvent* Find(int code) const;      // the first event of this kind, or null
  const SPriEvent* FindLast(int code) const;  // the last
  // The call of the first ring, null without one.
  PriCall Ring() const;

  std::deque<PriFrame> written;
  std::vector<SPriEvent> events;
  uint32_t lastTrunk = 99;
  uint32_t timerMoves = 0;
  bool isBacklogged = false;
  bool acknowledgesAnswers = true;
  std::unique_ptr<CPriController> controller;
};

// A user and a network side joined in memory.
class CPriPair {
 public:
  // Hands over one frame of either side; false when there is none.
  bool Step();
  // Runs what is due and hands over frames until both sides are quiet; no more than this number of frames.
  void Run(int frames = 1000);
  // A call of one of the sides, its SETUP handed over. Throws when libpri does not send it.
  PriCall Dial(CPriSide& from, int timeslot = 3);

  CPriSide user{kUserSide};
  CPriSide network{kNetworkSide};

 private:
  void RunTimers();
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "cardsim/base/history.h"
#include "cardsim/exchange/trunk_calls.h"

namespace cardsim {

// Job: one E1 line of a card: the D-channel between the control connection and the exchange's libpri peer, and the
// trunk's calls. Thread: signalling, except Calls()->Place. Frames from the library that come before the line is up
// wait for it. Nothing blocks or fails.
class CTrunk {
 public:
  using SendFrame = std::function<void(int trunk, ByteView frame)>;

  CTrunk(int cardIndex, int trunkIndex, SPeerRole role, IReactor& signallingReactor, CAudioPort& audio,
         CHistory& cardHistory, SendFrame sendFrame, CTrunkCalls::SHandlers handlers);

  void LineUp();
  void LineDown();
  void FromLibrary(ByteView frame);
  void RunTimers() { peer.RunTimers(); }

  // A cut line loses every frame, both ways.
  void SetCut(bool value) { cut = value; }
  // The library's frames wait, and reach the exchange in order when they are let go.
  void SetHold(bool value);
  // Sends a frame (without FCS) to the library as if the exchange had.
  void SendRawFrame(ByteView frame) { ToLibrary(frame); }
  CPriPeer& Peer() { return peer; }
  const std::shared_ptr<CTrunkCalls>& Calls() const { return calls; }

 private:
  void Receive(ByteView frame);
  void ToLibrary(ByteView frame);
  void OnEvent(const SPriEvent& event);

  const int trunk;
  const IReactor& reactor;
  CHistory& history;
  const SendFrame send;
  CPriPeer peer;
  std::shared_ptr<CTrunkCalls> calls;
  std::vector<Bytes> early;
  std::vector<Bytes> held;
  bool cut = false;
  bool hold = false;
};

}  // namespace cardsim

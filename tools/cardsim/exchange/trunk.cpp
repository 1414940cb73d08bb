// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/exchange/trunk.h"

#include <utility>

extern "C" {
#include <libpri.h>
}

namespace cardsim {
namespace {

constexpr std::size_t kMostEarlyFrames = 16;

}  // namespace

CTrunk::CTrunk(int cardIndex, int trunkIndex, SPeerRole role, IReactor& signallingReactor, CAudioPort& audio,
               CHistory& cardHistory, SendFrame sendFrame, CTrunkCalls::SHandlers handlers)
    : trunk(trunkIndex),
      reactor(signallingReactor),
      history(cardHistory),
      send(std::move(sendFrame)),
      peer(
          role, [this](ByteView frame) { ToLibrary(frame); }, [this](const SPriEvent& event) { OnEvent(event); }),
      calls(std::make_shared<CTrunkCalls>(cardIndex, trunkIndex, signallingReactor, audio, peer, std::move(handlers))) {
}

void CTrunk::LineUp() {
  if (peer.IsRunning()) {
    return;
  }
  peer.Start();
  const std::vector<Bytes> waiting = std::move(early);
  early.clear();
  for (const Bytes& frame : waiting) {
    Receive(frame);
  }
}

void CTrunk::LineDown() {
  calls->LoseAll();
  peer.Stop();
  early.clear();
  held.clear();
  history.SetTrunkUp(trunk, false);
}

void CTrunk::SetHold(bool value) {
  hold = value;
  const std::vector<Bytes> waiting = hold ? std::vector<Bytes>() : std::exchange(held, {});
  for (const Bytes& frame : waiting) {
    Receive(frame);
  }
}

// A message is the call's before what it does to it; a SETUP makes the call.
void CTrunk::Receive(ByteView frame) {
  const SQ931Message message = DecodeFrame(frame).message;
  const bool isKept = message.valid && calls->OnMessage(message);
  peer.Receive(frame);
  if (message.valid && !isKept) {
    calls->OnMessage(message);
  }
  calls->EndForgotten();
}

void CTrunk::FromLibrary(ByteView frame) {
  history.AddFrame(EDirection::kFromLibrary, trunk, frame, reactor.Now());
  if (cut) {
    return;
  }
  if (hold) {
    held.emplace_back(frame.begin(), frame.end());
  } else if (peer.IsRunning()) {
    Receive(frame);
  } else if (early.size() < kMostEarlyFrames) {
    early.emplace_back(frame.begin(), frame.end());
  }
}

void CTrunk::ToLibrary(ByteView frame) {
  if (cut) {
    return;
  }
  history.AddFrame(EDirection::kToLibrary, trunk, frame, reactor.Now());
  send(trunk, frame);
}

void CTrunk::OnEvent(const SPriEvent& event) {
  switch (event.code) {
    case PRI_EVENT_DCHAN_UP:
      history.SetTrunkUp(trunk, true);
      break;
    case PRI_EVENT_DCHAN_DOWN:
      history.SetTrunkUp(trunk, false);
      break;
    default:
      calls->OnEvent(event);
  }
}

}  // namespace cardsim

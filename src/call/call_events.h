// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "call/card_channels.h"
#include "call/late_releases.h"
#include "card/card_handlers.h"

namespace zelk {

constexpr uint16_t kNoBchannel = 0xFFFF;  // the network named no channel

// What signalling events do to the channels of one card: the record follows the call, the network is answered, and the
// application is told.
// Thread: control, with the trunk's lock held; it is taken again around what is done to libpri. No channel lock is held
// while the application's callback runs, and the channel is not touched after it. Bad trunks and channels are ignored.
//
//   RING                  Offer                     see CCallState
//   ANSWER, CONNECT_ACK   Connect
//   RESTART               Clear
//   HANGUP, HANGUP_REQ    End, also RINGING of a connected call with "HangupOnAlerting"
//   HANGUP_ACK            nothing by itself, for the channel's own call: see CLateReleases
class CCallEvents {
 public:
  CCallEvents(const CCardChannels& channels, CLateReleases& releases);

  void Handle(CCard& card, uint16_t trunkIndex, uint16_t bchannel, ECallEvent code, const SPriEvent& event) const;

 private:
  struct SCall;  // an event with the trunk and channel that it is about

  bool ChooseChannel(CCard& card, uint16_t trunkIndex, const SPriEvent& event, uint16_t& bchannel) const;
  uint32_t CardOfTrunk(uint16_t trunkIndex) const;

  void OnHangupAck(const SCall& call) const;

  static bool HandleLostCall(const SCall& call, ECallEvent code);
  void Dispatch(const SCall& call, ECallEvent code) const;
  static void OnRing(const SCall& call);
  static void OnHangup(const SCall& call, ECallEvent code);
  static void OnRestart(const SCall& call);
  static void OnConnectAck(const SCall& call);
  static void OnAnswer(const SCall& call);
  static void OnRinging(const SCall& call);

  const CCardChannels& channels;
  CLateReleases& lateReleases;
};

}  // namespace zelk

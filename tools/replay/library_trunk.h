// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <optional>

#include "call/channel_handlers.h"
#include "call/channel_table.h"
#include "card/card.h"
#include "card/hdlc_error_rule.h"
#include "replay/clock.h"
#include "runtime/config.h"

namespace replay {

using trace::ByteView;

// Where a trunk stands in the library.
struct SPlace {
  std::uint32_t serial = 0;  // of its card
  std::uint32_t trunk = 0;   // on its card, from 0
  std::uint32_t trunks = 1;  // of the card
  std::uint32_t cardsBefore = 0;
  std::uint32_t trunksBefore = 0;  // of those cards
};

// Job: one trunk of the library: its controller, its calls and its channels, all of them open, on a card that is not
// opened. What the card's control thread does is done here, when it is told. Channels have the numbers that they have
// in an application: those before them are there too. Thread: one. Owns all of it; what the controller writes goes to
// the sink, without FCS.
class CLibraryTrunk : private zelk::IPriWriter {
 public:
  using Sink = std::function<void(ByteView)>;

  CLibraryTrunk(const SPlace& place, Sink frameSink);
  ~CLibraryTrunk() override;
  CLibraryTrunk(const CLibraryTrunk&) = delete;
  CLibraryTrunk& operator=(const CLibraryTrunk&) = delete;

  // The card is opened, the first time or anew.
  void Open(const zelk::STrunkSettings& settings);
  // The control connection is over: nothing comes and no timer runs until the next Open.
  void Close() { isConnected = false; }
  void LoseCard() { handlers.OnCardDown(never); }
  void Receive(ByteView frame);
  void OnHdlcError(std::uint8_t code);
  void OnLineStatus(std::uint8_t status) { Trunk().lineStatus = status; }
  // Runs what is due, up to the first event. When the next will be, if any is to come.
  void RunTimers();
  // Calls wait for their end, and time has to be passed to them.
  bool AwaitsTime() const { return isConnected && handlers.AwaitsTime(); }
  void PassTime();
  std::optional<Time> NextTimer() const;

  void SetNumberType(int type) { Trunk().numberType = type; }
  // Null for a timeslot that has no channel.
  zelk::CDevice* ChannelOf(int timeslot);

  // The timeslot that the library means when it names a B-channel for a call that came without; -1 for none of this
  // trunk.
  int TimeslotChosenAs(int bchannel) const;

 private:
  void AddChannels(const SPlace& place);
  int OnPriFrame(std::uint32_t index, const std::uint8_t* frame, std::size_t length) override;
  zelk::CTrunk& Trunk() { return card.Trunk(trunk); }
  const zelk::CTrunk& Trunk() const { return card.Trunk(trunk); }
  void Route(const zelk::SPriEvent& event);
  static std::uint32_t NowMs();

  const std::uint32_t trunk;
  const std::uint32_t firstChannel;
  const Sink sink;
  const zelk::CStopFlag never;
  bool wasOpen = false;
  bool isConnected = false;
  mutable zelk::CCard card;
  zelk::CChannelTable table;
  zelk::CChannelHandlers handlers;
  zelk::CHdlcErrorRule hdlcRule;
};

}  // namespace replay

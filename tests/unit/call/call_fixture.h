// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "call/call_operations.h"
#include "call/channel_handlers.h"
#include "call/channel_info.h"
#include "call/channel_table.h"
#include "call_recorders.h"
#include "card/card.h"
#include "card/event_router.h"
#include "support/memory_trunk.h"

namespace zelk::test {

inline SPriEvent OfCall(PriCall call) {
  SPriEvent event;
  event.call = call;
  return event;
}

// No call of libpri's: nothing that is done to it reaches anybody.
inline constexpr PriCall kNobodysCall = PriCall(0x10);

// Two cards that are not opened: 4 trunks (channels 0-119) and 1 trunk (120-149), every handler in place.
class CCallFixture : public ::testing::Test {
 protected:
  // direction: of every channel at first. The library makes none but 0.
  explicit CCallFixture(int32_t direction = 0)
      : firstCard(0), secondCard(1), firstHandlers(table, 0), secondHandlers(table, 1) {
    AddTrunks(firstCard, 0, 4, direction);
    AddTrunks(secondCard, 1, 1, direction);
    firstHandlers.Place(0, 0);
    secondHandlers.Place(4, 120);
  }

  CDevice& Channel(int32_t number) { return *table.Find(number); }
  SCallView View(int32_t channel) { return Channel(channel).Call().View(); }
  std::string Info(int32_t channel, const char* key) { return GetInfo(Channel(channel), key, table.Count()); }
  std::string Texts(int32_t channel) {
    return Info(channel, "CLI") + "|" + Info(channel, "DLI") + "|" + Info(channel, "RLI") + "|" +
           Info(channel, "CALLTYPE");
  }

  // An event of the first card, as if libpri had made it, on its way through the card.
  void RaiseOn(uint32_t trunk, uint16_t bchannel, EPriEventCode code, SPriEvent event = {}) {
    event.code = code;
    event.channel = bchannel;
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(trunk).lock);
    RouteEvent({firstCard, &firstHandlers, firstCard.Trunk(trunk), trunk}, event, caller);
  }
  void Raise(uint16_t bchannel, EPriEventCode code, const SPriEvent& event = {}) { RaiseOn(0, bchannel, code, event); }
  // A ring that brings all three texts, for a channel of the first card.
  void RingWithTexts(int32_t channel, PriCall call, const char* text) {
    SPriEvent ring = OfCall(call);
    ring.callingNumber = ring.calledNumber = ring.redirectingNumber = text;
    const auto number = static_cast<uint32_t>(channel);
    RaiseOn(number / kChannelsPerTrunk, static_cast<uint16_t>(BchannelOf(number % kChannelsPerTrunk)), kPriRing, ring);
    application.Take();
  }

  CStopFlag caller;
  CCard firstCard;
  CCard secondCard;
  CChannelTable table;
  CChannelHandlers firstHandlers;
  CChannelHandlers secondHandlers;
  CEventRecorder application;

 private:
  void AddTrunks(CCard& card, int32_t cardIndex, int32_t trunks, int32_t direction) {
    for (int32_t trunk = 0; trunk < trunks; ++trunk) {
      for (size_t index = 0; index < kChannelsPerTrunk; ++index) {
        const SDevicePlace place{cardIndex, trunk, static_cast<uint32_t>(BchannelOf(index)),
                                 static_cast<uint32_t>(table.Count())};
        table.Add(std::make_unique<CDevice>(card, place, direction));
      }
    }
  }
};

// The first trunk of the first card, up, with a real peer on the network side.
class CTrunkFixture : public CCallFixture {
 protected:
  explicit CTrunkFixture(int32_t direction = 0) : CCallFixture(direction), trunk(firstCard, firstHandlers, 0) {
    trunk.Run();
    application.Take();
  }

  // A call from the network on this timeslot.
  PriCall Offer(int timeslot) {
    PriCall call = trunk.peer->NewCall();
    EXPECT_GE(trunk.peer->Setup(call, timeslot, "4711", "030123456", 33), 0);
    trunk.Run();
    return call;
  }

  // A call to the network that the peer has answered.
  void Connect(int32_t channel) {
    ASSERT_TRUE(Dial(Channel(channel), "999", "111"));
    trunk.Run();
    const SPriEvent ring = trunk.PeerEvent(kPriRing);
    trunk.peer->Proceeding(ring.call, ring.channel);
    trunk.peer->Answer(ring.call, ring.channel);
    trunk.Run();
    ASSERT_TRUE(View(channel).connected);
    application.Take();
  }

  // A call of our controller that nobody else knows of: it has no party yet.
  PriCall OwnCall() {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    return firstCard.Trunk(0).controller->NewCall();
  }
  bool IsValid(PriCall call) {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    return firstCard.Trunk(0).controller->IsCallValid(call);
  }

  // Frames to us that carry this message get an element after their last one.
  void AddToMessage(uint8_t type, std::vector<uint8_t> element) {
    trunk.alter = [type, element = std::move(element)](std::vector<uint8_t>& frame) {
      constexpr size_t kMessageType = 8;  // 4 bytes of layer 2, protocol, reference length, two bytes of reference
      if (frame.size() > kMessageType && frame[kMessageType] == type) {
        frame.insert(frame.end() - 2, element.begin(), element.end());
      }
    };
  }

  CMemoryTrunk trunk;
};

}  // namespace zelk::test

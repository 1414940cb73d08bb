#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "call/call_operations.h"
#include "call/channel_handlers.h"
#include "call/channel_info.h"
#include "call/channel_table.h"
#include "call_recorders.h"
#include "card/card.h"
#include "card/event_router.h"

namespace zelk::test {

// One side of a D-channel in memory.
class CFrameQueue : public IPriWriter {
 public:
  int OnPriFrame(uint32_t, const uint8_t* frame, size_t length) override {
    frames.emplace_back(frame, frame + length);
    if (const auto once = std::exchange(onFrame, nullptr)) {
      once();
    }
    return static_cast<int>(length);
  }

  std::deque<std::vector<uint8_t>> frames;
  std::function<void()> onFrame;  // at the next frame: inside libpri, the trunk's lock held
};

// A trunk whose controller is joined in memory to a controller that plays the other side.
class CMemoryTrunk {
 public:
  CMemoryTrunk(CCard& ownCard, ICardHandlers& cardHandlers, uint32_t trunkIndex, int ownNodeType = 2)
      : card(ownCard), handlers(cardHandlers), index(trunkIndex) {
    CTrunk& trunk = card.Trunk(index);
    trunk.nodeType = ownNodeType;
    const CScopedLock<CRecursiveMutex> held(trunk.lock);
    trunk.controller = CPriController::Create(fromUs, index, ownNodeType, 5);
    peer = CPriController::Create(fromPeer, index, ownNodeType == 1 ? 2 : 1, 5);
  }
  ~CMemoryTrunk() {
    CTrunk& trunk = card.Trunk(index);
    const CScopedLock<CRecursiveMutex> held(trunk.lock);
    trunk.controller.reset();
  }
  CMemoryTrunk(const CMemoryTrunk&) = delete;
  CMemoryTrunk& operator=(const CMemoryTrunk&) = delete;

  // Carries frames both ways until the line is quiet.
  void Run() {
    while (!fromUs.frames.empty() || !fromPeer.frames.empty()) {
      ToPeer();
      ToUs();
    }
  }
  void ToPeer() {
    while (!fromUs.frames.empty()) {
      const std::vector<uint8_t> frame = std::move(fromUs.frames.front());
      fromUs.frames.pop_front();
      SPriEvent event;
      if (peer->Receive(frame.data(), frame.size(), event)) {
        peerEvents.push_back(event);
      }
    }
  }
  // As the control thread does it: frame, handlers and acknowledgement under one trunk lock.
  void ToUs() {
    while (!fromPeer.frames.empty()) {
      std::vector<uint8_t> frame = std::move(fromPeer.frames.front());
      fromPeer.frames.pop_front();
      if (alter) {
        alter(frame);
      }
      CTrunk& trunk = card.Trunk(index);
      const CScopedLock<CRecursiveMutex> held(trunk.lock);
      SPriEvent event;
      if (trunk.controller && trunk.controller->Receive(frame.data(), frame.size(), event)) {
        Deliver(event);
      }
    }
  }
  // What is due on both sides, and what follows from it. nowMs: of the handlers' counter.
  void RunTimers(uint32_t nowMs) {
    SPriEvent event;
    bool isDue = true;
    while (isDue) {
      isDue = peer->RunTimers(event);
      if (isDue) {
        peerEvents.push_back(event);
      }
      CTrunk& trunk = card.Trunk(index);
      const CScopedLock<CRecursiveMutex> held(trunk.lock);
      if (trunk.controller && trunk.controller->RunTimers(event)) {
        isDue = true;
        Deliver(event);
      }
    }
    Run();
    handlers.OnTime(card, nowMs, caller);
  }
  void Deliver(const SPriEvent& event) {
    const SEventRoute route = RouteOf(event.code);
    if (route.status == kDchannelUp) {
      handlers.OnDchannelUp(index, caller);
    } else if (route.status == kDchannelDown) {
      handlers.OnDchannelDown(index, caller);
    } else if (route.status == kConfigError) {
      handlers.OnConfigError(index);
    } else if (route.kind == SEventRoute::EKind::kCall) {
      handlers.OnCallEvent(card, static_cast<uint16_t>(index),
                           channelSeen.value_or(static_cast<uint16_t>(event.channel)), route.call, event);
      CTrunk& trunk = card.Trunk(index);
      const CScopedLock<CRecursiveMutex> held(trunk.lock);
      if (route.call == CALLEV_ANSWER && trunk.controller) {
        trunk.controller->ConnectAck(event.call, event.channel);
      }
    }
  }

  // The peer's latest event of this kind; its call is null when there was none.
  SPriEvent PeerEvent(int code) const {
    for (auto event = peerEvents.rbegin(); event != peerEvents.rend(); ++event) {
      if (event->code == code) {
        return *event;
      }
    }
    return {};
  }

  CCard& card;
  ICardHandlers& handlers;
  CStopFlag caller;
  const uint32_t index;
  CFrameQueue fromUs;
  CFrameQueue fromPeer;
  std::unique_ptr<CPriController> peer;
  std::vector<SPriEvent> peerEvents;
  std::function<void(std::vector<uint8_t>&)> alter;  // changes a frame on its way to us
  std::optional<uint16_t> channelSeen;               // reported instead of the channel that libpri names
};

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
      : firstCard(0), secondCard(1), firstHandlers(table, 0), secondHandlers(table, 1), routed(firstCard, 0) {
    AddTrunks(firstCard, 0, 4, direction);
    AddTrunks(secondCard, 1, 1, direction);
    firstHandlers.Place(0, 0);
    secondHandlers.Place(4, 120);
    routed.handlers = &firstHandlers;
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
    RouteEvent(routed, trunk, event, caller);
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

  CCardCore routed;  // the first card's, as far as its events need one
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

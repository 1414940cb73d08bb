#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "call/application_events.h"
#include "call/call_operations.h"
#include "call/channel_handlers.h"
#include "call/channel_info.h"
#include "call/channel_table.h"
#include "card/card.h"
#include "card/event_router.h"
#include "runtime/config.h"
#include "runtime/log.h"
#include "runtime/log_writer.h"

namespace zelk::test {

struct SPosted {
  int32_t channel;
  uint32_t event;
  int32_t param;

  bool operator==(const SPosted&) const = default;
};

inline void PrintTo(const SPosted& posted, std::ostream* out) {
  *out << "{channel " << posted.channel << ", event 0x" << std::hex << posted.event << std::dec << ", " << posted.param
       << "}";
}

// The application: notes every event, and does what the test wants inside the callback.
class CEventRecorder {
 public:
  CEventRecorder() {
    Current() = this;
    ApplicationEvents().SetEventCallback(&CEventRecorder::OnEvent);
  }
  ~CEventRecorder() {
    ApplicationEvents().SetEventCallback(nullptr);
    Current() = nullptr;
  }
  CEventRecorder(const CEventRecorder&) = delete;
  CEventRecorder& operator=(const CEventRecorder&) = delete;

  std::vector<SPosted> Take() {
    const std::lock_guard<std::mutex> held(mutex);
    return std::exchange(posted, {});
  }

  std::function<void(const SPosted&)> reaction;

 private:
  static CEventRecorder*& Current() {
    static CEventRecorder* current = nullptr;
    return current;
  }
  static void ZELK_CALL OnEvent(int32_t channel, uint32_t event, int32_t param) {
    CEventRecorder* self = Current();
    {
      const std::lock_guard<std::mutex> held(self->mutex);
      self->posted.push_back({channel, event, param});
    }
    if (self->reaction) {
      self->reaction({channel, event, param});
    }
  }

  std::mutex mutex;
  std::vector<SPosted> posted;
};

// What is logged between its construction and Text(), at the given level.
class CLogCapture {
 public:
  explicit CLogCapture(int32_t level)
      : path(std::filesystem::temp_directory_path() /
             ("zelk-call-test-" + std::to_string(std::random_device()()) + ".log")) {
    // Lines of before go to the file, and the file goes.
    Log().Start(path.string());
    Log().Stop();
    std::filesystem::remove(path);
    Config().level = level;
    Log().Start(path.string());
  }
  ~CLogCapture() {
    Log().Stop();
    std::filesystem::remove(path);
    Config().level = 2;
  }
  CLogCapture(const CLogCapture&) = delete;
  CLogCapture& operator=(const CLogCapture&) = delete;

  // The texts of the lines, tagged with their channel ("  5 :text") or "  G :text", in order.
  std::vector<std::string> Lines() {
    Log().Stop();
    std::ifstream file(path);
    std::vector<std::string> lines;
    constexpr size_t kStampChars = 20;
    for (std::string line; std::getline(file, line);) {
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      lines.push_back(line.substr(std::min(kStampChars, line.size())));
    }
    return lines;
  }

 private:
  const std::filesystem::path path;
};

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

// Two cards that are not opened: 4 trunks (channels 0-119) and 1 trunk (120-149), every handler in place.
class CCallFixture : public ::testing::Test {
 protected:
  CCallFixture() : firstCard(0), secondCard(1), firstHandlers(table, 0), secondHandlers(table, 1) {
    AddTrunks(firstCard, 0, 4);
    AddTrunks(secondCard, 1, 1);
    firstHandlers.Place(0, 0);
    secondHandlers.Place(4, 120);
  }

  void AddTrunks(CCard& card, int32_t cardIndex, int32_t trunks) {
    for (int32_t trunk = 0; trunk < trunks; ++trunk) {
      for (uint32_t timeslot = 1; timeslot < 32; ++timeslot) {
        if (timeslot != 16) {
          const auto number = static_cast<uint32_t>(table.Count());
          table.Add(std::make_unique<CDevice>(card, SDevicePlace{cardIndex, trunk, timeslot, number}));
        }
      }
    }
  }

  CDevice& Channel(int32_t number) { return *table.Find(number); }
  std::string Info(int32_t channel, const char* key) { return GetInfo(Channel(channel), key, table.Count()); }

  CStopFlag caller;
  CCard firstCard;
  CCard secondCard;
  CChannelTable table;
  CChannelHandlers firstHandlers;
  CChannelHandlers secondHandlers;
  CEventRecorder application;
};

// The first trunk of the first card, up, with a real peer on the network side.
class CTrunkFixture : public CCallFixture {
 protected:
  CTrunkFixture() : trunk(firstCard, firstHandlers, 0) {
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
    ASSERT_TRUE(Channel(channel).connected);
    application.Take();
  }

  // Hands an event to the handlers as if libpri had made it.
  void Raise(uint16_t bchannel, ECallEvent code, const SPriEvent& event = {}) {
    firstHandlers.OnCallEvent(firstCard, 0, bchannel, code, event);
  }

  bool IsValid(PriCall call) {
    const CScopedLock<CRecursiveMutex> held(firstCard.Trunk(0).lock);
    return firstCard.Trunk(0).controller->IsCallValid(call);
  }

  CMemoryTrunk trunk;
};

}  // namespace zelk::test

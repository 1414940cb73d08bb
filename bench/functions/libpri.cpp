// SPDX-License-Identifier: GPL-2.0-only

// What a complete call costs (SETUP to RELEASE COMPLETE, both sides of the D-channel in memory, no timer due): libpri's
// own two controllers, the same through our adapter, and a trunk of the library with its channels, call control and an
// application on one side. An item is a call.
#include <benchmark/benchmark.h>

#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "call/application_events.h"
#include "call/call_operations.h"
#include "call/channel_handlers.h"
#include "call/channel_table.h"
#include "card/card.h"
#include "card/pri_adapter.h"
#include "support/memory_trunk.h"

extern "C" {
#include <libpri.h>
}

namespace {

using Frame = std::vector<uint8_t>;

constexpr int kTimeslot = 3;
constexpr int kNormalClearing = 16;
char calledNumber[] = "5551234";
char callingNumber[] = "5559876";

// A controller as any program uses libpri.
class CPlainSide {
 public:
  explicit CPlainSide(int nodeType) : controller(pri_new_cb(0, nodeType, PRI_SWITCH_EUROISDN_E1, &Read, &Write, this)) {
    pri_hangup_fix_enable(controller, 1);
    pri_connect_ack_enable(controller, 1);
  }

  void Dial() {
    call = pri_new_call(controller);
    pri_sr* request = pri_sr_new();
    pri_sr_set_channel(request, kTimeslot, 1, 0);
    pri_sr_set_bearer(request, PRI_TRANS_CAP_SPEECH, PRI_LAYER_1_ALAW);
    pri_sr_set_called(request, calledNumber, PRI_NATIONAL_ISDN, 1);
    pri_sr_set_caller(request, callingNumber, nullptr, PRI_NATIONAL_ISDN, PRES_ALLOWED_USER_NUMBER_PASSED_SCREEN);
    pri_setup(controller, call, request);
    pri_sr_free(request);
  }
  void Hangup() { pri_hangup(controller, call, kNormalClearing); }

  bool GiveTo(CPlainSide& other) {
    if (written.empty()) {
      return false;
    }
    other.arrived = std::move(written.front());
    written.pop_front();
    if (const pri_event* event = pri_check_event(other.controller)) {
      other.Follow(*event);
    }
    return true;
  }

  uint64_t callsEnded = 0;

 private:
  static int Read(pri* own, void* buffer, int size) {
    const Frame& frame = static_cast<CPlainSide*>(pri_get_userdata(own))->arrived;
    std::memcpy(buffer, frame.data(), std::min(frame.size(), static_cast<size_t>(size)));
    return static_cast<int>(frame.size());
  }
  static int Write(pri* own, void* frame, int length) {
    const auto* bytes = static_cast<const uint8_t*>(frame);
    static_cast<CPlainSide*>(pri_get_userdata(own))->written.emplace_back(bytes, bytes + length);
    return length;
  }

  void Follow(const pri_event& event) {
    switch (event.e) {
      case PRI_EVENT_RING:
        pri_proceeding(controller, event.ring.call, event.ring.channel, 0);
        pri_answer(controller, event.ring.call, event.ring.channel, 1);
        break;
      case PRI_EVENT_ANSWER:
        pri_connect_ack(controller, event.answer.call, event.answer.channel);
        break;
      case PRI_EVENT_HANGUP:
      case PRI_EVENT_HANGUP_REQ:
        pri_hangup(controller, event.hangup.call, event.hangup.cause);
        ++callsEnded;
        break;
      default:
        break;
    }
  }

  std::deque<Frame> written;
  Frame arrived;
  q931_call* call = nullptr;
  pri* const controller;
};

// The same through the adapter.
class CAdapterSide : public zelk::IPriWriter {
 public:
  explicit CAdapterSide(int nodeType)
      : controller(zelk::CPriController::Create(*this, 0, nodeType, zelk::kEuroIsdnE1)) {}

  void Dial() {
    call = controller->NewCall();
    controller->Setup(call, kTimeslot, calledNumber, callingNumber, zelk::kNationalIsdnNumber);
  }
  void Hangup() { controller->Hangup(call, kNormalClearing); }
  int OnPriFrame(uint32_t, const uint8_t* frame, size_t length) override {
    written.emplace_back(frame, frame + length);
    return static_cast<int>(length);
  }

  bool GiveTo(CAdapterSide& other) {
    if (written.empty()) {
      return false;
    }
    const Frame frame = std::move(written.front());
    written.pop_front();
    zelk::SPriEvent event;
    if (other.controller->Receive(frame.data(), frame.size(), event)) {
      other.Follow(event);
    }
    return true;
  }

  uint64_t callsEnded = 0;

 private:
  void Follow(const zelk::SPriEvent& event) {
    if (event.code == zelk::kPriRing) {
      controller->Proceeding(event.call, event.channel);
      controller->Answer(event.call, event.channel);
    } else if (event.code == zelk::kPriAnswer) {
      controller->ConnectAck(event.call, event.channel);
    } else if (event.code == zelk::kPriHangup || event.code == zelk::kPriHangupRequest) {
      controller->Hangup(event.call, event.cause);
      ++callsEnded;
    }
  }

  std::deque<Frame> written;
  zelk::PriCall call;
  std::unique_ptr<zelk::CPriController> controller;
};

template <class Side>
void Calls(benchmark::State& state) {
  Side user(zelk::kUserSide);
  Side network(zelk::kNetworkSide);
  const auto exchange = [&] {
    while (user.GiveTo(network) || network.GiveTo(user)) {
    }
  };
  exchange();
  for ([[maybe_unused]] auto _ : state) {
    user.Dial();
    exchange();
    user.Hangup();
    exchange();
  }
  if (user.callsEnded != static_cast<uint64_t>(state.iterations())) {
    state.SkipWithError("not every call was complete");
  }
  state.SetItemsProcessed(state.iterations());
}

uint64_t eventsSeen = 0;
void ZELK_CALL OnEvent(int32_t, uint32_t event, int32_t) {
  eventsSeen += event == ZELK_EVENT_CONNECTED || event == ZELK_EVENT_DISCONNECTED ? 1 : 0;
}

// The card's first trunk with its channels; the far end answers and hangs up by hand.
void LibraryCalls(benchmark::State& state) {
  zelk::CCard card(0);
  zelk::CChannelTable table;
  zelk::CChannelHandlers handlers(table, 0);
  for (uint32_t index = 0; index < zelk::kChannelsPerTrunk; ++index) {
    table.Add(std::make_unique<zelk::CDevice>(
        card, zelk::SDevicePlace{0, 0, static_cast<uint32_t>(zelk::BchannelOf(index)), index}));
  }
  handlers.Place(0, 0);
  zelk::ApplicationEvents().SetEventCallback(&OnEvent);
  zelk::CMemoryTrunk trunk(card, handlers, 0);
  trunk.Run();
  zelk::CDevice& channel = *table.Find(kTimeslot - 1);
  eventsSeen = 0;
  for ([[maybe_unused]] auto _ : state) {
    zelk::Dial(channel, calledNumber, callingNumber);
    trunk.Run();
    const zelk::SPriEvent ring = trunk.PeerEvent(zelk::kPriRing);
    trunk.peer->Proceeding(ring.call, ring.channel);
    trunk.peer->Answer(ring.call, ring.channel);
    trunk.Run();
    zelk::Hangup(channel);
    trunk.Run();
    trunk.peer->Hangup(ring.call, kNormalClearing);
    trunk.Run();
    trunk.them.events.clear();
  }
  zelk::ApplicationEvents().SetEventCallback(nullptr);
  if (eventsSeen != 2 * static_cast<uint64_t>(state.iterations())) {
    state.SkipWithError("not every call was complete");
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(Calls<CPlainSide>)->Name("calls/complete/libpri");
BENCHMARK(Calls<CAdapterSide>)->Name("calls/complete/adapter");
BENCHMARK(LibraryCalls)->Name("calls/complete/library");

}  // namespace

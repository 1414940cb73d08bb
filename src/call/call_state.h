// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "card/call_registry.h"
#include "platform/mutex.h"
#include "runtime/status_layout.h"

namespace zelk {

// Where the call of a channel stands.
//
//                 Offer                   Connect
//        +------------------> offered -------------+
//        |                       |                 v
//      idle ---------------> dialled -------> connected
//       ^ ^       Dial           |                 |
//       | |                      +--------+--------+
//       | |  End                          | Clear
//       | +-------------------------- clearing
//       |
//       |  TrunkUp                        Lose
//       +------------ lost <------------ offered, dialled, connected, clearing
//
// End leads to idle from every state with a call, too: the network may end one at any moment.
enum class ECallState : uint8_t {
  kIdle,       // no call
  kOffered,    // by the network, and not answered yet
  kDialled,    // by the application, and not answered yet
  kConnected,  // answered; without a call when the network's side of a trunk answers one that is gone
  kClearing,   // libpri has been asked to clear it and has not released it yet
  kLost,       // it went with its trunk or card, which have not come up since
};
constexpr size_t kCallStates = 6;

enum class ECallChange : uint8_t { kOffer, kDial, kConnect, kClear, kEnd, kLose, kTrunkUp };
constexpr size_t kCallChanges = 7;

// The permitted edges: where each change leads from each state. What leads nowhere (kNo) is refused.
struct SCallEdges {
  static constexpr ECallState kNo = ECallState{0xFF};
  using enum ECallState;
  // clang-format off
  static constexpr std::array<std::array<ECallState, kCallStates>, kCallChanges> kTo = {{
      //            idle        offered     dialled     connected   clearing    lost
      /* Offer */   {kOffered,   kOffered,   kOffered,   kOffered,   kOffered,   kOffered},    // 1
      /* Dial */    {kDialled,   kNo,        kNo,        kDialled,   kNo,        kDialled},    // 2
      /* Connect */ {kConnected, kConnected, kConnected, kConnected, kClearing,  kConnected},  // 3
      /* Clear */   {kNo,        kClearing,  kClearing,  kClearing,  kClearing,  kNo},         // 4
      /* End */     {kIdle,      kIdle,      kIdle,      kIdle,      kIdle,      kLost},       // 5
      /* Lose */    {kIdle,      kLost,      kLost,      kLost,      kLost,      kLost},
      /* TrunkUp */ {kIdle,      kOffered,   kDialled,   kConnected, kClearing,  kIdle},
  }};
  // clang-format on
  // 1: a ring takes the channel whatever it was left with: a call that was cleared unheard, or one that the network has
  //    forgotten. It is offered unconnected.
  // 2: never over another call. A channel that is connected without a call has none, and the new one reads as
  //    connected from the start. Whether the trunk is up is not asked.
  // 3: the network may connect a channel that has no call, and an answer may cross our clearing: the call is then
  //    connected and still being cleared.
  // 4: once more is no error; libpri is left alone by then.
  // 5: a hang-up event, Reject or a failed Answer end what there is, also nothing.
};

constexpr ECallState NextState(ECallState from, ECallChange change) {
  return SCallEdges::kTo[static_cast<size_t>(change)][static_cast<size_t>(from)];
}

// What there is to know of a channel's call, all of one moment.
struct SCallView {
  ECallState state = ECallState::kIdle;
  PriCall callHandle;
  bool connected = false;
  // Below 1 outgoing. Nothing ever sets another value, so every call reads as outgoing: applications rely on it.
  int32_t direction = 0;
  int32_t linkState = -1;  // -1 trunk down or channel closed, 1 trunk up
};

// The echo-canceller switch of the channel's trunk: the audio of the trunk's other channels follows it too.
class IEchoSwitch {
 public:
  virtual ~IEchoSwitch() = default;
  virtual void SwitchEcho(bool on) = 0;
};

// The state of one channel's call and the only writer of what belongs to it. Each change is one function, which does
// all its writes under callLock; a change that the table does not have changes nothing (an assertion in builds that
// have them) and is false. Those that events from outside lead to are permitted from everywhere. Thread: any. Calls
// come to a channel (Offer, Dial) only under the trunk's lock, which is taken before callLock. Nothing allocates after
// construction, and nothing but the echo switch is called.
class CCallState {
 public:
  // direction: of a call that the library has not made; tests alone begin elsewhere than at 0.
  explicit CCallState(IEchoSwitch& echoSwitch, int32_t direction = 0);

  // Shows state and counts there from now on; null: nowhere. Before the channel has calls.
  void ShowIn(SStatusChannel* place);
  SCallView View() const;

  // The network offers a call. Without a handle the channel is left with none.
  void Offer(PriCall call);
  // The application has made a call, on a channel that has none.
  bool Dial(PriCall call);
  // Answered. The echo canceller stays as it is, or is switched with it.
  void Connect();
  void Connect(bool echo);
  // The application wants the call cleared: it reads as outgoing from here. Returns the handle, null when there is
  // none.
  PriCall BeginHangup();
  // libpri clears this call now. Nothing, and false, when the channel has another one or none.
  bool Clear(PriCall call);
  // No call, not connected, outgoing, and echo cancelling off for the whole trunk.
  void End();
  // The trunk or the card is gone. As End, but the direction stays, and the call becomes one of the lost ones.
  void Lose();
  // False when it was up before.
  bool TrunkUp();
  // The channel reads as down until its trunk comes up the next time; a call goes on.
  void CloseChannel();

  // A call lost with its trunk or card lives on in libpri until it is cleared there; what libpri still says of it must
  // not reach a newer call on this channel.
  bool IsLost(PriCall call) const;
  // libpri has cleared it.
  void ForgetLost(PriCall call);
  void ForgetAllLost();

 private:
  bool Move(ECallChange change) ZELK_REQUIRES(callLock);
  void Show() ZELK_REQUIRES(callLock);
  void Release() ZELK_REQUIRES(callLock);
  void RememberLost() ZELK_REQUIRES(callLock);

  IEchoSwitch& echo;
  mutable CMutex callLock;
  SCallView view ZELK_GUARDED_BY(callLock);
  SStatusChannel* shown ZELK_GUARDED_BY(callLock) = nullptr;
  std::vector<PriCall> lostCalls ZELK_GUARDED_BY(callLock);
};

}  // namespace zelk

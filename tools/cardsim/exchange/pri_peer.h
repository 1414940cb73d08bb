// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cardsim/base/bytes.h"
#include "cardsim/base/config.h"
#include "cardsim/exchange/pri_event.h"

struct pri;

namespace cardsim {

// What a SETUP carries.
struct SSetup {
  int timeslot = 1;  // -1: any channel
  bool exclusive = true;
  std::string calling;
  std::string called;
  int numberPlan = 0x21;
  std::string redirecting;
  int redirectingReason = 0;
};

// Job: the telephone exchange's end of one trunk's D-channel: a libpri controller (network role, Euro ISDN, unless
// told otherwise).
// Thread: signalling. Every libpri call of the process is made under one lock, because libpri counts timers of all its
// controllers in process-wide variables. Frames go out through `write` without FCS; events are given to `event`, which
// may call back. Nothing blocks. Operations on a call that is gone do nothing and return false.
class CPriPeer {
 public:
  using Write = std::function<void(ByteView)>;
  using Event = std::function<void(const SPriEvent&)>;

  CPriPeer(SPeerRole peerRole, Write writeHandler, Event eventHandler)
      : role(peerRole), write(std::move(writeHandler)), event(std::move(eventHandler)) {}
  ~CPriPeer() { Stop(); }
  CPriPeer(const CPriPeer&) = delete;
  CPriPeer& operator=(const CPriPeer&) = delete;

  bool Start();  // begins to establish layer 2
  void Stop();   // frees the controller and all its calls
  bool IsRunning() const { return controller != nullptr; }

  void Receive(ByteView frame);
  void RunTimers();

  // Places a call; null when libpri refuses.
  q931_call* Setup(const SSetup& setup);
  bool Proceeding(q931_call* call, int timeslot);
  bool Progress(q931_call* call, int timeslot, int cause);  // without a cause element when cause is -1
  bool Alerting(q931_call* call, int timeslot);
  bool Connect(q931_call* call, int timeslot);
  bool ConnectAcknowledge(q931_call* call);
  bool Hangup(q931_call* call, int cause);
  // Frees the call; nothing is sent, and what still comes for it is for a call that nobody knows.
  bool Forget(q931_call* call);
  // Whether libpri still has the call; a hang-up may free it at once.
  bool Knows(q931_call* call) const;
  // Sends one digit of the number after a SETUP ACKNOWLEDGE.
  bool Digit(q931_call* call, char digit);
  // Sends RESTART for a timeslot.
  bool RestartTimeslot(int timeslot);
  // Sends Q.931 bytes as they stand in an information frame, past libpri's own view of its calls.
  bool SendQ931(ByteView message);
  // The same with the header of a call before it. (SendMessage is a macro of Windows.)
  bool SendForCall(q931_call* call, std::uint8_t type, ByteView elements);
  // The call reference as the library sends it, flag included; -1 for a call that libpri does not have.
  int Reference(q931_call* call) const;
  // The calls that libpri holds, in whatever state.
  std::vector<SHeldCall> HeldCalls() const;

  // Where libpri's own messages go, process-wide; default: nowhere.
  static void SetLog(std::function<void(const std::string&)> log);

 private:
  static int OnRead(pri* ctrl, void* buffer, int length);
  static int OnWrite(pri* ctrl, void* buffer, int length);
  bool Owns(q931_call* call) const;

  SPeerRole role;
  Write write;
  Event event;
  pri* controller = nullptr;
};

}  // namespace cardsim

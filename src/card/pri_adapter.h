// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "card/call_registry.h"
#include "platform/clock.h"

namespace zelk {

// The event codes of libpri that the library routes; the adapter checks them against libpri's own.
enum EPriEventCode : int {
  kPriDchannelUp = 1,
  kPriDchannelDown = 2,
  kPriRestart = 3,
  kPriConfigError = 4,
  kPriRing = 5,
  kPriHangup = 6,
  kPriRinging = 7,
  kPriAnswer = 8,
  kPriHangupAck = 9,
  kPriInfoReceived = 12,
  kPriProceeding = 13,
  kPriHangupRequest = 15,
  kPriProgress = 17,
  kPriConnectAck = 27,
};

// A number of a call record; valid as libpri says.
struct SPriNumber {
  bool valid = false;
  std::string digits;
};

// What libpri's call record says of a call's parties.
struct SPriParties {
  SPriNumber remote;
  SPriNumber called;
  SPriNumber redirecting;
  int redirectingReason = 0;
};

// One libpri event with the fields that call control reads, copied out of libpri's union. A call that libpri has freed
// with the event still has the handle that it had.
struct SPriEvent {
  int code = 0;                   // PRI_EVENT_...
  int channel = 0;                // the event's channel field; -1 when the network named none
  PriCall call = nullptr;         // the call member of this event's own kind, or null
  PriCall hangupCall = nullptr;   // the union read as a hang-up event, whatever the event is
  int cause = 0;                  // hangup.cause, proceeding.cause or progress.cause
  std::string callingNumber;      // ring
  std::string calledNumber;       // ring
  std::string redirectingNumber;  // ring
  int redirectingReason = 0;      // ring
};

// The last bytes of a layer 2 frame, which the card makes and checks: libpri leaves a place for them and reads them.
constexpr size_t kFcsBytes = 2;

// Where a controller's frames go.
class IPriWriter {
 public:
  virtual ~IPriWriter() = default;
  // A frame of layer 2, with a place for the FCS. Returns what libpri expects back: the length, or 0.
  virtual int OnPriFrame(uint32_t trunk, const uint8_t* frame, size_t length) = 0;
  // Something was done that may have started or stopped timers, and after which frames of layer 2 pile up, or do not.
  // Under the trunk's lock.
  virtual void OnTimersMoved(uint32_t /*trunk*/, bool /*isBacklogged*/) {}
  // Shown as the card in libpri's message lines.
  virtual uint32_t MessageCard() const { return 0; }
};

// Installs the library's message hook for messages and errors of every controller made in this process.
void InstallPriMessageHook();

// One libpri controller. Every call is made under the trunk's lock by the caller; only this class sees libpri.
// Call operations are guarded: they do nothing and return -1 unless the call is one of this controller's.
// Thread: control and application, under the trunk lock. Memory that runs out is thrown before libpri is touched
// (Receive, RunTimers, NewCall) or once it has done its part (the texts of an event); never through libpri.
class CPriController {
 public:
  // Null when libpri cannot create it. The writer must outlive the controller and is called during creation already.
  static std::unique_ptr<CPriController> Create(IPriWriter& writer, uint32_t trunk, int nodeType, int switchType);
  // Releases everything that libpri holds for the controller, calls in any state included; nothing is sent.
  ~CPriController();
  CPriController(const CPriController&) = delete;
  CPriController& operator=(const CPriController&) = delete;

  // A frame as the card sent it, FCS included. True when libpri had an event.
  bool Receive(const uint8_t* frame, size_t length, SPriEvent& event);
  // False when no timer is pending.
  bool NextTimer(SUnixTime& due) const;
  bool RunTimers(SPriEvent& event);

  bool IsCallValid(PriCall call) const;
  bool Parties(PriCall call, SPriParties& parties) const;  // false when the call is not valid
  PriCall NewCall();                                       // null when libpri gives none
  // SETUP: exclusive channel, speech over A-law, both numbers with this plan, presentation allowed, user provided.
  int Setup(PriCall call, int timeslot, const char* calledNumber, const char* callingNumber, int numberType);
  int DestroyCall(PriCall call);
  int NeedMoreInfo(PriCall call, int channel);
  int Proceeding(PriCall call, int channel);
  int Alerting(PriCall call, int channel);  // pri_acknowledge
  int Answer(PriCall call, int channel);
  int ConnectAck(PriCall call, int channel);
  // 0 and nothing done for a call that we are clearing already: libpri would take a second hang-up for the end of its
  // part and swallow the RELEASE COMPLETE that the other side waits for.
  int Hangup(PriCall call, int cause);

 private:
  friend void InstallPriMessageHook();
  struct SImpl;
  explicit CPriController(std::unique_ptr<SImpl> impl);
  std::unique_ptr<SImpl> impl;
};

}  // namespace zelk

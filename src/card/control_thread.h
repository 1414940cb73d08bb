// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "card/card_core.h"
#include "card/control_parser.h"
#include "card/hdlc_error_rule.h"
#include "runtime/stop_flag.h"

namespace zelk {

// The body of a card's control thread, for one generation of the card: reads the control connection, feeds D-channel
// frames to libpri, runs libpri's timers and delivers call and status events.
//
//   wait for bytes, or for the earliest timer (at most 100 ms) once the controllers run
//     bytes    -> parser -> information, line status, registers, HDLC errors, frames -> libpri -> event router; a
//                 pause of 1 ms while the card is busy
//     time-out -> due timers -> event router; card down after 1000 ms without data
//     error    -> the same, then a pause of 10 ms
//
// A connection that the peer closed reads nothing for ever: it pauses 10 ms a turn and reports nothing.
// Until the card has its handlers it looks for them every 20 ms, and reports the D-channels that came up before.
//
// Thread: Run is the thread; RequestStop any. After RequestStop no handler is called any more, but for one that is
// running, and of the card only its own socket and controllers are touched: a thread that is stopped late, because it
// was held in a callback, acts for no later generation. Memory that runs out costs the frame or report at hand.
class CControlThread : public IControlSink {
 public:
  CControlThread(std::shared_ptr<CCardCore> sharedCore, std::shared_ptr<CSocket> openSocket, uint32_t generationNumber);

  void Run();
  void RequestStop();

  void OnInformation(const uint8_t (&body)[kCardInformationBytes]) override;
  uint32_t StatusTrunkCount() const override;
  void OnLineStatus(uint32_t trunk, uint8_t status) override;
  void OnRegister(uint8_t trunk, uint16_t registerNumber, uint8_t value) override;
  void OnFrame(uint32_t trunk, const uint8_t* frame, size_t length) override;
  void OnHdlcError(uint8_t trunk, uint8_t code) override;

 private:
  // The earliest timer of a trunk, as it was when its timers had moved so often.
  struct STimers {
    uint32_t moves = 0;
    std::optional<SUnixTime> earliest;
  };

  void Turn();
  EWait Wait(int32_t waitMs);
  void Attend(EWait woken);
  int32_t WaitMs();
  int32_t PriWaitMs();
  void LookForTimer(uint32_t trunk);
  bool IsTimerDue(uint32_t trunk);
  void LookForHandlers();
  void OnWaitError();
  void OnTimeout();
  void OnReadable();
  bool IsBacklogged() const;
  void Gather(uint32_t milliseconds);
  void RunTimers();
  void RunTrunkTimers(uint32_t trunk);
  void CheckSilence();
  void AfterCallback(CTrunk& trunk) ZELK_REQUIRES(trunk.lock);
  bool IsRunning() const { return core->controllersRunning && !stop.IsSet(); }
  template <class Act>
  void Report(Act act);

  const std::shared_ptr<CCardCore> core;
  const std::shared_ptr<CSocket> socket;
  const uint32_t generation;
  CStopFlag stop;
  // The rest belongs to the control thread alone.
  bool hasSeenHandlers = false;
  CControlParser parser;
  std::array<CHdlcErrorRule, kMaxTrunks> hdlcRules;
  std::array<STimers, kMaxTrunks> timers;
  uint32_t lastDataMs = 0;
  uint32_t lastTimersMs = 0;
  std::array<uint8_t, 8000> buffer{};
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cardsim/audio/audio_port.h"
#include "cardsim/audio/recorder.h"
#include "cardsim/exchange/call_plan.h"
#include "common/q931_decode.h"

struct q931_call;

namespace cardsim {

// What a call has been through. Every step is kept: a wait for kConnected is met by a call that has ended since.
enum class ESimCallState {
  kSetup,          // SETUP sent or received
  kSetupAck,       // SETUP ACKNOWLEDGE
  kProceeding,     // CALL PROCEEDING
  kProgress,       // PROGRESS
  kAlerting,       // ALERTING
  kConnected,      // CONNECT, and of a call from the library its CONNECT ACKNOWLEDGE
  kDisconnecting,  // clearing has begun
  kEnded,          // cleared, refused or lost
};

enum class ECallDirection { kToLibrary, kFromLibrary };
// Who cleared the call; kLost: it went with its control connection.
enum class EClearedBy { kNobody, kLibrary, kNetwork, kLost };

struct SCallStep {
  ESimCallState state;
  std::chrono::steady_clock::time_point time;
};

class CCall;

// Job: the trunk's side of the operations that a call offers.
class ICallControl {
 public:
  virtual ~ICallControl() = default;
  virtual void Alert(std::shared_ptr<CCall> call) = 0;
  virtual void Answer(std::shared_ptr<CCall> call) = 0;
  virtual void Progress(std::shared_ptr<CCall> call, int cause) = 0;
  virtual void Hangup(std::shared_ptr<CCall> call, int cause) = 0;
  virtual void SendMessage(std::shared_ptr<CCall> call, std::uint8_t type, Bytes elements) = 0;
};

// Job: one call between the simulated exchange and the library, as a test or program sees it. Thread: any; the
// operations only hand their wish to the signalling thread; waits block and return false on time-out, at once when the
// call has ended without what is waited for. Lives as long as someone holds it; use it while the simulator lives.
class CCall : public std::enable_shared_from_this<CCall> {
 public:
  CCall(ECallDirection callDirection, int cardIndex, int trunkIndex, const IReactor& signallingReactor,
        CAudioPort& audioPort, std::weak_ptr<ICallControl> owner);

  const ECallDirection direction;
  const int card;
  const int trunk;

  int Timeslot() const;  // -1 while none is named
  std::string Calling() const;
  std::string Called() const;
  // Cause of clearing; 0 while not cleared.
  int Cause() const;
  EClearedBy ClearedBy() const;
  std::vector<SCallStep> Steps() const;
  bool Reached(ESimCallState state) const;
  bool WaitState(ESimCallState state, std::chrono::milliseconds timeout) const;
  bool WaitEnded(std::chrono::milliseconds timeout) const { return WaitState(ESimCallState::kEnded, timeout); }

  void Alert();
  void Answer();
  void Progress(int cause = kNoCause);
  void Hangup(int cause = 16);
  // Sends a Q.931 message of this call past libpri: any type, the elements as they stand, well-formed or not.
  void SendMessage(std::uint8_t type, Bytes elements = {});

  // Plays to the library from now on, in the place of what played before. No effect once the call is cleared.
  void Play(AudioSource source);
  void PlayBytes(Bytes samples) { Play(MakeBytesSource(std::move(samples))); }
  // 80 ms digits with 80 ms pauses at -7 dBm0 a tone unless told otherwise.
  void SendDigits(std::string_view digits, int onMs = 80, int offMs = 80, double level = -7);
  // Until what was last given to Play has been sent whole.
  bool WaitPlayed(std::chrono::milliseconds timeout) const;

  // The place among the library's messages for this call, counted from 0, of the first at or behind `from` that is
  // wanted. Nothing on time-out, and when the call has ended without it.
  using Wanted = std::function<bool(const SQ931Message&)>;
  std::optional<std::size_t> WaitMessage(const Wanted& wanted, std::size_t from,
                                         std::chrono::milliseconds timeout) const;
  std::vector<SQ931Message> Messages() const;

  // What the far end heard, and the recorder to wait on.
  Bytes Recorded() const { return recorder->Samples(); }
  const Recorder& Heard() const { return recorder; }

 private:
  friend class CTrunkCalls;

  bool Has(ESimCallState state) const;  // under the lock
  void AddMessage(const SQ931Message& message);
  void Step(ESimCallState state);
  void SetCleared(EClearedBy by, int clearingCause);
  void SetTimeslot(int value);
  void SetNumbers(const std::string& callingNumber, const std::string& calledNumber);

  const IReactor& reactor;
  CAudioPort& audio;
  const std::weak_ptr<ICallControl> control;
  const Recorder recorder;

  // Signalling thread only.
  q931_call* handle = nullptr;
  SFarEnd farEnd;
  bool recording = false;
  bool hungUpHere = false;

  mutable std::mutex lock;
  mutable std::condition_variable changed;
  std::vector<SCallStep> steps;                // guarded by lock
  int timeslot = -1;                           // guarded by lock
  std::string calling;                         // guarded by lock
  std::string called;                          // guarded by lock
  int cause = 0;                               // guarded by lock
  std::vector<SQ931Message> messages;          // guarded by lock; from the library
  EClearedBy clearedBy = EClearedBy::kNobody;  // guarded by lock
  AudioSource source;                          // guarded by lock; what Play was given last
  bool audioOpen = false;                      // guarded by lock; the timeslot is the call's
};

using Call = std::shared_ptr<CCall>;

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "phone/event_queue.h"
#include "phone/line_splitter.h"
#include "phone/recorder_bank.h"
#include "phone/request.h"
#include "phone/speaker.h"

namespace phone {

// All channels under the commands of `serve`: carries out one after another, and tells what happens on the channels.
// Every call that was told of ends with one line, `disconnected` or `lost`, unless it was rejected here.
// Thread: main, while the library runs.
class CServedChannels {
 public:
  CServedChannels(CRecorderBank& recorderBank, ISpeaker& toReport);

  void Take(const SPhoneEvent& event);
  // Carries out a line of input and says what came of it.
  void Execute(const SInputLine& line) { report.Say("result", "", Carry(line)); }
  // Carries it out and gives what came of it: the members of a `result`.
  Json Carry(const SInputLine& line);
  // A call may be placed: no call is there, as far as is known, and the trunk is up.
  bool IsFree(int32_t channel) const {
    const SChannel& each = channels[static_cast<size_t>(channel)];
    return each.phase == EPhase::kIdle && each.isUsable;
  }
  bool IsUsable(int32_t channel) const { return channels[static_cast<size_t>(channel)].isUsable; }
  // Writes what was recorded, and ends calls that the library has ended without an event.
  void Turn();
  // Hangs up everywhere, and refuses what is offered.
  void EndCalls();
  bool HasCalls() const;

 private:
  using Clock = std::chrono::steady_clock;

  enum class EPhase { kIdle, kOffered, kAnswering, kDialling, kConnected, kClearing };
  struct SChannel {
    EPhase phase = EPhase::kIdle;
    Clock::time_point since;  // of the phase
    bool isUsable = false;    // as told last
  };

  static const char* NameOf(EPhase phase);
  SChannel& At(int32_t channel) { return channels[static_cast<size_t>(channel)]; }
  void Enter(int32_t channel, EPhase phase);
  void TakeState(const SPhoneEvent& event);
  void OnPhase(const SPhoneEvent& event);
  void Lose(int32_t channel, UtcTime time);
  void EndCall(int32_t channel);
  void FinishRecording(int32_t channel);

  Json Do(const SRequest& request);
  Json DoOnCall(const SRequest& request, int32_t channel);
  void Dial(const SRequest& request, int32_t channel);
  void Play(int32_t channel, const SRequest& request);
  void Record(int32_t channel, const std::string& file);
  Json StateOf(int32_t channel);

  CRecorderBank& recorders;
  ISpeaker& report;
  std::vector<SChannel> channels;
};

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "world/application.h"
#include "world/checks.h"
#include "world/far_ends.h"
#include "world/fault_driver.h"

namespace world {

// Job: holds what the application sees of a call against what its far end has of it: whose it is, who cleared it and
// why, its sound and its digits both ways. Calls that a fault has touched are left out.
// Thread: tasks of the world, from the callbacks.
class CCallWatch {
 public:
  CCallWatch(zelk::sim::CWorld& ownWorld, const SWorldPlan& worldPlan, CChecks& ownChecks, CApplication& application,
             CFarEnds& ends, const CFaultDriver& faultDriver);
  CCallWatch(const CCallWatch&) = delete;
  CCallWatch& operator=(const CCallWatch&) = delete;

  void ForgetCalls();                                         // the channels are new ones
  void OnBegin(int32_t channel);                              // before it is dialled, or with its offer
  void OnAnswered(int32_t channel);                           // which may have taken a while
  void OnClearing(int32_t channel);                           // before the application clears it
  bool OnConnected(int32_t channel);                          // false: it was already
  void OnPlay(int32_t channel, const cardsim::Bytes& sound);  // before it is queued
  void OnStopPlay(int32_t channel);                           // before it is stopped
  void OnPlayDone(int32_t channel);
  void OnDigit(int32_t channel, int32_t digit);
  void OnDisconnected(const SEvent& event);
  void OnFarEnded(int32_t channel, const SFarCall& far);

  uint64_t ComparedCalls() const { return compared; }
  uint64_t ComparedBytes() const { return comparedBytes; }

 private:
  struct SCall {
    int64_t beganUs = -1;
    int64_t connectedUs = -1;
    int64_t clearingUs = -1;
    int64_t playedUs = -1;
    cardsim::Bytes sound;
    bool isStopped = false;
    bool isBehind = false;
    bool isPlayed = false;
    std::string digits;
  };

  static int64_t StepUs(const SFarCall& far, cardsim::ESimCallState state);
  bool IsTouched(int32_t channel, const SFarCall& far, bool alsoSound) const;
  void CheckParties(int32_t channel);
  void CheckClearing(int32_t channel, const SFarCall& far, int32_t cause);
  void CheckSound(int32_t channel, const SFarCall& far);
  void CheckDigits(int32_t channel, const SFarCall& far, int64_t heardMs);
  // The first bytes of sound, as many as take that long, stand in heard in one piece.
  void Compare(const std::string& what, const cardsim::Bytes& heard, const cardsim::Bytes& sound, int64_t ms);

  zelk::sim::CWorld& world;
  const SWorldPlan& plan;
  CChecks& checks;
  CApplication& app;
  CFarEnds& farEnds;
  const CFaultDriver& faults;
  std::vector<SCall> calls;         // by channel
  std::vector<int64_t> clearedUs;   // by channel: when the application has last cleared whatever call it had
  std::vector<int64_t> answeredUs;  // and answered
  uint64_t compared = 0;
  uint64_t comparedBytes = 0;
};

}  // namespace world

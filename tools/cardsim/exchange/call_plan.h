// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cardsim/audio/audio_source.h"

namespace cardsim {

class CCall;

constexpr int kNoCause = -1;  // a message without a cause element

// When the far end's sound starts and when what it hears is recorded.
enum class EAudioFrom { kSetup, kConnect };

// How the exchange answers a DISCONNECT from the library; ITU-T Q.931 allows all of them.
enum class EClearing {
  kRelease,          // RELEASE, the rule
  kReleaseComplete,  // RELEASE COMPLETE
  kUnknownCall,      // RELEASE COMPLETE with cause 81: it has lost the call
  kStatusNull,       // STATUS of the null state, which means the same (5.8.11)
};

// What the far end sends and keeps during a call, whoever placed it.
struct SFarEnd {
  AudioSource play{};  // may be null: silence. Used up by one call
  EAudioFrom playFrom = EAudioFrom::kConnect;
  EAudioFrom recordFrom = EAudioFrom::kConnect;
  // The far end hangs up this long after the call was connected; never when empty.
  std::optional<std::chrono::milliseconds> hangupAfter{};
  int hangupCause = 16;
  EClearing clearing = EClearing::kRelease;
};

// A call offered to the library.
struct SCallRequest {
  static constexpr int kAutoTimeslot = -2;  // the simulator takes the lowest idle one
  static constexpr int kAnyChannel = -1;    // the SETUP leaves the choice to the library
  int trunk = 0;
  int timeslot = kAutoTimeslot;
  bool exclusive = true;
  std::string calling = "5551000";
  std::string called = "100";
  int numberPlan = 0x21;      // type and plan as libpri takes them: national, ISDN
  std::string redirecting{};  // empty: none
  int redirectingReason = 15;
  // The caller gives up with cause 16 if it is not answered within this time; never when empty.
  std::optional<std::chrono::milliseconds> giveUpAfter{};
  SFarEnd farEnd{};
};

// What becomes of a call that the library places.
struct SAnswerPlan {
  // CALL PROCEEDING at once. Without it a refusal for a cause such as 1 or 44 is a RELEASE COMPLETE, else a DISCONNECT.
  bool proceeding = true;
  std::optional<std::chrono::milliseconds> progressAfter;
  int progressCause = kNoCause;  // carried by that PROGRESS
  std::optional<std::chrono::milliseconds> alertAfter{std::chrono::milliseconds(0)};
  std::optional<std::chrono::milliseconds> answerAfter{std::chrono::milliseconds(0)};  // empty: never answered
  // Set: the call is cleared with this cause after refuseAfter instead of being answered.
  std::optional<int> refuseCause;
  std::chrono::milliseconds refuseAfter{0};
  SFarEnd farEnd;

  static SAnswerPlan Refuse(int cause) {
    SAnswerPlan plan;
    plan.alertAfter.reset();
    plan.answerAfter.reset();
    plan.refuseCause = cause;
    return plan;
  }
  static SAnswerPlan NeverAnswer() {
    SAnswerPlan plan;
    plan.answerAfter.reset();
    return plan;
  }
};

// Called on the signalling thread for each call the library places; must not block.
using AnswerPlanner = std::function<SAnswerPlan(const CCall&)>;

}  // namespace cardsim

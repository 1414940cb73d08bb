// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string>

#include "phone/json_line.h"

namespace fleet {

// What the claim of an attempt says. Only the process that made it writes it again.
enum class EClaimState {
  kHeld,   // its process may have dialled
  kFree,   // its process gave it back: it has not dialled, and never will under this claim
  kEnded,  // the call is over, and another one is wanted
};

struct SClaim {
  std::string node;
  std::string boot;   // of the process: another one after each start
  std::string token;  // of the taking of the job
  EClaimState state = EClaimState::kHeld;
};

phone::Json JsonOf(const SClaim& claim);
// Throws std::invalid_argument.
SClaim ParseClaim(const std::string& text);

// What is known of the process that holds a claim.
enum class EHolder { kAlive, kGone, kUnknown };

// What a process does with a job whose attempt is claimed already.
enum class EVerdict {
  kMine,      // an answer of the server was lost, the claim is this one's: dial
  kTakeOver,  // write the claim anew, on condition that nobody else has since
  kNext,      // claim the next attempt
  kHostLost,  // no attempt is left: the result is "host lost in the call"
  kWait,      // its holder lives, or this process cannot know: the job is to come again later
};

EVerdict Judge(const SClaim& claim, const SClaim& own, EHolder holder, bool hasMoreAttempts);

}  // namespace fleet

// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/claim.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace fleet {

namespace {

using phone::Json;

constexpr std::array<const char*, 3> kStates{"held", "free", "ended"};

}  // namespace

Json JsonOf(const SClaim& claim) {
  return {{"node", claim.node},
          {"boot", claim.boot},
          {"token", claim.token},
          {"state", kStates[static_cast<size_t>(claim.state)]}};
}

SClaim ParseClaim(const std::string& text) {
  const Json object = Json::parse(text, nullptr, false);
  try {
    const auto state = std::find(kStates.begin(), kStates.end(), object.at("state").get<std::string>());
    if (state != kStates.end()) {
      return {object.at("node"), object.at("boot"), object.at("token"),
              static_cast<EClaimState>(state - kStates.begin())};
    }
  } catch (const Json::exception&) {  // told below
  }
  throw std::invalid_argument("a claim that cannot be read: " + text);
}

EVerdict Judge(const SClaim& claim, const SClaim& own, EHolder holder, bool hasMoreAttempts) {
  if (claim.state == EClaimState::kFree) {
    return EVerdict::kTakeOver;
  }
  if (claim.state == EClaimState::kEnded) {
    return hasMoreAttempts ? EVerdict::kNext : EVerdict::kHostLost;
  }
  if (claim.boot == own.boot) {
    // A process has a job once at a time: under an earlier token of its own nothing was dialled, or there was a result.
    return claim.token == own.token ? EVerdict::kMine : EVerdict::kTakeOver;
  }
  if (holder != EHolder::kGone) {
    return EVerdict::kWait;
  }
  return hasMoreAttempts ? EVerdict::kNext : EVerdict::kHostLost;
}

}  // namespace fleet

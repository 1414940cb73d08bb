// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <memory>
#include <string>

#include "fleet/claim.h"
#include "fleet/job.h"
#include "node/asks.h"

namespace node {

enum class EStep {
  kClaiming,  // nothing was dialled
  kCalling,   // the SETUP has left, or is about to
  kStoring,   // the call is over, its result is not surely stored
};

// A job in the hands of this host.
struct SWork {
  fleet::SJob job;
  std::string ackTo;  // where its delivery, the latest one, is acknowledged
  EStep step = EStep::kClaiming;
  int attempt = 1;
  fleet::SClaim claim;
  uint64_t revision = 0;       // of the claim
  int32_t channel = -1;        // reserved for it, while nothing is over
  Clock::time_point nextSign;  // of life, to the server
  Clock::time_point giveUpAt;  // not connected by then
  Clock::time_point digitsBy;  // what is still to be heard
  bool isConnected = false;
  bool gaveUp = false;
  bool waitsForDigits = false;
  std::string digits;
  std::string sound;  // the file that is played
  std::string recording;
  std::string trouble;  // what could not be done in the call
  phone::Json times = phone::Json::object();
};

using Work = std::shared_ptr<SWork>;

}  // namespace node

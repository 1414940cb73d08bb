// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "fleet/link.h"
#include "fleet/names.h"

namespace fleet {

// Reads results in their order. Each is asked for by its number, many at a time, and again where no answer comes: a
// server that goes away takes nothing with it. Thread: one. Failures throw CLinkError.
class CResultReader {
 public:
  CResultReader(CLink& toLink, const SLinkOptions& options, const SNames& fleetNames);
  ~CResultReader() { natsSubscription_Destroy(answers); }
  CResultReader(const CResultReader&) = delete;
  CResultReader& operator=(const CResultReader&) = delete;

  // Hands on those that have come since the last time.
  void ReadNew(const std::function<void(const std::string& result)>& take);

 private:
  using Clock = std::chrono::steady_clock;

  // The last number in the stream; those before the first one are past.
  uint64_t LastNumber();
  void Ask(uint64_t number);
  void AskAgain();
  void TakeAnswer();

  CLink& link;
  const SNames& names;
  const std::string inbox;
  natsSubscription* answers = nullptr;
  uint64_t next = 1;                           // to be handed on
  std::map<uint64_t, Clock::time_point> open;  // asked for, with the time at which to ask again
  std::map<uint64_t, std::string> come;
  Clock::time_point lastAnswer;
};

}  // namespace fleet

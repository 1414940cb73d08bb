// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fleet/names.h"
#include "node/asks.h"
#include "phone/json_line.h"
#include "zelk/ZelkApi.h"

namespace node {

struct SIncomingOptions {
  std::string node;
  std::chrono::milliseconds within{2000};  // for a worker's answer
  std::string byDefault = "reject";        // or "answer", or the name of a sound
};

// Asks the workers of the fleet what to do with a call that is offered: one of them gets the question, and its first
// answer counts. Without one in time the host does what it was told at its start. Thread: the node's.
class CIncoming {
 public:
  using Carry = std::function<void(const phone::Json& command)>;

  CIncoming(const SIncomingOptions& incomingOptions, CAsks& toAsks, const fleet::SNames& fleetNames, Carry toCarry)
      : options(incomingOptions), asks(toAsks), names(fleetNames), carry(std::move(toCarry)) {}

  // What was said of a channel.
  void Hear(const char* type, const phone::Json& fields, phone::UtcTime time);
  uint64_t Answered() const { return answered; }
  uint64_t Defaulted() const { return defaulted; }

 private:
  void Decide(int32_t channel, const SReply& reply);
  bool Follow(int32_t channel, const phone::Json& wish);
  void Do(int32_t channel, const char* what);

  const SIncomingOptions options;
  CAsks& asks;
  const fleet::SNames& names;
  const Carry carry;
  std::vector<uint64_t> calls = std::vector<uint64_t>(ZELK_MAX_CHANNELS);         // that were offered on each channel
  std::vector<std::string> sounds = std::vector<std::string>(ZELK_MAX_CHANNELS);  // to be played once connected
  uint64_t answered = 0;
  uint64_t defaulted = 0;
};

}  // namespace node

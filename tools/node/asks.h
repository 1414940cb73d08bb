// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include "fleet/link.h"

namespace node {

using Clock = std::chrono::steady_clock;

// What came back; not there when nothing did in time, or the server said that nobody listens.
struct SReply {
  bool isThere = false;
  std::string data;
};

// Requests to the fleet without waiting for one another, and things to be done later. Each handler runs exactly once,
// on the node's thread, inside Take or Turn. Thread: the node's.
class CAsks {
 public:
  using Handler = std::function<void(const SReply&)>;

  CAsks(fleet::CLink& toLink, std::string answersAt) : link(toLink), inbox(std::move(answersAt)) {}

  // While no server is there the question is not asked: its answer is that none came.
  void Ask(const std::string& subject, const std::string& data, Handler handler, const fleet::Headers& headers = {},
           std::chrono::milliseconds limit = kLimit);
  void After(std::chrono::milliseconds time, std::function<void()> what);

  void Take(const fleet::SMail& mail);
  void Turn(Clock::time_point now);

 private:
  static constexpr std::chrono::milliseconds kLimit{2000};

  struct SOpen {
    Handler handler;
    Clock::time_point deadline;
  };

  void Answer(uint64_t number, const SReply& reply);

  fleet::CLink& link;
  const std::string inbox;
  uint64_t last = 0;
  std::unordered_map<uint64_t, SOpen> open;
};

}  // namespace node

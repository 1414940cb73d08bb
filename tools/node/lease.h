// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "fleet/names.h"
#include "node/asks.h"
#include "phone/json_line.h"

namespace node {

// This host's entry in the bucket of hosts, which vanishes by itself when it is not written anew. While it surely
// stands the host may dial: another one that does not find it takes this one for dead. Also learns how far this
// computer's clock is from the servers'. Thread: the node's.
class CLease {
 public:
  CLease(CAsks& toAsks, const fleet::SNames& fleetNames, std::string nodeName, std::chrono::milliseconds timeToLive,
         std::function<phone::Json()> describe);

  void Turn(Clock::time_point now);
  // A server is there again: writes the entry at once.
  void Renew() { next = Clock::time_point(); }
  void Remove(fleet::CLink& link);

  // Not before the servers' clock is known: the first jobs have their times too.
  bool IsHeld(Clock::time_point now) const { return knowsClock && now < heldUntil; }
  // Entries of other hosts that live are there: they had the time to write them since the servers were away.
  bool SeesOthers(Clock::time_point now) const { return IsHeld(now) && now - heldSince >= life; }
  std::chrono::milliseconds Life() const { return life; }
  // The time by the servers' clock.
  phone::UtcTime ServerTime(phone::UtcTime here) const { return here + offset; }
  phone::UtcTime ServerNow() const { return ServerTime(std::chrono::system_clock::now()); }

 private:
  void Write(Clock::time_point now);
  void ReadClock(Clock::time_point now, phone::UtcTime written);

  CAsks& asks;
  const fleet::SNames& names;
  const std::string node;
  const std::chrono::milliseconds life;
  const std::function<phone::Json()> entry;
  Clock::time_point next;
  Clock::time_point nextClock;
  Clock::time_point heldSince;
  Clock::time_point heldUntil;
  std::chrono::milliseconds offset{0};
  bool knowsClock = false;
};

}  // namespace node

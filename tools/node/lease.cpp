// SPDX-License-Identifier: GPL-2.0-only
#include "node/lease.h"

#include "node/replies.h"

namespace node {

namespace {

constexpr std::chrono::seconds kClockEvery{30};

}  // namespace

CLease::CLease(CAsks& toAsks, const fleet::SNames& fleetNames, std::string nodeName,
               std::chrono::milliseconds timeToLive, std::function<phone::Json()> describe)
    : asks(toAsks), names(fleetNames), node(std::move(nodeName)), life(timeToLive), entry(std::move(describe)) {}

void CLease::Turn(Clock::time_point now) {
  if (now >= next) {
    next = now + life / 4;
    Write(now);
  }
}

void CLease::Write(Clock::time_point now) {
  const phone::UtcTime written = std::chrono::system_clock::now();
  asks.Ask(names.NodeKey(node), entry().dump(), [this, now, written](const SReply& reply) {
    if (StoredOf(reply).kind != SStored::EKind::kStored) {
      return;
    }
    if (heldUntil < now) {
      heldSince = now;
    }
    // The server counts from when it had the entry, which was later; what is left out is for clocks that run apart.
    heldUntil = std::max(heldUntil, now + life * 7 / 10);
    if (now >= nextClock) {
      ReadClock(now, written);
    }
  });
}

void CLease::ReadClock(Clock::time_point now, phone::UtcTime written) {
  const phone::UtcTime stored = std::chrono::system_clock::now();
  asks.Ask(GetSubject("KV_" + names.nodes), LastOfSubject(names.NodeKey(node)),
           [this, now, written, stored](const SReply& reply) {
             const SFound found = FoundOf(reply);
             if (found.kind == SFound::EKind::kThere) {
               nextClock = now + kClockEvery;
               knowsClock = true;
               const phone::UtcTime middle = written + (stored - written) / 2;
               offset = std::chrono::duration_cast<std::chrono::milliseconds>(found.time - middle);
             }
           });
}

void CLease::Remove(fleet::CLink& link) {
  link.Publish(names.NodeKey(node), "", "", {{"KV-Operation", "DEL"}});
}

}  // namespace node

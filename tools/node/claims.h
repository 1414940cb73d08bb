// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <functional>

#include "fleet/names.h"
#include "node/lease.h"
#include "node/replies.h"
#include "node/work.h"

namespace node {

// What became of the wish to dial.
enum class EClaimed {
  kHeld,       // the attempt is this host's alone: dial
  kHasResult,  // the job is done: acknowledge it
  kHostLost,   // its host died in the call, and no attempt is left
  kLater,      // not now: give the job back
};

// Takes the attempts of jobs, one host each: the key of an attempt is created in the bucket of claims, which the server
// does once only. Each way of losing an answer ends in a state that docs/fleet.md names. Thread: the node's.
class CClaims {
 public:
  using Done = std::function<void(EClaimed)>;

  CClaims(CAsks& toAsks, const fleet::SNames& fleetNames, const CLease& hostLease)
      : asks(toAsks), names(fleetNames), lease(hostLease) {}

  // The first attempt that nobody has; work.attempt and work.revision are set.
  void Acquire(const Work& work, const Done& done) { Create(work, fleet::EClaimState::kHeld, done); }
  // Writes what became of the claim that this host holds, until the server has it.
  void Update(const Work& work, fleet::EClaimState state, const std::function<void()>& done);

 private:
  void Create(const Work& work, fleet::EClaimState state, const Done& done);
  void Created(const Work& work, fleet::EClaimState state, const SStored& stored, const Done& done);
  void LookForResult(const Work& work, const Done& done);
  void LookAtClaim(const Work& work, const Done& done);
  void LookForHolder(const Work& work, const SFound& found, const fleet::SClaim& claim, const Done& done);
  void Decide(const Work& work, const SFound& found, const fleet::SClaim& claim, fleet::EHolder holder,
              const Done& done);
  void TakeOver(const Work& work, uint64_t revision, const Done& done);
  void Hold(const Work& work, uint64_t revision, const Done& done);
  std::string Text(const Work& work, fleet::EClaimState state) const;
  bool MayDial() const { return lease.IsHeld(Clock::now()); }

  CAsks& asks;
  const fleet::SNames& names;
  const CLease& lease;
};

}  // namespace node

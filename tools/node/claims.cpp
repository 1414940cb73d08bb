// SPDX-License-Identifier: GPL-2.0-only
#include "node/claims.h"

#include <stdexcept>

namespace node {

namespace {

using fleet::EClaimState;
using fleet::EHolder;
using fleet::EVerdict;
using fleet::SClaim;

constexpr std::chrono::milliseconds kPause{300};
constexpr const char* kExpected = "Nats-Expected-Last-Subject-Sequence";

}  // namespace

std::string CClaims::Text(const Work& work, EClaimState state) const {
  SClaim claim = work->claim;
  claim.state = state;
  return fleet::JsonOf(claim).dump();
}

void CClaims::Create(const Work& work, EClaimState state, const Done& done) {
  if (state == EClaimState::kHeld && !MayDial()) {
    done(EClaimed::kLater);
    return;
  }
  asks.Ask(names.ClaimKey(work->job.id, work->attempt), Text(work, state),
           [this, work, state, done](const SReply& reply) { Created(work, state, StoredOf(reply), done); },
           {{kExpected, "0"}});
}

void CClaims::Created(const Work& work, EClaimState state, const SStored& stored, const Done& done) {
  if (stored.kind == SStored::EKind::kStored) {
    if (state == EClaimState::kFree) {
      done(EClaimed::kLater);
    } else {
      Hold(work, stored.sequence, done);
    }
  } else if (stored.kind == SStored::EKind::kRefused) {
    LookForResult(work, done);
  } else {
    // It may be there all the same, or come to be: only a key that stands keeps a late one out.
    asks.After(kPause, [this, work, done] { Create(work, MayDial() ? EClaimState::kHeld : EClaimState::kFree, done); });
  }
}

void CClaims::Hold(const Work& work, uint64_t revision, const Done& done) {
  work->revision = revision;
  if (MayDial()) {
    done(EClaimed::kHeld);
  } else {
    Update(work, EClaimState::kFree, [done] { done(EClaimed::kLater); });
  }
}

void CClaims::LookForResult(const Work& work, const Done& done) {
  asks.Ask(GetSubject(names.results), LastOfSubject(names.Result(work->job.id)),
           [this, work, done](const SReply& reply) {
             const SFound found = FoundOf(reply);
             if (found.kind == SFound::EKind::kThere) {
               done(EClaimed::kHasResult);
             } else if (found.kind == SFound::EKind::kMissing) {
               LookAtClaim(work, done);
             } else {
               asks.After(kPause, [this, work, done] { LookForResult(work, done); });
             }
           });
}

void CClaims::LookAtClaim(const Work& work, const Done& done) {
  asks.Ask(GetSubject("KV_" + names.claims), LastOfSubject(names.ClaimKey(work->job.id, work->attempt)),
           [this, work, done](const SReply& reply) {
             const SFound found = FoundOf(reply);
             if (found.kind != SFound::EKind::kThere) {
               asks.After(kPause, [this, work, done] { LookForResult(work, done); });
               return;
             }
             try {
               const SClaim claim = fleet::ParseClaim(found.data);
               const bool isOthers = claim.state == EClaimState::kHeld && claim.token != work->claim.token;
               if (isOthers && claim.boot != work->claim.boot) {
                 LookForHolder(work, found, claim, done);
               } else {
                 Decide(work, found, claim, EHolder::kAlive, done);
               }
             } catch (const std::invalid_argument&) {
               done(EClaimed::kLater);
             }
           });
}

void CClaims::LookForHolder(const Work& work, const SFound& found, const SClaim& claim, const Done& done) {
  asks.Ask(GetSubject("KV_" + names.nodes), LastOfSubject(names.NodeKey(claim.node)),
           [this, work, found, claim, done](const SReply& reply) {
             const SFound entry = FoundOf(reply);
             EHolder holder = EHolder::kUnknown;
             const phone::Json object = phone::Json::parse(entry.data, nullptr, false);
             const std::string boot = object.is_object() ? object.value("boot", std::string()) : "";
             if (entry.kind == SFound::EKind::kThere && !boot.empty()) {
               holder = boot == claim.boot ? EHolder::kAlive : EHolder::kGone;
             } else if (entry.kind != SFound::EKind::kFailed && lease.SeesOthers(Clock::now())) {
               holder = EHolder::kGone;
             }
             Decide(work, found, claim, holder, done);
           });
}

void CClaims::Decide(const Work& work, const SFound& found, const SClaim& claim, EHolder holder, const Done& done) {
  switch (fleet::Judge(claim, work->claim, holder, work->attempt < work->job.attempts)) {
    case EVerdict::kMine:
      Hold(work, found.sequence, done);
      break;
    case EVerdict::kTakeOver:
      TakeOver(work, found.sequence, done);
      break;
    case EVerdict::kNext:
      ++work->attempt;
      Create(work, EClaimState::kHeld, done);
      break;
    case EVerdict::kHostLost:
      done(EClaimed::kHostLost);
      break;
    case EVerdict::kWait:
      done(EClaimed::kLater);
      break;
  }
}

void CClaims::TakeOver(const Work& work, uint64_t revision, const Done& done) {
  if (!MayDial()) {
    done(EClaimed::kLater);
    return;
  }
  asks.Ask(names.ClaimKey(work->job.id, work->attempt), Text(work, EClaimState::kHeld),
           [this, work, done](const SReply& reply) {
             const SStored stored = StoredOf(reply);
             if (stored.kind == SStored::EKind::kStored) {
               Hold(work, stored.sequence, done);
             } else {
               asks.After(kPause, [this, work, done] { LookForResult(work, done); });
             }
           },
           {{kExpected, std::to_string(revision)}});
}

void CClaims::Update(const Work& work, EClaimState state, const std::function<void()>& done) {
  asks.Ask(names.ClaimKey(work->job.id, work->attempt), Text(work, state),
           [this, work, state, done](const SReply& reply) {
             // Refused: it was written, and the answer was lost.
             if (StoredOf(reply).kind != SStored::EKind::kFailed) {
               done();
             } else {
               asks.After(kPause, [this, work, state, done] { Update(work, state, done); });
             }
           },
           {{kExpected, std::to_string(work->revision)}});
}

}  // namespace node

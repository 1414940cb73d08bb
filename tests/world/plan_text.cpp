// SPDX-License-Identifier: GPL-2.0-only
#include <sstream>

#include "world/plan.h"

namespace world {
namespace {

constexpr const char* kFaultNames[kFaultKinds] = {
    "control dropped", "control reset", "silence",      "announcements", "line down",    "frames lost",
    "layer 2 down",    "slow exchange", "restart slot", "restart all",   "odd message",  "HDLC",
    "audio stops",     "audio pause",   "audio bad",    "torn control",  "sequence jump"};
constexpr const char* kStepNames[kStepKinds] = {"dial", "answer",    "reject",    "hangup", "hangup twice",
                                                "play", "stop play", "read info", "open"};
constexpr const char* kMomentNames[kMoments] = {"no callback",   "channel state", "disconnected",
                                                "incoming call", "play done",     "block"};
constexpr const char* kReactionNames[] = {"no", "at once", "later"};

void Write(std::ostream& out, const char* name, const std::optional<int64_t>& ms) {
  if (ms) {
    out << ' ' << name << ' ' << *ms;
  }
}

void Write(std::ostream& out, const SFarEndPlan& farEnd) {
  out << " alerts " << farEnd.alertAfterMs;
  Write(out, "answers", farEnd.answerAfterMs);
  Write(out, "gives up", farEnd.giveUpAfterMs);
  Write(out, "hangs up", farEnd.hangupAfterMs);
  if (farEnd.refuseCause) {
    out << " refuses with " << *farEnd.refuseCause;
  }
  out << " cause " << farEnd.hangupCause << " clearing " << farEnd.clearing << (farEnd.sendsDigits ? " digits" : "");
}

const char* NameOf(EReaction reaction) {
  return kReactionNames[static_cast<size_t>(reaction)];
}

}  // namespace

std::string ToText(const SWorldPlan& plan) {
  std::ostringstream out;
  out << "seed " << plan.seed << " policy " << plan.policy << " switches " << plan.switchPerMillion << " length "
      << plan.lengthMs << " ms, threads " << plan.threads << (plan.isNetworkSide ? ", network side" : "") << '\n';
  for (const SCardPlan& card : plan.cards) {
    out << "card of " << card.trunks << " trunks\n";
  }
  for (const SManner& manner : plan.manners) {
    out << "manner: answers " << NameOf(manner.answers) << ", rejects " << NameOf(manner.rejects) << ", hangs up "
        << NameOf(manner.hangsUp) << ", dials again " << NameOf(manner.dialsAgain) << (manner.plays ? ", plays" : "")
        << (manner.stopsInCallback ? ", stops" : "") << ", later " << manner.laterMs << " ms, callbacks "
        << manner.callbackMs << " ms\n";
  }
  for (const SFault& fault : plan.faults) {
    out << "fault " << fault.atMs << " " << kFaultNames[static_cast<size_t>(fault.kind)] << ", card " << fault.card
        << " trunk " << fault.trunk << ", " << fault.lengthMs << " ms, amount " << fault.amount << '\n';
  }
  for (const SOffer& offer : plan.offers) {
    out << "offer " << offer.atMs << " card " << offer.card << " trunk " << offer.trunk << " timeslot "
        << offer.timeslot;
    Write(out, offer.farEnd);
    out << '\n';
  }
  for (const SStep& step : plan.steps) {
    out << "step " << step.atMs << " thread " << step.thread << " " << kStepNames[static_cast<size_t>(step.what)]
        << " channel " << step.channel;
    Write(out, step.farEnd);
    out << '\n';
  }
  for (const SLifeEnd& end : plan.lives) {
    out << "shut-down after " << end.afterMs << " ms, " << kMomentNames[static_cast<size_t>(end.moment)] << " of "
        << end.callbackMs << " ms" << (end.isUnderLock ? ", under a lock" : "")
        << (end.callsEverything ? ", calls everything" : "") << ", start after " << end.downMs << " ms\n";
  }
  out << plan.stopTrials << " stop trials" << (plan.watchesLog ? ", the log is watched" : "") << '\n';
  return out.str();
}

}  // namespace world

// SPDX-License-Identifier: GPL-2.0-only
#include "world/call_grammar.h"

#include <algorithm>
#include <vector>

#include "zelk/ZelkApi.h"

namespace world {
namespace {

uint8_t Bit(size_t ticket) {
  return static_cast<uint8_t>(1U << ticket);
}

}  // namespace

template <class Visit>
void CCallGrammar::AnswerOutcomes(EPhase phase, Visit visit) const {
  // An empty channel of the network side counts as connected, and a call that is dialled on it so from its beginning.
  const bool mayBeFromEmpty = isNetworkSide && phase == EPhase::kDialled;
  if (phase == EPhase::kConnected || phase == EPhase::kClearing || phase == EPhase::kEmpty || mayBeFromEmpty) {
    visit(phase, true);
  }
  if (phase != EPhase::kConnected && !IsFree(phase)) {
    visit(isNetworkSide ? EPhase::kConnected : EPhase::kAnswered, true);
  }
  if (phase != EPhase::kConnected) {
    visit(isNetworkSide ? EPhase::kEmpty : IsFree(phase) ? phase : EPhase::kGivenUp, true);  // the call was gone
  }
}

// What an export may find and do: visit(phase afterwards, result).
template <class Visit>
void CCallGrammar::Outcomes(EPhase phase, EAction action, Visit visit) const {
  switch (action) {
    case EAction::kDial:
      visit(phase, false);
      if (IsFree(phase)) {
        visit(EPhase::kDialled, true);
      }
      return;
    case EAction::kAnswer:
      return AnswerOutcomes(phase, visit);
    case EAction::kHangup:
      visit(IsFree(phase) ? phase : EPhase::kClearing, true);
      return;
    case EAction::kReject:
      if (phase == EPhase::kConnected || phase == EPhase::kClearing || isNetworkSide) {
        visit(phase, true);
      }
      if (phase != EPhase::kConnected) {
        visit(IsFree(phase) ? phase : EPhase::kGivenUp, false);
      }
  }
}

CCallGrammar::SPossible CCallGrammar::Moved(SPossible one, EPhase phase) {
  const bool isDialReplaced = one.phase == EPhase::kDialled && phase == EPhase::kOffered;
  const bool isReplaced =
      isDialReplaced || (one.phase == EPhase::kGivenUp && phase != EPhase::kGivenUp && phase != EPhase::kFree);
  one.stray = std::min(static_cast<uint8_t>(one.stray + (isReplaced ? 1 : 0)), kMostStrays);
  one.hasStrayDial = one.hasStrayDial || isDialReplaced;
  one.phase = phase;
  return one;
}

CCallGrammar::SPossible CCallGrammar::Down(SPossible one) {
  one.stray = std::min(static_cast<uint8_t>(one.stray + (one.phase == EPhase::kGivenUp ? 1 : 0)), kMostStrays);
  one.phase = EPhase::kFree;
  return one;
}

void CCallGrammar::AfterDisconnected(SPossible one, std::set<SPossible>& left) const {
  if (one.phase != EPhase::kFree) {
    left.insert(Moved(one, EPhase::kFree));
  }
  if (one.stray > 0 && IsFree(one.phase)) {
    --one.stray;
    one.hasStrayDial = one.hasStrayDial && one.stray > 0;
    left.insert(one);
  }
}

// What there may be after an event.
void CCallGrammar::After(const SPossible& one, uint32_t code, int32_t param, std::set<SPossible>& left) const {
  const EPhase phase = one.phase;
  const auto visit = [&](EPhase to) { left.insert(Moved(one, to)); };
  switch (code) {
    case ZELK_EVENT_INCOMING_CALL:
      // A call of ours that the network has not heard of gives way; one that is cleared may have left the network.
      if (IsFree(phase) || phase == EPhase::kDialled || phase == EPhase::kClearing || isForgetful) {
        visit(EPhase::kOffered);
      }
      return;
    case ZELK_EVENT_PROCEEDING:
    case ZELK_EVENT_ALERTING:
    case ZELK_EVENT_PROGRESS:
      if (phase == EPhase::kDialled || phase == EPhase::kClearing || one.hasStrayDial) {
        visit(phase);
      }
      return;
    case ZELK_EVENT_CONNECTED:
      if (phase == EPhase::kClearing || isNetworkSide) {
        visit(phase);
      }
      if (phase == EPhase::kDialled || phase == EPhase::kAnswered || (one.hasStrayDial && !IsFree(phase))) {
        visit(EPhase::kConnected);
      } else if (one.hasStrayDial) {
        visit(EPhase::kEmpty);
      }
      return;
    case ZELK_EVENT_DISCONNECTED:
      return AfterDisconnected(one, left);
    case ZELK_EVENT_CHANNEL_STATE:
      // A call that goes with its trunk brings nothing more; one that was given up before may.
      left.insert(param == 0 ? Down(one) : one);
      return;
    default:
      left.insert(one);
  }
}

// Everything that may have taken effect by now.
void CCallGrammar::Close() {
  std::vector<SPossible> open(possible.begin(), possible.end());
  while (!open.empty()) {
    const SPossible from = open.back();
    open.pop_back();
    for (size_t ticket = 0; ticket < tickets.size(); ++ticket) {
      if (!tickets[ticket].isUsed || (from.done & Bit(ticket)) != 0) {
        continue;
      }
      Outcomes(from.phase, tickets[ticket].action, [&](EPhase phase, bool result) {
        SPossible to = Moved(from, phase);
        to.done = static_cast<uint8_t>(from.done | Bit(ticket));
        to.results = static_cast<uint8_t>(result ? from.results | Bit(ticket) : from.results);
        if (possible.insert(to).second) {
          open.push_back(to);
        }
      });
    }
  }
}

int CCallGrammar::Begin(EAction action) {
  const auto ticket = std::find_if(tickets.begin(), tickets.end(), [](const STicket& one) { return !one.isUsed; });
  if (ticket == tickets.end()) {
    return -1;
  }
  *ticket = {true, action};
  Close();
  return static_cast<int>(ticket - tickets.begin());
}

std::string CCallGrammar::Return(int ticket, bool result) {
  if (ticket < 0) {
    return {};
  }
  const auto index = static_cast<size_t>(ticket);
  const std::string before = Describe();
  std::set<SPossible> left;
  for (SPossible one : possible) {
    if ((one.done & Bit(index)) != 0 && ((one.results & Bit(index)) != 0) == result) {
      one.done = static_cast<uint8_t>(one.done & ~Bit(index));
      one.results = static_cast<uint8_t>(one.results & ~Bit(index));
      left.insert(one);
    }
  }
  tickets[index].isUsed = false;
  if (left.empty()) {
    possible = {SPossible{}};
    Close();
    return isOdd ? std::string() : std::string("returned ") + (result ? "true" : "false") + " where " + before;
  }
  possible = std::move(left);
  Close();
  return {};
}

std::string CCallGrammar::Event(uint32_t code, int32_t param) {
  const std::string before = Describe();
  std::set<SPossible> left;
  for (const SPossible& one : possible) {
    After(one, code, param, left);
  }
  if (left.empty()) {
    const EPhase phase = code == ZELK_EVENT_INCOMING_CALL ? EPhase::kOffered
                         : code == ZELK_EVENT_CONNECTED   ? EPhase::kConnected
                                                          : EPhase::kFree;
    possible = {SPossible{phase}};
    Close();
    return isOdd ? std::string() : "came where " + before;
  }
  possible = std::move(left);
  Close();
  isOdd = isOdd && !IsFree();
  return {};
}

bool CCallGrammar::IsFree() const {
  return std::all_of(possible.begin(), possible.end(), [](const SPossible& one) { return IsFree(one.phase); });
}

std::string CCallGrammar::Describe() const {
  static constexpr const char* kNames[] = {"free",     "given up", "empty",     "offered",
                                           "answered", "dialled",  "connected", "clearing"};
  std::string text = "the call may be";
  for (const SPossible& one : possible) {
    const std::string name = kNames[static_cast<size_t>(one.phase)];
    if (text.find(name) == std::string::npos) {
      text += " " + name;
    }
  }
  return text;
}

}  // namespace world

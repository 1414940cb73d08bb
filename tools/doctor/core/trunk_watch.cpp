// SPDX-License-Identifier: GPL-2.0-only
#include "doctor/core/trunk_watch.h"

#include <fmt/format.h>

#include <algorithm>

namespace doctor {
namespace {

using tool::EFrameKind;
using trace::EDirection;

// Of ITU-T Q.931.
constexpr std::uint8_t kSetup = 0x05;
constexpr std::uint8_t kDisconnect = 0x45;
constexpr std::uint8_t kRestart = 0x46;
constexpr std::uint8_t kRelease = 0x4D;
constexpr std::uint8_t kReleaseComplete = 0x5A;
constexpr std::uint8_t kStatus = 0x7D;
constexpr std::uint8_t kCauseElement = 0x08;

constexpr int kErrorsOfReset = 10;
constexpr std::size_t kMostTimes = 10'000;
constexpr Time kSettled = 5 * trace::kSecond;  // both sides may begin the link, one after the other
constexpr Time kStormTime = 60 * trace::kSecond;
constexpr std::size_t kOrdinaryRestarts = 2;
constexpr Time kHeldConnected = 3600 * trace::kSecond;
constexpr Time kHeldOtherwise = 180 * trace::kSecond;

// What stands behind the cause: of ITU-T Q.850, in hexadecimal.
std::string DiagnosticsOf(const tool::SQ931Message& message) {
  const tool::SInformationElement* cause = message.Find(kCauseElement);
  std::string text;
  if (cause == nullptr || cause->content.empty()) {
    return text;
  }
  const std::size_t first = (cause->content[0] & 0x80U) != 0 ? 2 : 3;
  for (std::size_t i = first; i < cause->content.size(); ++i) {
    text += fmt::format("{}{:02X}", text.empty() ? "" : " ", cause->content[i]);
  }
  return text;
}

void TakeCause(Causes& causes, const tool::SQ931Message& message, const SMark& mark) {
  SCauseFacts& cause = causes[message.Cause()];
  cause.tally.Add(mark);
  if (const std::string diagnostics = DiagnosticsOf(message); !diagnostics.empty()) {
    cause.diagnostics.insert(diagnostics);
  }
}

bool IsClearing(std::uint8_t type) {
  return type == kDisconnect || type == kRelease || type == kReleaseComplete;
}

}  // namespace

void CTrunkWatch::OnStatus(std::uint8_t status, const SMark& mark) {
  if (facts.status != status) {
    facts.statusSince = mark;
  }
  if (status != 0 && facts.status == 0) {
    facts.outages.Add(mark);
  }
  facts.status = status;
}

// Of a line out of service they say nothing.
void CTrunkWatch::OnHdlcError(int code, const SMark& mark) {
  if (facts.status.value_or(0) != 0) {
    errorsInARow = 0;
    return;
  }
  facts.hdlcErrors[code].Add(mark);
  if (facts.hdlcTimes.size() < kMostTimes) {
    facts.hdlcTimes.push_back(mark.time);
  }
  if (++errorsInARow == kErrorsOfReset) {
    facts.hdlcResets.Add(mark);
  }
}

void CTrunkWatch::OnFrame(const trace::SControl& frame, const tool::SQ921Frame& decoded, trace::EVerdict verdict) {
  const bool isFromLine = frame.direction == EDirection::kToLibrary;
  const SMark mark{frame.time, frame.packet, file};
  if (verdict == trace::EVerdict::kBroken) {
    return;
  }
  errorsInARow = isFromLine ? 0 : errorsInARow;
  ++(isFromLine ? facts.framesFromLine : facts.framesFromLibrary);
  OnLink(isFromLine, decoded, mark);
  if (verdict != trace::EVerdict::kNew) {
    return;
  }
  if (decoded.message.type == kStatus) {
    TakeCause(isFromLine ? facts.statusFromLine : facts.statusFromLibrary, decoded.message, mark);
  } else if (decoded.message.type == kRestart) {
    OnRestart(decoded.message, mark);
  }
}

void CTrunkWatch::OnLink(bool isFromLine, const tool::SQ921Frame& decoded, const SMark& mark) {
  switch (decoded.kind) {
    case EFrameKind::kSabme:
      (isFromLine ? facts.sabmeFromLine : facts.sabmeFromLibrary).Add(mark);
      // A network's commands have the bit set.
      (isFromLine ? facts.lineIsNetwork : facts.libraryIsNetwork) = decoded.commandBit;
      if (mark.time - upSince > kSettled) {
        SetUp(false, mark);
      }
      break;
    case EFrameKind::kUa:
      facts.uaFromLine += isFromLine ? 1 : 0;
      SetUp(true, mark);
      break;
    case EFrameKind::kInformation:
      SetUp(true, mark);
      break;
    case EFrameKind::kReceiveReady:
      SetUp(isUp.value_or(true), mark);
      break;
    case EFrameKind::kDisc:
    case EFrameKind::kDm:
      SetUp(false, mark);
      break;
    default:
      break;
  }
}

void CTrunkWatch::SetUp(bool isNowUp, const SMark& mark) {
  if (isUp == true && !isNowUp) {
    facts.drops.Add(mark);
  }
  if (isNowUp && isUp != true) {
    upSince = mark.time;
  }
  isUp = isNowUp;
  facts.isUp = isNowUp;
  facts.wasUp = facts.wasUp || isNowUp;
}

void CTrunkWatch::OnRestart(const tool::SQ931Message& message, const SMark& mark) {
  facts.restarts.Add(mark);
  std::deque<Time>& times = restarts[message.Timeslot()];
  times.push_back(mark.time);
  while (mark.time - times.front() > kStormTime) {
    times.pop_front();
  }
  if (times.size() > kOrdinaryRestarts) {
    std::uint64_t& most = facts.restartStorms[message.Timeslot()];
    most = std::max<std::uint64_t>(most, times.size());
  }
}

void CTrunkWatch::OnCallBegins(const trace::SCall& call) {
  ++(call.fromLibrary ? facts.callsFromLibrary : facts.callsToLibrary);
  calls[call.number] = {call, call.begin, false};
}

// Both sides take a channel at once where neither has had an answer yet.
void CTrunkWatch::OnSetup(const trace::SCall& call, const SMark& mark) {
  const auto isFresh = [](const trace::SCall& each) {
    return each.alerting == 0 && each.connected == 0 && each.clearing == 0;
  };
  for (const auto& [number, other] : calls) {
    if (other.call.fromLibrary != call.fromLibrary && other.call.timeslot == call.timeslot && isFresh(other.call)) {
      facts.glares.Add(mark);
    }
  }
}

void CTrunkWatch::OnCallMessage(const trace::SCall& call, const trace::SSignal& signal) {
  const SMark mark{signal.frame.time, signal.frame.packet, file};
  const bool isFromLine = signal.frame.direction == EDirection::kToLibrary;
  SOpenCall& open = calls[call.number];
  if (signal.message.type == kSetup && call.timeslot >= 0) {
    OnSetup(call, mark);
  }
  open.call = call;
  open.heard = mark.time;
  const int cause = signal.message.Cause();
  if (!IsClearing(signal.message.type) || cause < 0 || open.isCauseTaken) {
    return;
  }
  open.isCauseTaken = true;
  TakeCause(isFromLine ? facts.clearedByLine : facts.clearedByLibrary, signal.message, mark);
}

void CTrunkWatch::OnCallEnds(const trace::SCall& call, Time now) {
  const auto open = calls.find(call.number);
  if (open == calls.end()) {
    return;
  }
  const Time quiet = now - open->second.heard;
  const bool isConnected = call.connected != 0 && call.clearing == 0;
  if (call.how == trace::ECallEnd::kOpen && quiet > (isConnected ? kHeldConnected : kHeldOtherwise)) {
    facts.held.push_back({call.number, call.timeslot, quiet});
  }
  calls.erase(open);
}

}  // namespace doctor

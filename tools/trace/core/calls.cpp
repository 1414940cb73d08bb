// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/calls.h"

#include <limits>
#include <utility>

namespace trace {
namespace {

using tool::SQ931Message;

// Message types of ITU-T Q.931.
constexpr std::uint8_t kAlerting = 0x01;
constexpr std::uint8_t kSetup = 0x05;
constexpr std::uint8_t kConnect = 0x07;
constexpr std::uint8_t kDisconnect = 0x45;
constexpr std::uint8_t kRelease = 0x4D;
constexpr std::uint8_t kRestartAcknowledge = 0x4E;
constexpr std::uint8_t kReleaseComplete = 0x5A;
constexpr std::uint8_t kInformationMessage = 0x7B;
constexpr std::uint8_t kStatusMessage = 0x7D;

// Elements.
constexpr std::uint8_t kCallState = 0x14;
constexpr std::uint8_t kCalling = 0x6C;
constexpr std::uint8_t kCalled = 0x70;
constexpr std::uint8_t kRedirecting = 0x74;
constexpr std::size_t kMostRestarted = 10'000;
constexpr std::uint8_t kRestartIndicator = 0x79;

bool IsClearing(std::uint8_t type) {
  return type == kDisconnect || type == kRelease || type == kReleaseComplete;
}

// A SETUP of it that comes now is not the first one repeated.
bool IsAnswered(const SCall& call) {
  return call.alerting != 0 || call.connected != 0 || call.clearing != 0;
}

void TakeNumber(std::string& number, const SQ931Message& message, std::uint8_t element) {
  if (message.Find(element) != nullptr) {
    number = message.Number(element);
  }
}

}  // namespace

void CCalls::OnControl(const SConnection& connection, const SControl& message) {
  if (message.isAfterGap) {
    MarkGap(connection);
  }
  if (message.kind != EControl::kFrame) {
    return;
  }
  const tool::SQ921Frame frame = tool::DecodeFrame(message.body);
  CDataLink& link = dataLinks[{connection.number, message.trunk}];
  const EVerdict verdict = link.OnFrame(message, frame);
  sink.OnFrame(connection, message, frame, verdict);
  if (verdict == EVerdict::kNew && frame.message.type != 0) {
    OnMessage(connection, message, frame.message);
  }
}

void CCalls::OnMessage(const SConnection& connection, const SControl& frame, const SQ931Message& message) {
  if (message.callReference == 0) {
    OnGlobal(connection, frame, message);
    return;
  }
  // The flag is set in what goes to the side that chose the reference.
  const bool fromLibrary = (frame.direction == EDirection::kFromLibrary) != message.fromDestination;
  const SKey key{connection.number, frame.trunk, fromLibrary, message.callReference};
  SCall* call = Find(key, connection, frame, message);
  if (call == nullptr) {
    return;
  }
  Apply(*call, frame, message);
  sink.OnCallMessage(*call, {connection, frame, message});
  if (IsEndedBy(*call, frame, message)) {
    End(open.find(key), ECallEnd::kReleased, frame.time);
  }
}

SCall* CCalls::Find(const SKey& key, const SConnection& connection, const SControl& frame,
                    const SQ931Message& message) {
  const bool isSetup = message.type == kSetup && !message.fromDestination;
  auto found = open.find(key);
  if (found != open.end() && isSetup && IsAnswered(found->second)) {
    End(found, ECallEnd::kReplaced, frame.time);
    found = open.end();
  }
  if (found != open.end()) {
    return &found->second;
  }
  if (message.type == kReleaseComplete || message.type == kStatusMessage || (restarted.count(key) > 0 && !isSetup)) {
    return nullptr;  // an answer to what has no call, or the rest of one that a restart has ended
  }
  restarted.erase(key);
  SCall call;
  call.number = ++made;
  call.connection = connection.number;
  call.card = connection.card;
  call.serial = connection.serial;
  call.trunk = frame.trunk;
  call.reference = key.reference;
  call.fromLibrary = key.fromLibrary;
  call.begin = frame.time;
  call.isBegunBefore = !isSetup;
  SCall& begun = open[key] = call;
  sink.OnCallBegins(begun);
  return &begun;
}

void CCalls::Apply(SCall& call, const SControl& frame, const SQ931Message& message) {
  if (const int timeslot = message.Timeslot(); timeslot >= 0) {
    call.timeslot = timeslot;
  }
  if (message.type == kSetup) {
    TakeNumber(call.calling, message, kCalling);
    TakeNumber(call.called, message, kCalled);
    TakeNumber(call.redirecting, message, kRedirecting);
  } else if (message.type == kInformationMessage && !message.fromDestination) {
    call.called += message.Number(kCalled);
  } else if (message.type == kAlerting && call.alerting == 0) {
    call.alerting = frame.time;
  } else if (message.type == kConnect && call.connected == 0) {
    call.connected = frame.time;
  }
  if (!IsClearing(message.type)) {
    return;
  }
  if (call.clearing == 0) {
    call.clearing = frame.time;
    call.clearedBy = frame.direction;
  }
  call.cause = call.cause < 0 ? message.Cause() : call.cause;
}

// RELEASE from both sides ends a call as RELEASE COMPLETE does, and so does a STATUS of no call.
bool CCalls::IsEndedBy(SCall& call, const SControl& frame, const SQ931Message& message) {
  if (message.type == kRelease) {
    int& sides = releases[{call.connection, call.trunk, call.fromLibrary, call.reference}];
    sides |= frame.direction == EDirection::kFromLibrary ? 1 : 2;
    return sides == 3;
  }
  if (message.type == kStatusMessage) {
    const tool::SInformationElement* state = message.Find(kCallState);
    return state != nullptr && !state->content.empty() && (state->content[0] & 0x3F) == 0;
  }
  return message.type == kReleaseComplete;
}

// A restart clears what it names without another message.
void CCalls::OnGlobal(const SConnection& connection, const SControl& frame, const SQ931Message& message) {
  if (message.type != kRestartAcknowledge) {
    return;
  }
  const tool::SInformationElement* indicator = message.Find(kRestartIndicator);
  const bool isOneChannel = indicator != nullptr && !indicator->content.empty() && (indicator->content[0] & 7) == 0;
  const int timeslot = message.Timeslot();
  for (auto call = open.begin(); call != open.end();) {
    const auto each = call++;
    const bool isOfTrunk = each->first.connection == connection.number && each->first.trunk == frame.trunk;
    if (isOfTrunk && (!isOneChannel || each->second.timeslot == timeslot)) {
      if (restarted.size() < kMostRestarted) {
        restarted.insert(each->first);
      }
      End(each, ECallEnd::kRestarted, frame.time);
    }
  }
}

void CCalls::MarkGap(const SConnection& connection) {
  for (auto& [key, call] : open) {
    call.isPassedGap = call.isPassedGap || key.connection == connection.number;
  }
}

void CCalls::End(std::map<SKey, SCall>::iterator call, ECallEnd how, Time time) {
  releases.erase(call->first);
  call->second.how = how;
  call->second.end = how == ECallEnd::kOpen ? 0 : time;
  const SCall ended = call->second;
  open.erase(call);
  sink.OnCallEnds(ended);
}

void CCalls::OnDisconnected(const SConnection& connection, Time time) {
  for (auto call = open.begin(); call != open.end();) {
    const auto each = call++;
    if (each->first.connection == connection.number) {
      End(each, ECallEnd::kConnectionLost, time);
    }
  }
}

void CCalls::Finish() {
  while (!open.empty()) {
    End(open.begin(), ECallEnd::kOpen, 0);
  }
  for (const auto& [key, link] : dataLinks) {
    links.frames += link.Counts().frames;
    links.repeated += link.Counts().repeated;
    links.outOfSequence += link.Counts().outOfSequence;
    links.broken += link.Counts().broken;
    links.missing += link.Counts().missing;
    links.establishments += link.Counts().establishments;
  }
}

}  // namespace trace

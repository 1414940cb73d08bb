// SPDX-License-Identifier: GPL-2.0-only
#include "replay/application.h"

#include "call/call_operations.h"
#include "replay/messages.h"

namespace replay {
namespace {

constexpr int kNormalClearing = 16;
constexpr int kRejected = 21;

}  // namespace

void CApplication::Note(const tool::SQ931Message& message, bool isSent) {
  if (!message.valid || message.callReference == 0) {
    return;
  }
  const Key key{isSent != message.fromDestination, message.callReference};
  if (message.type == kReleaseComplete) {
    calls.erase(key);
    return;
  }
  SCall& call = calls[key];
  if (message.type == kSetup && call.isUnderWay) {
    call = SCall();  // the reference is used again
  }
  if (const int timeslot = message.Timeslot(); timeslot >= 0) {
    call.timeslot = timeslot;
  }
  call.isUnderWay = call.isUnderWay || message.type != kSetup;
  call.isClearing = call.isClearing || IsClearing(message.type);
}

bool CApplication::ActFor(const tool::SQ931Message& message) {
  if (!message.valid || message.callReference == 0) {
    return false;
  }
  const auto found = calls.find({!message.fromDestination, message.callReference});
  if (message.type == kSetup && !message.fromDestination) {
    const bool isRepeated = found != calls.end() && !found->second.isUnderWay;
    return !isRepeated && Dial(message);
  }
  if (found == calls.end() || found->second.isClearing) {
    return false;
  }
  zelk::CDevice* channel = trunk.ChannelOf(found->second.timeslot);
  if (channel != nullptr && message.type == kConnect && message.fromDestination) {
    report.Act(channel->LogChannel(), "answer");
    zelk::Answer(*channel);
    return true;
  }
  return IsClearing(message.type) && Clear(found->second, message);
}

bool CApplication::Dial(const tool::SQ931Message& message) {
  zelk::CDevice* channel = trunk.ChannelOf(message.Timeslot());
  if (channel == nullptr) {
    return false;
  }
  const tool::SInformationElement* called = message.Find(kCalled);
  if (!isNumberTypeGiven && called != nullptr && !called->content.empty()) {
    trunk.SetNumberType(called->content[0] & 0x7F);
  }
  const zelk::SCallView view = channel->Call().View();
  if (view.callHandle != nullptr && !view.connected) {
    // The call before has been given up, which nothing was sent for.
    report.Act(channel->LogChannel(), "reject");
    zelk::Reject(*channel);
  }
  const std::string number = message.Number(kCalled);
  const std::string calling = message.Number(kCalling);
  report.Act(channel->LogChannel(), "dial " + number + (calling.empty() ? "" : " from " + calling));
  zelk::Dial(*channel, number.c_str(), calling.c_str());
  return true;
}

bool CApplication::Clear(const SCall& call, const tool::SQ931Message& message) {
  zelk::CDevice* channel = trunk.ChannelOf(call.timeslot);
  const int cause = message.Cause();
  if (channel == nullptr || (cause != kNormalClearing && cause != kRejected)) {
    return false;
  }
  const bool isRejected = cause == kRejected;
  report.Act(channel->LogChannel(), isRejected ? "reject" : "hang up");
  if (isRejected) {
    zelk::Reject(*channel);
  } else {
    zelk::Hangup(*channel);
  }
  return true;
}

bool CApplication::Clears(const tool::SQ931Message& message, std::int32_t channel) const {
  const auto found = calls.find({!message.fromDestination, message.callReference});
  if (!message.valid || !IsClearing(message.type) || found == calls.end() || found->second.isClearing) {
    return false;
  }
  const zelk::CDevice* device = trunk.ChannelOf(found->second.timeslot);
  return device != nullptr && device->LogChannel() == channel;
}

}  // namespace replay

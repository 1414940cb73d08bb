// SPDX-License-Identifier: GPL-2.0-only
#include "replay/replay.h"

#include <fmt/format.h>

#include <algorithm>

#include "call/application_events.h"
#include "replay/frames.h"
#include "replay/messages.h"

namespace replay {
namespace {

using tool::EFrameKind;
using tool::SQ921Frame;
using tool::SQ931Message;

constexpr int kChannelUnavailable = 44;

CReplay* running = nullptr;  // the application's callback has no other way to it

zelk::STrunkSettings SettingsOf(const SRecording& recording, const std::optional<zelk::STrunkSettings>& given) {
  zelk::STrunkSettings settings = given.value_or(zelk::STrunkSettings());
  if (!given) {
    settings.clientType = recording.isLibraryNetwork ? zelk::kNetworkSide : zelk::kUserSide;
  }
  return settings;
}

SPlace PlaceOf(const SRecording& recording) {
  return {recording.serial, static_cast<std::uint32_t>(recording.trunk),
          static_cast<std::uint32_t>(std::max(recording.trunks, recording.trunk + 1)),
          static_cast<std::uint32_t>(recording.cardsBefore), static_cast<std::uint32_t>(recording.trunksBefore)};
}

}  // namespace

CReplay::CReplay(const SRecording& recorded, const std::optional<zelk::STrunkSettings>& trunkSettings,
                 CReport& eventReport)
    : recording(recorded),
      settings(SettingsOf(recorded, trunkSettings)),
      report(eventReport),
      trunk(PlaceOf(recorded), [this](ByteView frame) { OnWritten(frame); }),
      application(trunk, eventReport, trunkSettings.has_value()) {
  for (const SItem& item : recording.items) {
    if (item.kind == EItem::kSent) {
      sent.push_back({&item, tool::DecodeFrame(item.frame)});
    }
    Time& last = ends[item.opening];
    last = std::max(last, item.time);
  }
  acted.resize(sent.size());
  running = this;
  zelk::ApplicationEvents().SetEventCallback(&OnEvent);
}

CReplay::~CReplay() {
  zelk::ApplicationEvents().SetEventCallback(nullptr);
  running = nullptr;
}

bool CReplay::Run() {
  for (const SItem& item : recording.items) {
    Step(item);
    if (isDifferent) {
      return false;
    }
  }
  report.Same(written, received);
  return true;
}

void CReplay::Step(const SItem& item) {
  switch (item.kind) {
    case EItem::kOpen:
      return Open(item);
    case EItem::kReceived:
      return Receive(item);
    case EItem::kSent:
      return Send(item);
    case EItem::kHdlcError:
      PassTimeTo(item.time);
      return trunk.OnHdlcError(item.value);
    case EItem::kLineStatus:
      return trunk.OnLineStatus(item.value);
    case EItem::kClosed:
      PassTimeTo(item.time);
      return trunk.Close();
    case EItem::kCardDown:
      AdvanceTo(item.time);
      return trunk.LoseCard();
  }
}

void CReplay::Open(const SItem& item) {
  AdvanceTo(item.time);
  opening = item.opening;
  end = ends[opening];
  application.ForgetCalls();
  trunk.Open(settings);
}

void CReplay::Receive(const SItem& item) {
  SendWhatCameBefore(item);
  PassTimeTo(item.time);
  if (isDifferent) {
    return;
  }
  ++received;
  const SQ931Message message = tool::DecodeFrame(item.frame).message;
  const std::vector<zelk::CDevice*> closed = ClosedTo(message, item);
  for (zelk::CDevice* channel : closed) {
    channel->AllowIncoming(false);
  }
  if (item.isNew) {
    ActBefore(item, message);
    application.Note(message, false);
  }
  trunk.Receive(item.frame);
  for (zelk::CDevice* channel : closed) {
    channel->AllowIncoming(true);
  }
}

// The channels that took no calls when this one was offered: the library's first answer shows them.
std::vector<zelk::CDevice*> CReplay::ClosedTo(const SQ931Message& setup, const SItem& offered) {
  std::vector<zelk::CDevice*> closed;
  if (!offered.isNew || !setup.valid || setup.type != kSetup || setup.fromDestination) {
    return closed;
  }
  for (std::size_t i = written; IsSoon(i, offered.time, kMostUnread); ++i) {
    const SQ931Message& answer = sent[i].frame.message;
    if (!answer.valid || !answer.fromDestination || answer.callReference != setup.callReference) {
      continue;
    }
    const bool isRefused = IsClearing(answer.type) && answer.Cause() == kChannelUnavailable;
    const int chosen = isRefused ? zelk::kTimeslotsPerTrunk : trunk.TimeslotChosenAs(answer.Timeslot());
    const int named = setup.Timeslot();
    for (int timeslot = 0; timeslot < chosen; ++timeslot) {
      zelk::CDevice* channel = trunk.ChannelOf(timeslot);
      if (channel != nullptr && (named < 0 || (isRefused && timeslot == named))) {
        closed.push_back(channel);
      }
    }
    break;
  }
  return closed;
}

// Messages are sent in the order in which they were made, if not at once: where one stands before the library's own
// answer to a message, the application had acted before that was read.
void CReplay::ActBefore(const SItem& item, const SQ931Message& message) {
  const std::size_t answer = AnswerTo(item, message);
  for (std::size_t i = written; i < answer && !isDifferent; ++i) {
    Act(i);
  }
}

// The frame with which the library answers a message by itself; `written` for none.
std::size_t CReplay::AnswerTo(const SItem& item, const SQ931Message& message) const {
  for (std::size_t i = written; message.valid && IsSoon(i, item.time, kMostUnread); ++i) {
    const SQ931Message& answer = sent[i].frame.message;
    if (answer.valid && answer.callReference == message.callReference &&
        answer.fromDestination != message.fromDestination && IsAnswer(message.type, answer.type)) {
      return i;
    }
  }
  return written;
}

// A frame that the library sent before it read this one.
void CReplay::SendWhatCameBefore(const SItem& item) {
  const SQ921Frame frame = tool::DecodeFrame(item.frame);
  while (!isDifferent) {
    const SItem* next = Expected();
    if (next == nullptr || next->time - item.time > kMostUnread || next->time < item.time ||
        !IsSentBefore(item, frame) || !TrySend(*next)) {
      return;
    }
  }
}

bool CReplay::IsSentBefore(const SItem& item, const SQ921Frame& frame) const {
  const SQ921Frame& next = sent[written].frame;
  if (frame.kind == EFrameKind::kInformation) {
    return item.isNew && next.receiveNumber >= 0 && !Acknowledges(next, frame.sendNumber);
  }
  if (frame.kind == EFrameKind::kSabme) {
    return next.kind != EFrameKind::kUa && HasSoon(item, EFrameKind::kUa, next.pollFinal);
  }
  const bool isAsking = IsSupervisory(frame) && frame.pollFinal && frame.commandBit != recording.isLibraryNetwork;
  const bool isAnswer = IsSupervisory(next) && next.pollFinal;
  return isAsking && !isAnswer && HasSoon(item, EFrameKind::kReceiveReady, true);
}

// Whether the library soon sends a frame of the kind.
bool CReplay::HasSoon(const SItem& item, EFrameKind kind, bool isFinal) const {
  for (std::size_t i = written; IsSoon(i, item.time, kMostUnread); ++i) {
    const SQ921Frame& frame = sent[i].frame;
    if (frame.kind == kind && (frame.pollFinal || !isFinal)) {
      return true;
    }
  }
  return false;
}

void CReplay::Send(const SItem& item) {
  const auto isOpen = [&] { return !isDifferent && written < sent.size() && sent[written].item == &item; };
  if (!isOpen() || TrySend(item) || isDifferent) {
    return;
  }
  if (!recording.showsOpenings && tool::DecodeFrame(item.frame).kind == EFrameKind::kSabme) {
    trunk.Close();
    Open(item);
  }
  if (isOpen()) {
    Fail("the library does not send a frame that it has sent", &item, {});
  }
}

// False when the library has no reason to send the frame now.
bool CReplay::TrySend(const SItem& item) {
  const std::size_t before = written;
  PassTimeTo(item.time);
  if (written == before && !isDifferent) {
    Act(before);
  }
  if (written > before || RunTimersUntil(item.time + kSlack, before)) {
    return true;
  }
  if (!isDifferent && !isUp && tool::DecodeFrame(item.frame).kind == EFrameKind::kSabme) {
    DialWhileDown(item);
  }
  return written > before;
}

// A call on a trunk that is down has layer 2 established first; its SETUP waits for that.
void CReplay::DialWhileDown(const SItem& item) {
  for (std::size_t i = written; IsSoon(i, item.time, kMostDialledBefore); ++i) {
    const SQ931Message& message = sent[i].frame.message;
    if (message.valid && message.type == kSetup && !message.fromDestination) {
      return Act(i);
    }
  }
}

// What the application did for a frame, once.
void CReplay::Act(std::size_t index) {
  if (!acted[index]) {
    acted[index] = application.ActFor(sent[index].frame.message);
  }
}

// Runs timers that are due before a time, each at its own, until a frame was written.
bool CReplay::RunTimersUntil(Time time, std::size_t before) {
  while (written == before && !isDifferent) {
    const std::optional<Time> due = trunk.NextTimer();
    if (!due || *due > time) {
      return false;
    }
    AdvanceTo(*due);
    trunk.RunTimers();
  }
  return written > before;
}

void CReplay::PassTimeTo(Time time) {
  while (!isDifferent) {
    const std::optional<Time> due = trunk.NextTimer();
    const bool isTimer = due && *due <= time - kSlack;
    if (trunk.AwaitsTime() && Now() + kTick <= (isTimer ? *due : time)) {
      AdvanceTo(Now() + kTick);
      trunk.PassTime();
    } else if (isTimer) {
      AdvanceTo(*due);
      trunk.RunTimers();
    } else {
      break;
    }
  }
  AdvanceTo(time);
}

// Whether a frame that has not been written was sent in this opening, and at most so long after a time.
bool CReplay::IsSoon(std::size_t index, Time time, Time most) const {
  return index < sent.size() && index < written + kMostAhead && sent[index].item->opening == opening &&
         sent[index].item->time - time < most;
}

const SItem* CReplay::Expected() const {
  return written < sent.size() && sent[written].item->opening == opening ? sent[written].item : nullptr;
}

void CReplay::OnWritten(ByteView frame) {
  if (isDifferent) {
    return;
  }
  const SItem* expected = Expected();
  if (expected == nullptr) {
    // What the library wrote last may not have reached the network.
    if (Now() < end - kSlack) {
      Fail("the library sends a frame that it has not sent", nullptr, frame);
    }
    return;
  }
  if (!std::equal(frame.begin(), frame.end(), expected->frame.begin(), expected->frame.end())) {
    return Fail("the library sends another frame", expected, frame);
  }
  if (const Time early = expected->time - Now(); early > kMostEarly) {
    return Fail(fmt::format("the library sends the frame {} ms early", early / trace::kMillisecond), expected, frame);
  }
  application.Note(sent[written++].frame.message, true);
}

void CReplay::Fail(const std::string& what, const SItem* expected, ByteView got) {
  isDifferent = true;
  SDifference difference;
  difference.what = what;
  if (!got.empty()) {
    difference.got = InWords(got);
    difference.call = CallText(got);
  }
  if (expected != nullptr) {
    difference.packet = expected->packet;
    difference.expected = InWords(expected->frame);
    difference.call = CallText(expected->frame);
  }
  report.Different(difference);
}

void CReplay::OnEvent(std::int32_t channel, std::uint32_t event, std::int32_t parameter) {
  running->OnLibraryEvent(channel, event, parameter);
}

// What an application does in its callback for an answer comes before that is acknowledged. The rest waits.
void CReplay::OnLibraryEvent(std::int32_t channel, std::uint32_t event, std::int32_t parameter) {
  report.Event(channel, event, parameter);
  isUp = event == ZELK_EVENT_CHANNEL_STATE ? parameter == 1 : isUp;
  const SItem* next = Expected();
  if (event == ZELK_EVENT_CONNECTED && next != nullptr && !isDifferent && next->time - Now() <= kSlack) {
    if (application.Clears(sent[written].frame.message, channel)) {
      Act(written);
    }
  }
}

}  // namespace replay

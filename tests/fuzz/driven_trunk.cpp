// SPDX-License-Identifier: GPL-2.0-only
#include "fuzz/driven_trunk.h"

#include <algorithm>
#include <cstring>

#include "call/application_events.h"
#include "call/call_operations.h"
#include "call/channel_info.h"

#ifdef ZELK_FUZZ
extern "C" int64_t zelk_fuzz_clock_ms;
#endif

namespace zelk::fuzz {
namespace {

constexpr int64_t kStartMs = 1000000;
constexpr int kMaxTimersAtOnce = 64;
constexpr int kMaxFramesAtOnce = 32;
constexpr int32_t kChannels = 30;
constexpr size_t kHeaderBytes = 4;  // of an information frame: address (2), N(S), N(R)
constexpr uint8_t kTei = 0x01;
constexpr uint8_t kPollFinal = 0x10;
constexpr uint8_t kSabme = 0x6F;  // without the poll bit, as the next
constexpr uint8_t kUa = 0x63;
constexpr uint8_t kReceiveReady = 0x01;
const Bytes kFcs = {0xAA, 0x55};

CDrivenTrunk* current = nullptr;  // the application's callback has no other way to it

void SetClock(int64_t ms) {
#ifdef ZELK_FUZZ
  zelk_fuzz_clock_ms = ms;
#else
  static_cast<void>(ms);
#endif
}

// A message's call reference has two bytes, and its flag says that the sender did not choose it.
bool HasOwnReference(const uint8_t* message, size_t length) {
  return length >= 4 && message[0] == 0x08 && message[1] == 0x02 && (message[2] & 0x80U) == 0;
}

}  // namespace

CDrivenTrunk::CDrivenTrunk(const SSetUp& trunkSetUp)
    : setUp(trunkSetUp), nowMs(kStartMs), handlers(table, 0), trunk(card, handlers, 0) {
  SetClock(nowMs);
  AddChannels();
  handlers.Place(0, 0);
  current = this;
  ApplicationEvents().SetEventCallback(&OnEvent);
  MakeController();
}

CDrivenTrunk::~CDrivenTrunk() {
  ApplicationEvents().SetEventCallback(nullptr);
  trunk.ReleaseController();
  current = nullptr;
}

void CDrivenTrunk::AddChannels() {
  for (uint32_t timeslot = 1; timeslot < kTimeslotsPerTrunk; ++timeslot) {
    if (IsBchannel(timeslot)) {
      const auto number = static_cast<uint32_t>(table.Count());
      table.Add(std::make_unique<CDevice>(card, SDevicePlace{0, 0, timeslot, number}));
    }
  }
}

void CDrivenTrunk::MakeController() {
  trunk.MakeController(setUp.isNetwork ? kNetworkSide : kUserSide, setUp.switchType);
  AnswerLayer2();
}

void CDrivenTrunk::Message(const Bytes& message) {
  if (HasOwnReference(message.data(), message.size())) {
    reference = {message[2], message[3]};
  }
  const Bytes header = {PeerAddress(true), kTei, static_cast<uint8_t>(sent << 1), static_cast<uint8_t>(received << 1)};
  sent = (sent + 1U) & 0x7FU;
  Frame(Join({header, message, kFcs}));
}

void CDrivenTrunk::MessageOfCall(const Bytes& typeAndElements) {
  Message(Join({{0x08, 0x02, reference[0], reference[1]}, typeAndElements}));
}

void CDrivenTrunk::Frame(const Bytes& frame) {
  trunk.Receive(frame);
  AnswerLayer2();
}

void CDrivenTrunk::Elapse(int64_t ms) {
  nowMs += ms;
  SetClock(nowMs);
  for (int i = 0; i < kMaxTimersAtOnce && trunk.IsTimerPending(); ++i) {
    trunk.RunTimers();
  }
  trunk.Pass(static_cast<uint32_t>(nowMs));
  AnswerLayer2();
}

void CDrivenTrunk::Application(uint8_t what, uint8_t channel) {
  static constexpr const char* kNumbers[] = {"5551234", "", "0123456789*#ABCDabcd", "1"};
  CDevice& device = *table.Find(channel % kChannels);
  switch (what % 8) {
    case 0:
    case 1:
      Dial(device, what < 128 ? kNumbers[what / 8 % 4] : std::string(what, '7').c_str(), kNumbers[what / 32 % 4]);
      break;
    case 2:
      Answer(device);
      break;
    case 3:
      Hangup(device);
      break;
    case 4:
      Reject(device);
      break;
    case 5:
      device.Close();
      break;
    case 6:
      device.Open();
      break;
    default:
      ReadInformation(device);
  }
  AnswerLayer2();
}

void CDrivenTrunk::ReadInformation(CDevice& device) const {
  for (const char* key : {"CLI", "DLI", "RLI", "CALLTYPE", "DIRECTION", "CHANNELSTATE"}) {
    Require(std::strlen(GetInfo(device, key, table.Count())) < 1024, "what a channel tells is short");
  }
}

void CDrivenTrunk::LoseCard(bool comesBack) {
  handlers.OnCardDown(trunk.caller);
  if (comesBack) {
    handlers.OnCardUp();
  }
}

void CDrivenTrunk::ReopenCard() {
  trunk.ReleaseController();
  handlers.OnCardReopening(trunk.caller);
  MakeController();
}

void CDrivenTrunk::OnEvent(int32_t channel, uint32_t event, int32_t) {
  current->React(channel, event);
}

void CDrivenTrunk::React(int32_t channel, uint32_t event) {
  CDevice* device = table.Find(channel);
  Require(device != nullptr, "an event is one of a channel");
  if (event != EVENT_INCOMING_CALL && event != EVENT_ALERTING && event != EVENT_CONNECTED) {
    return;
  }
  switch (setUp.reaction) {
    case EReaction::kNone:
      break;
    case EReaction::kAnswer:
      Answer(*device);
      break;
    case EReaction::kHangup:
      Hangup(*device);
      break;
    case EReaction::kReject:
      Reject(*device);
      break;
  }
}

// The C/R bit of the other side's commands and responses.
uint8_t CDrivenTrunk::PeerAddress(bool isCommand) const {
  return setUp.isNetwork != isCommand ? 0x02 : 0x00;
}

void CDrivenTrunk::AnswerLayer2() {
  isAcknowledgeDue = false;
  for (int i = 0; i < kMaxFramesAtOnce && !trunk.written.empty(); ++i) {
    const Bytes frame = std::move(trunk.written.front());
    trunk.written.pop_front();
    Require(trunk.writtenTrunk == 0 && frame.size() >= kFcsBytes,
            "a frame is that of its trunk and has room for the FCS");
    if (frame.size() > kHeaderBytes) {
      AnswerFrame(frame);
    }
  }
  if (isAcknowledgeDue && setUp.answersLayer2) {
    trunk.Receive(Join({{PeerAddress(true), kTei, kReceiveReady, static_cast<uint8_t>(received << 1)}, kFcs}));
  }
}

void CDrivenTrunk::AnswerFrame(const Bytes& frame) {
  const uint8_t control = frame[2];
  if ((control & 1U) == 0) {
    received = static_cast<uint8_t>(((control >> 1) + 1U) & 0x7FU);
    isAcknowledgeDue = true;
    if (HasOwnReference(&frame[kHeaderBytes], frame.size() - kHeaderBytes)) {
      reference = {static_cast<uint8_t>(frame[kHeaderBytes + 2] | 0x80U), frame[kHeaderBytes + 3]};
    }
  } else if ((control & 3U) == 3) {
    AnswerUnnumbered(frame);
  } else if ((frame[3] & 1U) != 0 && setUp.answersLayer2) {
    trunk.Receive(Join({{frame[0], frame[1], kReceiveReady, static_cast<uint8_t>(received << 1 | 1)}, kFcs}));
  }
}

void CDrivenTrunk::AnswerUnnumbered(const Bytes& frame) {
  const uint8_t kind = static_cast<uint8_t>(frame[2] & ~kPollFinal);
  if (kind == kSabme || kind == kUa) {
    sent = received = 0;
  }
  if (kind == kSabme && setUp.answersLayer2) {
    trunk.Receive(Join({{frame[0], frame[1], static_cast<uint8_t>(kUa | (frame[2] & kPollFinal))}, kFcs}));
  }
}

}  // namespace zelk::fuzz

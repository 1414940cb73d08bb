// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/scenario/step_runner.h"

#include <algorithm>

namespace cardsim {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kBytesPerMs = kSampleRate / 1000;
constexpr milliseconds kEndWithin{10000};  // of a call that has run through its steps
constexpr milliseconds kPlayMargin{5000};  // by which a sound may be late

SFault Fault(const std::string& expected, const std::string& got) {
  return {0, "", expected, got};
}

std::string Seconds(milliseconds time) {
  std::string text = std::to_string(static_cast<double>(time.count()) / 1000);
  text.erase(text.find_last_not_of('0') + 1);
  return (text.back() == '.' ? text.substr(0, text.size() - 1) : text) + " s";
}

std::string Described(const SQ931Message& message) {
  return message.name + (message.Cause() >= 0 ? " with cause " + std::to_string(message.Cause()) : "");
}

const char* NumberName(int element) {
  return element == 0x6C ? "calling" : element == 0x70 ? "called" : "redirecting";
}

// The first element that is not as expected.
std::optional<SFault> Compare(const SStep& step, const SQ931Message& message) {
  const auto differs = [&](const std::string& what, const std::string& expected, const std::string& got) {
    return Fault(message.name + " with " + what + " " + expected, got.empty() ? "without one" : what + " " + got);
  };
  const auto textOf = [](int value) { return value < 0 ? std::string() : std::to_string(value); };
  if (step.cause && *step.cause != message.Cause()) {
    return differs("cause", std::to_string(*step.cause), textOf(message.Cause()));
  }
  if (step.timeslot && *step.timeslot != message.Timeslot()) {
    return differs("timeslot", std::to_string(*step.timeslot), textOf(message.Timeslot()));
  }
  for (const auto& [element, number] : step.numbers) {
    const std::string got = message.Number(static_cast<std::uint8_t>(element));
    if (got != number) {
      return differs(std::string(NumberName(element)) + " number", number, got);
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<SFault> CStepRunner::Run(const SScenarioCall& plan) {
  std::optional<SFault> fault;
  for (std::size_t i = 0; i < plan.steps.size() && !fault && !stop; ++i) {
    fault = Do(plan.steps[i]);
    if (fault) {
      fault->step = i + 1;
      fault->text = plan.steps[i].text;
    }
  }
  call->Hangup();
  if (!call->WaitEnded(kEndWithin) && !fault) {
    fault = SFault{plan.steps.size(), "the end", "the call to be cleared", WhatCame()};
  }
  return fault;
}

CStepRunner::Failure CStepRunner::Do(const SStep& step) {
  switch (step.verb) {
    case EVerb::kExpect:
      return Expect(step);
    case EVerb::kHear:
      return Hear(step);
    case EVerb::kPlay:
    case EVerb::kDigits:
    case EVerb::kTone:
      return Play(step);
    case EVerb::kWait:
      for (const auto end = Clock::now() + step.time; !stop && Clock::now() < end;) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (call->WaitEnded(std::min(left, kStopSeenWithin))) {
          break;  // what ends a call is for the next step
        }
      }
      return std::nullopt;
    case EVerb::kRaw:
    case EVerb::kLine:
    case EVerb::kAlarm:
    case EVerb::kHdlcErrors:
    case EVerb::kLoss:
    case EVerb::kRestart:
      DoOnTrunk(step);
      return std::nullopt;
    default:
      return DoOnCall(step);
  }
}

CStepRunner::Failure CStepRunner::Expect(const SStep& step) {
  const auto isIt = [&step](const SQ931Message& message) { return message.name == step.word; };
  std::optional<std::size_t> place;
  const auto end = Clock::now() + step.time;
  do {
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    place = call->WaitMessage(isIt, nextMessage, std::clamp(left, milliseconds(0), kStopSeenWithin));
  } while (!place && !stop && Clock::now() < end && !call->Reached(ESimCallState::kEnded));
  if (!place) {
    return Fault(step.word + " within " + Seconds(step.time), WhatCame());
  }
  nextMessage = *place + 1;
  return Compare(step, call->Messages()[*place]);
}

CStepRunner::Failure CStepRunner::Hear(const SStep& step) {
  const auto end = Clock::now() + step.time;
  while (true) {
    const bool isLast = stop || Clock::now() >= end || call->Reached(ESimCallState::kEnded);
    std::size_t at = 0;
    if (call->Heard()->WaitContains(step.bytes, isLast ? milliseconds(0) : kStopSeenWithin, &at, heardTo)) {
      heardTo = at + step.bytes.size();
      return std::nullopt;
    }
    if (isLast) {
      const std::size_t heard = call->Heard()->Size() - std::min(heardTo, call->Heard()->Size());
      return Fault("to hear " + step.word + " within " + Seconds(step.time),
                   std::to_string(heard / kBytesPerMs) + " ms of other sound, " + WhatCame());
    }
  }
}

CStepRunner::Failure CStepRunner::Play(const SStep& step) {
  const auto isCleared = [this] {
    return call->Reached(ESimCallState::kDisconnecting) || call->Reached(ESimCallState::kEnded);
  };
  const auto whole = Clock::now() + milliseconds(step.bytes.size() / kBytesPerMs);
  call->PlayBytes(step.bytes);
  while (!call->WaitPlayed(kStopSeenWithin)) {
    if (stop || Clock::now() >= whole + kPlayMargin || isCleared()) {
      return Fault("the sound to be sent whole", WhatCame());
    }
  }
  // Clearing cuts a sound short, which then counts as played a moment before the call counts as cleared.
  const auto left = std::chrono::ceil<milliseconds>(whole - Clock::now());
  if (left > milliseconds(0) && call->WaitState(ESimCallState::kDisconnecting, left)) {
    return Fault("the sound to be sent whole", WhatCame());
  }
  return std::nullopt;
}

CStepRunner::Failure CStepRunner::DoOnCall(const SStep& step) {
  if (call->Reached(ESimCallState::kEnded) || call->Reached(ESimCallState::kDisconnecting)) {
    return Fault("a call", WhatCame());
  }
  switch (step.verb) {
    case EVerb::kSend:
      call->SendMessage(static_cast<std::uint8_t>(step.number), step.bytes);
      break;
    case EVerb::kAlert:
      call->Alert();
      break;
    case EVerb::kProgress:
      call->Progress(step.number);
      break;
    case EVerb::kAnswer:
      call->Answer();
      break;
    default:
      call->Hangup(step.number);
      break;
  }
  return std::nullopt;
}

void CStepRunner::DoOnTrunk(const SStep& step) {
  constexpr std::uint8_t kCrcError = 2;
  SAudioFaults faults;
  switch (step.verb) {
    case EVerb::kRaw:
      card.SendQ931(call->trunk, step.bytes);
      break;
    case EVerb::kLine:
      card.CutLine(call->trunk, step.word == "cut");
      break;
    case EVerb::kAlarm:
      card.SetTrunkStatus(call->trunk, static_cast<std::uint8_t>(step.number));
      break;
    case EVerb::kHdlcErrors:
      card.SendHdlcErrors(call->trunk, kCrcError, step.number);
      break;
    case EVerb::kLoss:
      faults.loss = step.percent;
      card.Audio().SetFaults(faults);
      break;
    default:
      if (step.word == "card") {
        card.Restart();
      } else if (step.word == "trunk") {
        card.RestartInterface(call->trunk);
      } else {
        card.RestartTimeslot(call->trunk, call->Timeslot());
      }
      break;
  }
}

std::string CStepRunner::WhatCame() const {
  const std::vector<SQ931Message> messages = call->Messages();
  std::string text;
  for (std::size_t i = nextMessage; i < messages.size(); ++i) {
    text += (text.empty() ? "" : ", ") + Described(messages[i]);
  }
  text = text.empty() ? "no message" : text;
  if (call->Reached(ESimCallState::kEnded)) {
    text += call->ClearedBy() == EClearedBy::kLost ? "; the call was lost" : "; the call is over";
  }
  return stop ? text + "; stopped" : text;
}

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/q931_text.h"

#include <fmt/format.h>

#include <iterator>

#include "trace/core/text.h"

namespace trace {
namespace {

using tool::SInformationElement;
using tool::SQ931Message;

constexpr std::uint8_t kBearer = 0x04;
constexpr std::uint8_t kCallState = 0x14;
constexpr std::uint8_t kChannel = 0x18;
constexpr std::uint8_t kProgress = 0x1E;
constexpr std::uint8_t kDisplay = 0x28;
constexpr std::uint8_t kRestartIndicator = 0x79;
constexpr std::uint8_t kSendingComplete = 0xA1;

struct SNumberElement {
  std::uint8_t id;
  const char* name;
};
constexpr SNumberElement kNumbers[] = {
    {0x6C, "calling"}, {0x70, "called"}, {0x74, "redirecting"}, {0x4C, "connected"}, {0x2C, "keypad"}};

void Add(std::string& text, const std::string& part) {
  text += (text.empty() ? "" : ", ") + part;
}

std::string BearerText(std::uint8_t octet) {
  switch (octet & 0x1F) {
    case 0x00:
      return "speech";
    case 0x08:
      return "unrestricted digital";
    case 0x10:
      return "3.1 kHz audio";
    default:
      return fmt::format("bearer {}", octet & 0x1F);
  }
}

std::string ChannelText(const SQ931Message& message, const SInformationElement& element) {
  const int timeslot = message.Timeslot();
  if (timeslot < 0) {
    return element.content.empty() || (element.content[0] & 3) == 3 ? "any channel" : "channel not named";
  }
  return fmt::format("channel {}{}", timeslot, (element.content[0] & 0x08) != 0 ? "" : " preferred");
}

// Octets whose contents are one number.
void AddOctets(std::string& text, const SQ931Message& message) {
  if (const auto* bearer = message.Find(kBearer); bearer != nullptr && !bearer->content.empty()) {
    Add(text, BearerText(bearer->content[0]));
  }
  if (const auto* progress = message.Find(kProgress); progress != nullptr && progress->content.size() >= 2) {
    Add(text, fmt::format("progress {}", progress->content[1] & 0x7F));
  }
  if (const auto* state = message.Find(kCallState); state != nullptr && !state->content.empty()) {
    Add(text, fmt::format("call state {}", state->content[0] & 0x3F));
  }
  if (const auto* restart = message.Find(kRestartIndicator); restart != nullptr && !restart->content.empty()) {
    Add(text, (restart->content[0] & 7) == 0 ? "named channels" : "whole interface");
  }
}

}  // namespace

std::string ElementsText(const SQ931Message& message) {
  std::string text;
  if (const int cause = message.Cause(); cause >= 0) {
    Add(text, fmt::format("cause {} {}", cause, CauseName(cause)));
  }
  if (const auto* channel = message.Find(kChannel); channel != nullptr) {
    Add(text, ChannelText(message, *channel));
  }
  for (const auto& [id, name] : kNumbers) {
    if (message.Find(id) != nullptr) {
      Add(text, fmt::format("{} {}", name,
                            Printable(id == 0x2C ? std::string(message.Find(id)->content.begin(),
                                                               message.Find(id)->content.end())
                                                 : message.Number(id))));
    }
  }
  AddOctets(text, message);
  if (const auto* display = message.Find(kDisplay); display != nullptr) {
    Add(text, "display " + Printable(std::string(display->content.begin(), display->content.end())));
  }
  if (message.Find(kSendingComplete) != nullptr) {
    Add(text, "complete");
  }
  if (!message.valid) {
    Add(text, "cut");
  }
  return text;
}

std::string FrameText(const tool::SQ921Frame& frame) {
  std::string text = FrameName(frame.kind);
  if (frame.sendNumber >= 0) {
    text += fmt::format(" {}/{}", frame.sendNumber, frame.receiveNumber);
  } else if (frame.receiveNumber >= 0) {
    text += fmt::format(" {}", frame.receiveNumber);
  }
  return text + (frame.pollFinal ? " P/F" : "");
}

}  // namespace trace

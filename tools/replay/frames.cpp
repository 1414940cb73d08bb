// SPDX-License-Identifier: GPL-2.0-only
#include "replay/frames.h"

#include <fmt/format.h>

#include "trace/core/q931_text.h"

namespace replay {
namespace {

using tool::EFrameKind;
using tool::SQ921Frame;
using tool::SQ931Message;

constexpr int kModulus = 128;

}  // namespace

bool IsSupervisory(const SQ921Frame& frame) {
  return frame.kind == EFrameKind::kReceiveReady || frame.kind == EFrameKind::kReceiveNotReady ||
         frame.kind == EFrameKind::kReject;
}

bool Acknowledges(const SQ921Frame& frame, int sendNumber) {
  return (frame.receiveNumber - sendNumber - 1 + kModulus) % kModulus < kModulus / 2;
}

std::string InWords(tool::ByteView bytes) {
  const SQ921Frame frame = tool::DecodeFrame(bytes);
  std::string text = trace::FrameText(frame);
  if (frame.message.valid) {
    text += " " + frame.message.name + " " + trace::ElementsText(frame.message);
  }
  for (const std::uint8_t byte : bytes) {
    text += fmt::format(" {:02x}", byte);
  }
  return text;
}

std::string CallText(tool::ByteView bytes) {
  const SQ931Message message = tool::DecodeFrame(bytes).message;
  if (!message.valid) {
    return {};
  }
  return fmt::format("reference {} of {}", message.callReference,
                     message.fromDestination ? "the network" : "the library");
}

}  // namespace replay

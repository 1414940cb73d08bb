// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/data_link.h"

namespace trace {
namespace {

using tool::EFrameKind;

constexpr int kModulus = 128;

std::size_t Index(EDirection direction) {
  return direction == EDirection::kToLibrary ? 0 : 1;
}

// How far `number` is ahead of `from`; half of the numbers are behind.
int Ahead(int number, int from) {
  const int distance = (number - from + kModulus) % kModulus;
  return distance < kModulus / 2 ? distance : distance - kModulus;
}

}  // namespace

const char* FrameName(EFrameKind kind) {
  switch (kind) {
    case EFrameKind::kInformation:
      return "I";
    case EFrameKind::kReceiveReady:
      return "RR";
    case EFrameKind::kReceiveNotReady:
      return "RNR";
    case EFrameKind::kReject:
      return "REJ";
    case EFrameKind::kSabme:
      return "SABME";
    case EFrameKind::kDm:
      return "DM";
    case EFrameKind::kUi:
      return "UI";
    case EFrameKind::kDisc:
      return "DISC";
    case EFrameKind::kUa:
      return "UA";
    case EFrameKind::kFrmr:
      return "FRMR";
    case EFrameKind::kInvalid:
      break;
  }
  return "?";
}

EVerdict CDataLink::OnFrame(const SControl& message, const tool::SQ921Frame& frame) {
  ++counts.frames;
  hadGap[Index(message.direction)] = hadGap[Index(message.direction)] || message.isAfterGap;
  if (!message.isFcsGood || frame.kind == EFrameKind::kInvalid) {
    ++counts.broken;
    return EVerdict::kBroken;
  }
  LearnRoles(message.direction, frame);
  if (frame.receiveNumber >= 0) {
    acknowledged[1 - Index(message.direction)] = frame.receiveNumber;
  }
  switch (frame.kind) {
    case EFrameKind::kSabme:
      expected = {0, 0};
      acknowledged = {0, 0};
      hadGap = {};
      ++counts.establishments;
      return EVerdict::kNoMessage;
    case EFrameKind::kUa:
    case EFrameKind::kReceiveReady:
      up = frame.kind == EFrameKind::kUa || up.value_or(true);
      return EVerdict::kNoMessage;
    case EFrameKind::kDisc:
    case EFrameKind::kDm:
      up = false;
      return EVerdict::kNoMessage;
    case EFrameKind::kInformation:
      up = true;
      return OnInformation(message, frame.sendNumber);
    default:
      return EVerdict::kNoMessage;
  }
}

// Commands of the network side have the bit set, and so have responses of the user side.
void CDataLink::LearnRoles(EDirection direction, const tool::SQ921Frame& frame) {
  const bool isFromLibrary = direction == EDirection::kFromLibrary;
  switch (frame.kind) {
    case EFrameKind::kInformation:
    case EFrameKind::kSabme:
    case EFrameKind::kDisc:
    case EFrameKind::kUi:
      libraryIsNetwork = frame.commandBit == isFromLibrary;
      break;
    case EFrameKind::kUa:
    case EFrameKind::kDm:
    case EFrameKind::kFrmr:
      libraryIsNetwork = frame.commandBit != isFromLibrary;
      break;
    default:
      break;
  }
}

EVerdict CDataLink::OnInformation(const SControl& message, int number) {
  std::optional<int>& next = expected[Index(message.direction)];
  bool& gap = hadGap[Index(message.direction)];
  const int ahead = next ? Ahead(number, *next) : 0;
  if (ahead < 0) {
    ++counts.repeated;
    return EVerdict::kRepeated;
  }
  // What its receiver has acknowledged does not come again: the capture lacks it.
  const bool isReceived = next && Ahead(acknowledged[Index(message.direction)].value_or(*next), *next) > 0;
  if (ahead > 0 && !gap && !isReceived) {
    ++counts.outOfSequence;
    return EVerdict::kOutOfSequence;
  }
  counts.missing += static_cast<std::uint64_t>(ahead);
  gap = false;
  next = (number + 1) % kModulus;
  return EVerdict::kNew;
}

}  // namespace trace

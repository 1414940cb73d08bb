// SPDX-License-Identifier: GPL-2.0-only
#include "trace/core/control_decoder.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "common/fcs.h"
#include "common/wire.h"

namespace trace {
namespace {

constexpr std::uint8_t kLead = 0xFF;
constexpr std::uint8_t kInformation = 0x01;
constexpr std::uint8_t kRegister = 0x02;
constexpr std::uint8_t kStart = 0x04;
constexpr std::uint8_t kAudioPort = 0x05;
constexpr std::uint8_t kStatus = 0x07;
constexpr std::uint8_t kFrame = 0x10;
constexpr std::uint8_t kHdlcError = 0x11;
constexpr std::uint8_t kConfiguration = 0x12;

// What SizeOf says besides.
constexpr std::size_t kNoMessage = 0;
constexpr std::size_t kMore = static_cast<std::size_t>(-1);

// Bytes of a frame message from its type on, as far as its header tells; the trunk or the length may be none.
std::size_t FrameMessageSize(ByteView bytes, bool isFromCard) {
  if (bytes.size() < 4) {
    return kMore;
  }
  const std::size_t length = tool::ReadLe16(&bytes[2]);
  const bool isTrunk = bytes[1] >= 1 && bytes[1] <= tool::kMaxTrunks;
  const std::size_t limit = isFromCard ? tool::kMaxFrameToLibrary : tool::kMaxFrameFromLibrary;
  if (!isTrunk || length > limit) {
    return kNoMessage;
  }
  return 4 + length + (isFromCard ? 0 : 1);
}

bool HasGoodFcs(ByteView frame) {
  return frame.size() > 2 &&
         tool::FrameCheckSequence(frame.first(frame.size() - 2)) == tool::ReadLe16(&frame[frame.size() - 2]);
}

bool IsHdlcCode(std::uint8_t code) {
  return code == 2 || code == 3 || code == 4 || code == 8;
}

}  // namespace

void CControlDecoder::LoseSync() {
  synced = false;
  inType = false;
  isAfterGap = true;
  Drop(kept.size());
  ++counts.resyncs;
}

void CControlDecoder::Feed(const SPiece& piece) {
  if (piece.isAfterGap) {
    LoseSync();
  }
  if (IsFromCard() && trunks == 0) {
    Learn(piece);
  }
  Keep(piece);
  if (synced || FindSync()) {
    Parse();
  }
}

void CControlDecoder::Learn(const SPiece& piece) {
  const std::size_t size = piece.bytes.size();
  if (!piece.isSegmentStart || size < 3 || size > 2 + tool::kMaxTrunks || piece.bytes[0] != kLead ||
      piece.bytes[1] != kStatus) {
    return;
  }
  const int count = static_cast<int>(size) - 2;
  trunks = std::exchange(shownTrunks, count) == count ? count : 0;
}

void CControlDecoder::Keep(const SPiece& piece) {
  if (kept.size() + piece.bytes.size() > kMostKept) {
    Drop(kept.size());
  }
  marks.push_back({kept.size(), piece.time, piece.packet, piece.isSegmentStart});
  kept.insert(kept.end(), piece.bytes.begin(), piece.bytes.end());
}

// Forgets bytes from the front that were no message.
void CControlDecoder::Drop(std::size_t count) {
  counts.bytesSkipped += count;
  kept.erase(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(count));
  std::vector<SMark> left;
  for (std::size_t i = 0; i < marks.size(); ++i) {
    const std::size_t end = i + 1 < marks.size() ? marks[i + 1].at : kept.size() + count;
    if (end > count) {
      left.push_back(marks[i]);
      left.back().isSegmentStart = marks[i].isSegmentStart && marks[i].at >= count;
      left.back().at = std::max(marks[i].at, count) - count;
    }
  }
  marks = std::move(left);
}

const CControlDecoder::SMark& CControlDecoder::MarkOf(std::size_t at) const {
  const auto after = std::upper_bound(marks.begin(), marks.end(), at,
                                      [](std::size_t place, const SMark& mark) { return place < mark.at; });
  return *std::prev(after);
}

bool CControlDecoder::FindSync() {
  if (IsFromCard() && trunks == 0) {
    return false;  // all is kept until that is known
  }
  for (std::size_t at = 0; at < kept.size(); ++at) {
    const EFit fit = kept[at] == kLead ? Judge(at) : EFit::kNo;
    if (fit == EFit::kNo) {
      continue;
    }
    Drop(at);
    synced = fit == EFit::kFits;
    return synced;
  }
  Drop(kept.size());
  return false;
}

// Whether a message may well begin at `at`, where FF stands.
CControlDecoder::EFit CControlDecoder::Judge(std::size_t at) const {
  const ByteView bytes = ByteView(kept).subspan(at);
  const SMark& mark = MarkOf(at);
  const bool isSegmentStart = mark.isSegmentStart && mark.at == at;
  if (bytes.size() < 2) {
    return EFit::kMaybe;
  }
  return bytes[1] == kFrame ? JudgeFrame(bytes) : JudgeShort(bytes, isSegmentStart);
}

CControlDecoder::EFit CControlDecoder::JudgeFrame(ByteView bytes) const {
  const std::size_t size = FrameMessageSize(bytes.subspan(1), IsFromCard());
  if (size == kNoMessage || (IsFromCard() && bytes.size() > 2 && bytes[2] > trunks)) {
    return EFit::kNo;
  }
  if (size == kMore || bytes.size() < 1 + size) {
    return EFit::kMaybe;
  }
  const ByteView message = bytes.first(1 + size);
  if (IsFromCard()) {
    return HasGoodFcs(message.subspan(5)) ? EFit::kFits : EFit::kNo;
  }
  const bool isAddressed = size > 7 && (message[5] & 1) == 0 && (message[6] & 1) == 1;
  return isAddressed && message.back() == kLead ? EFit::kFits : EFit::kNo;
}

CControlDecoder::EFit CControlDecoder::JudgeShort(ByteView bytes, bool isSegmentStart) const {
  const std::size_t size = SizeOf(bytes.subspan(1));
  if (size == kNoMessage) {
    return EFit::kNo;
  }
  if (size == kMore || bytes.size() < 1 + size) {
    return isSegmentStart ? EFit::kMaybe : EFit::kNo;
  }
  const bool isFollowed = bytes.size() > 1 + size && bytes[1 + size] == kLead;
  bool isRight = isSegmentStart || isFollowed;
  if (!IsFromCard()) {
    isRight = isRight && HasItsEnd(bytes.subspan(1, size)) && (size > 1 || isSegmentStart);
  } else if (bytes[1] == kInformation) {
    constexpr std::string_view kText = "ZELK ";
    isRight = std::equal(kText.begin(), kText.end(), bytes.begin() + 2);
  } else if (bytes[1] == kHdlcError) {
    isRight = isRight && bytes[2] < trunks && IsHdlcCode(bytes[3]);
  } else if (bytes[1] == kRegister) {
    isRight = isSegmentStart && bytes[2] < trunks;
  }
  return isRight ? EFit::kFits : EFit::kNo;
}

// What the library sends ends with FF, but for the messages without contents and the configuration.
bool CControlDecoder::HasItsEnd(ByteView message) const {
  return IsFromCard() || message.size() == 1 || message[0] == kConfiguration || message.back() == kLead;
}

// Bytes of the message from its type on; kNoMessage for a type that this direction has not.
std::size_t CControlDecoder::SizeOf(ByteView bytes) const {
  switch (bytes[0]) {
    case kInformation:
      return IsFromCard() ? 1 + tool::kInformationBytes : 1;
    case kRegister:
      return 5;
    case kFrame:
      return FrameMessageSize(bytes, IsFromCard());
    case kStatus:
      return IsFromCard() ? 1 + static_cast<std::size_t>(trunks) : kNoMessage;
    case kHdlcError:
      return IsFromCard() ? 3 : kNoMessage;
    case kStart:
      return IsFromCard() ? kNoMessage : 1;
    case kAudioPort:
      return IsFromCard() ? kNoMessage : 4;
    case kConfiguration:
      return IsFromCard() ? kNoMessage : 8;
    default:
      return kNoMessage;
  }
}

void CControlDecoder::Parse() {
  std::size_t at = 0;
  while (synced && at < kept.size() && ParseOne(at)) {
  }
  // What was taken was a message or has been counted.
  counts.bytesSkipped -= at;
  Drop(at);
}

// False when more bytes are needed first.
bool CControlDecoder::ParseOne(std::size_t& at) {
  const ByteView bytes = ByteView(kept).subspan(at);
  if (!inType) {
    inType = bytes[0] == kLead;
    counts.bytesSkipped += inType ? 0 : 1;
    ++at;
    return true;
  }
  if (bytes[0] == kStatus && IsFromCard() && trunks == 0) {
    ReturnLead(at);  // its length is not known
    synced = false;
    inType = false;
    return false;
  }
  const std::size_t size = SizeOf(bytes);
  if (size == kMore || (size != kNoMessage && bytes.size() < size)) {
    return false;
  }
  if (size == kNoMessage || !HasItsEnd(bytes.first(size))) {
    // The library takes the next byte of an unknown type for a type; a frame that is none is skipped up to the next FF.
    counts.bytesSkipped += inType && bytes[0] == kLead && IsFromCard() ? 0 : 1;
    inType = size == kNoMessage && bytes[0] != kFrame && IsFromCard();
    ++at;
    return true;
  }
  Emit(bytes.first(size), at + size);
  inType = IsFromCard() && bytes[0] == kRegister;
  at += size;
  return true;
}

// The FF before `at` is looked at again.
void CControlDecoder::ReturnLead(std::size_t& at) {
  if (at > 0) {
    --at;
    return;
  }
  kept.insert(kept.begin(), kLead);
  for (std::size_t i = 1; i < marks.size(); ++i) {
    ++marks[i].at;
  }
}

void CControlDecoder::Emit(ByteView message, std::size_t end) {
  const SMark& mark = MarkOf(end - 1);
  SControl out;
  out.direction = direction;
  out.time = mark.time;
  out.packet = mark.packet;
  out.isAfterGap = std::exchange(isAfterGap, false);
  if (message[0] == kFrame) {
    FillFrame(message, out);
  } else if (IsFromCard()) {
    FillFromCard(message, out);
  } else {
    FillFromLibrary(message, out);
  }
  ++counts.messages;
  sink(std::move(out));
}

void CControlDecoder::FillFromCard(ByteView message, SControl& out) {
  out.body.assign(message.begin() + 1, message.end());
  switch (message[0]) {
    case kInformation:
      out.kind = EControl::kInformation;
      trunks = out.body[6] >= 1 && out.body[6] <= tool::kMaxTrunks ? out.body[6] : trunks;
      break;
    case kRegister:
      out.kind = EControl::kRegisterValue;
      out.trunk = message[1];
      out.value = tool::ReadLe16(&message[2]);
      break;
    case kHdlcError:
      out.kind = EControl::kHdlcError;
      out.trunk = message[1];
      out.value = message[2];
      break;
    default:
      out.kind = EControl::kStatus;
  }
}

void CControlDecoder::FillFromLibrary(ByteView message, SControl& out) {
  switch (message[0]) {
    case kInformation:
      out.kind = EControl::kInformationRequest;
      break;
    case kRegister:
      out.kind = EControl::kRegisterRead;
      out.trunk = message[1] - 1;
      out.value = tool::ReadLe16(&message[2]);
      break;
    case kAudioPort:
      out.kind = EControl::kAudioPort;
      out.value = tool::ReadLe16(&message[1]);
      break;
    case kConfiguration:
      out.kind = EControl::kConfiguration;
      out.trunk = message[1] - 1;
      break;
    default:
      out.kind = EControl::kStart;
  }
}

void CControlDecoder::FillFrame(ByteView message, SControl& out) {
  out.kind = EControl::kFrame;
  out.trunk = message[1] - 1;
  if (!IsFromCard()) {
    out.body.assign(message.begin() + 4, message.end() - 1);
    return;
  }
  const ByteView frame = message.subspan(4);
  out.isFcsGood = HasGoodFcs(frame);
  counts.badFcs += out.isFcsGood ? 0 : 1;
  out.body.assign(frame.begin(), frame.end() - static_cast<std::ptrdiff_t>(std::min<std::size_t>(2, frame.size())));
}

}  // namespace trace

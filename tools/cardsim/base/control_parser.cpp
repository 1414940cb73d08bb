// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/base/control_parser.h"

#include "common/wire.h"

namespace cardsim {
namespace {

constexpr std::size_t kFrameHeaderBytes = 5;

// Length of the message of a type; for a frame, its length as far as the header alone. 0 for an unknown type.
std::size_t FixedBytes(std::uint8_t type) {
  switch (static_cast<EControlType>(type)) {
    case EControlType::kInformationRequest:
    case EControlType::kStart:
      return 2;
    case EControlType::kRegisterRead:
      return 6;
    case EControlType::kAudioPort:
      return 5;
    case EControlType::kFrame:
      return kFrameHeaderBytes;
    case EControlType::kTrunkConfiguration:
      return 9;
  }
  return 0;
}

bool IsTrunkByte(std::uint8_t byte) {
  return byte >= 1 && byte <= kMaxTrunks;
}

}  // namespace

void CControlParser::Feed(ByteView data) {
  for (const std::uint8_t byte : data) {
    FeedByte(byte);
  }
}

void CControlParser::FeedByte(std::uint8_t byte) {
  pending.push_back(byte);
  if (pending.size() == 1) {
    if (byte != 0xFF) {
      Emit(false);
    }
    return;
  }
  const std::size_t wanted = WantedBytes();
  if (wanted == 0) {
    Emit(false);
  } else if (pending.size() >= wanted) {
    Emit(IsWellFormed());
  }
}

std::size_t CControlParser::WantedBytes() const {
  const std::size_t fixed = FixedBytes(pending[1]);
  if (pending[1] != static_cast<std::uint8_t>(EControlType::kFrame) || pending.size() < kFrameHeaderBytes) {
    return fixed;
  }
  const std::size_t length = ReadLe16(&pending[3]);
  return length > kMaxFrameFromLibrary ? 0 : kFrameHeaderBytes + length + 1;
}

bool CControlParser::IsWellFormed() const {
  switch (static_cast<EControlType>(pending[1])) {
    case EControlType::kInformationRequest:
    case EControlType::kStart:
      return true;
    case EControlType::kAudioPort:
      return pending.back() == 0xFF;
    case EControlType::kRegisterRead:
    case EControlType::kFrame:
      return IsTrunkByte(pending[2]) && pending.back() == 0xFF;
    case EControlType::kTrunkConfiguration:
      return IsTrunkByte(pending[2]) && pending[3] == 1 && (pending[5] | pending[6] | pending[7] | pending[8]) == 0;
  }
  return false;
}

void CControlParser::Emit(bool wellFormed) {
  SControlMessage message;
  message.type = pending.size() > 1 ? pending[1] : 0;
  message.wellFormed = wellFormed;
  message.bytes = std::move(pending);
  pending.clear();
  sink(std::move(message));
}

}  // namespace cardsim

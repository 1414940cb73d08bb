// SPDX-License-Identifier: GPL-2.0-only
#include "card/control_parser.h"

#include "platform/bytes.h"
#include "runtime/e1.h"

namespace zelk {

namespace {

enum EMessageType : uint8_t {
  kInformationType = 0x01,
  kRegisterType = 0x02,
  kTrunkStatusType = 0x07,
  kFrameType = 0x10,
  kHdlcErrorType = 0x11,
};

constexpr uint8_t kMarker = 0xFF;

}  // namespace

void CControlParser::Feed(const uint8_t* bytes, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    Step(bytes[i]);
  }
}

void CControlParser::Enter(EState next) {
  state = next;
  count = 0;
}

void CControlParser::Step(uint8_t byte) {
  switch (state) {
    case EState::kIdle:
      return OnIdle(byte);
    case EState::kType:
      return OnType(byte);
    case EState::kInformation:
      return OnInformationByte(byte);
    case EState::kTrunkStatus:
      return OnTrunkStatusByte(byte);
    case EState::kRegister:
      return OnRegisterByte(byte);
    case EState::kFrameTrunk:
      return OnFrameTrunkByte(byte);
    case EState::kFrameLength:
      return OnFrameLengthByte(byte);
    case EState::kFrameData:
      return OnFrameDataByte(byte);
    case EState::kHdlc:
      return OnHdlcByte(byte);
  }
}

void CControlParser::OnIdle(uint8_t byte) {
  if (byte == kMarker) {
    Enter(EState::kType);
  }
}

void CControlParser::OnType(uint8_t byte) {
  switch (byte) {
    case kInformationType:
      return Enter(EState::kInformation);
    case kRegisterType:
      return Enter(EState::kRegister);
    case kTrunkStatusType:
      return Enter(EState::kTrunkStatus);
    case kFrameType:
      return Enter(EState::kFrameTrunk);
    case kHdlcErrorType:
      return Enter(EState::kHdlc);
    default:
      return;  // the next byte is a type byte again
  }
}

void CControlParser::OnInformationByte(uint8_t byte) {
  information[count++] = byte;
  if (count == kCardInformationBytes) {
    Enter(EState::kIdle);
    sink.OnInformation(information);
  }
}

void CControlParser::OnTrunkStatusByte(uint8_t byte) {
  if (count >= kMaxTrunks) {
    return Enter(EState::kIdle);
  }
  sink.OnLineStatus(static_cast<uint32_t>(count), byte);
  if (++count == sink.StatusTrunkCount()) {
    Enter(EState::kIdle);
  }
}

void CControlParser::OnRegisterByte(uint8_t byte) {
  scratch[count++] = byte;
  if (count == 4) {
    // Cards send several read-backs, or a status message, after one marker: the type state stays.
    Enter(EState::kType);
    sink.OnRegister(scratch[0], ReadLittle16(&scratch[1]), scratch[3]);
  }
}

void CControlParser::OnFrameTrunkByte(uint8_t byte) {
  frameTrunk = static_cast<uint8_t>(byte - 1);
  Enter(frameTrunk < kMaxTrunks ? EState::kFrameLength : EState::kIdle);
}

void CControlParser::OnFrameLengthByte(uint8_t byte) {
  if (count++ == 0) {
    frameLength = byte;
    return;
  }
  frameLength |= static_cast<size_t>(byte) << 8;
  // A frame without a byte is complete at once and dropped.
  Enter(frameLength == 0 || frameLength >= kFrameLimit ? EState::kIdle : EState::kFrameData);
}

void CControlParser::OnFrameDataByte(uint8_t byte) {
  scratch[count++] = byte;
  if (count == frameLength) {
    Enter(EState::kIdle);
    sink.OnFrame(frameTrunk, scratch.data(), frameLength);
  }
}

void CControlParser::OnHdlcByte(uint8_t byte) {
  scratch[count++] = byte;
  if (count == 2) {
    Enter(EState::kIdle);
    sink.OnHdlcError(scratch[0], scratch[1]);
  }
}

}  // namespace zelk

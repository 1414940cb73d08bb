// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "card/card_information.h"

namespace zelk {

// The longest D-channel frame taken from a card, FCS included, is one byte shorter.
constexpr size_t kFrameLimit = 300;

// Where the messages of a card go, in the order of the stream. Thread: the parser's.
class IControlSink {
 public:
  virtual ~IControlSink() = default;
  virtual void OnInformation(const uint8_t (&body)[kCardInformationBytes]) = 0;
  // How many bytes a trunk status message has; asked after each of them.
  virtual uint32_t StatusTrunkCount() const = 0;
  virtual void OnLineStatus(uint32_t trunk, uint8_t status) = 0;  // trunk below 8
  virtual void OnRegister(uint8_t trunk, uint16_t registerNumber, uint8_t value) = 0;
  virtual void OnFrame(uint32_t trunk, const uint8_t* frame, size_t length) = 0;  // trunk below 8, length 1..299
  virtual void OnHdlcError(uint8_t trunk, uint8_t code) = 0;
};

// Cuts the byte stream of the control connection into messages, however it is split.
//
//   FF 01 body(22)                      card information
//   FF 02 trunk register(2) value       register read-back; a type byte may follow it without a new FF
//   FF 07 status(trunk count)           line status of every trunk
//   FF 10 trunk+1 length(2) frame       D-channel frame with its FCS
//   FF 11 trunk code                    HDLC error
//
// An unknown type byte is skipped and the next byte is taken as a type byte again. Numbers are little-endian.
// Thread: control. Never blocks by itself.
class CControlParser {
 public:
  explicit CControlParser(IControlSink& messageSink) : sink(messageSink) {}

  void Feed(const uint8_t* bytes, size_t length);

 private:
  enum class EState {
    kIdle,
    kType,
    kInformation,
    kTrunkStatus,
    kRegister,
    kFrameTrunk,
    kFrameLength,
    kFrameData,
    kHdlc
  };

  void Step(uint8_t byte);
  void OnIdle(uint8_t byte);
  void OnType(uint8_t byte);
  void OnInformationByte(uint8_t byte);
  void OnTrunkStatusByte(uint8_t byte);
  void OnRegisterByte(uint8_t byte);
  void OnFrameTrunkByte(uint8_t byte);
  void OnFrameLengthByte(uint8_t byte);
  void OnFrameDataByte(uint8_t byte);
  void OnHdlcByte(uint8_t byte);
  void Enter(EState next);

  IControlSink& sink;
  EState state = EState::kIdle;
  size_t count = 0;  // bytes of the current part that have been taken
  size_t frameLength = 0;
  uint32_t frameTrunk = 0;
  uint8_t information[kCardInformationBytes] = {};
  std::array<uint8_t, kFrameLimit> scratch{};  // frame, register and error bodies
};

}  // namespace zelk

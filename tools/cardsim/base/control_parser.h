// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "cardsim/base/bytes.h"

namespace cardsim {

// The types of the messages that the library sends on the control connection.
enum class EControlType : std::uint8_t {
  kInformationRequest = 0x01,
  kRegisterRead = 0x02,
  kStart = 0x04,
  kAudioPort = 0x05,
  kFrame = 0x10,
  kTrunkConfiguration = 0x12,
};

// One message as it came, lead byte included. A message that breaks its format (bad end byte, trunk or length out of
// range, unknown type) is reported with wellFormed false and has no effect on the card.
struct SControlMessage {
  std::uint8_t type = 0;
  bool wellFormed = true;
  Bytes bytes;
  std::chrono::steady_clock::time_point time;  // when it came, as its connection tells

  bool Is(EControlType wanted) const { return wellFormed && type == static_cast<std::uint8_t>(wanted); }
};

// Job: cuts the byte stream from the library into messages, whatever the pieces it comes in.
//   FF 01 | FF 02 trunk+1 reg16 FF | FF 04 | FF 05 port16 FF | FF 10 trunk+1 len16 frame(len) FF | FF 12 trunk+1 01
//   crc4 0 0 0 0
// Thread: signalling. Owns the unfinished message. Never fails: broken bytes come out as broken messages.
class CControlParser {
 public:
  using Sink = std::function<void(SControlMessage&&)>;

  explicit CControlParser(Sink messageSink) : sink(std::move(messageSink)) {}

  void Feed(ByteView data);
  // Bytes of a message that has not ended yet.
  const Bytes& Pending() const { return pending; }

 private:
  void FeedByte(std::uint8_t byte);
  std::size_t WantedBytes() const;
  bool IsWellFormed() const;
  void Emit(bool wellFormed);

  Sink sink;
  Bytes pending;
};

}  // namespace cardsim

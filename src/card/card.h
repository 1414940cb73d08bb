#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "card/card_handlers.h"
#include "card/trunk.h"
#include "media/audio_stream.h"

namespace zelk {

constexpr uint32_t kMaxCards = 20;
constexpr uint16_t kCardPort = 5854;  // control (TCP), discovery and audio (UDP)

// Drafted public shape; private parts and fields are the implementer's.
class CCard {
 public:
  explicit CCard(uint32_t cardNumber);
  ~CCard();
  CCard(const CCard&) = delete;
  CCard& operator=(const CCard&) = delete;

  // Defaults of all 8 trunk positions, before the first open.
  void SetTrunkDefaults(int32_t switchType, int32_t clientType, int32_t numberType);
  // Blocks for seconds in the worst case. The port is accepted and not used: a card listens on kCardPort.
  bool Open(const char* cardAddress, uint16_t port, const char* localAddress);
  // Safe on a card that is partly open or closed. Waits up to 3 s for each of the card's three threads.
  void Close();
  void SetHandlers(ICardHandlers* handlers);

  uint32_t Number() const;
  uint32_t TrunkCount() const;
  uint32_t SerialNumber() const;
  void RestoreSerialNumber(uint32_t serialNumber);
  uint32_t FeatureFlags() const;
  uint8_t FirmwareVersion() const;
  std::string FirmwareDate() const;
  std::string BurnDate() const;
  bool ControllersRunning() const;

  CTrunk& Trunk(uint32_t trunk);  // trunk below kMaxTrunks
  CAudioStream& Audio();

  // Messages to the card; silently nothing when the control connection is closed. trunk counted from 0.
  void SendTrunkConfiguration(uint32_t trunk);
  void SendRegisterRead(uint32_t trunk, uint16_t registerNumber);
  bool SendDchannelFrame(uint32_t trunk, const uint8_t* frame, size_t length);
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "call/card_channels.h"
#include "card/card_handlers.h"

namespace zelk {

// What the state of one card and its trunks does to their channels, and the log lines of both.
// The methods are those of ICardHandlers. No channel lock is held while the application's callback runs; once the
// caller has been given up meanwhile, nothing is touched any more, this object neither. Trunks that have no channels
// are only logged. Thread: control (the D-channel's with the trunk's lock held), receive for a notice, and the thread
// that opens or re-opens the card.
class CTrunkStatus {
 public:
  explicit CTrunkStatus(const CCardChannels& channels);

  void OnCardUp() const;
  void OnCardDown(const CStopFlag& caller) const;
  void OnNotice(const char* text) const;
  void OnDchannelUp(uint32_t trunk, const CStopFlag& caller) const;
  void OnDchannelDown(uint32_t trunk, const CStopFlag& caller) const;
  void OnConfigError(uint32_t trunk) const;
  void OnQueueOverflow(uint32_t trunk, uint32_t queue) const;
  void OnHdlcError(uint32_t trunk, uint8_t error) const;
  void OnLinkReset(CCard& card, uint32_t trunk) const;
  void OnRegister(uint32_t trunk, uint16_t registerNumber, uint8_t value) const;
  // Calls are lost with the controllers of a card that is closed to be opened again; idle channels stay as they are.
  // A trunk's lock that a callback keeps is not waited for long.
  void OnCardReopening(const CStopFlag& caller) const;

 private:
  void SetTrunkUp(uint32_t trunk, const CStopFlag& caller) const;
  void SetTrunkDown(uint32_t trunk, const CStopFlag& caller) const;
  void LoseCard(const CStopFlag& caller) const;
  bool BringCallsDown(const CStopFlag& caller) const;
  void LogLine(uint32_t trunk, const char* text) const;

  const CCardChannels& channels;
};

}  // namespace zelk

#pragma once

#include <cstdint>

#include "call/card_channels.h"
#include "card/card_handlers.h"

namespace zelk {

// What the state of one card and its trunks does to their channels, and the log lines of both.
// Thread: control (trunk status with the trunk's lock held), and the thread that opens or re-opens the card. No channel
// lock is held while the application's callback runs; once the caller has been given up meanwhile, nothing is touched
// any more, this object neither. Trunks that have no channels are only logged.
class CTrunkStatus {
 public:
  explicit CTrunkStatus(const CCardChannels& channels);

  void OnStatus(CCard& card, uint32_t trunk, ETrunkStatus code, uint16_t value16, uint32_t value32,
                const CStopFlag& caller) const;
  void OnCardState(CCard& card, ECardCode code, const char* text, uint32_t value, const CStopFlag& caller) const;
  // Calls are lost with the controllers of a card that is closed to be opened again; idle channels stay as they are.
  // A trunk's lock that a callback keeps is not waited for long.
  void OnCardReopening(const CStopFlag& caller) const;

 private:
  void SetTrunkUp(uint32_t trunk, const CStopFlag& caller) const;
  void SetTrunkDown(uint32_t trunk, const CStopFlag& caller) const;
  void LoseCard(const CStopFlag& caller) const;
  bool TakeCallsDown(const CStopFlag& caller) const;
  void ResetLink(CCard& card, uint32_t trunk) const;
  size_t FirstSlot(uint32_t trunk) const;

  const CCardChannels& channels;
};

}  // namespace zelk

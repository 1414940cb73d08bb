#pragma once

#include <cstdint>

#include "runtime/config.h"

namespace zelk {

// One channel position's DTMF decoder. (Draft of the public shape; fields are the implementer's.)
// Thread: Process and TakeDigit pacer; Reset and SetThresholds the opener. The digit buffer has its own lock.
class CDtmfDecode {
 public:
  CDtmfDecode();
  virtual ~CDtmfDecode();

  void SetThresholds(const SDtmfSettings& settings);
  void Reset();
  // A received block of A-law bytes, expanded and taken sample by sample. Never allocates.
  void ProcessBlock(const uint8_t* alaw, uint32_t length);
  // One 16-bit linear sample; returns 0.
  int32_t Process(int16_t sample);
  // The oldest digit not yet taken, or 0.
  char TakeDigit();
};

}  // namespace zelk

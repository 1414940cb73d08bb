#pragma once

#include <cstdint>

namespace zelk {

// The layout of the format record of a WAV file; the default is the line's own format.
struct SWaveFormat {
  uint16_t formatTag = 6;  // 1 linear, 6 A-law, 7 mu-law
  uint16_t channels = 1;
  uint32_t samplesPerSecond = 8000;
  uint32_t averageBytesPerSecond = 8000;
  uint16_t blockAlign = 1;
  uint16_t bitsPerSample = 8;
  uint16_t extraSize = 0;
};

}  // namespace zelk

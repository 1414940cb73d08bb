// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <array>
#include <cstdint>

#include "runtime/e1.h"

namespace zelk {

// The tags of a WAV file's format record that the library knows.
enum EWaveTag : uint16_t {
  kTagPcm = 1,
  kTagALaw = 6,
  kTagMuLaw = 7,
};

// The layout of the format record of a WAV file; the default is the line's own format.
struct SWaveFormat {
  uint16_t formatTag = kTagALaw;
  uint16_t channels = 1;
  uint32_t samplesPerSecond = kSampleRate;
  uint32_t averageBytesPerSecond = kSampleRate;
  uint16_t blockAlign = 1;
  uint16_t bitsPerSample = 8;
  uint16_t extraSize = 0;
};

enum class ESampleFormat : uint8_t { kPcm16, kPcm8, kALaw, kMuLaw };

// One format of samples under all its names.
struct SSampleFormat {
  ESampleFormat format;
  const char* name;       // as applications and conversions know it
  EWaveTag tag;           // in the format record of a WAV file
  uint16_t bits;          // a sample
  uint8_t silence;        // the byte that fills where there is no sound
  uint32_t publicNumber;  // of the public header (ZelkSampleFormat); 0: it has none
};

// Silence of the two laws (ITU-T G.711): A-law's smallest positive value, mu-law's negative zero.
inline constexpr std::array<SSampleFormat, 4> kSampleFormats = {{
    {ESampleFormat::kPcm16, "PCM16", kTagPcm, 16, 0x00, 0},
    {ESampleFormat::kPcm8, "PCM8", kTagPcm, 8, 0x80, 0},
    {ESampleFormat::kALaw, "ALAW", kTagALaw, 8, 0xD5, 2},
    {ESampleFormat::kMuLaw, "MULAW", kTagMuLaw, 8, 0x7F, 1},
}};

// What a record names, null for anything else. Linear samples are known by their tag and width, the two laws by the
// tag alone. Thread: any.
const SSampleFormat* SampleFormatOf(const SWaveFormat& record);
// By a name in any letter case; null for another, and for null.
const SSampleFormat* SampleFormatNamed(const char* name);
// By its number of the public header; null for another.
const SSampleFormat* SampleFormatNumbered(uint32_t publicNumber);

}  // namespace zelk

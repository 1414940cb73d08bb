// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#include "formats/wave_format.h"
#include "platform/instruction_set.h"

namespace zelk {

// Both ways between the codes of an 8-bit format and 16-bit samples, low byte first, for count samples at any address.
// What is read and what is written do not overlap. Sample by sample as ALawToLinear, LinearToALaw and theirs in mu-law;
// 8-bit linear codes are the sample's high byte plus 128, cut toward zero. Thread: any; no state.
struct SBlockCodec {
  void (*expand)(const uint8_t* codes, size_t count, uint8_t* samples);
  void (*compress)(const uint8_t* samples, size_t count, uint8_t* codes);
};

// Of each 8-bit format.
struct SBlockCodecs {
  SBlockCodec pcm8;
  SBlockCodec aLaw;
  SBlockCodec muLaw;

  // Null for 16-bit samples themselves.
  const SBlockCodec* Of(ESampleFormat format) const;
};

// The forms for each instruction set; where the system keeps numbers high byte first, all are the plain one.
extern const SBlockCodecs kPlainCodecs;
extern const SBlockCodecs kBaselineCodecs;
extern const SBlockCodecs kAvx2Codecs;

// One set for each instruction set; the caller sees to it that the machine has it.
const SBlockCodecs& BlockCodecs(EInstructionSet instructionSet);
// The fastest that this machine has.
const SBlockCodecs& BlockCodecs();

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

#include "dsp/dtmf_decode.h"
#include "platform/instruction_set.h"

namespace zelk {

// One delivered block, 160 A-law bytes, and the decoder of the position that it is for.
struct SDigitJob {
  CDtmfDecode* decoder;
  const uint8_t* alaw;
  int16_t uniform = -1;  // what all its bytes are known to be: a quiet one is not read then
};

// What ProcessBlock does for each job in this order, for a card's blocks at once. A delivered block yields at most one
// digit: a change of the held digit takes two analysed blocks, and three never end in 160 samples.
// Thread: the one that the decoders listen on (pacer). Never allocates, takes no lock.
void FindDigits(const SDigitJob* jobs, size_t count);
// The same, in a form chosen by the caller, which this machine must support: for tests and measurements.
void FindDigits(const SDigitJob* jobs, size_t count, EInstructionSet instructionSet);

}  // namespace zelk

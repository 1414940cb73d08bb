// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_batch.h"

#include "runtime/e1.h"

namespace zelk {

void FindDigits(const SDigitJob* jobs, size_t count) {
  for (size_t i = 0; i < count; ++i)
    jobs[i].decoder->ProcessBlock(jobs[i].alaw, kBlockBytes);
}

void FindDigits(const SDigitJob* jobs, size_t count, EInstructionSet) {
  FindDigits(jobs, count);
}

}  // namespace zelk

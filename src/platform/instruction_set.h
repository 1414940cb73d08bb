// SPDX-License-Identifier: GPL-2.0-only
#pragma once

namespace zelk {

// The forms in which a loop over many samples is built, each into every binary.
enum class EInstructionSet {
  kPlain,     // one sample at a time, in plain C++: the form that the others are held against
  kBaseline,  // the compiler's 16-byte vectors: what every machine of the architecture has
  kAvx2,      // 32-byte vectors, on x86-64 machines that have them
};

// Whether code built for it runs on this machine, under this system. Thread: any.
bool IsSupported(EInstructionSet instructionSet);
// The fastest of them. Thread: any.
EInstructionSet BestInstructionSet();

}  // namespace zelk

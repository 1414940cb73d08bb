// SPDX-License-Identifier: GPL-2.0-only
#include "platform/instruction_set.h"

namespace zelk {
namespace {

bool HasAvx2() {
#if defined(__x86_64__)
  __builtin_cpu_init();  // callers may run before any constructor
  return __builtin_cpu_supports("avx2");
#else
  return false;
#endif
}

}  // namespace

bool IsSupported(EInstructionSet instructionSet) {
  return instructionSet != EInstructionSet::kAvx2 || HasAvx2();
}

EInstructionSet BestInstructionSet() {
  return HasAvx2() ? EInstructionSet::kAvx2 : EInstructionSet::kBaseline;
}

}  // namespace zelk

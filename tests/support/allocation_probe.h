// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>

namespace support {

// The test program's operator new: counts, and fails on request. Per thread, so that other threads of a test are left
// alone. The failing allocation throws, or gives null in its nothrow form.
uint64_t AllocationCount();  // of this thread so far
size_t LargestAllocation();  // of this thread since the last ForgetLargest
void ForgetLargestAllocation();
void FailAllocation(uint32_t n);  // the n-th from now (1 is the next), once; 0 calls it off
bool AllocationFailed();          // the failure asked for has happened
// Asked for each allocation of every thread, besides: true has it fail. Null: nobody is.
void SetAllocationJudge(bool (*mustFail)());

// Runs act with its first allocation failing, then its second ... until it asks for no more; check(failed) runs after
// each act, the last time with failed == false. The number of allocations that were made to fail.
template <class Act, class Check>
uint32_t ForEachFailingAllocation(Act act, Check check) {
  for (uint32_t n = 1;; ++n) {
    FailAllocation(n);
    act();
    const bool failed = AllocationFailed();
    FailAllocation(0);
    check(failed);
    if (!failed) {
      return n - 1;
    }
  }
}

}  // namespace support

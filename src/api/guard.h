// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <utility>

#include "api/library.h"

namespace zelk {

// The frame of an export: whatever is thrown inside (memory that runs out) becomes the export's failure value.
template <class Result, class Body>
Result Guarded(Result failure, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return failure;
  }
}

template <class Body>
void Guarded(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    // Nothing to report: these exports have no result.
    return;
  }
}

// The frame of an export for one channel: the failure value and nothing else for a number without a channel; otherwise
// the channel's last error is cleared first.
template <class Result, class Body>
Result ForChannel(int32_t channel, Result failure, Body&& body) noexcept {
  return Guarded(failure, [&]() -> Result {
    const CChannelTable::CVisit visit(Library().Channels());
    CDevice* device = visit.Find(channel);
    if (device == nullptr) {
      return failure;
    }
    device->SetLastError(0);
    return std::forward<Body>(body)(*device);
  });
}

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <atomic>

// This system has no limit of socket buffers, and its calls cannot be stood before.
struct SBufferLimit {
  std::atomic<int> limit{0};
  std::atomic<int> receiveAsked{0};
  std::atomic<int> sendAsked{0};
};
inline SBufferLimit bufferLimit;
constexpr bool kBufferLimitWorks = false;

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk {

// Last-error and file result codes, one numbering (the public header states the same values under its own names).
enum EMediaError : uint32_t {
  kErrorNone = 0,
  kErrorBadChannel = 1,
  kErrorNoMemory = 2,
  kErrorFileOpen = 3,
  kErrorFileRead = 4,
  kErrorFileWrite = 5,
  kErrorFileClose = 6,
  kErrorBadFormat = 7,
  kErrorConversion = 8,
};

}  // namespace zelk

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

namespace zelk {

// The causes (ITU-T Q.850) that the library itself produces.
constexpr int32_t kCauseNormalClearing = 16;
constexpr int32_t kCauseCallRejected = 21;
constexpr int32_t kCauseChannelUnavailable = 44;

// The constant name of a cause, "REASON_UNKNOWN" for a number that has none. Thread: any.
const char* DisconnectCauseName(int32_t cause);

}  // namespace zelk

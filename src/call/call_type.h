// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <string_view>

namespace zelk {

// The types of a call, constant texts that the application reads with a channel's information. Thread: any.

constexpr const char* kCallTypeNone = "";  // no call
constexpr const char* kCallTypeVoice = "Voice";

// The type of a redirected call by libpri's reason; "Voice" for a reason that has none of its own.
const char* RedirectCallType(int32_t reason);
// The number of the public interface; that of a voice call for every other text.
uint32_t CallTypeCode(std::string_view type);

}  // namespace zelk

#pragma once

#include <cstdint>

#include "call/device.h"

namespace zelk {

// The information store of a channel. channelCount: the number of channels in the library.
// Thread: any; takes the information lock.

// The text behind an upper-case key ("CLI"), empty for an unknown one. Lives in the channel until its next GetInfo.
const char* GetInfo(CDevice& device, const char* key, int32_t channelCount);
// "DIALCLI" (true) and "ALLOWINCOMING" (false, although it is set); any other key changes nothing and gives false.
bool SetInfo(CDevice& device, const char* key, const char* value);

// The same by the numeric keys of the public interface.
const char* InfoString(CDevice& device, uint32_t code, int32_t channelCount);  // null for a code without a text
uint32_t InfoNumber(CDevice& device, uint32_t code, int32_t channelCount);     // 0 for a code without a number
uint32_t SetInfoNumber(CDevice& device, int32_t code, int32_t value);          // 1 when the code is known

// The call type of a redirected call, or "Voice" for a reason that has none of its own.
const char* RedirectCallType(int32_t reason);
constexpr const char* kCallTypeVoice = "Voice";

}  // namespace zelk

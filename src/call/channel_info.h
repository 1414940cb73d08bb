// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "call/device.h"

namespace zelk {

// The information store of a channel: one table of codes, keys and readers stands in channel_info.cpp, and a new piece
// of information is a line there. channelCount: the number of channels in the library.
// Thread: any; takes callLock or infoLock, one at a time.

// The text of an upper-case key ("CLI"), empty for an unknown one. Lives in the channel until its next GetInfo.
const char* GetInfo(CDevice& device, const char* key, int32_t channelCount);
// "DIALCLI" (true) and "ALLOWINCOMING" (false, although it is set); any other key changes nothing and gives false.
bool SetInfo(CDevice& device, const char* key, const char* value);

// The same by the numeric keys of the public interface.
const char* InfoString(CDevice& device, uint32_t code, int32_t channelCount);  // null for a code without a text
uint32_t InfoNumber(const CDevice& device, uint32_t code);                     // 0 for a code without a number
uint32_t SetInfoNumber(CDevice& device, int32_t code, int32_t value);          // 1 when the code is known

// How the state of a channel reads, and its number in the public interface.
struct SChannelState {
  const char* text;
  uint32_t code;
};
SChannelState ChannelState(const SCallView& call);

}  // namespace zelk

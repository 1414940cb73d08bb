// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "call/device.h"

namespace zelk {

// What the application does with the call of a channel. All return at once; how the call goes on arrives as events.
// Thread: application, also inside a callback for the channel. They take the trunk lock (which waits for a signalling
// event that is being handled on the trunk), within it the call lock, within it the information lock.

// True when the request was handed to the network. False without trace when the channel has a call or number is null;
// false with a log line when there is no controller or it refuses. A call that was refused late stays on the channel,
// destroyed: it reads "INUSE" until something resets it.
bool Dial(CDevice& device, const char* number, const char* callingNumber);

// Always true. A failed answer resets the channel without an event.
bool Answer(CDevice& device);

// Always true. The channel is reset by the network's release, not here.
bool Hangup(CDevice& device);

// True, doing nothing, when the call is connected; else the call is refused, the channel reset, and the result false.
bool Reject(CDevice& device);

}  // namespace zelk

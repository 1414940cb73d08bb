// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "phone/json_line.h"

namespace phone {

// Number, card, trunk (counted from 1, as people do), timeslot and state of a channel.
Json ChannelJson(int32_t channel);

// All cards, trunks and channels as they are now. Thread: any, while the library runs.
Json SnapshotJson();

}  // namespace phone

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "trace/core/data_link.h"

namespace trace {

// What matters of a message's elements in one line: channel, numbers, cause with its name, progress, state, restart.
std::string ElementsText(const tool::SQ931Message& message);
// A frame of layer 2: "SABME P", "RR 5 F", "I 3/7".
std::string FrameText(const tool::SQ921Frame& frame);

}  // namespace trace

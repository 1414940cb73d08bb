// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "common/q931_decode.h"

namespace replay {

// What a replay asks of a frame (ITU-T Q.921), and how it tells one.

bool IsSupervisory(const tool::SQ921Frame& frame);
// Whether its receive number is beyond this send number.
bool Acknowledges(const tool::SQ921Frame& frame, int sendNumber);
// In words and in hexadecimal digits.
std::string InWords(tool::ByteView bytes);
// The call that it is about; empty for none.
std::string CallText(tool::ByteView bytes);

}  // namespace replay

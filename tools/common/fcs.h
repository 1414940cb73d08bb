// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>

#include "common/bytes.h"

namespace tool {

// The HDLC frame check sequence of ITU-T Q.921 (CRC-16/X.25). Sent low byte first after the frame.
std::uint16_t FrameCheckSequence(ByteView frame);

}  // namespace tool

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "doctor/core/wire_facts.h"

namespace doctor {

// What the calls of a D-channel file of the library (zelk-SERIAL-TRUNK.hdlc) show, of the day before its last line or
// of all of it. Layers 1 and 2 are not in it: acknowledgements of the exchange have no line. The marks are lines; of a
// file that breaks off `fault` says so. Throws trace::CTraceError for one that is none.
SWireFacts ReadDChannelFile(const std::string& path, bool lastDayAlone);

}  // namespace doctor

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "trace/core/calls.h"

namespace trace {

// "2026-11-22T12:24:17.123Z"; empty for 0.
std::string IsoTime(Time time);
// "USER_BUSY" for 17; "REASON_UNKNOWN" for what ITU-T Q.850 does not name, empty for -1.
const char* CauseName(int cause);
// For a terminal: what is no printable ASCII becomes a dot.
std::string Printable(const std::string& text);
// Whether the whole text is as the pattern says: * for any characters, ? for one.
bool MatchesGlob(const std::string& pattern, const std::string& text);

std::string CardName(const SCall& call);
const char* EndName(ECallEnd how);
// "library", "network", or "" when nobody has cleared it.
const char* ClearedByName(const SCall& call);

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <vector>

#include "trace/core/calls.h"

namespace trace {

// One arrow of a ladder.
struct SRung {
  Time time = 0;
  bool toLibrary = false;
  std::string name;     // "SETUP", "RR 5"
  std::string details;  // "cause 17 USER_BUSY"
};

struct SLadder {
  SCall call;
  std::vector<SRung> rungs;
};

// One arrow between the two columns, with its details.
std::string RungText(const SRung& rung);
// Two columns, exchange and library; times in seconds from the first rung.
std::string LadderText(const SLadder& ladder);
// Ladders as a picture, one below the other: one SVG file without scripts.
std::string LaddersSvg(const std::vector<SLadder>& ladders);

}  // namespace trace

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <vector>

#include "doctor/core/finding.h"
#include "doctor/core/log_facts.h"
#include "doctor/core/place_facts.h"
#include "doctor/core/wire_facts.h"

// What follows from what was seen: from facts to findings, without a look at anything else. Thread: any. Nothing fails.
namespace doctor {

// `serials` empty: no card was seen, and a trunk's section may be of any.
Findings IniRules(const SLibraryFacts& library, const Serials& serials);
Findings FolderRules(const SLibraryFacts& library);
Findings PageRules(const SLibraryFacts& library);
Findings LogRules(const SLogFacts& log);
// `cards`: addresses of cards that were seen.
Findings AdapterRules(const SMachineFacts& machine, const std::vector<std::uint32_t>& cards);
Findings HolderRules(const SMachineFacts& machine);

Findings ConnectionRules(const SWireFacts& wire);
Findings LineRules(const SWireFacts& wire);  // layers 1 and 2
Findings CallRules(const SWireFacts& wire);  // layer 3
Findings AudioRules(const SWireFacts& wire);
Findings ClockRules(const SWireFacts& wire);
// Layer 3 of a D-channel file.
Findings DChannelRules(const SWireFacts& file);
// All of them that a capture is enough for.
Findings WireRules(const SWireFacts& wire);

}  // namespace doctor

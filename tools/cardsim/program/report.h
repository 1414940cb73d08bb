// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "cardsim/card/simulator.h"
#include "cardsim/program/traffic.h"

namespace cardsim {

// Says on standard output where the cards are: they can be found now. Announces them when asked to.
void ShowCards(CSimulator& sim, bool isAnnounced);
// The summary for a person, several lines.
std::string SummaryText(const CSimulator& sim, const CTraffic& traffic, double seconds);
// One line of the state now.
std::string StatusText(const CSimulator& sim, const CTraffic& traffic);
// The report: {"seconds", "totals", "cards": [...], "calls": [...]}.
std::string ReportJson(const CSimulator& sim, const CTraffic& traffic, double seconds);
// Throws std::runtime_error, with the file's name, when it cannot be written.
void WriteReport(const std::string& path, const std::string& json);

}  // namespace cardsim

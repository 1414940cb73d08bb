// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>
#include <vector>

#include "cardsim/scenario/scenario_run.h"

namespace cardsim {

// One line about a result, for a person.
std::string LineOf(const SScenarioResult& result);

// The results as a JUnit report: a test suite with the scenario's name, a test case for each call. Bytes that are no
// printable ASCII become question marks.
std::string JUnitReport(const std::string& scenario, const std::vector<SScenarioResult>& results);

}  // namespace cardsim

// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "doctor/core/finding.h"

namespace doctor {

// The findings for a reader, the worst first, and a line that sums them up.
std::string TextReport(const Findings& findings);
// The same as one object a line: hello, each finding, end.
std::string JsonReport(const Findings& findings);

}  // namespace doctor
